#include <cstring>

#include "PlugInTest.h"
#include "objects/CAPropertyAddress.h"

namespace tembra::test {
namespace {

using testing::ElementsAre;

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

// Once the host knows of an object, any thread may come.
TEST_F(PlugIn, WhateverIsPublishedHasItsMutexBefore) {
  mHAL.mSystemValues = {{'mast', 1}};
  int published = 0;
  mHAL.mOnPublish = [&](const FakeHAL::Publication& publication) {
    for (const AudioObjectID id : publication.mPublished) {
      EXPECT_NE(HP_Object::GetObjectStateMutexByID(id), nullptr) << id;
      ++published;
    }
  };
  mPlugIn->InitializeWithObjectID(40);
  EXPECT_EQ(published, 21) << "a device, 2 streams and 18 controls";
  mHAL.mOnPublish = nullptr;
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

// The undefined behaviour sanitizer sees what this machine forgives.
TEST_F(PlugIn, ItsNameNeedsNoAlignedRoom) {
  alignas(8) UInt8 bytes[16] = {};
  CFStringRef name = nullptr;
  UInt32 size = sizeof(name);
  mPlugIn->GetPropertyData(CAPropertyAddress('lnam'), 0, nullptr, size, bytes + 1);
  std::memcpy(&name, bytes + 1, sizeof(name));
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
