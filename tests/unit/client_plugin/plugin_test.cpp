#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "client/TMBACLN_Device.h"
#include "client/TMBACLN_PlugIn.h"
#include "objects/CAPropertyAddress.h"
#include "support/CAException.h"
#include "support/client/FakeHAL.h"
#include "support/client/FakeServer.h"
#include "support/persistence/FakeSettingsFile.h"

namespace tembra::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::Not;

CFUUIDRef GetPlugInType() {
  return CFUUIDGetConstantUUIDWithBytes(nullptr, 0xF8, 0xBB, 0x1C, 0x28, 0xBA, 0xE8, 0x11, 0xD6,
                                        0x9C, 0x31, 0x00, 0x03, 0x93, 0x15, 0xCD, 0x46);
}

class PlugIn : public testing::Test {
 protected:
  PlugIn() : mHAL(FakeHAL::Get()) {
    FakeServer::Get().Reset();
    mHAL.Reset();
    mSettings = {};
    mReference =
        static_cast<AudioHardwarePlugInRef>(TMBACLN_New_Instance(nullptr, GetPlugInType()));
    mPlugIn = static_cast<TMBACLN_PlugIn*>(HP_HardwarePlugIn::GetObject(mReference));
  }
  ~PlugIn() override {
    // The full way down, whatever the test left.
    mHAL.mSystemValues.clear();
    mPlugIn->Teardown();
    mPlugIn->Release();
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

  FakeHAL& mHAL;
  FakeSettingsFile& mSettings = FakeSettingsFile::Get();
  AudioHardwarePlugInRef mReference;
  TMBACLN_PlugIn* mPlugIn;
};

TEST_F(PlugIn, TheFactoryHandsOutAnInterfaceThatIsHeldOnce) {
  ASSERT_NE(mReference, nullptr);
  EXPECT_EQ(mPlugIn->GetInterface(), mReference);
  EXPECT_EQ(mPlugIn->Retain(), 2u);
  EXPECT_EQ(mPlugIn->Release(), 1u);
  EXPECT_EQ(mPlugIn->GetDevice(), nullptr);
}

TEST_F(PlugIn, TheFactoryKnowsNoOtherType) {
  CFUUIDRef other = CFUUIDCreate(nullptr);
  EXPECT_EQ(TMBACLN_New_Instance(nullptr, other), nullptr);
  EXPECT_EQ(TMBACLN_New_Instance(nullptr, nullptr), nullptr);
  EXPECT_EQ(CFGetRetainCount(other), 1);
  CFRelease(other);
}

TEST_F(PlugIn, TheFactoryTakesAnEqualUUID) {
  CFUUIDRef equal = CFUUIDCreateFromString(nullptr, CFSTR("F8BB1C28-BAE8-11D6-9C31-00039315CD46"));
  void* reference = TMBACLN_New_Instance(nullptr, equal);
  ASSERT_NE(reference, nullptr);
  EXPECT_NE(reference, mReference);
  HP_HardwarePlugIn::GetObject(static_cast<AudioHardwarePlugInRef>(reference))->Release();
  CFRelease(equal);
}

TEST_F(PlugIn, InitializingPublishesTheDevice) {
  EXPECT_EQ(mPlugIn->InitializeWithObjectID(40), 0);
  EXPECT_EQ(mPlugIn->GetObjectID(), 40u);
  ASSERT_NE(mPlugIn->GetDevice(), nullptr);
  EXPECT_THAT(mHAL.mCalls,
              ElementsAre("create adev", "create astr", "create astr", "publish 2", "publish 1"));
  EXPECT_EQ(mHAL.mCreated[0].first, kAudioObjectSystemObject);
  const FakeHAL::Publication& publication = mHAL.mPublications.at(1);
  EXPECT_EQ(publication.mOwner, kAudioObjectSystemObject);
  const AudioObjectID id = mPlugIn->GetDevice()->GetObjectID();
  EXPECT_THAT(publication.mPublished, ElementsAre(id));
  EXPECT_EQ(HP_Object::GetDeviceByID(id), mPlugIn->GetDevice());
  EXPECT_EQ(HP_Object::GetObjectStateMutexByID(id), mPlugIn->GetDevice()->GetDeviceStateMutex());
}

TEST_F(PlugIn, TheOlderInitializeHasNoID) {
  mPlugIn->Initialize();
  EXPECT_EQ(mPlugIn->GetObjectID(), 0u);
  EXPECT_NE(mPlugIn->GetDevice(), nullptr);
}

TEST_F(PlugIn, ADeviceThatCannotBeCreatedThrows) {
  mHAL.mCreateStatus['adev'] = 'xxxx';
  EXPECT_EQ(StatusOf([&] { mPlugIn->InitializeWithObjectID(40); }), 'xxxx');
  EXPECT_EQ(mPlugIn->GetDevice(), nullptr);
  EXPECT_THAT(mHAL.mCalls, ElementsAre("create adev"));
  mPlugIn->Teardown();
}

TEST_F(PlugIn, ADeviceThatCannotPublishItsStreamsThrows) {
  mHAL.mPublishStatus[mHAL.mNextID] = 'xxxx';
  EXPECT_EQ(StatusOf([&] { mPlugIn->InitializeWithObjectID(40); }), 'xxxx');
  EXPECT_EQ(mPlugIn->GetDevice(), nullptr);
  mPlugIn->Teardown();
}

TEST_F(PlugIn, TheStatusOfThePublicationIsAnswered) {
  mHAL.mPublishStatus[kAudioObjectSystemObject] = 'xxxx';
  EXPECT_EQ(mPlugIn->InitializeWithObjectID(40), 'xxxx');
  EXPECT_NE(mPlugIn->GetDevice(), nullptr);
}

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

// Properties.

TEST_F(PlugIn, ItsNameIsTheBundles) {
  const CAPropertyAddress address('lnam');
  EXPECT_EQ(address.mSelector, 1819173229u);
  EXPECT_TRUE(mPlugIn->HasProperty(address));
  EXPECT_FALSE(mPlugIn->IsPropertySettable(address));
  ASSERT_EQ(mPlugIn->GetPropertyDataSize(address, 0, nullptr), 8u);
  CFStringRef name = nullptr;
  UInt32 size = sizeof(name);
  mPlugIn->GetPropertyData(address, 0, nullptr, size, &name);
  ASSERT_NE(name, nullptr);
  EXPECT_TRUE(CFEqual(name, CFSTR("com.tembra.audio.TMBAudioClient")));
  CFRelease(name);
}

TEST_F(PlugIn, ItsNameOfTheWrongSizeIsRefused) {
  CFStringRef name = nullptr;
  UInt32 size = 4;
  EXPECT_EQ(StatusOf([&] {
              mPlugIn->GetPropertyData(CAPropertyAddress('lnam'), 0, nullptr, size, &name);
            }),
            561211770);
  EXPECT_EQ(name, nullptr);
}

TEST_F(PlugIn, OtherPropertiesAreTheBases) {
  const CAPropertyAddress unknown('zzzz');
  UInt32 value = 0;
  UInt32 size = sizeof(value);
  EXPECT_FALSE(mPlugIn->HasProperty(unknown));
  EXPECT_EQ(StatusOf([&] { mPlugIn->IsPropertySettable(unknown); }), 'who?');
  EXPECT_EQ(StatusOf([&] { mPlugIn->GetPropertyDataSize(unknown, 0, nullptr); }), 'who?');
  EXPECT_EQ(StatusOf([&] { mPlugIn->GetPropertyData(unknown, 0, nullptr, size, &value); }), 'who?');
  EXPECT_EQ(StatusOf([&] { mPlugIn->SetPropertyData(unknown, 0, nullptr, size, &value, nullptr); }),
            'who?');
  EXPECT_TRUE(mPlugIn->HasProperty(CAPropertyAddress('lisa')));
}

TEST_F(PlugIn, LoggingTheProcessReportsNothing) {
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  __tmbcln_LogProcess();
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

}  // namespace
}  // namespace tembra::test
