#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

#include "TestObject.h"

namespace tembra::test {
namespace {

using testing::ElementsAre;

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

}  // namespace
}  // namespace tembra::test
