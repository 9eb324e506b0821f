#include "formats/HP_DeviceFormatList.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "unit/format_list/FormatDevice.h"

using namespace tembra;

namespace {

constexpr UInt32 kAllSelectors[] = {'nsrt', 'nsr#', 'sfmt', 'sfma', 'pft ', 'pfta', 'sfm#',
                                    'sfm?', 'sfmm', 'pft#', 'pft?', 'pftm', 'mix?'};

// The kind of device that nothing here is, but that could be.
class IntersectingFormatList : public HP_DeviceFormatList {
 public:
  explicit IntersectingFormatList(HP_Device* inDevice) : HP_DeviceFormatList(inDevice) {
    mUseIntersection = true;
  }
};

class DeviceFormatList : public testing::Test {
 protected:
  DeviceFormatList() : mFormats(&mDevice) {}

  OSStatus StatusOfSize(const CAPropertyAddress& inAddress) {
    return StatusOf([&] { mFormats.GetPropertyDataSize(inAddress, 0, nullptr); });
  }

  OSStatus StatusOfRead(const CAPropertyAddress& inAddress, UInt32 inSize) {
    unsigned char theBuffer[256] = {};
    return StatusOf([&] { mFormats.GetPropertyData(inAddress, 0, nullptr, inSize, theBuffer); });
  }

  OSStatus StatusOfWrite(const CAPropertyAddress& inAddress, UInt32 inSize) {
    const unsigned char theBuffer[256] = {};
    return StatusOf(
        [&] { mFormats.SetPropertyData(inAddress, 0, nullptr, inSize, theBuffer, nullptr); });
  }

  template <class Value>
  OSStatus StatusOfWriting(const CAPropertyAddress& inAddress, const Value& inValue) {
    return StatusOf([&] { WriteValue(mFormats, inAddress, inValue); });
  }

  RatePairs Rates() const {
    CAAudioValueRangeList theRanges = {{1, 2}};
    mFormats.GatherAvailableNominalSampleRateRanges(theRanges);
    return Pairs(theRanges);
  }

  FormatDevice mDevice;
  HP_DeviceFormatList mFormats;
};

}  // namespace

TEST_F(DeviceFormatList, AddressesAreThoseOfAStreamsFormats) {
  ASSERT_EQ(mFormats.GetNumberAddressesImplemented(), 13u);
  for (UInt32 theIndex = 0; theIndex < 13; ++theIndex) {
    CAPropertyAddress theAddress(1, 2, 3);
    mFormats.GetImplementedAddressByIndex(theIndex, theAddress);
    EXPECT_EQ(theAddress.mSelector, kAllSelectors[theIndex]);
    EXPECT_EQ(theAddress.mScope, '****');
    EXPECT_EQ(theAddress.mElement, 0xFFFFFFFF);
  }
  CAPropertyAddress theAddress(1, 2, 3);
  mFormats.GetImplementedAddressByIndex(13, theAddress);
  EXPECT_EQ(theAddress.mSelector, 1u);
}

TEST_F(DeviceFormatList, ADeviceAnswersThroughIt) {
  mDevice.AddStreamWithFormat(false, Int16Format(44100), 44100, 48000);
  EXPECT_TRUE(mDevice.HasProperty(CAPropertyAddress('nsr#')));
  EXPECT_TRUE(mDevice.HasProperty(CAPropertyAddress('sfmt', 'outp', 1)));
  EXPECT_FALSE(mDevice.HasProperty(CAPropertyAddress('sfmt', 'inpt', 1)));
  EXPECT_EQ(ReadValue<Float64>(mDevice, CAPropertyAddress('nsrt')), 44100);
  ExpectSame(ReadValue<AudioStreamBasicDescription>(mDevice, CAPropertyAddress('sfmt', 'outp', 1)),
             Float32Format(44100));
  EXPECT_EQ(mDevice.GetPropertyDataSize(CAPropertyAddress('sfmt', 'outp', 1), 0, nullptr), 40u);
}

