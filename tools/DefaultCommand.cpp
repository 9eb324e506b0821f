// tmbaudio default: whether HAL clients of this user take the virtual device for their default
// output.

#include <CoreAudio/AudioHardware.h>
#include <CoreFoundation/CoreFoundation.h>
#include <CoreServices/CoreServices.h>
#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tools/Commands.h"
#include "tools/Devices.h"

namespace tembra::tools {

namespace {

constexpr char kPreferenceName[] = "com.tembra.tmbsound.rte.plist";
constexpr char kSoundFile[] = "/var/run/tmbipc/tmbserverd.0.snd";
constexpr char kProtectionFile[] = "/var/run/tmbipc/tmbserverd.0.sip";

struct Releaser {
  void operator()(const void* inObject) const { CFRelease(inObject); }
};
template <typename Ref>
using Owned = std::unique_ptr<std::remove_pointer_t<Ref>, Releaser>;

// The account's home, as the clients find it: the environment only counts where there is none.
std::string Home() {
  std::vector<char> storage(16384);
  passwd entry;
  passwd* found = nullptr;
  if (getpwuid_r(getuid(), &entry, storage.data(), storage.size(), &found) == 0 && found) {
    return found->pw_dir;
  }
  if (const char* home = secure_getenv("HOME")) return home;
  throw Failure("this user has no home, so no preference can be kept");
}

Owned<CFURLRef> FileURL(const std::string& inPath) {
  return Owned<CFURLRef>(CFURLCreateFromFileSystemRepresentation(
      nullptr, reinterpret_cast<const UInt8*>(inPath.data()), static_cast<CFIndex>(inPath.size()),
      false));
}

// The preference file: a dictionary of which two keys count here and all others are kept.
class Preference {
 public:
  Preference() : mPath(Resolve(Home() + "/Library/Preferences/" + kPreferenceName)) { Load(); }

  const std::string& Path() const { return mPath; }
  // "missing", "unreadable" (both count as off) or "present".
  const char* State() const {
    if (mExists && !mIsDictionary) return "unreadable";
    return mExists ? "present" : "missing";
  }
  bool Get(bool inIsSystem) const {
    const void* const value = CFDictionaryGetValue(mList.get(), Key(inIsSystem));
    if (value == nullptr) return false;
    if (CFGetTypeID(value) == CFBooleanGetTypeID()) {
      return CFBooleanGetValue(static_cast<CFBooleanRef>(value)) != 0;
    }
    double number = 0;
    return CFGetTypeID(value) == CFNumberGetTypeID() &&
           (CFNumberGetValue(static_cast<CFNumberRef>(value), kCFNumberDoubleType, &number),
            number != 0);
  }
  void Set(bool inIsSystem, bool inValue) {
    if (Get(inIsSystem) == inValue) return;
    CFDictionarySetValue(mList.get(), Key(inIsSystem), inValue ? kCFBooleanTrue : kCFBooleanFalse);
    mIsChanged = true;
  }
  // Replaces the file whole, if anything was changed.
  void Save() {
    if (!mIsChanged) return;
    const std::filesystem::path path(mPath);
    std::error_code error;
    std::filesystem::create_directories(path.parent_path(), error);
    const std::string temporary = mPath + "." + std::to_string(getpid()) + ".new";
    struct stat old;
    const bool hasOld = stat(mPath.c_str(), &old) == 0;
    errno = 0;
    if ((hasOld && access(mPath.c_str(), W_OK) != 0) || !Write(temporary) ||
        (hasOld && chmod(temporary.c_str(), old.st_mode & 07777) != 0) ||
        rename(temporary.c_str(), mPath.c_str()) != 0) {
      const int cause = errno;
      unlink(temporary.c_str());
      throw Failure("cannot write " + mPath + ": " + std::strerror(cause != 0 ? cause : EIO));
    }
    mExists = mIsDictionary = true;
    mIsChanged = false;
  }

 private:
  static std::string Resolve(const std::string& inPath) {
    std::error_code error;
    const std::filesystem::path resolved = std::filesystem::canonical(inPath, error);
    return error ? inPath : resolved.string();
  }
  static CFStringRef Key(bool inIsSystem) {
    return inIsSystem ? CFSTR("isSystemOutput") : CFSTR("isDefaultOutput");
  }

  void Load() {
    const Owned<CFURLRef> url = FileURL(mPath);
    const Owned<CFReadStreamRef> stream(CFReadStreamCreateWithFile(nullptr, url.get()));
    mExists = CFReadStreamOpen(stream.get()) != 0;
    Owned<CFPropertyListRef> list;
    if (mExists) {
      list.reset(const_cast<void*>(CFPropertyListCreateWithStream(
          nullptr, stream.get(), 0, kCFPropertyListMutableContainersAndLeaves, nullptr, nullptr)));
      CFReadStreamClose(stream.get());
    }
    mIsDictionary = list && CFGetTypeID(list.get()) == CFDictionaryGetTypeID();
    mList.reset(mIsDictionary
                    ? static_cast<CFMutableDictionaryRef>(const_cast<void*>(list.release()))
                    : CFDictionaryCreateMutable(nullptr, 0, &kCFTypeDictionaryKeyCallBacks,
                                                &kCFTypeDictionaryValueCallBacks));
  }
  bool Write(const std::string& inPath) const {
    const Owned<CFURLRef> url = FileURL(inPath);
    const Owned<CFWriteStreamRef> stream(CFWriteStreamCreateWithFile(nullptr, url.get()));
    if (!CFWriteStreamOpen(stream.get())) {
      errno = CFWriteStreamGetError(stream.get()).error;
      return false;
    }
    const bool written = CFPropertyListWrite(mList.get(), stream.get(),
                                             kCFPropertyListBinaryFormat_v1_0, 0, nullptr) > 0;
    errno = CFWriteStreamGetError(stream.get()).error;
    CFWriteStreamClose(stream.get());
    return written;
  }

