#include <gtest/gtest.h>

#include <cstdio>

#include "unit/format_list/FormatDevice.h"

using namespace tembra;

namespace {

std::string CodeText(UInt32 inCode) {
  return {static_cast<char>(inCode >> 24), static_cast<char>(inCode >> 16),
          static_cast<char>(inCode >> 8), static_cast<char>(inCode)};
}

std::vector<std::string> Texts(const CAPropertyAddressList& inList) {
  std::vector<std::string> theTexts;
  for (UInt32 theIndex = 0; theIndex < inList.GetNumberItems(); ++theIndex) {
    const CAPropertyAddress& theItem = inList.GetItems()[theIndex];
    theTexts.push_back(CodeText(theItem.mSelector) + "/" + CodeText(theItem.mScope) + "/" +
                       std::to_string(theItem.mElement));
  }
  return theTexts;
}

using TextList = std::vector<std::string>;

class Notifications : public testing::Test {
 protected:
  void Determine(const HP_Stream& inStream, const CAStreamBasicDescription& inOld,
                 const CAStreamBasicDescription& inNew) {
    HP_FormatList::DetermineNotifications(mDevice, inStream, inOld, inNew, mDeviceList,
                                          mStreamList);
  }

  void ExpectDevice(const TextList& inExpected) { EXPECT_EQ(Texts(mDeviceList), inExpected); }
  void ExpectStream(const TextList& inExpected) { EXPECT_EQ(Texts(mStreamList), inExpected); }

  FormatDevice mDevice;
  CAPropertyAddressList mDeviceList;
  CAPropertyAddressList mStreamList;
};

}  // namespace

TEST_F(Notifications, EqualFormatsChangeNothing) {
  const FormatStream& theStream = mDevice.AddFormatStream(false);
  Determine(theStream, Int16Format(44100), Int16Format(44100));
  // Wildcards are equal to all.
  Determine(theStream, CAStreamBasicDescription(), Int16Format(44100));
  ExpectDevice({});
  ExpectStream({});
}

TEST_F(Notifications, AChangeThatClientsDoNotSeeNamesThePhysicalFormatAndTheRates) {
  const FormatStream& theStream = mDevice.AddFormatStream(false, 3);
  Determine(theStream, Int16Format(44100), LinearPCM(24, kSigned | kPacked, 2));
  ExpectDevice({"pft /outp/3", "nsr#/glob/0"});
  ExpectStream({"pft /glob/0"});
}

TEST_F(Notifications, TheFirstChannelIsNamedByTheMasterElementToo) {
  const FormatStream& theStream = mDevice.AddFormatStream(true, 1);
  Determine(theStream, Int16Format(44100), LinearPCM(24, kSigned | kPacked, 2));
  ExpectDevice({"pft /inpt/1", "pft /inpt/0", "nsr#/glob/0"});
}

TEST_F(Notifications, ChannelsNameTheVirtualFormatAndTheConfiguration) {
  const FormatStream& theStream = mDevice.AddFormatStream(true, 2);
  Determine(theStream, Int16Format(44100, 2), Int16Format(44100, 1));
  ExpectDevice({"pft /inpt/2", "nsr#/glob/0", "sfmt/inpt/2", "slay/inpt/0"});
  ExpectStream({"pft /glob/0", "sfmt/glob/0"});
}

TEST_F(Notifications, MixabilityIsNamedToBoth) {
  const FormatStream& theStream = mDevice.AddFormatStream(false, 2);
  Determine(theStream, Int16Format(44100), Int16Format(44100, 2, kNonMixable));
  ExpectDevice({"pft /outp/2", "nsr#/glob/0", "sfmt/outp/2", "mix?/glob/0"});
  ExpectStream({"pft /glob/0", "sfmt/glob/0", "mix?/glob/0"});
}

TEST_F(Notifications, ARateChangeOfAnOutputStreamNamesInputScopeFirst) {
  const FormatStream& theStream = mDevice.AddFormatStream(false, 1);
  Determine(theStream, Int16Format(44100), Int16Format(48000));
  ExpectDevice({"pft /outp/1", "pft /outp/0", "sfmt/outp/1", "sfmt/outp/0", "nsrt/glob/0",
                "ltnc/inpt/0", "saft/inpt/0"});
  ExpectStream({"pft /glob/0", "sfmt/glob/0", "nsrt/glob/0", "ltnc/glob/0"});
}

TEST_F(Notifications, ARateChangeNamesTheOtherDirectionAsOutput) {
  mDevice.AddFormatStream(false, 1);
  const FormatStream& theStream = mDevice.AddFormatStream(true, 3);
  Determine(theStream, Int16Format(44100), Int16Format(48000));
  ExpectDevice({"pft /inpt/3", "sfmt/inpt/3", "nsrt/glob/0", "ltnc/inpt/0", "saft/inpt/0",
                "ltnc/outp/0", "saft/outp/0", "pft /outp/1", "pft /outp/0", "sfmt/outp/1",
                "sfmt/outp/0"});
}

TEST_F(Notifications, OfAnOutputStreamTheInputStreamsGoWithOutputScope) {
  const FormatStream& theStream = mDevice.AddFormatStream(false, 3);
  mDevice.AddFormatStream(true, 1);
  Determine(theStream, Int16Format(44100), Int16Format(48000));
  ExpectDevice({"pft /outp/3", "sfmt/outp/3", "nsrt/glob/0", "ltnc/inpt/0", "saft/inpt/0",
                "ltnc/outp/0", "saft/outp/0", "pft /inpt/1", "pft /inpt/0", "sfmt/inpt/1",
                "sfmt/inpt/0"});
}

TEST_F(Notifications, ARateChangeOnTheSecondStreamNamesTheFirstStreamToo) {
  mDevice.AddFormatStream(false, 1);
  const FormatStream& theSecond = mDevice.AddFormatStream(false, 3);
  Determine(theSecond, Int16Format(44100), Int16Format(48000));
  ExpectDevice({"pft /outp/3", "sfmt/outp/3", "nsrt/glob/0", "ltnc/inpt/0", "saft/inpt/0",
                "pft /outp/1", "pft /outp/0", "sfmt/outp/1", "sfmt/outp/0"});
}

TEST_F(Notifications, StartingChannelIsNamedWithoutItsOffset) {
  const FormatStream& theStream = mDevice.AddFormatStream(false, 1, 4);
  Determine(theStream, Int16Format(44100), LinearPCM(24, kSigned | kPacked, 2));
  ExpectDevice({"pft /outp/1", "pft /outp/0", "nsr#/glob/0"});
}

TEST_F(Notifications, ARateChangeNamesTheOtherStreamsWithoutTheirOffset) {
  mDevice.AddFormatStream(false, 3, 2);
  const FormatStream& theStream = mDevice.AddFormatStream(true, 2, 7);
  Determine(theStream, Int16Format(44100), Int16Format(48000));
  ExpectDevice({"pft /inpt/2", "sfmt/inpt/2", "nsrt/glob/0", "ltnc/inpt/0", "saft/inpt/0",
                "ltnc/outp/0", "saft/outp/0", "pft /outp/3", "sfmt/outp/3"});
}
