// Exclusive ownership where the device meets it: its property, its start, its streams, its end.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "client/TMBACLN_Stream.h"
#include "device/HP_IOThread.h"
#include "objects/CAPropertyAddress.h"
#include "support/CAException.h"
#include "support/CAMutex.h"
#include "support/client/ClientDevice.h"
#include "support/client/FakeHAL.h"
#include "support/client/FakeServer.h"
#include "support/persistence/FakeSettingsStorage.h"

namespace tembra::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const std::string kKey = "com.apple.audio.CoreAudio.HogMode.Owner-TMBAudioCln_Plugin";
// Not this process; it lives as long as the machine does.
constexpr pid_t kOther = 1;
// No process has it: it is beyond what the system hands out.
constexpr pid_t kEnded = std::numeric_limits<pid_t>::max();

const CAPropertyAddress kHogMode('oink');

// A device without an engine: who starts it is noted with who owned the device by then.
class QuietDevice : public TMBACLN_Device {
 public:
  QuietDevice(AudioObjectID inID, TMBACLN_PlugIn* inPlugIn) : TMBACLN_Device(inID, inPlugIn) {}
  void StartIOEngine() override { NoteStart("start"); }
  void StartIOEngineAtTime(const AudioTimeStamp&, UInt32) override { NoteStart("start at time"); }
  void StopIOEngine() override { mEvents.emplace_back("stop"); }
  void HogModeStateChanged() override {
    mEvents.emplace_back("state changed");
    mHadMutex.push_back(GetDeviceStateMutex()->IsOwnedByCurrentThread());
    TMBACLN_Device::HogModeStateChanged();
  }
  void PropertiesChanged(UInt32 inNumberAddresses,
                         const AudioObjectPropertyAddress* inAddresses) const override {
    if (inNumberAddresses == 1 && inAddresses[0].mSelector == 'oink') {
      EXPECT_EQ(inAddresses[0].mScope, AudioObjectPropertyScope{'glob'});
      EXPECT_EQ(inAddresses[0].mElement, 0u);
      mEvents.emplace_back("oink");
    }
    TMBACLN_Device::PropertiesChanged(inNumberAddresses, inAddresses);
  }
  std::vector<std::string> TakeEvents() { return std::exchange(mEvents, {}); }

  mutable std::vector<std::string> mEvents;
  std::vector<bool> mHadMutex;  // at each change of the state

 private:
  void NoteStart(const char* inWhat) {
    mEvents.push_back(std::string(inWhat) + (HogModeIsOwnedBySelf() ? ", owned" : ", not owned"));
  }
};

OSStatus Render(AudioDeviceID, const AudioTimeStamp*, const AudioBufferList*, const AudioTimeStamp*,
                AudioBufferList*, const AudioTimeStamp*, void*) {
  return 0;
}

class ClientHog : public testing::Test {
 protected:
  ClientHog() {
    FakeServer::Get().Reset();
    FakeHAL::Get().Reset();
    Settings().Reset();
    mHost = std::make_unique<ClientDevice>(false);
    Make();
    Device().mEvents.clear();
    Settings().TakeCalls();
  }
  ~ClientHog() override {
    End();
    mHost.reset();
    FakeServer::Get().Reset();
  }

  void Make() {
    mDevice = std::make_unique<QuietDevice>(60, mHost->GetPlugIn());
    mDevice->Initialize();
  }
  void End() {
    if (mDevice) mDevice->Teardown();
    mDevice.reset();
  }

  QuietDevice& Device() { return *mDevice; }
  HP_Stream& Stream(bool inIsInput) { return *Device().GetStreamByIndex(inIsInput, 0); }
  static FakeSettingsStorage& Settings() { return FakeSettingsStorage::Get(); }
  // What the file says of the device; 0 for nothing.
  static pid_t Stored() {
    const auto found = Settings().mFile.find(kKey);
    return found != Settings().mFile.end() ? found->second : 0;
  }

