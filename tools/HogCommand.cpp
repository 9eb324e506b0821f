// tmbaudio hog: keep a device for one process, and see who has it.

#include <CoreAudio/AudioHardware.h>
#include <poll.h>
#include <pwd.h>
#include <signal.h>
#include <spawn.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tools/Commands.h"
#include "tools/Devices.h"

namespace tembra::tools {

namespace {

constexpr AudioObjectPropertyAddress kHogMode{kAudioDevicePropertyHogMode,
                                              kAudioObjectPropertyScopeGlobal, 0};
constexpr pid_t kNobody = -1;
// How long `release` waits for the one that it asked.
constexpr std::chrono::seconds kReleaseTime{5};
constexpr int kReleasePollMilliseconds = 20;

pid_t OwnerOf(AudioObjectID inDevice) {
  return GetValue<SInt32>(inDevice, kHogMode);
}

// Whatever is set takes a free device and releases an owned one.
OSStatus Toggle(AudioObjectID inDevice) {
  SInt32 owner = getpid();
  return AudioObjectSetPropertyData(inDevice, &kHogMode, 0, nullptr, sizeof owner, &owner);
}

std::string ReadAll(const std::string& inPath) {
  std::ifstream file(inPath, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::string InProc(pid_t inProcess, const char* inName) {
  return "/proc/" + std::to_string(inProcess) + "/" + inName;
}

// What the system calls the process; empty if it tells nothing.
std::string ProgramOf(pid_t inProcess) {
  std::string name = ReadAll(InProc(inProcess, "comm"));
  if (!name.empty() && name.back() == '\n') name.pop_back();
  // It is the process's own choice.
  std::replace_if(
      name.begin(), name.end(), [](unsigned char c) { return c < 0x20 || c == 0x7F; }, '?');
  return name;
}

std::string UserOf(pid_t inProcess) {
  struct stat status;
  if (stat(InProc(inProcess, "").c_str(), &status) != 0) return {};
  std::vector<char> storage(16384);
  passwd entry;
  passwd* found = nullptr;
  if (getpwuid_r(status.st_uid, &entry, storage.data(), storage.size(), &found) == 0 && found) {
    return found->pw_name;
  }
  return std::to_string(status.st_uid);
}

std::string NameOf(pid_t inProcess) {
  std::string text = "process " + std::to_string(inProcess);
  if (const std::string program = ProgramOf(inProcess); !program.empty()) {
    text += " (" + program + ")";
  }
  if (const std::string user = UserOf(inProcess); !user.empty()) text += " of user " + user;
  return text;
}

std::string NameOfDevice(AudioObjectID inDevice) {
  return "\"" + GetText(inDevice, {kAudioObjectPropertyName, kAudioObjectPropertyScopeGlobal, 0}) +
         "\"";
}

[[noreturn]] void HeldBy(AudioObjectID inDevice, pid_t inOwner) {
  throw Failure(NameOfDevice(inDevice) + " is held by " + NameOf(inOwner), Exit::kHeldByAnother);
}

// Status.

struct Arguments {
  std::string device;
  bool json = false;
  std::vector<std::string> command;
};

void ShowStatus(const Arguments& inArguments) {
  const AudioObjectID device = FindDevice(inArguments.device);
  const pid_t owner = OwnerOf(device);
  if (!inArguments.json) {
    std::printf("%s\n", owner == kNobody ? "free" : ("held by " + NameOf(owner)).c_str());
    return;
  }
  nlohmann::json record = {{"device", GetText(device, {kAudioDevicePropertyDeviceUID,
                                                       kAudioObjectPropertyScopeGlobal, 0})},
                           {"held", owner != kNobody},
                           {"owner", nullptr}};
  if (owner != kNobody) {
    record["owner"] = owner;
    record["program"] = ProgramOf(owner);
    record["user"] = UserOf(owner);
  }
  std::printf("%s\n", record.dump(2, ' ', false, nlohmann::json::error_handler_t::replace).c_str());
}

// Take.

// The signals that end the command, and the changes of the device's owner, as things to poll for.
// Made before the first call of the HAL, whose threads are to leave the signals alone.
class Events {
 public:
  Events() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGCHLD}) sigaddset(&signals, signal);
    pthread_sigmask(SIG_BLOCK, &signals, &mMaskBefore);
    mSignals = signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
    mChanges = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (mSignals < 0 || mChanges < 0) {
      throw Failure(std::string("cannot wait for signals: ") + std::strerror(errno));
    }
  }
  ~Events() {
    if (mDevice != kAudioObjectUnknown) {
      AudioObjectRemovePropertyListener(mDevice, &kHogMode, Changed, this);
    }
    close(mSignals);
    close(mChanges);
  }
  Events(const Events&) = delete;
  Events& operator=(const Events&) = delete;

