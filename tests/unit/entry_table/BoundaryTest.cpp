#include <thread>

#include "unit/entry_table/Fixture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// One entry that goes to an object: how to call it, rightly but for the pointers that are told.
struct Entry {
  const char* mName;
  OSStatus mNotFound;  // 0 for the entries without a status
  bool mLocks;
  int mNumberPointers;  // that are checked beyond self
  std::string mForwardsTo;
};

const Entry kEntries[] = {
    {"DeviceAddIOProc", '!dev', false, 1, "Do_AddIOProc"},
    {"DeviceRemoveIOProc", '!dev', false, 1, "Do_RemoveIOProc"},
    {"DeviceStart", '!dev', false, 0, "Do_StartIOProc"},
    {"DeviceStop", '!dev', false, 0, "Do_StopIOProc"},
    {"DeviceRead", '!dev', false, 2, "Read"},
    {"DeviceGetCurrentTime", '!dev', false, 1, "SafeGetCurrentTime"},
    {"DeviceTranslateTime", '!dev', false, 2, "TranslateTime"},
    {"DeviceGetPropertyInfo", '!dev', true, 0, "HasProperty"},
    {"DeviceGetProperty", '!dev', true, 1, "GetPropertyData"},
    {"DeviceSetProperty", '!dev', true, 0, "SetPropertyData"},
    {"StreamGetPropertyInfo", '!str', true, 0, "HasProperty"},
    {"StreamGetProperty", '!str', true, 1, "GetPropertyData"},
    {"StreamSetProperty", '!str', true, 0, "SetPropertyData"},
    {"DeviceStartAtTime", '!dev', false, 0, "Do_StartIOProcAtTime"},
    {"DeviceGetNearestStartTime", '!dev', false, 1, "GetNearestStartTime"},
    {"ObjectShow", 0, false, 0, "Show"},
    {"ObjectHasProperty", 0, true, 1, "HasProperty"},
    {"ObjectIsPropertySettable", '!obj', true, 2, "IsPropertySettable"},
    {"ObjectGetPropertyDataSize", '!obj', true, 2, "GetPropertyDataSize"},
    {"ObjectGetPropertyData", '!obj', true, 2, "GetPropertyData"},
    {"ObjectSetPropertyData", '!obj', true, 1, "SetPropertyData"},
    {"DeviceCreateIOProcID", '!dev', false, 2, "Do_CreateIOProcID"},
    {"DeviceDestroyIOProcID", '!dev', false, 0, "Do_DestroyIOProcID"},
    {"DeviceCreateIOProcIDWithBlock", '!dev', false, 2, "Do_CreateIOProcIDWithBlock"},
};

bool IsStreamEntry(const Entry& inEntry) {
  return inEntry.mNotFound == '!str';
}

class Boundary : public EntryTable, public testing::WithParamInterface<Entry> {
 protected:
  AudioObjectID GetID() const { return IsStreamEntry(GetParam()) ? kStreamID : kDeviceID; }

