#pragma once

#include <CoreAudio/CoreAudio.h>
#include <CoreFoundation/CoreFoundation.h>
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "bundle/FakePlugIn.h"
#include "support/PrivateRuntime.h"
#include "support/Program.h"

// Removed when the process that made it ends, not when a forked child of it does.
class RuntimeOfThisProcess {
 public:
  RuntimeOfThisProcess() : mOwner(getpid()), mRuntime(new tembra::test::PrivateRuntime) {}
  ~RuntimeOfThisProcess() {
    if (getpid() == mOwner) {
      delete mRuntime;
    }
  }

 private:
  const pid_t mOwner;
  const tembra::test::PrivateRuntime* const mRuntime;
};

// A HAL that loads the fake plug-in and nothing else, anew for each test.
class HALTest : public testing::Test {
 protected:
  static constexpr AudioObjectID kSystem = kAudioObjectSystemObject;

  static std::string PlugIns() { return TEMBRA_BINARY_DIR "/tests/plug-ins"; }

  HALTest() {
    static const RuntimeOfThisProcess sRuntime;
    setenv("TEMBRA_HAL_PLUGIN_PATH", PlugIns().c_str(), 1);
    static void* const sImage =
        dlopen((PlugIns() + "/Fake.plugin/Contents/Linux/FakePlugIn").c_str(), RTLD_NOW);
    const auto state =
        reinterpret_cast<decltype(&FakePlugIn_State)>(dlsym(sImage, "FakePlugIn_State"));
    mFake = state();
    mFake->version = 5;
    mFake->factoryFails = false;
    mFake->initializeStatus = 0;
    mFake->devices = 1;
    mFake->firstDefaultDevice = 0;
    mFake->reportsDeaths = true;
    mFake->duringInitialize = mFake->duringTeardown = mFake->duringGet = nullptr;
    mFake->whenAskedWhatIsOwned = nullptr;
    mFake->SetDevices({});
    mFake->objectID = 0;
    mFake->references = mFake->instances = mFake->initialized = mFake->tornDown = 0;
    mFake->frameSize = 512;
    mFake->TakeLog();
  }

  ~HALTest() override { EXPECT_EQ(AudioHardwareUnload(), 0); }

  static AudioObjectPropertyAddress Address(UInt32 inSelector, UInt32 inScope = 'glob',
                                            UInt32 inElement = 0) {
    return {inSelector, inScope, inElement};
  }

  static OSStatus Get(AudioObjectID inID, UInt32 inSelector, UInt32& outValue,
                      UInt32 inScope = 'glob') {
    const AudioObjectPropertyAddress address = Address(inSelector, inScope);
    UInt32 size = sizeof outValue;
    return AudioObjectGetPropertyData(inID, &address, 0, nullptr, &size, &outValue);
  }

  // The value; fails the test if there is none.
  static UInt32 Number(AudioObjectID inID, UInt32 inSelector) {
    UInt32 value = 0xDEAD;
    EXPECT_EQ(Get(inID, inSelector, value), 0);
    return value;
  }

  static OSStatus Set(AudioObjectID inID, UInt32 inSelector, UInt32 inValue) {
    const AudioObjectPropertyAddress address = Address(inSelector);
    return AudioObjectSetPropertyData(inID, &address, 0, nullptr, sizeof inValue, &inValue);
  }

  static std::vector<AudioObjectID> List(AudioObjectID inID, UInt32 inSelector,
                                         std::vector<UInt32> inQualifier = {}) {
    const AudioObjectPropertyAddress address = Address(inSelector);
    const auto qualifierSize = static_cast<UInt32>(inQualifier.size() * sizeof(UInt32));
    UInt32 size = 0;
    EXPECT_EQ(
        AudioObjectGetPropertyDataSize(inID, &address, qualifierSize, inQualifier.data(), &size),
        0);
    std::vector<AudioObjectID> list(size / sizeof(AudioObjectID) + 1);
    UInt32 room = size;
    EXPECT_EQ(AudioObjectGetPropertyData(inID, &address, qualifierSize, inQualifier.data(), &room,
                                         list.data()),
              0);
    EXPECT_EQ(room, size);
    list.resize(room / sizeof(AudioObjectID));
    return list;
  }

  static std::vector<AudioObjectID> Devices() {
    return List(kSystem, kAudioHardwarePropertyDevices);
  }

  // The one device of a test that has one.
  AudioObjectID Device() {
    const std::vector<AudioObjectID> devices = Devices();
    EXPECT_EQ(devices.size(), 1U);
    return devices.empty() ? 0 : devices[0];
  }

  FakeState* mFake = nullptr;
};
