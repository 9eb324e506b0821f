#include "HALTest.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Objects : public HALTest {
 protected:
  AudioObjectID Create(AudioObjectID inOwner, AudioClassID inClass) {
    AudioObjectID id = 0;
    EXPECT_EQ(AudioObjectCreate(mFake->self, inOwner, inClass, &id), 0);
    return id;
  }
  OSStatus Publish(AudioObjectID inOwner, std::vector<AudioObjectID> inCome,
                   std::vector<AudioObjectID> inGone = {}) {
    return AudioObjectsPublishedAndDied(mFake->self, inOwner, static_cast<UInt32>(inCome.size()),
                                        inCome.data(), static_cast<UInt32>(inGone.size()),
                                        inGone.data());
  }
};

TEST_F(Objects, HaveOwnerClassAndBaseClassFromTheHost) {
  const AudioObjectID device = Device();
  const AudioObjectID stream = Create(device, 'astr');
  const AudioObjectID volume = Create(device, 'vlme');
  ASSERT_EQ(Publish(device, {stream, volume}), 0);
  EXPECT_EQ(Number(device, 'clas'), UInt32{'adev'});
  EXPECT_EQ(Number(device, 'bcls'), UInt32{'aobj'});
  EXPECT_EQ(Number(device, 'stdv'), kSystem);
  EXPECT_EQ(Number(stream, 'clas'), UInt32{'astr'});
  EXPECT_EQ(Number(stream, 'stdv'), device);
  EXPECT_EQ(Number(volume, 'clas'), UInt32{'vlme'});
  EXPECT_EQ(Number(volume, 'bcls'), UInt32{'levl'});
  EXPECT_EQ(Number(mFake->objectID, 'clas'), UInt32{'aplg'});
  EXPECT_EQ(Number(kSystem, 'clas'), UInt32{'asys'});
  EXPECT_EQ(Number(kSystem, 'bcls'), UInt32{'aobj'});
  EXPECT_EQ(Number(kSystem, 'stdv'), 0U);
}

TEST_F(Objects, BaseClassesByClass) {
  const AudioObjectID device = Device();
  const std::pair<UInt32, UInt32> classes[] = {
      {'vlme', 'levl'}, {'subv', 'levl'}, {'pram', 'levl'}, {'levl', 'actl'}, {'mute', 'togl'},
      {'solo', 'togl'}, {'jack', 'togl'}, {'subm', 'togl'}, {'atch', 'togl'}, {'togl', 'actl'},
      {'dsrc', 'slct'}, {'dest', 'slct'}, {'clck', 'slct'}, {'nlvl', 'slct'}, {'slct', 'actl'},
      {'span', 'actl'}, {'actl', 'aobj'}, {'aagg', 'adev'}, {'asub', 'adev'}, {'huh?', 'aobj'},
  };
  for (const auto& [classID, base] : classes) {
    EXPECT_EQ(Number(Create(device, classID), 'bcls'), base);
  }
}

TEST_F(Objects, WhatTheHostAnswersCannotBeWritten) {
  const AudioObjectID device = Device();
  for (const UInt32 selector : {'clas', 'bcls', 'stdv', 'ownd'}) {
    const AudioObjectPropertyAddress address = Address(selector);
    Boolean settable = true;
    EXPECT_TRUE(AudioObjectHasProperty(device, &address));
    EXPECT_EQ(AudioObjectIsPropertySettable(device, &address, &settable), 0);
    EXPECT_FALSE(settable);
    EXPECT_EQ(Set(device, selector, 1), OSStatus{kAudioHardwareIllegalOperationError});
  }
  const AudioObjectPropertyAddress address = Address('clas');
  UInt16 little = 0;
  UInt32 size = sizeof little;
  EXPECT_EQ(AudioObjectGetPropertyData(device, &address, 0, nullptr, &size, &little),
            OSStatus{kAudioHardwareBadPropertySizeError});
}

TEST_F(Objects, OwnedObjectsAreThePublishedOnesByClass) {
  const AudioObjectID device = Device();
  const AudioObjectID stream = Create(device, 'astr');
  const AudioObjectID volume = Create(device, 'vlme');
  const AudioObjectID mute = Create(device, 'mute');
  EXPECT_THAT(List(device, 'ownd'), IsEmpty());
  ASSERT_EQ(Publish(device, {mute, stream}), 0);
  ASSERT_EQ(Publish(device, {volume}), 0);
  EXPECT_THAT(List(device, 'ownd'), ElementsAre(mute, stream, volume));
  EXPECT_THAT(List(device, 'ownd', {'actl'}), ElementsAre(mute, volume));
  EXPECT_THAT(List(device, 'ownd', {'levl', 'astr'}), ElementsAre(stream, volume));
  EXPECT_THAT(List(device, 'ownd', {'aobj'}), ElementsAre(mute, stream, volume));
  EXPECT_THAT(List(device, 'ownd', {'****'}), ElementsAre(mute, stream, volume));
  EXPECT_THAT(List(device, 'ownd', {'adev'}), IsEmpty());
  EXPECT_THAT(List(kSystem, 'ownd', {'adev'}), ElementsAre(device));
  ASSERT_EQ(Publish(device, {}, {stream}), 0);
  EXPECT_THAT(List(device, 'ownd'), ElementsAre(mute, volume));
}

