// How the plug-in takes its device down: what comes when, and what is left.

#include <unistd.h>

#include <string>
#include <vector>

#include "PlugInTest.h"
#include "device/HP_IOProcList.h"
#include "formats/HP_Stream.h"
#include "objects/CAPropertyAddress.h"

namespace tembra::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::Not;

class PlugInTeardown : public PlugIn {
 protected:
  PlugInTeardown() {
    mPlugIn->InitializeWithObjectID(40);
    mDeviceID = mPlugIn->GetDevice()->GetObjectID();
    mHAL.mCalls.clear();
    mHAL.mPublications.clear();
  }

  void ExpectFullPath() {
    mPlugIn->Teardown();
    // A save asks for controls, which may make them.
    std::erase_if(mHAL.mCalls, [](const std::string& call) {
      return call.starts_with("create") || call.starts_with("publish");
    });
    EXPECT_THAT(mHAL.mCalls, ElementsAre("changed livn", "died 1"));
    ASSERT_FALSE(mHAL.mPublications.empty());
    EXPECT_EQ(mHAL.mPublications.back().mOwner, kAudioObjectSystemObject);
    EXPECT_THAT(mHAL.mPublications.back().mDied, ElementsAre(mDeviceID));
    EXPECT_EQ(mPlugIn->GetDevice(), nullptr);
    EXPECT_EQ(HP_Object::GetObjectByID(mDeviceID), nullptr);
    EXPECT_EQ(HP_Object::GetObjectStateMutexByID(mDeviceID), nullptr);
  }

  AudioObjectID mDeviceID = 0;
};

TEST_F(PlugInTeardown, TakesTheDeviceDown) {
  mHAL.mSystemValues = {{'inot', 0}, {'mast', 0}};
  ExpectFullPath();
}

// Until the host knows of the death, any thread may come.
TEST_F(PlugInTeardown, TheDeviceHasItsMutexUntilItsDeathIsTold) {
  int died = 0;
  mHAL.mOnPublish = [&](const FakeHAL::Publication& publication) {
    for (const AudioObjectID id : publication.mDied) {
      EXPECT_EQ(HP_Object::GetObjectStateMutexByID(id),
                mPlugIn->GetDevice()->GetDeviceStateMutex());
      ++died;
    }
  };
  ExpectFullPath();
  EXPECT_EQ(died, 1);
  mHAL.mOnPublish = nullptr;
}

TEST_F(PlugInTeardown, TakesTheDeviceDownInTheMasterAtExitToo) {
  mHAL.mSystemValues = {{'inot', 1}, {'mast', 1}};
  ExpectFullPath();
}

TEST_F(PlugInTeardown, TakesTheDeviceDownIfTheHostTellsNothing) {
  ExpectFullPath();
  EXPECT_EQ(mSettings.mWrites, 0);
}

TEST_F(PlugInTeardown, TheMasterSavesTheSettingsBetweenTheNewsAndTheDeath) {
  mHAL.mSystemValues = {{'inot', 0}, {'mast', 1}};
  mSettings.mOnWrite = [this] {
    EXPECT_THAT(mHAL.mCalls, Contains("changed livn"));
    EXPECT_THAT(mHAL.mCalls, Not(Contains("died 1")));
    EXPECT_NE(mPlugIn->GetDevice(), nullptr);
    EXPECT_FALSE(mPlugIn->GetDevice()->IsIOEngineRunning());
  };
  ExpectFullPath();
  EXPECT_EQ(mSettings.mWrites, 1);
  EXPECT_EQ(mSettings.mPath, "/Library/Preferences/Audio/com.apple.audio.DeviceSettings.plist");
  ASSERT_TRUE(mSettings.mContent.has_value());
  for (const char* text :
       {"com.apple.audio.CoreAudio.DeviceSettings.TMBAudioCln_Plugin",
        "device 'volm' control on input channel 0", "device 'mute' control on output channel 2",
        "device 'ssrc' control on output channel 1", "physical format for input stream 0",
        "physical format for output stream 0"}) {
    EXPECT_THAT(*mSettings.mContent, testing::HasSubstr(text));
  }
  EXPECT_THAT(*mSettings.mContent, Not(testing::HasSubstr("channel 3")));
  EXPECT_THAT(*mSettings.mContent, Not(testing::HasSubstr("'span'")));
}

