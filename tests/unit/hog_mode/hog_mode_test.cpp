#include "persistence/HP_HogMode.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <limits>
#include <memory>
#include <thread>

#include "support/client/FakeHAL.h"
#include "support/device/SimulatedDevice.h"
#include "support/persistence/FakeNotifications.h"
#include "support/persistence/FakeSettingsStorage.h"

namespace tembra::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const std::string kPrefix = "com.apple.audio.CoreAudio.HogMode.Owner-";
const std::string kKey = kPrefix + "UID";

// No process has it: it is beyond what the system hands out.
constexpr pid_t kEnded = std::numeric_limits<pid_t>::max();
// Of another user, unless this is the superuser; and not this process.
constexpr pid_t kOther = 1;

// A device that notes what its hog mode tells it. It is not initialized: nothing else is at work.
class HoggedDevice : public SimulatedDevice {
 public:
  explicit HoggedDevice(const char* inUID = "UID") : SimulatedDevice(false, false) { mUID = inUID; }
  void HogModeStateChanged() override {
    mEvents.emplace_back("state changed");
    if (mOnStateChanged) mOnStateChanged();
  }
  std::function<void()> mOnStateChanged;
};

class HogMode : public testing::Test {
 protected:
  HogMode() {
    FakeHAL::Get().Reset();
    Settings().Reset();
    Notifications().Reset();
    mHogMode = std::make_unique<HP_HogMode>(&mDevice);
  }
  ~HogMode() override {
    mHogMode.reset();
    EXPECT_THAT(Notifications().mObservations, IsEmpty());
  }

  static FakeSettingsStorage& Settings() { return FakeSettingsStorage::Get(); }
  static FakeNotifications& Notifications() { return FakeNotifications::Get(); }
  static void SetMaster(bool inIsMaster) {
    FakeHAL::Get().mSystemValues['mast'] = inIsMaster ? 1 : 0;
  }
  // What the file says of the device; -1 for nothing.
  static pid_t Stored() {
    const auto found = Settings().mFile.find(kKey);
    return found != Settings().mFile.end() ? found->second : -1;
  }
  static bool KeyIsThere() { return Settings().mFile.count(kKey) != 0; }
  static std::vector<std::string> TakePosts() { return std::exchange(Notifications().mPosts, {}); }
  void ExpectNothingHappened() {
    EXPECT_THAT(mDevice.TakeEvents(), IsEmpty());
    EXPECT_THAT(TakePosts(), IsEmpty());
    EXPECT_THAT(mDevice.mNotifications, IsEmpty());
  }
  void ExpectDeviceWasTold() {
    EXPECT_THAT(mDevice.TakeEvents(), ElementsAre("state changed", "properties"));
    ASSERT_EQ(mDevice.mNotifications.size(), 1u);
    EXPECT_EQ(mDevice.mNotifications[0].mSelector, 1869180523u);
    EXPECT_EQ(mDevice.mNotifications[0].mScope, AudioObjectPropertyScope{'glob'});
    EXPECT_EQ(mDevice.mNotifications[0].mElement, 0u);
    mDevice.mNotifications.clear();
  }

  HoggedDevice mDevice;
  std::unique_ptr<HP_HogMode> mHogMode;
};

// Made and ended.

TEST(HogModeBefore, ANotificationBeforeThereIsAnyObjectIsIgnored) {
  HP_HogMode::ChangeNotification(nullptr, reinterpret_cast<void*>(uintptr_t{256}), CFSTR("name"),
                                 nullptr, nullptr);
}

TEST_F(HogMode, TheFileIsTheOneThatAllProcessesShare) {
  EXPECT_EQ(Settings().mPath, "/tmp/com.apple.audio.hogmode.plist");
  EXPECT_EQ(Settings().mMode, 438);
  EXPECT_EQ(Settings().mFormat, 100);
  EXPECT_FALSE(Settings().mIsSingleProcess);
  EXPECT_FALSE(Settings().mIsReadOnly);
}

TEST_F(HogMode, MakingOneReadsNothingAndTellsNobody) {
  EXPECT_THAT(Settings().TakeCalls(), IsEmpty());
  ExpectNothingHappened();
}

TEST_F(HogMode, ItObservesTheNameOfItsKeyByItsToken) {
  ASSERT_EQ(Notifications().mObservations.size(), 1u);
  const FakeNotifications::Observation& observation = Notifications().mObservations[0];
  EXPECT_EQ(observation.mName, kKey);
  EXPECT_GE(reinterpret_cast<uintptr_t>(observation.mObserver), 256u);
  EXPECT_EQ(observation.mCallBack, &HP_HogMode::ChangeNotification);
  EXPECT_EQ(observation.mBehavior, 0);
}

