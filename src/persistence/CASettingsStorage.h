#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <ctime>
#include <string>
#include <vector>

#include "support/CACFObject.h"

class CASettingsFile;

// A property-list dictionary in a file that many processes share.
//
// Purpose: reads and writes typed values by key. Each change is written through at once; each
//   access first looks whether another process has changed the file, and takes over what it finds.
//   A file that is missing or does not parse counts as empty and is replaced.
// Thread: one at a time; the caller holds a lock of its own. Between processes, flock orders whole
//   reads and whole writes. Two changes that fall into one tick of the file system's clock look
//   alike from outside; who knows of a change says so with ForceRefresh.
// Ownership: the path is copied and the dictionary owned. A reference that a Copy operation hands
//   out is the caller's to release; keys are lent until the next access; defaults and values that
//   are set are borrowed.
// Units and range: numbers at the width in the operation's name. A file larger than 4 MiB is not
//   read.
// Failure: none is reported but std::bad_alloc. What cannot be read gives the default; what cannot
//   be written stays in memory. The file may lie where others can write: it is only used if it is a
//   regular file with one link, and its lock is waited for within a bound.
class CASettingsStorage {
 public:
  // A mode of 0 leaves the file's mode alone. Touches no file.
  CASettingsStorage(const char* inSettingsFilePath, UInt16 inSettingsFileMode,
                    CFPropertyListFormat inSettingsFileFormat, bool inIsSingleProcessOnly,
                    bool inIsReadOnly);
  ~CASettingsStorage();
  CASettingsStorage(const CASettingsStorage&) = delete;
  CASettingsStorage& operator=(const CASettingsStorage&) = delete;

  UInt32 GetNumberKeys();
  // Copies all keys, whatever the number; outNumberKeys is set to inNumberKeys.
  void GetKeys(UInt32 inNumberKeys, UInt32& outNumberKeys, CFStringRef* outKeys);

  void CopyBoolValue(CFStringRef inKey, bool& outValue, bool inDefaultValue);
  void CopySInt32Value(CFStringRef inKey, SInt32& outValue, SInt32 inDefaultValue);
  void CopyUInt32Value(CFStringRef inKey, UInt32& outValue, UInt32 inDefaultValue);
  void CopySInt64Value(CFStringRef inKey, SInt64& outValue, SInt64 inDefaultValue);
  void CopyUInt64Value(CFStringRef inKey, UInt64& outValue, UInt64 inDefaultValue);
  void CopyFloat32Value(CFStringRef inKey, Float32& outValue, Float32 inDefaultValue);
  void CopyFloat64Value(CFStringRef inKey, Float64& outValue, Float64 inDefaultValue);
  // A value of another type gives the default, as a missing one does.
  void CopyNumberValue(CFStringRef inKey, CFNumberRef& outValue, CFNumberRef inDefaultValue);
  void CopyStringValue(CFStringRef inKey, CFStringRef& outValue, CFStringRef inDefaultValue);
  void CopyArrayValue(CFStringRef inKey, CFArrayRef& outValue, CFArrayRef inDefaultValue);
  void CopyDictionaryValue(CFStringRef inKey, CFDictionaryRef& outValue,
                           CFDictionaryRef inDefaultValue);
  void CopyDataValue(CFStringRef inKey, CFDataRef& outValue, CFDataRef inDefaultValue);
  void CopyCFTypeValue(CFStringRef inKey, CFTypeRef& outValue, CFTypeRef inDefaultValue);

  void SetSInt32Value(CFStringRef inKey, SInt32 inValue);
  void SetUInt32Value(CFStringRef inKey, UInt32 inValue);
  void SetSInt64Value(CFStringRef inKey, SInt64 inValue);
  void SetUInt64Value(CFStringRef inKey, UInt64 inValue);
  void SetFloat32Value(CFStringRef inKey, Float32 inValue);
  void SetFloat64Value(CFStringRef inKey, Float64 inValue);
  void SetNumberValue(CFStringRef inKey, CFNumberRef inValue);
  void SetStringValue(CFStringRef inKey, CFStringRef inValue);
  void SetArrayValue(CFStringRef inKey, CFArrayRef inValue);
  void SetDictionaryValue(CFStringRef inKey, CFDictionaryRef inValue);
  void SetDataValue(CFStringRef inKey, CFDataRef inValue);
  void SetCFTypeValue(CFStringRef inKey, CFTypeRef inValue);

  void RemoveValue(CFStringRef inKey);
  void RemoveAllValues();

  // To the observers of all users with the flag.
  void SendNotification(CFStringRef inName, CFDictionaryRef inUserInfo, bool inPostToAllUsers);
  // The next access reads the file, whatever its time.
  void ForceRefresh();

 private:
  // What stood where the settings should have been. A file that is missing is like an empty one.
  struct Found {
    enum Kind { kNothingUsable, kTooMuch, kBytes };
    Kind mKind = kBytes;
    std::vector<UInt8> mBytes;  // none in an empty file
    bool operator==(const Found&) const = default;
  };
  enum class Outcome { kDone, kNotDone, kNotAsFound };

  void RefreshSettings();
  // If not done the file must be replaced; outFound then says what was in it.
  Outcome LoadSettings(const struct timespec& inFileTime, Found& outFound);
  Outcome ParseSettings(const std::vector<UInt8>& inBytes, const struct timespec& inFileTime);
  static void ReadFile(const CASettingsFile& inFile, Found& outFound);
  bool LockFile(CASettingsFile& inFile);
  void SaveSettings();
  // Replaces what was found unless it has changed since.
  Outcome ReplaceFile(const Found& inFound);
  static Outcome OpenOrCreate(CASettingsFile& outFile);
  CFDataRef CopySerializedSettings() const;
  void WriteLockedFile(const CASettingsFile& inFile, CFDataRef inData);
  CFTypeRef GetValue(CFStringRef inKey);

  const std::string mSettingsFilePath;
  UInt16 mSettingsFileMode;
  CACFObject<CFMutableDictionaryRef> mSettings;  // there always is one
  CFPropertyListFormat mSettingsFileFormat;
  struct timespec mSettingsCacheTime;  // the file's when last read or written; 0 and 0 if neither
  bool mSettingsCacheForceRefresh;
  bool mIsSingleProcessOnly;
  bool mIsReadOnly;
  bool mLockIsHeldHostage;  // a wait for it was in vain; until it is had again, waits are short
};