  const std::string mPath;
  bool mExists = false;
  bool mIsDictionary = false;
  bool mIsChanged = false;
  Owned<CFMutableDictionaryRef> mList;
};

// The beginning of a small file that anyone may have put there; empty if it is none.
std::string ReadStatus(const char* inPath, std::size_t inSize) {
  const int file = open(inPath, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  if (file < 0) return {};
  struct stat status;
  std::string text(inSize, '\0');
  ssize_t got = 0;
  if (fstat(file, &status) == 0 && S_ISREG(status.st_mode) && status.st_nlink <= 1) {
    got = read(file, text.data(), text.size());
  }
  close(file);
  text.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
  return text;
}

// Why programs of this user that start now are left as they are; empty if they are not.
std::string WhyNotAllowed() {
  if (getuid() == 0) return "programs that root runs are never changed";
  SInt32 major = 0;
  SInt32 minor = 0;
  SInt32 patch = 0;
  const bool known = Gestalt(gestaltSystemVersionMajor, &major) == noErr &&
                     Gestalt(gestaltSystemVersionMinor, &minor) == noErr &&
                     Gestalt(gestaltSystemVersionBugFix, &patch) == noErr;
  if (!known || major > 10 || (major == 10 && minor > 14)) {
    return "this version of the system does not permit it";
  }
  if (major == 10 && minor == 14 &&
      ReadStatus(kProtectionFile, 255).find("status: disabled") == std::string::npos) {
    return "the system's protection is on";
  }
  if (std::strtol(ReadStatus(kSoundFile, 31).c_str(), nullptr, 10) == 0) {
    return "no server of root's allows it: run tmbasrv as root";
  }
  return {};
}

// What this program itself is told is the default output.
std::string ToldDevice() {
  const AudioObjectPropertyAddress address{kAudioHardwarePropertyDefaultOutputDevice,
                                           kAudioObjectPropertyScopeGlobal, 0};
  // The first call loads the plug-in, and only what comes after it can be answered by it.
  GetObjects(kAudioObjectSystemObject,
             {kAudioHardwarePropertyDevices, kAudioObjectPropertyScopeGlobal, 0});
  const auto device = GetValue<AudioObjectID>(kAudioObjectSystemObject, address);
  if (device == kAudioObjectUnknown) return {};
  return GetText(device, {kAudioObjectPropertyName, kAudioObjectPropertyScopeGlobal, 0});
}

void Show(const Preference& inPreference, bool inJson) {
  const std::string why = WhyNotAllowed();
  const std::string told = ToldDevice();
  if (inJson) {
    const nlohmann::json record = {{"file", inPreference.Path()},
                                   {"file_state", inPreference.State()},
                                   {"output", inPreference.Get(false)},
                                   {"system_output", inPreference.Get(true)},
                                   {"sound_allowed", why.empty()},
                                   {"why_not", why},
                                   {"told", told}};
    std::printf("%s\n",
                record.dump(2, ' ', false, nlohmann::json::error_handler_t::replace).c_str());
    return;
  }
  std::printf("default output         %s\n", inPreference.Get(false) ? "on" : "off");
  std::printf("default system output  %s\n", inPreference.Get(true) ? "on" : "off");
  std::printf("preference             %s (%s)\n", inPreference.Path().c_str(),
              inPreference.State());
  if (why.empty()) {
    std::printf(
        "sound allowed          yes: HAL clients that start now take \"Tembra Audio\" "
        "where the preference is on\n");
  } else {
    std::printf(
        "sound allowed          no: %s; HAL clients that start now keep their own "
        "default\n",
        why.c_str());
  }
  std::printf("this program is told   %s\n", told.empty() ? "(no device)" : told.c_str());
}

struct Arguments {
  std::string which = "both";
  bool json = false;

  bool Output() const { return which != "system"; }
  bool SystemOutput() const { return which != "output"; }
};

void Change(const Arguments& inArguments, bool inValue) {
  Preference preference;
  if (inArguments.Output()) preference.Set(false, inValue);
  if (inArguments.SystemOutput()) preference.Set(true, inValue);
  preference.Save();
  Show(preference, inArguments.json);
}

}  // namespace

void AddDefaultCommand(CLI::App& ioProgram) {
  auto arguments = std::make_shared<Arguments>();
  CLI::App* command = ioProgram.add_subcommand(
      "default", "whether HAL clients of this user take the device for their default output");
  command->require_subcommand(1);
  command->footer(
      "The preference counts in programs that use the HAL, are not run by root, and were started\n"
      "while sound was allowed, which a server run as root sees to.");

  for (const bool value : {true, false}) {
    CLI::App* change = command->add_subcommand(
        value ? "on" : "off", value ? "they take it" : "they keep the default that they have");
    change->add_option("--which", arguments->which, "output, system (for alerts) or both")
        ->check(CLI::IsMember({"output", "system", "both"}))
        ->capture_default_str();
    change->add_flag("--json", arguments->json, "for programs");
    change->callback([arguments, value] { Change(*arguments, value); });
  }
  CLI::App* status = command->add_subcommand(
      "status", "the preference, and whether and why it counts for programs that start now");
  status->add_flag("--json", arguments->json, "for programs");
  status->callback([arguments] { Show(Preference(), arguments->json); });
}

}  // namespace tembra::tools
