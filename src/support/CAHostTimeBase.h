#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <pthread.h>

// Purpose: the host clock and its conversions.
// Thread: any; RT safe after the first use.
// Ownership: none; the ratio is read once for the process.
// Units and range: host ticks and nanoseconds, both unsigned 64-bit; a conversion whose result does
//   not fit wraps.
// Failure: none.
class CAHostTimeBase {
 public:
  static UInt64 GetTheCurrentTime();
  static UInt64 GetCurrentTime() { return GetTheCurrentTime(); }
  static UInt64 GetCurrentTimeInNanos();
  static UInt64 ConvertToNanos(UInt64 inHostTime);
  static UInt64 ConvertFromNanos(UInt64 inNanos);
  // In ticks per second.
  static Float64 GetFrequency();

  // inValue times inNumerator over inDenominator, truncated, with nothing lost in between; 0 for a
  // denominator of 0.
  static UInt64 MultiplyByRatio(UInt64 inValue, UInt32 inNumerator, UInt32 inDenominator);

 private:
  static void Initialize();
  static void InitializeOnce();

  static pthread_once_t sIsInited;
  static UInt32 sToNanosNumerator;
  static UInt32 sToNanosDenominator;
  static Float64 sFrequency;
};