TEST_F(DeviceFormatList, ShowsTheRatesOfAllStreams) {
  mDevice.AddStreamWithFormat(false, Int16Format(44100), 96000, 96000);
  mDevice.AddStreamWithFormat(true, Int16Format(44100), 44100, 48000);
  EXPECT_EQ(Rates(), (RatePairs{{44100, 48000}, {96000, 96000}}));
  EXPECT_EQ(mFormats.GetNumberAvailableMasterNominalSampleRateRanges(), 2u);
  AudioValueRange theRange = {1, 2};
  mFormats.GetAvailableMasterNominalSampleRateRangeByIndex(1, theRange);
  EXPECT_EQ(theRange.mMinimum, 96000);
  mFormats.GetAvailableMasterNominalSampleRateRangeByIndex(2, theRange);
  EXPECT_EQ(theRange.mMinimum, 96000);
  EXPECT_TRUE(mFormats.SupportsMasterNominalSampleRate(44100));
  EXPECT_TRUE(mFormats.SupportsMasterNominalSampleRate(96000));
  EXPECT_FALSE(mFormats.SupportsMasterNominalSampleRate(88200));
}

TEST_F(DeviceFormatList, MergesRatesThatOverlap) {
  mDevice.AddStreamWithFormat(false, Int16Format(44100), 8000, 44100);
  mDevice.AddStreamWithFormat(false, Int16Format(44100), 32000, 48000, 3);
  EXPECT_EQ(Rates(), (RatePairs{{8000, 48000}}));
}

TEST_F(DeviceFormatList, WithoutStreamsThereAreNoRates) {
  EXPECT_EQ(Rates(), RatePairs());
  EXPECT_EQ(mFormats.GetPropertyDataSize(CAPropertyAddress('nsr#'), 0, nullptr), 0u);
  EXPECT_TRUE(ReadList<AudioValueRange>(mFormats, CAPropertyAddress('nsr#'), 100).empty());
}

TEST_F(DeviceFormatList, IntersectionHasWhatAllStreamsShare) {
  FormatStream& theFirst = mDevice.AddStreamWithFormat(true, Int16Format(44100), 8000, 48000);
  theFirst.Add(Int16Format(0), 96000, 96000);
  mDevice.AddStreamWithFormat(false, Int16Format(44100), 44100, 96000);
  const IntersectingFormatList theFormats(&mDevice);
  CAAudioValueRangeList theRanges;
  theFormats.GatherAvailableNominalSampleRateRanges(theRanges);
  EXPECT_EQ(Pairs(theRanges), (RatePairs{{44100, 48000}, {96000, 96000}}));
  EXPECT_EQ(Rates(), (RatePairs{{8000, 96000}}));
}

TEST_F(DeviceFormatList, IntersectionOfThreeStreamsKeepsNothingOfTheFirst) {
  mDevice.AddStreamWithFormat(true, Int16Format(44100), 8000, 96000);
  mDevice.AddStreamWithFormat(false, Int16Format(44100), 32000, 48000, 1);
  mDevice.AddStreamWithFormat(false, Int16Format(44100), 44100, 88200, 3);
  const IntersectingFormatList theFormats(&mDevice);
  CAAudioValueRangeList theRanges;
  theFormats.GatherAvailableNominalSampleRateRanges(theRanges);
  EXPECT_EQ(Pairs(theRanges), (RatePairs{{44100, 48000}}));
}

TEST_F(DeviceFormatList, IntersectionWithAStreamWithoutRatesIsEmpty) {
  for (const bool isEmptyFirst : {true, false}) {
    FormatDevice theDevice;
    theDevice.AddFormatStream(isEmptyFirst);
    theDevice.AddStreamWithFormat(!isEmptyFirst, Int16Format(44100), 44100, 44100);
    const IntersectingFormatList theFormats(&theDevice);
    CAAudioValueRangeList theRanges = {{1, 2}};
    theFormats.GatherAvailableNominalSampleRateRanges(theRanges);
    EXPECT_TRUE(theRanges.empty());
  }
}

TEST_F(DeviceFormatList, DevicesOwnSelectorsAreAlwaysActive) {
  for (const UInt32 theSelector : {'mix?', 'nsr#', 'nsrt'}) {
    for (const UInt32 theScope : {'glob', 'inpt', 'outp', 'ptru'}) {
      EXPECT_TRUE(mFormats.IsActive(CAPropertyAddress(theSelector, theScope, 7)));
    }
  }
}

