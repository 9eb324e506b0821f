#include <gtest/gtest.h>

#include <cmath>

#include "unit/format_list/FormatDevice.h"

using namespace tembra;

namespace {

// One output stream, stereo, Int16 at 44100 unless the test says otherwise.
class FormatList : public testing::Test {
 protected:
  FormatList() : mStream(mDevice.AddFormatStream(false)), mFormats(mStream.Formats()) {}

  void SetCurrent(const CAStreamBasicDescription& inFormat) {
    mFormats.SetCurrentPhysicalFormat(inFormat, false);
  }

  void AddInt16AndFloat32() {
    mStream.Add(Int16Format(0), 8000, 48000);
    mStream.Add(Float32Format(0), 96000, 96000);
    SetCurrent(Int16Format(44100));
  }

  FormatDevice mDevice;
  FormatStream& mStream;
  HP_FormatList& mFormats;
};

}  // namespace

TEST_F(FormatList, StartsEmpty) {
  ExpectSame(mStream.Physical(), CAStreamBasicDescription());
  ExpectSame(mStream.Virtual(), CAStreamBasicDescription());
  EXPECT_EQ(mFormats.GetNumberAvailablePhysicalFormats(), 0u);
  EXPECT_EQ(mFormats.GetNumberAvailableVirtualFormats(), 0u);
  EXPECT_EQ(mFormats.GetNumberAvailableNominalSampleRateRanges(), 0u);
  EXPECT_FALSE(mFormats.IsMixable());
  EXPECT_FALSE(mFormats.IsLinearPCM());
}

TEST_F(FormatList, RatesOfOneFormatAreOneEntryHighestFirst) {
  mStream.Add(Int16Format(44100), 44100, 44100);
  mStream.Add(Int16Format(48000), 48000, 48000);
  EXPECT_EQ(mFormats.GetNumberAvailablePhysicalFormats(), 2u);
  AudioStreamRangedDescription theFormat = {};
  mFormats.GetAvailablePhysicalFormatByIndex(0, theFormat);
  ExpectSame(theFormat.mFormat, Int16Format(48000));
  mFormats.GetAvailablePhysicalFormatByIndex(1, theFormat);
  ExpectSame(theFormat.mFormat, Int16Format(44100));
}

TEST_F(FormatList, AMixableFormatIsShownAsFloat) {
  mStream.Add(Int16Format(44100), 44100, 44100);
  AudioStreamRangedDescription theFormat = {};
  mFormats.GetAvailableVirtualFormatByIndex(0, theFormat);
  ExpectSame(theFormat.mFormat, Float32Format(44100));
  EXPECT_EQ(theFormat.mSampleRateRange.mMinimum, 44100);
}

TEST_F(FormatList, AnyOtherFormatIsShownAsItIs) {
  for (const CAStreamBasicDescription& theSource :
       {Int16Format(44100, 2, kNonMixable), AC3(44100)}) {
    mFormats.RemoveAllFormats();
    mStream.Add(theSource, 44100, 44100);
    AudioStreamRangedDescription theFormat = {};
    mFormats.GetAvailableVirtualFormatByIndex(0, theFormat);
    ExpectSame(theFormat.mFormat, theSource);
  }
}

TEST_F(FormatList, PhysicalFormatsThatLookAlikeAreOneVirtualFormat) {
  mStream.Add(Int16Format(0), 44100, 44100);
  mStream.Add(LinearPCM(24, kSigned | kPacked, 2), 48000, 48000);
  EXPECT_EQ(mFormats.GetNumberAvailablePhysicalFormats(), 2u);
  EXPECT_EQ(mFormats.GetNumberAvailableVirtualFormats(), 2u);
  mStream.Add(LinearPCM(24, kSigned | kPacked, 2), 44100, 44100);
  EXPECT_EQ(mFormats.GetNumberAvailablePhysicalFormats(), 3u);
  EXPECT_EQ(mFormats.GetNumberAvailableVirtualFormats(), 2u);
}

TEST_F(FormatList, AFormatWithoutChannelsIsIgnored) {
  mStream.Add(Int16Format(44100, 0), 44100, 44100);
  EXPECT_EQ(mFormats.GetNumberAvailablePhysicalFormats(), 0u);
  EXPECT_EQ(mFormats.GetNumberAvailableVirtualFormats(), 0u);
}

