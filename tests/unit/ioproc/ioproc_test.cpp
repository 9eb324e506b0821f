#include "device/HP_IOProc.h"

#include <Block.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "support/CAAudioBufferList.h"
#include "support/HP_SystemInfo.h"
#include "support/device/SimulatedDevice.h"

namespace tembra::test {
namespace {

struct CallRecord {
  int mCount = 0;
  AudioObjectID mDevice = 0;
  const AudioTimeStamp* mNow = nullptr;
  const AudioBufferList* mInput = nullptr;
  const AudioTimeStamp* mInputTime = nullptr;
  AudioBufferList* mOutput = nullptr;
  const AudioTimeStamp* mOutputTime = nullptr;
};

OSStatus RecordCall(AudioObjectID inDevice, const AudioTimeStamp* inNow,
                    const AudioBufferList* inInput, const AudioTimeStamp* inInputTime,
                    AudioBufferList* outOutput, const AudioTimeStamp* inOutputTime,
                    void* inClientData) {
  CallRecord& theRecord = *static_cast<CallRecord*>(inClientData);
  theRecord = {theRecord.mCount + 1, inDevice,  inNow,       inInput,
               inInputTime,          outOutput, inOutputTime};
  return 'what';
}

AudioTimeStamp At(Float64 inSampleTime) {
  AudioTimeStamp theTime = {};
  theTime.mSampleTime = inSampleTime;
  theTime.mFlags = kAudioTimeStampSampleTimeValid;
  return theTime;
}

class IOProcTest : public testing::Test {
 protected:
  HP_IOProc Make(bool inAllocates = true, bool inIncludesHeader = false) {
    return HP_IOProc(&mDevice, RecordCall, &mCalls, true, SimulatedDevice::kIOBufferSetID,
                     inAllocates, inIncludesHeader);
  }
  void Call(HP_IOProc& inIOProc, Float64 inInputTime = 0, Float64 inOutputTime = 0) {
    inIOProc.Call(At(0), At(inInputTime), nullptr, At(inOutputTime), nullptr);
  }
  static void Free(HP_IOProc& ioIOProc) {
    ioIOProc.FreeBufferList(true);
    ioIOProc.FreeBufferList(false);
  }
  static float* Samples(const HP_IOProc& inIOProc, UInt32 inIndex = 0) {
    return static_cast<float*>(inIOProc.GetAudioBufferList(false)->mBuffers[inIndex].mData);
  }

