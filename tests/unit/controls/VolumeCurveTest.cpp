#include "controls/CAVolumeCurve.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

constexpr SInt32 kLowest = std::numeric_limits<SInt32>::min();
constexpr SInt32 kHighest = std::numeric_limits<SInt32>::max();
constexpr Float32 kNaN = std::numeric_limits<Float32>::quiet_NaN();
constexpr Float32 kInfinity = std::numeric_limits<Float32>::infinity();

class VolumeCurve : public testing::Test {
 protected:
  // The curve that the device's volumes have.
  static CAVolumeCurve Standard() {
    CAVolumeCurve theCurve;
    theCurve.AddRange(0, 1024, -90.0F, 0.0F);
    return theCurve;
  }
  // A slow, a fast and a slow stretch that join.
  static CAVolumeCurve ThreeSegments() {
    CAVolumeCurve theCurve;
    theCurve.AddRange(10, 20, -100.0F, -60.0F);
    theCurve.AddRange(20, 120, -60.0F, -10.0F);
    theCurve.AddRange(120, 130, -10.0F, 0.0F);
    return theCurve;
  }
};

TEST_F(VolumeCurve, StartsEmptyWithTheSquareAsItsFunction) {
  const CAVolumeCurve theCurve;
  EXPECT_EQ(theCurve.GetTransferFunction(), 5U);
  EXPECT_EQ(theCurve.GetMinimumRaw(), 0);
  EXPECT_EQ(theCurve.GetMaximumRaw(), 0);
  EXPECT_EQ(theCurve.GetMinimumDB(), 0.0F);
  EXPECT_EQ(theCurve.GetMaximumDB(), 0.0F);
  EXPECT_TRUE(theCurve.CheckForContinuity());
}

TEST_F(VolumeCurve, ExtremesAreThoseOfTheFirstAndLastSegment) {
  const CAVolumeCurve theCurve = ThreeSegments();
  EXPECT_EQ(theCurve.GetMinimumRaw(), 10);
  EXPECT_EQ(theCurve.GetMaximumRaw(), 130);
  EXPECT_EQ(theCurve.GetMinimumDB(), -100.0F);
  EXPECT_EQ(theCurve.GetMaximumDB(), 0.0F);
}

TEST_F(VolumeCurve, TheMiddleOfTheStandardCurve) {
  const CAVolumeCurve theCurve = Standard();
  EXPECT_EQ(theCurve.ConvertRawToDB(512), -45.0F);
  EXPECT_EQ(theCurve.ConvertRawToScalar(512), 0.25F);
  EXPECT_EQ(theCurve.ConvertDBToRaw(-45.0F), 512);
  EXPECT_EQ(theCurve.ConvertDBToScalar(-45.0F), 0.25F);
}

TEST_F(VolumeCurve, AScalarOfOneHalfIsRaw724) {
  const CAVolumeCurve theCurve = Standard();
  EXPECT_EQ(theCurve.ConvertScalarToRaw(0.5F), 724);
  EXPECT_EQ(theCurve.ConvertScalarToDB(0.5F), theCurve.ConvertRawToDB(724));
  EXPECT_NEAR(theCurve.ConvertRawToScalar(724), 0.5F, 0.001F);
  EXPECT_NE(theCurve.ConvertRawToScalar(724), 0.5F);
}

TEST_F(VolumeCurve, InputsAreClamped) {
  const CAVolumeCurve theCurve = Standard();
  EXPECT_EQ(theCurve.ConvertScalarToRaw(2.0F), 1024);
  EXPECT_EQ(theCurve.ConvertScalarToRaw(-1.0F), 0);
  EXPECT_EQ(theCurve.ConvertDBToRaw(10.0F), 1024);
  EXPECT_EQ(theCurve.ConvertDBToRaw(-91.0F), 0);
  EXPECT_EQ(theCurve.ConvertRawToDB(-1), -90.0F);
  EXPECT_EQ(theCurve.ConvertRawToDB(1025), 0.0F);
  EXPECT_EQ(theCurve.ConvertRawToScalar(-1), 0.0F);
  EXPECT_EQ(theCurve.ConvertRawToScalar(1025), 1.0F);
  EXPECT_EQ(theCurve.ConvertDBToScalar(kInfinity), 1.0F);
  EXPECT_EQ(theCurve.ConvertScalarToDB(-kInfinity), -90.0F);
}

