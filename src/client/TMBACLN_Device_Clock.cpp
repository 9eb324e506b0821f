// The device's clock: one anchor on the host clock and the nominal sample rate.

#include <cmath>
#include <limits>

#include "client/TMBACLN_Device.h"
#include "device/HP_IOProcList.h"
#include "device/HP_IOThread.h"
#include "support/CAAudioTimeStamp.h"
#include "support/CAException.h"
#include "support/CAHostTimeBase.h"

namespace {

constexpr UInt32 kSampleTimeValid = kAudioTimeStampSampleTimeValid;
constexpr UInt32 kHostTimeValid = kAudioTimeStampHostTimeValid;
constexpr UInt32 kRateScalarValid = kAudioTimeStampRateScalarValid;

// A negative value wraps; one that no 64-bit integer holds gives the nearest that is held, and what
// is no number gives 0.
UInt64 ToUnsigned64(Float64 inValue) {
  if (std::isnan(inValue)) return 0;
  if (inValue >= 0x1p64) return std::numeric_limits<UInt64>::max();
  if (inValue >= 0.0) return static_cast<UInt64>(inValue);
  if (inValue <= -0x1p63) return UInt64{1} << 63;
  return static_cast<UInt64>(static_cast<SInt64>(inValue));
}

}  // namespace

void TMBACLN_Device::StartIOCycleTimingServices() {
  mAnchorHostTime.store(CAHostTimeBase::GetCurrentTime(), std::memory_order_relaxed);
}

// Nothing to update; the answer has the I/O thread take a new anchor in each cycle, so that a late
// wake-up is not carried on.
bool TMBACLN_Device::UpdateIOCycleTimingServices() {
  return true;
}

void TMBACLN_Device::StopIOCycleTimingServices() {
  mAnchorHostTime.store(0, std::memory_order_relaxed);
}

Float64 TMBACLN_Device::GetCurrentNominalSampleRate() const {
  return HP_Device::GetCurrentNominalSampleRate();
}

Float64 TMBACLN_Device::GetCurrentActualSampleRate() const {
  return HP_Device::GetCurrentNominalSampleRate();
}

Float64 TMBACLN_Device::GetHostTicksPerFrame() const {
  return CAHostTimeBase::GetFrequency() / GetCurrentNominalSampleRate();
}

Float64 TMBACLN_Device::HostTimeToSampleTime(UInt64 inHostTime, Float64 inHostTicksPerFrame) const {
  const UInt64 anchor = mAnchorHostTime.load(std::memory_order_relaxed);
  const Float64 difference = inHostTime >= anchor ? static_cast<Float64>(inHostTime - anchor)
                                                  : -static_cast<Float64>(anchor - inHostTime);
  return std::floor(difference / inHostTicksPerFrame);
}

void TMBACLN_Device::GetCurrentTime(AudioTimeStamp& outTime) {
  if (!IsIOEngineRunning()) throw CAException(kAudioHardwareNotRunningError);
  const Float64 hostTicksPerFrame = GetHostTicksPerFrame();
  outTime = CAAudioTimeStamp::kZero;
  outTime.mHostTime = CAHostTimeBase::GetTheCurrentTime();
  outTime.mSampleTime = HostTimeToSampleTime(outTime.mHostTime, hostTicksPerFrame);
  outTime.mRateScalar = 1.0;
  outTime.mFlags = kSampleTimeValid | kHostTimeValid | kRateScalarValid;
}

// Reading the clock touches nothing that the I/O thread changes.
void TMBACLN_Device::SafeGetCurrentTime(AudioTimeStamp& outTime) {
  GetCurrentTime(outTime);
}