TEST_F(DeviceFormatList, OtherSelectorsAreActiveByDirection) {
  mDevice.AddFormatStream(false);
  for (const UInt32 theSelector : kAllSelectors) {
    if (theSelector == 'mix?' || theSelector == 'nsr#' || theSelector == 'nsrt') continue;
    EXPECT_FALSE(mFormats.IsActive(CAPropertyAddress(theSelector, 'inpt')));
    EXPECT_TRUE(mFormats.IsActive(CAPropertyAddress(theSelector, 'outp')));
    EXPECT_FALSE(mFormats.IsActive(CAPropertyAddress(theSelector, 'glob')));
    EXPECT_FALSE(mFormats.IsActive(CAPropertyAddress(theSelector, 'ptru')));
  }
  mDevice.AddFormatStream(true);
  EXPECT_TRUE(mFormats.IsActive(CAPropertyAddress('pft ', 'inpt')));
  EXPECT_FALSE(mFormats.IsActive(CAPropertyAddress('pft ', 'glob')));
}

TEST_F(DeviceFormatList, WithoutAStreamThereIsNoOneToAsk) {
  for (const UInt32 theSelector : kAllSelectors) {
    const CAPropertyAddress theAddress(theSelector, 'inpt', 5);
    const bool isRate = theSelector == 'nsrt';
    const bool isRates = theSelector == 'nsr#';
    const bool isMixing = theSelector == 'mix?';
    EXPECT_EQ(StatusOf([&] { mFormats.IsPropertySettable(theAddress); }),
              isRate || isRates ? 0 : 'who?');
    EXPECT_EQ(StatusOfSize(theAddress), isRate || isMixing ? 0 : 'who?');
    EXPECT_EQ(StatusOfRead(theAddress, 8), isRate ? 0 : 'who?');
    EXPECT_EQ(StatusOfWrite(theAddress, 8), 'who?');
  }
}

TEST_F(DeviceFormatList, WritingTheRateListAsksTheStream) {
  EXPECT_EQ(StatusOfWrite(CAPropertyAddress('nsr#'), 16), 'who?');
  mDevice.AddStreamWithFormat(false, Int16Format(44100), 44100, 44100);
  // The stream refuses, since its rates cannot be written.
  EXPECT_EQ(StatusOfWrite(CAPropertyAddress('nsr#'), 16), 'nope');
}

TEST_F(DeviceFormatList, AddressesAreChangedIntoTheStreamsOwn) {
  mDevice.AddStreamWithFormat(false, Int16Format(44100), 44100, 44100, 1);
  mDevice.AddStreamWithFormat(false, Float32Format(48000), 48000, 48000, 3);
  const auto physicalFormat = [this](UInt32 inScope, UInt32 inElement) {
    return ReadValue<AudioStreamBasicDescription>(mFormats,
                                                  CAPropertyAddress('pft ', inScope, inElement));
  };
  ExpectSame(physicalFormat('outp', 0), Int16Format(44100));
  ExpectSame(physicalFormat('outp', 1), Int16Format(44100));
  ExpectSame(physicalFormat('outp', 2), Int16Format(44100));
  ExpectSame(physicalFormat('outp', 3), Float32Format(48000));
  ExpectSame(physicalFormat('outp', 4), Float32Format(48000));
  EXPECT_EQ(StatusOfRead(CAPropertyAddress('pft ', 'outp', 5), 40), 'who?');
  EXPECT_EQ(StatusOfRead(CAPropertyAddress('pft ', 'inpt', 1), 40), 'who?');
}

TEST_F(DeviceFormatList, OtherSelectorsPassToTheStream) {
  mDevice.AddStreamWithFormat(false, Int16Format(44100), 44100, 48000, 1);
  FormatStream& theStream = mDevice.AddStreamWithFormat(false, Int16Format(44100), 44100, 96000, 3);
  const CAPropertyAddress theAddress('pft ', 'outp', 3);
  EXPECT_TRUE(mFormats.IsPropertySettable(theAddress));
  EXPECT_FALSE(mFormats.IsPropertySettable(CAPropertyAddress('pft#', 'outp', 3)));
  EXPECT_EQ(mFormats.GetPropertyDataSize(theAddress, 0, nullptr), 40u);
  EXPECT_EQ(StatusOfRead(theAddress, 39), '!siz');
  EXPECT_EQ(StatusOfWriting<AudioStreamBasicDescription>(theAddress, Int16Format(96000)), 0);
  ExpectSame(theStream.Physical(), Int16Format(96000));
  ExpectSame(mDevice.Stream(0).Physical(), Int16Format(44100));
  EXPECT_EQ(StatusOfWriting<AudioStreamBasicDescription>(theAddress, Int16Format(8000)), '!dat');
  const CAPropertyAddress theRates('nsr#', 'outp', 1);
  EXPECT_EQ(mFormats.GetPropertyDataSize(theRates, 0, nullptr), 16u);
  EXPECT_EQ(Pairs(ReadList<AudioValueRange>(mFormats, theRates, 100)), (RatePairs{{44100, 48000}}));
}