TEST_F(VolumeCurve, WhatIsNotANumberCountsAsTheMinimum) {
  const CAVolumeCurve theCurve = Standard();
  EXPECT_EQ(theCurve.ConvertScalarToRaw(kNaN), 0);
  EXPECT_EQ(theCurve.ConvertDBToRaw(kNaN), 0);
}

TEST_F(VolumeCurve, ConversionsRoundToTheNearestStep) {
  const CAVolumeCurve theCurve = Standard();
  constexpr Float32 kStep = 90.0F / 1024.0F;
  EXPECT_EQ(theCurve.ConvertDBToRaw(-90.0F + 10.4F * kStep), 10);
  EXPECT_EQ(theCurve.ConvertDBToRaw(-90.0F + 10.6F * kStep), 11);
  for (SInt32 theRaw = 0; theRaw <= 1024; ++theRaw) {
    EXPECT_EQ(theCurve.ConvertDBToRaw(theCurve.ConvertRawToDB(theRaw)), theRaw);
    EXPECT_EQ(theCurve.ConvertScalarToRaw(theCurve.ConvertRawToScalar(theRaw)), theRaw);
  }
}

// The threshold of 30 dB.

TEST_F(VolumeCurve, ANarrowCurveIsStraight) {
  CAVolumeCurve theCurve;
  theCurve.AddRange(0, 1024, -20.0F, 0.0F);
  EXPECT_EQ(theCurve.ConvertRawToScalar(512), 0.5F);
  EXPECT_EQ(theCurve.ConvertScalarToRaw(0.5F), 512);
}

TEST_F(VolumeCurve, ThirtyDecibelsExactlyAreStraightAndMoreAreNot) {
  CAVolumeCurve theCurve;
  theCurve.AddRange(0, 1024, -30.0F, 0.0F);
  EXPECT_EQ(theCurve.ConvertRawToScalar(512), 0.5F);
  EXPECT_EQ(theCurve.ConvertScalarToRaw(0.5F), 512);
  theCurve.ResetRange();
  theCurve.AddRange(0, 1024, -30.001F, 0.0F);
  EXPECT_EQ(theCurve.ConvertRawToScalar(512), 0.25F);
  EXPECT_EQ(theCurve.ConvertScalarToRaw(0.25F), 512);
}

// Transfer functions.

struct Function {
  UInt32 mKind;
  Float32 mExponent;
};

class TransferFunction : public testing::TestWithParam<Function> {};

TEST_P(TransferFunction, RaisesTheShareOfTheRange) {
  CAVolumeCurve theCurve;
  theCurve.AddRange(0, 1024, -90.0F, 0.0F);
  theCurve.SetTransferFunction(GetParam().mKind);
  EXPECT_EQ(theCurve.GetTransferFunction(), GetParam().mKind);
  for (const SInt32 theRaw : {0, 1, 100, 512, 900, 1024}) {
    const Float32 theShare = static_cast<Float32>(theRaw) / 1024.0F;
    EXPECT_FLOAT_EQ(theCurve.ConvertRawToScalar(theRaw), std::pow(theShare, GetParam().mExponent));
  }
  for (const Float32 theScalar : {0.0F, 0.001F, 0.3F, 0.5F, 0.9F, 1.0F}) {
    const Float32 theShare = std::pow(theScalar, 1.0F / GetParam().mExponent);
    EXPECT_NEAR(theCurve.ConvertScalarToRaw(theScalar), std::round(theShare * 1024.0F), 0.0);
  }
}

