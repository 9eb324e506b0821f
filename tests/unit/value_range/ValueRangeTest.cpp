#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <random>
#include <vector>

#include "formats/CAAudioValueRange.h"

namespace {

using Range = CAAudioValueRange;
using List = CAAudioValueRangeList;

// For messages and comparisons.
std::vector<std::pair<double, double>> Pairs(const List& inList) {
  std::vector<std::pair<double, double>> thePairs;
  for (const Range& theRange : inList) thePairs.emplace_back(theRange.mMinimum, theRange.mMaximum);
  return thePairs;
}

void ExpectList(const List& inList, const List& inExpected) {
  EXPECT_EQ(Pairs(inList), Pairs(inExpected));
}

// The six tests of the first range against the second, as a row of the table.
struct Relation {
  Range mX;
  Range mY;
  bool mLess, mGreater, mContained, mOverlapsLow, mOverlapsHigh;
};

}  // namespace

TEST(ValueRange, AddsNoFieldToThePlatformsRecord) {
  EXPECT_EQ(sizeof(Range), sizeof(AudioValueRange));
  EXPECT_EQ(sizeof(Range), 16u);
  EXPECT_EQ(Range().mMinimum, 0.0);
  EXPECT_EQ(Range().mMaximum, 0.0);
}

TEST(ValueRange, ContainsItsEnds) {
  const Range theRange(8000, 48000);
  EXPECT_TRUE(Range::ContainsValue(theRange, 8000));
  EXPECT_TRUE(Range::ContainsValue(theRange, 44100));
  EXPECT_TRUE(Range::ContainsValue(theRange, 48000));
  EXPECT_FALSE(Range::ContainsValue(theRange, 7999.999));
  EXPECT_FALSE(Range::ContainsValue(theRange, 48000.001));
  EXPECT_FALSE(Range::ContainsValue(theRange, std::numeric_limits<double>::quiet_NaN()));
}

TEST(ValueRange, RelationsOfTwoRanges) {
  const Relation theRelations[] = {
      // below, touching from below, reaching in from below
      {{1, 2}, {3, 6}, true, false, false, false, false},
      {{1, 3}, {3, 6}, false, false, false, true, false},
      {{1, 4}, {3, 6}, false, false, false, true, false},
      {{1, 6}, {3, 6}, false, false, false, true, false},
      // around
      {{1, 7}, {3, 6}, false, false, false, false, false},
      // inside
      {{3, 6}, {3, 6}, false, false, true, false, false},
      {{4, 5}, {3, 6}, false, false, true, false, false},
      {{3, 5}, {3, 6}, false, false, true, false, false},
      // reaching out above, touching from above, above
      {{3, 7}, {3, 6}, false, false, false, false, true},
      {{4, 7}, {3, 6}, false, false, false, false, true},
      {{6, 7}, {3, 6}, false, false, false, false, true},
      {{6.5, 7}, {3, 6}, false, true, false, false, false},
  };
  for (const Relation& theRow : theRelations) {
    SCOPED_TRACE(testing::Message() << theRow.mX.mMinimum << " to " << theRow.mX.mMaximum);
    EXPECT_EQ(Range::IsStrictlyLessThan(theRow.mX, theRow.mY), theRow.mLess);
    EXPECT_EQ(Range::IsStrictlyGreaterThan(theRow.mX, theRow.mY), theRow.mGreater);
    EXPECT_EQ(Range::IsStrictlyContainedBy(theRow.mX, theRow.mY), theRow.mContained);
    EXPECT_EQ(Range::OverlapsLow(theRow.mX, theRow.mY), theRow.mOverlapsLow);
    EXPECT_EQ(Range::OverlapsHigh(theRow.mX, theRow.mY), theRow.mOverlapsHigh);
  }
}

TEST(ValueRange, IsSortedByItsMinimum) {
  const Range::LessThan isLess;
  EXPECT_TRUE(isLess(Range(1, 9), Range(2, 3)));
  EXPECT_FALSE(isLess(Range(2, 3), Range(1, 9)));
  EXPECT_FALSE(isLess(Range(1, 2), Range(1, 9)));
}

TEST(ValueRange, BoundsAValue) {
  const Range theRange(8000, 48000);
  EXPECT_EQ(Range::BoundValue(theRange, 1), 8000);
  EXPECT_EQ(Range::BoundValue(theRange, 8000), 8000);
  EXPECT_EQ(Range::BoundValue(theRange, 9000), 9000);
  EXPECT_EQ(Range::BoundValue(theRange, 48000), 48000);
  EXPECT_EQ(Range::BoundValue(theRange, 1e9), 48000);
}