  template <class Operation>
  static OSStatus StatusOf(Operation inOperation) {
    try {
      inOperation();
      return 0;
    } catch (const CAException& exception) {
      return exception.GetError();
    }
  }
  SInt32 GetOwner() {
    SInt32 owner = 0;
    UInt32 size = sizeof(owner);
    Device().GetPropertyData(kHogMode, 0, nullptr, size, &owner);
    return owner;
  }
  // What is set and what the caller finds in its place.
  OSStatus Set(SInt32& ioValue, UInt32 inSize = sizeof(SInt32)) {
    return StatusOf(
        [&] { Device().SetPropertyData(kHogMode, 0, nullptr, inSize, &ioValue, nullptr); });
  }
  OSStatus SetMixable(bool inIsInput, bool inIsMixable) {
    const UInt32 value = inIsMixable ? 1 : 0;
    return StatusOf([&] {
      Stream(inIsInput).SetPropertyData(CAPropertyAddress('mix?'), 0, nullptr, sizeof(value),
                                        &value, nullptr);
    });
  }
  OSStatus Start(AudioDeviceIOProcID inID, bool inAtTime) {
    return StatusOf([&] {
      AudioTimeStamp time{.mFlags = kAudioTimeStampSampleTimeValid};
      if (inAtTime) {
        Device().Do_StartIOProcAtTime(inID, time, 0);
      } else {
        Device().Do_StartIOProc(inID);
      }
    });
  }

  std::unique_ptr<ClientDevice> mHost;
  std::unique_ptr<QuietDevice> mDevice;
};

// The property.

TEST_F(ClientHog, TheOwnerIsASettableNumber) {
  EXPECT_TRUE(Device().HasProperty(kHogMode));
  EXPECT_TRUE(Device().IsPropertySettable(kHogMode));
  EXPECT_EQ(Device().GetPropertyDataSize(kHogMode, 0, nullptr), 4u);
}

TEST_F(ClientHog, AFreeDeviceIsOwnedByMinusOne) {
  EXPECT_EQ(GetOwner(), -1);
}

TEST_F(ClientHog, AnotherProcessesClaimIsTold) {
  Settings().PutElsewhere(kKey, kOther);
  EXPECT_EQ(GetOwner(), kOther);
}

TEST_F(ClientHog, AnyOtherSizeIsRefusedAndChangesNothing) {
  for (UInt32 size : {0u, 3u, 5u, 8u}) {
    SInt32 value[2] = {7, 7};
    EXPECT_EQ(StatusOf([&] { Device().GetPropertyData(kHogMode, 0, nullptr, size, value); }),
              561211770);
    EXPECT_EQ(Set(value[0], size), 561211770);
    EXPECT_THAT(value, ElementsAre(7, 7));
  }
  EXPECT_EQ(Stored(), 0);
  EXPECT_THAT(Device().TakeEvents(), IsEmpty());
  EXPECT_TRUE(Device().GetDeviceStateMutex()->IsFree());
}

TEST_F(ClientHog, SettingTakesThenReleasesAndHandsTheOwnerBack) {
  // Whatever is set: the value is not looked at.
  for (const SInt32 given : {SInt32{12345}, SInt32{-1}, SInt32{0}, SInt32{getpid()}}) {
    SInt32 value = given;
    EXPECT_EQ(Set(value), 0);
    EXPECT_EQ(value, getpid());
    EXPECT_EQ(GetOwner(), getpid());
    EXPECT_EQ(Stored(), getpid());
    value = given;
    EXPECT_EQ(Set(value), 0);
    EXPECT_EQ(value, -1);
    EXPECT_EQ(GetOwner(), -1);
    EXPECT_EQ(Stored(), 0);
  }
}

TEST_F(ClientHog, EachChangeIsToldAndTheStateIsRenewedOnceMoreAfterIt) {
  SInt32 value = 0;
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(Set(value), 0);
    EXPECT_THAT(Device().TakeEvents(), ElementsAre("state changed", "oink", "state changed"));
  }
}

TEST_F(ClientHog, SettingHasTheDevicesMutex) {
  SInt32 value = 0;
  EXPECT_EQ(Set(value), 0);
  EXPECT_THAT(Device().mHadMutex, ElementsAre(true, true));
}

TEST_F(ClientHog, SettingWhatAnotherHasIsRefusedAndChangesNothing) {
  Settings().PutElsewhere(kKey, kOther);
  SInt32 value = 12345;
  EXPECT_EQ(Set(value), 560492391);
  EXPECT_EQ(value, 12345);
  EXPECT_EQ(Stored(), kOther);
  EXPECT_EQ(GetOwner(), kOther);
  EXPECT_THAT(Device().TakeEvents(), IsEmpty());
  EXPECT_TRUE(Device().GetDeviceStateMutex()->IsFree());
}