INSTANTIATE_TEST_SUITE_P(
    EachKind, TransferFunction,
    testing::Values(Function{0, 1.0F}, Function{1, 1.0F / 3.0F}, Function{2, 1.0F / 2.0F},
                    Function{3, 3.0F / 4.0F}, Function{4, 3.0F / 2.0F}, Function{5, 2.0F},
                    Function{6, 3.0F}, Function{7, 4.0F}, Function{8, 5.0F}, Function{9, 6.0F},
                    Function{10, 7.0F}, Function{11, 8.0F}, Function{12, 9.0F}, Function{13, 10.0F},
                    Function{14, 11.0F}, Function{15, 12.0F}, Function{16, 2.0F},
                    Function{17, 2.0F}, Function{0xFFFFFFFF, 2.0F}),
    [](const auto& inInfo) { return "Kind" + std::to_string(inInfo.param.mKind); });

TEST_F(VolumeCurve, ResettingTheRangeKeepsTheFunction) {
  CAVolumeCurve theCurve = Standard();
  theCurve.SetTransferFunction(6);
  theCurve.ResetRange();
  EXPECT_EQ(theCurve.GetMaximumRaw(), 0);
  EXPECT_EQ(theCurve.GetTransferFunction(), 6U);
  theCurve.AddRange(0, 1024, -90.0F, 0.0F);
  EXPECT_EQ(theCurve.ConvertRawToScalar(512), 0.125F);
}

// Ranges.

TEST_F(VolumeCurve, OverlapIsToldFromTouching) {
  EXPECT_FALSE(CARawPoint::Overlap({0, 10}, {10, 20}));
  EXPECT_FALSE(CARawPoint::Overlap({10, 20}, {0, 10}));
  EXPECT_TRUE(CARawPoint::Overlap({0, 11}, {10, 20}));
  EXPECT_TRUE(CARawPoint::Overlap({19, 30}, {10, 20}));
  EXPECT_TRUE(CARawPoint::Overlap({12, 14}, {10, 20}));
  EXPECT_TRUE(CARawPoint::Overlap({0, 30}, {10, 20}));
  EXPECT_FALSE(CARawPoint::Overlap({30, 40}, {10, 20}));
}

TEST_F(VolumeCurve, RangesAreOrderedByTheirStartAlone) {
  EXPECT_TRUE((CARawPoint{0, 100} < CARawPoint{1, 2}));
  EXPECT_FALSE((CARawPoint{1, 2} < CARawPoint{1, 3}));
  EXPECT_TRUE((CARawPoint{1, 2} >= CARawPoint{1, 3}));
  EXPECT_FALSE((CARawPoint{0, 3} >= CARawPoint{1, 2}));
}

TEST_F(VolumeCurve, AnOverlappingRangeIsLeftOut) {
  CAVolumeCurve theCurve;
  theCurve.AddRange(0, 100, -50.0F, 0.0F);
  theCurve.AddRange(50, 150, 0.0F, 50.0F);
  EXPECT_EQ(theCurve.GetMaximumRaw(), 100);
  theCurve.AddRange(-10, 1, -60.0F, -50.0F);
  EXPECT_EQ(theCurve.GetMinimumRaw(), 0);
  theCurve.AddRange(-10, 0, -60.0F, -50.0F);
  EXPECT_EQ(theCurve.GetMinimumRaw(), -10);
}

TEST_F(VolumeCurve, AnOverlapIsNotForgottenAtTheNextSegment) {
  CAVolumeCurve theCurve;
  theCurve.AddRange(0, 100, -50.0F, 0.0F);
  theCurve.AddRange(200, 300, 0.0F, 50.0F);
  // Overlaps the first alone, and sorts below both.
  theCurve.AddRange(-10, 1, -60.0F, -50.0F);
  EXPECT_EQ(theCurve.GetMinimumRaw(), 0);
  EXPECT_EQ(theCurve.GetMinimumDB(), -50.0F);
}