TEST_F(FormatList, RemoveAllEmptiesBothLists) {
  AddInt16AndFloat32();
  mFormats.RemoveAllFormats();
  EXPECT_EQ(mFormats.GetNumberAvailablePhysicalFormats(), 0u);
  EXPECT_EQ(mFormats.GetNumberAvailableVirtualFormats(), 0u);
  ExpectSame(mStream.Physical(), Int16Format(44100));
}

TEST_F(FormatList, CurrentFormatIsKeptInAllFields) {
  CAStreamBasicDescription theFormat = AC3(44100);
  theFormat.mReserved = 5;
  SetCurrent(theFormat);
  ExpectSame(mStream.Physical(), AC3(44100));
  EXPECT_EQ(mStream.Physical().mReserved, 5u);
  EXPECT_EQ(mFormats.GetCurrentNominalSampleRate(), 44100);
  EXPECT_EQ(mFormats.GetCurrentNumberChannels(), 2u);
}

TEST_F(FormatList, CurrentVirtualFormatIsTheNormalisedPhysicalOne) {
  SetCurrent(Int16Format(44100, 6));
  ExpectSame(mStream.Virtual(), Float32Format(44100, 6));
  SetCurrent(Int16Format(44100, 6, kNonMixable));
  ExpectSame(mStream.Virtual(), Int16Format(44100, 6, kNonMixable));
}

TEST_F(FormatList, HardwareIsAskedOnlyWhereToldTo) {
  mFormats.SetCurrentPhysicalFormat(Int16Format(44100), false);
  EXPECT_TRUE(mStream.mTold.empty());
  mFormats.SetCurrentPhysicalFormat(Int16Format(48000), true);
  ASSERT_EQ(mStream.mTold.size(), 1u);
  ExpectSame(mStream.mTold[0], Int16Format(48000));
  ExpectSame(mStream.Physical(), Int16Format(48000));
}

TEST_F(FormatList, HardwareIsAskedBeforeTheFormatChanges) {
  SetCurrent(Int16Format(44100));
  mStream.mOnTell = [this] { ExpectSame(mStream.Physical(), Int16Format(44100)); };
  mFormats.SetCurrentPhysicalFormat(Int16Format(48000), true);
  EXPECT_EQ(mStream.mTold.size(), 1u);
}

TEST_F(FormatList, NothingChangesWhereHardwareRefuses) {
  SetCurrent(Int16Format(44100));
  mStream.mHardwareAgrees = false;
  EXPECT_EQ(StatusOf([&] { mFormats.SetCurrentPhysicalFormat(Int16Format(48000), true); }), 0);
  ExpectSame(mStream.Physical(), Int16Format(44100));
}

TEST_F(FormatList, KindsOfTheCurrentFormat) {
  SetCurrent(Int16Format(44100));
  EXPECT_TRUE(mFormats.IsLinearPCM());
  EXPECT_TRUE(mFormats.IsMixable());
  SetCurrent(Int16Format(44100, 2, kNonMixable));
  EXPECT_TRUE(mFormats.IsLinearPCM());
  EXPECT_FALSE(mFormats.IsMixable());
  CAStreamBasicDescription theFormat = AC3(44100);
  theFormat.mFormatFlags = 0;
  SetCurrent(theFormat);
  EXPECT_FALSE(mFormats.IsLinearPCM());
  EXPECT_FALSE(mFormats.IsMixable());
}

TEST_F(FormatList, MixabilityCanBeSetWhereTheOtherKindIsAvailable) {
  mStream.Add(Int16Format(0), 44100, 44100);
  SetCurrent(Int16Format(44100));
  EXPECT_FALSE(mFormats.CanSetIsMixable());
  mStream.Add(Int16Format(0, 2, kNonMixable), 44100, 44100);
  EXPECT_TRUE(mFormats.CanSetIsMixable());
  SetCurrent(Int16Format(44100, 2, kNonMixable));
  EXPECT_TRUE(mFormats.CanSetIsMixable());
  // Only at a rate that the other kind has too.
  SetCurrent(Int16Format(48000));
  EXPECT_FALSE(mFormats.CanSetIsMixable());
  // Nor for a format that is no linear PCM, whatever flags there are.
  CAStreamBasicDescription theOther = AC3(0);
  theOther.mFormatFlags ^= kNonMixable;
  mStream.Add(theOther, 44100, 44100);
  SetCurrent(AC3(44100));
  EXPECT_FALSE(mFormats.CanSetIsMixable());
}

