#include "persistence/CASettingsStorage.h"

#include <errno.h>
#include <sys/stat.h>

#include <cstdlib>
#include <cstring>
#include <new>

#include "persistence/CASettingsFile.h"
#include "support/CACFDistributedNotification.h"
#include "support/CACFNumber.h"
#include "support/CACFObject.h"

namespace {

constexpr off_t kMaximumFileSize = 4 << 20;
// Whoever holds the lock needs it for one small read or write. Longer than this and it is held to
// no good end; then it is not worth waiting for each time.
constexpr UInt32 kLockMilliseconds = 1000;
constexpr UInt32 kHostageLockMilliseconds = 20;
// How often an access starts again because the file changed under it.
constexpr int kMaximumTries = 8;

bool IsOlder(const struct timespec& inTime, const struct timespec& inOther) {
  if (inTime.tv_sec != inOther.tv_sec) return inTime.tv_sec < inOther.tv_sec;
  return inTime.tv_nsec < inOther.tv_nsec;
}

bool IsSet(const struct timespec& inTime) {
  return inTime.tv_sec != 0 || inTime.tv_nsec != 0;
}

// A value that is not of that type gives way to the default.
template <class T>
T CopyIfOfType(CFTypeRef inValue, CFTypeID inTypeID, T inDefaultValue) {
  const bool theIsOfType = inValue != nullptr && CFGetTypeID(inValue) == inTypeID;
  T theAnswer = theIsOfType ? static_cast<T>(inValue) : inDefaultValue;
  if (theAnswer != nullptr) CFRetain(theAnswer);
  return theAnswer;
}

CFNumberRef AsNumber(CFTypeRef inValue) {
  const bool theIsNumber = inValue != nullptr && CFGetTypeID(inValue) == CFNumberGetTypeID();
  return theIsNumber ? static_cast<CFNumberRef>(inValue) : nullptr;
}

}  // namespace

CASettingsStorage::CASettingsStorage(const char* inSettingsFilePath, UInt16 inSettingsFileMode,
                                     CFPropertyListFormat inSettingsFileFormat,
                                     bool inIsSingleProcessOnly, bool inIsReadOnly)
    : mSettingsFilePath(strdup(inSettingsFilePath)),
      mSettingsFileMode(inSettingsFileMode),
      mSettings(nullptr),
      mSettingsFileFormat(inSettingsFileFormat),
      mSettingsCacheTime(),
      mSettingsCacheForceRefresh(true),
      mIsSingleProcessOnly(inIsSingleProcessOnly),
      mIsReadOnly(inIsReadOnly),
      mLockIsHeldHostage(false) {
  if (mSettingsFilePath == nullptr) throw std::bad_alloc();
  MakeSettings();
}

CASettingsStorage::~CASettingsStorage() {
  if (mSettings != nullptr) CFRelease(mSettings);
  std::free(mSettingsFilePath);
}

void CASettingsStorage::MakeSettings() {
  if (mSettings != nullptr) return;
  mSettings = CFDictionaryCreateMutable(nullptr, 0, &kCFTypeDictionaryKeyCallBacks,
                                        &kCFTypeDictionaryValueCallBacks);
}

// Keys and values.

UInt32 CASettingsStorage::GetNumberKeys() {
  RefreshSettings();
  return static_cast<UInt32>(CFDictionaryGetCount(mSettings));
}

void CASettingsStorage::GetKeys(UInt32 inNumberKeys, UInt32& outNumberKeys, CFStringRef* outKeys) {
  RefreshSettings();
  CFDictionaryGetKeysAndValues(mSettings, reinterpret_cast<const void**>(outKeys), nullptr);
  outNumberKeys = inNumberKeys;
}

CFTypeRef CASettingsStorage::GetValue(CFStringRef inKey) {
  RefreshSettings();
  return CFDictionaryGetValue(mSettings, inKey);
}

void CASettingsStorage::CopyBoolValue(CFStringRef inKey, bool& outValue, bool inDefaultValue) {
  outValue = inDefaultValue;
  CFTypeRef theValue = GetValue(inKey);
  if (theValue == nullptr) return;
  if (CFGetTypeID(theValue) == CFBooleanGetTypeID()) {
    outValue = CFBooleanGetValue(static_cast<CFBooleanRef>(theValue));
  } else if (CFNumberRef theNumber = AsNumber(theValue)) {
    outValue = CACFNumber(theNumber, false).GetSInt32() != 0;
  }
}