TEST_F(VolumeCurve, RangesMayComeInAnyOrder) {
  CAVolumeCurve theCurve;
  theCurve.AddRange(100, 200, -10.0F, 0.0F);
  theCurve.AddRange(0, 100, -60.0F, -10.0F);
  EXPECT_TRUE(theCurve.CheckForContinuity());
  EXPECT_EQ(theCurve.ConvertRawToDB(50), -35.0F);
  EXPECT_EQ(theCurve.ConvertRawToDB(150), -5.0F);
}

TEST_F(VolumeCurve, ANewRangeIsComparedOnlyUpToTheFirstThatStartsNoHigher) {
  CAVolumeCurve theCurve;
  theCurve.AddRange(0, 100, -60.0F, -30.0F);
  theCurve.AddRange(100, 200, -30.0F, 0.0F);
  // Overlaps the second segment, but the walk ends at the first.
  theCurve.AddRange(150, 300, 0.0F, 10.0F);
  EXPECT_EQ(theCurve.GetMaximumRaw(), 300);
  EXPECT_EQ(theCurve.GetMaximumDB(), 10.0F);
}

TEST_F(VolumeCurve, ARangeThatStartsWhereAnotherDoesChangesNothing) {
  CAVolumeCurve theCurve;
  theCurve.AddRange(0, 100, -60.0F, 0.0F);
  theCurve.AddRange(100, 200, 0.0F, 10.0F);
  // Does not overlap the first, at which the walk ends, and finds its place taken.
  theCurve.AddRange(100, 300, 0.0F, 99.0F);
  EXPECT_EQ(theCurve.GetMaximumRaw(), 200);
  EXPECT_EQ(theCurve.GetMaximumDB(), 10.0F);
}

// Several segments.

TEST_F(VolumeCurve, SegmentsAreCountedThrough) {
  const CAVolumeCurve theCurve = ThreeSegments();
  EXPECT_TRUE(theCurve.CheckForContinuity());
  EXPECT_EQ(theCurve.ConvertRawToDB(10), -100.0F);
  EXPECT_EQ(theCurve.ConvertRawToDB(15), -80.0F);
  EXPECT_EQ(theCurve.ConvertRawToDB(20), -60.0F);
  EXPECT_EQ(theCurve.ConvertRawToDB(70), -35.0F);
  EXPECT_EQ(theCurve.ConvertRawToDB(125), -5.0F);
  EXPECT_EQ(theCurve.ConvertDBToRaw(-80.0F), 15);
  EXPECT_EQ(theCurve.ConvertDBToRaw(-60.0F), 20);
  EXPECT_EQ(theCurve.ConvertDBToRaw(-35.0F), 70);
  EXPECT_EQ(theCurve.ConvertDBToRaw(-5.0F), 125);
  EXPECT_EQ(theCurve.ConvertRawToScalar(70), 0.25F);
  EXPECT_EQ(theCurve.ConvertScalarToRaw(0.25F), 70);
}

TEST_F(VolumeCurve, AGapIsClosedUp) {
  CAVolumeCurve theCurve;
  theCurve.AddRange(0, 10, -40.0F, -30.0F);
  theCurve.AddRange(20, 30, -20.0F, -10.0F);
  EXPECT_FALSE(theCurve.CheckForContinuity());
  // Five steps of the second segment, on top of the sums of the first.
  EXPECT_EQ(theCurve.ConvertRawToDB(15), -25.0F);
  // All steps that there are.
  EXPECT_EQ(theCurve.ConvertRawToDB(30), -20.0F);
  EXPECT_EQ(theCurve.ConvertDBToRaw(-15.0F), 15);
  EXPECT_EQ(theCurve.ConvertDBToRaw(-10.0F), 20);
  // Inside the gap the steps count backwards from the second segment's start.
  EXPECT_EQ(theCurve.ConvertDBToRaw(-25.0F), 5);
}

