// What runs on the I/O thread. The guard is held all the time but for the sleep and the
// notifications. From waking to sleeping nothing here allocates, blocks, logs or takes another
// lock than the telemetry's guard, for an event at a time while it captures.

#include <algorithm>

#include "device/HP_Device.h"
#include "device/HP_IOThread.h"
#include "support/CAHostTimeBase.h"
#include "telemetry/HP_IOCycleTelemetry.h"

namespace {

constexpr UInt32 kAllTimes = kAudioTimeStampSampleHostTimeValid | kAudioTimeStampRateScalarValid;

AudioTimeStamp ZeroTime(UInt32 inFlags) {
  AudioTimeStamp theTime = {};
  theTime.mFlags = inFlags;
  return theTime;
}

}  // namespace

struct HP_IOThread::Cycle {
  AudioTimeStamp mNow = ZeroTime(kAllTimes);
  AudioTimeStamp mWakeUpTime = ZeroTime(kAllTimes);
  Float64 mLastSize = 0.0;      // of the buffer in progress
  bool mWasWoken = false;       // the last pass slept
  bool mMustResync = false;     // the last PerformIO reported trouble
  bool mGuardIsLocked = false;  // what the last Lock answered
};

void* HP_IOThread::ThreadEntry(void* inIOThread) {
  static_cast<HP_IOThread*>(inIOThread)->WorkLoop();
  return nullptr;
}

void HP_IOThread::WorkLoop() {
  Cycle theCycle;
  try {
    BeginRun(theCycle);
    if (!HasBeenStopped()) {
      EnterSteadyState(theCycle);
      while (!HasBeenStopped()) RunPass(theCycle);
    }
    mWorkLoopPhase.store(kTeardownPhase, std::memory_order_release);
    GetTelemetry().IOCycleTeardownBegin(GetIOCycleNumber());
    mIOThread.ClearTimeConstraints();
    mDevice->StopIOCycleTimingServices();
  } catch (...) {
    // Whatever a client or the device throws ends the run and no more.
  }
  EndRun(theCycle);
}

void HP_IOThread::BeginRun(Cycle& ioCycle) {
  ioCycle.mGuardIsLocked = mIOGuard.Lock();
  mWorkLoopPhase.store(kInitializingPhase, std::memory_order_release);
  mIOCycleCounter.store(0, std::memory_order_relaxed);
  mOverloadCounter = 0;
  GetTelemetry().IOCycleInitializeBegin(GetIOCycleNumber());
  ++mNumberRunsBegun;
  mIOGuard.NotifyAll();
  mStopRequested.store(false, std::memory_order_relaxed);
  mIOGuard.Unlock();

  mDevice->StartIOCycleTimingServices();
  mDevice->IOEngineStarted();
  TellClients(kAudioDevicePropertyDeviceIsRunning);
  ioCycle.mGuardIsLocked = mIOGuard.Lock();
}

void HP_IOThread::EnterSteadyState(Cycle& ioCycle) {
  SetTimeConstraints();
  mDevice->EstablishIOCycleAnchorTime(mAnchorTime);
  mFrameCounter = 0.0;
  PositionChanged();
  mDevice->GetCurrentTime(ioCycle.mNow);
  mWorkLoopPhase.store(kRunningPhase, std::memory_order_release);
  ioCycle.mLastSize = mDevice->GetIOBufferFrameSize();
  GetTelemetry().IOCycleInitializeEnd(GetIOCycleNumber(), mAnchorTime);
  GetTelemetry().IOCycleWorkLoopBegin(GetIOCycleNumber(), ioCycle.mNow);
}

void HP_IOThread::RunPass(Cycle& ioCycle) {
  const Float64 theSize = mDevice->GetIOBufferFrameSize();
  ioCycle.mWakeUpTime = ZeroTime(kAllTimes);
  mDevice->GetCurrentTime(ioCycle.mNow);

  if (theSize != ioCycle.mLastSize && HasReachedFrameCounter(ioCycle.mNow)) {
    FinishBufferOfOldSize(ioCycle);
  }

  if (CalculateNextWakeUpTime(ioCycle.mNow, ioCycle.mLastSize, ioCycle.mWakeUpTime,
                              ioCycle.mWasWoken, ioCycle.mMustResync, ioCycle.mGuardIsLocked)) {
    SleepAndPerformIO(ioCycle, theSize);
  } else {
    mDevice->ClearAllCommands();
    mDevice->Do_StopAllIOProcs();
  }

  mDevice->ExecuteAllCommands();
}