void CASettingsStorage::CopySInt32Value(CFStringRef inKey, SInt32& outValue,
                                        SInt32 inDefaultValue) {
  CFNumberRef theNumber = AsNumber(GetValue(inKey));
  outValue = theNumber != nullptr ? CACFNumber(theNumber, false).GetSInt32() : inDefaultValue;
}

void CASettingsStorage::CopyUInt32Value(CFStringRef inKey, UInt32& outValue,
                                        UInt32 inDefaultValue) {
  CFNumberRef theNumber = AsNumber(GetValue(inKey));
  outValue = theNumber != nullptr ? CACFNumber(theNumber, false).GetUInt32() : inDefaultValue;
}

void CASettingsStorage::CopySInt64Value(CFStringRef inKey, SInt64& outValue,
                                        SInt64 inDefaultValue) {
  CFNumberRef theNumber = AsNumber(GetValue(inKey));
  outValue = theNumber != nullptr ? CACFNumber(theNumber, false).GetSInt64() : inDefaultValue;
}

void CASettingsStorage::CopyUInt64Value(CFStringRef inKey, UInt64& outValue,
                                        UInt64 inDefaultValue) {
  CFNumberRef theNumber = AsNumber(GetValue(inKey));
  outValue = theNumber != nullptr ? CACFNumber(theNumber, false).GetUInt64() : inDefaultValue;
}

void CASettingsStorage::CopyFloat32Value(CFStringRef inKey, Float32& outValue,
                                         Float32 inDefaultValue) {
  CFNumberRef theNumber = AsNumber(GetValue(inKey));
  outValue = theNumber != nullptr ? CACFNumber(theNumber, false).GetFloat32() : inDefaultValue;
}

void CASettingsStorage::CopyFloat64Value(CFStringRef inKey, Float64& outValue,
                                         Float64 inDefaultValue) {
  CFNumberRef theNumber = AsNumber(GetValue(inKey));
  outValue = theNumber != nullptr ? CACFNumber(theNumber, false).GetFloat64() : inDefaultValue;
}

void CASettingsStorage::CopyNumberValue(CFStringRef inKey, CFNumberRef& outValue,
                                        CFNumberRef inDefaultValue) {
  outValue = CopyIfOfType(GetValue(inKey), CFNumberGetTypeID(), inDefaultValue);
}

void CASettingsStorage::CopyStringValue(CFStringRef inKey, CFStringRef& outValue,
                                        CFStringRef inDefaultValue) {
  outValue = CopyIfOfType(GetValue(inKey), CFStringGetTypeID(), inDefaultValue);
}

void CASettingsStorage::CopyArrayValue(CFStringRef inKey, CFArrayRef& outValue,
                                       CFArrayRef inDefaultValue) {
  outValue = CopyIfOfType(GetValue(inKey), CFArrayGetTypeID(), inDefaultValue);
}

void CASettingsStorage::CopyDictionaryValue(CFStringRef inKey, CFDictionaryRef& outValue,
                                            CFDictionaryRef inDefaultValue) {
  outValue = CopyIfOfType(GetValue(inKey), CFDictionaryGetTypeID(), inDefaultValue);
}

void CASettingsStorage::CopyDataValue(CFStringRef inKey, CFDataRef& outValue,
                                      CFDataRef inDefaultValue) {
  outValue = CopyIfOfType(GetValue(inKey), CFDataGetTypeID(), inDefaultValue);
}

void CASettingsStorage::CopyCFTypeValue(CFStringRef inKey, CFTypeRef& outValue,
                                        CFTypeRef inDefaultValue) {
  CFTypeRef theValue = GetValue(inKey);
  outValue = theValue != nullptr ? theValue : inDefaultValue;
  if (outValue != nullptr) CFRetain(outValue);
}

void CASettingsStorage::SetSInt32Value(CFStringRef inKey, SInt32 inValue) {
  SetNumberValue(inKey, CACFNumber(inValue).GetCFNumber());
}

void CASettingsStorage::SetUInt32Value(CFStringRef inKey, UInt32 inValue) {
  SetNumberValue(inKey, CACFNumber(inValue).GetCFNumber());
}

void CASettingsStorage::SetSInt64Value(CFStringRef inKey, SInt64 inValue) {
  SetNumberValue(inKey, CACFNumber(inValue).GetCFNumber());
}

void CASettingsStorage::SetUInt64Value(CFStringRef inKey, UInt64 inValue) {
  SetNumberValue(inKey, CACFNumber(inValue).GetCFNumber());
}