TEST_F(VolumeCurve, ContinuityNeedsBothRawAndDecibels) {
  CAVolumeCurve theCurve;
  theCurve.AddRange(0, 10, -40.0F, -30.0F);
  EXPECT_TRUE(theCurve.CheckForContinuity());
  theCurve.AddRange(10, 20, -29.0F, -20.0F);
  EXPECT_FALSE(theCurve.CheckForContinuity());
  theCurve.ResetRange();
  theCurve.AddRange(0, 10, -40.0F, -30.0F);
  theCurve.AddRange(11, 20, -30.0F, -20.0F);
  EXPECT_FALSE(theCurve.CheckForContinuity());
}

TEST_F(VolumeCurve, ASegmentWithoutWidthContributesNothing) {
  CAVolumeCurve theCurve;
  theCurve.AddRange(0, 10, -40.0F, -30.0F);
  theCurve.AddRange(10, 10, -30.0F, -20.0F);
  theCurve.AddRange(11, 21, -20.0F, -10.0F);
  EXPECT_EQ(theCurve.ConvertRawToDB(10), -30.0F);
  EXPECT_EQ(theCurve.ConvertRawToDB(15), -25.0F);
  EXPECT_EQ(theCurve.ConvertDBToRaw(-25.0F), 10);
  EXPECT_EQ(theCurve.ConvertDBToRaw(-15.0F), 15);
}

TEST_F(VolumeCurve, ACurveWithoutWidthOrHeightDividesByNothing) {
  CAVolumeCurve theCurve;
  theCurve.AddRange(7, 7, -10.0F, 0.0F);
  EXPECT_EQ(theCurve.ConvertRawToScalar(7), 0.0F);
  EXPECT_EQ(theCurve.ConvertScalarToRaw(1.0F), 7);
  EXPECT_EQ(theCurve.ConvertRawToDB(7), -10.0F);
  EXPECT_EQ(theCurve.ConvertDBToRaw(-5.0F), 7);
  theCurve.ResetRange();
  theCurve.AddRange(0, 10, -6.0F, -6.0F);
  EXPECT_EQ(theCurve.ConvertDBToRaw(-6.0F), 0);
  EXPECT_EQ(theCurve.ConvertRawToDB(10), -6.0F);
}

TEST_F(VolumeCurve, ConversionsBeforeAnyRangeGiveZero) {
  const CAVolumeCurve theCurve;
  EXPECT_EQ(theCurve.ConvertRawToDB(512), 0.0F);
  EXPECT_EQ(theCurve.ConvertDBToRaw(-45.0F), 0);
  EXPECT_EQ(theCurve.ConvertRawToScalar(512), 0.0F);
  EXPECT_EQ(theCurve.ConvertScalarToRaw(0.5F), 0);
  EXPECT_EQ(theCurve.ConvertDBToScalar(-45.0F), 0.0F);
  EXPECT_EQ(theCurve.ConvertScalarToDB(0.5F), 0.0F);
}

TEST_F(VolumeCurve, TheWidestRangeThatThereIsDoesNotOverflow) {
  CAVolumeCurve theCurve;
  theCurve.AddRange(kLowest, kHighest, -90.0F, 0.0F);
  theCurve.SetTransferFunction(0);
  EXPECT_EQ(theCurve.ConvertRawToDB(kLowest), -90.0F);
  EXPECT_EQ(theCurve.ConvertRawToDB(kHighest), 0.0F);
  EXPECT_EQ(theCurve.ConvertRawToScalar(kHighest), 1.0F);
  EXPECT_EQ(theCurve.ConvertScalarToRaw(0.0F), kLowest);
  EXPECT_EQ(theCurve.ConvertScalarToRaw(1.0F), kHighest);
  EXPECT_EQ(theCurve.ConvertDBToRaw(-90.0F), kLowest);
  EXPECT_EQ(theCurve.ConvertDBToRaw(0.0F), kHighest);
}

}  // namespace
