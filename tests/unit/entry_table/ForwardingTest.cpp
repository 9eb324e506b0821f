#include "unit/entry_table/Fixture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Forwarding = EntryTable;

void ExpectAddress(UInt32 inSelector, UInt32 inScope, UInt32 inElement) {
  ASSERT_FALSE(gRecord.mAddresses.empty());
  for (const auto& theAddress : gRecord.mAddresses) {
    EXPECT_EQ(inSelector, theAddress.mSelector);
    EXPECT_EQ(inScope, theAddress.mScope);
    EXPECT_EQ(inElement, theAddress.mElement);
  }
  gRecord = {};
}

TEST_F(Forwarding, IOProcsCarryTheirArguments) {
  EXPECT_EQ(0, mEntries->DeviceAddIOProc(mSelf, kDeviceID, Proc, this));
  EXPECT_EQ(&Proc, mDevice.mProc);
  EXPECT_EQ(this, mDevice.mClientData);
  mDevice.mProc = nullptr;
  EXPECT_EQ(0, mEntries->DeviceRemoveIOProc(mSelf, kDeviceID, Proc));
  EXPECT_EQ(&Proc, mDevice.mProc);
  mDevice.mProc = nullptr;
  EXPECT_EQ(0, mEntries->DeviceStart(mSelf, kDeviceID, Proc));
  EXPECT_EQ(&Proc, mDevice.mProc);
  mDevice.mProc = nullptr;
  EXPECT_EQ(0, mEntries->DeviceStop(mSelf, kDeviceID, Proc));
  EXPECT_EQ(&Proc, mDevice.mProc);
  mDevice.mProc = nullptr;
  EXPECT_EQ(0, mEntries->DeviceDestroyIOProcID(mSelf, kDeviceID, Proc));
  EXPECT_EQ(&Proc, mDevice.mProc);
}

TEST_F(Forwarding, NullProcIsAllowedForStartStopAndDestroy) {
  mDevice.mProc = Proc;
  EXPECT_EQ(0, mEntries->DeviceStart(mSelf, kDeviceID, nullptr));
  EXPECT_EQ(nullptr, mDevice.mProc);
  EXPECT_EQ(0, mEntries->DeviceStop(mSelf, kDeviceID, nullptr));
  EXPECT_EQ(0, mEntries->DeviceDestroyIOProcID(mSelf, kDeviceID, nullptr));
  EXPECT_THAT(gRecord.mCalls, ElementsAre("Do_StartIOProc", "Do_StopIOProc", "Do_DestroyIOProcID"));
}

TEST_F(Forwarding, CreatedIDsAreHandedOut) {
  AudioDeviceIOProcID theID = nullptr;
  EXPECT_EQ(0, mEntries->DeviceCreateIOProcID(mSelf, kDeviceID, Proc, this, &theID));
  EXPECT_EQ(&Proc, theID);
  EXPECT_EQ(this, mDevice.mClientData);

  AudioDeviceIOBlock theBlock = ^(const AudioTimeStamp*, const AudioBufferList*,
                                  const AudioTimeStamp*, AudioBufferList*, const AudioTimeStamp*) {
  };
  auto theQueue = reinterpret_cast<dispatch_queue_t>(this);
  mDevice.mAnswerID = Proc;
  theID = nullptr;
  EXPECT_EQ(0,
            mEntries->DeviceCreateIOProcIDWithBlock(mSelf, &theID, kDeviceID, theQueue, theBlock));
  EXPECT_EQ(&Proc, theID);
  EXPECT_EQ(theQueue, mDevice.mQueue);
  EXPECT_EQ(theBlock, mDevice.mBlock);
}

TEST_F(Forwarding, FailedCreationLeavesTheID) {
  AudioDeviceIOProcID theID = Proc;
  gRecord.mAct = [] { throw CAException('nope'); };
  EXPECT_EQ('nope', mEntries->DeviceCreateIOProcID(mSelf, kDeviceID, Proc, this, &theID));
  EXPECT_EQ(&Proc, theID);
}

