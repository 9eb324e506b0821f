#include "runtime/TMBOS.h"

#include <CoreServices/CoreServices.h>
#include <pthread.h>

#include <array>
#include <cstring>
#include <string>

TMBOSSystemVersion __tmbos_sys_ver;
TMBOSBuildVersion __tmbos_bld_ver;

namespace {

// Guards the build's text, which no single store can set. std::mutex has a destructor on some
// platforms, and nothing may run at exit.
pthread_mutex_t sBuildVersionMutex = PTHREAD_MUTEX_INITIALIZER;

constexpr char kSystemVersionFile[] = "/System/Library/CoreServices/SystemVersion.plist";
constexpr char kInstalledInfoFile[] =
    "/Library/Tembra/tmbserver.app/Contents/Agents/tmbagent.app/Contents/Info.plist";

CFStringRef CreateString(const char* inText) {
  return CFStringCreateWithCString(kCFAllocatorDefault, inText, kCFStringEncodingUTF8);
}

// The property list in a file, with that mutability; null if it is none. The caller releases it.
CFPropertyListRef CreateListFromFile(const char* inPath, CFOptionFlags inOptions) {
  CFStringRef path = CreateString(inPath);
  if (path == nullptr) return nullptr;
  CFURLRef url =
      CFURLCreateWithFileSystemPath(kCFAllocatorDefault, path, kCFURLPOSIXPathStyle, false);
  CFRelease(path);
  if (url == nullptr) return nullptr;

  CFDataRef data = nullptr;
  SInt32 error = 0;
  CFPropertyListRef list = nullptr;
  if (CFURLCreateDataAndPropertiesFromResource(kCFAllocatorDefault, url, &data, nullptr, nullptr,
                                               &error) &&
      data != nullptr) {
    list = CFPropertyListCreateFromXMLData(kCFAllocatorDefault, data, inOptions, nullptr);
  }
  if (data != nullptr) CFRelease(data);
  CFRelease(url);
  if (list != nullptr && !CFPropertyListIsValid(list, kCFPropertyListXMLFormat_v1_0)) {
    CFRelease(list);
    list = nullptr;
  }
  return list;
}

CFDictionaryRef AsDictionary(CFPropertyListRef inList) {
  return inList != nullptr && CFGetTypeID(inList) == CFDictionaryGetTypeID()
             ? static_cast<CFDictionaryRef>(inList)
             : nullptr;
}

// Null for what is no string.
CFStringRef AsString(const void* inValue) {
  return inValue != nullptr && CFGetTypeID(inValue) == CFStringGetTypeID()
             ? static_cast<CFStringRef>(inValue)
             : nullptr;
}

// The information dictionary of a bundle that is loaded in this process; not the caller's.
CFDictionaryRef GetInfoOfLoadedBundle(const char* inIdentifier) {
  CFStringRef identifier = CreateString(inIdentifier);
  if (identifier == nullptr) return nullptr;
  CFBundleRef bundle = CFBundleGetBundleWithIdentifier(identifier);
  CFRelease(identifier);
  return bundle != nullptr ? CFBundleGetInfoDictionary(bundle) : nullptr;
}

CFStringRef GetVersionText(CFDictionaryRef inInfo) {
  for (CFStringRef key :
       {CFSTR("TMBBuildVersion"), CFSTR("CFBundleShortVersionString"), kCFBundleVersionKey}) {
    if (const void* value = CFDictionaryGetValue(inInfo, key)) return AsString(value);
  }
  return nullptr;
}

// Reads up to three numbers between points into what holds their defaults.
bool ParseVersion(CFStringRef inText, std::array<int32_t, 3>& ioNumbers) {
  CFArrayRef parts =
      CFStringCreateArrayBySeparatingStrings(kCFAllocatorDefault, inText, CFSTR("."));
  if (parts == nullptr) return false;
  const CFIndex count = CFArrayGetCount(parts);
  for (CFIndex index = 0; index < count && index < 3; ++index) {
    ioNumbers[static_cast<size_t>(index)] =
        CFStringGetIntValue(static_cast<CFStringRef>(CFArrayGetValueAtIndex(parts, index)));
  }
  CFRelease(parts);
  return count > 0;
}

void EnsureSystemVersion() {
  if (__tmbos_sys_ver.mIsRead.load(std::memory_order_acquire) == 0) tmbos_update_sysver();
}

void Store(int32_t inNumber, int32_t* outNumber) {
  if (outNumber != nullptr) *outNumber = inNumber;
}

}  // namespace

void tmbos_update_sysver() {
  SInt32 major = 0;
  SInt32 minor = 0;
  SInt32 patch = 0;
  bool complete = Gestalt(gestaltSystemVersionMajor, &major) == noErr;
  complete = Gestalt(gestaltSystemVersionMinor, &minor) == noErr && complete;
  complete = Gestalt(gestaltSystemVersionBugFix, &patch) == noErr && complete;
  TMBOSSystemVersion& version = __tmbos_sys_ver;
  version.mMajor.store(major, std::memory_order_relaxed);
  version.mMinor.store(minor, std::memory_order_relaxed);
  version.mPatch.store(patch, std::memory_order_relaxed);
  version.mIsComplete.store(complete, std::memory_order_relaxed);
  version.mIsRead.store(1, std::memory_order_release);
}