TEST_F(Objects, ADevicesControlsAreWhatItOwnsOfThatKind) {
  const AudioObjectID device = Device();
  const AudioObjectID stream = Create(device, 'astr');
  const AudioObjectID volume = Create(device, 'vlme');
  const AudioObjectID pan = Create(device, 'span');
  ASSERT_EQ(Publish(device, {stream, pan, volume}), 0);
  EXPECT_THAT(List(device, 'ctrl'), ElementsAre(pan, volume));
  ASSERT_EQ(Publish(device, {}, {pan}), 0);
  EXPECT_THAT(List(device, 'ctrl'), ElementsAre(volume));
  const AudioObjectPropertyAddress address = Address('ctrl');
  Boolean settable = true;
  EXPECT_EQ(AudioObjectIsPropertySettable(device, &address, &settable), 0);
  EXPECT_FALSE(settable);
  EXPECT_EQ(Set(device, 'ctrl', 1), OSStatus{kAudioHardwareIllegalOperationError});
  // Nothing but a device has a list of controls.
  for (const AudioObjectID id : {stream, volume, mFake->objectID, kSystem}) {
    EXPECT_FALSE(AudioObjectHasProperty(id, &address));
  }
}

TEST_F(Objects, ADeviceIsAskedBeforeTheHostTellsWhatItOwns) {
  const AudioObjectID device = Device();
  AudioObjectID volume = 0;
  mFake->whenAskedWhatIsOwned = [&](AudioObjectID id) {
    EXPECT_EQ(id, device);
    if (volume != 0) return;
    volume = Create(device, 'vlme');
    EXPECT_EQ(Publish(device, {volume}), 0);
  };
  UInt32 size = 0;
  const AudioObjectPropertyAddress address = Address('ctrl');
  EXPECT_EQ(AudioObjectGetPropertyDataSize(device, &address, 0, nullptr, &size), 0);
  EXPECT_NE(volume, 0U);
  EXPECT_EQ(size, sizeof volume);
  EXPECT_THAT(List(device, 'ownd'), ElementsAre(volume));
  EXPECT_THAT(List(device, 'ctrl'), ElementsAre(volume));
  // A stream owns nothing that it could make.
  const AudioObjectID stream = Create(device, 'astr');
  ASSERT_EQ(Publish(device, {stream}), 0);
  mFake->whenAskedWhatIsOwned = [](AudioObjectID) { ADD_FAILURE(); };
  EXPECT_THAT(List(stream, 'ownd'), IsEmpty());
}

TEST_F(Objects, UnknownOnesHaveAStatusByTheKindOfCall) {
  UInt32 value = 0;
  UInt32 size = 4;
  Boolean flag = true;
  const AudioObjectPropertyAddress address = Address('fsiz');
  const OSStatus badObject = kAudioHardwareBadObjectError;
  const OSStatus badDevice = kAudioHardwareBadDeviceError;
  const OSStatus badStream = kAudioHardwareBadStreamError;
  for (const AudioObjectID id : {0U, 77777U, 0xFFFFFFFFU}) {
    EXPECT_EQ(Get(id, 'fsiz', value), badObject);
    EXPECT_EQ(Set(id, 'fsiz', 1), badObject);
    EXPECT_FALSE(AudioObjectHasProperty(id, &address));
    EXPECT_EQ(AudioObjectIsPropertySettable(id, &address, &flag), badObject);
    EXPECT_EQ(AudioObjectGetPropertyDataSize(id, &address, 0, nullptr, &size), badObject);
    EXPECT_EQ(AudioDeviceStart(id, nullptr), badDevice);
    EXPECT_EQ(AudioDeviceGetProperty(id, 0, false, 'fsiz', &size, &value), badDevice);
    EXPECT_EQ(AudioStreamGetProperty(id, 0, 'sfmt', &size, &value), badStream);
    AudioObjectShow(id);
  }
}

TEST_F(Objects, NullPointersAreRefused) {
  const AudioObjectID device = Device();
  const OSStatus refused = kAudioHardwareIllegalOperationError;
  UInt32 value = 0;
  UInt32 size = 4;
  const AudioObjectPropertyAddress address = Address('clas');
  for (const AudioObjectID id : {kSystem, device}) {
    EXPECT_EQ(AudioObjectGetPropertyData(id, nullptr, 0, nullptr, &size, &value), refused);
    EXPECT_EQ(AudioObjectGetPropertyData(id, &address, 0, nullptr, nullptr, &value), refused);
    EXPECT_EQ(AudioObjectGetPropertyData(id, &address, 0, nullptr, &size, nullptr), refused);
    EXPECT_EQ(AudioObjectSetPropertyData(id, nullptr, 0, nullptr, 4, &value), refused);
    EXPECT_EQ(AudioObjectGetPropertyDataSize(id, &address, 0, nullptr, nullptr), refused);
    EXPECT_EQ(AudioObjectIsPropertySettable(id, &address, nullptr), refused);
    EXPECT_FALSE(AudioObjectHasProperty(id, nullptr));
    EXPECT_EQ(AudioObjectAddPropertyListener(id, &address, nullptr, nullptr), refused);
    EXPECT_EQ(AudioObjectAddPropertyListenerBlock(id, &address, nullptr, nullptr), refused);
  }
}

