#include "formats/AvailableFormatList.h"

#include <gtest/gtest.h>

#include "unit/format_list/FormatDevice.h"

using namespace tembra;

namespace {

using List = HP_FormatList::AvailableFormatList;

void Add(List& ioList, const CAStreamBasicDescription& inFormat, double inMinimum,
         double inMaximum) {
  AudioStreamRangedDescription theFormat = {};
  theFormat.mFormat = inFormat;
  theFormat.mSampleRateRange = {inMinimum, inMaximum};
  AFL_AddFormat(ioList, theFormat);
}

List OneFormat(std::initializer_list<AudioValueRange> inRanges) {
  List theList;
  for (const AudioValueRange& theRange : inRanges) {
    Add(theList, Int16Format(44100), theRange.mMinimum, theRange.mMaximum);
  }
  EXPECT_EQ(theList.size(), 1u);
  return theList;
}

RatePairs RangesOf(std::initializer_list<AudioValueRange> inRanges) {
  return Pairs(OneFormat(inRanges)[0].mSampleRateRanges);
}

// A list in the order of preference: Int16, Float32, non-mixable Int16, encoded.
List SeveralFormats() {
  List theList;
  Add(theList, AC3(0), 48000, 48000);
  Add(theList, Int16Format(0, 2, kNonMixable), 44100, 44100);
  Add(theList, Float32Format(0), 44100, 48000);
  Add(theList, Int16Format(0), 8000, 48000);
  Add(theList, Int16Format(0), 96000, 96000);
  return theList;
}

CAStreamBasicDescription BestMatch(const List& inList, const CAStreamBasicDescription& inFormat,
                                   const CAStreamBasicDescription& inCurrent = Int16Format(48000)) {
  CAStreamBasicDescription theFormat = inFormat;
  AFL_BestMatchForFormat(inList, inCurrent, theFormat);
  return theFormat;
}

}  // namespace

TEST(AddFormat, KeepsEntriesInOrderAndWithoutRate) {
  const List theList = SeveralFormats();
  ASSERT_EQ(theList.size(), 4u);
  ExpectSame(theList[0].mFormat, Int16Format(0));
  ExpectSame(theList[1].mFormat, Float32Format(0));
  ExpectSame(theList[2].mFormat, Int16Format(0, 2, kNonMixable));
  ExpectSame(theList[3].mFormat, AC3(0));
}

TEST(AddFormat, OfAnEqualFormatMergesRates) {
  List theList;
  Add(theList, Int16Format(44100), 44100, 44100);
  Add(theList, Int16Format(48000), 48000, 48000);
  ASSERT_EQ(theList.size(), 1u);
  EXPECT_EQ(theList[0].mFormat.mSampleRate, 0.0);
  EXPECT_EQ(Pairs(theList[0].mSampleRateRanges), (RatePairs{{48000, 48000}, {44100, 44100}}));
}

TEST(AddFormat, OfEqualRankStandsNewestFirst) {
  List theList;
  Add(theList, Int16Format(0), 44100, 44100);
  Add(theList, Int16Format(0, 2, kBigEndian), 44100, 44100);
  ASSERT_EQ(theList.size(), 2u);
  ExpectSame(theList[0].mFormat, Int16Format(0, 2, kBigEndian));
  ExpectSame(theList[1].mFormat, Int16Format(0));
}

TEST(AddFormat, LooksNoFurtherThanTheFirstOfEqualRank) {
  List theList;
  Add(theList, Int16Format(0), 44100, 44100);
  Add(theList, Int16Format(0, 2, kBigEndian), 44100, 44100);
  Add(theList, Int16Format(0), 48000, 48000);
  ASSERT_EQ(theList.size(), 3u);
  ExpectSame(theList[0].mFormat, Int16Format(0));
  EXPECT_EQ(Pairs(theList[0].mSampleRateRanges), (RatePairs{{48000, 48000}}));
  ExpectSame(theList[2].mFormat, Int16Format(0));
  EXPECT_EQ(Pairs(theList[2].mSampleRateRanges), (RatePairs{{44100, 44100}}));
}

TEST(MergeRange, BelowGoesToTheEnd) {
  EXPECT_EQ(RangesOf({{48000, 48000}, {8000, 8000}}), (RatePairs{{48000, 48000}, {8000, 8000}}));
}

TEST(MergeRange, BetweenGoesBetween) {
  EXPECT_EQ(RangesOf({{96000, 96000}, {8000, 8000}, {44100, 44100}}),
            (RatePairs{{96000, 96000}, {44100, 44100}, {8000, 8000}}));
}

