#include "Roles.h"

#include <CoreAudio/CoreAudio.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <mutex>
#include <thread>
#include <utility>

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

std::atomic<int> sFailures{0};

void Check(bool inIsRight, const char* inWhat) {
  if (inIsRight) return;
  ++sFailures;
  std::printf("FAIL %s\n", inWhat);
  std::fflush(stdout);
}

// The client: its procedure, and its listeners.
std::atomic<int> sCalls{0};
std::atomic<bool> sIsInside{false};
std::atomic<bool> sShallStay{false};
std::atomic<bool> sTakingDown{false};
std::atomic<bool> sShallExit{false};
std::mutex sToldMutex;
std::vector<UInt32> sTold;

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
    // Until long after the other thread began to take everything down.
    sCalls.notify_all();
    sTakingDown.wait(false);
    const auto end = std::chrono::steady_clock::now() + kStay;
    while (std::chrono::steady_clock::now() < end) std::this_thread::yield();
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

void SetVolume(AudioObjectID inDevice) {
  const AudioObjectPropertyAddress address = {'volm', 'outp', 1};
  const Float32 volume = 0.25f;
  Check(AudioObjectSetPropertyData(inDevice, &address, 0, nullptr, 4, &volume) == 0,
        "the volume was not set");
}

void SetPair(AudioObjectID inDevice, UInt32 inLeft) {
  const AudioObjectPropertyAddress address = {'dch2', 'outp', 0};
  const UInt32 pair[2] = {inLeft, 3 - inLeft};
  AudioObjectSetPropertyData(inDevice, &address, 0, nullptr, sizeof(pair), pair);
}

void Listen(AudioObjectID inDevice, bool inIsOn) {
  const AudioObjectPropertyAddress isAlive = {kAudioDevicePropertyDeviceIsAlive, 'glob', 0};
  const AudioObjectPropertyAddress volume = {'volm', 'outp', 1};
  const AudioObjectPropertyAddress devices = {kAudioHardwarePropertyDevices, 'glob', 0};
  if (inIsOn) {
    AudioObjectAddPropertyListener(inDevice, &isAlive, Told, nullptr);
    AudioObjectAddPropertyListener(inDevice, &volume, Told, nullptr);
    AudioObjectAddPropertyListener(kAudioObjectSystemObject, &devices, Told, nullptr);
  } else {
    AudioObjectRemovePropertyListener(kAudioObjectSystemObject, &devices, Told, nullptr);
  }
}

// Brings the plug-in into the state; the device.
AudioObjectID Prepare(const std::string& inWhen) {
  sTakingDown = false;
  sShallStay = inWhen == "inside";
  const AudioObjectID device = FindDevice();
  Check(device != 0, "there is no device");
  Listen(device, true);
  SetVolume(device);
  // What the start had to tell was told before this.
  std::vector<UInt32> told;
  Check(WaitUntil([&] {
          for (const UInt32 selector : TakeTold()) told.push_back(selector);
          return !told.empty() && told.back() == 'volm';
        }),
        "the volume's listener was not told");
  if (inWhen == "idle") return device;

  tools::ServerLink server;
  const int before = sCalls;
  AudioDeviceIOProcID id = nullptr;
  Check(AudioDeviceCreateIOProcID(device, Render, nullptr, &id) == 0, "no procedure");
  Check(AudioDeviceStart(device, id) == 0, "no start");
  if (inWhen == "sounding") {
    if (tools::ServerLink::ServerLives()) Check(server.WaitUntilAdmitted(20), "not admitted");
    const int admitted = sCalls;
    Check(WaitUntil([&] { return sCalls >= admitted + kCalls; }), "the engine does not run");
  } else if (inWhen == "inside") {
    Check(WaitUntil([] { return sIsInside && sShallStay; }), "nobody came inside");
  } else {
    // The first try has failed and its timer waits; the tries go on for a second.
    Check(WaitUntil([&] { return sCalls > before; }), "the engine does not run");
  }
  return device;
}

size_t CountIn(const char* inFolder) {
  std::error_code ignored;
  return static_cast<size_t>(
      std::distance(std::filesystem::directory_iterator(inFolder, ignored), {}));
}

void CheckThatNothingIsCalled() {
  Check(!sIsInside, "a procedure is still inside");
  const int calls = sCalls;
  std::this_thread::sleep_for(kObservation);
  Check(sCalls == calls, "a procedure was called after the end");
}

int Unload(const std::string& inWhen, int inTimes) {
  size_t threads = 0;
  size_t descriptors = 0;
  for (int time = 0; time < inTimes; ++time) {
    const AudioObjectID device = Prepare(inWhen);
    if (time == 0) std::printf("master %u\n", IsMaster());
    std::fflush(stdout);
    sTakingDown = true;
    sTakingDown.notify_all();
    Check(AudioHardwareUnload() == 0, "the unloading failed");
    Check(!sIsInside, "a procedure is still inside");
    // Its listeners hear of its death, and then that the list has changed.
    std::vector<UInt32> told;
    Check(WaitUntil([&] {
            for (const UInt32 selector : TakeTold()) told.push_back(selector);
            return told.size() >= 2;
          }),
          "listeners were not told");
    Check(told.size() >= 2 && told[0] == 'livn' && told[1] == 'dev#', "they were told wrongly");
    Listen(device, false);
    if (time <= 1 || time + 1 == inTimes) CheckThatNothingIsCalled();
    // The services' own threads come with the first device and stay; nothing else does.
    if (time == 1) {
      threads = CountIn("/proc/self/task");
      descriptors = CountIn("/proc/self/fd");
    } else if (time > 1) {
      Check(WaitUntil([&] { return CountIn("/proc/self/task") <= threads; }), "a thread was left");
      Check(WaitUntil([&] { return CountIn("/proc/self/fd") <= descriptors; }),
            "a descriptor was left");
    }
  }
  std::printf("calls %d\n", sCalls.load());
  return sFailures == 0 ? 0 : 1;
}

// Registered before the HAL's own, so it runs when that has taken everything down.
void AfterTheEnd() {
  CheckThatNothingIsCalled();
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
  if (role == "disturb") return Disturb();
  if (role == "hold") return Hold();
  return 2;
}

}  // namespace tembra::test
