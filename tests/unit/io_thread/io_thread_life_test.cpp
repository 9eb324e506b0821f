// How the I/O thread comes up, ends, and what it makes of exceptions.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <memory>
#include <thread>

#include "IOThreadTest.h"
#include "device/HP_IOThread.h"

namespace tembra::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// Starting and stopping.

TEST(IOThread, AStopFromWithinAProcedureTakesEffectAfterThePass) {
  ThreadedDevice theDevice;
  theDevice.Do_AddIOProc(Proc, nullptr);
  theDevice.mOnCall = [&] {
    theDevice.Do_StopIOProc(Proc);
    theDevice.Log(theDevice.GetIOProcList()->IsAnythingEnabled() ? "still enabled" : "stopped");
  };
  theDevice.mSteps = {kWhole, kWhole, kWhole};
  theDevice.Do_StartIOProc(Proc);
  theDevice.AwaitEnd();
  EXPECT_THAT(theDevice.GetLog(),
              ElementsAre("clock on", "goin", "still enabled", "clock off", "goin"));
  EXPECT_EQ(theDevice.mCalls.size(), 1u);
  EXPECT_TRUE(theDevice.GetIOProcList()->IsNothingEnabled());
}

TEST(IOThread, StopOnTheIOThreadReturnsAtOnce) {
  ThreadedDevice theDevice;
  theDevice.mOnCall = [&] {
    theDevice.mThread->Stop();
    EXPECT_TRUE(theDevice.mThread->HasBeenStopped());
    EXPECT_EQ(theDevice.mThread->GetWorkLoopPhase(), HP_IOThread::kRunningPhase);
  };
  theDevice.Run({kWhole, kWhole});
  EXPECT_EQ(theDevice.mCalls.size(), 1u);
}

TEST(IOThread, StopFromAnotherThreadReturnsWhenTheRunHasEnded) {
  ThreadedDevice theDevice;
  theDevice.Do_AddIOProc(Proc, nullptr);
  theDevice.mLastStep = [&](UInt64) { return SleepUntilStopped(theDevice); };
  for (int i = 0; i < 20; ++i) {
    theDevice.Do_StartIOProc(Proc);
    theDevice.Do_StopIOProc(Proc);
    EXPECT_EQ(theDevice.mThread->GetWorkLoopPhase(), HP_IOThread::kNotRunningPhase);
    EXPECT_FALSE(theDevice.IsIOEngineRunning());
  }
  const std::vector<std::string> theLog = theDevice.GetLog();
  EXPECT_EQ(std::count(theLog.begin(), theLog.end(), "goin"), 40);
}

// A thread that waits on the guard until it is notified.
class Waiter {
 public:
  explicit Waiter(CAGuard& inGuard) : mGuard(inGuard), mThread([this] { Wait(); }) {
    while (!mIsWaiting) std::this_thread::yield();
    // It has the guard from before it says so until it waits.
    CAMutex::Locker theLocker(mGuard);
  }
  ~Waiter() {
    mGuard.NotifyAll();
    mThread.join();
  }
  void AwaitNotification() const {
    while (!mIsNotified) std::this_thread::yield();
  }

 private:
  void Wait() {
    CAMutex::Locker theLocker(mGuard);
    mIsWaiting = true;
    mGuard.Wait();
    mIsNotified = true;
  }

  CAGuard& mGuard;
  std::atomic<bool> mIsWaiting{false};
  std::atomic<bool> mIsNotified{false};
  std::thread mThread;
};

// In each of these the thread goes on when the notification has come, and not before.

TEST(IOThreadNotifies, WhenItHasComeUp) {
  ThreadedDevice theDevice;
  Waiter theWaiter(*theDevice.mThread->GetIOGuard());
  theDevice.mOnNotification = [&](UInt32) { theWaiter.AwaitNotification(); };
  theDevice.Run({});
  EXPECT_THAT(theDevice.GetLog(), ElementsAre("clock on", "goin", "clock off", "goin"));
}

TEST(IOThreadNotifies, WhenAStopIsAskedFor) {
  ThreadedDevice theDevice;
  std::unique_ptr<Waiter> theWaiter;
  theDevice.mLastStep = [&](UInt64) {
    SleepUntilStopped(theDevice);
    {
      // Free when the one who asked waits.
      CAMutex::Locker theLocker(theDevice.mThread->GetIOGuard());
    }
    theWaiter->AwaitNotification();
    return 0;
  };
  theDevice.Start();
  theWaiter = std::make_unique<Waiter>(*theDevice.mThread->GetIOGuard());
  CAMutex::Locker theLocker(theDevice.mThread->GetIOGuard());
  theDevice.mThread->Stop();
  EXPECT_EQ(theDevice.mThread->GetWorkLoopPhase(), HP_IOThread::kNotRunningPhase);
}

TEST(IOThreadNotifies, WhenAResynchIsToBeNoticedAtOnce) {
  ThreadedDevice theDevice;
  CAGuard& theGuard = *theDevice.mThread->GetIOGuard();
  theDevice.Run({ThreadedDevice::WokenAfter(100, [&] {
    Waiter theWaiter(theGuard);
    {
      CAMutex::Locker theLocker(theGuard);
      theDevice.mThread->Resynch(nullptr, true);
    }
    theWaiter.AwaitNotification();
  })});
  EXPECT_EQ(theDevice.mCalls.size(), 1u);
}

