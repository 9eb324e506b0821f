#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "formats/HP_Stream.h"
#include "objects/HP_HardwarePlugIn.h"
#include "objects/HP_Object.h"
#include "objects/HP_Property.h"
#include "support/CAException.h"
#include "support/CAMutex.h"

namespace {

using testing::ElementsAre;

// What PropertiesChanged told the host, and what holds while it does.
struct Told {
  AudioHardwarePlugInRef mPlugIn;
  AudioObjectID mObjectID;
  std::vector<UInt32> mSelectors;
};
std::vector<Told> sTold;
std::function<void()> sWhileTelling;

template <class Call>
OSStatus StatusOf(Call inCall) {
  try {
    inCall();
    return 0;
  } catch (const CAException& inException) {
    return inException.GetError();
  }
}

// A helper with the addresses that it is given; its value is one byte.
class Helper : public HP_Property {
 public:
  explicit Helper(std::vector<AudioObjectPropertyAddress> inAddresses)
      : mAddresses(std::move(inAddresses)) {}

  bool IsActive(const AudioObjectPropertyAddress& inAddress) const override {
    mAsked.push_back(inAddress.mSelector);
    mAskedScope = inAddress.mScope;
    return mActive;
  }
  bool IsPropertySettable(const AudioObjectPropertyAddress&) const override { return mSettable; }
  UInt32 GetPropertyDataSize(const AudioObjectPropertyAddress&, UInt32 inQualifierSize,
                             const void*) const override {
    return 1 + inQualifierSize;
  }
  void GetPropertyData(const AudioObjectPropertyAddress&, UInt32, const void*, UInt32& ioSize,
                       void* outData) const override {
    ioSize = 1;
    std::memcpy(outData, &mValue, 1);
  }
  void SetPropertyData(const AudioObjectPropertyAddress&, UInt32, const void*, UInt32 inSize,
                       const void* inData, const AudioTimeStamp* inWhen) override {
    EXPECT_EQ(1u, inSize);
    std::memcpy(&mValue, inData, 1);
    mWhen = inWhen;
  }
  UInt32 GetNumberAddressesImplemented() const override {
    return static_cast<UInt32>(mAddresses.size());
  }
  void GetImplementedAddressByIndex(UInt32 inIndex,
                                    AudioObjectPropertyAddress& outAddress) const override {
    // The address comes in as a default one.
    EXPECT_EQ(0u, outAddress.mSelector);
    EXPECT_EQ(UInt32{'glob'}, outAddress.mScope);
    outAddress = mAddresses[inIndex];
  }

  std::vector<AudioObjectPropertyAddress> mAddresses;
  mutable AudioObjectPropertyScope mAskedScope = 0;
  bool mActive = true;
  bool mSettable = true;
  UInt8 mValue = 0;
  const AudioTimeStamp* mWhen = nullptr;
  mutable std::vector<UInt32> mAsked;
};

class TestObject : public HP_Object {
 public:
  explicit TestObject(AudioObjectID inID = 0, AudioClassID inClass = 'aobj',
                      HP_HardwarePlugIn* inPlugIn = nullptr)
      : HP_Object(inID, inClass, inPlugIn) {}

  using HP_Object::AddProperty;
  using HP_Object::FindActivePropertyByAddress;
  using HP_Object::RemoveProperty;

  CAMutex* GetObjectStateMutex() override { return mMutex; }
  void PropertyListenerAdded(const AudioObjectPropertyAddress& inAddress) override {
    mAdded.push_back(inAddress.mSelector);
  }
  void PropertyListenerRemoved(const AudioObjectPropertyAddress& inAddress) override {
    mRemoved.push_back(inAddress.mSelector);
  }

