#include "device/HP_IOProcList.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "support/device/SimulatedDevice.h"

namespace tembra::test {
namespace {

OSStatus ProcA(AudioObjectID, const AudioTimeStamp*, const AudioBufferList*, const AudioTimeStamp*,
               AudioBufferList*, const AudioTimeStamp*, void*) {
  return 0;
}
OSStatus ProcB(AudioObjectID, const AudioTimeStamp*, const AudioBufferList*, const AudioTimeStamp*,
               AudioBufferList*, const AudioTimeStamp*, void*) {
  return 1;
}

class IOProcListTest : public testing::Test {
 protected:
  IOProcListTest() : mList(*mDevice.GetIOProcList()) {}

  HP_IOProc* Record(AudioDeviceIOProcID inID) { return mList.GetIOProcByIOProcID(inID); }
  void Enabled(UInt32 inIOProcs, UInt32 inNULLProcs) {
    EXPECT_EQ(mList.IsAnythingEnabled(), inIOProcs + inNULLProcs > 0);
    EXPECT_EQ(mList.IsNothingEnabled(), inIOProcs + inNULLProcs == 0);
    EXPECT_EQ(mList.IsOnlyNULLEnabled(), inIOProcs == 0 && inNULLProcs > 0);
    EXPECT_EQ(mList.IsOnlyOneThingEnabled(), inIOProcs + inNULLProcs == 1);
    EXPECT_EQ(mList.IsOnlyOneIOProcEnabled(), inIOProcs == 1);
  }