TEST(IOThread, StopIsNotEndedByAnUnrelatedNotification) {
  ThreadedDevice theDevice;
  std::atomic<bool> theIsStopping{false};
  std::atomic<bool> theStopReturned{false};
  theDevice.mLastStep = [&](UInt64) {
    SleepUntilStopped(theDevice);
    // The stopping thread waits on the guard now, or is about to: either way it must go on to.
    theDevice.mThread->GetIOGuard()->NotifyAll();
    return 0;
  };
  theDevice.mOnNotification = [&](UInt32) {
    if (theIsStopping) {
      theDevice.mThread->GetIOGuard()->NotifyAll();
      // It cannot have returned: this run has not ended.
      EXPECT_FALSE(theStopReturned);
    }
  };
  theDevice.Start();
  theIsStopping = true;
  {
    CAMutex::Locker theLocker(theDevice.mThread->GetIOGuard());
    theDevice.mThread->Stop();
    theStopReturned = true;
    EXPECT_EQ(theDevice.mThread->GetWorkLoopPhase(), HP_IOThread::kNotRunningPhase);
  }
}

TEST(IOThread, StopWhileInitializingEndsTheRunBeforeAnyConstraintIsSet) {
  ThreadedDevice theDevice;
  theDevice.mOnNotification = [&](UInt32) {
    if (theDevice.mThread->GetWorkLoopPhase() == HP_IOThread::kInitializingPhase) {
      theDevice.mThread->Stop();
    }
  };
  theDevice.Run({kWhole});
  EXPECT_THAT(theDevice.mCalls, IsEmpty());
  EXPECT_THAT(theDevice.mSleeps, IsEmpty());
  EXPECT_THAT(Flavors(), testing::Not(testing::Contains(kTimeConstraints)));
  EXPECT_THAT(theDevice.GetLog(), ElementsAre("clock on", "goin", "clock off", "goin"));
}

TEST(IOThread, StopFromAnotherThreadWhileInitializingWaitsForTheEnd) {
  ThreadedDevice theDevice;
  theDevice.mOnNotification = [&](UInt32) {
    if (theDevice.mThread->GetWorkLoopPhase() == HP_IOThread::kInitializingPhase) {
      SleepUntilStopped(theDevice);
    }
  };
  CAMutex::Locker theLocker(theDevice.mThread->GetIOGuard());
  theDevice.mThread->Start();
  theDevice.mThread->Stop();
  EXPECT_EQ(theDevice.mThread->GetWorkLoopPhase(), HP_IOThread::kNotRunningPhase);
  EXPECT_THAT(theDevice.mCalls, IsEmpty());
}

TEST(IOThread, StopOfAThreadThatDoesNotRunDoesNothing) {
  ThreadedDevice theDevice;
  theDevice.mThread->Stop();
  EXPECT_FALSE(theDevice.mThread->HasBeenStopped());
}

TEST(IOThread, StartOfARunningThreadDoesNothing) {
  ThreadedDevice theDevice;
  theDevice.Run({kWhole, ThreadedDevice::WokenAfter(1, [&] { theDevice.mThread->Start(); })});
  EXPECT_THAT(theDevice.GetLog(), ElementsAre("clock on", "goin", "clock off", "goin"));
}

TEST(IOThread, StartOnTheIOThreadDuringTeardownIsRefused) {
  ThreadedDevice theDevice;
  theDevice.mOnNotification = [&](UInt32) {
    if (theDevice.mThread->GetWorkLoopPhase() == HP_IOThread::kTeardownPhase) {
      EXPECT_EQ(StatusOf([&] { theDevice.mThread->Start(); }), 'nope');
      theDevice.Log("refused");
    }
  };
  theDevice.Run({});
  EXPECT_THAT(theDevice.GetLog(), testing::Contains("refused"));
}

TEST(IOThread, StartFromAnotherThreadDuringTeardownWaitsAndBeginsANewRun) {
  ThreadedDevice theDevice;
  std::atomic<int> theStage{0};
  theDevice.mOnNotification = [&](UInt32) {
    if (theDevice.mThread->GetWorkLoopPhase() != HP_IOThread::kTeardownPhase || theStage > 0)
      return;
    theStage = 1;
    // From here the guard is the other thread's until it waits.
    while (theStage < 2) std::this_thread::yield();
  };
  theDevice.Start();
  while (theStage < 1) std::this_thread::yield();
  {
    CAMutex::Locker theLocker(theDevice.mThread->GetIOGuard());
    theStage = 2;
    theDevice.mThread->Start();
  }
  theDevice.AwaitEnd();
  EXPECT_THAT(theDevice.GetLog(), ElementsAre("clock on", "goin", "clock off", "goin", "clock on",
                                              "goin", "clock off", "goin"));
}