TEST(CommonSampleRate, IsTheLikeliestThatTheRangeHas) {
  EXPECT_EQ(Range::PickCommonSampleRate(Range(88200, 96000)), 96000);
  EXPECT_EQ(Range::PickCommonSampleRate(Range(47000, 50000)), 48000);
  EXPECT_EQ(Range::PickCommonSampleRate(Range(1, 200000)), 44100);
}

TEST(CommonSampleRate, IsTheMaximumWhereNoneIsCommon) {
  EXPECT_EQ(Range::PickCommonSampleRate(Range(45000, 47000)), 47000);
  EXPECT_EQ(Range::PickCommonSampleRate(Range(1, 2)), 2);
}

TEST(CommonSampleRate, IsTriedInThisOrder) {
  const double theOrder[] = {44100, 48000, 96000, 88200, 64000, 32000,
                             24000, 22050, 16000, 12000, 11025, 8000};
  for (const double theRate : theOrder) {
    EXPECT_EQ(Range::PickCommonSampleRate(Range(theRate, theRate)), theRate);
  }
  // Each against each: of any two, the earlier wins where a range has both and no earlier one.
  for (size_t theFirst = 0; theFirst < std::size(theOrder); ++theFirst) {
    for (size_t theSecond = theFirst + 1; theSecond < std::size(theOrder); ++theSecond) {
      const Range theRange(std::min(theOrder[theFirst], theOrder[theSecond]),
                           std::max(theOrder[theFirst], theOrder[theSecond]));
      const double* theExpected =
          std::find_if(std::begin(theOrder), std::end(theOrder),
                       [&](double inRate) { return Range::ContainsValue(theRange, inRate); });
      EXPECT_EQ(Range::PickCommonSampleRate(theRange), *theExpected);
    }
  }
}

TEST(ValueRange, IntersectionOfRangesThatShareRates) {
  Range theResult;
  EXPECT_TRUE(Range::Intersection(Range(8000, 44100), Range(22050, 48000), theResult));
  ExpectList({theResult}, {Range(22050, 44100)});
  EXPECT_TRUE(Range::Intersection(Range(22050, 48000), Range(8000, 44100), theResult));
  ExpectList({theResult}, {Range(22050, 44100)});
}

TEST(ValueRange, IntersectionOfTouchingRangesIsOneRate) {
  Range theResult;
  EXPECT_TRUE(Range::Intersection(Range(8000, 44100), Range(44100, 48000), theResult));
  ExpectList({theResult}, {Range(44100, 44100)});
}

TEST(ValueRange, IntersectionOfDisjointRangesIsZero) {
  for (const bool isSwapped : {false, true}) {
    const Range theLow(8000, 11025), theHigh(44100, 48000);
    Range theResult(1, 2);
    EXPECT_FALSE(
        Range::Intersection(isSwapped ? theHigh : theLow, isSwapped ? theLow : theHigh, theResult));
    ExpectList({theResult}, {Range(0, 0)});
  }
}

TEST(ValueRange, UnionAnswersFalseWhereThereIsOne) {
  Range theResult;
  EXPECT_FALSE(Range::Union(Range(44100, 44100), Range(44100, 48000), theResult));
  ExpectList({theResult}, {Range(44100, 48000)});
  EXPECT_FALSE(Range::Union(Range(1, 9), Range(3, 4), theResult));
  ExpectList({theResult}, {Range(1, 9)});
}

TEST(ValueRange, UnionAnswersTrueWhereThereIsNone) {
  for (const bool isSwapped : {false, true}) {
    const Range theLow(8000, 11025), theHigh(44100, 48000);
    Range theResult(1, 2);
    EXPECT_TRUE(
        Range::Union(isSwapped ? theHigh : theLow, isSwapped ? theLow : theHigh, theResult));
    ExpectList({theResult}, {Range(0, 0)});
  }
}

TEST(RangeListUnion, IntoAnEmptyListIsTheRange) {
  List theResult;
  AFL_ComputeUnion(Range(48000, 48000), {}, theResult);
  ExpectList(theResult, {Range(48000, 48000)});
}

TEST(RangeListUnion, MergesAllThatTouch) {
  List theResult;
  AFL_ComputeUnion(Range(44100, 48000),
                   {{8000, 8000}, {22050, 44100}, {48000, 96000}, {192000, 192000}}, theResult);
  ExpectList(theResult, {Range(8000, 8000), Range(22050, 96000), Range(192000, 192000)});
}