// The buffer that was running when the size changed is due at once.
void HP_IOThread::FinishBufferOfOldSize(Cycle& ioCycle) {
  GetTelemetry().IOCycleWorkLoopEnd(GetIOCycleNumber(), ioCycle.mNow, ioCycle.mWakeUpTime);
  AdvanceCycleCounter();
  mFrameCounter += ioCycle.mLastSize;
  PositionChanged();
  GetTelemetry().IOCycleWorkLoopBegin(GetIOCycleNumber(), ioCycle.mNow);
  ioCycle.mMustResync = PerformIO(ioCycle.mNow, ioCycle.mLastSize);
  ioCycle.mWasWoken = false;
}

void HP_IOThread::SleepAndPerformIO(Cycle& ioCycle, Float64 inNextSize) {
  GetTelemetry().IOCycleWorkLoopEnd(GetIOCycleNumber(), ioCycle.mNow, ioCycle.mWakeUpTime);
  const UInt32 thePosition = mNumberPositions;
  const UInt64 theWakeUpNanos = CAHostTimeBase::ConvertToNanos(ioCycle.mWakeUpTime.mHostTime);
  // A stop that came while the guard was let go has notified already.
  const bool theTimeCame = !HasBeenStopped() && mIOGuard.WaitUntil(theWakeUpNanos);
  AdvanceCycleCounter();
  ioCycle.mWasWoken = true;
  if (HasBeenStopped()) return;

  mDevice->GetCurrentTime(ioCycle.mNow);
  const bool theWakeUpIsEarly =
      !theTimeCame && mNumberPositions == thePosition &&
      CAHostTimeBase::ConvertToNanos(ioCycle.mNow.mHostTime) < theWakeUpNanos;
  if (theWakeUpIsEarly || !HasReachedFrameCounter(ioCycle.mNow)) return;

  mFrameCounter += ioCycle.mLastSize;
  PositionChanged();
  ioCycle.mLastSize = inNextSize;
  GetTelemetry().IOCycleWorkLoopBegin(GetIOCycleNumber(), ioCycle.mNow);
  if (mDevice->UpdateIOCycleTimingServices()) FollowClock(ioCycle);
  ioCycle.mMustResync = PerformIO(ioCycle.mNow, ioCycle.mLastSize);
}

// The device's clock has shifted: the cycle starts from where it is now.
void HP_IOThread::FollowClock(Cycle& ioCycle) {
  AudioTimeStamp theAnchorTime = ZeroTime(kAllTimes);
  if (mDevice->EstablishIOCycleAnchorTime(theAnchorTime)) {
    Resynch(&theAnchorTime, false);
  } else {
    Resynch(nullptr, false);
  }
  mDevice->GetCurrentTime(ioCycle.mNow);
  GetTelemetry().Resynch(GetIOCycleNumber(), mAnchorTime);
}

void HP_IOThread::EndRun(const Cycle& inCycle) {
  try {
    mDevice->IOEngineStopped();
    if (inCycle.mGuardIsLocked) mIOGuard.Unlock();
    TellClients(kAudioDevicePropertyDeviceIsRunning);
  } catch (...) {
    // Those who wait for the end of the run must hear of it in any case.
  }
  mIOGuard.Lock();
  GetTelemetry().IOCycleTeardownEnd(GetIOCycleNumber());
  mWorkLoopPhase.store(kNotRunningPhase, std::memory_order_release);
  ++mNumberRunsEnded;
  mIOGuard.NotifyAll();
  mIOCycleCounter.store(0, std::memory_order_relaxed);
  mIOGuard.Unlock();
}

bool HP_IOThread::PerformIO(const AudioTimeStamp& inCurrentTime, Float64 inIOBufferFrameSize) {
  AudioTimeStamp theInputTime = ZeroTime(0);
  if (mDevice->HasInputStreams()) {
    AudioTimeStamp theSampleTime = GetFrameCounterTime();
    theSampleTime.mSampleTime -= mDevice->GetSafetyOffset(true);
    theSampleTime.mSampleTime -= inIOBufferFrameSize;
    theInputTime.mFlags = kAllTimes;
    mDevice->TranslateTime(theSampleTime, theInputTime);
  }

  AudioTimeStamp theOutputTime = ZeroTime(0);
  if (mDevice->HasOutputStreams()) {
    AudioTimeStamp theSampleTime = GetFrameCounterTime();
    theSampleTime.mSampleTime += mDevice->GetSafetyOffset(false);
    theSampleTime.mSampleTime += static_cast<Float64>(GetIOCycleUsage()) * inIOBufferFrameSize;
    theOutputTime.mFlags = kAllTimes;
    mDevice->TranslateTime(theSampleTime, theOutputTime);
  }

  return !mDevice->CallIOProcs(inCurrentTime, theInputTime, theOutputTime);
}