TEST_F(Forwarding, StartAtTimeNeedsBothProcAndTime) {
  mTime.mSampleTime = 10;
  EXPECT_EQ(0, mEntries->DeviceStartAtTime(mSelf, kDeviceID, Proc, &mTime, 5));
  EXPECT_EQ(11, mTime.mSampleTime);
  EXPECT_EQ(5u, mDevice.mFlags);
  EXPECT_EQ(&Proc, mDevice.mProc);
  EXPECT_THAT(gRecord.mCalls, ElementsAre("Do_StartIOProcAtTime"));
}

TEST_F(Forwarding, StartAtTimeWithoutATimeStartsAtOnce) {
  EXPECT_EQ(0, mEntries->DeviceStartAtTime(mSelf, kDeviceID, Proc, nullptr, 0));
  EXPECT_EQ(&Proc, mDevice.mProc);
  EXPECT_THAT(gRecord.mCalls, ElementsAre("Do_StartIOProc"));
}

TEST_F(Forwarding, StartAtTimeWithoutAProcStartsAtOnce) {
  mDevice.mProc = Proc;
  EXPECT_EQ(0, mEntries->DeviceStartAtTime(mSelf, kDeviceID, nullptr, &mTime, 0));
  EXPECT_EQ(nullptr, mDevice.mProc);
  EXPECT_THAT(gRecord.mCalls, ElementsAre("Do_StartIOProc"));
}

TEST_F(Forwarding, FailedStartAtTimeIsToldLikeAnyOther) {
  gRecord.mAct = [] { throw CAException('!hog'); };
  EXPECT_EQ('!hog', mEntries->DeviceStartAtTime(mSelf, kDeviceID, Proc, &mTime, 0));
  EXPECT_EQ('!hog', mEntries->DeviceStartAtTime(mSelf, kDeviceID, nullptr, nullptr, 0));
}

TEST_F(Forwarding, ClockCallsCarryTheirTimes) {
  EXPECT_EQ(0, mEntries->DeviceGetCurrentTime(mSelf, kDeviceID, &mTime));
  EXPECT_EQ(17, mTime.mSampleTime);
  EXPECT_EQ(0, mEntries->DeviceTranslateTime(mSelf, kDeviceID, &mTime, &mOtherTime));
  EXPECT_EQ(18, mOtherTime.mSampleTime);
  EXPECT_EQ(0, mEntries->DeviceGetNearestStartTime(mSelf, kDeviceID, &mTime, 6));
  EXPECT_EQ(19, mTime.mSampleTime);
  EXPECT_EQ(6u, mDevice.mFlags);
  EXPECT_EQ(0, mEntries->DeviceRead(mSelf, kDeviceID, &mTime, &mList));
  EXPECT_EQ(&mTime, mDevice.mWhen);
  EXPECT_EQ(&mList, mDevice.mData);
}

TEST_F(Forwarding, DevicePropertyInfoTellsSizeAndWritable) {
  UInt32 theSize = 0;
  Boolean theWritable[3] = {9, 9, 9};
  EXPECT_EQ(0, mEntries->DeviceGetPropertyInfo(mSelf, kDeviceID, 3, 1, 'good', &theSize,
                                               &theWritable[1]));
  EXPECT_EQ(4u, theSize);
  EXPECT_EQ(9, theWritable[0]);
  EXPECT_EQ(1, theWritable[1]);
  EXPECT_EQ(9, theWritable[2]);
  EXPECT_THAT(gRecord.mCalls,
              ElementsAre("HasProperty", "GetPropertyDataSize", "IsPropertySettable"));
  EXPECT_EQ(0u, mDevice.mQualifierSize);
  EXPECT_EQ(nullptr, mDevice.mQualifier);
  ExpectAddress('good', 0x696E7074, 3);
  mDevice.mSettable = false;
  EXPECT_EQ(
      0, mEntries->DeviceGetPropertyInfo(mSelf, kDeviceID, 3, 1, 'good', nullptr, &theWritable[1]));
  EXPECT_EQ(0, theWritable[1]);
}

TEST_F(Forwarding, DevicePropertyInfoAsksOnlyForWhatIsWanted) {
  EXPECT_EQ(0, mEntries->DeviceGetPropertyInfo(mSelf, kDeviceID, 0, 0, 'good', nullptr, nullptr));
  EXPECT_THAT(gRecord.mCalls, ElementsAre("HasProperty"));
  ExpectAddress('good', 0x6F757470, 0);
}