TEST_F(HogMode, EachDeviceHasAKeyAndATokenOfItsOwn) {
  HoggedDevice device("Überlänge");
  HP_HogMode other(&device);
  other.Take();
  EXPECT_EQ(Settings().mFile.count(kPrefix + "Überlänge"), 1u);
  EXPECT_TRUE(mHogMode->IsFree());
  ASSERT_EQ(Notifications().mObservations.size(), 2u);
  EXPECT_NE(Notifications().mObservations[0].mObserver, Notifications().mObservations[1].mObserver);
}

TEST_F(HogMode, ADeviceWithoutUIDHasTheBareKey) {
  HoggedDevice device(nullptr);
  HP_HogMode other(&device);
  other.Take();
  EXPECT_EQ(Settings().mFile.count(kPrefix), 1u);
}

// Queries.

TEST_F(HogMode, ANewDeviceIsFree) {
  EXPECT_EQ(mHogMode->GetOwner(), -1);
  EXPECT_TRUE(mHogMode->IsFree());
  EXPECT_FALSE(mHogMode->CurrentProcessIsOwner());
  EXPECT_TRUE(mHogMode->CurrentProcessIsOwnerOrIsFree());
  ExpectNothingHappened();
}

TEST_F(HogMode, TheFileIsReadOnceOnly) {
  EXPECT_TRUE(mHogMode->IsFree());
  EXPECT_THAT(Settings().TakeCalls(), ElementsAre("read " + kKey));
  Settings().PutElsewhere(kKey, kOther);
  EXPECT_TRUE(mHogMode->IsFree());
  EXPECT_EQ(mHogMode->GetOwner(), -1);
  EXPECT_TRUE(mHogMode->CurrentProcessIsOwnerOrIsFree());
  EXPECT_FALSE(mHogMode->CurrentProcessIsOwner());
  EXPECT_THAT(Settings().TakeCalls(), IsEmpty());
}

TEST_F(HogMode, AnotherProcessesClaimHolds) {
  Settings().PutElsewhere(kKey, kOther);
  EXPECT_EQ(mHogMode->GetOwner(), kOther);
  EXPECT_FALSE(mHogMode->IsFree());
  EXPECT_FALSE(mHogMode->CurrentProcessIsOwner());
  EXPECT_FALSE(mHogMode->CurrentProcessIsOwnerOrIsFree());
  EXPECT_EQ(Stored(), kOther);
  ExpectNothingHappened();
}

TEST_F(HogMode, TheClaimOfThisProcessIsItsOwn) {
  Settings().PutElsewhere(kKey, getpid());
  EXPECT_TRUE(mHogMode->CurrentProcessIsOwner());
  EXPECT_TRUE(mHogMode->CurrentProcessIsOwnerOrIsFree());
  EXPECT_FALSE(mHogMode->IsFree());
}

TEST_F(HogMode, TheClaimOfAnEndedProcessReadsAsFreeAndIsCleared) {
  Settings().PutElsewhere(kKey, kEnded);
  EXPECT_TRUE(mHogMode->IsFree());
  EXPECT_FALSE(KeyIsThere());
  EXPECT_THAT(TakePosts(), ElementsAre(kKey));
  EXPECT_THAT(mDevice.TakeEvents(), IsEmpty());
}

TEST_F(HogMode, AStaleClaimIsClearedWithoutANotificationIfNoneIsWanted) {
  Settings().PutElsewhere(kKey, kEnded);
  EXPECT_EQ(mHogMode->GetOwnerFromPreference(false), -1);
  EXPECT_FALSE(KeyIsThere());
  EXPECT_THAT(TakePosts(), IsEmpty());
}

TEST_F(HogMode, ANumberThatIsNoProcessReadsAsFreeAndIsRemoved) {
  for (const SInt32 value : {0, -2, -3, std::numeric_limits<SInt32>::min()}) {
    Settings().PutElsewhere(kKey, value);
    EXPECT_EQ(mHogMode->GetOwnerFromPreference(true), -1) << value;
    EXPECT_FALSE(KeyIsThere()) << value;
    EXPECT_THAT(TakePosts(), ElementsAre(kKey)) << value;
  }
}

