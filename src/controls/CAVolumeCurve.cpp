#include "controls/CAVolumeCurve.h"

#include <CoreAudio/AudioHardware.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

// A curve that spans no more than this is straight, whatever its transfer function.
constexpr Float32 kMaximumLinearRangeDB = 30.0F;

SInt64 GetWidth(const CARawPoint& inRaw) {
  return SInt64{inRaw.mMaximum} - inRaw.mMinimum;
}

// Clamps, and takes what is not a number for the minimum.
Float32 Clamp(Float32 inValue, Float32 inMinimum, Float32 inMaximum) {
  if (!(inValue >= inMinimum)) inValue = inMinimum;
  return inValue > inMaximum ? inMaximum : inValue;
}

SInt32 ClampRaw(SInt64 inRaw, SInt64 inMinimum, SInt64 inMaximum) {
  if (inRaw < inMinimum) inRaw = inMinimum;
  return static_cast<SInt32>(inRaw > inMaximum ? inMaximum : inRaw);
}

SInt32 MakeRaw(SInt64 inRaw) {
  return ClampRaw(inRaw, std::numeric_limits<SInt32>::min(), std::numeric_limits<SInt32>::max());
}

// To the nearest whole step, and never more than any two raw values are apart.
SInt64 RoundSteps(Float32 inSteps) {
  constexpr Float32 kMostSteps = 4294967296.0F;
  return static_cast<SInt64>(Clamp(std::roundf(inSteps), -kMostSteps, kMostSteps));
}

}  // namespace

CAVolumeCurve::CAVolumeCurve()
    : mIsApplyingTransferFunction(true),
      mTransferFunction(kAudioLevelControlTranferFunction2Over1),
      mRaiseExponent(2.0F),
      mRootExponent(1.0F) {}

CAVolumeCurve::~CAVolumeCurve() = default;

void CAVolumeCurve::ResetRange() {
  mCurveMap.clear();
}

void CAVolumeCurve::AddRange(SInt32 inMinimumRaw, SInt32 inMaximumRaw, Float32 inMinimumDB,
                             Float32 inMaximumDB) {
  const CARawPoint theRaw{inMinimumRaw, inMaximumRaw};
  bool isOverlapped = false;
  bool isDone = false;
  for (auto theSegment = mCurveMap.begin();
       theSegment != mCurveMap.end() && !isOverlapped && !isDone; ++theSegment) {
    isOverlapped = CARawPoint::Overlap(theRaw, theSegment->first);
    // The segments behind this one are deliberately not looked at.
    isDone = theRaw >= theSegment->first;
  }
  if (!isOverlapped) mCurveMap.insert({theRaw, {inMinimumDB, inMaximumDB}});
}

void CAVolumeCurve::SetTransferFunction(UInt32 inTransferFunction) {
  struct Function {
    bool mIsApplying;
    Float32 mRaise;
    Float32 mRoot;
  };
  static constexpr Function kFunctions[] = {
      {false, 1, 1}, {true, 1, 3},  {true, 1, 2},  {true, 3, 4}, {true, 3, 2}, {true, 2, 1},
      {true, 3, 1},  {true, 4, 1},  {true, 5, 1},  {true, 6, 1}, {true, 7, 1}, {true, 8, 1},
      {true, 9, 1},  {true, 10, 1}, {true, 11, 1}, {true, 12, 1}};
  static_assert(std::size(kFunctions) == kAudioLevelControlTranferFunction12Over1 + 1);

  const Function& theFunction = kFunctions[inTransferFunction < std::size(kFunctions)
                                               ? inTransferFunction
                                               : kAudioLevelControlTranferFunction2Over1];
  mTransferFunction = inTransferFunction;
  mIsApplyingTransferFunction = theFunction.mIsApplying;
  mRaiseExponent = theFunction.mRaise;
  mRootExponent = theFunction.mRoot;
}

SInt32 CAVolumeCurve::GetMinimumRaw() const {
  return mCurveMap.empty() ? 0 : mCurveMap.begin()->first.mMinimum;
}

SInt32 CAVolumeCurve::GetMaximumRaw() const {
  return mCurveMap.empty() ? 0 : mCurveMap.rbegin()->first.mMaximum;
}