TEST_F(DeviceFormatList, MixabilityOfAllStreams) {
  const CAPropertyAddress theAddress('mix?');
  // No stream says otherwise.
  EXPECT_EQ(ReadValue<UInt32>(mFormats, theAddress), 1u);
  FormatStream& theInput = mDevice.AddStreamWithFormat(true, Int16Format(44100), 44100, 44100);
  FormatStream& theOutput = mDevice.AddStreamWithFormat(false, Int16Format(44100), 44100, 44100);
  EXPECT_EQ(ReadValue<UInt32>(mFormats, theAddress), 1u);
  theInput.SetIsMixable(false, false);
  EXPECT_EQ(ReadValue<UInt32>(mFormats, theAddress), 0u);
  theInput.SetIsMixable(true, false);
  theOutput.SetIsMixable(false, false);
  EXPECT_EQ(ReadValue<UInt32>(mFormats, theAddress), 0u);
}

TEST_F(DeviceFormatList, MixabilityCanBeSetWhereOneStreamCan) {
  const CAPropertyAddress theAddress('mix?');
  EXPECT_FALSE(mFormats.IsPropertySettable(theAddress));
  FormatStream& theInput = mDevice.AddStreamWithFormat(true, Int16Format(44100), 44100, 44100);
  FormatStream& theOutput = mDevice.AddStreamWithFormat(false, Int16Format(44100), 44100, 44100);
  EXPECT_FALSE(mFormats.IsPropertySettable(theAddress));
  theOutput.Add(Int16Format(0, 2, kNonMixable), 44100, 44100);
  EXPECT_TRUE(mFormats.IsPropertySettable(theAddress));
  EXPECT_TRUE(mFormats.IsPropertySettable(CAPropertyAddress('mix?', 'outp', 1)));
  EXPECT_FALSE(mFormats.IsPropertySettable(CAPropertyAddress('mix?', 'inpt', 1)));
  theOutput.Formats().RemoveAllFormats();
  theInput.Add(Int16Format(0, 2, kNonMixable), 44100, 44100);
  EXPECT_TRUE(mFormats.IsPropertySettable(theAddress));
}

TEST_F(DeviceFormatList, MixabilityIsToldToEveryStreamInputFirst) {
  std::vector<int> theOrder;
  for (const bool isInput : {false, true}) {
    for (const UInt32 theChannel : {1u, 3u}) {
      FormatStream& theStream =
          mDevice.AddStreamWithFormat(isInput, Int16Format(44100), 44100, 44100, theChannel);
      theStream.mOnTell = [&theOrder, theMark = (isInput ? 0 : 10) + int(theChannel)] {
        theOrder.push_back(theMark);
        if (theMark == 1) throw std::runtime_error("hardware");
        if (theMark == 11) throw CAException('nope');
      };
    }
  }
  EXPECT_EQ(StatusOfWriting<UInt32>(CAPropertyAddress('mix?'), 0), 0);
  EXPECT_EQ(theOrder, (std::vector<int>{1, 3, 11, 13}));
  EXPECT_FALSE(mDevice.Stream(1).IsMixable());
  EXPECT_TRUE(mDevice.Stream(0).IsMixable());
  theOrder.clear();
  EXPECT_EQ(StatusOfWriting<UInt32>(CAPropertyAddress('mix?'), 5), 0);
  // Those that did not change are mixable already.
  EXPECT_EQ(theOrder, (std::vector<int>{3, 13}));
}