TEST_F(HogMode, AStoredMinusOneIsFreeAndStays) {
  Settings().PutElsewhere(kKey, -1);
  EXPECT_TRUE(mHogMode->IsFree());
  EXPECT_TRUE(KeyIsThere());
  EXPECT_THAT(TakePosts(), IsEmpty());
}

// Taken and released.

// Notes the order in which a change reaches the cache, the file, the device and the others.
class NotingHogMode : public HP_HogMode {
 public:
  NotingHogMode(HoggedDevice* inDevice) : HP_HogMode(inDevice), mDevice(inDevice) {}
  void SetOwnerInPreference(pid_t inOwner) const override {
    mDevice->mEvents.push_back("cache " + std::to_string(GetOwner()));
    HP_HogMode::SetOwnerInPreference(inOwner);
    mDevice->mEvents.push_back("file " + std::to_string(inOwner));
  }
  void SendHogModeChangedNotification() const override {
    mDevice->mEvents.emplace_back("notification");
  }

 private:
  HoggedDevice* mDevice;
};

TEST_F(HogMode, AClaimReachesTheCacheTheFileTheDeviceAndThenTheOthers) {
  NotingHogMode hogMode(&mDevice);
  const std::string self = std::to_string(getpid());
  hogMode.Take();
  EXPECT_THAT(mDevice.TakeEvents(), ElementsAre("cache " + self, "file " + self, "state changed",
                                                "properties", "notification"));
  hogMode.Release();
  EXPECT_THAT(mDevice.TakeEvents(),
              ElementsAre("cache -1", "file -1", "state changed", "properties", "notification"));
}

// Between the owner in memory and the one in the file, another thread is told of an older change.
class InterruptedHogMode : public HP_HogMode {
 public:
  using HP_HogMode::HP_HogMode;
  ~InterruptedHogMode() override { Join(); }
  void SetOwnerInPreference(pid_t inOwner) const override {
    if (!mTold.joinable()) {
      void* observer = const_cast<void*>(FakeNotifications::Get().GetObservers(kKey).back());
      mTold = std::thread([this, observer] {
        mHasBegun = true;
        ChangeNotification(nullptr, observer, CFSTR("name"), nullptr, nullptr);
      });
      // The other thread has every chance to come between.
      while (!mHasBegun) std::this_thread::yield();
      for (int i = 0; i < 10000; ++i) std::this_thread::yield();
    }
    HP_HogMode::SetOwnerInPreference(inOwner);
  }
  void Join() {
    if (mTold.joinable()) mTold.join();
    mHasBegun = false;
  }

 private:
  mutable std::thread mTold;
  mutable std::atomic<bool> mHasBegun{false};
};

TEST_F(HogMode, AClaimIsNotUndoneByANotificationThatComesBetweenItsSteps) {
  InterruptedHogMode hogMode(&mDevice);
  EXPECT_TRUE(hogMode.IsFree());
  hogMode.Take();
  hogMode.Join();
  EXPECT_EQ(hogMode.GetOwner(), getpid());
  EXPECT_EQ(Stored(), getpid());
  hogMode.Release();
  hogMode.Join();
  EXPECT_EQ(hogMode.GetOwner(), -1);
  EXPECT_FALSE(KeyIsThere());
}

TEST_F(HogMode, TakingAFreeDeviceMakesThisProcessItsOwner) {
  mHogMode->Take();
  EXPECT_EQ(mHogMode->GetOwner(), getpid());
  EXPECT_EQ(Stored(), getpid());
  ExpectDeviceWasTold();
  EXPECT_THAT(TakePosts(), ElementsAre(kKey));
}

TEST_F(HogMode, TakingADeviceThatThisProcessHasChangesNothing) {
  mHogMode->Take();
  mDevice.TakeEvents();
  mDevice.mNotifications.clear();
  TakePosts();
  Settings().TakeCalls();
  mHogMode->Take();
  EXPECT_EQ(mHogMode->GetOwner(), getpid());
  EXPECT_THAT(Settings().TakeCalls(), IsEmpty());
  ExpectNothingHappened();
}

TEST_F(HogMode, TakingADeviceThatAnotherHasChangesNothing) {
  Settings().PutElsewhere(kKey, kOther);
  mHogMode->Take();
  EXPECT_EQ(mHogMode->GetOwner(), kOther);
  EXPECT_EQ(Stored(), kOther);
  ExpectNothingHappened();
}

