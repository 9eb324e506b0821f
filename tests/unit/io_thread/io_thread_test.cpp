#include "device/HP_IOThread.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <cmath>
#include <limits>

#include "ThreadedDevice.h"

namespace tembra::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr UInt32 kTimeConstraints = THREAD_TIME_CONSTRAINT_POLICY;
constexpr UInt32 kPrecedence = THREAD_PRECEDENCE_POLICY;

AudioTimeStamp Now(ThreadedDevice& inDevice) {
  AudioTimeStamp theTime = {};
  inDevice.GetCurrentTime(theTime);
  return theTime;
}

std::vector<Float64> CallTimes(const ThreadedDevice& inDevice) {
  std::vector<Float64> theTimes;
  for (const auto& theCall : inDevice.mCalls) theTimes.push_back(theCall.mNow);
  return theTimes;
}

std::vector<UInt32> Cycles(const ThreadedDevice& inDevice) {
  std::vector<UInt32> theCycles;
  for (const auto& theCall : inDevice.mCalls) theCycles.push_back(theCall.mCycle);
  return theCycles;
}

std::vector<UInt32> Flavors() {
  std::vector<UInt32> theFlavors;
  for (const PolicyCall& theCall : SimulatedTime::Get().GetPolicies()) {
    theFlavors.push_back(theCall.mFlavor);
  }
  return theFlavors;
}

const ThreadedDevice::Step kWhole = ThreadedDevice::SleepWhole;

TEST(IOThread, IsNotRunningWhenMade) {
  ThreadedDevice theDevice;
  HP_IOThread& theThread = *theDevice.mThread;
  EXPECT_EQ(theThread.GetWorkLoopPhase(), 0u);
  EXPECT_EQ(theThread.GetIOCycleUsage(), 1.0f);
  EXPECT_EQ(theThread.GetIOCycleNumber(), 0u);
  EXPECT_FALSE(theThread.HasBeenStopped());
  EXPECT_FALSE(theThread.IsCurrentThread());
  EXPECT_STREQ(theThread.GetIOGuard()->GetName(), "IOGuard");
  AudioTimeStamp thePosition;
  theThread.GetCurrentPosition(thePosition);
  EXPECT_EQ(thePosition.mSampleTime, 0.0);
  EXPECT_EQ(thePosition.mFlags, 1u);
}

TEST(IOThread, UsageIsKeptBetweenZeroAndOne) {
  ThreadedDevice theDevice;
  HP_IOThread& theThread = *theDevice.mThread;
  const auto theStored = [&](Float32 inUsage) {
    theThread.SetIOCycleUsage(inUsage);
    return theThread.GetIOCycleUsage();
  };
  EXPECT_EQ(theStored(1.5f), 1.0f);
  EXPECT_EQ(theStored(-1.0f), 0.0f);
  EXPECT_EQ(theStored(0.25f), 0.25f);
  EXPECT_EQ(theStored(std::numeric_limits<Float32>::quiet_NaN()), 0.0f);
}

TEST(IOThread, NameEndsWithTheDevicesIDAndName) {
  for (const auto& [theName, theTail] :
       {std::pair<const char*, const char*>{"Some", "4000-Some"}, {nullptr, "4000-Unknown"}}) {
    ThreadedDevice theDevice(theName);
    std::string theThreadName;
    theDevice.mOnCall = [&] {
      char theBuffer[16] = {};
      pthread_getname_np(pthread_self(), theBuffer, sizeof(theBuffer));
      theThreadName = theBuffer;
    };
    theDevice.Run({kWhole});
    EXPECT_THAT(theThreadName, testing::EndsWith(theTail));
  }
}