  // Calls the entry with each checked pointer given but the one with number inNull. The answer of
  // HasProperty is -1 for true; Show answers nothing.
  OSStatus Call(AudioObjectID inID, int inNull = -1, bool inNullSelf = false) {
    auto theSelf = inNullSelf ? nullptr : mSelf;
    auto give = [&](int inNumber, auto* inPointer) {
      return inNumber == inNull ? nullptr : inPointer;
    };
    const std::string theName = GetParam().mName;
    const AudioHardwarePlugInInterface& theEntries = *mEntries;
    if (theName == "DeviceAddIOProc") {
      return theEntries.DeviceAddIOProc(theSelf, inID, give(0, &Proc), this);
    }
    if (theName == "DeviceRemoveIOProc") {
      return theEntries.DeviceRemoveIOProc(theSelf, inID, give(0, &Proc));
    }
    if (theName == "DeviceStart") return theEntries.DeviceStart(theSelf, inID, &Proc);
    if (theName == "DeviceStop") return theEntries.DeviceStop(theSelf, inID, &Proc);
    if (theName == "DeviceRead") {
      return theEntries.DeviceRead(theSelf, inID, give(0, &mTime), give(1, &mList));
    }
    if (theName == "DeviceGetCurrentTime") {
      return theEntries.DeviceGetCurrentTime(theSelf, inID, give(0, &mTime));
    }
    if (theName == "DeviceTranslateTime") {
      return theEntries.DeviceTranslateTime(theSelf, inID, give(0, &mTime), give(1, &mOtherTime));
    }
    if (theName == "DeviceGetPropertyInfo") {
      return theEntries.DeviceGetPropertyInfo(theSelf, inID, 0, 0, 'good', nullptr, nullptr);
    }
    if (theName == "DeviceGetProperty") {
      return theEntries.DeviceGetProperty(theSelf, inID, 0, 0, 'good', give(0, &mSize), &mData);
    }
    if (theName == "DeviceSetProperty") {
      return theEntries.DeviceSetProperty(theSelf, inID, nullptr, 0, 0, 'good', 4, &mData);
    }
    if (theName == "StreamGetPropertyInfo") {
      return theEntries.StreamGetPropertyInfo(theSelf, inID, 0, 'good', nullptr, nullptr);
    }
    if (theName == "StreamGetProperty") {
      return theEntries.StreamGetProperty(theSelf, inID, 0, 'good', give(0, &mSize), &mData);
    }
    if (theName == "StreamSetProperty") {
      return theEntries.StreamSetProperty(theSelf, inID, nullptr, 0, 'good', 4, &mData);
    }
    if (theName == "DeviceStartAtTime") {
      return theEntries.DeviceStartAtTime(theSelf, inID, &Proc, &mTime, 0);
    }
    if (theName == "DeviceGetNearestStartTime") {
      return theEntries.DeviceGetNearestStartTime(theSelf, inID, give(0, &mTime), 0);
    }
    if (theName == "ObjectShow") {
      theEntries.ObjectShow(theSelf, inID);
      return 0;
    }
    if (theName == "ObjectHasProperty") {
      return -static_cast<OSStatus>(theEntries.ObjectHasProperty(theSelf, inID, give(0, &mGood)));
    }
    if (theName == "ObjectIsPropertySettable") {
      return theEntries.ObjectIsPropertySettable(theSelf, inID, give(0, &mGood),
                                                 give(1, &mBoolean));
    }
    if (theName == "ObjectGetPropertyDataSize") {
      return theEntries.ObjectGetPropertyDataSize(theSelf, inID, give(0, &mGood), 0, nullptr,
                                                  give(1, &mSize));
    }
    if (theName == "ObjectGetPropertyData") {
      return theEntries.ObjectGetPropertyData(theSelf, inID, give(0, &mGood), 0, nullptr,
                                              give(1, &mSize), &mData);
    }
    if (theName == "ObjectSetPropertyData") {
      return theEntries.ObjectSetPropertyData(theSelf, inID, give(0, &mGood), 0, nullptr, 4,
                                              &mData);
    }
    if (theName == "DeviceCreateIOProcID") {
      return theEntries.DeviceCreateIOProcID(theSelf, inID, give(0, &Proc), this,
                                             give(1, &mProcID));
    }
    if (theName == "DeviceDestroyIOProcID") {
      return theEntries.DeviceDestroyIOProcID(theSelf, inID, &Proc);
    }
    if (theName == "DeviceCreateIOProcIDWithBlock") {
      AudioDeviceIOBlock theBlock =
          ^(const AudioTimeStamp*, const AudioBufferList*, const AudioTimeStamp*, AudioBufferList*,
            const AudioTimeStamp*) {
          };
      return theEntries.DeviceCreateIOProcIDWithBlock(
          theSelf, give(1, &mProcID), inID, nullptr, inNull == 0 ? AudioDeviceIOBlock() : theBlock);
    }
    ADD_FAILURE() << theName;
    return -1;
  }

  // What the entry answers for a status.
  OSStatus Expected(OSStatus inStatus) const { return GetParam().mNotFound != 0 ? inStatus : 0; }
  OSStatus ExpectedSuccess() const {
    return std::string(GetParam().mName) == "ObjectHasProperty" ? -1 : 0;
  }

  Boolean mBoolean = 0;
  AudioDeviceIOProcID mProcID = nullptr;
};

TEST_P(Boundary, ForwardsToItsOperation) {
  EXPECT_EQ(ExpectedSuccess(), Call(GetID()));
  EXPECT_THAT(gRecord.mCalls, ElementsAre(GetParam().mForwardsTo));
}

TEST_P(Boundary, NullSelfIsRefusedBeforeAnythingElse) {
  EXPECT_EQ(Expected('nope'), Call(GetID(), -1, true));
  EXPECT_EQ(Expected('nope'), Call(kUnknownID, -1, true));
  EXPECT_THAT(gRecord.mCalls, IsEmpty());
}

TEST_P(Boundary, EachRequiredPointerIsCheckedBeforeTheLookUp) {
  for (int i = 0; i < GetParam().mNumberPointers; ++i) {
    EXPECT_EQ(Expected('nope'), Call(GetID(), i)) << i;
    EXPECT_EQ(Expected('nope'), Call(kUnknownID, i)) << i;
  }
  EXPECT_THAT(gRecord.mCalls, IsEmpty());
}

TEST_P(Boundary, UnknownIDHasTheStatusOfItsKind) {
  EXPECT_EQ(GetParam().mNotFound, Call(kUnknownID));
  EXPECT_EQ(GetParam().mNotFound, Call(0));
  EXPECT_THAT(gRecord.mCalls, IsEmpty());
}