TEST_F(ClientHog, SettingTakesOverFromAnEndedProcess) {
  Settings().PutElsewhere(kKey, kEnded);
  SInt32 value = 0;
  EXPECT_EQ(Set(value), 0);
  EXPECT_EQ(value, getpid());
  EXPECT_EQ(Stored(), getpid());
}

TEST_F(ClientHog, TheDeviceTellsWhetherItIsItsProcesses) {
  EXPECT_FALSE(Device().HogModeIsOwnedBySelf());
  EXPECT_TRUE(Device().HogModeIsOwnedBySelfOrIsFree());
  SInt32 value = 0;
  EXPECT_EQ(Set(value), 0);
  EXPECT_TRUE(Device().HogModeIsOwnedBySelf());
  EXPECT_TRUE(Device().HogModeIsOwnedBySelfOrIsFree());
  EXPECT_EQ(Set(value), 0);
  End();
  Settings().PutElsewhere(kKey, kOther);
  Make();
  EXPECT_FALSE(Device().HogModeIsOwnedBySelf());
  EXPECT_FALSE(Device().HogModeIsOwnedBySelfOrIsFree());
}

TEST_F(ClientHog, ADeviceThatWasNotBuiltIsNobodys) {
  EXPECT_FALSE((*mHost)->HogModeIsOwnedBySelf());
  EXPECT_TRUE((*mHost)->HogModeIsOwnedBySelfOrIsFree());
}

// The start of a procedure.

class ClientHogStart : public ClientHog, public testing::WithParamInterface<bool> {
 protected:
  ClientHogStart() : mID(Device().Do_CreateIOProcID(Render, nullptr)) { Device().mEvents.clear(); }
  ~ClientHogStart() override { Device().Do_StopAllIOProcs(); }
  // Where nothing runs, a start at a time gets as far as to the base, which refuses it.
  OSStatus Start() {
    const OSStatus status = ClientHog::Start(mID, GetParam());
    return GetParam() && status == kAudioHardwareNotRunningError ? 0 : status;
  }
  std::vector<std::string> StartedAfter(std::vector<std::string> inEvents, bool inIsOwned) const {
    if (!GetParam()) inEvents.emplace_back(inIsOwned ? "start, owned" : "start, not owned");
    return inEvents;
  }
  const AudioDeviceIOProcID mID;
};
INSTANTIATE_TEST_SUITE_P(, ClientHogStart, testing::Bool(), [](const auto& inInfo) {
  return std::string(inInfo.param ? "AtTime" : "AtOnce");
});

TEST_P(ClientHogStart, OfAFreeDeviceDoesNotTakeIt) {
  EXPECT_EQ(Start(), 0);
  EXPECT_EQ(Device().TakeEvents(), StartedAfter({}, false));
  EXPECT_EQ(Stored(), 0);
}

TEST_P(ClientHogStart, WhereAnotherHasTheDeviceIsRefused) {
  Settings().PutElsewhere(kKey, kOther);
  EXPECT_EQ(Start(), 560492391);
  EXPECT_THAT(Device().TakeEvents(), IsEmpty());
  EXPECT_EQ(Stored(), kOther);
}

TEST_P(ClientHogStart, WhereThisProcessHasTheDeviceLeavesItSo) {
  SInt32 value = 0;
  EXPECT_EQ(Set(value), 0);
  Device().TakeEvents();
  Settings().TakeCalls();
  EXPECT_EQ(Start(), 0);
  EXPECT_EQ(Device().TakeEvents(), StartedAfter({}, true));
  EXPECT_THAT(Settings().TakeCalls(), IsEmpty());
}

TEST_P(ClientHogStart, WhereTheOutputIsNotMixableTakesTheDeviceFirst) {
  ASSERT_EQ(SetMixable(false, false), 0);
  EXPECT_EQ(Start(), 0);
  EXPECT_EQ(Stored(), getpid());
  // The claim's change of state renews the stream's formats, and with these it can be mixed again.
  EXPECT_EQ(Device().TakeEvents(), StartedAfter({"state changed", "oink"}, true));
}