TEST(IOThread, ARunGoesThroughItsPhases) {
  ThreadedDevice theDevice;
  HP_IOThread& theThread = *theDevice.mThread;
  std::vector<UInt32> thePhases;
  theDevice.mOnNotification = [&](UInt32) {
    thePhases.push_back(theThread.GetWorkLoopPhase());
    theDevice.Log(theDevice.IsIOEngineRunning() ? "running" : "not running");
  };
  theDevice.mOnCall = [&] {
    thePhases.push_back(theThread.GetWorkLoopPhase());
    EXPECT_TRUE(theThread.IsCurrentThread());
    theDevice.Log("call");
  };
  theDevice.Run({kWhole});
  EXPECT_THAT(thePhases, ElementsAre(HP_IOThread::kInitializingPhase, HP_IOThread::kRunningPhase,
                                     HP_IOThread::kTeardownPhase));
  EXPECT_THAT(theDevice.GetLog(), ElementsAre("clock on", "goin", "running", "call", "clock off",
                                              "goin", "not running"));
  EXPECT_EQ(theThread.GetWorkLoopPhase(), HP_IOThread::kNotRunningPhase);
  EXPECT_EQ(theThread.GetIOCycleNumber(), 0u);
}

TEST(IOThread, TimeConstraintsAreTheBuffersPeriodAndAreClearedAtTheEnd) {
  ThreadedDevice theDevice;
  std::vector<UInt32> theFlavorsInCall;
  theDevice.mOnNotification = [&](UInt32) {
    if (theFlavorsInCall.empty()) EXPECT_THAT(Flavors(), ElementsAre(kPrecedence));
  };
  theDevice.mOnCall = [&] { theFlavorsInCall = Flavors(); };
  theDevice.Run({kWhole});
  EXPECT_THAT(theFlavorsInCall, ElementsAre(kPrecedence, kTimeConstraints));
  EXPECT_THAT(Flavors(), ElementsAre(kPrecedence, kTimeConstraints, kPrecedence));
  // 512 microseconds; below 1.5 ms the quantum is half a millisecond.
  EXPECT_THAT(SimulatedTime::Get().GetPolicies()[1].mValues,
              ElementsAre(512000, 500000, 512000, 1));
}

TEST(IOThread, EachBufferIsDueAtItsEnd) {
  ThreadedDevice theDevice;
  theDevice.Run({kWhole, kWhole, kWhole});
  EXPECT_THAT(theDevice.mSleeps, ElementsAre(512000, 512000, 512000, 512000));
  ASSERT_THAT(CallTimes(theDevice), ElementsAre(512.0, 1024.0, 1536.0));
  EXPECT_THAT(Cycles(theDevice), ElementsAre(1, 2, 3));
  for (int i = 0; i < 3; ++i) {
    const auto& theCall = theDevice.mCalls[i];
    const Float64 theStart = 512.0 * (i + 1);
    EXPECT_EQ(theCall.mInputTime.mSampleTime, theStart - 10 - 512);
    EXPECT_EQ(theCall.mOutputTime.mSampleTime, theStart + 20 + 512);
    EXPECT_EQ(theCall.mInputTime.mFlags, 7u);
    EXPECT_EQ(theCall.mOutputTime.mFlags, 7u);
    EXPECT_TRUE(theCall.mGuardWasHeld);
  }
  EXPECT_THAT(theDevice.GetLog(), testing::Not(testing::Contains("guard held!")));
}

TEST(IOThread, UsageMovesTheOutputTime) {
  ThreadedDevice theDevice;
  theDevice.mThread->SetIOCycleUsage(0.25f);
  theDevice.Run({kWhole});
  EXPECT_EQ(theDevice.mCalls[0].mOutputTime.mSampleTime, 512 + 20 + 128);
}

TEST(IOThread, TimesOfADirectionWithoutStreamsAreZero) {
  ThreadedDevice theDevice;
  for (auto& theStream : theDevice.mStreams) {
    if (theStream->IsInput()) theDevice.RemoveStream(theStream.get());
  }
  theDevice.Run({kWhole});
  EXPECT_EQ(theDevice.mCalls[0].mInputTime.mFlags, 0u);
  EXPECT_EQ(theDevice.mCalls[0].mInputTime.mSampleTime, 0.0);
  EXPECT_EQ(theDevice.mCalls[0].mInputTime.mHostTime, 0u);
  EXPECT_EQ(theDevice.mCalls[0].mOutputTime.mFlags, 7u);
}