TEST_F(PlugInTeardown, AnotherProcessSavesNothing) {
  mHAL.mSystemValues = {{'inot', 0}, {'mast', 0}};
  ExpectFullPath();
  EXPECT_EQ(mSettings.mWrites, 0);
  EXPECT_EQ(mSettings.mReads, 0);
}

TEST_F(PlugInTeardown, AFileThatIsNoPropertyListIsNotWritten) {
  mHAL.mSystemValues = {{'mast', 1}};
  mSettings.mContent = "no property list";
  ExpectFullPath();
  EXPECT_EQ(mSettings.mWrites, 0);
}

TEST_F(PlugInTeardown, OnlyFinalizesAtTheExitOfAnotherProcess) {
  mHAL.mSystemValues = {{'inot', 1}, {'mast', 0}};
  TMBACLN_Device* device = mPlugIn->GetDevice();
  mPlugIn->Teardown();
  EXPECT_THAT(mHAL.mCalls, testing::IsEmpty());
  EXPECT_EQ(mSettings.mWrites, 0);
  EXPECT_EQ(mPlugIn->GetDevice(), device);
  EXPECT_EQ(HP_Object::GetDeviceByID(mDeviceID), device);
}

TEST_F(PlugInTeardown, ASecondTimeFindsNothing) {
  mPlugIn->Teardown();
  mHAL.mCalls.clear();
  mPlugIn->Teardown();
  EXPECT_THAT(mHAL.mCalls, testing::IsEmpty());
}

// A device that stayed would outlive its plug-in.
TEST_F(PlugIn, ASaveThatFailsDoesNotKeepTheDevice) {
  mPlugIn->InitializeWithObjectID(40);
  const AudioObjectID id = mPlugIn->GetDevice()->GetObjectID();
  // The master's place came free meanwhile, and the late controls cannot be published.
  mHAL.mSystemValues = {{'mast', 1}};
  mHAL.mPublishStatus[id] = 'xxxx';
  EXPECT_EQ(StatusOf([&] { mPlugIn->Teardown(); }), 0);
  EXPECT_EQ(mSettings.mWrites, 0);
  EXPECT_THAT(mHAL.mCalls, Contains("died 1"));
  EXPECT_EQ(mPlugIn->GetDevice(), nullptr);
  EXPECT_EQ(HP_Object::GetObjectByID(id), nullptr);
}

// With a client that plays to a server, and exclusive ownership.
class BusyPlugIn : public PlugIn {
 protected:
  explicit BusyPlugIn(bool inServerLives = true) {
    mHAL.mSystemValues = {{'mast', 1}};
    mPlugIn->InitializeWithObjectID(40);
    mServer.mHasListener = mServer.mHasDataPort = inServerLives;
    Start();
    mServer.PostEvent('cadd', getpid());
    const SInt32 value = 0;
    Device().SetPropertyData(CAPropertyAddress('oink'), 0, nullptr, sizeof(value), &value, nullptr);
    for (const FakeHAL::Publication& publication : mHAL.mPublications) {
      mIDs.insert(mIDs.end(), publication.mPublished.begin(), publication.mPublished.end());
    }
    mHAL.mCalls.clear();
    mServer.TakeLog();
    mServer.TakeMessages();
  }

  TMBACLN_Device& Device() { return *mPlugIn->GetDevice(); }

