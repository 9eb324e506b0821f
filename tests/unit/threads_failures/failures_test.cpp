// What the platform refuses is thrown with its number, and leaves things as they were.

#include <errno.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <atomic>
#include <functional>
#include <thread>

#include "Calls.h"
#include "support/CAException.h"
#include "support/CAGuard.h"
#include "support/CAMutex.h"
#include "support/CAPThread.h"

namespace tembra::test {
namespace {

// The error that the body throws; 0 if it throws none.
OSStatus ErrorOf(const std::function<void()>& inBody) {
  try {
    inBody();
    return 0;
  } catch (const CAException& inException) {
    return inException.GetError();
  }
}

class Refused : public testing::Test {
 protected:
  Refused() { gCalls = {}; }
  ~Refused() override { gCalls = {}; }
};

using RefusedMutex = Refused;
using RefusedGuard = Refused;
using RefusedThread = Refused;

TEST_F(RefusedMutex, IsNotMade) {
  gCalls.mMutexInit = ENOMEM;
  EXPECT_EQ(ErrorOf([] { CAMutex mutex("test"); }), ENOMEM);
}

TEST_F(RefusedMutex, StaysFreeIfItCannotBeLocked) {
  CAMutex mutex("test");
  gCalls.mLock = EINVAL;
  EXPECT_EQ(ErrorOf([&] { mutex.Lock(); }), EINVAL);
  EXPECT_TRUE(mutex.IsFree());
  EXPECT_EQ(ErrorOf([&] { CAMutex::Locker locker(mutex); }), EINVAL);
  EXPECT_TRUE(mutex.IsFree());
  gCalls.mLock = 0;
  EXPECT_TRUE(mutex.Lock());
  mutex.Unlock();
}

TEST_F(RefusedMutex, HasNoOwnerIfItCannotBeUnlocked) {
  CAMutex mutex("test");
  gCalls.mUnlock = EPERM;
  mutex.Lock();
  EXPECT_EQ(ErrorOf([&] { mutex.Unlock(); }), EPERM);
  EXPECT_TRUE(mutex.IsFree());
}

TEST_F(RefusedMutex, ThrowsNothingAtTheEndOfAScope) {
  CAMutex mutex("test");
  gCalls.mUnlock = EPERM;
  EXPECT_EQ(ErrorOf([&] { CAMutex::Locker locker(mutex); }), 0);
  EXPECT_TRUE(mutex.IsFree());
}

TEST_F(RefusedMutex, IsAnsweredFalseByATryOnlyWhereSomebodyHasIt) {
  CAMutex mutex("test");
  bool wasLocked = true;
  gCalls.mTryLock = EBUSY;
  EXPECT_FALSE(mutex.Try(wasLocked));
  EXPECT_FALSE(wasLocked);
  wasLocked = true;
  gCalls.mTryLock = EINVAL;
  EXPECT_EQ(ErrorOf([&] { mutex.Try(wasLocked); }), EINVAL);
  EXPECT_FALSE(wasLocked);
  EXPECT_TRUE(mutex.IsFree());
}

TEST_F(RefusedGuard, IsNotMade) {
  gCalls.mConditionInit = EAGAIN;
  EXPECT_EQ(ErrorOf([] { CAGuard guard("test"); }), EAGAIN);
}

TEST_F(RefusedGuard, HasItsOwnerAgainAfterAWaitThatFailed) {
  CAGuard guard("test");
  CAGuard::Locker locker(guard);
  gCalls.mWait = EINVAL;
  EXPECT_EQ(ErrorOf([&] { guard.Wait(); }), EINVAL);
  EXPECT_TRUE(guard.IsOwnedByCurrentThread());
}

TEST_F(RefusedGuard, ThrowsWhereItCannotNotify) {
  CAGuard guard("test");
  gCalls.mSignal = EINVAL;
  gCalls.mBroadcast = EPERM;
  EXPECT_EQ(ErrorOf([&] { guard.Notify(); }), EINVAL);
  EXPECT_EQ(ErrorOf([&] { guard.NotifyAll(); }), EPERM);
}

void* Note(void* outHasRun) {
  *static_cast<std::atomic<bool>*>(outHasRun) = true;
  return nullptr;
}

TEST_F(RefusedThread, DoesNotRun) {
  std::atomic<bool> hasRun{false};
  CAPThread thread(Note, &hasRun);
  gCalls.mAttributesInit = ENOMEM;
  EXPECT_EQ(ErrorOf([&] { thread.Start(); }), ENOMEM);
  gCalls.mAttributesInit = 0;
  gCalls.mCreate = EAGAIN;
  EXPECT_EQ(ErrorOf([&] { thread.Start(); }), EAGAIN);
  EXPECT_FALSE(thread.IsRunning());
  EXPECT_FALSE(hasRun);
  gCalls.mCreate = 0;
  thread.Start();
  while (!hasRun || thread.IsRunning()) std::this_thread::yield();
}

TEST_F(RefusedThread, LeavesItsCreatorTheSignalsItHad) {
  sigset_t before, mine, after;
  sigemptyset(&mine);
  sigaddset(&mine, SIGUSR1);
  pthread_sigmask(SIG_SETMASK, &mine, &before);
  CAPThread thread(Note, nullptr);
  gCalls.mCreate = EAGAIN;
  EXPECT_EQ(ErrorOf([&] { thread.Start(); }), EAGAIN);
  pthread_sigmask(SIG_SETMASK, &before, &after);
  for (int signal = 1; signal < 32; ++signal) {
    EXPECT_EQ(sigismember(&after, signal), sigismember(&mine, signal)) << signal;
  }
}

TEST_F(RefusedThread, IsOneWithoutAHandleToo) {
  std::atomic<bool> hasRun{false};
  CAPThread thread(Note, &hasRun);
  gCalls.mCreateGivesNoHandle = true;
  EXPECT_EQ(ErrorOf([&] { thread.Start(); }), -1);
  while (!hasRun || thread.IsRunning()) std::this_thread::yield();
}

}  // namespace
}  // namespace tembra::test