TEST(IOThread, LatenessWithinTheBufferIsMadeUpForByTheNextSleep) {
  ThreadedDevice theDevice;
  theDevice.Run({ThreadedDevice::Late(100), kWhole});
  EXPECT_THAT(theDevice.mSleeps, ElementsAre(512000, 412000, 512000));
  EXPECT_THAT(CallTimes(theDevice), ElementsAre(612.0, 1024.0));
}

TEST(IOThread, AShiftedClockIsFollowedAndLatenessIsNotCarriedOn) {
  ThreadedDevice theDevice;
  theDevice.mClockHasShifted = true;
  theDevice.Run({ThreadedDevice::Late(100), kWhole});
  EXPECT_THAT(theDevice.mSleeps, ElementsAre(512000, 512000, 512000));
  EXPECT_THAT(CallTimes(theDevice), ElementsAre(612.0, 1124.0));
  EXPECT_EQ(theDevice.mCalls[0].mOutputTime.mSampleTime, 612 + 20 + 512);
}

TEST(IOThread, AShiftedClockWithoutAnAnchorIsTakenAtThePresent) {
  ThreadedDevice theDevice;
  theDevice.mClockHasShifted = true;
  theDevice.mHasAnchor = false;  // asked at the start too, where the answer does not matter
  theDevice.Run({ThreadedDevice::Late(100)});
  EXPECT_EQ(theDevice.mCalls[0].mOutputTime.mSampleTime, 612 + 20 + 512);
}

// Overload.

TEST(IOThread, WakingPastTheEndOfTheBufferIsAnOverload) {
  ThreadedDevice theDevice;
  theDevice.Run({ThreadedDevice::Late(600), kWhole});
  EXPECT_THAT(theDevice.GetLog(), ElementsAre("clock on", "goin", "over", "clock off", "goin"));
  // Anchored anew at 1112.
  EXPECT_THAT(theDevice.mSleeps, ElementsAre(512000, 512000, 512000));
  EXPECT_THAT(CallTimes(theDevice), ElementsAre(1112.0, 1624.0));
}

TEST(IOThread, BeingAtTheLimitIsAnOverloadAndJustBelowItIsNot) {
  for (const auto& [theLateFrames, theIsOver] :
       {std::pair<UInt64, bool>{512, true}, {511, false}}) {
    ThreadedDevice theDevice;
    theDevice.Run({ThreadedDevice::Late(theLateFrames)});
    const std::vector<std::string> theLog = theDevice.GetLog();
    EXPECT_EQ(std::count(theLog.begin(), theLog.end(), "over"), theIsOver ? 1 : 0);
  }
}

TEST(IOThread, UsageLowersTheLimit) {
  ThreadedDevice theDevice;
  theDevice.mThread->SetIOCycleUsage(0.5f);
  theDevice.Run({ThreadedDevice::Late(256)});
  EXPECT_THAT(theDevice.GetLog(), testing::Contains("over"));
  ThreadedDevice theOther;
  theOther.mThread->SetIOCycleUsage(0.5f);
  theOther.Run({ThreadedDevice::Late(255)});
  EXPECT_THAT(theOther.GetLog(), testing::Not(testing::Contains("over")));
}

TEST(IOThread, WithUsageZeroAnyLatenessCountsAndOneReAnchoringIsEnough) {
  for (const UInt64 theLateNanos : {0, 1, 999, 1000, 5000}) {
    ThreadedDevice theDevice;
    theDevice.mThread->SetIOCycleUsage(0.0f);
    theDevice.Run(
        {[=](UInt64 inNanos) { return ThreadedDevice::SleepAndBeLate(inNanos, theLateNanos); }});
    EXPECT_THAT(theDevice.GetLog(), ElementsAre("clock on", "goin", "over", "clock off", "goin"))
        << theLateNanos;
  }
}