TEST(MergeRange, ReachingInFromBelowMovesTheMinimum) {
  EXPECT_EQ(RangesOf({{44100, 48000}, {8000, 44100}}), (RatePairs{{8000, 48000}}));
  EXPECT_EQ(RangesOf({{44100, 48000}, {8000, 48000}}), (RatePairs{{8000, 48000}}));
}

TEST(MergeRange, ContainedChangesNothing) {
  EXPECT_EQ(RangesOf({{8000, 48000}, {44100, 44100}}), (RatePairs{{8000, 48000}}));
  EXPECT_EQ(RangesOf({{8000, 48000}, {8000, 48000}}), (RatePairs{{8000, 48000}}));
}

TEST(MergeRange, ReachingOutAboveMovesTheMaximum) {
  EXPECT_EQ(RangesOf({{8000, 44100}, {44100, 96000}}), (RatePairs{{8000, 96000}}));
}

TEST(MergeRange, AboveGoesBefore) {
  EXPECT_EQ(RangesOf({{8000, 8000}, {44100, 44100}}), (RatePairs{{44100, 44100}, {8000, 8000}}));
}

TEST(MergeRange, SurroundingGoesBeforeAndLeavesTheOld) {
  EXPECT_EQ(RangesOf({{44100, 44100}, {8000, 96000}}), (RatePairs{{8000, 96000}, {44100, 44100}}));
}

TEST(MergeRange, BridgingExtendsOnlyTheFirstThatItMeets) {
  EXPECT_EQ(RangesOf({{8000, 22050}, {44100, 48000}, {16000, 45000}}),
            (RatePairs{{16000, 48000}, {8000, 22050}}));
}

TEST(FormatCount, IsOfFormatsWithEachOfTheirRanges) {
  EXPECT_EQ(AFL_GetNumberFormats(SeveralFormats()), 5u);
  EXPECT_EQ(AFL_GetNumberFormats({}), 0u);
}

TEST(FormatByIndex, CountsRangesThroughTheEntries) {
  const List theList = SeveralFormats();
  const struct {
    UInt32 mFormatID;
    UInt32 mBits;
    AudioValueRange mRange;
    double mRate;
  } theExpected[] = {{'lpcm', 16, {96000, 96000}, 96000},
                     {'lpcm', 16, {8000, 48000}, 0},
                     {'lpcm', 32, {44100, 48000}, 0},
                     {'lpcm', 16, {44100, 44100}, 44100},
                     {'cac3', 16, {48000, 48000}, 48000}};
  for (UInt32 theIndex = 0; theIndex < 5; ++theIndex) {
    AudioStreamRangedDescription theFormat = {};
    AFL_GetFormatByIndex(theList, theIndex, theFormat);
    EXPECT_EQ(theFormat.mFormat.mFormatID, theExpected[theIndex].mFormatID);
    EXPECT_EQ(theFormat.mFormat.mBitsPerChannel, theExpected[theIndex].mBits);
    EXPECT_EQ(theFormat.mSampleRateRange.mMinimum, theExpected[theIndex].mRange.mMinimum);
    EXPECT_EQ(theFormat.mSampleRateRange.mMaximum, theExpected[theIndex].mRange.mMaximum);
    // A single rate stands in the format too; a range of several leaves the format open.
    EXPECT_EQ(theFormat.mFormat.mSampleRate, theExpected[theIndex].mRate);
  }
}

TEST(FormatByIndex, PastTheEndLeavesTheOutput) {
  AudioStreamRangedDescription theFormat = {};
  theFormat.mFormat = AC3(12345);
  theFormat.mSampleRateRange = {1, 2};
  for (const UInt32 theIndex : {5u, 0xFFFFFFFFu}) {
    AFL_GetFormatByIndex(SeveralFormats(), theIndex, theFormat);
    ExpectSame(theFormat.mFormat, AC3(12345));
    EXPECT_EQ(theFormat.mSampleRateRange.mMaximum, 2);
  }
}

TEST(SupportsFormat, AnEmptyFormatIsSupportedEvenByAnEmptyList) {
  EXPECT_TRUE(AFL_SupportsFormat({}, CAStreamBasicDescription()));
  EXPECT_TRUE(AFL_SupportsFormat(SeveralFormats(), CAStreamBasicDescription()));
}

TEST(SupportsFormat, ARateAloneIsLookedForInAllEntries) {
  CAStreamBasicDescription theFormat;
  theFormat.mSampleRate = 96000;
  EXPECT_TRUE(AFL_SupportsFormat(SeveralFormats(), theFormat));
  EXPECT_FALSE(AFL_SupportsFormat({}, theFormat));
  theFormat.mSampleRate = 48001;
  EXPECT_FALSE(AFL_SupportsFormat(SeveralFormats(), theFormat));
}

TEST(SupportsFormat, TheReservedFieldDoesNotMakeAFormat) {
  CAStreamBasicDescription theFormat;
  theFormat.mReserved = 1;
  EXPECT_TRUE(AFL_SupportsFormat({}, theFormat));
}