bool tmbos_is_sysver_known() {
  EnsureSystemVersion();
  return __tmbos_sys_ver.mIsComplete.load(std::memory_order_relaxed);
}

void tmbos_update_bldver() {
  CFPropertyListRef list =
      CreateListFromFile(kSystemVersionFile, kCFPropertyListMutableContainersAndLeaves);
  CFDictionaryRef dictionary = AsDictionary(list);
  CFStringRef build = dictionary != nullptr
                          ? AsString(CFDictionaryGetValue(dictionary, CFSTR("ProductBuildVersion")))
                          : nullptr;
  if (build != nullptr) {
    const CFIndex size =
        CFStringGetMaximumSizeForEncoding(CFStringGetLength(build), kCFStringEncodingUTF8) + 1;
    std::string text(static_cast<size_t>(size), '\0');
    if (CFStringGetCString(build, text.data(), size, kCFStringEncodingUTF8)) {
      pthread_mutex_lock(&sBuildVersionMutex);
      if (__tmbos_bld_ver.mIsRead.load(std::memory_order_relaxed) == 0) {
        strncpy(__tmbos_bld_ver.mText, text.c_str(), TMBOSBuildVersion::kSize);
        __tmbos_bld_ver.mIsRead.store(1, std::memory_order_release);
      }
      pthread_mutex_unlock(&sBuildVersionMutex);
    }
  }
  if (list != nullptr) CFRelease(list);
}

CFPropertyListRef tmbos_load_info(const char* inPath) {
  return CreateListFromFile(inPath, kCFPropertyListImmutable);
}

int32_t TMBOS_GetSystemVersion(int32_t* outMajor, int32_t* outMinor, int32_t* outPatch) {
  EnsureSystemVersion();
  Store(__tmbos_sys_ver.mMajor.load(std::memory_order_relaxed), outMajor);
  Store(__tmbos_sys_ver.mMinor.load(std::memory_order_relaxed), outMinor);
  Store(__tmbos_sys_ver.mPatch.load(std::memory_order_relaxed), outPatch);
  return 1;
}

const char* TMBOS_GetSysBuildVersion() {
  if (__tmbos_bld_ver.mIsRead.load(std::memory_order_acquire) == 0) tmbos_update_bldver();
  return __tmbos_bld_ver.mText;
}

bool TMBOS_SysVerIsEqualOrHigher(int32_t inMajor, int32_t inMinor) {
  int32_t major = 0;
  int32_t minor = 0;
  TMBOS_GetSystemVersion(&major, &minor, nullptr);
  return (major == inMajor && minor >= inMinor) || major > inMajor;
}

bool TMBOS_SysVerIsEqualTo(int32_t inMajor, int32_t inMinor) {
  int32_t major = 0;
  int32_t minor = 0;
  TMBOS_GetSystemVersion(&major, &minor, nullptr);
  return major == inMajor && minor == inMinor;
}

bool TMBOS_SysVerIsLowerThan(int32_t inMajor, int32_t inMinor) {
  return !TMBOS_SysVerIsEqualOrHigher(inMajor, inMinor);
}

bool TMBOS_SysVerIsHigherThan(int32_t inMajor, int32_t inMinor) {
  int32_t major = 0;
  int32_t minor = 0;
  TMBOS_GetSystemVersion(&major, &minor, nullptr);
  return (major == inMajor && minor > inMinor) || major > inMajor;
}

int32_t TMBOS_GetBundleVersion(const char* inBundle, int32_t* outMajor, int32_t* outMinor,
                               int32_t* outBuild) {
  CFPropertyListRef owned = nullptr;
  CFDictionaryRef info = nullptr;
  if (inBundle == nullptr) {
    CFBundleRef bundle = CFBundleGetMainBundle();
    if (bundle != nullptr) info = CFBundleGetInfoDictionary(bundle);
  } else if (inBundle[0] == '/') {
    owned = tmbos_load_info(inBundle);
    info = AsDictionary(owned);
  } else {
    info = GetInfoOfLoadedBundle(inBundle);
  }

  CFStringRef text = info != nullptr ? GetVersionText(info) : nullptr;
  std::array<int32_t, 3> numbers = {1, 0, 0};
  const bool found = text != nullptr && ParseVersion(text, numbers);
  if (owned != nullptr) CFRelease(owned);
  if (!found) return 0;
  Store(numbers[0], outMajor);
  Store(numbers[1], outMinor);
  Store(numbers[2], outBuild);
  return 1;
}

int32_t TMBOS_GetInstalledVersion(int32_t* outMajor, int32_t* outMinor, int32_t* outBuild) {
  return TMBOS_GetBundleVersion(kInstalledInfoFile, outMajor, outMinor, outBuild);
}