TEST_F(FormatList, SetIsMixableChangesTheFlag) {
  SetCurrent(Int16Format(44100));
  mFormats.SetIsMixable(true, true);
  EXPECT_TRUE(mStream.mTold.empty());
  mFormats.SetIsMixable(false, true);
  ASSERT_EQ(mStream.mTold.size(), 1u);
  ExpectSame(mStream.Physical(), Int16Format(44100, 2, kNonMixable));
  mFormats.SetIsMixable(false, true);
  EXPECT_EQ(mStream.mTold.size(), 1u);
  mFormats.SetIsMixable(true, false);
  EXPECT_EQ(mStream.mTold.size(), 1u);
  ExpectSame(mStream.Physical(), Int16Format(44100));
}

TEST_F(FormatList, BestMatchForPhysicalFormatTakesTheCurrentRate) {
  AddInt16AndFloat32();
  CAStreamBasicDescription theFormat = Int16Format(0);
  mFormats.BestMatchForPhysicalFormat(theFormat);
  ExpectSame(theFormat, Int16Format(44100));
}

TEST_F(FormatList, BestMatchForVirtualFormatTakesTheCurrentRate) {
  AddInt16AndFloat32();
  CAStreamBasicDescription theFormat = Float32Format(0);
  mFormats.BestMatchForVirtualFormat(theFormat);
  ExpectSame(theFormat, Float32Format(44100));
}

TEST_F(FormatList, BestMatchTakesACommonRateWhereTheCurrentOneIsNotThere) {
  AddInt16AndFloat32();
  SetCurrent(Float32Format(96000));
  CAStreamBasicDescription theFormat = Int16Format(0);
  mFormats.BestMatchForPhysicalFormat(theFormat);
  ExpectSame(theFormat, Int16Format(44100));
}

TEST_F(FormatList, SupportsGoesByItsOwnList) {
  AddInt16AndFloat32();
  EXPECT_TRUE(mFormats.SupportsPhysicalFormat(Int16Format(44100)));
  EXPECT_FALSE(mFormats.SupportsVirtualFormat(Int16Format(44100)));
  EXPECT_TRUE(mFormats.SupportsVirtualFormat(Float32Format(44100)));
  EXPECT_FALSE(mFormats.SupportsPhysicalFormat(Float32Format(44100)));
}

TEST_F(FormatList, SanityCheckOfPhysicalFormats) {
  AddInt16AndFloat32();
  const auto isSane = [this](const CAStreamBasicDescription& inFormat) {
    return mFormats.SanityCheckPhysicalFormat(inFormat);
  };
  EXPECT_TRUE(isSane(CAStreamBasicDescription()));
  EXPECT_TRUE(isSane(Int16Format(44100)));
  // Every part is checked on its own, so parts of two formats pass together.
  EXPECT_TRUE(isSane(Int16Format(96000)));
  EXPECT_FALSE(isSane(Int16Format(88200)));
  EXPECT_FALSE(isSane(Int16Format(std::nan(""))));
  EXPECT_FALSE(isSane(AC3(0)));
  EXPECT_FALSE(isSane(Int16Format(44100, 3)));
  EXPECT_FALSE(isSane(Int16Format(44100, 2, kBigEndian)));
  EXPECT_FALSE(isSane(LinearPCM(24, kSigned | kPacked, 2)));
}

TEST_F(FormatList, SanityCheckLooksAtFlagsAndBitsOfLinearPCMOnly) {
  mStream.Add(AC3(0), 48000, 48000);
  CAStreamBasicDescription theFormat = AC3(0);
  theFormat.mFormatFlags = 0x7F;
  theFormat.mBitsPerChannel = 77;
  EXPECT_TRUE(mFormats.SanityCheckPhysicalFormat(theFormat));
  EXPECT_TRUE(mFormats.SanityCheckVirtualFormat(theFormat));
}