TEST_F(DeviceFormatList, MixabilityOfOneElementGoesToItsStream) {
  mDevice.AddStreamWithFormat(false, Int16Format(44100), 44100, 44100, 1);
  FormatStream& theSecond = mDevice.AddStreamWithFormat(false, Int16Format(44100), 44100, 44100, 3);
  theSecond.Add(Int16Format(0, 2, kNonMixable), 44100, 44100);
  const CAPropertyAddress theAddress('mix?', 'outp', 3);
  EXPECT_EQ(StatusOfWriting<UInt32>(theAddress, 0), 0);
  EXPECT_EQ(ReadValue<UInt32>(mFormats, theAddress), 0u);
  EXPECT_EQ(ReadValue<UInt32>(mFormats, CAPropertyAddress('mix?', 'outp', 1)), 1u);
  EXPECT_EQ(StatusOfRead(theAddress, 8), '!siz');
  EXPECT_EQ(mFormats.GetPropertyDataSize(theAddress, 0, nullptr), 4u);
}

TEST_F(DeviceFormatList, SizesAreExact) {
  mDevice.AddStreamWithFormat(false, Int16Format(44100), 44100, 44100);
  for (const UInt32 theSize : {0u, 3u, 5u, 8u}) {
    EXPECT_EQ(StatusOfRead(CAPropertyAddress('mix?'), theSize), '!siz');
    EXPECT_EQ(StatusOfWrite(CAPropertyAddress('mix?'), theSize), '!siz');
  }
  for (const UInt32 theSize : {0u, 4u, 7u, 9u}) {
    EXPECT_EQ(StatusOfRead(CAPropertyAddress('nsrt'), theSize), '!siz');
    EXPECT_EQ(StatusOfRead(CAPropertyAddress('nsrt', 'outp', 1), theSize), '!siz');
    EXPECT_EQ(StatusOfWrite(CAPropertyAddress('nsrt'), theSize), '!siz');
  }
  EXPECT_EQ(mFormats.GetPropertyDataSize(CAPropertyAddress('mix?'), 0, nullptr), 4u);
  EXPECT_EQ(mFormats.GetPropertyDataSize(CAPropertyAddress('nsrt'), 0, nullptr), 8u);
  EXPECT_EQ(mFormats.GetPropertyDataSize(CAPropertyAddress('nsrt', 'outp', 9), 0, nullptr), 8u);
}

TEST_F(DeviceFormatList, RateListGivesWhatFits) {
  mDevice.AddStreamWithFormat(false, Int16Format(44100), 96000, 96000);
  mDevice.AddStreamWithFormat(true, Int16Format(44100), 44100, 48000);
  const CAPropertyAddress theAddress('nsr#');
  EXPECT_EQ(mFormats.GetPropertyDataSize(theAddress, 0, nullptr), 32u);
  EXPECT_FALSE(mFormats.IsPropertySettable(theAddress));
  for (const UInt32 theRoom : {0u, 15u, 16u, 31u, 32u, 100u}) {
    EXPECT_EQ(ReadList<AudioValueRange>(mFormats, theAddress, theRoom).size(),
              std::min(theRoom / 16, 2u));
  }
  EXPECT_EQ(Pairs(ReadList<AudioValueRange>(mFormats, theAddress, 32)),
            (RatePairs{{44100, 48000}, {96000, 96000}}));
}

TEST_F(DeviceFormatList, RateOfTheDeviceWhateverTheElement) {
  mDevice.AddStreamWithFormat(false, Int16Format(44100), 44100, 44100, 1);
  mDevice.AddStreamWithFormat(false, Int16Format(48000), 48000, 48000, 3);
  EXPECT_EQ(ReadValue<Float64>(mFormats, CAPropertyAddress('nsrt')), 44100);
  EXPECT_EQ(ReadValue<Float64>(mFormats, CAPropertyAddress('nsrt', 'outp', 3)), 44100);
  EXPECT_EQ(ReadValue<Float64>(mFormats, CAPropertyAddress('nsrt', 'outp', 5)), 44100);
  EXPECT_TRUE(mFormats.IsPropertySettable(CAPropertyAddress('nsrt', 'outp', 5)));
}