TEST(IOThread, ACycleThatDidNotGoNormallyIsTreatedAsAnOverload) {
  ThreadedDevice theDevice;
  theDevice.mCallAnswer = false;
  theDevice.Run({ThreadedDevice::Late(7)});
  EXPECT_THAT(theDevice.GetLog(), ElementsAre("clock on", "goin", "over", "clock off", "goin"));
  EXPECT_THAT(theDevice.mSleeps, ElementsAre(512000, 512000)) << "anchored at the present";
}

TEST(IOThread, AnOverloadIsToldOnceForEachLateCycle) {
  ThreadedDevice theDevice;
  theDevice.Run({ThreadedDevice::Late(600), kWhole, ThreadedDevice::Late(600)});
  const std::vector<std::string> theLog = theDevice.GetLog();
  EXPECT_EQ(std::count(theLog.begin(), theLog.end(), "over"), 2);
}

OSStatus Proc(AudioObjectID, const AudioTimeStamp*, const AudioBufferList*, const AudioTimeStamp*,
              AudioBufferList*, const AudioTimeStamp*, void*) {
  return 0;
}

class NotingCommand : public HP_Command {
 public:
  NotingCommand(ThreadedDevice& inDevice, std::string inText)
      : HP_Command('test'), mDevice(inDevice), mText(std::move(inText)) {}
  void Execute(HP_Device*) override { mDevice.Log(mText); }

 private:
  ThreadedDevice& mDevice;
  std::string mText;
};

TEST(IOThread, ALostClockDropsPendingCommandsAndStopsAllProcedures) {
  ThreadedDevice theDevice;
  theDevice.Do_AddIOProc(Proc, nullptr);
  theDevice.mOnNotification = [&](UInt32 inSelector) {
    if (inSelector != 'over') return;
    theDevice.mHasAnchor = false;
    theDevice.ExecuteCommand(new NotingCommand(theDevice, "dropped"));
  };
  theDevice.mSteps = {ThreadedDevice::Late(600)};
  theDevice.Do_StartIOProc(Proc);
  theDevice.AwaitEnd();
  EXPECT_THAT(theDevice.GetLog(), ElementsAre("clock on", "goin", "over", "clock off", "goin"));
  EXPECT_TRUE(theDevice.GetIOProcList()->IsNothingEnabled());
  EXPECT_EQ(theDevice.mSleeps.size(), 1u);
}

TEST(IOThread, AStopDuringTheOverloadNoticeNeedsNoSleep) {
  ThreadedDevice theDevice;
  theDevice.mOnNotification = [&](UInt32 inSelector) {
    if (inSelector == 'over') theDevice.mThread->Stop();
  };
  theDevice.Run({ThreadedDevice::Late(600)});
  EXPECT_EQ(theDevice.mSleeps.size(), 1u);
  EXPECT_EQ(theDevice.mCalls.size(), 1u);
}

// Early wake-ups and moved anchors.

TEST(IOThread, AnEarlyWakeUpCountsACycleAndDoesNoIO) {
  ThreadedDevice theDevice;
  theDevice.Run({ThreadedDevice::WokenAfter(100), kWhole});
  EXPECT_THAT(theDevice.mSleeps, ElementsAre(512000, 412000, 512000));
  EXPECT_THAT(CallTimes(theDevice), ElementsAre(512.0));
  EXPECT_THAT(Cycles(theDevice), ElementsAre(2)) << "the early wake-up was a cycle of its own";
}

TEST(IOThread, AnEarlyWakeUpMakesTheNextPassLookForOverload) {
  ThreadedDevice theDevice;
  theDevice.mThread->SetIOCycleUsage(0.0f);
  theDevice.Run({ThreadedDevice::WokenAfter(100)});
  EXPECT_THAT(theDevice.GetLog(), testing::Contains("over"));
}

