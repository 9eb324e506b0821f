#pragma once

#include <CoreAudio/AudioHardwarePlugIn.h>

#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

// A plug-in that does what a test tells it and writes down what was asked of it. Test and plug-in
// share one state, which the image exports.

struct FakeState {
  // To be set before the plug-in is loaded.
  int version = 5;  // the newest interface that it answers for
  bool factoryFails = false;
  OSStatus initializeStatus = 0;
  int devices = 1;             // published by the initialization
  int firstDefaultDevice = 0;  // those before it cannot be a default device
  bool reportsDeaths = true;   // tells of its objects' deaths in Teardown
  std::function<void()> duringInitialize;
  std::function<void()> duringTeardown;
  // Called at every read of 'wait'.
  std::function<void()> duringGet;
  // Called when it is asked whether an object has 'ownd'.
  std::function<void(AudioObjectID)> whenAskedWhatIsOwned;

  // What came of it.
  AudioHardwarePlugInRef self = nullptr;
  AudioObjectID objectID = 0;
  std::atomic<int> references{0};
  std::atomic<int> instances{0};
  std::atomic<int> initialized{0};
  std::atomic<int> tornDown{0};
  std::atomic<UInt32> frameSize{512};

  std::mutex mutex;
  std::vector<std::string> log;
  std::vector<AudioObjectID> deviceIDs;  // under the mutex

  std::vector<AudioObjectID> Devices() {
    const std::lock_guard lock(mutex);
    return deviceIDs;
  }
  void SetDevices(std::vector<AudioObjectID> inDevices) {
    const std::lock_guard lock(mutex);
    deviceIDs = std::move(inDevices);
  }
  void Note(const std::string& inText) {
    const std::lock_guard lock(mutex);
    log.push_back(inText);
  }
  std::vector<std::string> TakeLog() {
    const std::lock_guard lock(mutex);
    return std::exchange(log, {});
  }
};

extern "C" FakeState* FakePlugIn_State();