TEST_F(HogMode, TakingADeviceOfAnEndedProcessTakesIt) {
  Settings().PutElsewhere(kKey, kEnded);
  mHogMode->Take();
  EXPECT_EQ(Stored(), getpid());
  // Of the clearing, then of the claim.
  EXPECT_THAT(TakePosts(), ElementsAre(kKey, kKey));
}

TEST_F(HogMode, ReleasingRemovesTheKey) {
  mHogMode->Take();
  mDevice.TakeEvents();
  mDevice.mNotifications.clear();
  TakePosts();
  mHogMode->Release();
  EXPECT_TRUE(mHogMode->IsFree());
  EXPECT_FALSE(KeyIsThere());
  ExpectDeviceWasTold();
  EXPECT_THAT(TakePosts(), ElementsAre(kKey));
}

TEST_F(HogMode, ReleasingWhatAnotherHasChangesNothing) {
  Settings().PutElsewhere(kKey, kOther);
  mHogMode->Release();
  EXPECT_EQ(Stored(), kOther);
  ExpectNothingHappened();
}

TEST_F(HogMode, ReleasingWhatIsFreeChangesNothing) {
  mHogMode->Release();
  EXPECT_THAT(Settings().TakeCalls(), ElementsAre("read " + kKey));
  ExpectNothingHappened();
}

TEST_F(HogMode, OtherDevicesClaimsStay) {
  Settings().PutElsewhere(kPrefix + "elsewhere", kOther);
  mHogMode->Take();
  mHogMode->Release();
  EXPECT_EQ(Settings().mFile.at(kPrefix + "elsewhere"), kOther);
}

// At the start.

TEST_F(HogMode, TheMasterWipesAnyClaim) {
  SetMaster(true);
  for (const pid_t owner : {kOther, getpid()}) {
    Settings().PutElsewhere(kKey, owner);
    mHogMode->Initialize();
    EXPECT_FALSE(KeyIsThere());
    EXPECT_THAT(TakePosts(), ElementsAre(kKey));
    EXPECT_THAT(mDevice.TakeEvents(), IsEmpty());
  }
}

TEST_F(HogMode, AnotherProcessLeavesAClaimThatIsNotItsOwn) {
  SetMaster(false);
  Settings().PutElsewhere(kKey, kOther);
  mHogMode->Initialize();
  EXPECT_EQ(Stored(), kOther);
  EXPECT_THAT(TakePosts(), IsEmpty());
}

TEST_F(HogMode, AHostThatDoesNotTellIsNoMaster) {
  Settings().PutElsewhere(kKey, kOther);
  mHogMode->Initialize();
  EXPECT_EQ(Stored(), kOther);
}

TEST_F(HogMode, AnyProcessWipesAClaimThatBearsItsOwnNumber) {
  SetMaster(false);
  Settings().PutElsewhere(kKey, getpid());
  mHogMode->Initialize();
  EXPECT_FALSE(KeyIsThere());
  EXPECT_THAT(TakePosts(), ElementsAre(kKey));
}

TEST_F(HogMode, NothingIsWrittenWhereNothingIsClaimed) {
  SetMaster(true);
  mHogMode->Initialize();
  EXPECT_THAT(Settings().TakeCalls(), ElementsAre("read " + kKey));
  EXPECT_THAT(TakePosts(), IsEmpty());
}

TEST_F(HogMode, AStaleClaimIsClearedAtTheStartWithOneNotification) {
  for (const bool isMaster : {true, false}) {
    SetMaster(isMaster);
    Settings().PutElsewhere(kKey, kEnded);
    mHogMode->Initialize();
    EXPECT_FALSE(KeyIsThere());
    EXPECT_THAT(TakePosts(), ElementsAre(kKey));
  }
}

TEST_F(HogMode, TheStartLeavesTheOwnerToTheNextRead) {
  SetMaster(false);
  Settings().PutElsewhere(kKey, kOther);
  mHogMode->Initialize();
  Settings().TakeCalls();
  EXPECT_EQ(mHogMode->GetOwner(), kOther);
  EXPECT_THAT(Settings().TakeCalls(), ElementsAre("read " + kKey));
}

// Told of changes.

TEST_F(HogMode, AClaimElsewhereIsTakenOverAndTheDeviceTold) {
  EXPECT_TRUE(mHogMode->IsFree());
  Settings().PutElsewhere(kKey, kOther);
  EXPECT_EQ(Notifications().Deliver(kKey), 1);
  EXPECT_EQ(mHogMode->GetOwner(), kOther);
  ExpectDeviceWasTold();
  EXPECT_THAT(TakePosts(), IsEmpty());
}

