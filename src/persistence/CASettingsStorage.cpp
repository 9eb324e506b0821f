#include "persistence/CASettingsStorage.h"

#include <errno.h>
#include <sys/stat.h>

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

// A number, read at the width of the getter.
template <class T>
T ReadIfNumber(CFTypeRef inValue, T (CACFNumber::*inGetter)() const, T inDefaultValue) {
  if (inValue == nullptr || CFGetTypeID(inValue) != CFNumberGetTypeID()) return inDefaultValue;
  return (CACFNumber(static_cast<CFNumberRef>(inValue), false).*inGetter)();
}

}  // namespace

CASettingsStorage::CASettingsStorage(const char* inSettingsFilePath, UInt16 inSettingsFileMode,
                                     CFPropertyListFormat inSettingsFileFormat,
                                     bool inIsSingleProcessOnly, bool inIsReadOnly)
    : mSettingsFilePath(inSettingsFilePath),
      mSettingsFileMode(inSettingsFileMode),
      mSettings(CFDictionaryCreateMutable(nullptr, 0, &kCFTypeDictionaryKeyCallBacks,
                                          &kCFTypeDictionaryValueCallBacks)),
      mSettingsFileFormat(inSettingsFileFormat),
      mSettingsCacheTime(),
      mSettingsCacheForceRefresh(true),
      mIsSingleProcessOnly(inIsSingleProcessOnly),
      mIsReadOnly(inIsReadOnly),
      mLockIsHeldHostage(false) {
  if (!mSettings.IsValid()) throw std::bad_alloc();
}

CASettingsStorage::~CASettingsStorage() = default;

// Keys and values.

UInt32 CASettingsStorage::GetNumberKeys() {
  RefreshSettings();
  return static_cast<UInt32>(CFDictionaryGetCount(mSettings.GetObject()));
}

void CASettingsStorage::GetKeys(UInt32 inNumberKeys, UInt32& outNumberKeys, CFStringRef* outKeys) {
  RefreshSettings();
  CFDictionaryGetKeysAndValues(mSettings.GetObject(), reinterpret_cast<const void**>(outKeys),
                               nullptr);
  outNumberKeys = inNumberKeys;
}

CFTypeRef CASettingsStorage::GetValue(CFStringRef inKey) {
  RefreshSettings();
  return CFDictionaryGetValue(mSettings.GetObject(), inKey);
}

void CASettingsStorage::CopyBoolValue(CFStringRef inKey, bool& outValue, bool inDefaultValue) {
  CFTypeRef theValue = GetValue(inKey);
  if (theValue != nullptr && CFGetTypeID(theValue) == CFBooleanGetTypeID()) {
    outValue = CFBooleanGetValue(static_cast<CFBooleanRef>(theValue));
  } else {
    outValue = ReadIfNumber<SInt32>(theValue, &CACFNumber::GetSInt32, inDefaultValue) != 0;
  }
}

void CASettingsStorage::CopySInt32Value(CFStringRef inKey, SInt32& outValue,
                                        SInt32 inDefaultValue) {
  outValue = ReadIfNumber(GetValue(inKey), &CACFNumber::GetSInt32, inDefaultValue);
}

void CASettingsStorage::CopyUInt32Value(CFStringRef inKey, UInt32& outValue,
                                        UInt32 inDefaultValue) {
  outValue = ReadIfNumber(GetValue(inKey), &CACFNumber::GetUInt32, inDefaultValue);
}

void CASettingsStorage::CopySInt64Value(CFStringRef inKey, SInt64& outValue,
                                        SInt64 inDefaultValue) {
  outValue = ReadIfNumber(GetValue(inKey), &CACFNumber::GetSInt64, inDefaultValue);
}

void CASettingsStorage::CopyUInt64Value(CFStringRef inKey, UInt64& outValue,
                                        UInt64 inDefaultValue) {
  outValue = ReadIfNumber(GetValue(inKey), &CACFNumber::GetUInt64, inDefaultValue);
}

void CASettingsStorage::CopyFloat32Value(CFStringRef inKey, Float32& outValue,
                                         Float32 inDefaultValue) {
  outValue = ReadIfNumber(GetValue(inKey), &CACFNumber::GetFloat32, inDefaultValue);
}

void CASettingsStorage::CopyFloat64Value(CFStringRef inKey, Float64& outValue,
                                         Float64 inDefaultValue) {
  outValue = ReadIfNumber(GetValue(inKey), &CACFNumber::GetFloat64, inDefaultValue);
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
  if (inValue != nullptr) CFDictionarySetValue(mSettings.GetObject(), inKey, inValue);
  SaveSettings();
}

void CASettingsStorage::RemoveValue(CFStringRef inKey) {
  RefreshSettings();
  CFDictionaryRemoveValue(mSettings.GetObject(), inKey);
  SaveSettings();
}

