#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <future>
#include <span>
#include <thread>

#include "HALTest.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Load : public HALTest {};

TEST_F(Load, HappensAtTheFirstCallAndOnce) {
  EXPECT_EQ(mFake->instances, 0);
  EXPECT_EQ(Number(kSystem, 'pmut'), 1U);
  EXPECT_EQ(mFake->instances, 1);
  EXPECT_EQ(mFake->initialized, 1);
  Devices();
  EXPECT_EQ(mFake->instances, 1);
  EXPECT_EQ(mFake->references, 1) << "the instance is the host's alone";
  EXPECT_THAT(mFake->TakeLog(), ElementsAre("InitializeWithObjectID"));
}

TEST_F(Load, AListenerOnTheSystemObjectIsACallToo) {
  const AudioObjectPropertyAddress address = Address('dev#');
  const auto ignore = [](AudioObjectID, UInt32, const AudioObjectPropertyAddress*, void*) {
    return OSStatus{0};
  };
  EXPECT_EQ(AudioObjectAddPropertyListener(kSystem, &address, ignore, nullptr), 0);
  EXPECT_EQ(mFake->initialized, 1);
  EXPECT_EQ(AudioObjectRemovePropertyListener(kSystem, &address, ignore, nullptr), 0);
}

TEST_F(Load, ADeviceCallIsACallToo) {
  EXPECT_EQ(AudioDeviceStart(12345, nullptr), OSStatus{kAudioHardwareBadDeviceError});
  EXPECT_EQ(mFake->initialized, 1);
}

TEST_F(Load, OlderInterfacesAreJustInitialized) {
  for (int version = 1; version <= 5; ++version) {
    mFake->version = version;
    EXPECT_EQ(Devices().size(), 1U);
    EXPECT_THAT(mFake->TakeLog(),
                ElementsAre(version >= 4 ? "InitializeWithObjectID" : "Initialize"))
        << "version " << version;
    EXPECT_EQ(AudioHardwareUnload(), 0);
  }
}

TEST_F(Load, CallsThatAnInterfaceLacksAreUnsupported) {
  mFake->version = 1;
  const AudioObjectID device = Device();
  AudioDeviceIOProcID id = nullptr;
  AudioTimeStamp time{};
  UInt32 value = 0;
  const OSStatus unsupported = kAudioHardwareUnsupportedOperationError;
  EXPECT_EQ(Get(device, 'fsiz', value), unsupported);
  EXPECT_EQ(AudioDeviceStartAtTime(device, nullptr, &time, 0), unsupported);
  EXPECT_EQ(AudioDeviceGetNearestStartTime(device, &time, 0), unsupported);
  EXPECT_EQ(AudioDeviceCreateIOProcID(device, nullptr, nullptr, &id), unsupported);
  const AudioObjectPropertyAddress address = Address('fsiz');
  EXPECT_FALSE(AudioObjectHasProperty(device, &address));
  EXPECT_EQ(AudioDeviceStop(device, nullptr), 0);
}

TEST_F(Load, APlugInWithNoKnownInterfaceIsLetGo) {
  mFake->version = 0;
  EXPECT_THAT(Devices(), IsEmpty());
  EXPECT_EQ(mFake->instances, 1);
  EXPECT_EQ(mFake->references, 0);
}

TEST_F(Load, AFailingFactoryIsNoHarm) {
  mFake->factoryFails = true;
  EXPECT_THAT(Devices(), IsEmpty());
  EXPECT_EQ(mFake->initialized, 0);
}

TEST_F(Load, AFailingInitializationLeavesNothing) {
  mFake->initializeStatus = 'oops';
  mFake->duringInitialize = [this] {
    AudioObjectID id = 0;
    EXPECT_EQ(AudioObjectCreate(mFake->self, kSystem, 'adev', &id), 0);
    mFake->SetDevices({id});
    EXPECT_EQ(AudioObjectsPublishedAndDied(mFake->self, kSystem, 1, &id, 0, nullptr), 0);
  };
  mFake->reportsDeaths = false;
  EXPECT_THAT(Devices(), IsEmpty());
  EXPECT_THAT(List(kSystem, 'plg#'), IsEmpty());
  EXPECT_EQ(mFake->tornDown, 1);
  EXPECT_EQ(mFake->references, 0);
}

TEST_F(Load, InotIsSetWhileItLasts) {
  UInt32 during = 0;
  mFake->duringInitialize = [&] { during = Number(kSystem, 'inot'); };
  Devices();
  EXPECT_EQ(during, 1U);
  EXPECT_EQ(Number(kSystem, 'inot'), 0U);
}

TEST_F(Load, ThePlugInMayCallBackFromInside) {
  mFake->duringInitialize = [&] {
    EXPECT_THAT(Devices(), IsEmpty()) << "its own is not there yet";
    EXPECT_EQ(Number(kSystem, 'user'), 1U);
    EXPECT_EQ(Number(mFake->objectID, 'clas'), UInt32{'aplg'});
    UInt32 value = 0;
    EXPECT_EQ(Get(99999, 'clas', value), OSStatus{kAudioHardwareBadObjectError});
  };
  EXPECT_EQ(Devices().size(), 1U);
}

