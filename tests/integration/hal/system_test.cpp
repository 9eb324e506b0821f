#include "HALTest.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class SystemObject : public HALTest {
 protected:
  static OSStatus Translate(UInt32 inSelector, CFStringRef inText, AudioObjectID& outID) {
    const AudioObjectPropertyAddress address = Address(inSelector);
    UInt32 size = sizeof outID;
    return AudioObjectGetPropertyData(kSystem, &address, sizeof inText, &inText, &size, &outID);
  }
  static OSStatus TranslateInPlace(UInt32 inSelector, CFStringRef inText, AudioObjectID& outID) {
    AudioValueTranslation translation = {&inText, sizeof inText, &outID, sizeof outID};
    UInt32 size = sizeof translation;
    return AudioHardwareGetProperty(inSelector, &size, &translation);
  }
};

TEST_F(SystemObject, ListsDevicesInTheOrderOfPublication) {
  mFake->devices = 3;
  EXPECT_THAT(Devices(), SizeIs(3));
  EXPECT_EQ(Devices(), mFake->Devices());
  EXPECT_THAT(List(kSystem, 'plg#'), ElementsAre(mFake->objectID));
}

TEST_F(SystemObject, AListTakesWhatThereIsRoomFor) {
  mFake->devices = 3;
  const std::vector<AudioObjectID> all = Devices();
  AudioObjectID two[3] = {0, 0, 99};
  UInt32 size = 11;
  EXPECT_EQ(AudioHardwareGetProperty('dev#', &size, two), 0);
  EXPECT_EQ(size, 8U);
  EXPECT_THAT(two, ElementsAre(all[0], all[1], 99U));
}

TEST_F(SystemObject, TheDefaultIsTheFirstDeviceThatCanBeIt) {
  mFake->devices = 3;
  mFake->firstDefaultDevice = 1;
  const std::vector<AudioObjectID> devices = Devices();
  EXPECT_EQ(Number(kSystem, 'dOut'), devices[1]);
  EXPECT_EQ(Number(kSystem, 'sOut'), devices[1]);
  EXPECT_EQ(Number(kSystem, 'dIn '), 0U) << "the fake has no input";
}

TEST_F(SystemObject, ADefaultCanBeChosenAndIsGivenUpWithItsDevice) {
  mFake->devices = 3;
  mFake->firstDefaultDevice = 1;
  const std::vector<AudioObjectID> devices = Devices();
  EXPECT_EQ(Set(kSystem, 'dOut', devices[2]), 0);
  EXPECT_EQ(Number(kSystem, 'dOut'), devices[2]);
  EXPECT_EQ(Number(kSystem, 'sOut'), devices[1]) << "each default is chosen by itself";
  EXPECT_EQ(Set(kSystem, 'dOut', devices[0]), OSStatus{kAudioHardwareIllegalOperationError});
  EXPECT_EQ(Set(kSystem, 'dOut', 987654), OSStatus{kAudioHardwareBadDeviceError});
  EXPECT_EQ(Set(kSystem, 'dOut', mFake->objectID), OSStatus{kAudioHardwareBadDeviceError});
  EXPECT_EQ(Number(kSystem, 'dOut'), devices[2]);
  EXPECT_EQ(AudioObjectsPublishedAndDied(mFake->self, kSystem, 0, nullptr, 1, &devices[2]), 0);
  mFake->SetDevices({devices[0], devices[1]});
  EXPECT_EQ(Number(kSystem, 'dOut'), devices[1]);
}

TEST_F(SystemObject, TranslatesUIDsBothWays) {
  mFake->devices = 2;
  const std::vector<AudioObjectID> devices = Devices();
  AudioObjectID id = 0;
  EXPECT_EQ(Translate('uidd', CFSTR("Fake-1"), id), 0);
  EXPECT_EQ(id, devices[1]);
  EXPECT_EQ(Translate('uidd', CFSTR("Fake-7"), id), 0);
  EXPECT_EQ(id, 0U);
  EXPECT_EQ(TranslateInPlace('duid', CFSTR("Fake-0"), id), 0);
  EXPECT_EQ(id, devices[0]);
  EXPECT_EQ(TranslateInPlace('duid', CFSTR(""), id), 0);
  EXPECT_EQ(id, 0U);
}

TEST_F(SystemObject, TranslatesBundleIDs) {
  AudioObjectID id = 0;
  EXPECT_EQ(Translate('bidp', CFSTR("com.tembra.test.FakePlugIn"), id), 0);
  EXPECT_EQ(id, mFake->objectID);
  EXPECT_EQ(TranslateInPlace('pibi', CFSTR("com.tembra.test.Other"), id), 0);
  EXPECT_EQ(id, 0U);
  const AudioObjectPropertyAddress address = Address('piid');
  CFStringRef bundleID = nullptr;
  UInt32 size = sizeof bundleID;
  ASSERT_EQ(AudioObjectGetPropertyData(mFake->objectID, &address, 0, nullptr, &size, &bundleID), 0);
  EXPECT_TRUE(CFEqual(bundleID, CFSTR("com.tembra.test.FakePlugIn")));
  CFRelease(bundleID);
}

