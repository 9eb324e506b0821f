#include "device/HP_IOThread.h"

#include <chrono>
#include <cmath>
#include <cstdio>
#include <thread>

#include "device/HP_Device.h"
#include "objects/CAPropertyAddress.h"
#include "support/CAException.h"

namespace {

constexpr UInt32 kThreadPriority = 63;
constexpr UInt32 kStartAttempts = 4;
constexpr UInt64 kStartAttemptNanos = 100000000;
constexpr std::chrono::microseconds kPollInterval(20);
constexpr UInt32 kPollsForOldThread = 100;

}  // namespace

HP_IOThread::HP_IOThread(HP_Device* inDevice)
    : mDevice(inDevice),
      mIOThread(ThreadEntry, this, kThreadPriority, false, false, nullptr),
      mIOGuard("IOGuard"),
      mIOCycleUsage(1.0f),
      mAnchorTime(),
      mFrameCounter(0.0),
      mIOCycleCounter(0),
      mOverloadCounter(0),
      mWorkLoopPhase(kNotRunningPhase),
      mStopRequested(false),
      mNumberRunsBegun(0),
      mNumberRunsEnded(0),
      mNumberPositions(0) {
  char theName[64];
  std::snprintf(theName, sizeof(theName), "com.apple.audio.hal.io.%d-%s",
                static_cast<int>(mDevice->GetObjectID()), mDevice->GetDebugDeviceName());
  mIOThread.SetName(theName);
}

HP_IOThread::~HP_IOThread() {
  WaitForThreadToBeGone();
}

void HP_IOThread::WaitForThreadToBeGone() {
  // The thread uses this object for some instants after its last notification.
  while (mIOThread.IsRunning() && !IsCurrentThread()) {
    {
      CAMutex::Locker theLocker(mIOGuard);
      Stop();
    }
    std::this_thread::sleep_for(kPollInterval);
  }
}

void HP_IOThread::Start() {
  for (;;) {
    const UInt32 thePhase = GetWorkLoopPhase();
    if (thePhase == kInitializingPhase || thePhase == kRunningPhase) return;
    if (thePhase == kNotRunningPhase) break;
    if (IsCurrentThread()) throw CAException(kAudioHardwareIllegalOperationError);
    mIOGuard.Wait();
  }

  mAnchorTime = AudioTimeStamp();
  mAnchorTime.mFlags = kAudioTimeStampSampleHostTimeValid | kAudioTimeStampRateScalarValid;
  PositionChanged();
  mStopRequested.store(false, std::memory_order_relaxed);

  // The thread of the last run goes an instant after its end, and a new one cannot come up before;
  // without this look the first attempt would be spent on it.
  for (UInt32 i = 0; i < kPollsForOldThread && mIOThread.IsRunning(); ++i) {
    std::this_thread::sleep_for(kPollInterval);
  }

  const UInt32 theRunsBegun = mNumberRunsBegun;
  for (UInt32 i = 0; i < kStartAttempts && mNumberRunsBegun == theRunsBegun; ++i) {
    mIOThread.Start();
    mIOGuard.WaitFor(kStartAttemptNanos);
  }
  if (mNumberRunsBegun == theRunsBegun) throw CAException(kAudioHardwareIllegalOperationError);
}

void HP_IOThread::Stop() {
  const UInt32 thePhase = GetWorkLoopPhase();
  if (thePhase != kInitializingPhase && thePhase != kRunningPhase) return;
  mStopRequested.store(true, std::memory_order_relaxed);
  if (IsCurrentThread()) return;

  mIOGuard.NotifyAll();
  // The guard is also notified for other reasons, and the next run may have begun by the time this
  // thread has it again.
  const UInt32 theRunsEnded = mNumberRunsEnded;
  while (mNumberRunsEnded == theRunsEnded) mIOGuard.Wait();
}

void HP_IOThread::Resynch(AudioTimeStamp* ioAnchorTime, bool inSignalIOThread) {
  if (GetWorkLoopPhase() != kRunningPhase) return;

  AudioTimeStamp theCurrentTime = {};
  theCurrentTime.mFlags = kAudioTimeStampSampleHostTimeValid | kAudioTimeStampRateScalarValid;
  mDevice->GetCurrentTime(theCurrentTime);

  AudioTimeStamp theAnchorTime = theCurrentTime;
  if (ioAnchorTime != nullptr) {
    const Float64 theSize = mDevice->GetIOBufferFrameSize();
    theAnchorTime = *ioAnchorTime;
    if (theCurrentTime.mSampleTime + 2.0 * theSize < ioAnchorTime->mSampleTime) {
      // Too far ahead to sleep until then: whole buffers are taken off.
      const Float64 theNumberBuffers =
          std::floor((ioAnchorTime->mSampleTime - theCurrentTime.mSampleTime) / theSize);
      AudioTimeStamp theSampleTime = *ioAnchorTime;
      theSampleTime.mFlags = kAudioTimeStampSampleTimeValid;
      theSampleTime.mSampleTime -= theSize * (theNumberBuffers - 1.0);
      theAnchorTime = AudioTimeStamp();
      theAnchorTime.mFlags = kAudioTimeStampSampleHostTimeValid | kAudioTimeStampRateScalarValid;
      mDevice->TranslateTime(theSampleTime, theAnchorTime);
    }
    *ioAnchorTime = theAnchorTime;
  }
  mAnchorTime = theAnchorTime;
  mFrameCounter = 0.0;
  PositionChanged();

  if (inSignalIOThread) mIOGuard.NotifyAll();
}

void HP_IOThread::GetCurrentPosition(AudioTimeStamp& outTime) const {
  const Position thePosition = mPosition.Load();
  outTime = thePosition.mAnchorTime;
  outTime.mFlags = kAudioTimeStampSampleTimeValid;
  outTime.mSampleTime += thePosition.mFrameCounter;
}

void HP_IOThread::PositionChanged() {
  ++mNumberPositions;
  mPosition.Store({mAnchorTime, mFrameCounter});
}

void HP_IOThread::SetIOCycleUsage(Float32 inUsage) {
  Float32 theUsage = inUsage > 0.0f ? inUsage : 0.0f;
  if (theUsage > 1.0f) theUsage = 1.0f;
  mIOCycleUsage.store(theUsage, std::memory_order_relaxed);
}

bool HP_IOThread::IsCurrentThread() const {
  return mIOThread.IsRunning() && mIOThread.IsCurrentThread();
}

void HP_IOThread::SetTimeConstraints() {
  UInt64 thePeriod = 0;
  UInt32 theQuantum = 0;
  mDevice->CalculateIOThreadTimeConstraints(thePeriod, theQuantum);
  mIOThread.SetTimeConstraints(static_cast<UInt32>(thePeriod), theQuantum,
                               static_cast<UInt32>(thePeriod), true);
}

void HP_IOThread::TellClients(AudioObjectPropertySelector inSelector) {
  const CAPropertyAddress theAddress(inSelector);
  mDevice->PropertiesChanged(1, &theAddress);
}