void TMBACLN_Device::TranslateTime(const AudioTimeStamp& inTime, AudioTimeStamp& outTime) {
  if ((inTime.mFlags & (kSampleTimeValid | kHostTimeValid)) == 0) {
    throw CAException(kAudioHardwareIllegalOperationError);
  }
  if (!IsIOEngineRunning()) throw CAException(kAudioHardwareNotRunningError);
  const Float64 hostTicksPerFrame = GetHostTicksPerFrame();
  if ((outTime.mFlags & kSampleTimeValid) != 0) {
    if ((inTime.mFlags & kSampleTimeValid) != 0) {
      outTime.mSampleTime = inTime.mSampleTime;
    } else if ((inTime.mFlags & kHostTimeValid) != 0) {
      outTime.mSampleTime = HostTimeToSampleTime(inTime.mHostTime, hostTicksPerFrame);
    } else {
      outTime.mSampleTime = 0.0;
    }
  }
  if ((outTime.mFlags & kHostTimeValid) != 0) {
    if ((inTime.mFlags & kHostTimeValid) != 0) {
      outTime.mHostTime = inTime.mHostTime;
    } else if ((inTime.mFlags & kSampleTimeValid) != 0) {
      const Float64 ticks = std::floor(inTime.mSampleTime * hostTicksPerFrame);
      outTime.mHostTime = ToUnsigned64(ticks) + mAnchorHostTime.load(std::memory_order_relaxed);
      // A time to come stays one: the I/O thread waits for it.
      if (ticks >= 0x1p64) outTime.mHostTime = std::numeric_limits<UInt64>::max();
    } else {
      outTime.mHostTime = 0;
    }
  }
  if ((outTime.mFlags & kRateScalarValid) != 0) outTime.mRateScalar = 1.0;
}

void TMBACLN_Device::GetNearestStartTime(AudioTimeStamp& ioRequestedStartTime, UInt32 inFlags) {
  if (!IsIOEngineRunning()) throw CAException(kAudioHardwareNotRunningError);
  constexpr UInt32 kDontConsultAnyone =
      kAudioDeviceStartTimeDontConsultDeviceFlag | kAudioDeviceStartTimeDontConsultHALFlag;
  if ((inFlags & kDontConsultAnyone) == kDontConsultAnyone) {
    throw CAException(kAudioHardwareNotRunningError);
  }
  const bool isInput = (inFlags & kAudioDeviceStartTimeIsInputFlag) != 0;
  const UInt32 frameSize = GetIOBufferFrameSize();
  const UInt32 offset = GetSafetyOffset(isInput);

  // What the caller did not ask for stays as it gave it.
  AudioTimeStamp requested = ioRequestedStartTime;
  requested.mFlags |= kSampleTimeValid | kHostTimeValid;
  TranslateTime(ioRequestedStartTime, requested);
  AudioTimeStamp start = requested;

  if ((inFlags & kAudioDeviceStartTimeDontConsultHALFlag) == 0) {
    start.mFlags = kSampleTimeValid;
    // From the client's view to the engine's, and back.
    const Float64 size = frameSize;
    if (isInput) {
      start.mSampleTime += size;
      start.mSampleTime += offset;
    } else {
      start.mSampleTime -= size;
      start.mSampleTime -= offset;
    }
    MoveStartPastEngine(start, frameSize, offset);
    if (isInput) {
      start.mSampleTime -= size;
      start.mSampleTime -= offset;
    } else {
      start.mSampleTime += size;
      start.mSampleTime += offset;
    }
  }

  // Written so that a time that is no number counts as different.
  if (!(start.mSampleTime == requested.mSampleTime)) TranslateTime(start, requested);
  ioRequestedStartTime = requested;
}

// No start comes earlier than two buffers ahead of the engine, and with procedures running each
// lands on the engine's buffer grid.
void TMBACLN_Device::MoveStartPastEngine(AudioTimeStamp& ioStart, UInt32 inFrameSize,
                                         UInt32 inOffset) {
  const Float64 size = inFrameSize;
  AudioTimeStamp now = CAAudioTimeStamp::kZero;
  if (GetIOProcList()->IsOnlyNULLEnabled()) {
    GetCurrentTime(now);
    now.mSampleTime += inOffset;
    now.mSampleTime += 2.0 * size;
    now.mFlags = kSampleTimeValid;
    if (now.mSampleTime > ioStart.mSampleTime) ioStart = now;
  } else if (GetIOProcList()->IsAnythingEnabled()) {
    mIOThread->GetCurrentPosition(now);
    now.mSampleTime += 2.0 * size;
    now.mFlags = kSampleTimeValid;
    if (now.mSampleTime > ioStart.mSampleTime) ioStart = now;
    if (ioStart.mSampleTime > now.mSampleTime && inFrameSize != 0) {
      const UInt32 frames =
          static_cast<UInt32>(ToUnsigned64(ioStart.mSampleTime - now.mSampleTime));
      const UInt32 buffers = frames / inFrameSize + 2;
      ioStart.mSampleTime = now.mSampleTime + static_cast<Float64>(buffers * inFrameSize);
    }
  }
}
