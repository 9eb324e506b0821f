#pragma once

#include <CoreFoundation/CFBase.h>

// The host clock, in whose ticks AudioTimeStamp::mHostTime counts.

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

UInt64 AudioGetCurrentHostTime(void);
// Ticks in a second.
Float64 AudioGetHostClockFrequency(void);
// The fewest ticks by which two readings can differ.
UInt32 AudioGetHostClockMinimumTimeDelta(void);
UInt64 AudioConvertHostTimeToNanos(UInt64 inHostTime);
UInt64 AudioConvertNanosToHostTime(UInt64 inNanos);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