TEST_F(DeviceFormatList, RateOfOneElementIsWrittenToItsStream) {
  mDevice.AddStreamWithFormat(false, Int16Format(44100), 44100, 96000, 1);
  mDevice.AddStreamWithFormat(false, Int16Format(48000), 44100, 96000, 3);
  mDevice.AddStreamWithFormat(false, Int16Format(48000), 44100, 96000, 5);
  const CAPropertyAddress theAddress('nsrt', 'outp', 5);
  EXPECT_EQ(StatusOfWriting<Float64>(theAddress, 96000), 0);
  EXPECT_EQ(mDevice.Stream(0).Physical().mSampleRate, 44100);
  EXPECT_EQ(mDevice.Stream(1).Physical().mSampleRate, 48000);
  EXPECT_EQ(mDevice.Stream(2).Physical().mSampleRate, 96000);
  EXPECT_EQ(mDevice.Stream(2).mWritten.mScope, 'glob');
  EXPECT_EQ(mDevice.Stream(2).mWritten.mElement, 1u);
  EXPECT_EQ(ReadValue<Float64>(mFormats, theAddress), 44100);
  EXPECT_EQ(StatusOfWriting<Float64>(theAddress, 8000), '!dat');
}

TEST_F(DeviceFormatList, RateIsWrittenToTheFirstStreamThatHasIt) {
  mDevice.AddStreamWithFormat(false, Int16Format(44100), 44100, 48000, 1);
  mDevice.AddStreamWithFormat(false, Int16Format(44100), 44100, 96000, 3);
  mDevice.AddStreamWithFormat(false, Int16Format(44100), 44100, 96000, 5);
  EXPECT_EQ(StatusOfWriting<Float64>(CAPropertyAddress('nsrt'), 96000), 0);
  EXPECT_EQ(mDevice.Stream(0).Physical().mSampleRate, 44100);
  EXPECT_EQ(mDevice.Stream(1).Physical().mSampleRate, 96000);
  EXPECT_EQ(mDevice.Stream(2).Physical().mSampleRate, 44100);
}

TEST_F(DeviceFormatList, RateIsOfferedToOutputStreamsBeforeInputStreams) {
  FormatStream& theInput = mDevice.AddStreamWithFormat(true, Int16Format(44100), 44100, 96000);
  FormatStream& theOutput = mDevice.AddStreamWithFormat(false, Int16Format(44100), 44100, 96000);
  EXPECT_EQ(StatusOfWriting<Float64>(CAPropertyAddress('nsrt'), 48000), 0);
  EXPECT_EQ(theOutput.Physical().mSampleRate, 48000);
  EXPECT_EQ(theInput.Physical().mSampleRate, 44100);
  theOutput.Formats().RemoveAllFormats();
  EXPECT_EQ(StatusOfWriting<Float64>(CAPropertyAddress('nsrt'), 96000), 0);
  EXPECT_EQ(theInput.Physical().mSampleRate, 96000);
}

TEST_F(DeviceFormatList, RateThatNoStreamHasIsRefused) {
  FormatStream& theStream = mDevice.AddStreamWithFormat(false, Int16Format(44100), 44100, 48000);
  EXPECT_EQ(StatusOfWriting<Float64>(CAPropertyAddress('nsrt'), 96000), '!dat');
  EXPECT_EQ(StatusOfWriting<Float64>(CAPropertyAddress('nsrt'), 0.0), '!dat');
  EXPECT_TRUE(theStream.mTold.empty());
  theStream.Add(Float32Format(0), 0, 1);
  EXPECT_EQ(StatusOfWriting<Float64>(CAPropertyAddress('nsrt'), 0.0), 0);
}

TEST_F(DeviceFormatList, WalkForARateEndsWithTheStreamThatThrew) {
  FormatStream& theOutput = mDevice.AddStreamWithFormat(false, Int16Format(44100), 44100, 48000);
  FormatStream& theInput = mDevice.AddStreamWithFormat(true, Int16Format(44100), 44100, 48000);
  theOutput.mOnTell = [] { throw CAException('nope'); };
  EXPECT_EQ(StatusOfWriting<Float64>(CAPropertyAddress('nsrt'), 48000), 0);
  EXPECT_EQ(theOutput.mTold.size(), 1u);
  EXPECT_TRUE(theInput.mTold.empty());
  EXPECT_EQ(theOutput.Physical().mSampleRate, 44100);
}