  void Watch(AudioObjectID inDevice) {
    Check(AudioObjectAddPropertyListener(inDevice, &kHogMode, Changed, this),
          "the device's owner cannot be watched");
    mDevice = inDevice;
  }
  const sigset_t& MaskBefore() const { return mMaskBefore; }

  // Until a signal, which it answers with, or until the owner may have changed: 0.
  int Wait(bool& outIsFromTerminal) const {
    pollfd files[2] = {{mSignals, POLLIN, 0}, {mChanges, POLLIN, 0}};
    while (poll(files, 2, -1) < 0 && errno == EINTR) {
    }
    signalfd_siginfo info = {};
    if (read(mSignals, &info, sizeof info) == sizeof info) {
      outIsFromTerminal = info.ssi_code == SI_KERNEL;
      return static_cast<int>(info.ssi_signo);
    }
    std::uint64_t count = 0;
    (void)!read(mChanges, &count, sizeof count);
    return 0;
  }

 private:
  // On the HAL's notification thread.
  static OSStatus Changed(AudioObjectID, UInt32, const AudioObjectPropertyAddress*,
                          void* inEvents) {
    const std::uint64_t one = 1;
    (void)!write(static_cast<Events*>(inEvents)->mChanges, &one, sizeof one);
    return 0;
  }

  sigset_t mMaskBefore;
  int mSignals = -1;
  int mChanges = -1;
  AudioObjectID mDevice = kAudioObjectUnknown;
};

pid_t Start(const std::vector<std::string>& inCommand, const sigset_t& inMask) {
  std::vector<char*> arguments;
  arguments.reserve(inCommand.size() + 1);
  for (const std::string& argument : inCommand) {
    arguments.push_back(const_cast<char*>(argument.c_str()));
  }
  arguments.push_back(nullptr);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setsigmask(&attributes, &inMask);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
  pid_t child = 0;
  const int error =
      posix_spawnp(&child, arguments[0], nullptr, &attributes, arguments.data(), environ);
  posix_spawnattr_destroy(&attributes);
  if (error != 0) throw Failure("cannot start " + inCommand[0] + ": " + std::strerror(error));
  return child;
}

// A device that this process has until the object ends.
class Claim {
 public:
  explicit Claim(AudioObjectID inDevice) : mDevice(inDevice) {
    if (const pid_t owner = OwnerOf(mDevice); owner != kNobody) HeldBy(mDevice, owner);
    const OSStatus status = Toggle(mDevice);
    if (status == kAudioDevicePermissionsError) HeldBy(mDevice, Owner());
    Check(status, "the device cannot be taken");
  }
  ~Claim() {
    try {
      if (Owner() == getpid()) Check(Toggle(mDevice), "the device cannot be released");
    } catch (const Failure& failure) {
      std::fprintf(stderr, "tmbaudio: %s\n", failure.what());
    }
  }
  Claim(const Claim&) = delete;
  Claim& operator=(const Claim&) = delete;

  pid_t Owner() const { return OwnerOf(mDevice); }
  // As two may take a device at once, and a master that starts clears what it finds.
  [[noreturn]] void Lost() const {
    const pid_t owner = Owner();
    if (owner == kNobody) {
      throw Failure("another program has cleared the claim on " + NameOfDevice(mDevice));
    }
    throw Failure(NameOfDevice(mDevice) + " was lost to " + NameOf(owner), Exit::kHeldByAnother);
  }