TEST(IOThread, StartGivesUpAfterFourWaitsOfATenthOfASecond) {
  ThreadedDevice theDevice;
  std::vector<UInt64> theWaits;
  SimulatedTime& theTime = SimulatedTime::Get();
  const auto theUsualWait = theTime.mTimedWait;
  theTime.mTimedWaitKeepsMutex = true;
  theTime.mTimedWait = [&](UInt64 inNanos) {
    theWaits.push_back(inNanos);
    return ETIMEDOUT;
  };
  theDevice.mLastStep = [&](UInt64) { return SleepUntilStopped(theDevice); };
  {
    CAMutex::Locker theLocker(theDevice.mThread->GetIOGuard());
    EXPECT_EQ(StatusOf([&] { theDevice.mThread->Start(); }), 'nope');
    theTime.mTimedWaitKeepsMutex = false;
    theTime.mTimedWait = theUsualWait;
  }
  EXPECT_THAT(theWaits, ElementsAre(100000000, 100000000, 100000000, 100000000));
  // The thread comes up late all the same; taking the device away ends it.
}

TEST(IOThread, AThreadThatCameUpInTheLastWaitIsASuccess) {
  ThreadedDevice theDevice;
  SimulatedTime& theTime = SimulatedTime::Get();
  const auto theUsualWait = theTime.mTimedWait;
  std::atomic<int> theWaits{0};
  theTime.mTimedWaitKeepsMutex = true;
  theTime.mTimedWait = [&](UInt64 inNanos) {
    if (theDevice.mThread->IsCurrentThread()) return theUsualWait(inNanos);
    if (++theWaits == 3) theTime.mTimedWaitKeepsMutex = false;
    if (theWaits == 4) theUsualWait(inNanos);
    return ETIMEDOUT;
  };
  theDevice.Run({kWhole});
  EXPECT_EQ(theWaits, 4);
  EXPECT_EQ(theDevice.mCalls.size(), 1u);
}

TEST(IOThread, CanRunAgain) {
  ThreadedDevice theDevice;
  theDevice.Run({kWhole});
  theDevice.Run({kWhole, kWhole});
  EXPECT_THAT(CallTimes(theDevice), ElementsAre(512.0, 512.0, 1024.0));
  EXPECT_THAT(Cycles(theDevice), ElementsAre(1, 1, 2)) << "each run counts from 0";
}

TEST(IOThread, TheDestructorEndsARun) {
  ThreadedDevice theDevice;
  theDevice.mLastStep = [&](UInt64) { return SleepUntilStopped(theDevice); };
  theDevice.Start();
  // Until it is gone the thread still asks the device, and the device its thread.
  delete theDevice.mThread.get();
  static_cast<void>(theDevice.mThread.release());
  EXPECT_THAT(theDevice.GetLog(), ElementsAre("clock on", "goin", "clock off", "goin"));
  EXPECT_FALSE(theDevice.IsIOEngineRunning());
}

// Exceptions.

TEST(IOThread, AThrowingProcedureEndsTheRunWithoutATeardown) {
  ThreadedDevice theDevice;
  theDevice.mOnCall = [] { throw CAException('test'); };
  theDevice.mOnNotification = [&](UInt32) {
    theDevice.Log("phase " + std::to_string(theDevice.mThread->GetWorkLoopPhase()));
  };
  theDevice.Run({kWhole, kWhole});
  EXPECT_THAT(theDevice.GetLog(), ElementsAre("clock on", "goin", "phase 1", "goin", "phase 2"));
  EXPECT_THAT(Flavors(), ElementsAre(kPrecedence, kTimeConstraints));
  EXPECT_FALSE(theDevice.IsIOEngineRunning());
  EXPECT_TRUE(theDevice.mThread->GetIOGuard()->IsFree());

  theDevice.mOnCall = nullptr;
  theDevice.Run({kWhole});
  EXPECT_EQ(theDevice.mCalls.size(), 2u) << "it can be started again";
}

TEST(IOThread, AnythingElseThrownIsSwallowedToo) {
  ThreadedDevice theDevice;
  theDevice.mOnCall = [] { throw 5; };
  theDevice.Run({kWhole, kWhole});
  EXPECT_EQ(theDevice.mCalls.size(), 1u);
}

TEST(IOThread, AThrowingFirstNotificationEndsTheRun) {
  ThreadedDevice theDevice;
  theDevice.mOnNotification = [&](UInt32) { throw CAException('test'); };
  theDevice.Run({kWhole});
  EXPECT_THAT(theDevice.GetLog(), ElementsAre("clock on", "goin", "goin"));
  EXPECT_TRUE(theDevice.mThread->GetIOGuard()->IsFree());
}

TEST(IOThread, AThrowingCommandEndsTheRun) {
  class Throwing : public HP_Command {
   public:
    Throwing() : HP_Command('test') {}
    void Execute(HP_Device*) override { throw CAException('test'); }
  };
  ThreadedDevice theDevice;
  theDevice.mOnCall = [&] { theDevice.ExecuteCommand(new Throwing); };
  theDevice.Run({kWhole, kWhole});
  EXPECT_EQ(theDevice.mCalls.size(), 1u);
}

}  // namespace
}  // namespace tembra::test