TEST(SupportsFormat, AFormatNeedsAnEntryWithItsRate) {
  const List theList = SeveralFormats();
  EXPECT_TRUE(AFL_SupportsFormat(theList, Int16Format(0)));
  EXPECT_TRUE(AFL_SupportsFormat(theList, Int16Format(96000)));
  EXPECT_TRUE(AFL_SupportsFormat(theList, Int16Format(44100)));
  EXPECT_FALSE(AFL_SupportsFormat(theList, Int16Format(88200)));
  EXPECT_FALSE(AFL_SupportsFormat(theList, Float32Format(96000)));
  EXPECT_FALSE(AFL_SupportsFormat(theList, LinearPCM(24, kSigned, 2, 0)));
}

TEST(SupportsFormat, SearchStopsAtTheFirstEntryThatMatches) {
  // Float32 would have the rate, but Int16 comes first among stereo formats.
  List theList;
  Add(theList, Int16Format(0), 44100, 44100);
  Add(theList, Float32Format(0), 96000, 96000);
  CAStreamBasicDescription theStereo;
  theStereo.mChannelsPerFrame = 2;
  theStereo.mSampleRate = 96000;
  EXPECT_FALSE(AFL_SupportsFormat(theList, theStereo));
  theStereo.mSampleRate = 44100;
  EXPECT_TRUE(AFL_SupportsFormat(theList, theStereo));
}

TEST(FindSampleFormat, HandsOutTheFirstEntryThatEquals) {
  CAStreamBasicDescription theQuestion;
  theQuestion.mBitsPerChannel = 16;
  CAStreamBasicDescription theFormat;
  EXPECT_TRUE(AFL_FindSampleFormat(SeveralFormats(), theQuestion, theFormat));
  ExpectSame(theFormat, Int16Format(0));
  EXPECT_FALSE(AFL_FindSampleFormat(SeveralFormats(), LinearPCM(24, kSigned, 2), theFormat));
  ExpectSame(theFormat, Int16Format(0));
}

TEST(BestMatch, TakesTheEntryWithTheWantedRate) {
  ExpectSame(BestMatch(SeveralFormats(), Int16Format(96000)), Int16Format(96000));
  ExpectSame(BestMatch(SeveralFormats(), Float32Format(46000)), Float32Format(46000));
}

TEST(BestMatch, FillsWildcardsFromTheEntry) {
  CAStreamBasicDescription theQuestion;
  theQuestion.mFormatID = 'cac3';
  ExpectSame(BestMatch(SeveralFormats(), theQuestion), AC3(48000));
}

TEST(BestMatch, OfAnEmptyFormatIsTheFirst) {
  ExpectSame(BestMatch(SeveralFormats(), CAStreamBasicDescription()), Int16Format(48000));
}

TEST(BestMatch, TakesTheCurrentRateWhereNoneIsWanted) {
  ExpectSame(BestMatch(SeveralFormats(), Float32Format(0), Int16Format(48000)),
             Float32Format(48000));
}

TEST(BestMatch, TakesACommonRateWhereTheEntryLacksTheCurrentOne) {
  ExpectSame(BestMatch(SeveralFormats(), Float32Format(0), Int16Format(96000)),
             Float32Format(44100));
}

TEST(BestMatch, TakesACommonRateWhereTheEntryLacksTheWantedOne) {
  ExpectSame(BestMatch(SeveralFormats(), Float32Format(96000), Int16Format(48000)),
             Float32Format(44100));
  // The entry's first range is its highest.
  ExpectSame(BestMatch(SeveralFormats(), Int16Format(88200), Int16Format(48000)),
             Int16Format(96000));
}

TEST(BestMatch, OfAnUnknownFormatIsTheFirstAndDropsTheRate) {
  ExpectSame(BestMatch(SeveralFormats(), LinearPCM(24, kSigned, 2, 8000), Int16Format(48000)),
             Int16Format(96000));
}

TEST(BestMatch, ReplacesEveryField) {
  CAStreamBasicDescription theQuestion = Int16Format(44100);
  theQuestion.mReserved = 99;
  EXPECT_EQ(BestMatch(SeveralFormats(), theQuestion).mReserved, 0u);
}

TEST(BestMatch, WorksWhereCurrentAndWantedAreOne) {
  CAStreamBasicDescription theFormat = Float32Format(0);
  AFL_BestMatchForFormat(SeveralFormats(), theFormat, theFormat);
  ExpectSame(theFormat, Float32Format(44100));
}

TEST(BestMatch, OfAnEmptyListLeavesTheFormat) {
  ExpectSame(BestMatch({}, AC3(1)), AC3(1));
}