TEST(RangeListUnion, KeepsTheOrder) {
  const List theList = {{8000, 8000}, {44100, 44100}};
  List theResult;
  AFL_ComputeUnion(Range(1, 2), theList, theResult);
  ExpectList(theResult, {Range(1, 2), Range(8000, 8000), Range(44100, 44100)});
  theResult.clear();
  AFL_ComputeUnion(Range(9000, 9001), theList, theResult);
  ExpectList(theResult, {Range(8000, 8000), Range(9000, 9001), Range(44100, 44100)});
  theResult.clear();
  AFL_ComputeUnion(Range(96000, 96000), theList, theResult);
  ExpectList(theResult, {Range(8000, 8000), Range(44100, 44100), Range(96000, 96000)});
}

TEST(RangeListUnion, MergesUpToTheEndOfTheList) {
  List theResult;
  AFL_ComputeUnion(Range(8000, 48000), {{8000, 8000}, {44100, 44100}}, theResult);
  ExpectList(theResult, {Range(8000, 48000)});
}

TEST(RangeListUnion, SurroundingAndSurroundedRangesMerge) {
  List theResult;
  AFL_ComputeUnion(Range(4, 5), {{1, 9}}, theResult);
  ExpectList(theResult, {Range(1, 9)});
  theResult.clear();
  AFL_ComputeUnion(Range(1, 9), {{4, 5}}, theResult);
  ExpectList(theResult, {Range(1, 9)});
}

TEST(RangeListUnion, OneFormAppendsAndTheOtherEmptiesFirst) {
  List theResult = {{7, 7}};
  AFL_ComputeUnion(Range(1, 2), {{3, 4}}, theResult);
  ExpectList(theResult, {Range(7, 7), Range(1, 2), Range(3, 4)});
  CAAudioValueRange_ComputeUnion(Range(1, 2), {{3, 4}}, theResult);
  ExpectList(theResult, {Range(1, 2), Range(3, 4)});
}

TEST(RangeListUnion, IsTheUnionOfAllRatesForAnyRanges) {
  const unsigned theSeed = std::random_device()();
  SCOPED_TRACE(testing::Message() << "seed " << theSeed);
  std::mt19937 theGenerator(theSeed);
  std::uniform_int_distribution<int> theRate(0, 30);
  for (int theRound = 0; theRound < 500; ++theRound) {
    List theUnion;
    std::vector<bool> isCovered(64);  // by half rates, so that gaps between neighbours show
    for (int theCount = 0; theCount < 8; ++theCount) {
      const int theLow = theRate(theGenerator);
      const int theHigh = std::min(30, theLow + theRate(theGenerator) % 5);
      List theScratch;
      AFL_ComputeUnion(Range(theLow, theHigh), theUnion, theScratch);
      theUnion.swap(theScratch);
      for (int theHalf = 2 * theLow; theHalf <= 2 * theHigh; ++theHalf) isCovered[theHalf] = true;
    }
    for (size_t theIndex = 1; theIndex < theUnion.size(); ++theIndex) {
      EXPECT_TRUE(Range::IsStrictlyLessThan(theUnion[theIndex - 1], theUnion[theIndex]));
    }
    for (int theHalf = 0; theHalf < 64; ++theHalf) {
      const bool isInUnion = std::any_of(theUnion.begin(), theUnion.end(), [=](const Range& in) {
        return Range::ContainsValue(in, theHalf / 2.0);
      });
      EXPECT_EQ(isInUnion, isCovered[theHalf]) << theHalf / 2.0;
    }
  }
}

TEST(RangeListIntersection, AppendsWhatIsShared) {
  List theResult = {{7, 7}};
  AFL_ComputeIntersection(Range(10, 20), {{1, 2}, {3, 11}, {12, 13}, {20, 30}, {40, 50}},
                          theResult);
  ExpectList(theResult, {Range(7, 7), Range(10, 11), Range(12, 13), Range(20, 20)});
}

TEST(RangeListIntersection, WithNothingSharedAddsNothing) {
  List theResult;
  AFL_ComputeIntersection(Range(44100, 48000), {{8000, 8000}, {192000, 192000}}, theResult);
  EXPECT_TRUE(theResult.empty());
}

TEST(RangeListIntersection, OfSeveralRangesGoesByRangeAndThenByItem) {
  const AudioValueRange theRanges[] = {{5, 9}, {1, 6}};
  List theResult = {{7, 7}};
  CAAudioValueRange_ComputeIntersection(2, theRanges, {{2, 5}, {6, 8}}, theResult);
  ExpectList(theResult, {Range(5, 5), Range(6, 8), Range(2, 5), Range(6, 6)});
  CAAudioValueRange_ComputeIntersection(0, nullptr, {{2, 5}}, theResult);
  EXPECT_TRUE(theResult.empty());
}