TEST_F(FormatList, SanityCheckOfVirtualFormats) {
  AddInt16AndFloat32();
  const auto isSane = [this](const CAStreamBasicDescription& inFormat) {
    return mFormats.SanityCheckVirtualFormat(inFormat);
  };
  EXPECT_TRUE(isSane(CAStreamBasicDescription()));
  EXPECT_TRUE(isSane(Float32Format(44100)));
  EXPECT_TRUE(isSane(LinearPCM(0, 0, 2, 44100)));
  EXPECT_FALSE(isSane(Float32Format(88200)));
  EXPECT_FALSE(isSane(Float32Format(std::nan(""))));
  EXPECT_FALSE(isSane(AC3(0)));
  EXPECT_FALSE(isSane(Float32Format(44100, 3)));
  EXPECT_FALSE(isSane(LinearPCM(32, kFloat | kPacked | kBigEndian, 2)));
  EXPECT_FALSE(isSane(LinearPCM(16, kFloat | kPacked, 2)));
  CAStreamBasicDescription theFormat;
  theFormat.mFormatFlags = 0xB;
  theFormat.mBitsPerChannel = 16;
  EXPECT_TRUE(isSane(theFormat));
}

TEST_F(FormatList, ConvertsAVirtualFormatToThePhysicalOneBehindIt) {
  AddInt16AndFloat32();
  CAStreamBasicDescription theFormat = Float32Format(44100);
  EXPECT_TRUE(mFormats.ConvertVirtualFormatToPhysicalFormat(theFormat));
  ExpectSame(theFormat, Int16Format(44100));
}

TEST_F(FormatList, ConvertsWhateverFramesAPacketHas) {
  AddInt16AndFloat32();
  CAStreamBasicDescription theFormat = Float32Format(48000);
  theFormat.mFramesPerPacket = 4;
  EXPECT_TRUE(mFormats.ConvertVirtualFormatToPhysicalFormat(theFormat));
  ExpectSame(theFormat, Int16Format(48000));
}

TEST_F(FormatList, ConvertsNothingButPackedFloats) {
  AddInt16AndFloat32();
  for (const CAStreamBasicDescription& theSource :
       {AC3(1), Int16Format(1), LinearPCM(16, kFloat, 7, 1), LinearPCM(16, kPacked, 7, 1)}) {
    CAStreamBasicDescription theFormat = theSource;
    EXPECT_TRUE(mFormats.ConvertVirtualFormatToPhysicalFormat(theFormat));
    ExpectSame(theFormat, theSource);
  }
}

TEST_F(FormatList, ConvertsNothingToAnotherRateOrChannelCount) {
  AddInt16AndFloat32();
  CAStreamBasicDescription theFormat = Float32Format(88200);
  EXPECT_FALSE(mFormats.ConvertVirtualFormatToPhysicalFormat(theFormat));
  ExpectSame(theFormat, Float32Format(88200));
  theFormat = Float32Format(44100, 3);
  EXPECT_FALSE(mFormats.ConvertVirtualFormatToPhysicalFormat(theFormat));
  // The rate must be known: that of the current format is not taken for it.
  theFormat = Float32Format(0);
  EXPECT_FALSE(mFormats.ConvertVirtualFormatToPhysicalFormat(theFormat));
}

TEST_F(FormatList, ConvertsNothingToAnotherFormatID) {
  // The rate and the channels fit, but there is no linear PCM behind them.
  mStream.Add(AC3(0), 48000, 48000);
  CAStreamBasicDescription theFormat = Float32Format(48000);
  EXPECT_FALSE(mFormats.ConvertVirtualFormatToPhysicalFormat(theFormat));
  ExpectSame(theFormat, Float32Format(48000));
}

TEST_F(FormatList, ConvertSetsTheBitsOfAFormatThatItRefuses) {
  AddInt16AndFloat32();
  CAStreamBasicDescription theFormat = LinearPCM(64, kFloat | kPacked, 3, 44100);
  EXPECT_FALSE(mFormats.ConvertVirtualFormatToPhysicalFormat(theFormat));
  EXPECT_EQ(theFormat.mBitsPerChannel, 32u);
}

TEST_F(FormatList, SetCurrentVirtualFormatSetsThePhysicalOneBehindIt) {
  AddInt16AndFloat32();
  mFormats.SetCurrentVirtualFormat(Float32Format(48000), true);
  ASSERT_EQ(mStream.mTold.size(), 1u);
  ExpectSame(mStream.Physical(), Int16Format(48000));
}

TEST_F(FormatList, SetCurrentVirtualFormatRefusesWhatHasNoPhysicalFormat) {
  AddInt16AndFloat32();
  EXPECT_EQ(StatusOf([&] { mFormats.SetCurrentVirtualFormat(Float32Format(88200), true); }),
            '!dat');
  EXPECT_TRUE(mStream.mTold.empty());
  ExpectSame(mStream.Physical(), Int16Format(44100));
}