  CallRecord mCalls;
  SimulatedDevice mDevice;
};

TEST_F(IOProcTest, IsStoppedAndHasNoBuffersWhenMade) {
  mDevice.AddSimulatedStream(false, FloatFormat(2));
  const HP_IOProc theIOProc = Make();
  EXPECT_EQ(theIOProc.GetIOProc(), &RecordCall);
  EXPECT_EQ(theIOProc.GetClientData(), &mCalls);
  EXPECT_TRUE(theIOProc.IsClientDataRelevant());
  EXPECT_EQ(theIOProc.GetIOBlock(), static_cast<AudioDeviceIOBlock>(nullptr));
  EXPECT_EQ(theIOProc.GetDispatchQueue(), nullptr);
  EXPECT_FALSE(theIOProc.IsEnabled());
  EXPECT_FALSE(theIOProc.IsCallable(At(0), At(0)));
  for (const bool theIsInput : {true, false}) {
    EXPECT_EQ(theIOProc.GetAudioBufferList(theIsInput), nullptr);
    EXPECT_TRUE(theIOProc.GetIOBufferList(theIsInput).empty());
    EXPECT_FALSE(theIOProc.BufferListHasData(theIsInput));
  }
}

TEST_F(IOProcTest, StartWithoutTimeIsCallableAtOnceAndForgetsAnEarlierTime) {
  HP_IOProc theIOProc = Make();
  theIOProc.StartAtTime(At(1e9), 2);
  EXPECT_FALSE(theIOProc.IsCallable(At(0), At(0)));
  theIOProc.Start();
  EXPECT_TRUE(theIOProc.IsCallable(At(0), At(0)));
  theIOProc.Stop();
  EXPECT_FALSE(theIOProc.IsCallable(At(0), At(0)));
}

TEST_F(IOProcTest, StaysSilentBeforeItsOutputTimeAndIsCalledAtExactlyThatTime) {
  HP_IOProc theIOProc = Make();
  theIOProc.StartAtTime(At(1000), 2);
  Call(theIOProc, 5000, 999);
  EXPECT_EQ(mCalls.mCount, 0);
  Call(theIOProc, 0, 1000);
  EXPECT_EQ(mCalls.mCount, 1);
  Call(theIOProc, 0, 1001);
  EXPECT_EQ(mCalls.mCount, 2);
}

TEST_F(IOProcTest, StartTimeWithFlagsZeroCountsAsNoStartTime) {
  HP_IOProc theIOProc = Make();
  theIOProc.StartAtTime(At(1000), 0);
  EXPECT_TRUE(theIOProc.IsCallable(At(0), At(0)));
}

TEST_F(IOProcTest, BitZeroOfTheFlagsComparesInputTimeEvenWithoutInputStreams) {
  ASSERT_FALSE(mDevice.HasInputStreams());
  HP_IOProc theIOProc = Make();
  theIOProc.StartAtTime(At(1000), kAudioDeviceStartTimeIsInputFlag);
  EXPECT_FALSE(theIOProc.IsCallable(At(999), At(5000)));
  EXPECT_TRUE(theIOProc.IsCallable(At(1000), At(0)));
}

TEST_F(IOProcTest, WantsEveryStreamUntilToldOtherwise) {
  for (int i = 0; i < 3; ++i) mDevice.AddSimulatedStream(false, FloatFormat(2));
  HP_IOProc theIOProc = Make();
  EXPECT_TRUE(theIOProc.GetStreamUsage(false).empty());
  EXPECT_TRUE(theIOProc.IsAnyStreamEnabled(false));
  theIOProc.Start();
  theIOProc.AllocateBufferLists();
  ASSERT_EQ(theIOProc.GetIOBufferList(false).size(), 3u);
  for (UInt32 i = 0; i < 3; ++i) {
    EXPECT_NE(theIOProc.GetIOBufferList(false)[i], nullptr);
    EXPECT_NE(theIOProc.GetAudioBufferList(false)->mBuffers[i].mData, nullptr);
  }
  theIOProc.Stop();
  theIOProc.DeallocateBufferLists();
}

TEST_F(IOProcTest, UsageIsCutAtTheNumberOfStreamsAndShortUsageMeansWanted) {
  for (int i = 0; i < 2; ++i) mDevice.AddSimulatedStream(false, FloatFormat(2));
  HP_IOProc theIOProc = Make();
  const bool theUsage[] = {false, false, false, false};
  theIOProc.SetStreamUsage(false, 4, theUsage);
  EXPECT_EQ(theIOProc.GetStreamUsage(false).size(), 2u);
  EXPECT_FALSE(theIOProc.IsAnyStreamEnabled(false));
  EXPECT_TRUE(theIOProc.IsStreamEnabled(false, 2)) << "past the end counts as wanted";

  theIOProc.SetStreamUsage(false, 1, theUsage);
  EXPECT_FALSE(theIOProc.IsStreamEnabled(false, 0));
  EXPECT_TRUE(theIOProc.IsStreamEnabled(false, 1));
  EXPECT_TRUE(theIOProc.IsAnyStreamEnabled(false)) << "the device has more streams than are named";

  const bool theOther[] = {false, true};
  theIOProc.SetStreamUsage(false, 2, theOther);
  EXPECT_TRUE(theIOProc.IsAnyStreamEnabled(false));
}

TEST_F(IOProcTest, AskedForMoreUsageThanThereAreStreamsItAnswersFalseForTheRest) {
  for (int i = 0; i < 2; ++i) mDevice.AddSimulatedStream(true, FloatFormat(2));
  HP_IOProc theIOProc = Make();
  const bool theSet[] = {false};
  theIOProc.SetStreamUsage(true, 1, theSet);
  bool theUsage[4] = {true, false, true, true};
  theIOProc.GetStreamUsage(true, 4, theUsage);
  EXPECT_THAT(theUsage, testing::ElementsAre(false, true, false, false));
  bool theFirst[1] = {true};
  theIOProc.GetStreamUsage(true, 1, theFirst);
  EXPECT_FALSE(theFirst[0]);
}

TEST_F(IOProcTest, AllocationDoesNothingForAStoppedRecord) {
  SimulatedStream* theStream = mDevice.AddSimulatedStream(false, FloatFormat(2));
  HP_IOProc theIOProc = Make();
  theIOProc.AllocateBufferLists();
  EXPECT_EQ(theIOProc.GetAudioBufferList(false), nullptr);
  EXPECT_TRUE(theStream->mRegistrations.empty());
}

TEST_F(IOProcTest, DeallocationRebuildsTheListsOfAStartedRecord) {
  SimulatedStream* theStream = mDevice.AddSimulatedStream(false, FloatFormat(2));
  HP_IOProc theIOProc = Make();
  theIOProc.Start();
  theIOProc.AllocateBufferLists();
  theIOProc.DeallocateBufferLists();
  EXPECT_EQ(theStream->mRegistrations.size(), 2u);
  EXPECT_EQ(theStream->mUnregistrations.size(), 1u);
  ASSERT_NE(theIOProc.GetAudioBufferList(false), nullptr);
  ASSERT_EQ(theIOProc.GetIOBufferList(false).size(), 1u);
  EXPECT_EQ(theIOProc.GetAudioBufferList(false)->mBuffers[0].mData,
            theIOProc.GetIOBufferList(false)[0]->GetData());
  Free(theIOProc);
}

TEST_F(IOProcTest, BufferHasAHeaderAndRoomForThePadding) {
  mDevice.mPadding = 3;
  SimulatedStream* theStream = mDevice.AddSimulatedStream(false, FloatFormat(2));
  HP_IOProc theIOProc = Make();
  theIOProc.Start();
  theIOProc.AllocateBufferLists();
  ASSERT_EQ(theIOProc.GetIOBufferList(false).size(), 1u);
  HP_IOProc::IOBuffer* theBuffer = theIOProc.GetIOBufferList(false)[0];
  EXPECT_EQ(theBuffer->mActualDataByteSize, 512u * 8);
  EXPECT_EQ(theBuffer->mActualDataFrameSize, 512u);
  EXPECT_EQ(theBuffer->mCapacityByteSize, 515u * 8);
  EXPECT_EQ(theBuffer->mNominalDataByteSize, 512u * 8);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(theBuffer) % 4096, 0u);
  EXPECT_EQ(theBuffer->GetData(), reinterpret_cast<UInt8*>(theBuffer) + 16);
  const std::vector<UInt8> theSilence(515 * 8, 0);
  EXPECT_EQ(std::memcmp(theBuffer->GetData(), theSilence.data(), theSilence.size()), 0);

