// Which control an address of the device means, and which properties change with a control.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <sstream>

#include "unit/controls/Controls.h"

namespace tembra::test {
namespace {

UInt32 CodeOf(const std::string& inText) {
  if (inText == "0") return 0;
  return (UInt32{static_cast<UInt8>(inText.at(0))} << 24) |
         (UInt32{static_cast<UInt8>(inText.at(1))} << 16) |
         (UInt32{static_cast<UInt8>(inText.at(2))} << 8) | UInt32{static_cast<UInt8>(inText.at(3))};
}

std::vector<std::string> Words(const std::string& inText) {
  std::istringstream theStream(inText);
  std::vector<std::string> theWords;
  for (std::string theWord; theStream >> theWord;) theWords.push_back(theWord);
  return theWords;
}

// One kind of control, where it stands, and the pairs of device and control selector.
struct Row {
  const char* mClass;
  const char* mScope;  // empty where the address's own counts
  const char* mPairs;
};

const Row kRows[] = {
    {"vlme", "", "volm lcsv vold lcdv vdb# lcdr v2db lcsd db2v lcds vctf lctf"},
    {"vlme", "ptru", "mvsc lcsv mvdb lcdv mvd# lcdr mv2d lcsd mv2s lcds mvtf lctf"},
    {"subv", "", "svlm lcsv svld lcdv svd# lcdr sv2d lcsd sd2v lcds svtf lctf"},
    {"pram", "", "bbvs lcsv bbvd lcdv bbd# lcdr bv2d lcsd bd2v lcds bvtf lctf"},
    {"mute", "", "mute bcvl"},
    {"solo", "", "solo bcvl"},
    {"jack", "", "jack bcvl"},
    {"subm", "", "smut bcvl"},
    {"atch", "", "isub bcvl"},
    {"mute", "ptru", "thru bcvl"},
    {"solo", "ptru", "thrs bcvl"},
    {"span", "", "span spcv spn# spcc"},
    {"span", "ptru", "mspn spcv msp# spcc"},
    {"dsrc", "", "ssrc scci ssc# scai sscn scin lscn scin"},
    {"dest", "ptru", "mdds scci mdd# scai mddn scin mddc scin"},
    {"clck", "", "csrc scci csc# scai cscn scin lcsn scin csck bcvl"},
    {"nlvl", "", "nlvl scci nlv# scai cnlv scin lcnl scin"},
};

class DeviceControls : public testing::Test {
 protected:
  SimulatedDevice mDevice;
};

TEST_F(DeviceControls, EachSelectorMeansAClassAScopeAndASelectorOfTheControl) {
  std::set<std::string> theSeen;
  for (const Row& theRow : kRows) {
    const std::vector<std::string> thePairs = Words(theRow.mPairs);
    for (size_t i = 0; i < thePairs.size(); i += 2) {
      SCOPED_TRACE(thePairs[i]);
      theSeen.insert(thePairs[i]);
      EXPECT_EQ(mDevice.ConvertDeviceSelectorToControlSelector(CodeOf(thePairs[i])),
                CodeOf(thePairs[i + 1]));
      for (const UInt32 theScope : {UInt32{'inpt'}, UInt32{'outp'}, UInt32{'****'}}) {
        UInt32 theClassID = 0;
        UInt32 theControlScope = 0;
        UInt32 theElement = 0;
        mDevice.ConvertDeviceAddressToControlAddress(
            CAPropertyAddress(CodeOf(thePairs[i]), theScope, 7), theClassID, theControlScope,
            theElement);
        EXPECT_EQ(theClassID, CodeOf(theRow.mClass));
        EXPECT_EQ(theControlScope, *theRow.mScope == 0 ? theScope : CodeOf(theRow.mScope));
        EXPECT_EQ(theElement, 7U);
      }
    }
  }
  EXPECT_EQ(theSeen.size(), 52U);
}

TEST_F(DeviceControls, AnUnknownSelectorLeavesTheClassAndHasNoControlSelector) {
  UInt32 theClassID = 12345;
  UInt32 theScope = 0;
  UInt32 theElement = 0;
  mDevice.ConvertDeviceAddressToControlAddress(CAPropertyAddress('zzzz', 'outp', 3), theClassID,
                                               theScope, theElement);
  EXPECT_EQ(theClassID, 12345U);
  EXPECT_EQ(theScope, UInt32{'outp'});
  EXPECT_EQ(theElement, 3U);
  EXPECT_EQ(mDevice.ConvertDeviceSelectorToControlSelector('zzzz'), 0U);
  EXPECT_EQ(mDevice.ConvertDeviceSelectorToControlSelector(0), 0U);
}

TEST_F(DeviceControls, PlayThroughInTheOutputMeansAMuteOfThePlayThrough) {
  PlainControl theMute('mute', &mDevice, 'outp', 1);
  PlainControl thePlayThrough('mute', &mDevice, 'ptru', 1);
  mDevice.AddControl(&theMute);
  mDevice.AddControl(&thePlayThrough);
  EXPECT_EQ(mDevice.GetControlByAddress(CAPropertyAddress('thru', 'outp', 1)), &thePlayThrough);
  EXPECT_EQ(mDevice.GetControlByAddress(CAPropertyAddress('mute', 'outp', 1)), &theMute);
  EXPECT_EQ(mDevice.GetControlByAddress(CAPropertyAddress('mute', 'ptru', 1)), &thePlayThrough);
  mDevice.RemoveAllControls();
}

TEST_F(DeviceControls, AControlIsFoundByClassScopeAndElement) {
  PlainControl theFirst('vlme', &mDevice, 'outp', 1);
  PlainControl theSecond('vlme', &mDevice, 'outp', 1);
  PlainControl theInput('vlme', &mDevice, 'inpt', 1);
  PlainControl theSource('dsrc', &mDevice, 'outp', 1);
  for (HP_Control* theControl :
       std::initializer_list<HP_Control*>{&theFirst, &theSecond, &theInput, &theSource}) {
    mDevice.AddControl(theControl);
  }
  EXPECT_EQ(mDevice.GetControlByAddress(CAPropertyAddress('volm', 'outp', 1)), &theFirst);
  EXPECT_EQ(mDevice.GetControlByAddress(CAPropertyAddress('vdb#', 'inpt', 1)), &theInput);
  EXPECT_EQ(mDevice.GetControlByAddress(CAPropertyAddress('lscn', 'outp', 1)), &theSource);
  EXPECT_EQ(mDevice.GetControlByAddress(CAPropertyAddress('volm', 'outp', 0)), nullptr);
  EXPECT_EQ(mDevice.GetControlByAddress(CAPropertyAddress('volm', 'glob', 1)), nullptr);
  EXPECT_EQ(mDevice.GetControlByAddress(CAPropertyAddress('svlm', 'outp', 1)), nullptr);
  // Wildcards are no place where a control could stand.
  EXPECT_EQ(mDevice.GetControlByAddress(CAPropertyAddress('volm', '****', 1)), nullptr);
  EXPECT_EQ(mDevice.GetControlByAddress(CAPropertyAddress('volm', 'outp', 0xFFFFFFFF)), nullptr);
  mDevice.RemoveControl(&theFirst);
  EXPECT_EQ(mDevice.GetControlByAddress(CAPropertyAddress('volm', 'outp', 1)), &theSecond);
  mDevice.RemoveAllControls();
}

TEST_F(DeviceControls, ASelectorWithoutAControlFindsNone) {
  PlainControl theControl('vlme', &mDevice, 'outp', 0);
  mDevice.AddControl(&theControl);
  EXPECT_EQ(mDevice.GetControlByAddress(CAPropertyAddress('zzzz', 'outp', 0)), nullptr);
  mDevice.RemoveAllControls();
}

TEST_F(DeviceControls, TheListKeepsItsOrder) {
  PlainControl theFirst('vlme', &mDevice);
  PlainControl theSecond('mute', &mDevice);
  PlainControl theThird('dsrc', &mDevice);
  EXPECT_EQ(mDevice.GetNumberControls(), 0U);
  mDevice.AddControl(&theFirst);
  mDevice.AddControl(&theSecond);
  mDevice.AddControl(&theThird);
  mDevice.RemoveControl(&theSecond);
  mDevice.RemoveControl(&theSecond);
  ASSERT_EQ(mDevice.GetNumberControls(), 2U);
  EXPECT_EQ(mDevice.GetControlByIndex(0), &theFirst);
  EXPECT_EQ(mDevice.GetControlByIndex(1), &theThird);
  EXPECT_EQ(mDevice.GetControlByIndex(2), nullptr);
  mDevice.RemoveAllControls();
  EXPECT_EQ(mDevice.GetNumberControls(), 0U);
}

// Notifications. Each row: class; value selectors, first to fourth; range selectors; with a star
// where the play through alone has it.

const char* const kNotifications[] = {
    "vlme volm vold *mvsc *mvdb vdb# *mvd#",
    "subv svlm svld 0 0 svd# 0",
    "pram bbvs bbvd 0 0 bbd# 0",
    "mute mute *thru 0 0 0 0",
    "solo solo *thrs 0 0 0 0",
    "span span *mspn 0 0 spn# *msp#",
    "clck csrc 0 0 0 csc# 0",
    "dest mdds 0 0 0 mdd# 0",
    "dsrc ssrc 0 0 0 ssc# 0",
    "nlvl nlvl 0 0 0 nlv# 0",
    "jack jack 0 0 0 0 0",
    "atch isub 0 0 0 0 0",
    "subm smut 0 0 0 0 0",
    "none 0 0 0 0 0 0",
};

struct Pair {
  UInt32 mSelector;
  UInt32 mScope;
};

std::vector<Pair> PairsFor(const HP_Device& inDevice, const HP_Control* inControl) {
  return {{inDevice.GetPrimaryValueChangedPropertySelectorForControl(inControl),
           inDevice.GetPrimaryValueChangedPropertyScopeForControl(inControl)},
          {inDevice.GetSecondaryValueChangedPropertySelectorForControl(inControl),
           inDevice.GetSecondaryValueChangedPropertyScopeForControl(inControl)},
          {inDevice.GetThirdValueChangedPropertySelectorForControl(inControl),
           inDevice.GetThirdValueChangedPropertyScopeForControl(inControl)},
          {inDevice.GetFourthValueChangedPropertySelectorForControl(inControl),
           inDevice.GetFourthValueChangedPropertyScopeForControl(inControl)},
          {inDevice.GetPrimaryRangeChangedPropertySelectorForControl(inControl),
           inDevice.GetPrimaryRangeChangedPropertyScopeForControl(inControl)},
          {inDevice.GetSecondaryRangeChangedPropertySelectorForControl(inControl),
           inDevice.GetSecondaryRangeChangedPropertyScopeForControl(inControl)}};
}

TEST_F(DeviceControls, WhatChangesWithAControl) {
  for (const char* theRow : kNotifications) {
    const std::vector<std::string> theWords = Words(theRow);
    for (const UInt32 theScope : {UInt32{'inpt'}, UInt32{'outp'}, UInt32{'ptru'}}) {
      const PlainControl theControl(CodeOf(theWords[0]), &mDevice, theScope, 1);
      const std::vector<Pair> thePairs = PairsFor(mDevice, &theControl);
      for (size_t i = 0; i < thePairs.size(); ++i) {
        SCOPED_TRACE(theWords[0] + " " + std::to_string(i) + " " + std::to_string(theScope));
        std::string theWord = theWords[i + 1];
        const bool isForPlayThrough = theWord[0] == '*';
        if (isForPlayThrough) theWord = theScope == 'ptru' ? theWord.substr(1) : "0";
        EXPECT_EQ(thePairs[i].mSelector, CodeOf(theWord));
      }
    }
  }
}

TEST_F(DeviceControls, WhereItChanges) {
  const std::set<std::string> theOwnSecondary = {"vlme", "pram", "subv"};
  const std::set<std::string> thePlayThroughSecondary = {"mute", "solo", "span"};
  for (const char* theRow : kNotifications) {
    const std::string theClass = Words(theRow)[0];
    for (const UInt32 theScope : {UInt32{'inpt'}, UInt32{'outp'}, UInt32{'ptru'}}) {
      SCOPED_TRACE(theClass + " " + std::to_string(theScope));
      const PlainControl theControl(CodeOf(theClass), &mDevice, theScope, 1);
      const std::vector<Pair> thePairs = PairsFor(mDevice, &theControl);
      const UInt32 theOwn = theClass == "none" ? 0 : theScope;
      const UInt32 theInput = theScope == 'ptru' ? UInt32{'inpt'} : 0;
      EXPECT_EQ(thePairs[0].mScope, theOwn);
      EXPECT_EQ(thePairs[1].mScope, theOwnSecondary.count(theClass) != 0           ? theScope
                                    : thePlayThroughSecondary.count(theClass) != 0 ? theInput
                                                                                   : 0);
      EXPECT_EQ(thePairs[2].mScope, theClass == "vlme" ? theInput : 0);
      EXPECT_EQ(thePairs[3].mScope, theClass == "vlme" ? theInput : 0);
      EXPECT_EQ(thePairs[4].mScope, theOwn);
      EXPECT_EQ(thePairs[5].mScope, theClass == "vlme" || theClass == "span" ? theInput : 0);
    }
  }
}

}  // namespace
}  // namespace tembra::test