TEST_F(FormatList, RatesAreThoseOfAllFormatsRisingAndMerged) {
  mStream.Add(Float32Format(0), 96000, 96000);
  mStream.Add(Int16Format(0), 8000, 8000);
  mStream.Add(Int16Format(0), 44100, 48000);
  mStream.Add(AC3(0), 32000, 44100);
  CAAudioValueRangeList theRanges;
  mFormats.GatherAvailableNominalSampleRateRanges(theRanges);
  EXPECT_EQ(Pairs(theRanges), (RatePairs{{8000, 8000}, {32000, 48000}, {96000, 96000}}));
  EXPECT_EQ(mFormats.GetNumberAvailableNominalSampleRateRanges(), 3u);
  AudioValueRange theRange = {1, 2};
  mFormats.GetAvailableNominalSampleRateRangeByIndex(1, theRange);
  EXPECT_EQ(Pairs(std::vector{theRange}), (RatePairs{{32000, 48000}}));
  mFormats.GetAvailableNominalSampleRateRangeByIndex(3, theRange);
  EXPECT_EQ(Pairs(std::vector{theRange}), (RatePairs{{32000, 48000}}));
}

TEST_F(FormatList, RatesBridgedByALaterRangeAreMergedInTheRateList) {
  mStream.Add(Int16Format(0), 8000, 22050);
  mStream.Add(Int16Format(0), 44100, 48000);
  mStream.Add(Int16Format(0), 16000, 45000);
  EXPECT_EQ(mFormats.GetNumberAvailablePhysicalFormats(), 2u);
  CAAudioValueRangeList theRanges;
  mFormats.GatherAvailableNominalSampleRateRanges(theRanges);
  EXPECT_EQ(Pairs(theRanges), (RatePairs{{8000, 48000}}));
}

TEST_F(FormatList, GatheringFoldsIntoWhatTheListHolds) {
  mStream.Add(Int16Format(0), 44100, 48000);
  CAAudioValueRangeList theRanges = {{8000, 44100}};
  mFormats.GatherAvailableNominalSampleRateRanges(theRanges);
  EXPECT_EQ(Pairs(theRanges), (RatePairs{{8000, 48000}}));
}

TEST_F(FormatList, SupportsTheRatesOfItsRanges) {
  AddInt16AndFloat32();
  for (const double theRate : {8000.0, 44100.0, 48000.0, 96000.0}) {
    EXPECT_TRUE(mFormats.SupportsNominalSampleRate(theRate));
  }
  for (const double theRate : {0.0, 7999.0, 48001.0, 88200.0, std::nan("")}) {
    EXPECT_FALSE(mFormats.SupportsNominalSampleRate(theRate));
  }
}

TEST_F(FormatList, ARateThatTheFormatHasChangesOnlyTheRate) {
  AddInt16AndFloat32();
  mFormats.SetCurrentNominalSampleRate(32000, true);
  ASSERT_EQ(mStream.mTold.size(), 1u);
  ExpectSame(mStream.Physical(), Int16Format(32000));
}

TEST_F(FormatList, ARateThatIsNotSupportedChangesNothing) {
  AddInt16AndFloat32();
  EXPECT_EQ(StatusOf([&] { mFormats.SetCurrentNominalSampleRate(88200, true); }), 0);
  EXPECT_TRUE(mStream.mTold.empty());
  ExpectSame(mStream.Physical(), Int16Format(44100));
}

TEST_F(FormatList, ARateChangeKeepsTheSampleWhereItCan) {
  mStream.Add(Int16Format(0), 44100, 44100);
  mStream.Add(Int16Format(0, 1), 96000, 96000);
  mStream.Add(LinearPCM(8, kSigned | kPacked, 2), 96000, 96000);
  SetCurrent(Int16Format(44100));
  // The least format is the 8-bit one; with the channels left open the first entry of the same
  // sample is the mono one.
  mFormats.SetCurrentNominalSampleRate(96000, true);
  ExpectSame(mStream.Physical(), Int16Format(96000, 1));
}

