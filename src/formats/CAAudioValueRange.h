#pragma once

#include <CoreAudio/CoreAudioTypes.h>

#include <vector>

// A closed interval of sample rates.
//
// Purpose: the tests and set operations that rate lists are made of.
// Thread: a plain value.
// Ownership: none.
// Units and range: frames per second, compared exactly; equal ends are a single rate.
// Failure: none; operations that may have no result say so by their answer.
class CAAudioValueRange : public AudioValueRange {
 public:
  CAAudioValueRange() noexcept : AudioValueRange() {}
  CAAudioValueRange(double inMinimum, double inMaximum) noexcept
      : AudioValueRange{inMinimum, inMaximum} {}
  CAAudioValueRange(const AudioValueRange& inRange) noexcept : AudioValueRange(inRange) {}

  static bool ContainsValue(const AudioValueRange& inX, double inValue) noexcept {
    return inValue >= inX.mMinimum && inValue <= inX.mMaximum;
  }
  static bool IsStrictlyLessThan(const AudioValueRange& inX, const AudioValueRange& inY) noexcept {
    return inX.mMaximum < inY.mMinimum;
  }
  static bool IsStrictlyGreaterThan(const AudioValueRange& inX,
                                    const AudioValueRange& inY) noexcept {
    return inX.mMinimum > inY.mMaximum;
  }
  // Equal ranges contain each other.
  static bool IsStrictlyContainedBy(const AudioValueRange& inX,
                                    const AudioValueRange& inY) noexcept {
    return inX.mMinimum >= inY.mMinimum && inX.mMaximum <= inY.mMaximum;
  }
  static bool OverlapsLow(const AudioValueRange& inX, const AudioValueRange& inY) noexcept {
    return inX.mMinimum < inY.mMinimum && inX.mMaximum >= inY.mMinimum &&
           inX.mMaximum <= inY.mMaximum;
  }
  static bool OverlapsHigh(const AudioValueRange& inX, const AudioValueRange& inY) noexcept {
    return inX.mMinimum >= inY.mMinimum && inX.mMinimum <= inY.mMaximum &&
           inX.mMaximum > inY.mMaximum;
  }

  // The order of rate lists.
  struct LessThan {
    bool operator()(const AudioValueRange& inX, const AudioValueRange& inY) const noexcept {
      return inX.mMinimum < inY.mMinimum;
    }
  };

  static double BoundValue(const AudioValueRange& inX, double inValue) noexcept;
  // The rate that people would most likely want of a range.
  static double PickCommonSampleRate(const AudioValueRange& inX) noexcept;

  // True if the two share a rate; outRange is zero otherwise.
  static bool Intersection(const AudioValueRange& inX, const AudioValueRange& inY,
                           AudioValueRange& outRange) noexcept;
  // True if the two are disjoint, so that there is no union and outRange is zero.
  static bool Union(const AudioValueRange& inX, const AudioValueRange& inY,
                    AudioValueRange& outRange) noexcept;
};

using CAAudioValueRangeList = std::vector<CAAudioValueRange>;

// The lists given here must be rising and disjoint, and must not be the list that is written.

// Appends to outList what inList becomes with inRange in it, touching ranges merged.
void AFL_ComputeUnion(const AudioValueRange& inRange, const CAAudioValueRangeList& inList,
                      CAAudioValueRangeList& outList);
// The same, into an emptied list.
void CAAudioValueRange_ComputeUnion(const AudioValueRange& inRange,
                                    const CAAudioValueRangeList& inList,
                                    CAAudioValueRangeList& outList);

// Appends to outList what each range of inList shares with inRange.
void AFL_ComputeIntersection(const AudioValueRange& inRange, const CAAudioValueRangeList& inList,
                             CAAudioValueRangeList& outList);
// The same for several ranges in turn, into an emptied list.
void CAAudioValueRange_ComputeIntersection(UInt32 inNumberRanges, const AudioValueRange* inRanges,
                                           const CAAudioValueRangeList& inList,
                                           CAAudioValueRangeList& outList);
