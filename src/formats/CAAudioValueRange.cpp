#include "formats/CAAudioValueRange.h"

#include <algorithm>

double CAAudioValueRange::BoundValue(const AudioValueRange& inX, double inValue) noexcept {
  if (inValue <= inX.mMinimum) return inX.mMinimum;
  if (inValue >= inX.mMaximum) return inX.mMaximum;
  return inValue;
}

double CAAudioValueRange::PickCommonSampleRate(const AudioValueRange& inX) noexcept {
  // The likeliest first, which is not by size.
  static constexpr double kCommonSampleRates[] = {44100.0, 48000.0, 96000.0, 88200.0,
                                                  64000.0, 32000.0, 24000.0, 22050.0,
                                                  16000.0, 12000.0, 11025.0, 8000.0};
  for (const double theRate : kCommonSampleRates) {
    if (ContainsValue(inX, theRate)) return theRate;
  }
  return inX.mMaximum;
}

bool CAAudioValueRange::Intersection(const AudioValueRange& inX, const AudioValueRange& inY,
                                     AudioValueRange& outRange) noexcept {
  const bool hasIntersection = !IsStrictlyLessThan(inX, inY) && !IsStrictlyLessThan(inY, inX);
  outRange = hasIntersection ? AudioValueRange{std::max(inX.mMinimum, inY.mMinimum),
                                               std::min(inX.mMaximum, inY.mMaximum)}
                             : AudioValueRange();
  return hasIntersection;
}

bool CAAudioValueRange::Union(const AudioValueRange& inX, const AudioValueRange& inY,
                              AudioValueRange& outRange) noexcept {
  const bool isDisjoint = IsStrictlyLessThan(inX, inY) || IsStrictlyLessThan(inY, inX);
  outRange = isDisjoint ? AudioValueRange()
                        : AudioValueRange{std::min(inX.mMinimum, inY.mMinimum),
                                          std::max(inX.mMaximum, inY.mMaximum)};
  return isDisjoint;
}

void AFL_ComputeUnion(const AudioValueRange& inRange, const CAAudioValueRangeList& inList,
                      CAAudioValueRangeList& outList) {
  auto theIterator = inList.begin();
  const auto theEnd = inList.end();

  for (; theIterator != theEnd && CAAudioValueRange::IsStrictlyLessThan(*theIterator, inRange);
       ++theIterator) {
    outList.push_back(*theIterator);
  }

  CAAudioValueRange theMerged(inRange);
  if (theIterator != theEnd && !CAAudioValueRange::IsStrictlyGreaterThan(*theIterator, inRange)) {
    const auto theFirstTouching = theIterator;
    auto theLastTouching = theIterator;
    for (++theIterator;
         theIterator != theEnd && !CAAudioValueRange::IsStrictlyGreaterThan(*theIterator, inRange);
         ++theIterator) {
      theLastTouching = theIterator;
    }
    theMerged.mMinimum = std::min(inRange.mMinimum, theFirstTouching->mMinimum);
    theMerged.mMaximum = std::max(theLastTouching->mMaximum, inRange.mMaximum);
  }
  outList.push_back(theMerged);

  outList.insert(outList.end(), theIterator, theEnd);
}

void CAAudioValueRange_ComputeUnion(const AudioValueRange& inRange,
                                    const CAAudioValueRangeList& inList,
                                    CAAudioValueRangeList& outList) {
  outList.clear();
  AFL_ComputeUnion(inRange, inList, outList);
}

void AFL_ComputeIntersection(const AudioValueRange& inRange, const CAAudioValueRangeList& inList,
                             CAAudioValueRangeList& outList) {
  for (const CAAudioValueRange& theItem : inList) {
    CAAudioValueRange theShared;
    if (CAAudioValueRange::Intersection(inRange, theItem, theShared)) outList.push_back(theShared);
  }
}

void CAAudioValueRange_ComputeIntersection(UInt32 inNumberRanges, const AudioValueRange* inRanges,
                                           const CAAudioValueRangeList& inList,
                                           CAAudioValueRangeList& outList) {
  outList.clear();
  for (UInt32 theIndex = 0; theIndex < inNumberRanges; ++theIndex) {
    AFL_ComputeIntersection(inRanges[theIndex], inList, outList);
  }
}
