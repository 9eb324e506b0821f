#include "PreferredChannelsTest.h"

namespace tembra::test {
namespace {

// A device of whatever streams a test wants.
class BareDevice : public PreferredChannels {
 protected:
  BareDevice() : mBare(&mDeviceOfItsOwn) {}
  SimulatedDevice mDeviceOfItsOwn;
  HP_PreferredChannels mBare;
};

TEST_F(PreferredChannels, ImplementsThreeAddressesInOrder) {
  Make();
  ASSERT_EQ(mChannels->GetNumberAddressesImplemented(), 3u);
  const UInt32 selectors[] = {'dch2', 'srnd', 'srdd'};
  for (UInt32 i = 0; i < 3; ++i) {
    AudioObjectPropertyAddress address = {};
    mChannels->GetImplementedAddressByIndex(i, address);
    EXPECT_EQ(address.mSelector, selectors[i]);
    EXPECT_EQ(address.mScope, UInt32{'****'});
    EXPECT_EQ(address.mElement, 0xFFFFFFFF);
  }
  AudioObjectPropertyAddress address = At('same', 'same', 3);
  mChannels->GetImplementedAddressByIndex(3, address);
  EXPECT_EQ(address.mSelector, UInt32{'same'});
}

TEST_F(PreferredChannels, AreActiveWhereThereAreStreams) {
  Make();
  for (const UInt32 selector : {'dch2', 'srnd', 'srdd'}) {
    EXPECT_TRUE(mChannels->IsActive(At(selector, 'inpt')));
    EXPECT_TRUE(mChannels->IsActive(At(selector, 'outp')));
    EXPECT_TRUE(mChannels->IsActive(At(selector, 'outp', 5))) << "the element plays no part";
    EXPECT_FALSE(mChannels->IsActive(At(selector, 'glob')));
    EXPECT_FALSE(mChannels->IsActive(At(selector, 'ptru')));
    EXPECT_FALSE(mChannels->IsActive(At(selector, '****')));
  }
  EXPECT_FALSE(mChannels->IsActive(At('volm', 'outp')));
}

TEST_F(BareDevice, OneOutputChannelIsNoStereo) {
  mDeviceOfItsOwn.AddSimulatedStream(false, FloatFormat(1));
  EXPECT_FALSE(mBare.IsActive(At('dch2', 'outp')));
  EXPECT_TRUE(mBare.IsActive(At('srnd', 'outp')));
  EXPECT_TRUE(mBare.IsActive(At('srdd', 'outp')));
  EXPECT_FALSE(mBare.IsActive(At('dch2', 'inpt')));
  EXPECT_FALSE(mBare.IsActive(At('srnd', 'inpt')));
  EXPECT_FALSE(mBare.IsActive(At('srdd', 'inpt')));
}

TEST_F(BareDevice, ChannelsOfAllStreamsCount) {
  mDeviceOfItsOwn.AddSimulatedStream(true, FloatFormat(1));
  EXPECT_FALSE(mBare.IsActive(At('dch2', 'inpt')));
  mDeviceOfItsOwn.AddSimulatedStream(true, FloatFormat(1));
  EXPECT_TRUE(mBare.IsActive(At('dch2', 'inpt')));
  EXPECT_EQ(mBare.GetPropertyDataSize(At('srnd', 'inpt'), 0, nullptr), 52u);
}

TEST_F(PreferredChannels, AreSettableButForTheDefaultLayout) {
  Make();
  EXPECT_TRUE(mChannels->IsPropertySettable(At('dch2', 'outp')));
  EXPECT_TRUE(mChannels->IsPropertySettable(At('srnd', 'outp')));
  EXPECT_FALSE(mChannels->IsPropertySettable(At('srdd', 'outp')));
  EXPECT_FALSE(mChannels->IsPropertySettable(At('volm', 'outp')));
}

TEST_F(PreferredChannels, HaveTheSizeOfTheirDirection) {
  Make();
  EXPECT_EQ(mChannels->GetPropertyDataSize(At('dch2', 'inpt'), 0, nullptr), 8u);
  EXPECT_EQ(mChannels->GetPropertyDataSize(At('dch2', 'outp'), 0, nullptr), 8u);
  for (const UInt32 selector : {'srnd', 'srdd'}) {
    EXPECT_EQ(mChannels->GetPropertyDataSize(At(selector, 'inpt'), 0, nullptr), 72u);
    EXPECT_EQ(mChannels->GetPropertyDataSize(At(selector, 'outp'), 0, nullptr), 52u);
    EXPECT_EQ(mChannels->GetPropertyDataSize(At(selector, 'glob'), 0, nullptr), 52u)
        << "what is not input is output";
  }
  EXPECT_EQ(mChannels->GetPropertyDataSize(At('volm', 'outp'), 0, nullptr), 0u);
}

TEST_F(PreferredChannels, AWrongSizeIsRefusedAndChangesNothing) {
  Make();
  UInt8 data[256] = {};
  for (const UInt32 selector : {'dch2', 'srnd', 'srdd'}) {
    for (const UInt32 scope : {'inpt', 'outp'}) {
      const AudioObjectPropertyAddress address = At(selector, scope);
      const UInt32 right = mChannels->GetPropertyDataSize(address, 0, nullptr);
      for (UInt32 size = 0; size < 100; ++size) {
        if (size == right) continue;
        UInt32 ioSize = size;
        EXPECT_EQ(StatusOf([&] { mChannels->GetPropertyData(address, 0, nullptr, ioSize, data); }),
                  '!siz');
        EXPECT_EQ(
            StatusOf([&] { mChannels->SetPropertyData(address, 0, nullptr, size, data, nullptr); }),
            '!siz');
      }
    }
  }
  EXPECT_THAT(mPreferences.TakeCalls(), IsEmpty());
  EXPECT_THAT(TakeTold(), IsEmpty());
}

TEST_F(PreferredChannels, AnotherSelectorIsNeitherReadNorWritten) {
  Make();
  UInt32 size = 0;
  mChannels->GetPropertyData(At('volm', 'outp'), 0, nullptr, size, nullptr);
  mChannels->SetPropertyData(At('volm', 'outp'), 0, nullptr, 0, nullptr, nullptr);
  UInt8 layout[52] = {};
  mChannels->SetPropertyData(At('srdd', 'outp'), 0, nullptr, sizeof(layout), layout, nullptr);
  EXPECT_THAT(mPreferences.TakeCalls(), IsEmpty());
  EXPECT_THAT(TakeTold(), IsEmpty());
  EXPECT_THAT(mNotifications.mPosts, IsEmpty());
}

// Building.

TEST_F(PreferredChannels, ReadFourValuesAndObserveTheirNames) {
  mChannels = std::make_unique<HP_PreferredChannels>(&mDevice);
  EXPECT_THAT(mPreferences.TakeCalls(), IsEmpty());
  mChannels->Initialize();
  EXPECT_THAT(mPreferences.TakeCalls(),
              ElementsAre("copy " + kInputStereo + " in any user, this host",
                          "copy " + kOutputStereo + " in any user, this host",
                          "copy " + kInputLayout + " in any user, this host",
                          "copy " + kOutputLayout + " in any user, this host"));
  ASSERT_EQ(mNotifications.mObservations.size(), 4u);
  const std::string* const names[] = {&kInputStereo, &kOutputStereo, &kInputLayout, &kOutputLayout};
  for (size_t i = 0; i < 4; ++i) {
    const FakeNotifications::Observation& observation = mNotifications.mObservations[i];
    EXPECT_EQ(observation.mName, *names[i]);
    EXPECT_EQ(observation.mBehavior, 2);
    EXPECT_EQ(observation.mCallBack, &HP_PreferredChannels::ChangeNotification);
    EXPECT_GE(reinterpret_cast<uintptr_t>(observation.mObserver), 256u) << "a token";
    EXPECT_EQ(observation.mObserver, mNotifications.mObservations[0].mObserver);
  }
}

TEST_F(PreferredChannels, TeardownRemovesTheObserversAndItsNotificationsAreNothing) {
  Make();
  const std::vector<FakeNotifications::Observation> late = mNotifications.mObservations;
  mChannels->Teardown();
  EXPECT_THAT(mNotifications.mObservations, IsEmpty());
  // One that was already on its way.
  mPreferences.Put(kOutputStereo, CreatePair(2, 1));
  mNotifications.mObservations = late;
  EXPECT_EQ(mNotifications.Deliver(kOutputStereo), 1);
  EXPECT_THAT(TakeTold(), IsEmpty());
  mNotifications.Reset();
}

TEST_F(PreferredChannels, ANotificationForAnObjectThatIsGoneIsNothing) {
  Make();
  const std::vector<FakeNotifications::Observation> late = mNotifications.mObservations;
  mChannels->Teardown();
  mChannels.reset();
  mNotifications.mObservations = late;
  mPreferences.Put(kOutputStereo, CreatePair(2, 1));
  EXPECT_EQ(mNotifications.Deliver(kOutputStereo), 1);
  EXPECT_THAT(TakeTold(), IsEmpty());
  EXPECT_FALSE(CACFPreferences::ArePrefsOutOfDate(false, true)) << "it stopped before that";
  mNotifications.Reset();
}

TEST_F(PreferredChannels, TeardownGivesTheValuesBack) {
  CACFArray array(CreatePair(2, 1), true);
  CFRetain(array.GetCFArray());
  mPreferences.Put(kOutputStereo, array.GetCFArray());
  const CFIndex count = CFGetRetainCount(array.GetCFArray());
  Make();
  EXPECT_EQ(CFGetRetainCount(array.GetCFArray()), count + 1);
  mChannels->Teardown();
  EXPECT_EQ(CFGetRetainCount(array.GetCFArray()), count);
}

TEST_F(PreferredChannels, TwoObjectsHaveTwoTokens) {
  Make();
  HP_PreferredChannels second(&mDevice);
  second.Initialize();
  const std::vector<const void*> observers = mNotifications.GetObservers(kInputStereo);
  ASSERT_EQ(observers.size(), 2u);
  EXPECT_NE(observers[0], observers[1]);
  second.Teardown();
  EXPECT_EQ(mNotifications.GetObservers(kInputStereo).size(), 1u);
}

TEST_F(PreferredChannels, ATeardownWithoutABuildingDoesNothing) {
  HP_PreferredChannels bare(&mDevice);
  bare.Teardown();
  EXPECT_THAT(mPreferences.TakeCalls(), IsEmpty());
}

// Stereo.

TEST_F(PreferredChannels, WithoutAStoredValueStereoIsOneAndTwo) {
  Make();
  EXPECT_THAT(GetOutputChannels(), ElementsAre(1u, 2u));
  EXPECT_THAT(GetPair('inpt'), ElementsAre(1u, 2u));
  EXPECT_THAT(GetPair('outp'), ElementsAre(1u, 2u));
}

TEST_F(PreferredChannels, StoredPairsAreReadForEachDirection) {
  mPreferences.Put(kInputStereo, CreatePair(3, 2));
  mPreferences.Put(kOutputStereo, CreatePair(2, 9));
  Make();
  EXPECT_THAT(GetOutputChannels(), ElementsAre(2u, 9u)) << "read at building";
  EXPECT_THAT(GetPair('outp'), ElementsAre(2u, 9u)) << "stored values are not bounded";
  EXPECT_THAT(GetPair('inpt'), ElementsAre(3u, 2u));
  EXPECT_THAT(GetOutputChannels(), ElementsAre(2u, 9u)) << "the input pair left it alone";
}

TEST_F(PreferredChannels, TheOutputPairIsNotedWhenItIsRead) {
  Make();
  mPreferences.PutElsewhere(kOutputStereo, CreatePair(2, 1));
  mNotifications.Deliver(kOutputStereo);
  EXPECT_THAT(GetOutputChannels(), ElementsAre(1u, 2u)) << "not by the notification";
  EXPECT_THAT(GetPair('inpt'), ElementsAre(1u, 2u));
  EXPECT_THAT(GetOutputChannels(), ElementsAre(1u, 2u)) << "nor by a read of the input";
  EXPECT_THAT(GetPair('outp'), ElementsAre(2u, 1u));
  EXPECT_THAT(GetOutputChannels(), ElementsAre(2u, 1u));
}

TEST_F(PreferredChannels, AnArrayWithFewerThanTwoNumbersCountsAsAbsent) {
  CACFArray one(false);
  one.AppendUInt32(2);
  mPreferences.Put(kInputStereo, one.GetCFMutableArray());
  CACFArray text(false);
  text.AppendUInt32(2);
  text.AppendString(CFSTR("1"));
  mPreferences.Put(kOutputStereo, text.GetCFMutableArray());
  Make();
  EXPECT_THAT(GetPair('inpt'), ElementsAre(1u, 2u));
  EXPECT_THAT(GetPair('outp'), ElementsAre(1u, 2u));
  EXPECT_THAT(GetOutputChannels(), ElementsAre(1u, 2u));
  // Nothing was there and nothing is.
  CACFArray none(false);
  mPreferences.Put(kOutputStereo, none.GetCFMutableArray());
  mNotifications.Deliver(kOutputStereo);
  EXPECT_THAT(TakeTold(), IsEmpty());
}

TEST_F(PreferredChannels, MoreThanTwoNumbersAreTwo) {
  CACFArray array(CreatePair(2, 1), true);
  const CFMutableArrayRef three = const_cast<CFMutableArrayRef>(array.CopyCFArray());
  CACFArray(three, false).AppendUInt32(7);
  mPreferences.Put(kOutputStereo, three);
  Make();
  EXPECT_THAT(GetPair('outp'), ElementsAre(2u, 1u));
}

TEST_F(PreferredChannels, APreferenceOfTheWrongKindCountsAsAbsent) {
  mPreferences.Put(kOutputStereo, CFRetain(CFSTR("1, 2")));
  mPreferences.Put(kOutputLayout, CreatePair(1, 2));
  Make();
  EXPECT_THAT(GetPair('outp'), ElementsAre(1u, 2u));
  const Layout layout(CopyLayout('srnd', 'outp'));
  EXPECT_EQ(layout->mChannelDescriptions[0].mChannelLabel, 1u);
}

TEST_F(PreferredChannels, ASetPairIsStoredSynchronizedToldAndPosted) {
  Make();
  SetPair('inpt', 3, 1);
  EXPECT_THAT(mPreferences.TakeCalls(),
              ElementsAre("set " + kInputStereo + " in any user, this host",
                          "synchronize any user, this host",
                          "copy " + kInputStereo + " in any user, this host"));
  const CACFArray stored(static_cast<CFArrayRef>(mPreferences.Find(kInputStereo)), false);
  ASSERT_EQ(stored.GetNumberItems(), 2u);
  EXPECT_EQ(
      CFNumberGetType(static_cast<CFNumberRef>(CFArrayGetValueAtIndex(stored.GetCFArray(), 0))),
      kCFNumberSInt32Type);
  EXPECT_THAT(GetPair('inpt'), ElementsAre(3u, 1u));
  EXPECT_THAT(GetPair('outp'), ElementsAre(1u, 2u));
  EXPECT_THAT(TakeTold(), ElementsAre("dch2/inpt/0"));
  EXPECT_THAT(mNotifications.mPosts, ElementsAre(kInputStereo));
  EXPECT_EQ(mPreferences.Find(kOutputStereo), nullptr);
}

TEST_F(PreferredChannels, WhatIsStoredInTheEndIsWhatCounts) {
  Make();
  // Somebody else was quicker by a hair.
  mPreferences.PutElsewhere(kOutputStereo, CreatePair(2, 2));
  SetPair('outp', 2, 1);
  EXPECT_THAT(GetPair('outp'), ElementsAre(2u, 2u));
}

TEST_F(PreferredChannels, ListenersAreToldBeforeOtherProcesses) {
  class Device : public SimulatedDevice {
   public:
    void PropertiesChanged(UInt32, const AudioObjectPropertyAddress*) const override {
      mPostsWhenTold = FakeNotifications::Get().mPosts.size();
      mWasStoredWhenTold = !FakePreferences::Get().mDomains.empty();
    }
    mutable size_t mPostsWhenTold = 99;
    mutable bool mWasStoredWhenTold = false;
  } device;
  device.AddSimulatedStream(false, FloatFormat(2));
  HP_PreferredChannels channels(&device);
  channels.Initialize();
  Forget();
  const UInt32 pair[2] = {2, 1};
  channels.SetPropertyData(At('dch2', 'outp'), 0, nullptr, 8, pair, nullptr);
  EXPECT_EQ(device.mPostsWhenTold, 0u);
  EXPECT_TRUE(device.mWasStoredWhenTold);
  EXPECT_EQ(mNotifications.mPosts.size(), 1u);
  channels.Teardown();
}

TEST_F(PreferredChannels, SetChannelsAreBoundedByOneAndTheNumberOfChannels) {
  Make();
  SetPair('outp', 0, 9);
  EXPECT_THAT(GetPair('outp'), ElementsAre(1u, 2u));
  const CACFArray stored(static_cast<CFArrayRef>(mPreferences.Find(kOutputStereo)), false);
  UInt32 first = 0;
  UInt32 second = 0;
  EXPECT_TRUE(stored.GetUInt32(0, first) && stored.GetUInt32(1, second));
  EXPECT_EQ(first, 1u);
  EXPECT_EQ(second, 2u);
  SetPair('inpt', 0xFFFFFFFF, 3);
  EXPECT_THAT(GetPair('inpt'), ElementsAre(3u, 3u));
}

TEST_F(PreferredChannels, AnyScopeButInputIsOutput) {
  Make();
  SetPair('glob', 2, 1);
  EXPECT_NE(mPreferences.Find(kOutputStereo), nullptr);
  EXPECT_THAT(TakeTold(), ElementsAre("dch2/glob/0"));
  EXPECT_THAT(GetPair('outp'), ElementsAre(2u, 1u));
}

TEST_F(PreferredChannels, DataNeedNotBeAligned) {
  Make();
  alignas(8) UInt8 data[1 + 72] = {};
  const UInt32 pair[2] = {2, 1};
  std::memcpy(data + 1, pair, 8);
  mChannels->SetPropertyData(At('dch2', 'outp'), 0, nullptr, 8, data + 1, nullptr);
  UInt32 size = 8;
  std::memset(data, 0, sizeof(data));
  mChannels->GetPropertyData(At('dch2', 'outp'), 0, nullptr, size, data + 1);
  EXPECT_EQ(std::memcmp(data + 1, pair, 8), 0);
  size = 72;
  mChannels->GetPropertyData(At('srdd', 'inpt'), 0, nullptr, size, data + 1);
  mChannels->SetPropertyData(At('srnd', 'inpt'), 0, nullptr, size, data + 1, nullptr);
  EXPECT_NE(mPreferences.Find(kInputLayout), nullptr);
}

// Clearing.

TEST_F(PreferredChannels, ClearingRemovesFourKeysAndThenSynchronizes) {
  Make();
  mChannels->ClearPrefs();
  EXPECT_THAT(mPreferences.TakeCalls(),
              ElementsAre("remove " + kInputStereo + " in any user, this host",
                          "remove " + kOutputStereo + " in any user, this host",
                          "remove " + kInputLayout + " in any user, this host",
                          "remove " + kOutputLayout + " in any user, this host",
                          "synchronize any user, this host"));
}

}  // namespace
}  // namespace tembra::test
