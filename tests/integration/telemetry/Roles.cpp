#include "Roles.h"

#include <CoreAudio/AudioHardware.h>
#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <thread>

#include "base/Descriptor.h"
#include "ports/PortWire.h"
#include "support/OtherUser.h"
#include "support/device/SimulatedDevice.h"
#include "telemetry/HP_IOCycleTelemetry.h"

namespace tembra::test {
namespace {

void Say(const char* inText) {
  std::printf("%s\n", inText);
  std::fflush(stdout);
}

OSStatus Tone(AudioObjectID, const AudioTimeStamp*, const AudioBufferList*, const AudioTimeStamp*,
              AudioBufferList* outOutput, const AudioTimeStamp*, void*) {
  static_cast<float*>(outOutput->mBuffers[0].mData)[0] = 0.5F;
  return 0;
}

UInt32 CheckOf(UInt64 inNumber) {
  return static_cast<UInt32>((inNumber * 0x9E3779B97F4A7C15) >> 32);
}

// From here on a system call ends the process, but for its end and the clock, which the kernel
// answers by a call where the machine has no better one.
bool AllowNoSystemCalls() {
  sock_filter rules[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_exit_group, 2, 0),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_clock_gettime, 1, 0),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  const sock_fprog program{sizeof rules / sizeof *rules, rules};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

}  // namespace

int Play() {
  const AudioObjectPropertyAddress address{kAudioHardwarePropertyDefaultOutputDevice,
                                           kAudioObjectPropertyScopeGlobal, 0};
  AudioObjectID device = kAudioObjectUnknown;
  UInt32 size = sizeof device;
  AudioObjectGetPropertyData(kAudioObjectSystemObject, &address, 0, nullptr, &size, &device);
  AudioDeviceIOProcID procedure = nullptr;
  if (AudioDeviceCreateIOProcID(device, Tone, nullptr, &procedure) != 0) return 3;
  if (AudioDeviceStart(device, procedure) != 0) return 4;
  Say("ready");
  while (true) pause();
}

bool IsWhole(const CAHALIOCycleRawTelemetryEvent& inEvent) {
  const UInt64 number = inEvent.mWideValues[0];
  const auto value = static_cast<Float64>(number);
  return inEvent.mKind == 'test' && inEvent.mIOCycle == static_cast<UInt32>(number) &&
         inEvent.mValues[0] == value && inEvent.mValues[1] == value + 1 &&
         inEvent.mValues[2] == value + 2 && inEvent.mValues[3] == value + 3 &&
         inEvent.mWideValues[1] == ~number && inEvent.mError == CheckOf(number) &&
         inEvent.mFlags == ~CheckOf(number) && inEvent.mTime != 0;
}

int WriteEvents() {
  SimulatedDevice device(false, false);
  device.mUID = kWriterUID;
  device.IOEngineStarted();
  HP_IOCycleTelemetry telemetry(&device);
  telemetry.Initialize(nullptr);
  Say("ready");
  while (!telemetry.IsCapturing()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  for (UInt64 n = 0; n < kWrittenEvents; ++n) {
    const auto value = static_cast<Float64>(n);
    telemetry.SaveTelemetryItem('test', static_cast<UInt32>(n), value, value + 1, value + 2,
                                value + 3, n, ~n, CheckOf(n), ~CheckOf(n));
  }
  device.IOEngineStopped();
  Say("done");
  while (true) pause();
}

int RecordConfined(bool inCallsAtTheEnd) {
  SimulatedDevice device(false, false);
  device.mUID = kWriterUID;
  HP_IOCycleTelemetry telemetry(&device);
  telemetry.StartCapturing();
  telemetry.SetIsCapturing(true);
  const AudioTimeStamp time{};
  // What is looked up at the first use, a cycle's first event has behind it.
  telemetry.IOCycleWorkLoopBegin(0, time);
  if (!AllowNoSystemCalls()) return kNotConfined;
  for (UInt32 cycle = 1; cycle <= kWrittenEvents; ++cycle) {
    telemetry.IOCycleWorkLoopEnd(cycle, time, time);
  }
  if (inCallsAtTheEnd) syscall(SYS_getppid);
  _exit(0);
}

int AskAsStranger(const std::string& inSocket) {
  const Descriptor file(open(inSocket.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
  if (!file || !BecomeUser(kNobody)) return 3;
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::snprintf(address.sun_path, sizeof address.sun_path, "/proc/self/fd/%d", file.Get());
  const Descriptor socket(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  ssize_t got = 0;
  if (connect(socket.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) {
    const ports::Header hello = ports::MakeHeader(ports::Kind::kHello, 0, 0, 0, 0);
    const ports::Header request = ports::MakeHeader(ports::Kind::kRequest, 'tele', 0, 1, 0);
    send(socket.Get(), &hello, sizeof hello, MSG_NOSIGNAL);
    send(socket.Get(), &request, sizeof request, MSG_NOSIGNAL);
    // The port closes the connection of a stranger.
    const timeval patience{20, 0};
    setsockopt(socket.Get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    char reply[64];
    got = recv(socket.Get(), reply, sizeof reply, 0);
    if (got < 0 && errno == EAGAIN) return 4;
  }
  Say(std::to_string(got > 0 ? got : 0).c_str());
  return 0;
}

int RunRole(const std::vector<std::string>& inArguments) {
  if (inArguments[0] == "play") return Play();
  if (inArguments[0] == "write") return WriteEvents();
  if (inArguments[0] == "confined") return RecordConfined(inArguments.size() > 1);
  if (inArguments[0] == "stranger" && inArguments.size() == 2) return AskAsStranger(inArguments[1]);
  return 2;
}

}  // namespace tembra::test
