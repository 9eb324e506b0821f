// The properties of each kind of control.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>

#include "Controls.h"

namespace tembra::test {
namespace {

using testing::ElementsAre;

// What each kind must hold of one of its selectors.
void ExpectSurface(HP_Control& inControl, UInt32 inSelector, UInt32 inSize, bool inSettable) {
  for (const CAPropertyAddress theAddress :
       {CAPropertyAddress(inSelector), CAPropertyAddress(inSelector, 'inpt', 9)}) {
    SCOPED_TRACE(TextOf(theAddress));
    EXPECT_TRUE(inControl.HasProperty(theAddress));
    EXPECT_EQ(inControl.IsPropertySettable(theAddress), inSettable);
    EXPECT_EQ(inControl.GetPropertyDataSize(theAddress, 0, nullptr), inSize);
    std::array<UInt8, 64> theData{};
    for (UInt32 theSize : {0U, inSize - 1, inSize + 1, 64U}) {
      if (inSelector != 'scai') {
        EXPECT_EQ(StatusOf([&] {
                    inControl.GetPropertyData(theAddress, 0, nullptr, theSize, theData.data());
                  }),
                  561211770);
      }
      EXPECT_EQ(StatusOf([&] {
                  inControl.SetPropertyData(theAddress, 0, nullptr, theSize, theData.data(),
                                            nullptr);
                }),
                inSettable ? '!siz' : 'nope');
    }
  }
}

void ExpectBaseIsReached(HP_Control& inControl) {
  EXPECT_TRUE(inControl.HasProperty(CAPropertyAddress('cscp')));
  EXPECT_FALSE(inControl.IsPropertySettable(CAPropertyAddress('cscp')));
  EXPECT_EQ(inControl.GetPropertyDataSize(CAPropertyAddress('lnam'), 0, nullptr), 8U);
  EXPECT_EQ(Get<UInt32>(inControl, CAPropertyAddress('celm')), inControl.GetPropertyElement());
  EXPECT_FALSE(inControl.HasProperty(CAPropertyAddress('lctf')));
  EXPECT_EQ(StatusOf([&] { inControl.IsPropertySettable(CAPropertyAddress('lctf')); }), 'who?');
  EXPECT_EQ(StatusOf([&] { Get<UInt32>(inControl, CAPropertyAddress('lctf')); }), 'who?');
  EXPECT_EQ(StatusOf([&] { Set<UInt32>(inControl, CAPropertyAddress('lctf'), 1); }), 'who?');
}

class Kinds : public testing::Test {
 protected:
  SimulatedDevice mDevice;
};

TEST_F(Kinds, LevelSurface) {
  LevelControl theControl('vlme', &mDevice);
  EXPECT_EQ(theControl.GetBaseClassID(), 1818588780U);
  ExpectSurface(theControl, 'lcsv', 4, true);
  ExpectSurface(theControl, 'lcdv', 4, true);
  ExpectSurface(theControl, 'lcdr', 16, false);
  ExpectSurface(theControl, 'lcsd', 4, false);
  ExpectSurface(theControl, 'lcds', 4, false);
  ExpectBaseIsReached(theControl);
}

TEST_F(Kinds, LevelValues) {
  LevelControl theControl('vlme', &mDevice);
  EXPECT_EQ(Get<Float32>(theControl, CAPropertyAddress('lcsv')), 0.75F);
  EXPECT_EQ(Get<Float32>(theControl, CAPropertyAddress('lcdv')), -12.5F);
  Set(theControl, CAPropertyAddress('lcsv'), 0.125F);
  Set(theControl, CAPropertyAddress('lcdv'), -3.0F);
  EXPECT_EQ(theControl.mScalar, 0.125F);
  EXPECT_EQ(theControl.mDB, -3.0F);
  const auto theRange = Get<AudioValueRange>(theControl, CAPropertyAddress('lcdr'));
  EXPECT_EQ(theRange.mMinimum, -70.5);
  EXPECT_EQ(theRange.mMaximum, 6.25);
}

TEST_F(Kinds, LevelConversionsReadTheirInputFromTheBuffer) {
  LevelControl theControl('vlme', &mDevice);
  Float32 theValue = 0.5F;
  UInt32 theSize = sizeof(theValue);
  theControl.GetPropertyData(CAPropertyAddress('lcsd'), 0, nullptr, theSize, &theValue);
  EXPECT_EQ(theValue, 5.0F);
  theControl.GetPropertyData(CAPropertyAddress('lcds'), 0, nullptr, theSize, &theValue);
  EXPECT_EQ(theValue, 0.5F);
}

TEST_F(Kinds, BooleanSurface) {
  BooleanControl theControl('mute', &mDevice);
  EXPECT_EQ(theControl.GetBaseClassID(), 1953458028U);
  ExpectSurface(theControl, 'bcvl', 4, true);
  ExpectBaseIsReached(theControl);
  EXPECT_EQ(theControl.mSets, 0);
}

TEST_F(Kinds, BooleanValues) {
  BooleanControl theControl('mute', &mDevice);
  EXPECT_EQ(Get<UInt32>(theControl, CAPropertyAddress('bcvl')), 0U);
  Set<UInt32>(theControl, CAPropertyAddress('bcvl'), 2);
  EXPECT_TRUE(theControl.mValue);
  EXPECT_EQ(theControl.mSets, 1);
  EXPECT_EQ(Get<UInt32>(theControl, CAPropertyAddress('bcvl')), 1U);
  Set<UInt32>(theControl, CAPropertyAddress('bcvl'), 0);
  EXPECT_FALSE(theControl.mValue);
}

TEST_F(Kinds, BooleanIntoTwoBytesIsRefused) {
  BooleanControl theControl('mute', &mDevice);
  EXPECT_EQ(StatusOf([&] { Get<UInt16>(theControl, CAPropertyAddress('bcvl')); }), '!siz');
}

TEST_F(Kinds, SelectorSurface) {
  SelectorControl theControl('dsrc', &mDevice);
  EXPECT_EQ(theControl.GetBaseClassID(), 1936483188U);
  ExpectSurface(theControl, 'scci', 4, true);
  ExpectSurface(theControl, 'scai', 20, false);
  ExpectSurface(theControl, 'scin', 8, false);
  ExpectBaseIsReached(theControl);
}

TEST_F(Kinds, SelectorCurrentItem) {
  SelectorControl theControl('dsrc', &mDevice);
  EXPECT_EQ(Get<UInt32>(theControl, CAPropertyAddress('scci')), 20U);
  Set<UInt32>(theControl, CAPropertyAddress('scci'), 777);
  EXPECT_EQ(theControl.mCurrent, 777U);
}

TEST_F(Kinds, SelectorItemsFillTheRoomThatThereIs) {
  SelectorControl theControl('dsrc', &mDevice);
  const auto theItems = [&](UInt32 inRoom) {
    std::vector<UInt32> theIDs(16, 1);
    UInt32 theSize = inRoom;
    theControl.GetPropertyData(CAPropertyAddress('scai'), 0, nullptr, theSize, theIDs.data());
    EXPECT_EQ(theSize % 4, 0U);
    // Nothing is written behind what was filled.
    EXPECT_EQ(theIDs[theSize / 4], 1U);
    theIDs.resize(theSize / 4);
    return theIDs;
  };
  EXPECT_THAT(theItems(8), ElementsAre(10, 20));
  EXPECT_THAT(theItems(11), ElementsAre(10, 20));
  EXPECT_THAT(theItems(20), ElementsAre(10, 20, 30, 40, 50));
  EXPECT_THAT(theItems(60), ElementsAre(10, 20, 30, 40, 50));
  EXPECT_THAT(theItems(0), ElementsAre());
  theControl.mNumberItems = 0;
  EXPECT_THAT(theItems(20), ElementsAre());
  EXPECT_EQ(theControl.GetPropertyDataSize(CAPropertyAddress('scai'), 0, nullptr), 0U);
}

TEST_F(Kinds, SelectorItemNameNeedsAnIDInTheQualifier) {
  SelectorControl theControl('dsrc', &mDevice);
  const CAPropertyAddress theAddress('scin');
  const UInt32 theID = 30;
  EXPECT_EQ(TextOf(Get<CFStringRef>(theControl, theAddress, sizeof(theID), &theID)), "item 30");
  EXPECT_EQ(StatusOf([&] { Get<CFStringRef>(theControl, theAddress); }), '!siz');
  EXPECT_EQ(StatusOf([&] { Get<CFStringRef>(theControl, theAddress, 4, nullptr); }), '!siz');
  const UInt64 theWide = 30;
  EXPECT_EQ(StatusOf([&] { Get<CFStringRef>(theControl, theAddress, 8, &theWide); }), '!siz');
  EXPECT_EQ(StatusOf([&] { Get<UInt32>(theControl, theAddress, 4, &theID); }), '!siz');
  const UInt32 theUnknown = 31;
  EXPECT_EQ(StatusOf([&] { Get<CFStringRef>(theControl, theAddress, 4, &theUnknown); }), 'nope');
}

TEST_F(Kinds, OnlyAClockSourceHasItemKinds) {
  SelectorControl theSource('dsrc', &mDevice);
  EXPECT_FALSE(theSource.HasProperty(CAPropertyAddress('clkk')));
  SelectorControl theClock('clck', &mDevice);
  ExpectSurface(theClock, 'clkk', 4, false);
  const UInt32 theID = 30;
  EXPECT_EQ(Get<UInt32>(theClock, CAPropertyAddress('clkk'), sizeof(theID), &theID), 31U);
  EXPECT_EQ(StatusOf([&] { Get<UInt32>(theClock, CAPropertyAddress('clkk')); }), '!siz');
}

TEST_F(Kinds, StereoPanSurface) {
  StereoPanControl theControl('span', &mDevice);
  EXPECT_EQ(theControl.GetBaseClassID(), 1936744814U);
  ExpectSurface(theControl, 'spcv', 4, true);
  ExpectSurface(theControl, 'spcc', 8, false);
  ExpectBaseIsReached(theControl);
}

TEST_F(Kinds, StereoPanValues) {
  StereoPanControl theControl('span', &mDevice);
  EXPECT_EQ(Get<Float32>(theControl, CAPropertyAddress('spcv')), 0.5F);
  Set(theControl, CAPropertyAddress('spcv'), 0.875F);
  EXPECT_EQ(theControl.mValue, 0.875F);
  EXPECT_THAT((Get<std::array<UInt32, 2>>(theControl, CAPropertyAddress('spcc'))),
              ElementsAre(3, 4));
}

TEST_F(Kinds, WhatCanOnlyBeReadIsNotSettable) {
  LevelControl theLevel('vlme', &mDevice);
  BooleanControl theBoolean('mute', &mDevice);
  SelectorControl theSelector('dsrc', &mDevice);
  StereoPanControl thePan('span', &mDevice);
  theLevel.mIsReadOnly = theBoolean.mIsReadOnly = theSelector.mIsReadOnly = thePan.mIsReadOnly =
      true;
  EXPECT_FALSE(theLevel.IsPropertySettable(CAPropertyAddress('lcsv')));
  EXPECT_FALSE(theLevel.IsPropertySettable(CAPropertyAddress('lcdv')));
  EXPECT_FALSE(theBoolean.IsPropertySettable(CAPropertyAddress('bcvl')));
  EXPECT_FALSE(theSelector.IsPropertySettable(CAPropertyAddress('scci')));
  EXPECT_FALSE(thePan.IsPropertySettable(CAPropertyAddress('spcv')));
}

}  // namespace
}  // namespace tembra::test
