#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <cstddef>

// Purpose: one event of an I/O cycle. It leaves the process as it stands here, in host byte order,
//   so the layout is a wire format.
// Thread: none.
// Ownership: none.
// Units and range: mTime and, in most kinds, the wide values in host ticks; the cycle number wraps
//   after 2^32. mFlags tells which values are meant; the others are 0.
// Failure: none.
struct CAHALIOCycleRawTelemetryEvent {
  enum : UInt32 {
    kIOCycleInitializeBegin = 'inib',
    kIOCycleInitializeEnd = 'inie',
    kIOCycleWorkLoopBegin = 'wrkb',
    kIOCycleWorkLoopEnd = 'wrke',
    kResynch = 'sync',
    kIOCycleWorkLoopOverloadBegin = 'ovrb',
    kIOCycleWorkLoopOverloadEnd = 'ovre',
    kIOCycleTeardownBegin = 'trdb',
    kIOCycleTeardownEnd = 'trde',
    kIOCycleIOProcsBegin = 'iopb',
    kIOCycleIOProcsEnd = 'iope',
    kIOCycleIOProcCallBegin = 'iiob',
    kIOCycleIOProcCallEnd = 'iioe',
    kInputDataPresent = 'inpt',
    kOutputDataPresent = 'outp',
    kIOBufferSizeChangeBegin = 'bufb',
    kIOBufferSizeChangeEnd = 'bufe'
  };
  enum : UInt32 {
    kNoValues = 0,
    kThirdValue = 0x04,
    kFirstWideValue = 0x10,
    kOneTime = 0x15,  // rate scalar first, sample time third, host time first wide
    kTwoTimes = 0x3F  // the second time's in the second, fourth and second wide value
  };

  UInt64 mTime;  // when it was recorded
  UInt32 mKind;
  UInt32 mIOCycle;
  Float64 mValues[4];
  UInt64 mWideValues[2];
  UInt32 mError;
  UInt32 mFlags;
};

static_assert(sizeof(CAHALIOCycleRawTelemetryEvent) == 72);
static_assert(offsetof(CAHALIOCycleRawTelemetryEvent, mTime) == 0);
static_assert(offsetof(CAHALIOCycleRawTelemetryEvent, mKind) == 8);
static_assert(offsetof(CAHALIOCycleRawTelemetryEvent, mIOCycle) == 12);
static_assert(offsetof(CAHALIOCycleRawTelemetryEvent, mValues) == 16);
static_assert(offsetof(CAHALIOCycleRawTelemetryEvent, mWideValues) == 48);
static_assert(offsetof(CAHALIOCycleRawTelemetryEvent, mError) == 64);
static_assert(offsetof(CAHALIOCycleRawTelemetryEvent, mFlags) == 68);