void CASettingsStorage::RemoveAllValues() {
  RefreshSettings();
  CFDictionaryRemoveAllValues(mSettings.GetObject());
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
  if (mIsSingleProcessOnly && IsSet(mSettingsCacheTime) && !mSettingsCacheForceRefresh) return;
  // Starts again when another process was quicker to replace what this one found.
  for (int theTry = 0; theTry < kMaximumTries; ++theTry) {
    struct stat theStatus;
    Found theFound;
    if (stat(mSettingsFilePath.c_str(), &theStatus) == 0) {
      if (!IsOlder(mSettingsCacheTime, theStatus.st_mtimespec) && !mSettingsCacheForceRefresh) {
        return;
      }
      const Outcome theOutcome = LoadSettings(theStatus.st_mtimespec, theFound);
      if (theOutcome == Outcome::kDone) return;
      if (theOutcome == Outcome::kNotAsFound) continue;
    }
    mSettingsCacheTime = {};
    if (ReplaceFile(theFound) != Outcome::kNotAsFound) return;
  }
}

CASettingsStorage::Outcome CASettingsStorage::LoadSettings(const struct timespec& inFileTime,
                                                           Found& outFound) {
  CASettingsFile theFile(mSettingsFilePath.c_str());
  if (!theFile.OpenForReading()) {
    outFound.mKind = Found::kNothingUsable;
    return errno == ENOENT || errno == ESTALE ? Outcome::kNotAsFound : Outcome::kNotDone;
  }
  // Without the lock the file could not be replaced either: what is in hand must do.
  if (!LockFile(theFile)) return Outcome::kDone;
  if (!theFile.IsInPlace()) return Outcome::kNotAsFound;
  ReadFile(theFile, outFound);
  theFile.Close();
  mSettingsCacheForceRefresh = false;
  // An empty file is one that a writer has opened and not yet written: it costs nobody what he has.
  if (outFound == Found()) return Outcome::kNotDone;
  if (outFound.mKind == Found::kBytes) return ParseSettings(outFound.mBytes, inFileTime);
  CFDictionaryRemoveAllValues(mSettings.GetObject());
  return Outcome::kNotDone;
}

CASettingsStorage::Outcome CASettingsStorage::ParseSettings(const std::vector<UInt8>& inBytes,
                                                            const struct timespec& inFileTime) {
  const CACFObject<CFDataRef> theData(CFDataCreateWithBytesNoCopy(
      nullptr, inBytes.data(), static_cast<CFIndex>(inBytes.size()), kCFAllocatorNull));
  if (!theData.IsValid()) {
    // That this process has no memory says nothing about the file: it is read another time.
    mSettingsCacheForceRefresh = true;
    throw std::bad_alloc();
  }
  CACFObject<CFPropertyListRef> theList(CFPropertyListCreateWithData(
      nullptr, theData.GetObject(), kCFPropertyListMutableContainersAndLeaves, nullptr, nullptr));
  if (!theList.IsValid() || CFGetTypeID(theList.GetObject()) != CFDictionaryGetTypeID()) {
    CFDictionaryRemoveAllValues(mSettings.GetObject());
    return Outcome::kNotDone;
  }
  mSettings = static_cast<CFMutableDictionaryRef>(const_cast<void*>(theList.CopyObject()));
  mSettingsCacheTime = inFileTime;
  return Outcome::kDone;
}

void CASettingsStorage::ReadFile(const CASettingsFile& inFile, Found& outFound) {
  if (inFile.GetSize() > kMaximumFileSize) {
    outFound.mKind = Found::kTooMuch;
  } else {
    outFound.mKind = inFile.Read(outFound.mBytes) ? Found::kBytes : Found::kNothingUsable;
  }
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
    CASettingsFile theFile(mSettingsFilePath.c_str());
    const Outcome theOutcome = OpenOrCreate(theFile);
    if (theOutcome == Outcome::kNotAsFound) continue;
    if (theOutcome == Outcome::kNotDone) return;
    // Emptied before the lock is had: readers know an empty file as one that is being written.
    if (!theFile.Empty()) return;
    if (!LockFile(theFile)) return;
    if (!theFile.IsInPlace()) continue;
    WriteLockedFile(theFile, theData.GetObject());
    return;
  }
}

CASettingsStorage::Outcome CASettingsStorage::ReplaceFile(const Found& inFound) {
  const CACFObject<CFDataRef> theData(CopySerializedSettings());
  if (!theData.IsValid()) return Outcome::kNotDone;
  CASettingsFile theFile(mSettingsFilePath.c_str());
  const Outcome theOutcome = OpenOrCreate(theFile);
  if (theOutcome != Outcome::kDone) return theOutcome;
  if (!LockFile(theFile)) return Outcome::kNotDone;
  if (!theFile.IsInPlace()) return Outcome::kNotAsFound;
  // Not over what another process has written since.
  Found theFound;
  ReadFile(theFile, theFound);
  if (theFound != inFound) return Outcome::kNotAsFound;
  WriteLockedFile(theFile, theData.GetObject());
  return Outcome::kDone;
}

CASettingsStorage::Outcome CASettingsStorage::OpenOrCreate(CASettingsFile& outFile) {
  if (outFile.OpenForWriting() || (errno == ENOENT && outFile.Create())) return Outcome::kDone;
  // The path may just have got its file, or another one.
  return errno == EEXIST || errno == ESTALE ? Outcome::kNotAsFound : Outcome::kNotDone;
}

CFDataRef CASettingsStorage::CopySerializedSettings() const {
  if (mIsReadOnly) return nullptr;
  return CFPropertyListCreateData(nullptr, mSettings.GetObject(), mSettingsFileFormat, 0, nullptr);
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
