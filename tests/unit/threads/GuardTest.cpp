#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "support/CAException.h"
#include "support/CAGuard.h"
#include "support/CAHostTimeBase.h"

namespace {

template <class Call>
OSStatus StatusOf(Call inCall) {
  try {
    inCall();
    return 0;
  } catch (const CAException& inException) {
    return inException.GetError();
  }
}

TEST(Guard, WaitsWithoutTheLockThrowOne) {
  CAGuard theGuard("test");
  EXPECT_EQ(1, StatusOf([&] { theGuard.Wait(); }));
  EXPECT_EQ(1, StatusOf([&] { theGuard.WaitFor(1); }));
  EXPECT_EQ(1, StatusOf([&] { theGuard.WaitUntil(~UInt64{0}); }));
}

TEST(Guard, WaitUntilAPastTimeAnswersTrueWithTheLockKept) {
  CAGuard theGuard("test");
  theGuard.Lock();
  EXPECT_TRUE(theGuard.WaitUntil(0));
  EXPECT_TRUE(theGuard.IsOwnedByCurrentThread());
  theGuard.Unlock();
}

TEST(Guard, WaitUntilAPastTimeDoesNotAskForTheLock) {
  CAGuard theGuard("test");
  EXPECT_TRUE(theGuard.WaitUntil(0));
  EXPECT_TRUE(theGuard.IsFree());
}

// Each side waits for the other's value under the guard, so the test ends only if waits let the
// lock go and notifications arrive.
void Count(CAGuard& inGuard, int& ioValue, int inFirst) {
  CAGuard::Locker theLocker(inGuard);
  for (int i = inFirst; i < 200; i += 2) {
    while (ioValue != i) {
      inGuard.Wait();
      ASSERT_TRUE(inGuard.IsOwnedByCurrentThread());
    }
    ++ioValue;
    inGuard.Notify();
  }
}

TEST(Guard, WaitLetsTheLockGoAndNotifyWakes) {
  CAGuard theGuard("test");
  int theValue = 0;
  std::thread theOther([&] { Count(theGuard, theValue, 1); });
  Count(theGuard, theValue, 0);
  theOther.join();
  EXPECT_EQ(200, theValue);
  EXPECT_TRUE(theGuard.IsFree());
}

TEST(Guard, NotifyAllWakesAll) {
  CAGuard theGuard("test");
  int theWaiting = 0;
  bool theGo = false;
  auto theWait = [&] {
    CAGuard::Locker theLocker(theGuard);
    ++theWaiting;
    theGuard.NotifyAll();
    while (!theGo) theGuard.Wait();
  };
  // Many, so that waiters that wake by themselves do not hide the others.
  std::vector<std::thread> theThreads;
  for (int i = 0; i < 16; ++i) theThreads.emplace_back(theWait);
  {
    CAGuard::Locker theLocker(theGuard);
    while (theWaiting != 16) theGuard.Wait();
    theGo = true;
  }
  // Without the lock, as is allowed.
  theGuard.NotifyAll();
  for (std::thread& theThread : theThreads) theThread.join();
}

TEST(Guard, NotificationsWithoutAWaiterAreLost) {
  CAGuard theGuard("test");
  theGuard.Notify();
  theGuard.NotifyAll();
  CAGuard::Locker theLocker(theGuard);
  EXPECT_TRUE(theGuard.WaitFor(1));
  EXPECT_TRUE(theGuard.IsOwnedByCurrentThread());
}

TEST(Guard, NestsLikeAMutex) {
  CAGuard theGuard("IOGuard");
  EXPECT_STREQ("IOGuard", theGuard.GetName());
  EXPECT_TRUE(theGuard.Lock());
  EXPECT_FALSE(theGuard.Lock());
  theGuard.Unlock();
  EXPECT_TRUE(theGuard.IsFree());
}

}  // namespace