TEST_F(Forwarding, PropertyInfoOfWhatIsNotThereIsUnknown) {
  UInt32 theSize = 77;
  Boolean theWritable = 77;
  EXPECT_EQ('who?', mEntries->DeviceGetPropertyInfo(mSelf, kDeviceID, 0, 0, 'none', &theSize,
                                                    &theWritable));
  EXPECT_EQ('who?',
            mEntries->StreamGetPropertyInfo(mSelf, kStreamID, 0, 'none', &theSize, &theWritable));
  EXPECT_EQ(77u, theSize);
  EXPECT_EQ(77, theWritable);
  EXPECT_THAT(gRecord.mCalls, ElementsAre("HasProperty", "HasProperty"));
}

TEST_F(Forwarding, StreamPropertyInfoIsAlwaysInTheGlobalScope) {
  UInt32 theSize = 0;
  Boolean theWritable = 1;
  EXPECT_EQ(0,
            mEntries->StreamGetPropertyInfo(mSelf, kStreamID, 2, 'good', &theSize, &theWritable));
  EXPECT_EQ(8u, theSize);
  EXPECT_EQ(0, theWritable);
  ExpectAddress('good', 'glob', 2);
}

TEST_F(Forwarding, ChannelFormsDoNotAskWhetherThePropertyIsThere) {
  EXPECT_EQ(0, mEntries->DeviceGetProperty(mSelf, kDeviceID, 1, 1, 'none', &mSize, &mData));
  EXPECT_THAT(gRecord.mCalls, ElementsAre("GetPropertyData"));
  EXPECT_EQ(0x11223344u, mData);
  EXPECT_EQ(0u, mDevice.mQualifierSize);
  EXPECT_EQ(nullptr, mDevice.mQualifier);
  ExpectAddress('none', 'inpt', 1);

  EXPECT_EQ(0, mEntries->DeviceSetProperty(mSelf, kDeviceID, &mTime, 2, 0, 'none', 3, &mData));
  EXPECT_THAT(gRecord.mCalls, ElementsAre("SetPropertyData"));
  EXPECT_EQ(3u, mDevice.mSize);
  EXPECT_EQ(&mData, mDevice.mData);
  EXPECT_EQ(&mTime, mDevice.mWhen);
  EXPECT_EQ(0u, mDevice.mQualifierSize);
  ExpectAddress('none', 'outp', 2);

  EXPECT_EQ(0, mEntries->StreamGetProperty(mSelf, kStreamID, 3, 'none', &mSize, &mData));
  EXPECT_EQ(0x55667788u, mData);
  ExpectAddress('none', 'glob', 3);

  EXPECT_EQ(0, mEntries->StreamSetProperty(mSelf, kStreamID, &mTime, 4, 'none', 2, &mData));
  EXPECT_EQ(2u, mStream.mSize);
  EXPECT_EQ(&mData, mStream.mData);
  EXPECT_EQ(&mTime, mStream.mWhen);
  ExpectAddress('none', 'glob', 4);
}

TEST_F(Forwarding, AnyNonzeroByteIsTheInputSection) {
  EXPECT_EQ(0, mEntries->DeviceGetProperty(mSelf, kDeviceID, 0, 0x80, 'good', &mSize, &mData));
  ExpectAddress('good', 'inpt', 0);
}