TEST_P(Boundary, ObjectOfAnotherKindIsNotFound) {
  if (GetParam().mNotFound != '!dev' && GetParam().mNotFound != '!str') {
    EXPECT_EQ(ExpectedSuccess(), Call(kDeviceID));
    return;
  }
  EXPECT_EQ(GetParam().mNotFound, Call(IsStreamEntry(GetParam()) ? kDeviceID : kStreamID));
  EXPECT_THAT(gRecord.mCalls, IsEmpty());
}

TEST_P(Boundary, StatusThatIsThrownComesBackWithTheMutexReleased) {
  CAMutex theMutex("test");
  HP_Object::SetObjectStateMutexForID(GetID(), &theMutex);
  gRecord.mAct = [] { throw CAException('!siz'); };
  EXPECT_EQ(Expected('!siz'), Call(GetID()));
  EXPECT_EQ(1u, gRecord.mCalls.size());
  EXPECT_TRUE(theMutex.IsFree());
}

TEST_P(Boundary, AnythingElseThrownIsUnspecifiedWithTheMutexReleased) {
  CAMutex theMutex("test");
  HP_Object::SetObjectStateMutexForID(GetID(), &theMutex);
  gRecord.mAct = [] { throw std::bad_alloc(); };
  EXPECT_EQ(Expected('what'), Call(GetID()));
  gRecord.mAct = [] { throw 5; };
  EXPECT_EQ(Expected('what'), Call(GetID()));
  EXPECT_TRUE(theMutex.IsFree());
}

TEST_P(Boundary, StateMutexIsHeldAroundPropertyCallsAlone) {
  CAMutex theMutex("test");
  HP_Object::SetObjectStateMutexForID(GetID(), &theMutex);
  bool theWasOwned = !GetParam().mLocks;
  gRecord.mAct = [&] { theWasOwned = theMutex.IsOwnedByCurrentThread(); };
  EXPECT_EQ(ExpectedSuccess(), Call(GetID()));
  EXPECT_EQ(GetParam().mLocks, theWasOwned);
  EXPECT_TRUE(theMutex.IsFree());
}

TEST_P(Boundary, MutexThatTheCallerHasStaysItsOwn) {
  CAMutex theMutex("test");
  HP_Object::SetObjectStateMutexForID(GetID(), &theMutex);
  theMutex.Lock();
  EXPECT_EQ(ExpectedSuccess(), Call(GetID()));
  EXPECT_TRUE(theMutex.IsOwnedByCurrentThread());
  gRecord.mAct = [] { throw CAException('!siz'); };
  EXPECT_EQ(Expected('!siz'), Call(GetID()));
  EXPECT_TRUE(theMutex.IsOwnedByCurrentThread());
  theMutex.Unlock();
}

// A mutex on which the wait for it is itself the moment in which the object dies.
class DeadlyMutex : public CAMutex {
 public:
  explicit DeadlyMutex(HP_Object& inObject) : CAMutex("deadly"), mObject(inObject) {}
  bool Lock() override {
    mObject.SetObjectID(0);
    return CAMutex::Lock();
  }

 private:
  HP_Object& mObject;
};

TEST_P(Boundary, ObjectThatGoesDuringTheWaitIsABadObject) {
  HP_Object& theObject = IsStreamEntry(GetParam()) ? static_cast<HP_Object&>(mStream) : mDevice;
  DeadlyMutex theMutex(theObject);
  HP_Object::SetObjectStateMutexForID(GetID(), &theMutex);
  const OSStatus theAnswer = Call(GetID());
  if (GetParam().mLocks) {
    EXPECT_EQ(Expected('!obj'), theAnswer);
    EXPECT_THAT(gRecord.mCalls, IsEmpty());
  } else {
    EXPECT_EQ(ExpectedSuccess(), theAnswer);
    EXPECT_EQ(1u, gRecord.mCalls.size());
  }
  EXPECT_TRUE(theMutex.IsFree());
}

TEST_P(Boundary, CallThatWaitsForTheMutexOfADyingObjectIsRefused) {
  if (!GetParam().mLocks) {
    EXPECT_EQ(ExpectedSuccess(), Call(GetID()));
    return;
  }
  HP_Object& theObject = IsStreamEntry(GetParam()) ? static_cast<HP_Object&>(mStream) : mDevice;
  CAMutex theMutex("test");
  HP_Object::SetObjectStateMutexForID(GetID(), &theMutex);
  theMutex.Lock();
  OSStatus theAnswer = 1;
  // Whether the call gets to its wait before the object is gone or after, it must not reach it.
  std::thread theCaller([&] { theAnswer = Call(GetID()); });
  theObject.SetObjectID(0);
  theMutex.Unlock();
  theCaller.join();
  EXPECT_TRUE(theAnswer == Expected('!obj') || theAnswer == GetParam().mNotFound) << theAnswer;
  EXPECT_THAT(gRecord.mCalls, IsEmpty());
  EXPECT_TRUE(theMutex.IsFree());
}

INSTANTIATE_TEST_SUITE_P(Entries, Boundary, testing::ValuesIn(kEntries),
                         [](const auto& inInfo) { return std::string(inInfo.param.mName); });

}  // namespace
