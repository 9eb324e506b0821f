#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "objects/CAPropertyAddress.h"
#include "support/device/SimulatedDevice.h"

namespace tembra::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

OSStatus ProcA(AudioObjectID, const AudioTimeStamp*, const AudioBufferList*, const AudioTimeStamp*,
               AudioBufferList*, const AudioTimeStamp*, void*) {
  return 0;
}
OSStatus ProcB(AudioObjectID, const AudioTimeStamp*, const AudioBufferList*, const AudioTimeStamp*,
               AudioBufferList*, const AudioTimeStamp*, void*) {
  return 1;
}

class DeviceIOProcsTest : public testing::Test {
 protected:
  DeviceIOProcsTest() { mDevice.AddSimulatedStream(false, FloatFormat(2)); }

  HP_IOProcList& List() { return *mDevice.GetIOProcList(); }
  // What happened but for the taking of the guard.
  std::vector<std::string> Events() {
    std::vector<std::string> theEvents = mDevice.TakeEvents();
    std::erase(theEvents, "begin");
    std::erase(theEvents, "end");
    return theEvents;
  }
  AudioTimeStamp Time(Float64 inSampleTime) {
    AudioTimeStamp theTime = {};
    theTime.mSampleTime = inSampleTime;
    theTime.mFlags = kAudioTimeStampRateScalarValid;
    return theTime;
  }

  SimulatedDevice mDevice;
  int mDataA = 0;
  int mDataB = 0;
};

TEST_F(DeviceIOProcsTest, CreatingTwiceWithTheSameDataIsRefusedAndWithOtherDataNot) {
  const AudioDeviceIOProcID theID = mDevice.Do_CreateIOProcID(ProcA, &mDataA);
  EXPECT_EQ(reinterpret_cast<HP_IOProc*>(theID), List().GetIOProcByIndex(0));
  EXPECT_EQ(StatusOf([&] { mDevice.Do_CreateIOProcID(ProcA, &mDataA); }), 'nope');
  EXPECT_EQ(StatusOf([&] { mDevice.Do_CreateIOProcID(ProcA, &mDataB); }), 0);
  EXPECT_EQ(List().GetNumberIOProcs(), 2u);
  EXPECT_THAT(mDevice.TakeEvents(), ElementsAre("begin", "end", "begin", "end"));
}

TEST_F(DeviceIOProcsTest, CreatingIsRefusedWhereItCannotBeDoneAtOnce) {
  mDevice.mIsSafe = false;
  EXPECT_EQ(StatusOf([&] { mDevice.Do_CreateIOProcID(ProcA, &mDataA); }), 'nope');
  EXPECT_EQ(StatusOf([&] { mDevice.Do_CreateIOProcIDWithBlock(nullptr, nullptr); }), 'nope');
  EXPECT_EQ(List().GetNumberIOProcs(), 0u);
}

TEST_F(DeviceIOProcsTest, CreatingWithoutAStartMakesNothing) {
  mDevice.mStartAnswer = false;
  EXPECT_EQ(mDevice.Do_CreateIOProcID(ProcA, &mDataA), nullptr);
  EXPECT_EQ(List().GetNumberIOProcs(), 0u);
  EXPECT_TRUE(mDevice.mGuard.IsFree());
}

TEST_F(DeviceIOProcsTest, BlockIsRefusedASecondTimeOnTheSameQueue) {
  AudioDeviceIOBlock theBlock = ^(const AudioTimeStamp*, const AudioBufferList*,
                                  const AudioTimeStamp*, AudioBufferList*, const AudioTimeStamp*) {
  };
  const AudioDeviceIOProcID theID = mDevice.Do_CreateIOProcIDWithBlock(nullptr, theBlock);
  EXPECT_EQ(reinterpret_cast<HP_IOProc*>(theID), List().GetIOProcByIndex(0));
  EXPECT_EQ(StatusOf([&] { mDevice.Do_CreateIOProcIDWithBlock(nullptr, theBlock); }), 'nope');
}

TEST_F(DeviceIOProcsTest, AddInterfaceRefusesTheSameFunctionWhateverTheData) {
  mDevice.Do_AddIOProc(ProcA, &mDataA);
  EXPECT_EQ(StatusOf([&] { mDevice.Do_AddIOProc(ProcA, &mDataB); }), 'nope');
  EXPECT_FALSE(List().GetIOProcByIndex(0)->IsClientDataRelevant());
  mDevice.Do_AddIOProc(ProcB, &mDataA);
  EXPECT_TRUE(List().HasIOProcID(ProcB));
}