TEST_F(Forwarding, ObjectFormsCarryTheQualifier) {
  const AudioObjectPropertyAddress theAddress = {'good', 'ptru', 9};
  char theQualifier[3] = "ab";
  EXPECT_EQ(0, mEntries->ObjectGetPropertyDataSize(mSelf, kDeviceID, &theAddress, 3, theQualifier,
                                                   &mSize));
  EXPECT_EQ(4u, mSize);
  EXPECT_EQ(3u, mDevice.mQualifierSize);
  EXPECT_EQ(theQualifier, mDevice.mQualifier);
  mDevice.mQualifierSize = 0;
  EXPECT_EQ(0, mEntries->ObjectGetPropertyData(mSelf, kDeviceID, &theAddress, 3, theQualifier,
                                               &mSize, &mData));
  EXPECT_EQ(0x11223344u, mData);
  EXPECT_EQ(3u, mDevice.mQualifierSize);
  mDevice.mQualifierSize = 0;
  mDevice.mWhen = &mTime;
  EXPECT_EQ(0, mEntries->ObjectSetPropertyData(mSelf, kDeviceID, &theAddress, 3, theQualifier, 4,
                                               &mData));
  EXPECT_EQ(3u, mDevice.mQualifierSize);
  EXPECT_EQ(theQualifier, mDevice.mQualifier);
  EXPECT_EQ(4u, mDevice.mSize);
  EXPECT_EQ(nullptr, mDevice.mWhen);
  ExpectAddress('good', 'ptru', 9);
}

TEST_F(Forwarding, ObjectFormsWorkForAStreamToo) {
  EXPECT_EQ('!dev', mEntries->DeviceGetProperty(mSelf, kStreamID, 0, 0, 'good', &mSize, &mData));
  EXPECT_EQ(0,
            mEntries->ObjectGetPropertyData(mSelf, kStreamID, &mGood, 0, nullptr, &mSize, &mData));
  EXPECT_EQ(0x55667788u, mData);
}

TEST_F(Forwarding, AggregateDeviceIsADevice) {
  RecordingDevice theAggregate(102, 'aagg');
  EXPECT_EQ(0, mEntries->DeviceStart(mSelf, 102, Proc));
  EXPECT_EQ(&Proc, theAggregate.mProc);
}

TEST_F(Forwarding, SettableIsOneByte) {
  Boolean theSettable[3] = {9, 9, 9};
  EXPECT_EQ(0, mEntries->ObjectIsPropertySettable(mSelf, kDeviceID, &mGood, &theSettable[1]));
  EXPECT_EQ(9, theSettable[0]);
  EXPECT_EQ(1, theSettable[1]);
  EXPECT_EQ(9, theSettable[2]);
  mDevice.mSettable = false;
  EXPECT_EQ(0, mEntries->ObjectIsPropertySettable(mSelf, kDeviceID, &mGood, &theSettable[1]));
  EXPECT_EQ(0, theSettable[1]);
}

TEST_F(Forwarding, HasPropertyIsABoolean) {
  EXPECT_EQ(1, mEntries->ObjectHasProperty(mSelf, kDeviceID, &mGood));
  const AudioObjectPropertyAddress theBad = {'none', 'glob', 0};
  EXPECT_EQ(0, mEntries->ObjectHasProperty(mSelf, kDeviceID, &theBad));
}

// The size goes by reference, so a pointer that is missing is found before the object is.
TEST_F(Forwarding, NullSizeDoesNotReachTheObject) {
  EXPECT_EQ('nope',
            mEntries->ObjectGetPropertyData(mSelf, kDeviceID, &mGood, 0, nullptr, nullptr, &mData));
  EXPECT_EQ('nope', mEntries->ObjectGetPropertyData(mSelf, kUnknownID, &mGood, 0, nullptr, nullptr,
                                                    &mData));
  EXPECT_THAT(gRecord.mCalls, IsEmpty());
}

// PropertiesChanged and the entry share the mutex: the call out to the host runs without it.
TEST_F(Forwarding, NestedCallIntoTheSameObjectFindsTheMutexItsOwn) {
  CAMutex theMutex("test");
  HP_Object::SetObjectStateMutexForID(kDeviceID, &theMutex);
  int theDepth = 0;
  gRecord.mAct = [&] {
    EXPECT_TRUE(theMutex.IsOwnedByCurrentThread());
    if (++theDepth < 3) {
      EXPECT_EQ(1, mEntries->ObjectHasProperty(mSelf, kDeviceID, &mGood));
      EXPECT_TRUE(theMutex.IsOwnedByCurrentThread());
    }
  };
  EXPECT_EQ(1, mEntries->ObjectHasProperty(mSelf, kDeviceID, &mGood));
  EXPECT_EQ(3, theDepth);
  EXPECT_TRUE(theMutex.IsFree());
}

}  // namespace