TEST_F(Objects, TheRestIsForwardedUnchanged) {
  const AudioObjectID device = Device();
  const AudioObjectPropertyAddress address = Address('fsiz');
  Boolean settable = false;
  UInt32 size = 0;
  EXPECT_EQ(AudioObjectIsPropertySettable(device, &address, &settable), 0);
  EXPECT_TRUE(settable);
  EXPECT_EQ(AudioObjectGetPropertyDataSize(device, &address, 38, "qualifier", &size), 0);
  EXPECT_EQ(size, 42U);
  EXPECT_EQ(Set(device, 'fsiz', 256), 0);
  EXPECT_EQ(Number(device, 'fsiz'), 256U);
  UInt32 value = 0;
  EXPECT_EQ(Get(device, 'none', value), OSStatus{kAudioHardwareUnknownPropertyError});
  mFake->TakeLog();
  AudioObjectShow(device);
  EXPECT_THAT(mFake->TakeLog(), ElementsAre("Show " + std::to_string(device)));
}

TEST_F(Objects, ADeadOneIsUnknownForGood) {
  const AudioObjectID device = Device();
  ASSERT_EQ(Publish(kSystem, {}, {device}), 0);
  UInt32 value = 0;
  EXPECT_EQ(Get(device, 'fsiz', value), OSStatus{kAudioHardwareBadObjectError});
  EXPECT_EQ(AudioDeviceStart(device, nullptr), OSStatus{kAudioHardwareBadDeviceError});
  EXPECT_THAT(Devices(), IsEmpty());
  EXPECT_EQ(Publish(kSystem, {device}), OSStatus{kAudioHardwareBadObjectError});
  EXPECT_EQ(Publish(kSystem, {}, {device}), OSStatus{kAudioHardwareBadObjectError});
  mFake->SetDevices({});
}

TEST_F(Objects, PublishingIsAllOrNothing) {
  const AudioObjectID device = Device();
  const AudioObjectID next = Create(kSystem, 'adev');
  EXPECT_EQ(Publish(kSystem, {next, 54321}), OSStatus{kAudioHardwareBadObjectError});
  EXPECT_THAT(Devices(), ElementsAre(device));
  EXPECT_EQ(Publish(kSystem, {next}, {54321}), OSStatus{kAudioHardwareBadObjectError});
  EXPECT_THAT(Devices(), ElementsAre(device));
  EXPECT_EQ(Publish(kSystem, {next}), 0);
  EXPECT_EQ(Publish(kSystem, {next}), 0);
  EXPECT_THAT(Devices(), ElementsAre(device, next)) << "once, however often it is published";
}

TEST_F(Objects, OnlyAKnownPlugInCanCreate) {
  const AudioObjectID device = Device();
  AudioHardwarePlugInInterface table{};
  AudioHardwarePlugInInterface* stranger = &table;
  AudioObjectID id = 7;
  const AudioObjectPropertyAddress address = Address('fsiz');
  const OSStatus refused = kAudioHardwareIllegalOperationError;
  EXPECT_EQ(AudioObjectCreate(&stranger, kSystem, 'adev', &id), refused);
  EXPECT_EQ(AudioObjectCreate(mFake->self, kSystem, 'adev', nullptr), refused);
  EXPECT_EQ(AudioObjectCreate(mFake->self, 4711, 'astr', &id),
            OSStatus{kAudioHardwareBadObjectError});
  EXPECT_EQ(id, 7U);
  EXPECT_EQ(AudioObjectsPublishedAndDied(&stranger, kSystem, 0, nullptr, 0, nullptr), refused);
  EXPECT_EQ(AudioObjectsPublishedAndDied(mFake->self, kSystem, 1, nullptr, 0, nullptr), refused);
  EXPECT_EQ(AudioObjectPropertiesChanged(&stranger, device, 1, &address),
            OSStatus{kAudioHardwareBadObjectError});
  EXPECT_EQ(AudioObjectPropertiesChanged(mFake->self, device, 1, nullptr), refused);
  EXPECT_EQ(AudioObjectPropertiesChanged(mFake->self, device, 0, nullptr), 0);
}

TEST_F(Objects, MoreThanOneChunkOfThem) {
  const AudioObjectID device = Device();
  AudioObjectID last = 0;
  for (int i = 0; i < 3000; ++i) {
    const AudioObjectID id = Create(device, 'actl');
    ASSERT_GT(id, last);
    ASSERT_EQ(Number(id, 'clas'), UInt32{'actl'});
    last = id;
  }
}

}  // namespace