TEST_F(DeviceIOProcsTest, UnknownIDs) {
  mDevice.Do_DestroyIOProcID(ProcA);
  mDevice.Do_RemoveIOProc(ProcA);
  EXPECT_THAT(mDevice.TakeEvents(), IsEmpty()) << "no command was run";
  AudioTimeStamp theTime = Time(0);
  const UInt32 theUsage[] = {1};
  EXPECT_EQ(StatusOf([&] { mDevice.Do_StartIOProc(ProcA); }), 'nope');
  EXPECT_EQ(StatusOf([&] { mDevice.Do_StopIOProc(ProcA); }), 'nope');
  EXPECT_EQ(StatusOf([&] { mDevice.Do_StartIOProcAtTime(ProcA, theTime, 0); }), 'nope');
  EXPECT_EQ(StatusOf([&] { mDevice.Do_SetIOProcStreamUsage(ProcA, false, 1, theUsage); }), 'nope');
}

TEST_F(DeviceIOProcsTest, FirstStartStartsTheEngineAndLastStopStopsIt) {
  mDevice.Do_AddIOProc(ProcA, nullptr);
  mDevice.Do_AddIOProc(ProcB, nullptr);
  mDevice.Do_StartIOProc(ProcA);
  EXPECT_THAT(Events(), ElementsAre("start engine"));
  mDevice.Do_StartIOProc(ProcB);
  EXPECT_THAT(Events(), IsEmpty());
  mDevice.Do_StopIOProc(ProcA);
  EXPECT_THAT(Events(), IsEmpty());
  mDevice.Do_StopIOProc(ProcB);
  EXPECT_THAT(Events(), ElementsAre("stop engine"));
  EXPECT_FALSE(mDevice.IsIOEngineRunning());
}

TEST_F(DeviceIOProcsTest, StartingTheOneRunningThingAgainAsksTheEngineAgain) {
  mDevice.Do_AddIOProc(ProcA, nullptr);
  mDevice.Do_StartIOProc(ProcA);
  mDevice.Do_StartIOProc(ProcA);
  EXPECT_THAT(Events(), ElementsAre("start engine", "start engine"));
}

TEST_F(DeviceIOProcsTest, NullStartRunsTheEngineAndMakesNoRecord) {
  mDevice.Do_StartIOProc(nullptr);
  EXPECT_THAT(Events(), ElementsAre("start engine"));
  EXPECT_EQ(List().GetNumberIOProcs(), 0u);
  mDevice.Do_StopIOProc(nullptr);
  EXPECT_THAT(Events(), ElementsAre("stop engine"));
}

TEST_F(DeviceIOProcsTest, RemovingStopsFirst) {
  mDevice.Do_AddIOProc(ProcA, nullptr);
  mDevice.Do_StartIOProc(ProcA);
  Events();
  mDevice.Do_RemoveIOProc(ProcA);
  EXPECT_THAT(Events(), ElementsAre("stop engine"));
  EXPECT_FALSE(List().HasIOProcID(ProcA));

  const AudioDeviceIOProcID theID = mDevice.Do_CreateIOProcID(ProcB, &mDataA);
  mDevice.Do_DestroyIOProcID(theID);
  EXPECT_EQ(List().GetNumberIOProcs(), 0u);
}

TEST_F(DeviceIOProcsTest, StopAllStopsOnlyIfSomethingRuns) {
  mDevice.Do_StopAllIOProcs();
  EXPECT_THAT(Events(), IsEmpty());
  mDevice.Do_AddIOProc(ProcA, nullptr);
  mDevice.Do_StartIOProc(ProcA);
  mDevice.Do_StartIOProc(nullptr);
  Events();
  mDevice.Do_StopAllIOProcs();
  EXPECT_THAT(Events(), ElementsAre("stop engine"));
  EXPECT_TRUE(List().IsNothingEnabled());
}

TEST_F(DeviceIOProcsTest, StreamUsageReachesTheRecord) {
  mDevice.Do_AddIOProc(ProcA, nullptr);
  const UInt32 theUsage[] = {0};
  mDevice.Do_SetIOProcStreamUsage(ProcA, false, 1, theUsage);
  EXPECT_FALSE(List().GetIOProcByIndex(0)->IsStreamEnabled(false, 0));
}

