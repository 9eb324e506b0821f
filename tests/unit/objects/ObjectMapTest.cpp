#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "TestObject.h"
#include "formats/HP_Stream.h"
#include "support/CAMutex.h"

namespace tembra::test {
namespace {

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

}  // namespace
}  // namespace tembra::test
