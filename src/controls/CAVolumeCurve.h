#pragma once

#include <CoreAudio/CoreAudioTypes.h>

#include <map>

// A run of raw values. Ranges are ordered by where they start.
struct CARawPoint {
  SInt32 mMinimum = 0;
  SInt32 mMaximum = 0;

  // Ranges that only touch do not overlap.
  static bool Overlap(const CARawPoint& inLeft, const CARawPoint& inRight) noexcept {
    return inLeft.mMinimum < inRight.mMaximum && inLeft.mMaximum > inRight.mMinimum;
  }
};

inline bool operator<(const CARawPoint& inLeft, const CARawPoint& inRight) noexcept {
  return inLeft.mMinimum < inRight.mMinimum;
}

inline bool operator>=(const CARawPoint& inLeft, const CARawPoint& inRight) noexcept {
  return !(inLeft < inRight);
}

struct CADBPoint {
  Float32 mMinimum = 0;
  Float32 mMaximum = 0;
};

// Purpose: relates the three views of a level: the raw value as hardware has it, decibels, and the
//   scalar that a user interface shows. Raw and decibels by a table of straight segments, raw and
//   scalar by a power of the share of the raw range.
// Thread: one at a time; who owns a curve guards it.
// Ownership: a value.
// Units and range: raw values are whole numbers, scalars go from 0 to 1. Every input of a
//   conversion is clamped to the curve; what is not a number counts as the minimum. The power is
//   applied only where the curve spans more than 30 dB.
// Failure: none. A range that cannot be added is left out without a word. Conversions mean nothing
//   before a range was added; they give 0.
class CAVolumeCurve {
 public:
  CAVolumeCurve();
  virtual ~CAVolumeCurve();
  CAVolumeCurve(const CAVolumeCurve&) = default;
  CAVolumeCurve& operator=(const CAVolumeCurve&) = default;

  // The transfer function stays.
  void ResetRange();
  // Compares with the segments only up to the first that does not start above the new range.
  void AddRange(SInt32 inMinimumRaw, SInt32 inMaximumRaw, Float32 inMinimumDB, Float32 inMaximumDB);

  // One of AudioLevelControlTransferFunction; a kind that is not known acts as the square.
  void SetTransferFunction(UInt32 inTransferFunction);
  UInt32 GetTransferFunction() const noexcept { return mTransferFunction; }

  // 0 where there is no range.
  SInt32 GetMinimumRaw() const;
  SInt32 GetMaximumRaw() const;
  Float32 GetMinimumDB() const;
  Float32 GetMaximumDB() const;

  // Whether each segment starts where the ones before it end, in both directions.
  bool CheckForContinuity() const;

  // These count inside segments only: a gap between two of them is closed up.
  Float32 ConvertRawToDB(SInt32 inRaw) const;
  SInt32 ConvertDBToRaw(Float32 inDB) const;
  Float32 ConvertRawToScalar(SInt32 inRaw) const;
  SInt32 ConvertScalarToRaw(Float32 inScalar) const;
  // Through the raw value, so in its steps.
  Float32 ConvertDBToScalar(Float32 inDB) const;
  Float32 ConvertScalarToDB(Float32 inScalar) const;

 private:
  using CurveMap = std::map<CARawPoint, CADBPoint>;

  bool UsesTransferFunction() const;

  CurveMap mCurveMap;
  bool mIsApplyingTransferFunction;
  UInt32 mTransferFunction;
  Float32 mRaiseExponent;
  Float32 mRootExponent;
};