TEST_F(HogMode, TheFileIsReadAgainAlsoWhereItsTimeHasNotMoved) {
  EXPECT_TRUE(mHogMode->IsFree());
  Settings().PutElsewhere(kKey, kOther, false);
  Settings().TakeCalls();
  Notifications().Deliver(kKey);
  EXPECT_THAT(Settings().TakeCalls(), ElementsAre("force", "read " + kKey));
  EXPECT_EQ(mHogMode->GetOwner(), kOther);
}

TEST_F(HogMode, AReleaseElsewhereIsTakenOver) {
  Settings().PutElsewhere(kKey, kOther);
  EXPECT_EQ(mHogMode->GetOwner(), kOther);
  Settings().mFile.clear();
  Notifications().Deliver(kKey);
  EXPECT_TRUE(mHogMode->IsFree());
  ExpectDeviceWasTold();
}

TEST_F(HogMode, ALostRaceIsNoticed) {
  mHogMode->Take();
  mDevice.TakeEvents();
  mDevice.mNotifications.clear();
  TakePosts();
  Settings().PutElsewhere(kKey, kOther, false);
  Notifications().Deliver(kKey);
  EXPECT_EQ(mHogMode->GetOwner(), kOther);
  EXPECT_FALSE(mHogMode->CurrentProcessIsOwnerOrIsFree());
  ExpectDeviceWasTold();
  // Whoever lost it does not take it from the other at the end.
  mHogMode->Release();
  EXPECT_EQ(Stored(), kOther);
  ExpectNothingHappened();
}

TEST_F(HogMode, ItsOwnNotificationChangesNothing) {
  mHogMode->Take();
  mDevice.TakeEvents();
  mDevice.mNotifications.clear();
  TakePosts();
  Notifications().Deliver(kKey);
  EXPECT_EQ(mHogMode->GetOwner(), getpid());
  ExpectNothingHappened();
}

TEST_F(HogMode, BeforeTheFirstReadANotificationOnlyReads) {
  Settings().PutElsewhere(kKey, kOther);
  Notifications().Deliver(kKey);
  EXPECT_EQ(mHogMode->GetOwner(), kOther);
  ExpectNothingHappened();
}

TEST_F(HogMode, NoNotificationGoesOutFromWithinANotification) {
  Settings().PutElsewhere(kKey, kOther);
  EXPECT_EQ(mHogMode->GetOwner(), kOther);
  Settings().PutElsewhere(kKey, kEnded);
  Notifications().Deliver(kKey);
  EXPECT_TRUE(mHogMode->IsFree());
  EXPECT_FALSE(KeyIsThere());
  ExpectDeviceWasTold();
  EXPECT_THAT(TakePosts(), IsEmpty());
}

TEST_F(HogMode, ANotificationForATokenThatIsNoLongerMappedIsIgnored) {
  void* observer = const_cast<void*>(Notifications().mObservations.at(0).mObserver);
  mHogMode.reset();
  Settings().TakeCalls();
  HP_HogMode::ChangeNotification(nullptr, observer, CFSTR("name"), nullptr, nullptr);
  EXPECT_THAT(Settings().TakeCalls(), IsEmpty());
  ExpectNothingHappened();
}

TEST_F(HogMode, AnObjectOutlivesTheNotificationThatIsAtWorkOnIt) {
  EXPECT_TRUE(mHogMode->IsFree());
  Settings().PutElsewhere(kKey, kOther);
  std::atomic<bool> hasBegun{false};
  std::atomic<bool> hasEnded{false};
  std::thread ending;
  mDevice.mOnStateChanged = [&] {
    ending = std::thread([&] {
      hasBegun = true;
      mHogMode.reset();
      hasEnded = true;
    });
    // The other thread has every chance to be too early.
    while (!hasBegun) std::this_thread::yield();
    for (int i = 0; i < 10000; ++i) std::this_thread::yield();
    EXPECT_FALSE(hasEnded);
  };
  void* observer = const_cast<void*>(Notifications().mObservations.at(0).mObserver);
  HP_HogMode::ChangeNotification(nullptr, observer, CFSTR("name"), nullptr, nullptr);
  ending.join();
  EXPECT_TRUE(hasEnded);
  ExpectDeviceWasTold();
}

}  // namespace
}  // namespace tembra::test