  CAMutex* mMutex = nullptr;
  std::vector<UInt32> mAdded;
  std::vector<UInt32> mRemoved;
};

AudioObjectPropertyAddress Address(UInt32 inSelector, UInt32 inScope = 'glob',
                                   UInt32 inElement = 0) {
  return {inSelector, inScope, inElement};
}

TEST(Property, BaseIsActiveSettableAndEmpty) {
  HP_Property theProperty;
  theProperty.Initialize();
  theProperty.Teardown();
  EXPECT_TRUE(theProperty.IsActive(Address('a')));
  EXPECT_TRUE(theProperty.IsPropertySettable(Address('a')));
  EXPECT_EQ(0u, theProperty.GetPropertyDataSize(Address('a'), 0, nullptr));
  UInt32 theSize = 4;
  UInt32 theData = 7;
  theProperty.GetPropertyData(Address('a'), 0, nullptr, theSize, &theData);
  EXPECT_EQ(0u, theSize);
  EXPECT_EQ(7u, theData);
  theProperty.SetPropertyData(Address('a'), 0, nullptr, 4, &theData, nullptr);
  EXPECT_EQ(0u, theProperty.GetNumberAddressesImplemented());
  AudioObjectPropertyAddress theAddress = {1, 2, 3};
  theProperty.GetImplementedAddressByIndex(0, theAddress);
  EXPECT_EQ(1u, theAddress.mSelector);
}

TEST(ObjectMap, ObjectWithAnIDIsFoundForItsLife) {
  EXPECT_EQ(nullptr, HP_Object::GetObjectByID(1000));
  {
    TestObject theObject(1000);
    EXPECT_EQ(1000u, theObject.GetObjectID());
    EXPECT_EQ(&theObject, HP_Object::GetObjectByID(1000));
  }
  EXPECT_EQ(nullptr, HP_Object::GetObjectByID(1000));
}

TEST(ObjectMap, ObjectWithoutAnIDIsNotFound) {
  TestObject theObject(0);
  EXPECT_EQ(nullptr, HP_Object::GetObjectByID(0));
}

TEST(ObjectMap, ObjectMovesToANewID) {
  TestObject theObject(1001);
  theObject.SetObjectID(1002);
  EXPECT_EQ(1002u, theObject.GetObjectID());
  EXPECT_EQ(nullptr, HP_Object::GetObjectByID(1001));
  EXPECT_EQ(&theObject, HP_Object::GetObjectByID(1002));
}

TEST(ObjectMap, IDOfZeroTakesTheObjectOutForGood) {
  TestObject theObject(1003);
  theObject.SetObjectID(0);
  EXPECT_EQ(nullptr, HP_Object::GetObjectByID(1003));
  EXPECT_EQ(nullptr, HP_Object::GetObjectByID(0));
  EXPECT_EQ(0u, theObject.GetObjectID());
}

TEST(ObjectMap, DeathOfAnObjectLeavesWhoHasTakenItsID) {
  TestObject theHeir;
  {
    TestObject theObject(1004);
    theHeir.SetObjectID(1004);
  }
  EXPECT_EQ(&theHeir, HP_Object::GetObjectByID(1004));
}

TEST(ObjectMap, StreamIsAnObjectButNoDevice) {
  HP_Stream theStream(1005, nullptr, nullptr, false, 1);
  EXPECT_EQ(&theStream, HP_Object::GetObjectByID(1005));
  EXPECT_EQ(&theStream, HP_Object::GetStreamByID(1005));
  EXPECT_EQ(nullptr, HP_Object::GetDeviceByID(1005));
}

TEST(ObjectMap, OtherObjectsAreNeitherDeviceNorStream) {
  TestObject theObject(1006, 'actl');
  EXPECT_EQ(nullptr, HP_Object::GetDeviceByID(1006));
  EXPECT_EQ(nullptr, HP_Object::GetStreamByID(1006));
  EXPECT_EQ(nullptr, HP_Object::GetDeviceByID(999999));
  EXPECT_EQ(nullptr, HP_Object::GetStreamByID(999999));
}

TEST(StateMutexMap, KnowsWhatItWasTold) {
  CAMutex theFirst("first");
  CAMutex theSecond("second");
  EXPECT_EQ(nullptr, HP_Object::GetObjectStateMutexByID(2000));
  HP_Object::SetObjectStateMutexForID(2000, &theFirst);
  EXPECT_EQ(&theFirst, HP_Object::GetObjectStateMutexByID(2000));
  EXPECT_EQ(nullptr, HP_Object::GetObjectStateMutexByID(2001));
  HP_Object::SetObjectStateMutexForID(2000, &theSecond);
  EXPECT_EQ(&theSecond, HP_Object::GetObjectStateMutexByID(2000));
  HP_Object::SetObjectStateMutexForID(2000, nullptr);
  EXPECT_EQ(nullptr, HP_Object::GetObjectStateMutexByID(2000));
}

TEST(StateMutexMap, IsNotTouchedByTheDeathOfAnObject) {
  CAMutex theMutex("test");
  {
    TestObject theObject(2002);
    HP_Object::SetObjectStateMutexForID(2002, &theMutex);
  }
  EXPECT_EQ(&theMutex, HP_Object::GetObjectStateMutexByID(2002));
  HP_Object::SetObjectStateMutexForID(2002, nullptr);
}

TEST(StateMutexMap, IsReadWhileItIsWritten) {
  CAMutex theMutex("test");
  std::atomic<bool> theStop{false};
  std::atomic<int> theWrong{0};
  std::thread theReader([&] {
    while (!theStop) {
      for (AudioObjectID i = 3000; i < 3400; ++i) {
        CAMutex* theSeen = HP_Object::GetObjectStateMutexByID(i);
        if (theSeen != nullptr && theSeen != &theMutex) ++theWrong;
      }
    }
  });
  for (int theRound = 0; theRound < 50; ++theRound) {
    for (AudioObjectID i = 3000; i < 3400; ++i) HP_Object::SetObjectStateMutexForID(i, &theMutex);
    for (AudioObjectID i = 3000; i < 3400; ++i) HP_Object::SetObjectStateMutexForID(i, nullptr);
  }
  theStop = true;
  theReader.join();
  EXPECT_EQ(0, theWrong);
}

TEST(ClassHierarchy, IsThatOfTheTable) {
  const std::map<UInt32, std::vector<UInt32>> theMembers = {
      {'adev', {'adev', 'aagg'}},
      {'actl',
       {'actl', 'atch', 'clck', 'dest', 'dsrc', 'jack', 'levl', 'mute', 'nlvl', 'pram', 'slct',
        'solo', 'span', 'subm', 'subv', 'togl', 'vlme'}},
      {'levl', {'levl', 'pram', 'subv', 'vlme'}},
      {'slct', {'slct', 'clck', 'dest', 'dsrc', 'nlvl'}},
      {'togl', {'togl', 'atch', 'jack', 'mute', 'solo', 'subm'}}};
  const std::vector<UInt32> theClasses = {
      'aobj', 'adev', 'aagg', 'actl', 'atch', 'clck', 'dest', 'dsrc', 'jack',    'levl',
      'mute', 'nlvl', 'pram', 'slct', 'solo', 'span', 'subm', 'subv', 'togl',    'vlme',
      'aplg', 'astr', 'asub', 'asys', 'sldr', '****', 0,      'none', ~UInt32{0}};
  for (UInt32 theBase : theClasses) {
    for (UInt32 theClass : theClasses) {
      bool theExpected = theClass == theBase || theBase == 'aobj';
      if (auto theEntry = theMembers.find(theBase); theEntry != theMembers.end()) {
        theExpected = std::count(theEntry->second.begin(), theEntry->second.end(), theClass) != 0;
      }
      EXPECT_EQ(theExpected, HP_Object::IsSubClass(theClass, theBase))
          << std::hex << theClass << " below " << theBase;
    }
  }
}

TEST(ObjectProperties, ListenerSelectorsAreAnsweredWithoutHelpers) {
  TestObject theObject;
  for (UInt32 theSelector : {UInt32{'lisa'}, UInt32{'lisr'}}) {
    for (UInt32 theScope : {UInt32{'glob'}, UInt32{'inpt'}, UInt32{0}}) {
      for (UInt32 theElement : {0u, 7u}) {
        auto theAddress = Address(theSelector, theScope, theElement);
        EXPECT_TRUE(theObject.HasProperty(theAddress));
        EXPECT_TRUE(theObject.IsPropertySettable(theAddress));
        EXPECT_EQ(12u, theObject.GetPropertyDataSize(theAddress, 0, nullptr));
        AudioObjectPropertyAddress theData = {1, 2, 3};
        UInt32 theSize = 12;
        theObject.GetPropertyData(theAddress, 0, nullptr, theSize, &theData);
        EXPECT_EQ(12u, theSize);
        EXPECT_EQ(0u, theData.mSelector);
        EXPECT_EQ(0u, theData.mScope);
        EXPECT_EQ(0u, theData.mElement);
      }
    }
  }
}

TEST(ObjectProperties, ListenerSelectorsComeBeforeAnyHelper) {
  TestObject theObject;
  Helper theHelper({Address('****', '****', 0xFFFFFFFF)});
  theObject.AddProperty(&theHelper);
  EXPECT_EQ(12u, theObject.GetPropertyDataSize(Address('lisa'), 0, nullptr));
  EXPECT_TRUE(theHelper.mAsked.empty());
  EXPECT_EQ(1u, theObject.GetPropertyDataSize(Address('a'), 0, nullptr));
}

TEST(ObjectProperties, ListenerReadOfAnotherSizeIsRefused) {
  TestObject theObject;
  UInt8 theData[16] = {9};
  for (UInt32 theWrongSize : {0u, 11u, 13u, 16u}) {
    UInt32 theSize = theWrongSize;
    EXPECT_EQ('!siz', StatusOf([&] {
                theObject.GetPropertyData(Address('lisa'), 0, nullptr, theSize, theData);
              }));
  }
  EXPECT_EQ(9, theData[0]);
}

TEST(ObjectProperties, ListenerWriteReachesItsHook) {
  TestObject theObject;
  AudioObjectPropertyAddress theData = Address('fsiz');
  theObject.SetPropertyData(Address('lisa'), 0, nullptr, 12, &theData, nullptr);
  EXPECT_THAT(theObject.mAdded, ElementsAre('fsiz'));
  EXPECT_TRUE(theObject.mRemoved.empty());
  theObject.SetPropertyData(Address('lisr'), 0, nullptr, 12, &theData, nullptr);
  EXPECT_THAT(theObject.mAdded, ElementsAre('fsiz'));
  EXPECT_THAT(theObject.mRemoved, ElementsAre('fsiz'));
}

TEST(ObjectProperties, ListenerWriteOfAnotherSizeReachesNoHook) {
  TestObject theObject;
  AudioObjectPropertyAddress theData[2] = {};
  for (UInt32 theSelector : {UInt32{'lisa'}, UInt32{'lisr'}}) {
    for (UInt32 theSize : {0u, 11u, 13u, 24u}) {
      EXPECT_EQ('!siz', StatusOf([&] {
                  theObject.SetPropertyData(Address(theSelector), 0, nullptr, theSize, theData,
                                            nullptr);
                }));
    }
  }
  EXPECT_TRUE(theObject.mAdded.empty());
  EXPECT_TRUE(theObject.mRemoved.empty());
}

TEST(ObjectProperties, ListenerDataThatIsMissingIsRefused) {
  TestObject theObject;
  UInt32 theSize = 12;
  EXPECT_EQ('nope', StatusOf([&] {
              theObject.GetPropertyData(Address('lisa'), 0, nullptr, theSize, nullptr);
            }));
  EXPECT_EQ('nope', StatusOf([&] {
              theObject.SetPropertyData(Address('lisa'), 0, nullptr, 12, nullptr, nullptr);
            }));
}

TEST(ObjectProperties, UnknownOnesAreNotThere) {
  TestObject theObject;
  UInt32 theSize = 4;
  UInt32 theData = 0;
  EXPECT_FALSE(theObject.HasProperty(Address('a')));
  EXPECT_EQ('who?', StatusOf([&] { theObject.IsPropertySettable(Address('a')); }));
  EXPECT_EQ('who?', StatusOf([&] { theObject.GetPropertyDataSize(Address('a'), 0, nullptr); }));
  EXPECT_EQ('who?', StatusOf([&] {
              theObject.GetPropertyData(Address('a'), 0, nullptr, theSize, &theData);
            }));
  EXPECT_EQ('who?', StatusOf([&] {
              theObject.SetPropertyData(Address('a'), 0, nullptr, 4, &theData, nullptr);
            }));
}

TEST(ObjectProperties, KnownOnesAreTheHelpers) {
  TestObject theObject;
  Helper theHelper({Address('a')});
  theHelper.mValue = 7;
  theObject.AddProperty(&theHelper);
  EXPECT_TRUE(theObject.HasProperty(Address('a')));
  EXPECT_TRUE(theObject.IsPropertySettable(Address('a')));
  EXPECT_EQ(4u, theObject.GetPropertyDataSize(Address('a'), 3, "abc"));
  UInt32 theSize = 1;
  UInt8 theValue = 0;
  theObject.GetPropertyData(Address('a'), 0, nullptr, theSize, &theValue);
  EXPECT_EQ(7, theValue);
  theValue = 8;
  AudioTimeStamp theWhen = {};
  theObject.SetPropertyData(Address('a'), 0, nullptr, 1, &theValue, &theWhen);
  EXPECT_EQ(8, theHelper.mValue);
  EXPECT_EQ(&theWhen, theHelper.mWhen);
}

TEST(ObjectProperties, WriteOfAnUnsettableOneIsRefused) {
  TestObject theObject;
  Helper theHelper({Address('a')});
  theHelper.mSettable = false;
  theObject.AddProperty(&theHelper);
  UInt8 theValue = 8;
  EXPECT_FALSE(theObject.IsPropertySettable(Address('a')));
  EXPECT_EQ('nope', StatusOf([&] {
              theObject.SetPropertyData(Address('a'), 0, nullptr, 1, &theValue, nullptr);
            }));
  EXPECT_EQ(0, theHelper.mValue);
}

// A subclass decides about settability for all selectors, listeners' included.
TEST(ObjectProperties, SubclassesAnswerCountsForAWrite) {
  class Strict : public TestObject {
   public:
    bool IsPropertySettable(const AudioObjectPropertyAddress&) const override { return false; }
  } theObject;
  AudioObjectPropertyAddress theData = {};
  EXPECT_EQ('nope', StatusOf([&] {
              theObject.SetPropertyData(Address('lisa'), 0, nullptr, 12, &theData, nullptr);
            }));
  EXPECT_EQ('nope', StatusOf([&] {
              theObject.SetPropertyData(Address('a'), 0, nullptr, 12, &theData, nullptr);
            }));
  class Lax : public TestObject {
   public:
    bool IsPropertySettable(const AudioObjectPropertyAddress&) const override { return true; }
  } theOther;
  EXPECT_EQ('who?', StatusOf([&] {
              theOther.SetPropertyData(Address('a'), 0, nullptr, 12, &theData, nullptr);
            }));
}

TEST(ObjectProperties, InactiveHelperIsPassedOver) {
  TestObject theObject;
  Helper theHelper({Address('a')});
  theHelper.mActive = false;
  theObject.AddProperty(&theHelper);
  EXPECT_FALSE(theObject.HasProperty(Address('a')));
  EXPECT_EQ('who?', StatusOf([&] { theObject.GetPropertyDataSize(Address('a'), 0, nullptr); }));
  theHelper.mActive = true;
  EXPECT_TRUE(theObject.HasProperty(Address('a')));
}

TEST(ObjectProperties, WildcardRequestIsAnsweredByTheFirstActiveHelper) {
  TestObject theObject;
  Helper theFirst({Address('a', 'inpt')});
  Helper theSecond({Address('a', 'outp')});
  theFirst.mActive = false;
  theObject.AddProperty(&theFirst);
  theObject.AddProperty(&theSecond);
  EXPECT_EQ(&theSecond, theObject.FindActivePropertyByAddress(Address('a', '****')));
  EXPECT_THAT(theFirst.mAsked, ElementsAre('a'));
  // It is asked about the request, not about the address that it implements.
  EXPECT_EQ(UInt32{'****'}, theFirst.mAskedScope);
  theFirst.mActive = true;
  EXPECT_EQ(&theFirst, theObject.FindActivePropertyByAddress(Address('a', '****')));
}

TEST(ObjectProperties, HelperWithACollidingAddressKeepsThoseBeforeIt) {
  TestObject theObject;
  Helper theFirst({Address('b')});
  Helper theSecond({Address('a'), Address('b'), Address('c')});
  theObject.AddProperty(&theFirst);
  EXPECT_EQ('nope', StatusOf([&] { theObject.AddProperty(&theSecond); }));
  EXPECT_EQ(&theSecond, theObject.FindActivePropertyByAddress(Address('a')));
  EXPECT_EQ(&theFirst, theObject.FindActivePropertyByAddress(Address('b')));
  EXPECT_EQ(nullptr, theObject.FindActivePropertyByAddress(Address('c')));
}

TEST(ObjectProperties, WildcardAddressCollidesWithAllThatItCovers) {
  TestObject theObject;
  Helper theWild({Address('****', 'inpt', 0xFFFFFFFF)});
  Helper theCovered({Address('a', 'inpt', 3)});
  Helper theOther({Address('a', 'outp', 3)});
  theObject.AddProperty(&theWild);
  EXPECT_EQ('nope', StatusOf([&] { theObject.AddProperty(&theCovered); }));
  EXPECT_EQ(0, StatusOf([&] { theObject.AddProperty(&theOther); }));
}

TEST(ObjectProperties, HelperWhoseOwnAddressesCollideIsRefused) {
  TestObject theObject;
  Helper theHelper({Address('a'), Address('a')});
  EXPECT_EQ('nope', StatusOf([&] { theObject.AddProperty(&theHelper); }));
  EXPECT_TRUE(theObject.HasProperty(Address('a')));
}

TEST(ObjectProperties, RemovedHelperAnswersNoMore) {
  TestObject theObject;
  Helper theFirst({Address('a'), Address('b')});
  Helper theSecond({Address('c')});
  theObject.AddProperty(&theFirst);
  theObject.AddProperty(&theSecond);
  theObject.RemoveProperty(&theFirst);
  EXPECT_FALSE(theObject.HasProperty(Address('a')));
  EXPECT_FALSE(theObject.HasProperty(Address('b')));
  EXPECT_TRUE(theObject.HasProperty(Address('c')));
  theObject.RemoveProperty(&theFirst);
  EXPECT_TRUE(theObject.HasProperty(Address('c')));
}

TEST(ObjectProperties, RemovalGoesByAddressAndNotByHelper) {
  TestObject theObject;
  Helper theFirst({Address('a')});
  Helper theOther({Address('a')});
  theObject.AddProperty(&theFirst);
  theObject.RemoveProperty(&theOther);
  EXPECT_FALSE(theObject.HasProperty(Address('a')));
}

TEST(ObjectProperties, RemovalTakesOnePairForEachAddress) {
  TestObject theObject;
  Helper theInput({Address('a', 'inpt')});
  Helper theOutput({Address('a', 'outp')});
  Helper theWild({Address('a', '****')});
  theObject.AddProperty(&theInput);
  theObject.AddProperty(&theOutput);
  theObject.RemoveProperty(&theWild);
  EXPECT_FALSE(theObject.HasProperty(Address('a', 'inpt')));
  EXPECT_TRUE(theObject.HasProperty(Address('a', 'outp')));
}

TEST(ObjectBase, DoesNothingAndHasNoMutex) {
  HP_Object theObject(0, 'aobj', nullptr);
  theObject.Initialize();
  theObject.Teardown();
  theObject.PropertyListenerAdded(Address('a'));
  theObject.PropertyListenerRemoved(Address('a'));
  EXPECT_EQ(nullptr, theObject.GetObjectStateMutex());
  EXPECT_EQ(UInt32{'aobj'}, theObject.GetClassID());
  EXPECT_EQ(nullptr, theObject.GetPlugIn());
}

class PropertiesChanged : public testing::Test {
 protected:
  void SetUp() override { sTold.clear(); }
  void TearDown() override { sWhileTelling = nullptr; }

