#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <limits.h>

#include <cstdint>
#include <string>

#include "runtime/TMBACLNO.h"
#include "runtime/TMBString.h"

namespace {

// Keeps the files that threads of one process write apart.
std::atomic<uint32_t> sWrites{0};

constexpr char kPreferencePath[] = "~/Library/Preferences/com.tembra.tmbsound.rte.plist";

bool IsTrue(CFTypeRef inValue) {
  if (inValue == nullptr) return false;
  if (CFGetTypeID(inValue) == CFBooleanGetTypeID()) {
    return CFBooleanGetValue(static_cast<CFBooleanRef>(inValue)) != 0;
  }
  double number = 0;
  return CFGetTypeID(inValue) == CFNumberGetTypeID() &&
         (CFNumberGetValue(static_cast<CFNumberRef>(inValue), kCFNumberDoubleType, &number),
          number != 0);
}

CFBooleanRef AsBoolean(bool inValue) {
  return inValue ? kCFBooleanTrue : kCFBooleanFalse;
}

// Writes the list to a file of that path. False if any of it failed.
bool WriteList(CFPropertyListRef inList, const std::string& inPath) {
  CFURLRef url = CFURLCreateFromFileSystemRepresentation(
      kCFAllocatorDefault, reinterpret_cast<const UInt8*>(inPath.data()),
      static_cast<CFIndex>(inPath.size()), false);
  CFWriteStreamRef stream =
      url != nullptr ? CFWriteStreamCreateWithFile(kCFAllocatorDefault, url) : nullptr;
  bool written = false;
  if (stream != nullptr) {
    if (CFWriteStreamOpen(stream)) {
      written =
          CFPropertyListWrite(inList, stream, kCFPropertyListBinaryFormat_v1_0, 0, nullptr) > 0;
      CFWriteStreamClose(stream);
    }
    CFRelease(stream);
  }
  if (url != nullptr) CFRelease(url);
  return written;
}

// Writes a file beside the preference and puts it in its place whole: a write that fails leaves
// the old file, and no reader sees half of a new one.
void WritePreference(CFDictionaryRef inPreference) {
  CFURLRef url = tmbclno_copy_pref_url();
  if (url == nullptr) return;
  char path[PATH_MAX];
  const bool known =
      CFURLGetFileSystemRepresentation(url, true, reinterpret_cast<UInt8*>(path), sizeof path);
  CFRelease(url);
  if (!known) return;

  const std::string temporary =
      std::string(path) + "." + std::to_string(getpid()) + "." + std::to_string(++sWrites) + ".new";
  struct stat old;
  const bool hasOld = stat(path, &old) == 0;
  // Whoever might read the old one, and nobody else, may read the new one.
  if (!WriteList(inPreference, temporary) ||
      (hasOld && chmod(temporary.c_str(), old.st_mode & 07777) != 0) ||
      rename(temporary.c_str(), path) != 0) {
    unlink(temporary.c_str());
  }
}

}  // namespace

CFURLRef tmbclno_copy_pref_url() {
  CFStringRef path = TMBString_CFExpandPath(kPreferencePath, 0);
  if (path == nullptr) return nullptr;
  CFURLRef url =
      CFURLCreateWithFileSystemPath(kCFAllocatorDefault, path, kCFURLPOSIXPathStyle, false);
  CFRelease(path);
  return url;
}

CFStringRef tmbclno_copy_pref_key(bool inIsSystem) {
  return static_cast<CFStringRef>(
      CFRetain(inIsSystem ? CFSTR("isSystemOutput") : CFSTR("isDefaultOutput")));
}

CFPropertyListRef tmbclno_get_property_list(bool inIsMutable) {
  CFURLRef url = tmbclno_copy_pref_url();
  if (url == nullptr) return nullptr;
  CFPropertyListRef list = nullptr;
  CFReadStreamRef stream = CFReadStreamCreateWithFile(kCFAllocatorDefault, url);
  if (stream != nullptr) {
    if (CFReadStreamOpen(stream)) {
      list = CFPropertyListCreateWithStream(
          kCFAllocatorDefault, stream, 0,
          inIsMutable ? kCFPropertyListMutableContainersAndLeaves : kCFPropertyListImmutable,
          nullptr, nullptr);
      if (list != nullptr && CFGetTypeID(list) != CFDictionaryGetTypeID()) {
        syslog(LOG_ERR, "TMBHAL: FIX: Invalid file data type, path=%s", kPreferencePath);
        CFRelease(list);
        list = nullptr;
      }
      CFReadStreamClose(stream);
    }
    CFRelease(stream);
  }
  CFRelease(url);
  return list;
}

bool tmbclno_is_default_output(CFDictionaryRef inPreference, bool inIsSystem) {
  if (inPreference == nullptr) return false;
  CFStringRef key = tmbclno_copy_pref_key(inIsSystem);
  const bool value = IsTrue(CFDictionaryGetValue(inPreference, key));
  CFRelease(key);
  return value;
}

bool tmbclno_is_default_output(bool inIsSystem) {
  CFPropertyListRef list = tmbclno_get_property_list(false);
  if (list == nullptr) return false;
  const bool value = tmbclno_is_default_output(static_cast<CFDictionaryRef>(list), inIsSystem);
  CFRelease(list);
  return value;
}

void tmbclno_set_default_output(bool inValue, bool inIsSystem) {
  CFStringRef key = tmbclno_copy_pref_key(inIsSystem);
  if (key == nullptr) return;
  bool previous = false;
  CFMutableDictionaryRef preference =
      static_cast<CFMutableDictionaryRef>(const_cast<void*>(tmbclno_get_property_list(true)));
  if (preference != nullptr) {
    previous = tmbclno_is_default_output(preference, inIsSystem);
    if (previous != inValue) CFDictionarySetValue(preference, key, AsBoolean(inValue));
  } else {
    preference = CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks,
                                           &kCFTypeDictionaryValueCallBacks);
    if (preference != nullptr) CFDictionarySetValue(preference, key, AsBoolean(inValue));
  }
  CFRelease(key);
  if (preference == nullptr) return;
  if (previous != inValue) WritePreference(preference);
  CFRelease(preference);
}