  SimulatedDevice mDevice;
  HP_IOProcList& mList;
  int mDataA = 0;
  int mDataB = 0;
};

TEST_F(IOProcListTest, BehavioursAreSharedInputAndOutputForEachProcedure) {
  EXPECT_EQ(mList.GetBufferListAllocationBehavior(true), 1u);
  EXPECT_EQ(mList.GetBufferListAllocationBehavior(false), 2u);
  EXPECT_EQ(HP_IOProcList::kIOProcBufferListNone, 0u);
  Enabled(0, 0);
}

TEST_F(IOProcListTest, IDIsTheRecordForRelevantDataAndTheFunctionOtherwise) {
  const AudioDeviceIOProcID theRelevant = mList.AddIOProc(ProcA, &mDataA, true);
  const AudioDeviceIOProcID theOld = mList.AddIOProc(ProcB, &mDataB, false);
  ASSERT_EQ(mList.GetNumberIOProcs(), 2u);
  EXPECT_EQ(reinterpret_cast<HP_IOProc*>(theRelevant), mList.GetIOProcByIndex(0));
  EXPECT_EQ(theOld, &ProcB);
  EXPECT_EQ(mList.GetIOProcByIndex(2), nullptr);
  EXPECT_EQ(mList.GetIOProcByIndex(0)->GetClientData(), &mDataA);
}

TEST_F(IOProcListTest, AddressAndFunctionBothFindARecordAndTheFunctionFindsTheFirst) {
  const AudioDeviceIOProcID theFirst = mList.AddIOProc(ProcA, &mDataA, true);
  const AudioDeviceIOProcID theSecond = mList.AddIOProc(ProcA, &mDataB, true);
  EXPECT_EQ(Record(theFirst), mList.GetIOProcByIndex(0));
  EXPECT_EQ(Record(theSecond), mList.GetIOProcByIndex(1));
  EXPECT_EQ(Record(ProcA), mList.GetIOProcByIndex(0));
  EXPECT_TRUE(mList.HasIOProcID(ProcA));
  EXPECT_FALSE(mList.HasIOProcID(ProcB));
}

TEST_F(IOProcListTest, BlockIsFoundByItsAddressAndByQueueAndBlock) {
  dispatch_queue_t theQueue = dispatch_queue_create("q", DISPATCH_QUEUE_SERIAL);
  // A global block: its copy is itself.
  AudioDeviceIOBlock theBlock = ^(const AudioTimeStamp*, const AudioBufferList*,
                                  const AudioTimeStamp*, AudioBufferList*, const AudioTimeStamp*) {
  };
  const AudioDeviceIOProcID theID = mList.AddIOBlock(theQueue, theBlock);
  EXPECT_EQ(reinterpret_cast<HP_IOProc*>(theID), mList.GetIOProcByIndex(0));
  EXPECT_TRUE(mList.HasIOProcID(theID));
  EXPECT_TRUE(mList.HasIOBlock(theQueue, theBlock));
  EXPECT_FALSE(mList.HasIOBlock(nullptr, theBlock));
  EXPECT_FALSE(mList.HasIOBlock(theQueue, nullptr));
  dispatch_release(theQueue);
}

TEST_F(IOProcListTest, ClientDataDecidesOnlyIfBothSidesHoldItRelevant) {
  mList.AddIOProc(ProcA, &mDataA, true);
  EXPECT_TRUE(mList.HasIOProc(ProcA, &mDataA, true));
  EXPECT_FALSE(mList.HasIOProc(ProcA, &mDataB, true));
  EXPECT_TRUE(mList.HasIOProc(ProcA, &mDataB, false));
  mList.AddIOProc(ProcB, &mDataA, false);
  EXPECT_TRUE(mList.HasIOProc(ProcB, &mDataB, true));
  EXPECT_TRUE(mList.HasIOProc(ProcB, &mDataB, false));
}

TEST_F(IOProcListTest, StartsWithTheNullIDCountAndStopsDoNotGoBelowZero) {
  mList.StartIOProc(nullptr);
  mList.StartIOProcAtTime(nullptr, AudioTimeStamp(), 0);
  Enabled(0, 2);
  mList.StopIOProc(static_cast<AudioDeviceIOProcID>(nullptr));
  Enabled(0, 1);
  mList.StopIOProc(static_cast<AudioDeviceIOProcID>(nullptr));
  mList.StopIOProc(static_cast<AudioDeviceIOProcID>(nullptr));
  Enabled(0, 0);
  mList.StartIOProc(nullptr);
  Enabled(0, 1);
}

TEST_F(IOProcListTest, ARunningRecordIsNotStartedTwice) {
  const AudioDeviceIOProcID theID = mList.AddIOProc(ProcA, &mDataA, true);
  mList.StartIOProc(theID);
  AudioTimeStamp theTime = {};
  theTime.mSampleTime = 1e9;
  mList.StartIOProcAtTime(theID, theTime, 2);
  Enabled(1, 0);
  EXPECT_TRUE(Record(theID)->IsCallable(AudioTimeStamp(), AudioTimeStamp()))
      << "a new start time takes no effect";
  mList.StopIOProc(theID);
  Enabled(0, 0);
  EXPECT_FALSE(Record(theID)->IsEnabled());
  mList.StopIOProc(theID);
  Enabled(0, 0);
}

TEST_F(IOProcListTest, StartAtTimeKeepsTheTime) {
  const AudioDeviceIOProcID theID = mList.AddIOProc(ProcA, &mDataA, true);
  AudioTimeStamp theTime = {};
  theTime.mSampleTime = 10;
  mList.StartIOProcAtTime(theID, theTime, 2);
  EXPECT_FALSE(Record(theID)->IsCallable(AudioTimeStamp(), AudioTimeStamp()));
  EXPECT_TRUE(Record(theID)->IsCallable(AudioTimeStamp(), theTime));
}

TEST_F(IOProcListTest, UnknownIDsDoNothing) {
  mList.StartIOProc(ProcA);
  mList.StartIOProcAtTime(ProcA, AudioTimeStamp(), 0);
  mList.StopIOProc(ProcA);
  mList.RemoveIOProc(ProcA);
  mList.SetIOProcStreamUsage(ProcA, true, 0, nullptr);
  bool theUsage[1] = {true};
  mList.GetIOProcStreamUsage(ProcA, true, 1, theUsage);
  EXPECT_TRUE(theUsage[0]) << "untouched";
  Enabled(0, 0);
}

TEST_F(IOProcListTest, CountsOfRecordsAndNullStartsAddUp) {
  const AudioDeviceIOProcID theA = mList.AddIOProc(ProcA, &mDataA, true);
  const AudioDeviceIOProcID theB = mList.AddIOProc(ProcB, &mDataB, true);
  mList.StartIOProc(theA);
  Enabled(1, 0);
  mList.StartIOProc(nullptr);
  Enabled(1, 1);
  mList.StartIOProc(theB);
  Enabled(2, 1);
  mList.StopAllIOProcs();
  Enabled(0, 0);
}

TEST_F(IOProcListTest, EnabledRecordsAreCountedOverTheStartedOnesAlone) {
  mList.AddIOProc(ProcA, &mDataA, true);
  const AudioDeviceIOProcID theSecond = mList.AddIOProc(ProcA, &mDataB, true);
  const AudioDeviceIOProcID theThird = mList.AddIOProc(ProcB, &mDataB, true);
  EXPECT_EQ(mList.GetEnabledIOProcByIndex(0), nullptr);
  mList.StartIOProc(theSecond);
  mList.StartIOProc(theThird);
  EXPECT_EQ(mList.GetEnabledIOProcByIndex(0), mList.GetIOProcByIndex(1));
  EXPECT_EQ(mList.GetEnabledIOProcByIndex(1), mList.GetIOProcByIndex(2));
  EXPECT_EQ(mList.GetEnabledIOProcByIndex(2), nullptr);
  EXPECT_EQ(mList.GetEnabledIOProcByIndex(3), nullptr);
}

TEST_F(IOProcListTest, EachStartedRecordHasItsOwnOutputAndAllShareTheInput) {
  mDevice.AddSimulatedStream(true, FloatFormat(2));
  mDevice.AddSimulatedStream(false, FloatFormat(2));
  const AudioDeviceIOProcID theA = mList.AddIOProc(ProcA, &mDataA, true);
  const AudioDeviceIOProcID theB = mList.AddIOProc(ProcB, &mDataB, true);
  EXPECT_EQ(mList.GetSharedAudioBufferList(true), nullptr);
  mList.StartIOProc(theA);
  mList.StartIOProc(theB);
  EXPECT_EQ(Record(theA)->GetAudioBufferList(true), nullptr);
  ASSERT_NE(Record(theA)->GetAudioBufferList(false), nullptr);
  EXPECT_NE(Record(theA)->GetAudioBufferList(false), Record(theB)->GetAudioBufferList(false));
  EXPECT_EQ(mList.GetSharedAudioBufferList(false), nullptr);
  ASSERT_NE(mList.GetSharedAudioBufferList(true), nullptr);
  EXPECT_NE(mList.GetSharedAudioBufferList(true)->mBuffers[0].mData, nullptr);
  ASSERT_EQ(mList.GetSharedIOBufferList(true).size(), 1u);

  mList.StopIOProc(theA);
  EXPECT_EQ(Record(theA)->GetAudioBufferList(false), nullptr);
  EXPECT_NE(mList.GetSharedAudioBufferList(true)->mBuffers[0].mData, nullptr);
  mList.StopIOProc(theB);
  ASSERT_NE(mList.GetSharedAudioBufferList(true), nullptr) << "rebuilt for no one";
  EXPECT_EQ(mList.GetSharedAudioBufferList(true)->mBuffers[0].mData, nullptr);
  EXPECT_EQ(mList.GetSharedAudioBufferList(true)->mBuffers[0].mDataByteSize, 512u * 8);
}

TEST_F(IOProcListTest, SharedInputHasStorageForTheStreamsThatAStartedRecordWants) {
  for (int i = 0; i < 3; ++i) mDevice.AddSimulatedStream(true, FloatFormat(1));
  const AudioDeviceIOProcID theA = mList.AddIOProc(ProcA, &mDataA, true);
  const AudioDeviceIOProcID theB = mList.AddIOProc(ProcB, &mDataB, true);
  const AudioDeviceIOProcID theC = mList.AddIOProc(ProcB, &mDataA, true);
  const bool theFirst[] = {true, false, false};
  const bool theLast[] = {false, false, true};
  mList.SetIOProcStreamUsage(theA, true, 3, theFirst);
  mList.SetIOProcStreamUsage(theB, true, 3, theLast);
  HP_IOProc::StreamUsage theUnion = {true};
  mList.GetIOProcStreamUsageUnion(true, theUnion);
  EXPECT_THAT(theUnion, testing::ElementsAre(false, false, false)) << theC;
  mList.StartIOProc(theA);
  mList.StartIOProc(theB);
  mList.GetIOProcStreamUsageUnion(true, theUnion);
  EXPECT_THAT(theUnion, testing::ElementsAre(true, false, true));
  const AudioBufferList* theShared = mList.GetSharedAudioBufferList(true);
  EXPECT_NE(theShared->mBuffers[0].mData, nullptr);
  EXPECT_EQ(theShared->mBuffers[1].mData, nullptr);
  EXPECT_NE(theShared->mBuffers[2].mData, nullptr);
}

TEST_F(IOProcListTest, UsageOfARunningRecordRebuildsItsBuffersAtOnce) {
  for (int i = 0; i < 2; ++i) mDevice.AddSimulatedStream(false, FloatFormat(1));
  const AudioDeviceIOProcID theA = mList.AddIOProc(ProcA, &mDataA, true);
  mList.StartIOProc(theA);
  EXPECT_NE(Record(theA)->GetAudioBufferList(false)->mBuffers[1].mData, nullptr);
  const bool theUsage[] = {true, false};
  mList.SetIOProcStreamUsage(theA, false, 2, theUsage);
  EXPECT_EQ(Record(theA)->GetAudioBufferList(false)->mBuffers[1].mData, nullptr);
  bool theAnswer[2] = {false, true};
  mList.GetIOProcStreamUsage(theA, false, 2, theAnswer);
  EXPECT_THAT(theAnswer, testing::ElementsAre(true, false));
}

TEST_F(IOProcListTest, StopAllWithOnlyNullStartsTouchesNoBuffer) {
  SimulatedStream* theStream = mDevice.AddSimulatedStream(true, FloatFormat(1));
  mList.StartIOProc(nullptr);
  mList.StopAllIOProcs();
  Enabled(0, 0);
  EXPECT_EQ(mList.GetSharedAudioBufferList(true), nullptr);
  EXPECT_TRUE(theStream->mRegistrations.empty());
}

TEST_F(IOProcListTest, StopAllFreesEachRecordsOutputAndRebuildsTheInputForNoOne) {
  SimulatedStream* theInput = mDevice.AddSimulatedStream(true, FloatFormat(2));
  SimulatedStream* theOutput = mDevice.AddSimulatedStream(false, FloatFormat(2));
  const AudioDeviceIOProcID theA = mList.AddIOProc(ProcA, &mDataA, true);
  const AudioDeviceIOProcID theB = mList.AddIOProc(ProcB, &mDataB, true);
  mList.StartIOProc(theA);
  mList.StartIOProc(theB);
  mList.StopAllIOProcs();
  Enabled(0, 0);
  for (const AudioDeviceIOProcID theID : {theA, theB}) {
    EXPECT_FALSE(Record(theID)->IsEnabled());
    EXPECT_EQ(Record(theID)->GetAudioBufferList(false), nullptr);
    EXPECT_TRUE(Record(theID)->GetIOBufferList(false).empty());
  }
  EXPECT_EQ(theInput->mRegistrations.size(), 2u) << "at the two starts, not between the stops";
  EXPECT_EQ(theInput->mUnregistrations, theInput->mRegistrations);
  EXPECT_EQ(theOutput->mRegistrations.size(), 2u);
  EXPECT_EQ(theOutput->mUnregistrations, theOutput->mRegistrations);
  ASSERT_NE(mList.GetSharedAudioBufferList(true), nullptr);
  EXPECT_EQ(mList.GetSharedAudioBufferList(true)->mBuffers[0].mData, nullptr);
  EXPECT_EQ(mList.GetSharedAudioBufferList(true)->mBuffers[0].mDataByteSize, 512u * 8);
}

TEST_F(IOProcListTest, RemovingARecordFreesItsBuffers) {
  SimulatedStream* theStream = mDevice.AddSimulatedStream(false, FloatFormat(1));
  const AudioDeviceIOProcID theA = mList.AddIOProc(ProcA, &mDataA, true);
  mList.StartIOProc(theA);
  EXPECT_EQ(theStream->mRegistrations.size(), 1u);
  mList.RemoveIOProc(theA);
  EXPECT_EQ(theStream->mUnregistrations, theStream->mRegistrations);
  EXPECT_FALSE(mList.HasIOProcID(theA));
  EXPECT_EQ(mList.GetNumberIOProcs(), 0u);
  Enabled(0, 0);
}

TEST_F(IOProcListTest, RemovingAllStopsEachRecordWhileTheOthersAreStillWhole) {
  SimulatedStream* theInput = mDevice.AddSimulatedStream(true, FloatFormat(1));
  SimulatedStream* theOutput = mDevice.AddSimulatedStream(false, FloatFormat(1));
  for (int* theData : {&mDataA, &mDataB}) {
    mList.StartIOProc(mList.AddIOProc(ProcA, theData, true));
  }
  mList.RemoveAllIOProcs();
  EXPECT_EQ(mList.GetNumberIOProcs(), 0u);
  Enabled(0, 0);
  EXPECT_EQ(theInput->mRegistrations.size(), theInput->mUnregistrations.size());
  EXPECT_EQ(theOutput->mRegistrations.size(), 2u);
  EXPECT_EQ(theOutput->mUnregistrations.size(), 2u);
}

TEST_F(IOProcListTest, RefreshOfOneDirectionClearsAllOutputLists) {
  mDevice.AddSimulatedStream(false, FloatFormat(1));
  const AudioDeviceIOProcID theA = mList.AddIOProc(ProcA, &mDataA, true);
  const AudioDeviceIOProcID theB = mList.AddIOProc(ProcB, &mDataB, true);
  for (const AudioDeviceIOProcID theID : {theA, theB}) {
    mList.StartIOProc(theID);
    *static_cast<float*>(Record(theID)->GetAudioBufferList(false)->mBuffers[0].mData) = 1.0f;
  }
  mList.RefreshIOProcBufferLists(true);
  EXPECT_TRUE(Record(theA)->BufferListHasData(false));
  mList.RefreshIOProcBufferLists(false);
  EXPECT_FALSE(Record(theA)->BufferListHasData(false));
  EXPECT_FALSE(Record(theB)->BufferListHasData(false));
  *static_cast<float*>(Record(theB)->GetAudioBufferList(false)->mBuffers[0].mData) = 1.0f;
  mList.RefreshAllIOProcBufferLists();
  EXPECT_FALSE(Record(theB)->BufferListHasData(false));
}

TEST_F(IOProcListTest, RefreshRestoresTheSharedInputList) {
  mDevice.AddSimulatedStream(true, FloatFormat(2));
  mList.StartIOProc(mList.AddIOProc(ProcA, &mDataA, true));
  AudioBuffer& theEntry = mList.GetSharedAudioBufferList(true)->mBuffers[0];
  const auto theEntryIsWhole = [&] {
    return theEntry.mNumberChannels == 2 && theEntry.mDataByteSize == 512 * 8 &&
           theEntry.mData == mList.GetSharedIOBufferList(true)[0]->GetData();
  };
  theEntry = {9, 1, nullptr};
  mList.RefreshIOProcBufferLists(false);
  EXPECT_FALSE(theEntryIsWhole()) << "the other direction";
  mList.RefreshIOProcBufferLists(true);
  EXPECT_TRUE(theEntryIsWhole());
  theEntry = {9, 1, nullptr};
  mList.RefreshAllIOProcBufferLists();
  EXPECT_TRUE(theEntryIsWhole());
}

TEST_F(IOProcListTest, AllListsAreRebuiltFreedAndBuiltAsAsked) {
  mDevice.AddSimulatedStream(true, FloatFormat(1));
  mDevice.AddSimulatedStream(false, FloatFormat(1));
  const AudioDeviceIOProcID theA = mList.AddIOProc(ProcA, &mDataA, true);
  mList.StartIOProc(theA);
  mList.DeallocateAllIOProcBufferLists();
  EXPECT_EQ(mList.GetSharedAudioBufferList(true), nullptr);
  EXPECT_EQ(Record(theA)->GetAudioBufferList(false), nullptr);
  mList.AllocateAllIOProcBufferLists();
  EXPECT_NE(mList.GetSharedAudioBufferList(true), nullptr);
  EXPECT_EQ(Record(theA)->GetAudioBufferList(true), nullptr);
  ASSERT_NE(Record(theA)->GetAudioBufferList(false), nullptr);
  mList.ReallocateAllIOProcBufferLists();
  EXPECT_NE(Record(theA)->GetAudioBufferList(false)->mBuffers[0].mData, nullptr);
}

TEST_F(IOProcListTest, ActualSizesOfOutputAreThoseOfTheFirstStartedRecord) {
  mDevice.AddSimulatedStream(false, FloatFormat(2));
  const AudioDeviceIOProcID theA = mList.AddIOProc(ProcA, &mDataA, true);
  const AudioDeviceIOProcID theB = mList.AddIOProc(ProcB, &mDataB, true);
  UInt32 theBytes = 1;
  UInt32 theFrames = 1;
  mList.GetIOBufferActualDataSize(false, 0, theBytes, theFrames);
  EXPECT_EQ(theBytes, 512u * 8) << "calculated: nothing is started";
  EXPECT_EQ(theFrames, 512u);
  mList.StartIOProc(theB);
  mList.SetIOBufferActualDataSize(false, 0, 16, 2);
  mList.GetIOBufferActualDataSize(false, 0, theBytes, theFrames);
  EXPECT_EQ(theBytes, 16u);
  EXPECT_EQ(theFrames, 2u);
  mList.StartIOProc(theA);
  mList.GetIOBufferActualDataSize(false, 0, theBytes, theFrames);
  EXPECT_EQ(theBytes, 512u * 8) << "A comes first now";
  mList.GetIOBufferActualDataSize(false, 1, theBytes, theFrames);
  EXPECT_EQ(theBytes, 0u);
  EXPECT_EQ(theFrames, 0u);
}

TEST_F(IOProcListTest, ActualSizesOfOutputAreSetInEveryRecord) {
  mDevice.AddSimulatedStream(false, FloatFormat(2));
  const AudioDeviceIOProcID theA = mList.AddIOProc(ProcA, &mDataA, true);
  const AudioDeviceIOProcID theStopped = mList.AddIOProc(ProcA, &mDataB, true);
  const AudioDeviceIOProcID theB = mList.AddIOProc(ProcB, &mDataB, true);
  mList.StartIOProc(theA);
  mList.StartIOProc(theB);
  mList.SetIOBufferActualDataSize(false, 0, 16, 2);
  for (const AudioDeviceIOProcID theID : {theA, theB}) {
    UInt32 theBytes = 0;
    UInt32 theFrames = 0;
    Record(theID)->GetIOBufferActualDataSize(false, 0, theBytes, theFrames);
    EXPECT_EQ(theBytes, 16u);
    EXPECT_EQ(theFrames, 2u);
    EXPECT_EQ(Record(theID)->GetAudioBufferList(false)->mBuffers[0].mDataByteSize, 16u);
  }
  EXPECT_EQ(Record(theStopped)->GetAudioBufferList(false), nullptr) << "nothing to set there";
}

TEST_F(IOProcListTest, ActualSizesOfInputAreThoseOfTheSharedBuffers) {
  mDevice.AddSimulatedStream(true, FloatFormat(2));
  mList.StartIOProc(mList.AddIOProc(ProcA, &mDataA, true));
  mList.SetIOBufferActualDataSize(true, 0, 16, 2);
  EXPECT_EQ(mList.GetSharedAudioBufferList(true)->mBuffers[0].mDataByteSize, 16u);
  UInt32 theBytes = 0;
  UInt32 theFrames = 0;
  mList.GetIOBufferActualDataSize(true, 0, theBytes, theFrames);
  EXPECT_EQ(theBytes, 16u);
  EXPECT_EQ(theFrames, 2u);
  mList.SetIOBufferActualDataSize(true, 1, 16, 2);
}

// A client asks while another adds, changes and removes under the guard. Thread checkers see any
// access that is not ordered; the counts show that the questions were answered.
TEST_F(IOProcListTest, QuestionsFromOtherThreadsMeetChangesSafely) {
  for (int i = 0; i < 2; ++i) mDevice.AddSimulatedStream(false, FloatFormat(1));
  mList.AddIOProc(ProcB, &mDataB, false);
  std::atomic<bool> theEnd{false};
  std::atomic<int> theMisses{0};
  std::atomic<int> theQuestions{0};
  std::thread theClient([&] {
    do {
      bool theUsage[2] = {};
      if (!mList.HasIOProcID(ProcB)) ++theMisses;
      if (!mList.HasIOProc(ProcB, &mDataA, true)) ++theMisses;
      mList.GetIOProcStreamUsage(ProcA, false, 2, theUsage);
      mList.IsAnythingEnabled();
      ++theQuestions;
    } while (!theEnd);
  });
  while (theQuestions < 1) std::this_thread::yield();
  const bool theUsage[] = {false, true};
  for (int i = 0; i < 300; ++i) {
    CAMutex::Locker theLocker(mDevice.mGuard);
    mList.AddIOProc(ProcA, &mDataA, false);
    mList.SetIOProcStreamUsage(ProcA, false, 1 + i % 2, theUsage);
    mList.StartIOProc(ProcA);
    EXPECT_TRUE(mList.HasIOProcID(ProcA)) << "the holder of the guard asks without another lock";
    mList.RemoveIOProc(ProcA);
  }
  theEnd = true;
  theClient.join();
  EXPECT_EQ(theMisses, 0);
  Enabled(0, 0);
}

}  // namespace
}  // namespace tembra::test
