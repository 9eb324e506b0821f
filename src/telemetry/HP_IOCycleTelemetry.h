#pragma once

#include <CoreAudio/AudioHardware.h>

#include "support/CACFString.h"
#include "support/CAGuard.h"
#include "telemetry/CAHALIOCycleRawTelemetryEvent.h"
#include "telemetry/HP_TelemetryServer.h"

class HP_Device;

// Purpose: records what a device's I/O cycle does, event by event, in a ring that a tool drains.
//   When the ring is full the oldest events are written over.
// Thread: recorders on the I/O thread and on those that change I/O state; with capture off each is
//   one test of a flag. RT safe: the ring stands when capture starts, and its guard is held for one
//   event, for the copy of one chunk, or to exchange the chunks' addresses, never for longer. The
//   virtual operations as in the base.
// Ownership: owned by its device, which is borrowed. Owns the ring, which is there while capturing
//   and goes at the latest with Teardown, whoever switched capture off.
// Units and range: 512 chunks of 256 events of 72 bytes.
// Failure: StartCapturing throws std::bad_alloc and then changes nothing. Recorders and readers do
//   nothing where there is no ring.
class HP_IOCycleTelemetry : public HP_TelemetryServer {
 public:
  using Event = CAHALIOCycleRawTelemetryEvent;

  static constexpr UInt32 kNumberChunks = 512;
  static constexpr UInt32 kEventsPerChunk = 256;

  explicit HP_IOCycleTelemetry(HP_Device* inDevice);
  ~HP_IOCycleTelemetry() override;

  // The port's name is made of the process and the device's UID; the given one is not used.
  void Initialize(CFStringRef inPortName) override;
  void Teardown() override;

  // While the engine runs, whole chunks; else also the one in progress. Null if there is nothing,
  // and once where the reader goes past the ring's end with the engine stopped.
  CFDataRef GetTelemetry() override;
  CFDataRef ClearTelemetry() override;
  void StartCapturing() override;
  void StopCapturing() override;

  void SaveTelemetryItem(UInt32 inKind, UInt32 inIOCycle, Float64 inFirst, Float64 inSecond,
                         Float64 inThird, Float64 inFourth, UInt64 inFirstWide, UInt64 inSecondWide,
                         UInt32 inError, UInt32 inFlags);

  // The recorders.
  void IOCycleInitializeBegin(UInt32 inIOCycle) {
    if (IsCapturing()) Save(Event::kIOCycleInitializeBegin, inIOCycle);
  }
  void IOCycleInitializeEnd(UInt32 inIOCycle, const AudioTimeStamp& inAnchorTime) {
    if (IsCapturing()) Save(Event::kIOCycleInitializeEnd, inIOCycle, inAnchorTime);
  }
  void IOCycleWorkLoopBegin(UInt32 inIOCycle, const AudioTimeStamp& inCurrentTime) {
    if (IsCapturing()) Save(Event::kIOCycleWorkLoopBegin, inIOCycle, inCurrentTime);
  }
  void IOCycleWorkLoopEnd(UInt32 inIOCycle, const AudioTimeStamp& inCurrentTime,
                          const AudioTimeStamp& inWakeUpTime) {
    if (IsCapturing()) Save(Event::kIOCycleWorkLoopEnd, inIOCycle, inCurrentTime, inWakeUpTime);
  }
  void Resynch(UInt32 inIOCycle, const AudioTimeStamp& inAnchorTime) {
    if (IsCapturing()) Save(Event::kResynch, inIOCycle, inAnchorTime);
  }
  void IOCycleWorkLoopOverloadBegin(UInt32 inIOCycle, const AudioTimeStamp& inCurrentTime,
                                    const AudioTimeStamp& inOverloadTime) {
    if (IsCapturing()) {
      Save(Event::kIOCycleWorkLoopOverloadBegin, inIOCycle, inCurrentTime, inOverloadTime);
    }
  }
  void IOCycleWorkLoopOverloadEnd(UInt32 inIOCycle, const AudioTimeStamp& inAnchorTime) {
    if (IsCapturing()) Save(Event::kIOCycleWorkLoopOverloadEnd, inIOCycle, inAnchorTime);
  }
  void IOCycleTeardownBegin(UInt32 inIOCycle) {
    if (IsCapturing()) Save(Event::kIOCycleTeardownBegin, inIOCycle);
  }
  void IOCycleTeardownEnd(UInt32 inIOCycle) {
    if (IsCapturing()) Save(Event::kIOCycleTeardownEnd, inIOCycle);
  }
  void IOCycleIOProcsBegin(UInt32 inIOCycle) {
    if (IsCapturing()) Save(Event::kIOCycleIOProcsBegin, inIOCycle);
  }
  void IOCycleIOProcsEnd(UInt32 inIOCycle) {
    if (IsCapturing()) Save(Event::kIOCycleIOProcsEnd, inIOCycle);
  }
  // Null for a block.
  void IOCycleIOProcCallBegin(UInt32 inIOCycle, AudioDeviceIOProc inIOProc) {
    if (IsCapturing()) Save(Event::kIOCycleIOProcCallBegin, inIOCycle, inIOProc);
  }
  void IOCycleIOProcCallEnd(UInt32 inIOCycle) {
    if (IsCapturing()) Save(Event::kIOCycleIOProcCallEnd, inIOCycle);
  }
  void InputDataPresent(UInt32 inIOCycle) {
    if (IsCapturing()) Save(Event::kInputDataPresent, inIOCycle);
  }
  void OutputDataPresent(UInt32 inIOCycle) {
    if (IsCapturing()) Save(Event::kOutputDataPresent, inIOCycle);
  }
  void IOBufferSizeChangeBegin(UInt32 inIOCycle, Float64 inFrameSize) {
    if (IsCapturing()) Save(Event::kIOBufferSizeChangeBegin, inIOCycle, inFrameSize);
  }
  void IOBufferSizeChangeEnd(UInt32 inIOCycle) {
    if (IsCapturing()) Save(Event::kIOBufferSizeChangeEnd, inIOCycle);
  }

 private:
  // Out of line, so that a recorder adds next to nothing to the code around it.
  void Save(UInt32 inKind, UInt32 inIOCycle);
  void Save(UInt32 inKind, UInt32 inIOCycle, const AudioTimeStamp& inTime);
  void Save(UInt32 inKind, UInt32 inIOCycle, const AudioTimeStamp& inFirstTime,
            const AudioTimeStamp& inSecondTime);
  void Save(UInt32 inKind, UInt32 inIOCycle, AudioDeviceIOProc inIOProc);
  void Save(UInt32 inKind, UInt32 inIOCycle, Float64 inFrameSize);

  UInt32 TakeEvents(Event* outEvents) CA_REQUIRES(mGuard);
  void ExchangeRing(Event* (&ioEventChunks)[kNumberChunks]);
  void FreeRing();

  HP_Device* mDevice;
  CAGuard mGuard;
  Event* mEventChunks[kNumberChunks] CA_GUARDED_BY(mGuard);
  UInt32 mWriteChunk CA_GUARDED_BY(mGuard);
  UInt32 mWriteIndex CA_GUARDED_BY(mGuard);
  UInt32 mReadChunk CA_GUARDED_BY(mGuard);
  CACFString mOwnPortName;
};