TEST_F(Load, AnotherThreadWaitsForItToFindTheDevice) {
  std::future<size_t> found;
  mFake->duringInitialize = [&] {
    found = std::async(std::launch::async, [] { return Devices().size(); });
    EXPECT_EQ(found.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
  };
  EXPECT_EQ(Number(kSystem, 'pmut'), 1U);
  EXPECT_EQ(found.get(), 1U);
}

TEST_F(Load, WhatIsKnownBeforeDoesNotWaitForIt) {
  mFake->duringInitialize = [&] {
    std::thread([&] { EXPECT_EQ(Number(kSystem, 'inot'), 1U); }).join();
  };
  EXPECT_EQ(Devices().size(), 1U);
}

TEST_F(Load, JunkBesideTheBundleIsPassedOver) {
  const std::string junk = std::string(getenv("HOME")) + "/junk";
  std::filesystem::create_directories(junk + "/Empty.plugin/Contents/Linux");
  std::filesystem::create_directories(junk + "/NoPlugIn.bundle");
  std::ofstream(junk + "/File.plugin") << "not a directory";
  std::filesystem::create_directories(junk + "/Broken.plugin/Contents/Linux");
  std::ofstream(junk + "/Broken.plugin/Contents/Info.plist") << "<plist><dict>";
  const std::string path = "relative:" + junk + "::/does/not/exist:" + PlugIns();
  setenv("TEMBRA_HAL_PLUGIN_PATH", path.c_str(), 1);
  EXPECT_EQ(Devices().size(), 1U);
  EXPECT_EQ(mFake->instances, 1);
}

TEST_F(Load, OfTwoBundlesOfOneNameTheFirstCounts) {
  const std::string twice = PlugIns() + ":" + PlugIns() + "/";
  setenv("TEMBRA_HAL_PLUGIN_PATH", twice.c_str(), 1);
  EXPECT_EQ(Devices().size(), 1U);
  EXPECT_EQ(mFake->instances, 1);
}

TEST_F(Load, AnEmptyPathMeansNoPlugIns) {
  setenv("TEMBRA_HAL_PLUGIN_PATH", "", 1);
  EXPECT_THAT(Devices(), IsEmpty());
  EXPECT_EQ(Number(kSystem, 'dOut'), 0U);
  EXPECT_EQ(mFake->instances, 0);
}

class Unload : public HALTest {};

TEST_F(Unload, TakesThePlugInDownAndTheNextCallBeginsAnew) {
  const AudioObjectID first = Device();
  UInt32 inot = 7;
  mFake->duringTeardown = [&] { inot = Number(kSystem, 'inot'); };
  EXPECT_EQ(AudioHardwareUnload(), 0);
  EXPECT_EQ(inot, 0U) << "the process goes on";
  EXPECT_EQ(mFake->tornDown, 1);
  EXPECT_EQ(mFake->references, 0);
  mFake->duringTeardown = nullptr;
  const AudioObjectID second = Device();
  EXPECT_EQ(mFake->instances, 2);
  EXPECT_NE(first, second) << "an ID is not used again";
  UInt32 value = 0;
  EXPECT_EQ(Get(first, 'fsiz', value), OSStatus{kAudioHardwareBadObjectError});
}

TEST_F(Unload, BeforeAnyCallDoesNothing) {
  EXPECT_EQ(AudioHardwareUnload(), 0);
  EXPECT_EQ(mFake->instances, 0);
}

TEST_F(Unload, BuriesWhatThePlugInForgets) {
  mFake->reportsDeaths = false;
  const AudioObjectID device = Device();
  EXPECT_EQ(AudioHardwareUnload(), 0);
  mFake->devices = 0;
  EXPECT_THAT(Devices(), IsEmpty());
  UInt32 value = 0;
  EXPECT_EQ(Get(device, 'clas', value), OSStatus{kAudioHardwareBadObjectError});
}

TEST_F(Unload, IsRefusedWhileACallStaysInside) {
  const AudioObjectID device = Device();
  std::promise<void> inside;
  std::promise<void> leave;
  mFake->duringGet = [&] {
    inside.set_value();
    leave.get_future().wait();
  };
  std::thread caller([&] { Number(device, 'wait'); });
  inside.get_future().wait();
  EXPECT_EQ(AudioHardwareUnload(), OSStatus{kAudioHardwareIllegalOperationError});
  EXPECT_EQ(mFake->tornDown, 0);
  EXPECT_EQ(Number(device, 'fsiz'), 512U) << "and nothing has changed";
  leave.set_value();
  caller.join();
}

TEST_F(Unload, FromInsideTheTeardownIsRefused) {
  Device();
  OSStatus status = 0;
  mFake->duringTeardown = [&] { status = AudioHardwareUnload(); };
  EXPECT_EQ(AudioHardwareUnload(), 0);
  EXPECT_EQ(status, OSStatus{kAudioHardwareIllegalOperationError});
}

TEST_F(Unload, WhileOthersCallNobodyMeetsAPlugInThatIsGone) {
  std::atomic<bool> goOn{true};
  std::atomic<int> calls{0};
  std::atomic<int> strange{0};
  std::vector<std::thread> callers;
  for (int i = 0; i < 4; ++i) {
    callers.emplace_back([&] {
      while (goOn) {
        AudioObjectID devices[4];
        const AudioObjectPropertyAddress address = Address('dev#');
        UInt32 size = sizeof devices;
        strange += AudioObjectGetPropertyData(kSystem, &address, 0, nullptr, &size, devices) != 0;
        for (const AudioObjectID device : std::span(devices, size / sizeof devices[0])) {
          UInt32 value = 0;
          const OSStatus status = Get(device, 'fsiz', value);
          strange += status != 0 && status != OSStatus{kAudioHardwareBadObjectError} &&
                     status != OSStatus{kAudioHardwareNotRunningError};
          ++calls;
        }
      }
    });
  }
  for (int i = 0; i < 50; ++i) {
    EXPECT_EQ(AudioHardwareUnload(), 0);
    const int before = calls;
    tembra::test::WaitUntil([&] { return calls > before; });
  }
  goOn = false;
  for (std::thread& caller : callers) {
    caller.join();
  }
  EXPECT_EQ(strange, 0);
  EXPECT_EQ(mFake->references, mFake->initialized - mFake->tornDown);
}

}  // namespace
