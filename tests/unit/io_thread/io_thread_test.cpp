#include "device/HP_IOThread.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <cmath>
#include <limits>

#include "IOThreadTest.h"

namespace tembra::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

AudioTimeStamp Now(ThreadedDevice& inDevice) {
  AudioTimeStamp theTime = {};
  inDevice.GetCurrentTime(theTime);
  return theTime;
}

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

TEST(IOThread, NameIsMadeOfTheDevicesIDAndNameAndCutAt63Bytes) {
  const std::string theLongName(100, 'x');
  const std::pair<const char*, std::string> kRows[] = {
      {"Some", "com.apple.audio.hal.io.4000-Some"},
      {nullptr, "com.apple.audio.hal.io.4000-Unknown"},
      {theLongName.c_str(), "com.apple.audio.hal.io.4000-" + std::string(63 - 28, 'x')}};
  for (const auto& [theName, theThreadName] : kRows) {
    ThreadedDevice theDevice(theName);
    theDevice.Run({kWhole});
    EXPECT_EQ(SimulatedTime::Get().GetThreadName(), theThreadName);
  }
}

TEST(IOThread, PriorityIsTheHighestAndNotFixed) {
  ThreadedDevice theDevice;
  UInt32 theScheduledPriority = 0;
  theDevice.mOnCall = [&] {
    theScheduledPriority = CAPThread::getScheduledPriority(pthread_self());
  };
  theDevice.Run({kWhole});
  const PolicyCall theFirst = SimulatedTime::Get().GetPolicies()[0];
  EXPECT_EQ(theFirst.mFlavor, kPrecedence);
  EXPECT_THAT(theFirst.mValues, ElementsAre(63 - static_cast<integer_t>(theScheduledPriority)));
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

TEST(IOThread, AfterAShiftOfTheClockTheProceduresGetThePresentTimeAnew) {
  ThreadedDevice theDevice;
  theDevice.mClockHasShifted = true;
  theDevice.mFramesToAnchor = 30;
  theDevice.Run({kWhole});
  EXPECT_THAT(CallTimes(theDevice), ElementsAre(512.0 + 30));
  EXPECT_EQ(theDevice.mCalls[0].mOutputTime.mSampleTime, 512 + 20 + 512) << "from the anchor";
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

TEST(IOThread, TheNewAnchorIsThePresentAfterTheNotice) {
  ThreadedDevice theDevice;
  theDevice.mOnNotification = [](UInt32 inSelector) {
    if (inSelector == 'over') SimulatedTime::Get().mNow += 50 * ThreadedDevice::kNanosPerFrame;
  };
  theDevice.Run({ThreadedDevice::Late(600), kWhole});
  EXPECT_THAT(theDevice.mSleeps, ElementsAre(512000, 512000, 512000));
  EXPECT_THAT(CallTimes(theDevice), ElementsAre(1112.0, 1162.0 + 512));
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

TEST(IOThread, TheBufferOfTheOldSizeIsFinishedOnceWhateverWakesTheThread) {
  ThreadedDevice theDevice;
  theDevice.Run({ThreadedDevice::WholeWith([&] { theDevice.SetIOBufferFrameSize(256, false); }),
                 ThreadedDevice::WokenAfter(100), kWhole, kWhole});
  EXPECT_THAT(CallTimes(theDevice), ElementsAre(512.0, 512.0, 1536.0, 1792.0));
  EXPECT_THAT(theDevice.mSleeps, ElementsAre(512000, 1024000, 924000, 256000, 256000));
}

TEST(IOThread, FinishingABufferOfTheOldSizeIsNoOverloadHoweverLate) {
  ThreadedDevice theDevice;
  theDevice.Run({[&](UInt64 inNanos) {
    theDevice.SetIOBufferFrameSize(256, false);
    return ThreadedDevice::SleepAndBeLate(inNanos, 1100 * ThreadedDevice::kNanosPerFrame);
  }});
  EXPECT_THAT(CallTimes(theDevice), ElementsAre(1612.0, 1612.0, 1612.0));
  EXPECT_THAT(theDevice.GetLog(), testing::Not(testing::Contains("over")));
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
