#include "Roles.h"

#include <CoreAudio/CoreAudio.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <thread>
#include <utility>

#include "Traces.h"
#include "support/Program.h"
#include "tools/ServerLink.h"

namespace tembra::test {
namespace {

using namespace std::chrono_literals;

// A client stays inside this long after the taking down has begun.
constexpr auto kStay = 150ms;
// How long is looked for a call that must not come: dozens of buffers.
constexpr auto kObservation = 300ms;
constexpr int kCalls = 5;
// What the host may remember of each plug-in that it had. A device with all that it owns is more.
constexpr size_t kHeapOfHost = 8192;
// Of the I/O thread, as far as the kernel keeps it.
constexpr char kIOThreadName[] = "Tembra Audio";

std::atomic<int> sFailures{0};

void Check(bool inIsRight, const char* inWhat) {
  if (inIsRight) return;
  ++sFailures;
  std::printf("FAIL %s\n", inWhat);
  std::fflush(stdout);
}

// The client: its procedure, and its listeners.
std::atomic<AudioObjectID> sDevice{0};
std::atomic<int> sCalls{0};
std::atomic<bool> sIsInside{false};
std::atomic<bool> sShallStay{false};
std::atomic<bool> sStays{false};
std::atomic<bool> sTakingDown{false};
std::atomic<bool> sShallExit{false};
std::mutex sToldMutex;
std::vector<UInt32> sTold;

// Whatever the answer is, it comes.
void AskDevice() {
  const AudioObjectPropertyAddress rate = {kAudioDevicePropertyNominalSampleRate, 'glob', 0};
  Float64 value = 0;
  UInt32 size = sizeof(value);
  AudioObjectGetPropertyData(sDevice, &rate, 0, nullptr, &size, &value);
}

OSStatus Render(AudioDeviceID, const AudioTimeStamp*, const AudioBufferList*, const AudioTimeStamp*,
                AudioBufferList* outOutput, const AudioTimeStamp*, void*) {
  sIsInside = true;
  if (outOutput != nullptr && outOutput->mNumberBuffers > 0 &&
      outOutput->mBuffers[0].mData != nullptr) {
    static_cast<float*>(outOutput->mBuffers[0].mData)[0] = 0.5f;
  }
  ++sCalls;
  if (sShallExit) {
    sIsInside = false;  // it will not come back
    std::exit(0);
  }
  if (sShallStay) {
    sStays = true;
    // Until long after the other thread began to take everything down.
    sCalls.notify_all();
    sTakingDown.wait(false);
    const auto end = std::chrono::steady_clock::now() + kStay;
    while (std::chrono::steady_clock::now() < end) AskDevice();
    // The buffer is still there to be written.
    if (outOutput != nullptr && outOutput->mNumberBuffers > 0 &&
        outOutput->mBuffers[0].mData != nullptr) {
      static_cast<float*>(outOutput->mBuffers[0].mData)[1] = 0.5f;
    }
  }
  sIsInside = false;
  return 0;
}

OSStatus Told(AudioObjectID, UInt32 inNumber, const AudioObjectPropertyAddress* inAddresses,
              void*) {
  std::lock_guard<std::mutex> locker(sToldMutex);
  for (UInt32 i = 0; i < inNumber; ++i) sTold.push_back(inAddresses[i].mSelector);
  return 0;
}

std::vector<UInt32> TakeTold() {
  std::lock_guard<std::mutex> locker(sToldMutex);
  return std::exchange(sTold, {});
}

AudioObjectID FindDevice() {
  const AudioObjectPropertyAddress address = {kAudioHardwarePropertyDevices, 'glob', 0};
  AudioObjectID device = 0;
  UInt32 size = sizeof(device);
  const OSStatus status =
      AudioObjectGetPropertyData(kAudioObjectSystemObject, &address, 0, nullptr, &size, &device);
  return status == 0 && size == sizeof(device) ? device : 0;
}

UInt32 IsMaster() {
  const AudioObjectPropertyAddress address = {kAudioHardwarePropertyProcessIsMaster, 'glob', 0};
  UInt32 value = 2;
  UInt32 size = sizeof(value);
  AudioObjectGetPropertyData(kAudioObjectSystemObject, &address, 0, nullptr, &size, &value);
  return value;
}

bool FileNamesAnOwner() {
  return ReadFile("/tmp/com.apple.audio.hogmode.plist").find("HogMode.Owner-") != std::string::npos;
}

Float32 GetVolume(AudioObjectID inDevice) {
  const AudioObjectPropertyAddress address = {'volm', 'outp', 1};
  Float32 volume = -1.0f;
  UInt32 size = sizeof(volume);
  AudioObjectGetPropertyData(inDevice, &address, 0, nullptr, &size, &volume);
  return volume;
}

void SetVolume(AudioObjectID inDevice) {
  const AudioObjectPropertyAddress address = {'volm', 'outp', 1};
  const Float32 volume = 0.25f;
  Check(AudioObjectSetPropertyData(inDevice, &address, 0, nullptr, 4, &volume) == 0,
        "the volume was not set");
}

void TakeOwnership(AudioObjectID inDevice) {
  const AudioObjectPropertyAddress address = {kAudioDevicePropertyHogMode, 'glob', 0};
  pid_t owner = 0;
  Check(AudioObjectSetPropertyData(inDevice, &address, 0, nullptr, sizeof(owner), &owner) == 0 &&
            owner == getpid() && FileNamesAnOwner(),
        "the ownership was not taken");
}

void SetPair(AudioObjectID inDevice, UInt32 inLeft) {
  const AudioObjectPropertyAddress address = {'dch2', 'outp', 0};
  const UInt32 pair[2] = {inLeft, 3 - inLeft};
  AudioObjectSetPropertyData(inDevice, &address, 0, nullptr, sizeof(pair), pair);
}

void Listen(AudioObjectID inDevice) {
  for (const AudioObjectPropertyAddress& address :
       {AudioObjectPropertyAddress{kAudioDevicePropertyDeviceIsAlive, 'glob', 0},
        AudioObjectPropertyAddress{kAudioDevicePropertyDeviceIsRunning, 'glob', 0},
        AudioObjectPropertyAddress{'volm', 'outp', 1},
        AudioObjectPropertyAddress{'dch2', 'outp', 0}}) {
    AudioObjectAddPropertyListener(inDevice, &address, Told, nullptr);
  }
}

void ListenToSystem(bool inIsOn) {
  const AudioObjectPropertyAddress devices = {kAudioHardwarePropertyDevices, 'glob', 0};
  if (inIsOn) {
    AudioObjectAddPropertyListener(kAudioObjectSystemObject, &devices, Told, nullptr);
  } else {
    AudioObjectRemovePropertyListener(kAudioObjectSystemObject, &devices, Told, nullptr);
  }
}

// Adds to what was told until the selector is among it.
void AwaitTold(UInt32 inSelector, std::vector<UInt32>& ioTold, const char* inWhatIsWrong) {
  Check(WaitUntil([&] {
          for (const UInt32 selector : TakeTold()) ioTold.push_back(selector);
          return std::find(ioTold.begin(), ioTold.end(), inSelector) != ioTold.end();
        }),
        inWhatIsWrong);
}

bool IsPlaying(const std::string& inWhen) {
  return inWhen != "idle";
}

// On a machine with too much to do a start gives up at times.
bool Start(AudioObjectID inDevice, AudioDeviceIOProcID inID) {
  return WaitUntil([&] {
    if (AudioDeviceStart(inDevice, inID) == 0) return true;
    AudioDeviceStop(inDevice, inID);
    return false;
  });
}

// Brings the plug-in into the state; the device.
AudioObjectID Prepare(const std::string& inWhen) {
  sTakingDown = false;
  sShallStay = false;
  sStays = false;
  const AudioObjectID device = FindDevice();
  Check(device != 0, "there is no device");
  sDevice = device;
  Listen(device);
  ListenToSystem(true);
  Check(GetVolume(device) == 0.0f, "a new device does not begin with its own values");
  SetVolume(device);
  // What the start had to tell was told before this.
  std::vector<UInt32> told;
  AwaitTold('volm', told, "the volume's listener was not told");
  if (inWhen == "owning") TakeOwnership(device);
  if (!IsPlaying(inWhen)) return device;

  tools::ServerLink server;
  const int before = sCalls;
  const auto start = std::chrono::steady_clock::now();
  AudioDeviceIOProcID id = nullptr;
  Check(AudioDeviceCreateIOProcID(device, Render, nullptr, &id) == 0, "no procedure");
  Check(Start(device, id), "no start");
  if (inWhen == "sounding") {
    if (tools::ServerLink::ServerLives()) Check(server.WaitUntilAdmitted(20), "not admitted");
    const int admitted = sCalls;
    Check(WaitUntil([&] { return sCalls >= admitted + kCalls; }), "the engine does not run");
  } else if (inWhen == "inside") {
    // Not before the start has returned: it waits for the first cycle's guard.
    sShallStay = true;
    Check(WaitUntil([] { return sStays.load(); }), "nobody came inside");
  } else {
    Check(WaitUntil([&] { return sCalls > before; }), "the engine does not run");
    // The first try has failed, and for a second others follow: this can come too late to see one.
    const auto isLate = [&] { return std::chrono::steady_clock::now() > start + 900ms; };
    Check(WaitUntil([&] { return CountTimersDueSoon() > 0 || isLate(); }),
          "no timer waits for the next try");
  }
  Check(CountThreads(kIOThreadName) == 1, "there is no I/O thread");
  return device;
}

void CheckThatNothingIsCalled() {
  Check(!sIsInside, "a procedure is still inside");
  const int calls = sCalls;
  TakeTold();
  std::this_thread::sleep_for(kObservation);
  Check(sCalls == calls, "a procedure was called after the end");
  Check(TakeTold().empty(), "a listener was called after the end");
  // A procedure that ends the process never returns, and with it the stop that was asked for there
  // does not come about: where the device is left standing, its retries go on, and call nobody.
  Check(CountTimersDueSoon() == 0 || (sShallExit && IsMaster() == 0),
        "a timer waits after the end");
}

// Its listeners have heard that it runs, and hear that it stops, then of its death, and last that
// the list has changed.
void CheckTold(const std::string& inWhen) {
  std::vector<UInt32> told;
  AwaitTold('dev#', told, "listeners were not told");
  // The host says it once more when it is done.
  const auto last = std::find(told.begin(), told.end(), UInt32{'dev#'});
  if (last != told.end()) told.erase(last + 1, told.end());
  // Another process may set the preferred channels all the while.
  std::erase(told, UInt32{'dch2'});
  std::vector<UInt32> expected = {'livn', 'dev#'};
  if (IsPlaying(inWhen)) {
    Check(std::count(told.begin(), told.end(), UInt32{'goin'}) >= 2, "the stop was not told");
    expected.insert(expected.begin(), 'goin');
    told.erase(std::unique(told.begin(), told.end()), told.end());
  }
  Check(told == expected, "they were told wrongly");
}

int Unload(const std::string& inWhen, int inTimes) {
  size_t threads = 0;
  size_t descriptors = 0;
  size_t heap = 0;
  for (int time = 0; time < inTimes; ++time) {
    Prepare(inWhen);
    if (time == 0) std::printf("master %u\n", IsMaster());
    std::fflush(stdout);
    sTakingDown = true;
    sTakingDown.notify_all();
    Check(AudioHardwareUnload() == 0, "the unloading failed");
    Check(!sIsInside, "a procedure is still inside");
    Check(!FileNamesAnOwner(), "the ownership was not given up");
    CheckTold(inWhen);
    ListenToSystem(false);
    if (time <= 1 || time + 1 == inTimes) CheckThatNothingIsCalled();
    // The services' own threads come with the first device and stay; nothing else does.
    if (time == 1) {
      threads = CountThreads();
      descriptors = CountDescriptors();
      heap = GetHeapSize();
    } else if (time > 1) {
      Check(WaitUntil([&] { return CountThreads() <= threads; }), "a thread was left");
      Check(WaitUntil([&] { return CountDescriptors() <= descriptors; }), "a descriptor was left");
      heap += kHeapOfHost;
      Check(WaitUntil([&] { return GetHeapSize() <= heap; }), "memory was left");
    }
    Check(CountThreads(kIOThreadName) == 0, "the I/O thread was left");
  }
  std::printf("calls %d\n", sCalls.load());
  return sFailures == 0 ? 0 : 1;
}

// Registered before the HAL's own, so it runs when that has taken everything down.
void AfterTheEnd() {
  CheckThatNothingIsCalled();
  Check(CountThreads(kIOThreadName) == (sShallExit ? 1 : 0), "the I/O thread was left");
  std::printf("calls %d\n", sCalls.load());
  std::fflush(stdout);
  if (sFailures != 0) _exit(1);
}

int Exit(const std::string& inWhen) {
  std::atexit(AfterTheEnd);
  Prepare(inWhen);
  std::printf("master %u\n", IsMaster());
  std::fflush(stdout);
  sTakingDown = true;
  sTakingDown.notify_all();
  if (inWhen != "within") std::exit(0);
  sShallExit = true;
  for (;;) pause();
}

// Other processes may begin.
void SayReady() {
  std::printf("ready\n");
  std::fflush(stdout);
}

// A server comes when all is over, or, if the device stays, while it looks for one.
int Outlive(bool inStays) {
  tools::ServerLink server;
  Prepare("pending");
  if (!inStays) Check(AudioHardwareUnload() == 0, "the unloading failed");
  SayReady();
  Check(WaitUntil(tools::ServerLink::ServerLives), "no server came");
  if (inStays) Check(server.WaitUntilAdmitted(20), "not admitted");
  std::this_thread::sleep_for(kObservation);
  return sFailures == 0 ? 0 : 1;
}

int Disturb() {
  const AudioObjectID device = FindDevice();
  SayReady();
  for (UInt32 i = 0;; ++i) SetPair(device, 1 + i % 2);
}

int Hold() {
  FindDevice();
  SayReady();
  for (;;) pause();
}

}  // namespace

int RunRole(const std::vector<std::string>& inArguments) {
  const std::string& role = inArguments[0];
  if (role == "unload" && inArguments.size() == 3) {
    return Unload(inArguments[1], std::atoi(inArguments[2].c_str()));
  }
  if (role == "exit" && inArguments.size() == 2) return Exit(inArguments[1]);
  if (role == "outlive") return Outlive(inArguments.size() == 2);
  if (role == "disturb") return Disturb();
  if (role == "hold") return Hold();
  return 2;
}

}  // namespace tembra::test
