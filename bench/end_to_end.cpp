// The whole way of a buffer at its real pace, as ratios of two things measured in the same run:
//   CPU time of client and server for each cycle, against a bare pair of programs that wakes as
//   often and sends and receives as much;
//   lateness of the I/O thread's wake-ups, against a bare thread of the same policy.
// Both are measured in turns, so that a change of the machine's speed hits both alike.
//
// usage: bench_end_to_end [ROUNDS [PERIODS]]

#include <CoreAudio/AudioHardware.h>
#include <CoreFoundation/CoreFoundation.h>
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <semaphore>
#include <string>
#include <thread>
#include <vector>

#include "bench/BarePair.h"
#include "bench/PeriodicThread.h"

using namespace tembra::bench;

namespace {

double CpuMicros(pid_t inProcess) {
  clockid_t clock;
  timespec used{};
  if (clock_getcpuclockid(inProcess, &clock) != 0 || clock_gettime(clock, &used) != 0) return 0;
  return static_cast<double>(used.tv_sec) * 1e6 + static_cast<double>(used.tv_nsec) / 1e3;
}

double Median(std::vector<double> inValues) {
  std::sort(inValues.begin(), inValues.end());
  return inValues.empty() ? 0 : inValues[inValues.size() / 2];
}

[[noreturn]] void Fail(const char* inWhat) {
  std::fprintf(stderr, "bench_end_to_end: %s\n", inWhat);
  std::exit(1);
}

// What the I/O procedure notes of its cycles; storage is taken before it runs.
struct Cycles {
  std::atomic<unsigned> count{0};
  std::atomic<unsigned> wanted{0};
  std::binary_semaphore reached{0};  // the wanted count
  std::uint64_t due = 0;
  std::vector<double> lateness;
};

OSStatus Render(AudioObjectID, const AudioTimeStamp* inNow, const AudioBufferList*,
                const AudioTimeStamp*, AudioBufferList* outOutput,
                const AudioTimeStamp* inOutputTime, void* inClientData) {
  auto* cycles = static_cast<Cycles*>(inClientData);
  if (cycles->due != 0 && cycles->lateness.size() < cycles->lateness.capacity()) {
    cycles->lateness.push_back(static_cast<double>(inNow->mHostTime) -
                               static_cast<double>(cycles->due));
  }
  // The cycle's output time is where the next one begins: one buffer from this one's anchor.
  cycles->due = inOutputTime->mHostTime;
  for (UInt32 index = 0; index < outOutput->mNumberBuffers; ++index) {
    AudioBuffer& buffer = outOutput->mBuffers[index];
    if (buffer.mData != nullptr) static_cast<float*>(buffer.mData)[0] = 0.25F;
  }
  if (cycles->count.fetch_add(1) + 1 == cycles->wanted) cycles->reached.release();
  return 0;
}

pid_t StartServer() {
  const std::string path =
      std::filesystem::read_symlink("/proc/self/exe").parent_path().parent_path() / "bin/tmbasrv";
  std::string program = path;
  std::string quiet = "--quiet";
  std::string alone = "--private";
  char* arguments[] = {program.data(), quiet.data(), alone.data(), nullptr};
  pid_t server = -1;
  if (posix_spawn(&server, path.c_str(), nullptr, nullptr, arguments, environ) != 0) {
    Fail("cannot start the server");
  }
  return server;
}

void WaitForPort(const std::string& inName) {
  CFStringRef name = CFStringCreateWithCString(nullptr, inName.c_str(), kCFStringEncodingUTF8);
  for (int tries = 0; tries < 1000; ++tries) {
    if (CFMessagePortRef port = CFMessagePortCreateRemote(nullptr, name)) {
      CFRelease(port);
      CFRelease(name);
      return;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  Fail("the server's port does not come up");
}

AudioObjectID DefaultOutput() {
  const AudioObjectPropertyAddress address{kAudioHardwarePropertyDefaultOutputDevice,
                                           kAudioObjectPropertyScopeGlobal, 0};
  AudioObjectID device = kAudioObjectUnknown;
  UInt32 size = sizeof device;
  AudioObjectGetPropertyData(kAudioObjectSystemObject, &address, 0, nullptr, &size, &device);
  if (device == kAudioObjectUnknown) Fail("there is no device");
  return device;
}

struct Round {
  double cpuMicros;  // both processes, for each cycle
  std::vector<double> lateness;
};

Round RunSystem(AudioObjectID inDevice, pid_t inServer, unsigned inPeriods) {
  Cycles cycles;
  cycles.lateness.reserve(inPeriods * 2);
  AudioDeviceIOProcID procedure = nullptr;
  if (AudioDeviceCreateIOProcID(inDevice, Render, &cycles, &procedure) != 0 ||
      AudioDeviceStart(inDevice, procedure) != 0) {
    Fail("the device does not start");
  }
  WaitForPort("com.tembra.tmbasrv." + std::to_string(getuid()) + "." + std::to_string(getpid()));
  // The bare pair has nobody who looks how far it is, either.
  const auto wait = [&](unsigned until) {
    cycles.wanted = until;
    while (cycles.count < until) (void)cycles.reached.try_acquire_for(std::chrono::seconds(10));
  };
  const unsigned warm = cycles.count.load() + 20;
  wait(warm);
  const double before = CpuMicros(getpid()) + CpuMicros(inServer);
  const unsigned first = cycles.count.load();
  wait(first + inPeriods);
  const double after = CpuMicros(getpid()) + CpuMicros(inServer);
  const unsigned last = cycles.count.load();
  AudioDeviceStop(inDevice, procedure);
  AudioDeviceDestroyIOProcID(inDevice, procedure);
  return {(after - before) / (last - first), cycles.lateness};
}

Round RunBare(BarePair& ioPair, unsigned inPeriods) {
  const double before = CpuMicros(getpid()) + CpuMicros(ioPair.Receiver());
  std::vector<double> lateness = RunPeriodic(inPeriods, [&] { ioPair.Send(); });
  const double after = CpuMicros(getpid()) + CpuMicros(ioPair.Receiver());
  return {(after - before) / inPeriods, lateness};
}

void Print(const char* inWhat, double inOf, double inFloor, const char* inUnit, const char* inAim) {
  std::printf("%6.2fx  %s (%.1f %s / %.1f %s%s)\n", inOf / inFloor, inWhat, inOf, inUnit, inFloor,
              inUnit, inAim);
}

}  // namespace

int main(int argc, char** argv) {
  const unsigned rounds = argc > 1 ? static_cast<unsigned>(std::atoi(argv[1])) : 7;
  const unsigned periods = argc > 2 ? static_cast<unsigned>(std::atoi(argv[2])) : 200;
  std::string runtime = (std::filesystem::temp_directory_path() / "tembra-bench-XXXXXX").string();
  if (mkdtemp(runtime.data()) == nullptr) Fail("no directory for the ports");
  setenv("XDG_RUNTIME_DIR", runtime.c_str(), 1);

  BarePair pair;
  const pid_t server = StartServer();
  WaitForPort("com.tembra.tmbasrv." + std::to_string(getuid()));
  const AudioObjectID device = DefaultOutput();

  std::vector<double> cpu;
  std::vector<double> bareCpu;
  std::vector<double> ratios;
  std::vector<double> lateness;
  std::vector<double> bareLateness;
  for (unsigned round = 0; round < rounds; ++round) {
    const Round bare = RunBare(pair, periods);
    const Round system = RunSystem(device, server, periods);
    bareCpu.push_back(bare.cpuMicros);
    cpu.push_back(system.cpuMicros);
    ratios.push_back(system.cpuMicros / bare.cpuMicros);
    lateness.insert(lateness.end(), system.lateness.begin(), system.lateness.end());
    bareLateness.insert(bareLateness.end(), bare.lateness.begin(), bare.lateness.end());
  }
  Print("CPU time of client and server for a 512-frame cycle against a bare pair", Median(cpu),
        Median(bareCpu), "us", ", aim at most 1.15x");
  std::printf("         by rounds:");
  for (const double ratio : ratios) std::printf(" %.2fx", ratio);
  std::printf("\n");
  const Lateness of = Summarise(lateness);
  const Lateness floor = Summarise(bareLateness);
  Print("wake-up lateness of the I/O thread, median", of.median / 1e3, floor.median / 1e3, "us",
        ", aim at most 1.1x");
  Print("wake-up lateness of the I/O thread, p99", of.p99 / 1e3, floor.p99 / 1e3, "us", "");

  kill(server, SIGTERM);
  waitpid(server, nullptr, 0);
  std::filesystem::remove_all(runtime);
  return 0;
}