TEST_F(DeviceIOProcsTest, TimedStartNeedsARunningEngine) {
  mDevice.Do_AddIOProc(ProcA, nullptr);
  AudioTimeStamp theTime = Time(5);
  EXPECT_EQ(StatusOf([&] { mDevice.Do_StartIOProcAtTime(ProcA, theTime, 0); }), 'stop');
  EXPECT_EQ(theTime.mSampleTime, 5.0);
  EXPECT_EQ(StatusOf([&] {
              mDevice.Do_StartIOProcAtTime(ProcA, theTime, kAudioDeviceStartTimeIsInputFlag);
            }),
            'stop')
      << "asked for before the streams";
}

TEST_F(DeviceIOProcsTest, TimedStartNeedsAStreamOfTheTimesDirection) {
  mDevice.Do_AddIOProc(ProcA, nullptr);
  mDevice.Do_StartIOProc(nullptr);
  AudioTimeStamp theTime = Time(5);
  EXPECT_EQ(StatusOf([&] {
              mDevice.Do_StartIOProcAtTime(ProcA, theTime, kAudioDeviceStartTimeIsInputFlag);
            }),
            'nope');
}

TEST_F(DeviceIOProcsTest, TimedStartGrantsTheNearestTimeAndMovesTheEngineBesideANullStart) {
  mDevice.Do_AddIOProc(ProcA, nullptr);
  mDevice.Do_StartIOProc(nullptr);
  Events();
  AudioTimeStamp theTime = Time(5);
  mDevice.Do_StartIOProcAtTime(ProcA, theTime, 2);
  EXPECT_EQ(mDevice.mTranslateFlags, 7u) << "what was asked, and sample and host time";
  EXPECT_EQ(theTime.mSampleTime, 1005.0);
  EXPECT_EQ(theTime.mHostTime, 50u);
  EXPECT_EQ(theTime.mFlags, 7u);
  EXPECT_THAT(Events(), ElementsAre("start engine at 1005"));
  EXPECT_FALSE(List().GetIOProcByIndex(0)->IsCallable(AudioTimeStamp(), Time(1004)));
  EXPECT_TRUE(List().GetIOProcByIndex(0)->IsCallable(AudioTimeStamp(), Time(1005)));
}

TEST_F(DeviceIOProcsTest, SecondTimedStartLeavesTheEngineAlone) {
  mDevice.Do_AddIOProc(ProcA, nullptr);
  mDevice.Do_AddIOProc(ProcB, nullptr);
  mDevice.Do_StartIOProc(ProcA);
  Events();
  AudioTimeStamp theTime = Time(5);
  mDevice.Do_StartIOProcAtTime(ProcB, theTime, 2);
  EXPECT_THAT(Events(), IsEmpty());
}

TEST_F(DeviceIOProcsTest, TimedStartOfTheNullIDIsAnOrdinaryOneAndLeavesTheTime) {
  AudioTimeStamp theTime = Time(5);
  mDevice.Do_StartIOProcAtTime(nullptr, theTime, kAudioDeviceStartTimeIsInputFlag);
  EXPECT_EQ(theTime.mSampleTime, 5.0);
  EXPECT_EQ(theTime.mFlags, 4u);
  EXPECT_THAT(Events(), ElementsAre("start engine"));
}

TEST_F(DeviceIOProcsTest, OnTheIOThreadAStopIsDeferredAndTakesEffectWithAllCommands) {
  mDevice.Do_AddIOProc(ProcA, nullptr);
  mDevice.Do_StartIOProc(ProcA);
  mDevice.mIsSafe = false;
  mDevice.Do_StopIOProc(ProcA);
  EXPECT_TRUE(List().GetIOProcByIndex(0)->IsEnabled());
  mDevice.ExecuteAllCommands();
  EXPECT_FALSE(List().GetIOProcByIndex(0)->IsEnabled());
}

// Buffer sizes.

class BufferSizeTest : public testing::Test {
 protected:
  explicit BufferSizeTest(Float64 inRate = 44100.0) {
    mStream = mDevice.AddSimulatedStream(false, FloatFormat(2, inRate));
  }
  SimulatedDevice mDevice;
  SimulatedStream* mStream;
};

TEST_F(BufferSizeTest, LimitsFollowTheRate) {
  EXPECT_EQ(mDevice.GetMinimumIOBufferFrameSize(), 14u);
  EXPECT_EQ(mDevice.GetMaximumIOBufferFrameSize(), 11025u);
  mStream->SetFormat(FloatFormat(2, 48000.0));
  EXPECT_EQ(mDevice.GetMinimumIOBufferFrameSize(), 15u);
  EXPECT_EQ(mDevice.GetMaximumIOBufferFrameSize(), 12000u);
}