TEST(IOThread, CommandsRunInEachPassAlsoWithoutIO) {
  ThreadedDevice theDevice;
  theDevice.Run({ThreadedDevice::WokenAfter(
      1, [&] { theDevice.ExecuteCommand(new NotingCommand(theDevice, "run")); })});
  EXPECT_THAT(theDevice.GetLog(), testing::Contains("run"));
  EXPECT_THAT(theDevice.mCalls, IsEmpty());
}

TEST(IOThread, AfterAResynchTheSampleTimeDecidesAboutAnEarlyWakeUp) {
  for (const auto& [theAhead, theCalls] : {std::pair<Float64, size_t>{0, 1}, {1, 0}}) {
    ThreadedDevice theDevice;
    const Float64 theFrames = theAhead;
    theDevice.Run({ThreadedDevice::WokenAfter(100, [&, theFrames] {
      AudioTimeStamp theAnchor = Now(theDevice);
      theAnchor.mSampleTime += theFrames;
      theDevice.mThread->Resynch(&theAnchor, true);
    })});
    EXPECT_EQ(theDevice.mCalls.size(), theCalls) << theAhead;
  }
}

// Runs Resynch with an anchor so many frames ahead of sample time 100 and tells where it came to.
AudioTimeStamp ResynchAt(Float64 inFramesAhead) {
  ThreadedDevice theDevice;
  AudioTimeStamp theAnchor = {};
  AudioTimeStamp thePosition = {};
  theDevice.Run({ThreadedDevice::WokenAfter(100, [&] {
    theAnchor = Now(theDevice);
    theAnchor.mSampleTime += inFramesAhead;
    theDevice.mThread->Resynch(&theAnchor, false);
    theDevice.mThread->GetCurrentPosition(thePosition);
  })});
  EXPECT_EQ(thePosition.mSampleTime, theAnchor.mSampleTime);
  EXPECT_EQ(thePosition.mHostTime, theAnchor.mHostTime);
  EXPECT_EQ(thePosition.mFlags, 1u);
  return theAnchor;
}

TEST(IOThreadResynch, AnAnchorExactlyTwoBuffersAheadIsTakenAsItIs) {
  EXPECT_EQ(ResynchAt(1024).mSampleTime, 1124.0);
  EXPECT_EQ(ResynchAt(-50).mSampleTime, 50.0);
}

TEST(IOThreadResynch, AnAnchorFurtherAheadIsPulledBackByWholeBuffers) {
  const UInt64 theOrigin = 1000000000;
  // n = 2: one buffer is taken off.
  AudioTimeStamp theAnchor = ResynchAt(1025);
  EXPECT_EQ(theAnchor.mSampleTime, 1125.0 - 512);
  EXPECT_EQ(theAnchor.mHostTime, theOrigin + (1125 - 512) * 1000);
  EXPECT_EQ(theAnchor.mFlags, 7u);
  EXPECT_EQ(ResynchAt(1535).mSampleTime, 1635.0 - 512);
  EXPECT_EQ(ResynchAt(1536).mSampleTime, 1636.0 - 2 * 512);
  EXPECT_EQ(ResynchAt(5120).mSampleTime, 5220.0 - 9 * 512);
}

TEST(IOThreadResynch, NullMeansThePresent) {
  ThreadedDevice theDevice;
  AudioTimeStamp thePosition = {};
  theDevice.Run({kWhole, ThreadedDevice::WokenAfter(100, [&] {
                   theDevice.mThread->Resynch(nullptr, false);
                   theDevice.mThread->GetCurrentPosition(thePosition);
                 })});
  EXPECT_EQ(thePosition.mSampleTime, 612.0);
}

TEST(IOThreadResynch, DoesNothingOutsideTheSteadyState) {
  ThreadedDevice theDevice;
  AudioTimeStamp theAnchor = {};
  theAnchor.mSampleTime = 5e6;
  theDevice.mThread->Resynch(&theAnchor, true);
  theDevice.mThread->Resynch(nullptr, true);
  EXPECT_EQ(theAnchor.mSampleTime, 5e6);
  AudioTimeStamp thePosition;
  theDevice.mThread->GetCurrentPosition(thePosition);
  EXPECT_EQ(thePosition.mSampleTime, 0.0);
}

