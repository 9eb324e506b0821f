#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>

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
bool WriteList(CFPropertyListRef inList, const char* inPath) {
  CFURLRef url = CFURLCreateFromFileSystemRepresentation(
      kCFAllocatorDefault, reinterpret_cast<const UInt8*>(inPath),
      static_cast<CFIndex>(strlen(inPath)), false);
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

// What stands in the preference's place.
struct OldFile {
  explicit OldFile(const char* inPath) {
    const int descriptor = open(inPath, O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    struct stat status;
    if (descriptor < 0) {
      mMayBeReplaced = errno == ENOENT;
    } else if (fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode)) {
      mMayBeReplaced = mExists = true;
      mMode = status.st_mode & 07777;
    }
    if (descriptor >= 0) close(descriptor);
  }
  bool mExists = false;
  mode_t mMode = 0;
  // Not what this process could not have written in its place, nor what is no plain file.
  bool mMayBeReplaced = false;
};

// Whether this is a file that a writer of the preference did not live to put in its place. Such
// files are named "PREFERENCE.PID.NUMBER.new".
bool IsLeftover(std::string_view inName, std::string_view inPreference) {
  if (!inName.starts_with(inPreference) || !inName.ends_with(".new")) return false;
  inName.remove_prefix(inPreference.size());
  if (!inName.starts_with('.')) return false;
  inName.remove_prefix(1);
  pid_t writer = 0;
  const char* const end = inName.data() + inName.size();
  const auto [rest, error] = std::from_chars(inName.data(), end, writer);
  return error == std::errc() && rest != end && *rest == '.' && writer > 0 &&
         kill(writer, 0) != 0 && errno == ESRCH;
}

void RemoveLeftovers(const char* inPath) {
  const char* const slash = strrchr(inPath, '/');
  if (slash == nullptr) return;
  char folder[PATH_MAX];
  snprintf(folder, sizeof folder, "%.*s", static_cast<int>(slash + 1 - inPath), inPath);
  DIR* const directory = opendir(folder);
  if (directory == nullptr) return;
  while (const dirent* const entry = readdir(directory)) {
    if (IsLeftover(entry->d_name, slash + 1)) unlinkat(dirfd(directory), entry->d_name, 0);
  }
  closedir(directory);
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
  const OldFile old(path);
  if (!old.mMayBeReplaced) return;

  RemoveLeftovers(path);
  char temporary[PATH_MAX + 32];
  snprintf(temporary, sizeof temporary, "%s.%d.%u.new", path, static_cast<int>(getpid()),
           static_cast<unsigned>(++sWrites));
  // Whoever might read the old one, and nobody else, may read the new one, from the beginning on.
  unlink(temporary);
  const int made =
      open(temporary, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, old.mExists ? 0600 : 0666);
  if (made < 0) return;
  close(made);
  if (!WriteList(inPreference, temporary) || (old.mExists && chmod(temporary, old.mMode) != 0) ||
      rename(temporary, path) != 0) {
    unlink(temporary);
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
