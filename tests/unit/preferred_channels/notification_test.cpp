#include <atomic>
#include <thread>

#include "PreferredChannelsTest.h"

namespace tembra::test {
namespace {

TEST(NoPreferredChannels, ANotificationBeforeThereWasAnyObjectIsNothing) {
  // Runs alone in its process: no object was ever made.
  FakePreferences::Get().Reset();
  HP_PreferredChannels::ChangeNotification(nullptr, reinterpret_cast<void*>(256), CFSTR("any"),
                                           nullptr, nullptr);
  EXPECT_FALSE(CACFPreferences::ArePrefsOutOfDate(false, true));
  EXPECT_THAT(FakePreferences::Get().TakeCalls(), IsEmpty());
}

TEST_F(PreferredChannels, AChangeElsewhereIsReadAfreshAndTold) {
  Make();
  mPreferences.PutElsewhere(kOutputStereo, CreatePair(2, 1));
  EXPECT_THAT(GetPair('outp'), ElementsAre(1u, 2u));
  EXPECT_EQ(mNotifications.Deliver(kOutputStereo), 1);
  EXPECT_THAT(mPreferences.TakeCalls(),
              ElementsAre("synchronize any user, this host",
                          "copy " + kOutputStereo + " in any user, this host"));
  EXPECT_THAT(TakeTold(), ElementsAre("dch2/outp/0"));
  EXPECT_THAT(GetPair('outp'), ElementsAre(2u, 1u));
  EXPECT_THAT(mNotifications.mPosts, IsEmpty()) << "what was heard is not said again";
}

TEST_F(PreferredChannels, EachNameIsOfItsOwnPropertyAndScope) {
  Make();
  mPreferences.PutElsewhere(kInputStereo, CreatePair(3, 1));
  mPreferences.PutElsewhere(kOutputStereo, CreatePair(2, 1));
  mPreferences.PutElsewhere(kInputLayout, CACFDictionary(false).GetCFMutableDictionary());
  mPreferences.PutElsewhere(kOutputLayout, CACFDictionary(false).GetCFMutableDictionary());
  mNotifications.Deliver(kOutputLayout);
  EXPECT_THAT(TakeTold(), ElementsAre("srnd/outp/0"));
  mNotifications.Deliver(kInputLayout);
  EXPECT_THAT(TakeTold(), ElementsAre("srnd/inpt/0"));
  mNotifications.Deliver(kInputStereo);
  EXPECT_THAT(TakeTold(), ElementsAre("dch2/inpt/0"));
  mNotifications.Deliver(kOutputStereo);
  EXPECT_THAT(TakeTold(), ElementsAre("dch2/outp/0"));
}

TEST_F(PreferredChannels, AValueUnchangedSinceTheLastReadTellsNobody) {
  mPreferences.Put(kOutputStereo, CreatePair(2, 1));
  Make();
  mPreferences.PutElsewhere(kOutputStereo, CreatePair(2, 1));
  mNotifications.Deliver(kOutputStereo);
  EXPECT_THAT(TakeTold(), IsEmpty());
  EXPECT_THAT(GetPair('outp'), ElementsAre(2u, 1u));
}

TEST_F(PreferredChannels, OnesOwnNotificationTellsNobodyASecondTime) {
  Make();
  SetPair('outp', 2, 1);
  EXPECT_THAT(TakeTold(), ElementsAre("dch2/outp/0"));
  for (const std::string& name : mNotifications.mPosts) mNotifications.Deliver(name);
  EXPECT_THAT(TakeTold(), IsEmpty());
}

TEST_F(PreferredChannels, ARemovedValueIsToldOnce) {
  mPreferences.Put(kOutputStereo, CreatePair(2, 1));
  Make();
  mPreferences.PutElsewhere(kOutputStereo, nullptr);
  mNotifications.Deliver(kOutputStereo);
  EXPECT_THAT(TakeTold(), ElementsAre("dch2/outp/0"));
  EXPECT_THAT(GetPair('outp'), ElementsAre(1u, 2u));
  mNotifications.Deliver(kOutputStereo);
  EXPECT_THAT(TakeTold(), IsEmpty());
}

TEST_F(PreferredChannels, AChangedLayoutIsTold) {
  CACFDictionary first(false);
  first.AddUInt32(CFSTR("channel layout tag"), (101u << 16) | 2);
  mPreferences.Put(kOutputLayout, first.GetCFMutableDictionary());
  Make();
  CACFDictionary second(false);
  second.AddUInt32(CFSTR("channel layout tag"), (102u << 16) | 2);
  mPreferences.PutElsewhere(kOutputLayout, second.GetCFMutableDictionary());
  mNotifications.Deliver(kOutputLayout);
  EXPECT_THAT(TakeTold(), ElementsAre("srnd/outp/0"));
  EXPECT_EQ(Layout(CopyLayout('srnd', 'outp'))->mChannelLayoutTag, (102u << 16) | 2);
}

TEST_F(PreferredChannels, AnotherNameMarksThePreferencesAndNothingElse) {
  Make();
  const void* token = mNotifications.mObservations[0].mObserver;
  HP_PreferredChannels::ChangeNotification(nullptr, const_cast<void*>(token), CFSTR("another name"),
                                           nullptr, nullptr);
  EXPECT_TRUE(CACFPreferences::ArePrefsOutOfDate(false, true));
  EXPECT_THAT(TakeTold(), IsEmpty());
  EXPECT_THAT(mPreferences.TakeCalls(), IsEmpty());
  CACFPreferences::MarkPrefsClean(false, true);
}

TEST_F(PreferredChannels, TheCacheHoldsOneReference) {
  Make();
  CACFArray array(CreatePair(2, 1), true);
  CFRetain(array.GetCFArray());
  mPreferences.Put(kOutputStereo, array.GetCFArray());
  const CFIndex count = CFGetRetainCount(array.GetCFArray());
  mNotifications.Deliver(kOutputStereo);
  EXPECT_EQ(CFGetRetainCount(array.GetCFArray()), count + 1);
  mNotifications.Deliver(kOutputStereo);
  EXPECT_EQ(CFGetRetainCount(array.GetCFArray()), count + 1) << "an equal one is given back";
  mPreferences.Put(kOutputStereo, CreatePair(1, 1));
  mNotifications.Deliver(kOutputStereo);
  EXPECT_EQ(CFGetRetainCount(array.GetCFArray()), count - 1) << "a replaced one is given back";
}

TEST_F(PreferredChannels, AnObjectIsNotTakenFromUnderANotification) {
  // A listener is told on the notification's thread; meanwhile another thread takes the object
  // down. It has all the time it could need.
  class Device : public SimulatedDevice {
   public:
    void PropertiesChanged(UInt32, const AudioObjectPropertyAddress*) const override {
      mIsInside = true;
      mIsInside.notify_all();
      mTakerRuns.wait(false);
      for (int i = 0; i < 20000 && !mIsGone; ++i) std::this_thread::yield();
      mWasGone = mIsGone.load();
    }
    mutable std::atomic<bool> mIsInside{false};
    std::atomic<bool> mTakerRuns{false};
    std::atomic<bool> mIsGone{false};
    mutable std::atomic<bool> mWasGone{false};
  } device;
  device.AddSimulatedStream(false, FloatFormat(2));
  device.mUID = "The Device";
  auto channels = std::make_unique<HP_PreferredChannels>(&device);
  channels->Initialize();
  mPreferences.Put(kOutputStereo, CreatePair(2, 1));
  const void* token = mNotifications.GetObservers(kOutputStereo).back();
  std::thread notification([&] {
    const CACFString name(kOutputStereo.c_str());
    HP_PreferredChannels::ChangeNotification(nullptr, const_cast<void*>(token), name.GetCFString(),
                                             nullptr, nullptr);
  });
  device.mIsInside.wait(false);
  std::thread taker([&] {
    device.mTakerRuns = true;
    device.mTakerRuns.notify_all();
    channels->Teardown();
    channels.reset();
    device.mIsGone = true;
  });
  notification.join();
  taker.join();
  EXPECT_FALSE(device.mWasGone);
  EXPECT_TRUE(device.mIsGone);
}

}  // namespace
}  // namespace tembra::test