TEST(IOThread, PositionAdvancesByWholeBuffers) {
  ThreadedDevice theDevice;
  std::vector<Float64> thePositions;
  theDevice.mOnCall = [&] {
    AudioTimeStamp thePosition;
    theDevice.mThread->GetCurrentPosition(thePosition);
    thePositions.push_back(thePosition.mSampleTime);
  };
  theDevice.Run({ThreadedDevice::Late(100), kWhole});
  EXPECT_THAT(thePositions, ElementsAre(512.0, 1024.0));
}

// Frame size.

TEST(IOThread, ANewFrameSizeComesAfterTheBufferOfTheOldSize) {
  ThreadedDevice theDevice;
  theDevice.Run({ThreadedDevice::WholeWith([&] { theDevice.SetIOBufferFrameSize(256, false); }),
                 kWhole, kWhole});
  // The buffer that was running is finished at once with its old size, and the one after it sleeps
  // to the end of its own.
  EXPECT_THAT(CallTimes(theDevice), ElementsAre(512.0, 512.0, 1536.0, 1792.0));
  EXPECT_THAT(theDevice.mSleeps, ElementsAre(512000, 1024000, 256000, 256000));
  EXPECT_THAT(Cycles(theDevice), ElementsAre(1, 2, 3, 4));
  std::vector<Float64> theOutputs;
  for (const auto& theCall : theDevice.mCalls)
    theOutputs.push_back(theCall.mOutputTime.mSampleTime);
  EXPECT_THAT(theOutputs,
              ElementsAre(512 + 20 + 512, 1024 + 20 + 512, 1536 + 20 + 256, 1792 + 20 + 256));
}

TEST(IOThread, AFrameSizeSetInACommandOfThePassTakesTheSameWay) {
  ThreadedDevice theDevice;
  theDevice.mOnCall = [&] {
    if (theDevice.mCalls.size() == 1) theDevice.Do_SetQuietIOBufferFrameSize(512 * 2);
  };
  theDevice.Run({kWhole, kWhole});
  EXPECT_THAT(CallTimes(theDevice), ElementsAre(512.0, 512.0, 1536.0));
  EXPECT_EQ(theDevice.mSleeps.back(), 1024000u);
}

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

// A sleep that lasts until someone asks for the stop.
int SleepUntilStopped(ThreadedDevice& inDevice) {
  while (!inDevice.mThread->HasBeenStopped()) std::this_thread::yield();
  return 0;
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
  theDevice.mThread->GetIOGuard();
  // Notifications of the end still find the thread object.
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

// Others look at the position while the thread moves it: they see an anchor and a counter that
// belong together. With the clock followed in each cycle the position is a wake-up's sample time.
TEST(IOThread, PositionIsReadWholeWhileTheThreadMovesIt) {
  ThreadedDevice theDevice;
  theDevice.mIsLogged = false;
  std::atomic<bool> theEnd{false};
  std::atomic<int> theReads{0};
  std::atomic<int> theTorn{0};
  std::thread theReader([&] {
    do {
      AudioTimeStamp thePosition;
      theDevice.mThread->GetCurrentPosition(thePosition);
      const auto theSampleTime = static_cast<SInt64>(thePosition.mSampleTime);
      if (theSampleTime % 512 != 0) ++theTorn;
      theDevice.mThread->GetIOCycleNumber();
      ++theReads;
    } while (!theEnd);
  });
  while (theReads < 1) std::this_thread::yield();
  theDevice.Run(std::deque<ThreadedDevice::Step>(2000, kWhole));
  theEnd = true;
  theReader.join();
  EXPECT_EQ(theTorn, 0);
}

}  // namespace
}  // namespace tembra::test