TEST_F(BufferSizeTest, LimitsAreValidSizesThemselves) {
  EXPECT_FALSE(mDevice.IsValidIOBufferFrameSize(13));
  EXPECT_TRUE(mDevice.IsValidIOBufferFrameSize(14));
  EXPECT_TRUE(mDevice.IsValidIOBufferFrameSize(11025));
  EXPECT_FALSE(mDevice.IsValidIOBufferFrameSize(11026));
}

TEST_F(BufferSizeTest, NonLinearStreamAllowsThePresentSizeOnly) {
  mDevice.AddSimulatedStream(true, CompressedFormat(1536));
  EXPECT_EQ(mDevice.GetMinimumIOBufferFrameSize(), 512u);
  EXPECT_EQ(mDevice.GetMaximumIOBufferFrameSize(), 512u);
  EXPECT_FALSE(mDevice.IsValidIOBufferFrameSize(511));
  EXPECT_TRUE(mDevice.IsValidIOBufferFrameSize(512));
  EXPECT_EQ(StatusOf([&] { mDevice.Do_SetIOBufferFrameSize(513); }), 'nope');
}

TEST_F(BufferSizeTest, WithoutARateThePresentSizeStays) {
  SimulatedDevice theEmptyDevice;
  mStream->SetFormat(FloatFormat(2, 0.0));
  for (SimulatedDevice* theDevice : {&theEmptyDevice, &mDevice}) {
    ASSERT_EQ(theDevice->GetCurrentNominalSampleRate(), 0.0);
    EXPECT_EQ(theDevice->DetermineIOBufferFrameSize(), 512u);
    EXPECT_EQ(theDevice->GetMinimumIOBufferFrameSize(), 512u);
    EXPECT_EQ(theDevice->GetMaximumIOBufferFrameSize(), 512u);
    EXPECT_EQ(StatusOf([&] { theDevice->Do_SetIOBufferFrameSize(0); }), 'nope');
    EXPECT_EQ(StatusOf([&] { theDevice->Do_SetQuietIOBufferFrameSize(0); }), 'nope');
    EXPECT_EQ(theDevice->GetIOBufferFrameSize(), 512u);
  }
}

TEST_F(BufferSizeTest, InvalidSizesAreRefused) {
  EXPECT_EQ(StatusOf([&] { mDevice.Do_SetIOBufferFrameSize(13); }), 'nope');
  EXPECT_EQ(StatusOf([&] { mDevice.Do_SetQuietIOBufferFrameSize(11026); }), 'nope');
  EXPECT_EQ(mDevice.GetIOBufferFrameSize(), 512u);
}

TEST_F(BufferSizeTest, ThePresentSizeRunsNoCommand) {
  mDevice.Do_SetIOBufferFrameSize(512);
  mDevice.Do_SetQuietIOBufferFrameSize(512);
  EXPECT_THAT(mDevice.TakeEvents(), IsEmpty());
}

TEST_F(BufferSizeTest, AChangeTellsTheDeviceThenTheClientsWithTheGuardReleased) {
  mDevice.mOnSizeChanged = [](CAPropertyAddressList& ioChanges) {
    ASSERT_EQ(ioChanges.GetNumberItems(), 2u);
    ioChanges.AppendItem(CAPropertyAddress('more'));
  };
  mDevice.Do_SetIOBufferFrameSize(256);
  EXPECT_EQ(mDevice.GetIOBufferFrameSize(), 256u);
  EXPECT_THAT(mDevice.TakeEvents(), ElementsAre("begin", "size changed", "properties", "end"));
  EXPECT_FALSE(mDevice.mGuardWasHeldForNotification);
  EXPECT_TRUE(mDevice.mGuard.IsFree());
  ASSERT_EQ(mDevice.mNotifications.size(), 3u);
  const UInt32 theSelectors[] = {0x6273697A, 0x6673697A, 'more'};
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(mDevice.mNotifications[i].mSelector, theSelectors[i]);
    EXPECT_EQ(mDevice.mNotifications[i].mScope, kAudioObjectPropertyScopeGlobal);
    EXPECT_EQ(mDevice.mNotifications[i].mElement, 0u);
  }
}

