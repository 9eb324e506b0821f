#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "support/CAException.h"
#include "support/CAMutex.h"

namespace {

// What another thread sees of a mutex.
bool OtherThreadCanTake(CAMutex& inMutex) {
  bool theAnswer = false;
  std::thread([&] {
    bool theWasLocked = false;
    theAnswer = inMutex.Try(theWasLocked);
    EXPECT_EQ(theAnswer, theWasLocked);
    inMutex.Unlock();
  }).join();
  return theAnswer;
}

TEST(Mutex, IsFreeAtFirstAndKeepsItsName) {
  CAMutex theMutex("a name");
  EXPECT_STREQ("a name", theMutex.GetName());
  EXPECT_TRUE(theMutex.IsFree());
  EXPECT_FALSE(theMutex.IsOwnedByCurrentThread());
}

TEST(Mutex, LockAnswersTrueOnceAndFalseForItsOwner) {
  CAMutex theMutex("test");
  EXPECT_TRUE(theMutex.Lock());
  EXPECT_TRUE(theMutex.IsOwnedByCurrentThread());
  EXPECT_FALSE(theMutex.IsFree());
  EXPECT_FALSE(theMutex.Lock());
  EXPECT_TRUE(theMutex.IsOwnedByCurrentThread());
  theMutex.Unlock();
}

TEST(Mutex, TwoLocksAndOneUnlockReleaseIt) {
  CAMutex theMutex("test");
  theMutex.Lock();
  theMutex.Lock();
  EXPECT_FALSE(OtherThreadCanTake(theMutex));
  theMutex.Unlock();
  EXPECT_TRUE(theMutex.IsFree());
  EXPECT_TRUE(OtherThreadCanTake(theMutex));
}

TEST(Mutex, UnlockByAnotherThreadLeavesItHeld) {
  CAMutex theMutex("test");
  theMutex.Lock();
  std::thread([&] {
    EXPECT_FALSE(theMutex.IsOwnedByCurrentThread());
    theMutex.Unlock();
  }).join();
  EXPECT_TRUE(theMutex.IsOwnedByCurrentThread());
  EXPECT_FALSE(OtherThreadCanTake(theMutex));
  theMutex.Unlock();
}

TEST(Mutex, UnlockOfAFreeOneDoesNothing) {
  CAMutex theMutex("test");
  theMutex.Unlock();
  EXPECT_TRUE(theMutex.IsFree());
  EXPECT_TRUE(theMutex.Lock());
  theMutex.Unlock();
}

TEST(Mutex, TryTakesAFreeOne) {
  CAMutex theMutex("test");
  bool theWasLocked = false;
  EXPECT_TRUE(theMutex.Try(theWasLocked));
  EXPECT_TRUE(theWasLocked);
  EXPECT_TRUE(theMutex.IsOwnedByCurrentThread());
  theMutex.Unlock();
}

TEST(Mutex, TryByTheOwnerAnswersTrueWithoutLocking) {
  CAMutex theMutex("test");
  theMutex.Lock();
  bool theWasLocked = true;
  EXPECT_TRUE(theMutex.Try(theWasLocked));
  EXPECT_FALSE(theWasLocked);
  theMutex.Unlock();
}

TEST(Mutex, TryOfOneThatAnotherThreadHasAnswersFalse) {
  CAMutex theMutex("test");
  theMutex.Lock();
  std::thread([&] {
    bool theWasLocked = true;
    EXPECT_FALSE(theMutex.Try(theWasLocked));
    EXPECT_FALSE(theWasLocked);
    EXPECT_FALSE(theMutex.IsOwnedByCurrentThread());
  }).join();
  theMutex.Unlock();
}

TEST(Mutex, KeepsThreadsApart) {
  CAMutex theMutex("test");
  int theCount = 0;
  auto theWork = [&] {
    for (int i = 0; i < 10000; ++i) {
      CAMutex::Locker theLocker(theMutex);
      ++theCount;
    }
  };
  std::thread theFirst(theWork);
  std::thread theSecond(theWork);
  theFirst.join();
  theSecond.join();
  EXPECT_EQ(20000, theCount);
  EXPECT_TRUE(theMutex.IsFree());
}

TEST(MutexLocker, LocksForItsScope) {
  CAMutex theMutex("test");
  {
    CAMutex::Locker theLocker(theMutex);
    EXPECT_TRUE(theMutex.IsOwnedByCurrentThread());
  }
  EXPECT_TRUE(theMutex.IsFree());
}

// The analysis takes the inner locker for a mistake; that it is none is what is tested.
void Nest(CAMutex& inMutex) CA_NO_THREAD_SAFETY_ANALYSIS {
  CAMutex::Locker theOuter(inMutex);
  {
    CAMutex::Locker theInner(inMutex);
    EXPECT_TRUE(inMutex.IsOwnedByCurrentThread());
  }
  EXPECT_TRUE(inMutex.IsOwnedByCurrentThread());
}

TEST(MutexLocker, OnlyTheOutermostUnlocks) {
  CAMutex theMutex("test");
  Nest(theMutex);
  EXPECT_TRUE(theMutex.IsFree());
}

TEST(MutexLocker, LeavesAlockThatItDidNotTake) {
  CAMutex theMutex("test");
  theMutex.Lock();
  { CAMutex::Locker theLocker(&theMutex); }
  EXPECT_TRUE(theMutex.IsOwnedByCurrentThread());
  theMutex.Unlock();
}

TEST(MutexLocker, OfNoMutexDoesNothing) {
  CAMutex* theMutex = nullptr;
  EXPECT_NO_THROW(CAMutex::Locker theLocker(theMutex));
}

TEST(MutexLocker, UnlocksWhenAnExceptionPasses) {
  CAMutex theMutex("test");
  try {
    CAMutex::Locker theLocker(theMutex);
    throw CAException(7);
  } catch (const CAException& inException) {
    EXPECT_EQ(7, inException.GetError());
  }
  EXPECT_TRUE(theMutex.IsFree());
}

}  // namespace