bool HP_IOThread::CalculateNextWakeUpTime(const AudioTimeStamp& inCurrentTime,
                                          Float64 inIOBufferFrameSize,
                                          AudioTimeStamp& outWakeUpTime, bool inCheckForOverload,
                                          bool inMustResync, bool& ioGuardIsLocked) {
  AudioTimeStamp theCurrentTime = inCurrentTime;
  bool theAnswer = true;
  UInt32 theNumberPasses = 0;
  for (;;) {
    ++theNumberPasses;
    outWakeUpTime = ZeroTime(kAllTimes);
    AudioTimeStamp theEndOfBuffer = GetFrameCounterTime();
    theEndOfBuffer.mSampleTime += inIOBufferFrameSize;
    mDevice->TranslateTime(theEndOfBuffer, outWakeUpTime);
    if (!inCheckForOverload && !inMustResync) break;

    AudioTimeStamp theOverloadTime = ZeroTime(kAllTimes);
    const bool theCycleIsOverloaded =
        IsOverloaded(theCurrentTime, inIOBufferFrameSize, theNumberPasses > 1, theOverloadTime);
    if (!inMustResync && !theCycleIsOverloaded) break;

    GetTelemetry().IOCycleWorkLoopOverloadBegin(GetIOCycleNumber(), theCurrentTime,
                                                theOverloadTime);
    theAnswer = RecoverFromOverload(theCurrentTime, ioGuardIsLocked);
    // From here on time alone decides.
    inMustResync = false;
    GetTelemetry().IOCycleWorkLoopOverloadEnd(GetIOCycleNumber(), mAnchorTime);
    if (!theAnswer) break;
  }
  mOverloadCounter = theNumberPasses == 1 ? 0 : mOverloadCounter + 1;
  return theAnswer;
}

bool HP_IOThread::IsOverloaded(const AudioTimeStamp& inCurrentTime, Float64 inIOBufferFrameSize,
                               bool inHasReAnchored, AudioTimeStamp& outOverloadTime) {
  const Float64 theMargin = std::max(0.0, static_cast<Float64>(GetIOCycleUsage()) - 0.0);
  AudioTimeStamp theSampleTime = GetFrameCounterTime();
  theSampleTime.mSampleTime += theMargin * inIOBufferFrameSize;
  mDevice->TranslateTime(theSampleTime, outOverloadTime);

  if (inCurrentTime.mHostTime < outOverloadTime.mHostTime) return false;
  // The new anchor lies within a frame whose start is the limit if no time is left to the client:
  // being at the limit is then as good as it gets.
  return !inHasReAnchored || (inCurrentTime.mHostTime > outOverloadTime.mHostTime &&
                              inCurrentTime.mSampleTime > outOverloadTime.mSampleTime);
}

bool HP_IOThread::RecoverFromOverload(AudioTimeStamp& ioCurrentTime, bool& ioGuardIsLocked) {
  if (ioGuardIsLocked) mIOGuard.Unlock();
  TellClients(kAudioDeviceProcessorOverload);
  ioGuardIsLocked = mIOGuard.Lock();

  ioCurrentTime.mSampleTime = 0.0;
  ioCurrentTime.mHostTime = 0;
  if (!mDevice->EstablishIOCycleAnchorTime(ioCurrentTime)) return false;
  Resynch(&ioCurrentTime, false);
  return true;
}

bool HP_IOThread::HasReachedFrameCounter(const AudioTimeStamp& inTime) const {
  return inTime.mSampleTime >= mAnchorTime.mSampleTime + mFrameCounter;
}

// The start of the buffer in progress, as a sample time alone.
AudioTimeStamp HP_IOThread::GetFrameCounterTime() const {
  AudioTimeStamp theTime = mAnchorTime;
  theTime.mFlags = kAudioTimeStampSampleTimeValid;
  theTime.mSampleTime += mFrameCounter;
  return theTime;
}

HP_IOCycleTelemetry& HP_IOThread::GetTelemetry() const {
  return *mDevice->GetIOCycleTelemetry();
}

void HP_IOThread::AdvanceCycleCounter() {
  mIOCycleCounter.store(GetIOCycleNumber() + 1, std::memory_order_relaxed);
}