TEST_F(FormatList, ARateChangeOtherwiseKeepsLinearPCM) {
  mStream.Add(Int16Format(0), 44100, 44100);
  mStream.Add(Float32Format(0), 44100, 96000);
  SetCurrent(Float32Format(48000));
  mFormats.SetCurrentNominalSampleRate(44100, true);
  ExpectSame(mStream.Physical(), Float32Format(44100));
  SetCurrent(Int16Format(44100));
  // The first linear PCM entry lacks the rate, so its own common rate is what comes out.
  mFormats.SetCurrentNominalSampleRate(96000, true);
  ExpectSame(mStream.Physical(), Int16Format(44100));
}

TEST_F(FormatList, ASecondTryLeavesAllButTheFormatIDOpen) {
  mStream.Add(LinearPCM(8, kSigned | kPacked, 2), 8000, 96000);
  mStream.Add(Int16Format(0), 44100, 44100);
  SetCurrent(Int16Format(44100));
  mFormats.SetCurrentNominalSampleRate(96000, true);
  ExpectSame(mStream.Physical(), LinearPCM(8, kSigned | kPacked, 2, 96000));
}

TEST_F(FormatList, ASecondTryTakesAFormatThatSharesNothingElse) {
  CAStreamBasicDescription theOther = LinearPCM(8, kPacked, 1);
  theOther.mFramesPerPacket = 4;
  mStream.Add(theOther, 96000, 96000);
  mStream.Add(Int16Format(0), 44100, 44100);
  SetCurrent(Int16Format(44100));
  mFormats.SetCurrentNominalSampleRate(96000, true);
  theOther.mSampleRate = 96000;
  ExpectSame(mStream.Physical(), theOther);
}

TEST_F(FormatList, ARateChangeOfAnEncodedFormatIsTakenAsItIs) {
  mStream.Add(AC3(0), 48000, 48000);
  mStream.Add(Int16Format(0), 44100, 44100);
  SetCurrent(AC3(48000));
  mFormats.SetCurrentNominalSampleRate(44100, true);
  ExpectSame(mStream.Physical(), AC3(44100));
}

TEST_F(FormatList, BufferSizesByFormat) {
  const auto byteSize = [](const CAStreamBasicDescription& inFormat, UInt32 inFrames) {
    return HP_FormatList::CalculateIOBufferByteSize(inFormat, inFrames);
  };
  const auto frameSize = [](const CAStreamBasicDescription& inFormat, UInt32 inBytes) {
    return HP_FormatList::CalculateIOBufferFrameSize(inFormat, inBytes);
  };
  EXPECT_EQ(byteSize(AC3(48000), 512), 2048u);
  EXPECT_EQ(frameSize(AC3(48000), 2050), 512u);
  EXPECT_EQ(byteSize(Int16Format(44100), 512), 2048u);
  EXPECT_EQ(frameSize(Int16Format(44100), 2051), 512u);
  for (const UInt32 theFormatID : {'.mp1', '.mp2', '.mp3', 'ac-3', 'aac '}) {
    const CAStreamBasicDescription theFormat(48000, theFormatID, 1536, 1024, 7, 2, 0, 0);
    EXPECT_EQ(byteSize(theFormat, 512), 1536u);
    EXPECT_EQ(frameSize(theFormat, 512), 1024u);
  }
}

TEST_F(FormatList, BufferSizesAre32BitAndDivideByNothing) {
  EXPECT_EQ(HP_FormatList::CalculateIOBufferByteSize(Int16Format(44100), 0x40000001), 4u);
  EXPECT_EQ(HP_FormatList::CalculateIOBufferByteSize(AC3(44100), 0x40000001), 4u);
  CAStreamBasicDescription theFormat = Int16Format(44100);
  theFormat.mBytesPerFrame = 0;
  EXPECT_EQ(HP_FormatList::CalculateIOBufferFrameSize(theFormat, 2048), 0u);
}

TEST_F(FormatList, BufferSizesGoByTheCurrentVirtualFormat) {
  SetCurrent(Int16Format(44100));
  EXPECT_EQ(mFormats.CalculateIOBufferByteSize(512), 4096u);
  EXPECT_EQ(mFormats.CalculateIOBufferFrameSize(4096), 512u);
  SetCurrent(Int16Format(44100, 2, kNonMixable));
  EXPECT_EQ(mFormats.CalculateIOBufferByteSize(512), 2048u);
  EXPECT_EQ(mFormats.CalculateIOBufferFrameSize(2048), 512u);
}
