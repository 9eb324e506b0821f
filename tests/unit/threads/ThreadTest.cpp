#include <errno.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <string>

#include "support/CAPThread.h"

namespace {

// What a thread under test does, and the word of its end.
struct Work {
  std::function<void()> mRoutine;
  std::promise<void> mDone;

  static void* Run(void* inWork) {
    auto* theWork = static_cast<Work*>(inWork);
    theWork->mRoutine();
    theWork->mDone.set_value();
    return nullptr;
  }

  void Wait() {
    ASSERT_EQ(std::future_status::ready, mDone.get_future().wait_for(std::chrono::seconds(30)));
  }
};

// The handle is cleared after the routine's end.
void WaitForEnd(const CAPThread& inThread) {
  while (inThread.IsRunning()) std::this_thread::yield();
}

TEST(Thread, DoesNotRunBeforeItsStart) {
  CAPThread theThread(Work::Run, nullptr);
  EXPECT_FALSE(theThread.IsRunning());
  EXPECT_FALSE(theThread.IsCurrentThread());
  EXPECT_EQ(0u, theThread.GetScheduledPriority());
}

TEST(Thread, RunsItsRoutineOnAThreadOfItsOwn) {
  Work theWork;
  CAPThread theThread(Work::Run, &theWork);
  bool theIsCurrent = false;
  UInt32 thePriority = 0;
  theWork.mRoutine = [&] {
    theIsCurrent = theThread.IsCurrentThread();
    thePriority = theThread.GetScheduledPriority();
  };
  theThread.Start();
  theWork.Wait();
  WaitForEnd(theThread);
  EXPECT_TRUE(theIsCurrent);
  EXPECT_NE(0u, thePriority);
  EXPECT_FALSE(theThread.IsCurrentThread());
}

TEST(Thread, IsRunningFromStartOnAndNotStartedTwice) {
  std::promise<void> theGo;
  std::atomic<int> theRuns{0};
  Work theWork;
  theWork.mRoutine = [&] {
    ++theRuns;
    theGo.get_future().wait();
  };
  CAPThread theThread(Work::Run, &theWork);
  theThread.Start();
  EXPECT_TRUE(theThread.IsRunning());
  EXPECT_FALSE(theThread.IsCurrentThread());
  theThread.Start();
  theGo.set_value();
  theWork.Wait();
  WaitForEnd(theThread);
  EXPECT_EQ(1, theRuns);
}

TEST(Thread, CanBeStartedAgainAfterItsEnd) {
  std::atomic<int> theRuns{0};
  for (int i = 1; i <= 2; ++i) {
    Work theWork;
    theWork.mRoutine = [&] { ++theRuns; };
    CAPThread theThread(Work::Run, &theWork);
    theThread.Start();
    theWork.Wait();
    WaitForEnd(theThread);
  }
  EXPECT_EQ(2, theRuns);
}

// A short routine may end before Start returns; nothing of it may stay behind.
TEST(Thread, ThatEndsAtOnceIsNotRunning) {
  CAPThread theThread([](void*) -> void* { return nullptr; }, nullptr);
  for (int i = 0; i < 500; ++i) {
    theThread.Start();
    WaitForEnd(theThread);
  }
  EXPECT_FALSE(theThread.IsRunning());
}

TEST(Thread, WithoutARoutineEnds) {
  CAPThread theThread(nullptr, nullptr);
  theThread.Start();
  WaitForEnd(theThread);
}

TEST(Thread, SwallowsAnExceptionOfItsRoutine) {
  CAPThread theThread([](void*) -> void* { throw 1; }, nullptr);
  theThread.Start();
  WaitForEnd(theThread);
}

class SelfDeletingThread : public CAPThread {
 public:
  SelfDeletingThread(ThreadRoutine inRoutine, std::promise<void>& inDeleted)
      : CAPThread(inRoutine, nullptr, kDefaultThreadPriority, false, true), mDeleted(inDeleted) {}
  ~SelfDeletingThread() override { mDeleted.set_value(); }

 private:
  std::promise<void>& mDeleted;
};

TEST(Thread, WithAutoDeleteIsDeletedAtItsEnd) {
  for (int i = 0; i < 200; ++i) {
    std::promise<void> theDeleted;
    auto* theThread = new SelfDeletingThread([](void*) -> void* { return nullptr; }, theDeleted);
    theThread->Start();
    ASSERT_EQ(std::future_status::ready,
              theDeleted.get_future().wait_for(std::chrono::seconds(30)));
  }
}

TEST(Thread, BlocksAllSignalsAndLeavesThoseOfItsCreator) {
  // Whatever this test itself was started with.
  sigset_t theNone;
  sigemptyset(&theNone);
  sigset_t theBefore;
  pthread_sigmask(SIG_SETMASK, &theNone, &theBefore);
  sigset_t theMask;
  sigemptyset(&theMask);
  Work theWork;
  theWork.mRoutine = [&] { pthread_sigmask(SIG_SETMASK, nullptr, &theMask); };
  CAPThread theThread(Work::Run, &theWork);
  theThread.Start();
  theWork.Wait();
  WaitForEnd(theThread);
  sigset_t theAfter;
  pthread_sigmask(SIG_SETMASK, &theBefore, &theAfter);
  for (int theSignal : {SIGINT, SIGTERM, SIGHUP, SIGCHLD, SIGPIPE, SIGUSR1, SIGALRM}) {
    EXPECT_EQ(1, sigismember(&theMask, theSignal)) << theSignal;
    EXPECT_EQ(0, sigismember(&theAfter, theSignal)) << theSignal;
  }
}

TEST(Thread, NameIsCutAt63Bytes) {
  CAPThread theThread(nullptr, nullptr);
  theThread.SetName(std::string(63, 'a').c_str());
  EXPECT_EQ(std::string(63, 'a'), theThread.GetName());
  theThread.SetName(std::string(64, 'b').c_str());
  EXPECT_EQ(std::string(63, 'b'), theThread.GetName());
  theThread.SetName(std::string(500, 'c').c_str());
  EXPECT_EQ(std::string(63, 'c'), theThread.GetName());
}

TEST(Thread, NullNameClearsIt) {
  CAPThread theThread(nullptr, nullptr, 63, false, false, "name");
  EXPECT_STREQ("name", theThread.GetName());
  theThread.SetName(nullptr);
  EXPECT_STREQ("", theThread.GetName());
}

TEST(Thread, ConstructorsChooseTheMode) {
  CAPThread thePriority(nullptr, nullptr, 63, true, false, "p");
  EXPECT_FALSE(thePriority.IsTimeConstraintSet());
  CAPThread theConstraint(nullptr, nullptr, 1000, 100, 900, true, false, "c");
  EXPECT_TRUE(theConstraint.IsTimeConstraintSet());
  EXPECT_STREQ("c", theConstraint.GetName());
  EXPECT_EQ(CAPThread::getScheduledPriority(pthread_self()),
            theConstraint.GetSpawningThreadPriority());
}

}  // namespace