void CASettingsStorage::SetFloat32Value(CFStringRef inKey, Float32 inValue) {
  SetNumberValue(inKey, CACFNumber(inValue).GetCFNumber());
}

void CASettingsStorage::SetFloat64Value(CFStringRef inKey, Float64 inValue) {
  SetNumberValue(inKey, CACFNumber(inValue).GetCFNumber());
}

void CASettingsStorage::SetNumberValue(CFStringRef inKey, CFNumberRef inValue) {
  SetCFTypeValue(inKey, inValue);
}

void CASettingsStorage::SetStringValue(CFStringRef inKey, CFStringRef inValue) {
  SetCFTypeValue(inKey, inValue);
}

void CASettingsStorage::SetArrayValue(CFStringRef inKey, CFArrayRef inValue) {
  SetCFTypeValue(inKey, inValue);
}

void CASettingsStorage::SetDictionaryValue(CFStringRef inKey, CFDictionaryRef inValue) {
  SetCFTypeValue(inKey, inValue);
}

void CASettingsStorage::SetDataValue(CFStringRef inKey, CFDataRef inValue) {
  SetCFTypeValue(inKey, inValue);
}

void CASettingsStorage::SetCFTypeValue(CFStringRef inKey, CFTypeRef inValue) {
  RefreshSettings();
  if (inValue != nullptr) CFDictionarySetValue(mSettings, inKey, inValue);
  SaveSettings();
}

void CASettingsStorage::RemoveValue(CFStringRef inKey) {
  RefreshSettings();
  CFDictionaryRemoveValue(mSettings, inKey);
  SaveSettings();
}

void CASettingsStorage::RemoveAllValues() {
  RefreshSettings();
  CFDictionaryRemoveAllValues(mSettings);
  SaveSettings();
}

void CASettingsStorage::SendNotification(CFStringRef inName, CFDictionaryRef inUserInfo,
                                         bool inPostToAllUsers) {
  CACFDistributedNotification::PostNotification(inName, inUserInfo, inPostToAllUsers);
}

void CASettingsStorage::ForceRefresh() {
  mSettingsCacheForceRefresh = true;
}

// The file.

void CASettingsStorage::RefreshSettings() {
  if (mIsSingleProcessOnly && mSettings != nullptr && IsSet(mSettingsCacheTime) &&
      !mSettingsCacheForceRefresh) {
    return;
  }
  // Starts again when another process was quicker to replace what this one found.
  MakeSettings();
  for (int theTry = 0; theTry < kMaximumTries; ++theTry) {
    struct stat theStatus;
    Found theFound;
    if (stat(mSettingsFilePath, &theStatus) == 0) {
      if (!IsOlder(mSettingsCacheTime, theStatus.st_mtimespec) && !mSettingsCacheForceRefresh) {
        return;
      }
      if (LoadSettings(theStatus.st_mtimespec, theFound)) return;
    }
    MakeSettings();
    mSettingsCacheTime = {};
    if (ReplaceFile(theFound) != Saved::kNotAsFound) return;
  }
}

bool CASettingsStorage::LoadSettings(const struct timespec& inFileTime, Found& outFound) {
  outFound.mKind = Found::kNothingUsable;
  CASettingsFile theFile(mSettingsFilePath);
  if (!theFile.OpenForReading()) {
    // That this process has run out of something says nothing about the file.
    return errno == EMFILE || errno == ENFILE || errno == ENOMEM;
  }
  if (!LockFile(theFile)) {
    // Without the lock the file could not be replaced either: what is in hand must do.
    return theFile.IsOpen();
  }
  if (!theFile.IsInPlace()) {
    // Replaced while it was waited for; what stands there now is to be looked at.
    outFound.mKind = Found::kNothing;
    return false;
  }
  mSettingsCacheForceRefresh = false;
  struct stat theStatus;
  if (theFile.GetStatus(theStatus) && theStatus.st_size > kMaximumFileSize) {
    outFound.mKind = Found::kTooMuch;
  } else if (theFile.Read(outFound.mBytes)) {
    outFound.mKind = Found::kBytes;
  }
  theFile.Close();
  // An empty file is one that a writer has opened and not yet written: it costs nobody what he has.
  if (outFound.mKind == Found::kBytes && outFound.mBytes.empty()) return false;

  if (mSettings != nullptr) CFRelease(mSettings);
  mSettings = nullptr;
  if (outFound.mKind != Found::kBytes || !ParseSettings(outFound.mBytes)) return false;
  mSettingsCacheTime = inFileTime;
  return true;
}

