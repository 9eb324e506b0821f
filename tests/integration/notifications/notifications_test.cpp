#include <CoreFoundation/CFData.h>
#include <CoreFoundation/CFNotificationCenter.h>
#include <CoreFoundation/CFNotificationCenterPriv.h>
#include <CoreFoundation/CFNumber.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <functional>
#include <mutex>
#include <thread>

#include "NotificationsTest.h"
#include "Roles.h"

namespace tembra::test {
namespace {

class OneRuntime : public testing::Environment {
 public:
  void SetUp() override { sRuntime = new PrivateRuntime; }
  void TearDown() override { delete sRuntime; }
};

[[maybe_unused]] const testing::Environment* const sEnvironment =
    testing::AddGlobalTestEnvironment(new OneRuntime);

TEST_F(Notifications, ReachThePostersOwnProcessWithNameObjectAndDictionary) {
  Observer observer("own", nullptr);
  const void* keys[] = {CFSTR("text"), CFSTR("flag")};
  const void* values[] = {CFSTR("value"), kCFBooleanTrue};
  Owned<CFDictionaryRef> info(CFDictionaryCreate(
      nullptr, keys, values, 2, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
  std::atomic<int> equal{0};
  observer.Do([&](CFDictionaryRef inInfo) { equal = CFEqual(inInfo, info) ? 1 : -1; });
  Post("own", "thing", info);
  ASSERT_TRUE(WaitUntil([&] { return equal != 0; }, Seconds(20)));
  EXPECT_EQ(equal, 1);
  EXPECT_EQ(observer.Heard(), Texts{"own thing info"});
}

TEST_F(Notifications, WithoutADictionaryBringNone) {
  Observer observer("none", nullptr);
  Post("none");
  Observer::Flush();
  EXPECT_EQ(observer.Heard(), Texts{"none -"});
}

TEST_F(Notifications, MatchByNameAndObject) {
  Observer all(nullptr, nullptr);
  Observer named("match", nullptr);
  Observer both("match", "x");
  Observer thing(nullptr, "x");
  Post("match");
  Post("match", "x");
  Post("match", "y");
  Post("other", "x");
  Observer::Flush();
  EXPECT_EQ(named.Heard(), (Texts{"match -", "match x", "match y"}));
  EXPECT_EQ(both.Heard(), Texts{"match x"});
  EXPECT_EQ(thing.Heard(), (Texts{"match x", "other x"}));
  EXPECT_EQ(all.Heard(), (Texts{"match -", "match x", "match y", "other x", "test.flush -"}));
}

TEST_F(Notifications, AnObserverAddedTwiceIsCalledTwice) {
  Observer observer("twice", nullptr);
  auto count = [](CFNotificationCenterRef, void* inCount, CFNotificationName, const void*,
                  CFDictionaryRef) { ++*static_cast<std::atomic<int>*>(inCount); };
  std::atomic<int> calls{0};
  for (int i = 0; i < 2; ++i) {
    CFNotificationCenterAddObserver(Center(), &calls, count, CFSTR("twice"), nullptr,
                                    CFNotificationSuspensionBehaviorDrop);
  }
  Post("twice");
  Observer::Flush();
  EXPECT_EQ(calls, 2);
  CFNotificationCenterRemoveObserver(Center(), &calls, CFSTR("twice"), nullptr);
}

TEST_F(Notifications, RunOnTheDeliveryThreadWithItsSignalsBlocked) {
  Observer observer("thread", nullptr);
  static char sName[16];
  static sigset_t sMask;
  observer.Do([](CFDictionaryRef) {
    prctl(PR_GET_NAME, sName);
    pthread_sigmask(SIG_SETMASK, nullptr, &sMask);
  });
  Post("thread");
  Observer::Flush();
  EXPECT_STREQ(sName, "tembra.notify");
  EXPECT_EQ(sigismember(&sMask, SIGINT), 1);
}

TEST_F(Notifications, NoCallBeginsAfterRemoval) {
  Observer observer("removed", "x");
  Post("removed", "x");
  Observer::Flush();
  // Another name or object is another registration.
  CFNotificationCenterRemoveObserver(Center(), &observer, CFSTR("other"), nullptr);
  CFNotificationCenterRemoveObserver(Center(), &observer, CFSTR("removed"), CFSTR("y"));
  Post("removed", "x");
  Observer::Flush();
  EXPECT_EQ(observer.Count(), 2u);
  CFNotificationCenterRemoveObserver(Center(), &observer, CFSTR("removed"), CFSTR("x"));
  Post("removed", "x");
  Observer::Flush();
  EXPECT_EQ(observer.Count(), 2u);
}

TEST_F(Notifications, RemovalForNoObjectRemovesEveryOne) {
  Observer observer("removed", "x");
  CFNotificationCenterRemoveObserver(Center(), &observer, CFSTR("removed"), nullptr);
  Post("removed", "x");
  Observer::Flush();
  EXPECT_EQ(observer.Count(), 0u);
}

TEST_F(Notifications, ACallbackMayRemoveItselfAddOthersAndPost) {
  Observer observer("reenter", nullptr);
  std::unique_ptr<Observer> added;
  observer.Do([&](CFDictionaryRef) {
    CFNotificationCenterRemoveEveryObserver(Center(), &observer);
    added = std::make_unique<Observer>("from.callback", nullptr);
    Post("from.callback");
  });
  Post("reenter");
  Post("reenter");
  Observer::Flush();
  Observer::Flush();
  EXPECT_EQ(observer.Count(), 1u);
  EXPECT_EQ(added->Count(), 1u);
}

TEST_F(Notifications, ABurstOfAThousandLosesNoneAndKeepsItsOrder) {
  Observer observer("burst", nullptr);
  std::vector<SInt32> numbers;
  observer.Do([&](CFDictionaryRef inInfo) {
    SInt32 number = -1;
    CFNumberGetValue(static_cast<CFNumberRef>(CFDictionaryGetValue(inInfo, CFSTR("n"))),
                     kCFNumberSInt32Type, &number);
    numbers.push_back(number);
    // Slower than the poster: the burst waits in memory, not in the kernel's queue.
    if (number % 100 == 0) std::this_thread::sleep_for(std::chrono::milliseconds(5));
  });
  EXPECT_EQ(Start({"post", "burst", "-", "1000"}).Wait(Seconds(60)), 0);
  ASSERT_TRUE(WaitUntil([&] { return observer.Count() == 1000; }, Seconds(30)));
  Observer::Flush();
  ASSERT_EQ(numbers.size(), 1000u);
  for (SInt32 i = 0; i < 1000; ++i) ASSERT_EQ(numbers[static_cast<size_t>(i)], i);
}

TEST_F(Notifications, ABurstReachesSeveralLiveProcesses) {
  std::vector<Program> observers;
  for (int i = 0; i < 3; ++i) observers.push_back(Start({"observe", "burst3", "me"}));
  EXPECT_EQ(Start({"post", "burst3", "me", "1000"}).Wait(Seconds(60)), 0);
  for (Program& program : observers) {
    EXPECT_TRUE(WaitUntil([&] { return Lines(program) == 1001; }, Seconds(30)));
    EXPECT_EQ(program.Output().substr(0, 18), "ready\nme 0\nme 1\nme");
  }
}

TEST_F(Notifications, AStoppedReceiverHoldsThePosterUpOnceAndNobodyElse) {
  Program stopped = Start({"observe", "stop"});
  Program live = Start({"observe", "stop"});
  stopped.Signal(SIGSTOP);
  int status = 0;
  ASSERT_EQ(waitpid(stopped.Pid(), &status, WUNTRACED), stopped.Pid());
  ASSERT_TRUE(WIFSTOPPED(status));
  const auto begin = std::chrono::steady_clock::now();
  const UInt64 lostBefore = Statistics().postsLost;
  for (int i = 0; i < 300; ++i) Post("stop");
  const auto spent = std::chrono::steady_clock::now() - begin;
  EXPECT_LT(spent, Seconds(5));
  EXPECT_GT(Statistics().postsLost, lostBefore);
  EXPECT_TRUE(WaitUntil([&] { return Lines(live) == 301; }, Seconds(30)));
  EXPECT_EQ(Lines(stopped), 1u);
  stopped.Signal(SIGCONT);
  // What its queue held, and then again all that is new.
  EXPECT_TRUE(WaitUntil([&] { return Lines(stopped) > 5; }, Seconds(30)));
  Post("stop", "again");
  EXPECT_TRUE(
      WaitUntil([&] { return stopped.Output().find("again") != std::string::npos; }, Seconds(30)));
}

TEST_F(Notifications, WhatTheDeadLeftIsSweptAndJunkIsLeftAlone) {
  Observer observer("sweep", nullptr);
  Post("other");  // removes what the tests before this one left
  const size_t before = CountReceivers();
  {
    std::vector<Program> dead;
    for (int i = 0; i < 5; ++i) dead.push_back(Start({"observe", "sweep"}));
    EXPECT_EQ(CountReceivers(), before + 5);
    for (Program& program : dead) program.Signal(SIGKILL);
    for (Program& program : dead) program.Wait(Seconds(20));
  }
  EXPECT_EQ(CountReceivers(), before + 5);
  const std::string junk[] = {Place() + "/junk", Place() + "/123.abc", Place() + "/9.folder"};
  close(open(junk[0].c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
  close(open(junk[1].c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
  mkdir(junk[2].c_str(), 0700);
  symlink("/dev/log", (Place() + "/77.77").c_str());
  const UInt64 swept = Statistics().swept;
  Post("sweep");
  EXPECT_EQ(CountReceivers(), before + 4);
  EXPECT_EQ(Statistics().swept, swept + 5);
  for (const std::string& file : junk) EXPECT_TRUE(std::filesystem::exists(file));
  Observer::Flush();
  EXPECT_EQ(observer.Count(), 1u);
  for (const std::string& file : junk) std::filesystem::remove(file);
  unlink((Place() + "/77.77").c_str());
}

TEST_F(Notifications, AReceiverWhoseDescriptorsWereClosedGoesBackToSleep) {
  Program robbed = Start({"robbed", "test.robbed"});
  Post("test.robbed");
  ASSERT_TRUE(WaitUntil([&] { return Lines(robbed) == 2; }, Seconds(20)));
  long before = -1;
  ASSERT_TRUE(
      WaitUntil([&] { return (before = SleepsOfReceiver(robbed.Pid())) >= 0; }, Seconds(20)));
  // Wakes it, and finds nothing of its own.
  Post("test.robbed");
  EXPECT_TRUE(WaitUntil([&] { return SleepsOfReceiver(robbed.Pid()) > before; }, Seconds(20)));
}

TEST_F(Notifications, AProcessThatEndsLeavesNothing) {
  const size_t before = CountReceivers();
  EXPECT_EQ(Start({"leave", "end"}).Wait(Seconds(20)), 0);
  EXPECT_EQ(CountReceivers(), before);
}

TEST_F(Notifications, WhatIsTooLongIsRefusedWhole) {
  Observer observer("long", nullptr);
  const UInt64 before = Statistics().refused;
  std::string bytes(60000, 'b');
  Owned<CFDataRef> data(CFDataCreate(nullptr, reinterpret_cast<UInt8*>(bytes.data()), 60000));
  const void* key = CFSTR("k");
  const void* value = data.Get();
  Owned<CFDictionaryRef> info(CFDictionaryCreate(
      nullptr, &key, &value, 1, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
  Post("long", nullptr, info);
  Post(std::string(1025, 'n'));
  CFNotificationCenterPostNotification(Center(), nullptr, nullptr, nullptr, true);
  EXPECT_EQ(Statistics().refused, before + 3);
  Post("long");
  Observer::Flush();
  EXPECT_EQ(observer.Heard(), Texts{"long -"});
}

}  // namespace
}  // namespace tembra::test