Float32 CAVolumeCurve::GetMinimumDB() const {
  return mCurveMap.empty() ? 0 : mCurveMap.begin()->second.mMinimum;
}

Float32 CAVolumeCurve::GetMaximumDB() const {
  return mCurveMap.empty() ? 0 : mCurveMap.rbegin()->second.mMaximum;
}

bool CAVolumeCurve::CheckForContinuity() const {
  SInt64 theRaw = GetMinimumRaw();
  Float32 theDB = GetMinimumDB();
  for (const auto& [theRawPoint, theDBPoint] : mCurveMap) {
    if (theRawPoint.mMinimum != theRaw || theDBPoint.mMinimum != theDB) return false;
    theRaw += GetWidth(theRawPoint);
    theDB += theDBPoint.mMaximum - theDBPoint.mMinimum;
  }
  return true;
}

Float32 CAVolumeCurve::ConvertRawToDB(SInt32 inRaw) const {
  const SInt32 theRaw = ClampRaw(inRaw, GetMinimumRaw(), GetMaximumRaw());
  SInt64 theRemaining = SInt64{theRaw} - GetMinimumRaw();
  Float32 theDB = GetMinimumDB();
  for (const auto& [theRawPoint, theDBPoint] : mCurveMap) {
    if (theRemaining <= 0) break;
    const SInt64 theSpan = GetWidth(theRawPoint);
    if (theSpan == 0) continue;
    const SInt64 theSteps = std::min(theRemaining, theSpan);
    theDB += static_cast<Float32>(theSteps) * (theDBPoint.mMaximum - theDBPoint.mMinimum) /
             static_cast<Float32>(theSpan);
    theRemaining -= theSteps;
  }
  return theDB;
}

SInt32 CAVolumeCurve::ConvertDBToRaw(Float32 inDB) const {
  const Float32 theDB = Clamp(inDB, GetMinimumDB(), GetMaximumDB());
  SInt64 theRaw = GetMinimumRaw();
  for (const auto& [theRawPoint, theDBPoint] : mCurveMap) {
    const SInt64 theSpan = GetWidth(theRawPoint);
    if (theDB > theDBPoint.mMaximum) {
      theRaw += theSpan;
      continue;
    }
    const Float32 theDBRange = theDBPoint.mMaximum - theDBPoint.mMinimum;
    // On a segment without width or height there is nothing to divide by: it starts where it ends.
    if (theSpan != 0 && theDBRange != 0) {
      theRaw +=
          RoundSteps((theDB - theDBPoint.mMinimum) / (theDBRange / static_cast<Float32>(theSpan)));
    }
    break;
  }
  return MakeRaw(theRaw);
}

bool CAVolumeCurve::UsesTransferFunction() const {
  return mIsApplyingTransferFunction && (GetMaximumDB() - GetMinimumDB()) > kMaximumLinearRangeDB;
}

Float32 CAVolumeCurve::ConvertRawToScalar(SInt32 inRaw) const {
  const SInt64 theWidth = SInt64{GetMaximumRaw()} - GetMinimumRaw();
  if (theWidth == 0) return 0;
  const SInt64 theSteps =
      SInt64{ClampRaw(inRaw, GetMinimumRaw(), GetMaximumRaw())} - GetMinimumRaw();
  const Float32 theScalar = static_cast<Float32>(theSteps) / static_cast<Float32>(theWidth);
  return UsesTransferFunction() ? std::pow(theScalar, mRaiseExponent / mRootExponent) : theScalar;
}

SInt32 CAVolumeCurve::ConvertScalarToRaw(Float32 inScalar) const {
  Float32 theScalar = Clamp(inScalar, 0.0F, 1.0F);
  if (UsesTransferFunction()) theScalar = std::pow(theScalar, mRootExponent / mRaiseExponent);
  const SInt64 theWidth = SInt64{GetMaximumRaw()} - GetMinimumRaw();
  return MakeRaw(GetMinimumRaw() + RoundSteps(theScalar * static_cast<Float32>(theWidth)));
}

Float32 CAVolumeCurve::ConvertDBToScalar(Float32 inDB) const {
  return ConvertRawToScalar(ConvertDBToRaw(inDB));
}

Float32 CAVolumeCurve::ConvertScalarToDB(Float32 inScalar) const {
  return ConvertRawToDB(ConvertScalarToRaw(inScalar));
}