TEST_F(SystemObject, ATranslationNeedsItsText) {
  const AudioObjectPropertyAddress address = Address('uidd');
  AudioObjectID id = 0;
  UInt32 size = sizeof id;
  const CFStringRef none = nullptr;
  EXPECT_EQ(AudioObjectGetPropertyData(kSystem, &address, 0, nullptr, &size, &id),
            OSStatus{kAudioHardwareBadPropertySizeError});
  EXPECT_EQ(AudioObjectGetPropertyData(kSystem, &address, 4, &none, &size, &id),
            OSStatus{kAudioHardwareBadPropertySizeError});
  EXPECT_EQ(AudioObjectGetPropertyData(kSystem, &address, 8, &none, &size, &id),
            OSStatus{kAudioHardwareIllegalOperationError});
  EXPECT_EQ(TranslateInPlace('duid', nullptr, id), OSStatus{kAudioHardwareIllegalOperationError});
  AudioValueTranslation empty{};
  size = sizeof empty;
  EXPECT_EQ(AudioHardwareGetProperty('duid', &size, &empty),
            OSStatus{kAudioHardwareBadPropertySizeError});
  size = 8;
  EXPECT_EQ(AudioHardwareGetProperty('duid', &size, &empty),
            OSStatus{kAudioHardwareBadPropertySizeError});
}

TEST_F(SystemObject, FlagsOfTheProcess) {
  EXPECT_EQ(Number(kSystem, 'user'), 1U);
  EXPECT_EQ(Set(kSystem, 'user', 0), OSStatus{kAudioHardwareIllegalOperationError});
  EXPECT_EQ(Number(kSystem, 'pmut'), 1U);
  EXPECT_EQ(Set(kSystem, 'pmut', 0), 0);
  EXPECT_EQ(Number(kSystem, 'pmut'), 0U);
  EXPECT_EQ(Set(kSystem, 'pmut', 17), 0);
  EXPECT_EQ(Number(kSystem, 'pmut'), 1U);
  EXPECT_EQ(Number(kSystem, 'stmo'), 0U);
  EXPECT_EQ(Set(kSystem, 'stmo', 1), 0);
  EXPECT_EQ(Number(kSystem, 'stmo'), 1U);
  EXPECT_EQ(Set(kSystem, 'stmo', 0), 0);
}

TEST_F(SystemObject, HasIsSettableSizeGetAndSetAgree) {
  struct {
    UInt32 mSelector;
    UInt32 mSize;
    bool mIsSettable;
  } const properties[] = {
      {'bcls', 4, false},  {'clas', 4, false},  {'stdv', 4, false}, {'lnam', 8, false},
      {'ownd', 8, false},  {'dev#', 4, false},  {'plg#', 4, false}, {'dIn ', 4, true},
      {'dOut', 4, true},   {'sOut', 4, true},   {'uidd', 4, false}, {'bidp', 4, false},
      {'duid', 32, false}, {'pibi', 32, false}, {'mast', 4, false}, {'inot', 4, false},
      {'user', 4, false},  {'pmut', 4, true},   {'stmo', 4, true},  {'rnlp', 8, true},
  };
  for (const auto& property : properties) {
    UInt32 size = 0;
    Boolean writable = 7;
    EXPECT_EQ(AudioHardwareGetPropertyInfo(property.mSelector, &size, &writable), 0);
    EXPECT_EQ(size, property.mSize) << property.mSelector;
    EXPECT_EQ(writable, property.mIsSettable) << property.mSelector;
    char data[64] = {};
    const OSStatus status = AudioHardwareSetProperty(property.mSelector, 3, data);
    EXPECT_EQ(status, property.mIsSettable ? OSStatus{kAudioHardwareBadPropertySizeError}
                                           : OSStatus{kAudioHardwareIllegalOperationError});
    const bool isList = property.mSelector == 'ownd' || property.mSelector == 'dev#' ||
                        property.mSelector == 'plg#';
    const bool takesText = property.mSelector == 'uidd' || property.mSelector == 'bidp';
    if (!isList && !takesText) {
      size = 3;
      EXPECT_EQ(AudioHardwareGetProperty(property.mSelector, &size, data),
                OSStatus{kAudioHardwareBadPropertySizeError});
    }
  }
  UInt32 size = 0;
  Boolean writable = false;
  const OSStatus unknown = kAudioHardwareUnknownPropertyError;
  EXPECT_EQ(AudioHardwareGetPropertyInfo('none', &size, &writable), unknown);
  EXPECT_EQ(AudioHardwareGetProperty('none', &size, &writable), unknown);
  EXPECT_EQ(AudioHardwareSetProperty('none', 4, &size), unknown);
  const AudioObjectPropertyAddress address = Address('none');
  EXPECT_FALSE(AudioObjectHasProperty(kSystem, &address));
  EXPECT_EQ(AudioObjectIsPropertySettable(kSystem, &address, &writable), unknown);
  EXPECT_EQ(AudioObjectGetPropertyDataSize(kSystem, &address, 0, nullptr, &size), unknown);
}

TEST_F(SystemObject, OnlyNoRunLoopCanBeSet) {
  CFRunLoopRef runLoop = nullptr;
  EXPECT_EQ(AudioHardwareSetProperty('rnlp', sizeof runLoop, &runLoop), 0);
  runLoop = reinterpret_cast<CFRunLoopRef>(this);
  EXPECT_EQ(AudioHardwareSetProperty('rnlp', sizeof runLoop, &runLoop),
            OSStatus{kAudioHardwareUnsupportedOperationError});
}

TEST_F(SystemObject, HasAName) {
  CFStringRef name = nullptr;
  UInt32 size = sizeof name;
  ASSERT_EQ(AudioHardwareGetProperty('lnam', &size, &name), 0);
  EXPECT_TRUE(CFEqual(name, CFSTR("Audio System")));
  CFRelease(name);
  testing::internal::CaptureStdout();
  AudioObjectShow(kSystem);
  fflush(stdout);
  EXPECT_THAT(testing::internal::GetCapturedStdout(), testing::HasSubstr("'asys'"));
}

}  // namespace