  // As a client does, but for the engine's thread, which needs a clock.
  void Start() {
    Device().StartHardware();
    HP_IOProcList& list = *Device().GetIOProcList();
    list.StartIOProc(list.AddIOProc(
        [](AudioDeviceID, const AudioTimeStamp*, const AudioBufferList*, const AudioTimeStamp*,
           AudioBufferList*, const AudioTimeStamp*, void*) -> OSStatus { return 0; },
        nullptr, true));
  }

  // Who owns the device, by the file; 0 for nobody.
  static SInt32 GetOwner() {
    const auto& file = FakeSettingsStorage::Get().mFile;
    const auto found = file.find("com.apple.audio.CoreAudio.HogMode.Owner-TMBAudioCln_Plugin");
    return found != file.end() ? found->second : 0;
  }

  // What there still is, by the way that others would find it.
  std::string GetState() {
    TMBACLN_Device& device = Device();
    const bool isDead = testing::Value(mHAL.mCalls, Contains("died 1"));
    return std::string(device.GetClientState() == 0 ? "stopped" : "connected") +
           (GetOwner() != 0 ? ", owned" : "") + (isDead ? ", dead" : "") +
           (HP_Object::GetObjectStateMutexByID(device.GetObjectID()) != nullptr ? ", reachable"
                                                                                : "") +
           ", " + std::to_string(device.GetNumberControls()) + " controls, " +
           std::to_string(device.GetNumberStreams(true) + device.GetNumberStreams(false)) +
           " streams" + (device.GetIOGuard() != nullptr ? ", guard" : "");
  }
  // Notes each step that somebody outside sees, with the state at that time.
  void NoteSteps() {
    mHAL.mOnChange = [this](AudioObjectPropertySelector selector) {
      const std::string code{static_cast<char>(selector >> 24), static_cast<char>(selector >> 16),
                             static_cast<char>(selector >> 8), static_cast<char>(selector)};
      mSteps.push_back(code + ": " + GetState());
    };
    mSettings.mOnWrite = [this] { mSteps.push_back("settings: " + GetState()); };
    mServer.mOnUnobserve = [this](const std::string& name) {
      mSteps.push_back(name.substr(0, name.find("Owner-")) + ": " + GetState());
    };
  }

  FakeServer& mServer = FakeServer::Get();
  std::vector<AudioObjectID> mIDs;  // of all objects
  std::vector<std::string> mSteps;
};

TEST_F(BusyPlugIn, GoesDownInThisOrder) {
  ASSERT_EQ(Device().GetClientState(), 5u);
  ASSERT_EQ(GetOwner(), getpid());
  NoteSteps();
  mPlugIn->Teardown();
  const std::string whole = ", reachable, 18 controls, 2 streams, guard";
  const std::string hog = "com.apple.audio.CoreAudio.HogMode.";
  const std::string preferred = "com.apple.audio.CoreAudio.Preferred";
  const std::string bare = "TMBAudioCln_Plugin: stopped, dead, 0 controls, 0 streams";
  EXPECT_THAT(mSteps,
              ElementsAre("TMBAudioServerNotification: connected, owned" + whole,
                          "livn: stopped, owned" + whole, "settings: stopped, owned" + whole,
                          // Giving up the ownership renews the streams' formats.
                          "pfta: stopped, dead, 18 controls, 2 streams, guard",
                          "pfta: stopped, dead, 18 controls, 2 streams, guard",
                          "oink: stopped, dead, 18 controls, 2 streams, guard",
                          hog + ": stopped, dead, 18 controls, 2 streams, guard",
                          preferred + "StereoChannels.Input." + bare,
                          preferred + "StereoChannels.Output." + bare,
                          preferred + "ChannelLayout.Input." + bare,
                          preferred + "ChannelLayout.Output." + bare));
}

