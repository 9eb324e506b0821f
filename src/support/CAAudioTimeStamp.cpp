#include "support/CAAudioTimeStamp.h"

namespace {

// -1, 0 or 1 by the first time that both stamps have; 2 if there is none or it is not a number.
template <class T>
int CompareValues(T inLeft, T inRight) {
  if (inLeft < inRight) return -1;
  if (inLeft > inRight) return 1;
  return inLeft == inRight ? 0 : 2;
}

int Compare(const AudioTimeStamp& inLeft, const AudioTimeStamp& inRight) {
  const UInt32 theFlags = inLeft.mFlags & inRight.mFlags;
  if (theFlags & kAudioTimeStampSampleTimeValid) {
    return CompareValues(inLeft.mSampleTime, inRight.mSampleTime);
  }
  if (theFlags & kAudioTimeStampHostTimeValid) {
    return CompareValues(inLeft.mHostTime, inRight.mHostTime);
  }
  if (theFlags & kAudioTimeStampWordClockTimeValid) {
    return CompareValues(inLeft.mWordClockTime, inRight.mWordClockTime);
  }
  return 2;
}

}  // namespace

bool CAAudioTimeStamp::IsLessThan(const AudioTimeStamp& inLeft, const AudioTimeStamp& inRight) {
  return Compare(inLeft, inRight) == -1;
}

bool CAAudioTimeStamp::IsEqual(const AudioTimeStamp& inLeft, const AudioTimeStamp& inRight) {
  return Compare(inLeft, inRight) == 0;
}