  const AudioBuffer& theEntry = theIOProc.GetAudioBufferList(false)->mBuffers[0];
  EXPECT_EQ(theEntry.mNumberChannels, 2u);
  EXPECT_EQ(theEntry.mDataByteSize, 512u * 8);
  EXPECT_EQ(theEntry.mData, theBuffer->GetData());

  const SimulatedStream::Registration theRegistration{7, 515 * 8, theBuffer->GetData()};
  EXPECT_THAT(theStream->mRegistrations, testing::ElementsAre(theRegistration));
  theIOProc.Stop();
  theIOProc.ReallocateBufferLists();
  EXPECT_THAT(theStream->mUnregistrations, testing::ElementsAre(theRegistration));
  EXPECT_EQ(theIOProc.GetAudioBufferList(false), nullptr);
  EXPECT_TRUE(theIOProc.GetIOBufferList(false).empty());
}

TEST_F(IOProcTest, StreamIsToldOfTheHeaderIfTheSetIncludesIt) {
  SimulatedStream* theStream = mDevice.AddSimulatedStream(false, FloatFormat(2));
  HP_IOProc theIOProc = Make(true, true);
  theIOProc.Start();
  theIOProc.AllocateBufferLists();
  const SimulatedStream::Registration theRegistration{7, 512 * 8 + 16,
                                                      theIOProc.GetIOBufferList(false)[0]};
  EXPECT_THAT(theStream->mRegistrations, testing::ElementsAre(theRegistration));
  Free(theIOProc);
  EXPECT_THAT(theStream->mUnregistrations, testing::ElementsAre(theRegistration));
}

TEST_F(IOProcTest, UnwantedStreamHasANullBufferAndACorrectSize) {
  for (int i = 0; i < 3; ++i) mDevice.AddSimulatedStream(false, FloatFormat(2));
  HP_IOProc theIOProc = Make();
  const bool theUsage[] = {true, false, true};
  theIOProc.SetStreamUsage(false, 3, theUsage);
  theIOProc.Start();
  theIOProc.AllocateBufferLists();
  ASSERT_EQ(theIOProc.GetIOBufferList(false).size(), 3u);
  EXPECT_NE(theIOProc.GetIOBufferList(false)[0], nullptr);
  EXPECT_EQ(theIOProc.GetIOBufferList(false)[1], nullptr);
  EXPECT_NE(theIOProc.GetIOBufferList(false)[2], nullptr);
  const AudioBuffer& theEntry = theIOProc.GetAudioBufferList(false)->mBuffers[1];
  EXPECT_EQ(theEntry.mData, nullptr);
  EXPECT_EQ(theEntry.mDataByteSize, 512u * 8);
  EXPECT_EQ(theEntry.mNumberChannels, 2u);
  Free(theIOProc);
}

TEST_F(IOProcTest, RecordWithoutStorageHasNullDataOnly) {
  SimulatedStream* theStream = mDevice.AddSimulatedStream(false, FloatFormat(2));
  HP_IOProc theIOProc = Make(false);
  theIOProc.Start();
  theIOProc.AllocateBufferLists();
  EXPECT_THAT(theIOProc.GetIOBufferList(false), testing::ElementsAre(nullptr));
  EXPECT_EQ(theIOProc.GetAudioBufferList(false)->mBuffers[0].mData, nullptr);
  EXPECT_TRUE(theStream->mRegistrations.empty());
  Free(theIOProc);
}

TEST_F(IOProcTest, FreeingSkipsTheUnregistrationOfAStreamThatIsGone) {
  SimulatedStream* theStream = mDevice.AddSimulatedStream(false, FloatFormat(2));
  HP_IOProc theIOProc = Make();
  theIOProc.Start();
  theIOProc.AllocateBufferLists();
  mDevice.RemoveStream(theStream);
  Free(theIOProc);
  EXPECT_TRUE(theStream->mUnregistrations.empty());
  EXPECT_TRUE(theIOProc.GetIOBufferList(false).empty());
}

TEST_F(IOProcTest, RefreshClearsOutputAndRestoresTheEntry) {
  mDevice.AddSimulatedStream(false, FloatFormat(2));
  HP_IOProc theIOProc = Make();
  theIOProc.Start();
  theIOProc.AllocateBufferLists();
  Samples(theIOProc)[5] = 0.5f;
  EXPECT_TRUE(theIOProc.BufferListHasData(false));
  AudioBuffer& theEntry = theIOProc.GetAudioBufferList(false)->mBuffers[0];
  void* theData = theEntry.mData;
  theEntry = {9, 1, nullptr};
  theIOProc.RefreshBufferList(false);
  EXPECT_EQ(theEntry.mNumberChannels, 2u);
  EXPECT_EQ(theEntry.mDataByteSize, 512u * 8);
  EXPECT_EQ(theEntry.mData, theData);
  EXPECT_FALSE(theIOProc.BufferListHasData(false));
  Free(theIOProc);
}

TEST_F(IOProcTest, RefreshOfAnEntryWithoutBufferGivesItsSizeAndNullData) {
  mDevice.AddSimulatedStream(false, FloatFormat(2));
  HP_IOProc theIOProc = Make(false);
  theIOProc.Start();
  theIOProc.AllocateBufferLists();
  AudioBuffer& theEntry = theIOProc.GetAudioBufferList(false)->mBuffers[0];
  float theSample = 0;
  theEntry = {9, 1, &theSample};
  theIOProc.RefreshBufferList(false);
  EXPECT_EQ(theEntry.mNumberChannels, 2u);
  EXPECT_EQ(theEntry.mDataByteSize, 512u * 8);
  EXPECT_EQ(theEntry.mData, nullptr);
  Free(theIOProc);
}

TEST_F(IOProcTest, InputIsNotClearedWhileTheProcessDoesIO) {
  ASSERT_TRUE(HP_SystemInfo::IsCurrentProcessDoingIO());
  mDevice.AddSimulatedStream(true, FloatFormat(2));
  HP_IOProc theIOProc = Make();
  theIOProc.Start();
  theIOProc.AllocateBufferLists();
  float* theSamples = static_cast<float*>(theIOProc.GetAudioBufferList(true)->mBuffers[0].mData);
  theSamples[0] = 1.0f;
  theIOProc.RefreshBufferList(true);
  EXPECT_EQ(theSamples[0], 1.0f);
  Free(theIOProc);
}

TEST_F(IOProcTest, ActualSizesComeFromTheHeaderOrAreCalculated) {
  mDevice.AddSimulatedStream(false, FloatFormat(2));
  HP_IOProc theIOProc = Make();
  UInt32 theBytes = 1;
  UInt32 theFrames = 1;
  theIOProc.GetIOBufferActualDataSize(false, 0, theBytes, theFrames);
  EXPECT_EQ(theBytes, 512u * 8) << "calculated: no buffer";
  EXPECT_EQ(theFrames, 512u);
  theIOProc.GetIOBufferActualDataSize(false, 1, theBytes, theFrames);
  EXPECT_EQ(theBytes, 0u) << "no such stream";
  EXPECT_EQ(theFrames, 0u);
}

TEST_F(IOProcTest, SetActualSizeChangesTheListAndARefreshRestoresTheNominalSize) {
  mDevice.AddSimulatedStream(false, FloatFormat(2));
  HP_IOProc theIOProc = Make();
  theIOProc.Start();
  theIOProc.AllocateBufferLists();
  theIOProc.SetIOBufferActualDataSize(false, 0, 80, 10);
  EXPECT_EQ(theIOProc.GetAudioBufferList(false)->mBuffers[0].mDataByteSize, 80u);
  theIOProc.RefreshBufferList(false);
  EXPECT_EQ(theIOProc.GetAudioBufferList(false)->mBuffers[0].mDataByteSize, 512u * 8);
  UInt32 theBytes = 0;
  UInt32 theFrames = 0;
  theIOProc.GetIOBufferActualDataSize(false, 0, theBytes, theFrames);
  EXPECT_EQ(theBytes, 80u) << "the header keeps the actual size";
  EXPECT_EQ(theFrames, 10u);
  EXPECT_EQ(theIOProc.GetIOBufferList(false)[0]->mNominalDataByteSize, 512u * 8);
  theIOProc.SetIOBufferActualDataSize(false, 1, 80, 10);
  Free(theIOProc);
}

TEST_F(IOProcTest, CallPassesAllArgumentsAndItsOwnRefreshedList) {
  mDevice.AddSimulatedStream(false, FloatFormat(2));
  HP_IOProc theIOProc = Make();
  theIOProc.Start();
  theIOProc.AllocateBufferLists();
  Samples(theIOProc)[0] = 1.0f;
  const AudioTimeStamp theNow = At(1), theInput = At(2), theOutput = At(3);
  theIOProc.Call(theNow, theInput, nullptr, theOutput, nullptr);
  EXPECT_EQ(mCalls.mCount, 1);
  EXPECT_EQ(mCalls.mDevice, mDevice.GetObjectID());
  EXPECT_EQ(mCalls.mNow, &theNow);
  EXPECT_EQ(mCalls.mInputTime, &theInput);
  EXPECT_EQ(mCalls.mOutputTime, &theOutput);
  EXPECT_EQ(mCalls.mOutput, theIOProc.GetAudioBufferList(false));
  EXPECT_EQ(mCalls.mInput, theIOProc.GetAudioBufferList(true));
  EXPECT_EQ(Samples(theIOProc)[0], 0.0f) << "refreshed before the call";
  Free(theIOProc);
}

TEST_F(IOProcTest, CallRefreshesTheOwnInputListToo) {
  mDevice.AddSimulatedStream(true, FloatFormat(2));
  HP_IOProc theIOProc = Make();
  theIOProc.Start();
  theIOProc.AllocateBufferLists();
  AudioBuffer& theEntry = theIOProc.GetAudioBufferList(true)->mBuffers[0];
  theEntry = {9, 1, nullptr};
  Call(theIOProc);
  EXPECT_EQ(mCalls.mInput, theIOProc.GetAudioBufferList(true));
  EXPECT_EQ(theEntry.mNumberChannels, 2u);
  EXPECT_EQ(theEntry.mDataByteSize, 512u * 8);
  EXPECT_EQ(theEntry.mData, theIOProc.GetIOBufferList(true)[0]->GetData());
  Free(theIOProc);
}

TEST_F(IOProcTest, CallWithoutListsGivesTheEmptyOne) {
  HP_IOProc theIOProc = Make();
  theIOProc.Start();
  Call(theIOProc);
  EXPECT_EQ(mCalls.mInput, CAAudioBufferList::GetEmptyBufferList());
  EXPECT_EQ(mCalls.mOutput, CAAudioBufferList::GetEmptyBufferList());
  EXPECT_EQ(mCalls.mInput->mNumberBuffers, 0u);
}

TEST_F(IOProcTest, GivenListsAreUsedUnchanged) {
  mDevice.AddSimulatedStream(false, FloatFormat(1));
  HP_IOProc theIOProc = Make();
  theIOProc.Start();
  theIOProc.AllocateBufferLists();
  Samples(theIOProc)[0] = 1.0f;
  float theSamples[4] = {0.25f, 0.25f, 0.25f, 0.25f};
  AudioBufferList theList = {1, {{1, sizeof(theSamples), theSamples}}};
  theIOProc.Call(At(0), At(0), &theList, At(0), &theList);
  EXPECT_EQ(mCalls.mInput, &theList);
  EXPECT_EQ(mCalls.mOutput, &theList);
  EXPECT_EQ(theSamples[0], 0.25f);
  EXPECT_EQ(Samples(theIOProc)[0], 1.0f) << "the own list is left alone";
  Free(theIOProc);
}

TEST_F(IOProcTest, BuffersAreClearedEvenBeforeTheStartTime) {
  mDevice.AddSimulatedStream(false, FloatFormat(1));
  HP_IOProc theIOProc = Make();
  theIOProc.StartAtTime(At(1000), 2);
  theIOProc.AllocateBufferLists();
  Samples(theIOProc)[0] = 1.0f;
  Call(theIOProc, 0, 0);
  EXPECT_EQ(mCalls.mCount, 0);
  EXPECT_EQ(Samples(theIOProc)[0], 0.0f);
  Free(theIOProc);
}

TEST_F(IOProcTest, ThrowingClientIsNotCaughtHere) {
  HP_IOProc theIOProc(
      &mDevice,
      [](AudioObjectID, const AudioTimeStamp*, const AudioBufferList*, const AudioTimeStamp*,
         AudioBufferList*, const AudioTimeStamp*, void*) -> OSStatus { throw 5; },
      nullptr, false, 0, true, false);
  theIOProc.Start();
  EXPECT_THROW(Call(theIOProc), int);
}

TEST_F(IOProcTest, RecordWithNeitherFunctionNorBlockCallsNothing) {
  HP_IOProc theIOProc(&mDevice, nullptr, nullptr, false, 0, true, false);
  theIOProc.Start();
  Call(theIOProc);
  EXPECT_EQ(mCalls.mCount, 0);
}

TEST_F(IOProcTest, BlockIsCopiedAndCalledOnTheCallingThread) {
  __block int theCount = 0;
  __block const AudioTimeStamp* theOutputTime = nullptr;
  AudioDeviceIOBlock theBlock =
      ^(const AudioTimeStamp*, const AudioBufferList*, const AudioTimeStamp*, AudioBufferList*,
        const AudioTimeStamp* inOutputTime) {
        ++theCount;
        theOutputTime = inOutputTime;
      };
  HP_IOProc theIOProc(&mDevice, nullptr, theBlock, 0, true, false);
  EXPECT_EQ(theIOProc.GetIOProc(), nullptr);
  EXPECT_EQ(theIOProc.GetClientData(), nullptr);
  EXPECT_FALSE(theIOProc.IsClientDataRelevant());
  EXPECT_EQ(theIOProc.GetDispatchQueue(), nullptr);
  EXPECT_NE(theIOProc.GetIOBlock(), static_cast<AudioDeviceIOBlock>(nullptr));
  theIOProc.Start();
  const AudioTimeStamp theTime = At(4);
  theIOProc.Call(At(0), At(0), nullptr, theTime, nullptr);
  EXPECT_EQ(theCount, 1);
  EXPECT_EQ(theOutputTime, &theTime);
}

TEST_F(IOProcTest, BlockWithAQueueRunsAsTheQueuesWorkBeforeCallReturns) {
  dispatch_queue_t theQueue = dispatch_queue_create("test", DISPATCH_QUEUE_SERIAL);
  __block std::string theLabel;
  HP_IOProc theIOProc(
      &mDevice, theQueue,
      ^(const AudioTimeStamp*, const AudioBufferList*, const AudioTimeStamp*, AudioBufferList*,
        const AudioTimeStamp*) {
        theLabel = dispatch_queue_get_label(nullptr);
      },
      0, true, false);
  EXPECT_EQ(theIOProc.GetDispatchQueue(), theQueue);
  dispatch_release(theQueue);  // the record keeps it alive
  theIOProc.Start();
  Call(theIOProc);
  EXPECT_EQ(theLabel, "test");
}

TEST_F(IOProcTest, ACopySharesTheBuffers) {
  mDevice.AddSimulatedStream(false, FloatFormat(1));
  HP_IOProc theIOProc = Make();
  theIOProc.Start();
  theIOProc.AllocateBufferLists();
  {
    HP_IOProc theCopy(theIOProc);
    HP_IOProc theAssigned = Make();
    theAssigned = theCopy;
    EXPECT_TRUE(theAssigned.IsEnabled());
    EXPECT_EQ(theAssigned.GetAudioBufferList(false), theIOProc.GetAudioBufferList(false));
    EXPECT_EQ(theAssigned.GetIOBufferList(false), theIOProc.GetIOBufferList(false));
    EXPECT_EQ(theAssigned.GetIOProc(), &RecordCall);
  }
  Samples(theIOProc)[0] = 1.0f;  // still there
  Free(theIOProc);
}

TEST_F(IOProcTest, ACopyHasReferencesOfItsOwn) {
  dispatch_queue_t theQueue = dispatch_queue_create("copied", DISPATCH_QUEUE_SERIAL);
  __block int theCount = 0;
  HP_IOProc theOther = Make();
  {
    HP_IOProc theIOProc(
        &mDevice, theQueue,
        ^(const AudioTimeStamp*, const AudioBufferList*, const AudioTimeStamp*, AudioBufferList*,
          const AudioTimeStamp*) {
          ++theCount;
        },
        0, true, false);
    dispatch_release(theQueue);
    theOther = theIOProc;
    HP_IOProc theCopy(theIOProc);
  }
  theOther.Start();
  Call(theOther);
  EXPECT_EQ(theCount, 1);
}

}  // namespace
}  // namespace tembra::test