TEST_P(ClientHogStart, WhereTheOutputIsNotMixableAndOwnedTakesNothing) {
  SInt32 value = 0;
  EXPECT_EQ(Set(value), 0);
  ASSERT_EQ(SetMixable(false, false), 0);
  Device().TakeEvents();
  EXPECT_EQ(Start(), 0);
  EXPECT_EQ(Device().TakeEvents(), StartedAfter({}, true));
  EXPECT_EQ(Stored(), getpid());
}

TEST_P(ClientHogStart, WhereOnlyTheInputIsNotMixableTakesNothing) {
  ASSERT_EQ(SetMixable(true, false), 0);
  EXPECT_EQ(Start(), 0);
  EXPECT_EQ(Device().TakeEvents(), StartedAfter({}, false));
  EXPECT_EQ(Stored(), 0);
}

// The streams.

TEST_F(ClientHog, AStreamOfALockedOutDeviceTakesNoChangeWhateverItIs) {
  Settings().PutElsewhere(kKey, kOther);
  for (const bool isInput : {true, false}) {
    for (const UInt32 selector : {'mix?', 'pft ', 'sfmt', 'zzzz'}) {
      const UInt32 value = 0;
      EXPECT_EQ(StatusOf([&] {
                  Stream(isInput).SetPropertyData(CAPropertyAddress(selector), 0, nullptr, 1,
                                                  &value, nullptr);
                }),
                560492391);
    }
    EXPECT_TRUE(Stream(isInput).IsMixable());
  }
}

TEST_F(ClientHog, AStreamOfAnOwnedDeviceTakesChanges) {
  SInt32 value = 0;
  EXPECT_EQ(Set(value), 0);
  EXPECT_EQ(SetMixable(false, false), 0);
  EXPECT_FALSE(Stream(false).IsMixable());
}

// Its beginning and its end.

TEST_F(ClientHog, AMasterWipesAClaimAsItBuildsTheDevice) {
  End();
  FakeHAL::Get().mSystemValues['mast'] = 1;
  Settings().PutElsewhere(kKey, kOther);
  Make();
  EXPECT_EQ(Stored(), 0);
  EXPECT_EQ(GetOwner(), -1);
}

TEST_F(ClientHog, AnotherProcessWipesOnlyAClaimThatBearsItsNumber) {
  End();
  Settings().PutElsewhere(kKey, getpid());
  Make();
  EXPECT_EQ(Stored(), 0);
  End();
  Settings().PutElsewhere(kKey, kOther);
  Make();
  EXPECT_EQ(Stored(), kOther);
  EXPECT_EQ(GetOwner(), kOther);
}

TEST_F(ClientHog, TheEndOfTheDeviceGivesItUpAfterTheProceduresHaveStopped) {
  const AudioDeviceIOProcID id = Device().Do_CreateIOProcID(Render, nullptr);
  SInt32 value = 0;
  EXPECT_EQ(Set(value), 0);
  ASSERT_EQ(Start(id, false), 0);
  Device().TakeEvents();
  Device().Teardown();
  EXPECT_EQ(Stored(), 0);
  EXPECT_THAT(Device().TakeEvents(), ElementsAre("stop", "state changed", "oink"));
  EXPECT_FALSE(Device().HogModeIsOwnedBySelf()) << "the mode is gone, and with it its observer";
  mDevice.reset();
}

TEST_F(ClientHog, TheEndOfTheDeviceLeavesAnothersClaim) {
  Settings().PutElsewhere(kKey, kOther);
  Device().Teardown();
  EXPECT_EQ(Stored(), kOther);
  EXPECT_THAT(Device().TakeEvents(), IsEmpty());
  mDevice.reset();
}

TEST_F(ClientHog, AProcessThatExitsGivesTheDeviceUpAndKeepsTheRest) {
  SInt32 value = 0;
  EXPECT_EQ(Set(value), 0);
  Device().TakeEvents();
  Device().Finalize();
  EXPECT_EQ(Stored(), 0);
  EXPECT_EQ(GetOwner(), -1);
  EXPECT_EQ(Device().GetNumberStreams(false), 1u);
  EXPECT_THAT(Device().TakeEvents(), ElementsAre("state changed", "oink"));
}

TEST_F(ClientHog, AProcessThatExitsLeavesAnothersClaim) {
  Settings().PutElsewhere(kKey, kOther);
  Device().Finalize();
  EXPECT_EQ(Stored(), kOther);
  EXPECT_THAT(Device().TakeEvents(), IsEmpty());
}

}  // namespace
}  // namespace tembra::test
