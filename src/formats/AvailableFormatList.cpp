#include "formats/AvailableFormatList.h"

#include <algorithm>

namespace {

using AvailableFormat = HP_FormatList::AvailableFormat;
using AvailableFormatList = HP_FormatList::AvailableFormatList;

// Puts a range among those of an entry, highest first. A range that bridges two old ones extends
// the first that it meets; they are not joined.
void MergeRange(CAAudioValueRangeList& ioRanges, const AudioValueRange& inNew) {
  for (auto theOld = ioRanges.begin(); theOld != ioRanges.end(); ++theOld) {
    if (CAAudioValueRange::IsStrictlyLessThan(inNew, *theOld)) continue;
    if (CAAudioValueRange::OverlapsLow(inNew, *theOld)) {
      theOld->mMinimum = inNew.mMinimum;
    } else if (CAAudioValueRange::IsStrictlyContainedBy(inNew, *theOld)) {
      // It is there.
    } else if (CAAudioValueRange::OverlapsHigh(inNew, *theOld)) {
      theOld->mMaximum = inNew.mMaximum;
    } else {
      // Above the old range, or around it.
      ioRanges.insert(theOld, CAAudioValueRange(inNew));
    }
    return;
  }
  ioRanges.push_back(CAAudioValueRange(inNew));
}

bool RangesContain(const CAAudioValueRangeList& inRanges, double inSampleRate) {
  return std::any_of(inRanges.begin(), inRanges.end(), [=](const CAAudioValueRange& inRange) {
    return CAAudioValueRange::ContainsValue(inRange, inSampleRate);
  });
}

CAStreamBasicDescription WithoutSampleRate(const AudioStreamBasicDescription& inFormat) {
  CAStreamBasicDescription theFormat(inFormat);
  theFormat.mSampleRate = 0.0;
  return theFormat;
}

// The first entry that equals a format, or null.
const AvailableFormat* FindEntry(const AvailableFormatList& inList,
                                 const AudioStreamBasicDescription& inFormat) {
  const auto theEntry =
      std::find_if(inList.begin(), inList.end(),
                   [&](const AvailableFormat& inEntry) { return inEntry.mFormat == inFormat; });
  return theEntry == inList.end() ? nullptr : &*theEntry;
}

}  // namespace

void AFL_AddFormat(AvailableFormatList& ioList, const AudioStreamRangedDescription& inFormat) {
  const CAStreamBasicDescription theFormat = WithoutSampleRate(inFormat.mFormat);
  const auto theEntry =
      std::find_if(ioList.begin(), ioList.end(),
                   [&](const AvailableFormat& inEntry) { return !(inEntry.mFormat < theFormat); });
  if (theEntry != ioList.end() && theEntry->mFormat == theFormat) {
    MergeRange(theEntry->mSampleRateRanges, inFormat.mSampleRateRange);
  } else {
    ioList.insert(theEntry, AvailableFormat(theFormat, inFormat.mSampleRateRange));
  }
}

UInt32 AFL_GetNumberFormats(const AvailableFormatList& inList) {
  size_t theCount = 0;
  for (const AvailableFormat& theEntry : inList) theCount += theEntry.mSampleRateRanges.size();
  return static_cast<UInt32>(theCount);
}

void AFL_GetFormatByIndex(const AvailableFormatList& inList, UInt32 inIndex,
                          AudioStreamRangedDescription& outFormat) {
  size_t theIndex = inIndex;
  for (const AvailableFormat& theEntry : inList) {
    if (theIndex < theEntry.mSampleRateRanges.size()) {
      const CAAudioValueRange& theRange = theEntry.mSampleRateRanges[theIndex];
      outFormat.mFormat = theEntry.mFormat;
      outFormat.mSampleRateRange = theRange;
      if (theRange.mMinimum == theRange.mMaximum) {
        outFormat.mFormat.mSampleRate = theRange.mMinimum;
      }
      return;
    }
    theIndex -= theEntry.mSampleRateRanges.size();
  }
}

bool AFL_SupportsFormat(const AvailableFormatList& inList,
                        const AudioStreamBasicDescription& inFormat) {
  const double theRate = inFormat.mSampleRate;
  const CAStreamBasicDescription theFormat = WithoutSampleRate(inFormat);

  if (theFormat.IsEqual(CAStreamBasicDescription::sEmpty, false)) {
    return theRate == 0.0 ||
           std::any_of(inList.begin(), inList.end(), [=](const AvailableFormat& inEntry) {
             return RangesContain(inEntry.mSampleRateRanges, theRate);
           });
  }
  const AvailableFormat* const theEntry = FindEntry(inList, theFormat);
  if (theEntry == nullptr) return false;
  return theRate == 0.0 || RangesContain(theEntry->mSampleRateRanges, theRate);
}

bool AFL_FindSampleFormat(const AvailableFormatList& inList,
                          const AudioStreamBasicDescription& inFormat,
                          AudioStreamBasicDescription& outFormat) {
  const AvailableFormat* const theEntry = FindEntry(inList, inFormat);
  if (theEntry == nullptr) return false;
  outFormat = theEntry->mFormat;
  return true;
}

void AFL_BestMatchForFormat(const AvailableFormatList& inList,
                            const AudioStreamBasicDescription& inCurrentFormat,
                            AudioStreamBasicDescription& ioFormat) {
  if (inList.empty()) return;

  // Copied, since the caller may give one format for both.
  double theRate = ioFormat.mSampleRate;
  const double theCurrentRate = inCurrentFormat.mSampleRate;
  const AvailableFormat* const theEntry = FindEntry(inList, WithoutSampleRate(ioFormat));

  const AvailableFormat& theMatch = theEntry != nullptr ? *theEntry : inList.front();
  ioFormat = theMatch.mFormat;
  if (theEntry != nullptr) {
    if (theRate == 0.0) theRate = theCurrentRate;
    if (RangesContain(theMatch.mSampleRateRanges, theRate)) {
      ioFormat.mSampleRate = theRate;
      return;
    }
  }
  ioFormat.mSampleRate =
      CAAudioValueRange::PickCommonSampleRate(theMatch.mSampleRateRanges.front());
}
