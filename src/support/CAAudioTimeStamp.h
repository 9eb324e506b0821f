#pragma once

#include <CoreAudio/CoreAudioTypes.h>

// Purpose: helpers for the platform's AudioTimeStamp.
// Thread: any, RT safe.
// Ownership: none.
// Units and range: sample times in frames, host times in ticks.
// Failure: none.
struct CAAudioTimeStamp {
  static constexpr AudioTimeStamp kZero{};

  static bool HasSampleTime(const AudioTimeStamp& inTime) {
    return (inTime.mFlags & kAudioTimeStampSampleTimeValid) != 0;
  }
  static bool HasHostTime(const AudioTimeStamp& inTime) {
    return (inTime.mFlags & kAudioTimeStampHostTimeValid) != 0;
  }

  // By the first of sample time, host time and word clock time that both have; stamps that share
  // none are neither less nor equal.
  static bool IsLessThan(const AudioTimeStamp& inLeft, const AudioTimeStamp& inRight);
  static bool IsEqual(const AudioTimeStamp& inLeft, const AudioTimeStamp& inRight);
};