TEST_F(BusyPlugIn, LeavesNothing) {
  TMBACLN_Device* const device = mPlugIn->GetDevice();
  ASSERT_EQ(mIDs.size(), 21u) << "a device, 2 streams and 18 controls";
  for (const AudioObjectID id : mIDs) {
    EXPECT_NE(HP_Object::GetObjectByID(id), nullptr);
    EXPECT_NE(HP_Object::GetObjectStateMutexByID(id), nullptr);
  }
  ASSERT_NE(TMBACLN_Device::getHandleFromPool(device), 0u);
  mPlugIn->Teardown();
  for (const AudioObjectID id : mIDs) {
    EXPECT_EQ(HP_Object::GetObjectByID(id), nullptr);
    EXPECT_EQ(HP_Object::GetObjectStateMutexByID(id), nullptr);
  }
  EXPECT_EQ(TMBACLN_Device::getHandleFromPool(device), 0u);
  EXPECT_EQ(mServer.GetOpenPorts("listener") + mServer.GetOpenPorts("data"), 0);
  EXPECT_EQ(mServer.GetPendingTimers(), 0);
  EXPECT_EQ(mServer.GetObservations(), 0u);
  EXPECT_EQ(GetOwner(), 0);
  EXPECT_EQ(mServer.CountMessages("listener", 'cdel'), 1) << "the server was told";
}

TEST_F(BusyPlugIn, AtTheExitOfAnotherProcessStopsAndGivesBackWhatOthersWait) {
  mHAL.mSystemValues = {{'inot', 1}, {'mast', 0}};
  NoteSteps();
  mPlugIn->Teardown();
  const std::string whole = ", reachable, 18 controls, 2 streams, guard";
  EXPECT_THAT(mSteps, ElementsAre("TMBAudioServerNotification: connected, owned" + whole,
                                  "pfta: stopped" + whole, "pfta: stopped" + whole,
                                  "oink: stopped" + whole));
  EXPECT_EQ(mServer.GetOpenPorts("listener") + mServer.GetOpenPorts("data"), 0);
  EXPECT_EQ(mServer.GetObservations(), 0u);
  EXPECT_EQ(GetOwner(), 0);
  EXPECT_EQ(mSettings.mWrites, 0);
  EXPECT_THAT(mHAL.mCalls, Not(Contains("died 1")));
  EXPECT_FALSE(Device().GetIOProcList()->IsAnythingEnabled());
  mHAL.mOnChange = nullptr;
  mServer.mOnUnobserve = nullptr;
}

// No server: a try failed and its timer waits for the next.
class RetryingPlugIn : public BusyPlugIn {
 protected:
  RetryingPlugIn() : BusyPlugIn(false) {}
};

TEST_F(RetryingPlugIn, NoTimerOutlivesTheEnd) {
  for (const UInt32 isMaster : {0u, 1u}) {
    SCOPED_TRACE(isMaster);
    if (mPlugIn->GetDevice() == nullptr) {
      mPlugIn->InitializeWithObjectID(40);
      Start();
    }
    ASSERT_EQ(mServer.GetPendingTimers(), 1);
    mHAL.mSystemValues = {{'mast', isMaster}};
    mPlugIn->Teardown();
    EXPECT_EQ(mServer.GetPendingTimers(), 0);
    mServer.TakeLog();
    mServer.Advance(10.0);
    EXPECT_THAT(mServer.TakeLog(), testing::IsEmpty());
    mServer.PostEvent('strt');
    EXPECT_THAT(mServer.TakeLog(), testing::IsEmpty());
  }
}

TEST_F(RetryingPlugIn, NoTimerOutlivesTheShortEnd) {
  ASSERT_EQ(mServer.GetPendingTimers(), 1);
  mHAL.mSystemValues = {{'inot', 1}, {'mast', 0}};
  mPlugIn->Teardown();
  EXPECT_EQ(mServer.GetPendingTimers(), 0);
  mServer.TakeLog();
  mServer.Advance(10.0);
  mServer.PostEvent('strt');
  EXPECT_THAT(mServer.TakeLog(), testing::IsEmpty());
}

}  // namespace
}  // namespace tembra::test