  const AudioObjectPropertyAddress mAddresses[2] = {Address('a'), Address('b')};
};

TEST_F(PropertiesChanged, TellsTheHostForThePlugIn) {
  auto* thePlugIn = new HP_HardwarePlugIn(kAudioHardwarePlugInTypeID);
  thePlugIn->Retain();
  TestObject theObject(4000, 'aobj', thePlugIn);
  theObject.PropertiesChanged(2, mAddresses);
  ASSERT_EQ(1u, sTold.size());
  EXPECT_EQ(thePlugIn->GetInterface(), sTold[0].mPlugIn);
  EXPECT_EQ(4000u, sTold[0].mObjectID);
  EXPECT_THAT(sTold[0].mSelectors, ElementsAre('a', 'b'));
  thePlugIn->Release();
}

TEST_F(PropertiesChanged, LetsTheMutexGoAroundTheCallIfItIsOurs) {
  CAMutex theMutex("test");
  TestObject theObject;
  theObject.mMutex = &theMutex;
  bool theWasFree = false;
  sWhileTelling = [&] { theWasFree = theMutex.IsFree(); };
  theMutex.Lock();
  theObject.PropertiesChanged(1, mAddresses);
  EXPECT_TRUE(theWasFree);
  EXPECT_TRUE(theMutex.IsOwnedByCurrentThread());
  theMutex.Unlock();
}

TEST_F(PropertiesChanged, DoesNotTakeAMutexThatIsNotOurs) {
  CAMutex theMutex("test");
  TestObject theObject;
  theObject.mMutex = &theMutex;
  theObject.PropertiesChanged(1, mAddresses);
  EXPECT_TRUE(theMutex.IsFree());

  theMutex.Lock();
  bool theWasFree = true;
  sWhileTelling = [&] { theWasFree = theMutex.IsFree(); };
  std::thread([&] { theObject.PropertiesChanged(1, mAddresses); }).join();
  EXPECT_FALSE(theWasFree);
  EXPECT_TRUE(theMutex.IsOwnedByCurrentThread());
  theMutex.Unlock();
  EXPECT_EQ(2u, sTold.size());
}

class NamedObject : public TestObject {
 public:
  NamedObject(AudioObjectID inID, CFStringRef inName) : TestObject(inID, 'astr'), mName(inName) {}
  void GetPropertyData(const AudioObjectPropertyAddress& inAddress, UInt32, const void*,
                       UInt32& ioDataSize, void* outData) const override {
    EXPECT_EQ(UInt32{'lnam'}, inAddress.mSelector);
    EXPECT_EQ(UInt32{'glob'}, inAddress.mScope);
    EXPECT_EQ(0u, inAddress.mElement);
    EXPECT_EQ(8u, ioDataSize);
    if (mName == nullptr) throw CAException('who?');
    CFRetain(mName);
    std::memcpy(outData, &mName, sizeof(mName));
  }
  CFStringRef mName;
};

std::string ShownBy(const HP_Object& inObject) {
  testing::internal::CaptureStdout();
  inObject.Show();
  std::fflush(stdout);
  return testing::internal::GetCapturedStdout();
}

TEST(Show, PrintsIDClassAndName) {
  CFMutableStringRef theName = CFStringCreateMutable(kCFAllocatorDefault, 0);
  CFStringAppend(theName, CFSTR("Tembra Audio"));
  EXPECT_EQ("AudioObjectID:\t\t0x1F00\n\tAudioClassID:\t'astr'\n\tName:\t\t\tTembra Audio\n",
            ShownBy(NamedObject(0x1F00, theName)));
  EXPECT_EQ(1, CFGetRetainCount(theName));
  CFRelease(theName);
}

TEST(Show, PrintsAnEmptyNameIfThereIsNone) {
  EXPECT_EQ("AudioObjectID:\t\t0x1F01\n\tAudioClassID:\t'astr'\n\tName:\t\t\t\n",
            ShownBy(NamedObject(0x1F01, nullptr)));
  EXPECT_EQ("AudioObjectID:\t\t0x0\n\tAudioClassID:\t'aplg'\n\tName:\t\t\t\n",
            ShownBy(HP_Object(0, 'aplg', nullptr)));
}

TEST(Show, CutsANameAt255Bytes) {
  const std::string theText(300, 'n');
  CFStringRef theName =
      CFStringCreateWithCString(kCFAllocatorDefault, theText.c_str(), kCFStringEncodingUTF8);
  EXPECT_EQ("AudioObjectID:\t\t0x1F02\n\tAudioClassID:\t'astr'\n\tName:\t\t\t" +
                theText.substr(0, 255) + "\n",
            ShownBy(NamedObject(0x1F02, theName)));
  CFRelease(theName);
}

}  // namespace

extern "C" OSStatus AudioObjectPropertiesChanged(AudioHardwarePlugInRef inPlugIn,
                                                 AudioObjectID inObjectID, UInt32 inNumberAddresses,
                                                 const AudioObjectPropertyAddress* inAddresses) {
  sTold.push_back({inPlugIn, inObjectID, {}});
  for (UInt32 i = 0; i < inNumberAddresses; ++i) {
    sTold.back().mSelectors.push_back(inAddresses[i].mSelector);
  }
  if (sWhileTelling) sWhileTelling();
  return 0;
}