 private:
  const AudioObjectID mDevice;
};

// Passes signals on to the command, if there is one; a signal that the terminal sent has reached it
// already. Answers with the command's exit status.
int HoldUntilEnd(const Claim& inClaim, const Events& inEvents, pid_t inCommand) {
  bool isHeld = true;
  for (;;) {
    bool isFromTerminal = false;
    const int signal = inEvents.Wait(isFromTerminal);
    if (signal == 0) {
      if (!isHeld || inClaim.Owner() == getpid()) continue;
      if (inCommand == 0) inClaim.Lost();
      // The command goes on; what it was promised is gone.
      isHeld = false;
      std::fprintf(stderr, "tmbaudio: the device is no longer held\n");
    } else if (signal == SIGCHLD) {
      int status = 0;
      if (inCommand == 0 || waitpid(inCommand, &status, WNOHANG) != inCommand) continue;
      if (!isHeld) inClaim.Lost();
      return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    } else if (inCommand == 0) {
      return 0;
    } else if (!isFromTerminal) {
      kill(inCommand, signal);
    }
  }
}

void Take(const Arguments& inArguments) {
  Events events;
  const AudioObjectID device = FindDevice(inArguments.device);
  int status = 0;
  {
    const Claim claim(device);
    events.Watch(device);
    if (claim.Owner() != getpid()) claim.Lost();
    const bool hasCommand = !inArguments.command.empty();
    // The command's own output is all that belongs on standard output.
    std::fprintf(hasCommand ? stderr : stdout, "%s is held by this process, %d, until %s\n",
                 NameOfDevice(device).c_str(), static_cast<int>(getpid()),
                 hasCommand ? "the command ends" : "it is interrupted");
    std::fflush(nullptr);
    const pid_t command = hasCommand ? Start(inArguments.command, events.MaskBefore()) : 0;
    status = HoldUntilEnd(claim, events, command);
  }
  if (status != 0) throw CLI::RuntimeError(status);
}

// Release.

// Whether the process is this same program at `hog take`; others are not asked to end.
bool IsHolder(pid_t inProcess) {
  struct stat self;
  struct stat other;
  if (stat("/proc/self/exe", &self) != 0 || stat(InProc(inProcess, "exe").c_str(), &other) != 0 ||
      self.st_dev != other.st_dev || self.st_ino != other.st_ino) {
    return false;
  }
  // Its arguments, each with a terminator; "--device" and the like may stand between.
  const std::string line = '\0' + ReadAll(InProc(inProcess, "cmdline"));
  const std::string hog("\0hog\0", 5);
  const std::string take("\0take\0", 6);
  const size_t at = line.find(hog);
  return at != std::string::npos && line.find(take, at) != std::string::npos;
}

// A process that is meant whatever becomes of its number.
class Process {
 public:
  explicit Process(pid_t inProcess)
      : mFile(static_cast<int>(syscall(SYS_pidfd_open, inProcess, 0))) {}
  ~Process() {
    if (mFile >= 0) close(mFile);
  }
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  bool Signal(int inSignal) const {
    return syscall(SYS_pidfd_send_signal, mFile, inSignal, nullptr, 0) == 0;
  }
  bool HasEnded(int inMilliseconds) const {
    pollfd file = {mFile, POLLIN, 0};
    return poll(&file, 1, inMilliseconds) == 1;
  }

 private:
  const int mFile;
};

void Release(const Arguments& inArguments) {
  const AudioObjectID device = FindDevice(inArguments.device);
  const pid_t owner = OwnerOf(device);
  if (owner == kNobody) {
    std::printf("free\n");
    return;
  }
  const Process holder(owner);
  if (!IsHolder(owner) || !holder.Signal(SIGTERM)) {
    throw Failure(
        NameOfDevice(device) + " is held by " + NameOf(owner) + ", which alone can release it",
        Exit::kHeldByAnother);
  }
  const auto deadline = std::chrono::steady_clock::now() + kReleaseTime;
  while (OwnerOf(device) == owner && !holder.HasEnded(kReleasePollMilliseconds)) {
    if (std::chrono::steady_clock::now() >= deadline) HeldBy(device, owner);
  }
  std::printf("released by process %d\n", static_cast<int>(owner));
}

}  // namespace

void AddHogCommand(CLI::App& ioProgram) {
  auto arguments = std::make_shared<Arguments>();
  CLI::App* command =
      ioProgram.add_subcommand("hog", "keep a device for one process, and see which one has it");
  command->require_subcommand(1);
  command->footer(
      "While a process holds a device, no other process can start to play on it. A program that\n"
      "ends or is killed holds nothing any more. Of two that take a device at the same moment one\n"
      "loses it again, and is told so.");
  const auto addDevice = [&](CLI::App* ioCommand) {
    ioCommand->add_option("--device", arguments->device,
                          "number, UID or name; without it the default output device");
  };

  CLI::App* take = command->add_subcommand(
      "take", "hold the device until this is interrupted, or while a command runs");
  addDevice(take);
  take->add_option("command", arguments->command,
                   "after --: what to run meanwhile; it is kept off the device like all others");
  take->footer(
      "Ctrl-C, a termination signal or `tmbaudio hog release` ends it with status 0; with a\n"
      "command, the status is the command's. Status 4 if another process has the device, or got\n"
      "it meanwhile.");
  take->callback([arguments] { Take(*arguments); });

  CLI::App* release =
      command->add_subcommand("release", "end the `tmbaudio hog take` that holds the device");
  addDevice(release);
  release->footer(
      "A device that is free stays so. Any other program that holds it is named, left alone, and\n"
      "the status is 4.");
  release->callback([arguments] { Release(*arguments); });

  CLI::App* status = command->add_subcommand("status", "free, or which process holds it");
  addDevice(status);
  status->add_flag("--json", arguments->json, "for programs");
  status->callback([arguments] { ShowStatus(*arguments); });
}

}  // namespace tembra::tools