TEST_F(BufferSizeTest, TheGuardIsTakenAgainForACallerWhoHeldIt) {
  CAMutex::Locker theLocker(mDevice.mGuard);
  mDevice.SetIOBufferFrameSize(256, true);
  EXPECT_FALSE(mDevice.mGuardWasHeldForNotification);
  EXPECT_TRUE(mDevice.mGuard.IsOwnedByCurrentThread());
}

TEST_F(BufferSizeTest, AGuardThatWasNotHeldIsLeftAlone) {
  mDevice.SetIOBufferFrameSize(256, true);
  EXPECT_TRUE(mDevice.mGuard.IsFree());
  mDevice.mHasGuard = false;
  mDevice.SetIOBufferFrameSize(128, true);
  EXPECT_TRUE(mDevice.mGuard.IsFree());
}

TEST_F(BufferSizeTest, AQuietChangeSendsNothing) {
  mDevice.Do_SetQuietIOBufferFrameSize(256);
  EXPECT_EQ(mDevice.GetIOBufferFrameSize(), 256u);
  EXPECT_THAT(mDevice.TakeEvents(), ElementsAre("begin", "size changed quietly", "end"));
  EXPECT_THAT(mDevice.mNotifications, IsEmpty());
}

TEST_F(BufferSizeTest, AChangeRebuildsTheBuffersOfStartedProcedures) {
  mDevice.Do_AddIOProc(ProcA, nullptr);
  mDevice.Do_StartIOProc(ProcA);
  mDevice.Do_SetIOBufferFrameSize(256);
  EXPECT_EQ(mDevice.GetIOProcList()
                ->GetIOProcByIndex(0)
                ->GetAudioBufferList(false)
                ->mBuffers[0]
                .mDataByteSize,
            256u * 8);
}

TEST_F(BufferSizeTest, TheDeviceIsToldWhenSizeAndBuffersAreNew) {
  mDevice.Do_AddIOProc(ProcA, nullptr);
  mDevice.Do_StartIOProc(ProcA);
  UInt32 theFrames = 0;
  UInt32 theBytes = 0;
  mDevice.mOnSizeChanged = [&](CAPropertyAddressList&) {
    theFrames = mDevice.GetIOBufferFrameSize();
    const HP_IOProc* theIOProc = mDevice.GetIOProcList()->GetIOProcByIndex(0);
    theBytes = theIOProc->GetAudioBufferList(false)->mBuffers[0].mDataByteSize;
  };
  mDevice.Do_SetIOBufferFrameSize(256);
  EXPECT_EQ(theFrames, 256u);
  EXPECT_EQ(theBytes, 256u * 8);
}

TEST_F(BufferSizeTest, WithoutAListOfProceduresAChangeIsStillMade) {
  SimulatedDevice theDevice(false, false);
  theDevice.SetIOBufferFrameSize(64, false);
  EXPECT_EQ(theDevice.GetIOBufferFrameSize(), 64u);
}

TEST_F(BufferSizeTest, DeterminedSizeLiesWithinTheLimits) {
  EXPECT_EQ(mDevice.DetermineIOBufferFrameSize(), 512u);
  mDevice.SetIOBufferFrameSize(20000, false);
  EXPECT_EQ(mDevice.DetermineIOBufferFrameSize(), 11025u);
  mDevice.SetIOBufferFrameSize(1, false);
  EXPECT_EQ(mDevice.DetermineIOBufferFrameSize(), 14u);
  mDevice.AddSimulatedStream(false, CompressedFormat(1536));
  EXPECT_EQ(mDevice.DetermineIOBufferFrameSize(), 1536u);
  mDevice.AddSimulatedStream(true, CompressedFormat(1152));
  EXPECT_EQ(mDevice.DetermineIOBufferFrameSize(), 1152u) << "input streams come first";
}

TEST_F(BufferSizeTest, DefaultSizeGrowsWithTheRate) {
  const struct {
    Float64 mRate;
    UInt32 mFrames;
  } kRows[] = {{0, 256},       {31999.9, 256}, {32000, 512},   {44100, 512},
               {63999, 512},   {64000, 1024},  {127999, 1024}, {128000, 2048},
               {255999, 2048}, {256000, 4096}, {1000000, 4096}};
  for (const auto& theRow : kRows) {
    EXPECT_EQ(mDevice.GetDefaultIOBufferSizeForSampleRate(theRow.mRate), theRow.mFrames)
        << theRow.mRate;
  }
}

}  // namespace
}  // namespace tembra::test