bool CASettingsStorage::ParseSettings(const std::vector<UInt8>& inBytes) {
  const CACFObject<CFDataRef> theData(CFDataCreateWithBytesNoCopy(
      nullptr, inBytes.data(), static_cast<CFIndex>(inBytes.size()), kCFAllocatorNull));
  if (!theData.IsValid()) return false;
  CACFObject<CFPropertyListRef> theList(CFPropertyListCreateWithData(
      nullptr, theData.GetObject(), kCFPropertyListMutableContainersAndLeaves, nullptr, nullptr));
  if (!theList.IsValid() || CFGetTypeID(theList.GetObject()) != CFDictionaryGetTypeID()) {
    return false;
  }
  mSettings = static_cast<CFMutableDictionaryRef>(const_cast<void*>(theList.CopyObject()));
  return true;
}

bool CASettingsStorage::LockFile(CASettingsFile& inFile) {
  const bool theIsLocked =
      inFile.Lock(mLockIsHeldHostage ? kHostageLockMilliseconds : kLockMilliseconds);
  mLockIsHeldHostage = !theIsLocked;
  return theIsLocked;
}

void CASettingsStorage::SaveSettings() {
  const CACFObject<CFDataRef> theData(CopySerializedSettings());
  if (!theData.IsValid()) return;
  for (int theTry = 0; theTry < kMaximumTries; ++theTry) {
    CASettingsFile theFile(mSettingsFilePath);
    if (!theFile.OpenForWriting() && !theFile.Create()) {
      // The path may just have got its file, or lost it.
      if (errno == EEXIST) continue;
      return;
    }
    // Emptied before the lock is had: readers know an empty file as one that is being written.
    if (!theFile.Empty()) return;
    if (!LockFile(theFile)) return;
    if (!theFile.IsInPlace()) continue;
    WriteLockedFile(theFile, theData.GetObject());
    return;
  }
}

CASettingsStorage::Saved CASettingsStorage::ReplaceFile(const Found& inFound) {
  const CACFObject<CFDataRef> theData(CopySerializedSettings());
  if (!theData.IsValid()) return Saved::kNo;
  CASettingsFile theFile(mSettingsFilePath);
  if (inFound.mKind == Found::kNothing) {
    if (!theFile.Create()) return errno == EEXIST ? Saved::kNotAsFound : Saved::kNo;
  } else if (!theFile.OpenForWriting()) {
    return errno == ENOENT ? Saved::kNotAsFound : Saved::kNo;
  }
  if (!LockFile(theFile)) return Saved::kNo;
  if (!theFile.IsInPlace()) return Saved::kNotAsFound;

  // Not over what another process has written since.
  struct stat theStatus;
  std::vector<UInt8> theBytes;
  if (!theFile.GetStatus(theStatus)) return Saved::kNo;
  const bool theIsTooMuch = theStatus.st_size > kMaximumFileSize;
  switch (inFound.mKind) {
    case Found::kNothing:
      if (theStatus.st_size != 0) return Saved::kNotAsFound;
      break;
    case Found::kTooMuch:
      if (!theIsTooMuch) return Saved::kNotAsFound;
      break;
    case Found::kBytes:
      if (theIsTooMuch) return Saved::kNotAsFound;
      if (!theFile.Read(theBytes)) return Saved::kNo;
      if (theBytes != inFound.mBytes) return Saved::kNotAsFound;
      break;
    case Found::kNothingUsable:
      break;
  }
  WriteLockedFile(theFile, theData.GetObject());
  return Saved::kYes;
}

CFDataRef CASettingsStorage::CopySerializedSettings() const {
  if (mIsReadOnly || mSettings == nullptr) return nullptr;
  return CFPropertyListCreateData(nullptr, mSettings, mSettingsFileFormat, 0, nullptr);
}

void CASettingsStorage::WriteLockedFile(const CASettingsFile& inFile, CFDataRef inData) {
  if (mSettingsFileMode != 0) inFile.SetMode(mSettingsFileMode);
  // Taken while the file is locked, so that it is the time of this write and of no later one. With
  // no time set, the next access tries again.
  mSettingsCacheTime = {};
  struct stat theStatus;
  if (inFile.Write(CFDataGetBytePtr(inData), static_cast<size_t>(CFDataGetLength(inData))) &&
      inFile.GetStatus(theStatus)) {
    mSettingsCacheTime = theStatus.st_mtimespec;
  }
}
