#pragma once

#include <CoreAudio/AudioHardware.h>

#include <atomic>

#include "support/CAGuard.h"
#include "support/CAPThread.h"
#include "support/CASequenceLocked.h"

class HP_Device;
class HP_IOCycleTelemetry;

// Purpose: the real-time thread of a device. It ties the device's clock to the I/O cycle: sleeps
//   until a buffer is due, has the device call its clients, and re-anchors when it woke too late.
// Thread: Start, Stop and Resynch with the guard held. The plain reads on any thread. Everything
//   private runs on the I/O thread, with the guard held but for the sleep and the notifications.
// Ownership: owned by the device; owns the guard. The destructor stops the thread and waits until
//   it has let go of this object, so it must not run on the I/O thread.
// Units and range: sample times and sizes in frames; the usage is a fraction from 0 to 1. The cycle
//   counter wraps after 2^32 cycles.
// Failure: Start throws 'nope' if the thread does not come up. What is thrown on the I/O thread
//   ends the run.
class HP_IOThread {
 public:
  enum : UInt32 {
    kNotRunningPhase = 0,
    kInitializingPhase = 1,
    kRunningPhase = 2,
    kTeardownPhase = 3
  };

  explicit HP_IOThread(HP_Device* inDevice);
  virtual ~HP_IOThread();
  HP_IOThread(const HP_IOThread&) = delete;
  HP_IOThread& operator=(const HP_IOThread&) = delete;

  void Start();
  // Returns when the run has ended, except on the I/O thread, which ends after its present pass.
  void Stop();
  // Moves the cycle to an anchor, or to the present time for null. An anchor more than two buffers
  // ahead is pulled back by whole buffers. Does nothing unless the thread is in its steady state.
  void Resynch(AudioTimeStamp* ioAnchorTime, bool inSignalIOThread);

  void GetCurrentPosition(AudioTimeStamp& outTime) const;
  Float32 GetIOCycleUsage() const { return mIOCycleUsage.load(std::memory_order_relaxed); }
  void SetIOCycleUsage(Float32 inUsage);
  UInt32 GetIOCycleNumber() const { return mIOCycleCounter.load(std::memory_order_relaxed); }
  UInt32 GetWorkLoopPhase() const { return mWorkLoopPhase.load(std::memory_order_acquire); }
  bool HasBeenStopped() const { return mStopRequested.load(std::memory_order_relaxed); }
  bool IsCurrentThread() const;
  CAGuard* GetIOGuard() { return &mIOGuard; }

 private:
  struct Position {
    AudioTimeStamp mAnchorTime;
    Float64 mFrameCounter;
  };
  struct Cycle;

  static void* ThreadEntry(void* inIOThread);
  void WorkLoop();
  void BeginRun(Cycle& ioCycle);
  void EnterSteadyState(Cycle& ioCycle);
  void RunPass(Cycle& ioCycle);
  void FinishBufferOfOldSize(Cycle& ioCycle);
  void SleepAndPerformIO(Cycle& ioCycle, Float64 inNextSize);
  void FollowClock(Cycle& ioCycle);
  void EndRun(const Cycle& inCycle);

  void SetTimeConstraints();
  // True if the cycle did not go normally, so that the clock has to be anchored anew.
  bool PerformIO(const AudioTimeStamp& inCurrentTime, Float64 inIOBufferFrameSize);
  // Answers false if the clock is gone for good.
  bool CalculateNextWakeUpTime(const AudioTimeStamp& inCurrentTime, Float64 inIOBufferFrameSize,
                               AudioTimeStamp& outWakeUpTime, bool inCheckForOverload,
                               bool inMustResync, bool& ioGuardIsLocked);
  // Also tells from when on a cycle is overloaded.
  bool IsOverloaded(const AudioTimeStamp& inCurrentTime, Float64 inIOBufferFrameSize,
                    bool inHasReAnchored, AudioTimeStamp& outOverloadTime);
  bool RecoverFromOverload(AudioTimeStamp& ioCurrentTime, bool& ioGuardIsLocked);
  bool HasReachedFrameCounter(const AudioTimeStamp& inTime) const;
  AudioTimeStamp GetFrameCounterTime() const;
  void PositionChanged();
  void AdvanceCycleCounter();
  void TellClients(AudioObjectPropertySelector inSelector);
  void WaitForThreadToBeGone();
  HP_IOCycleTelemetry& GetTelemetry() const;

  HP_Device* mDevice;
  CAPThread mIOThread;
  CAGuard mIOGuard;
  std::atomic<Float32> mIOCycleUsage;
  // Written and read with the guard held; others read the copy in mPosition.
  AudioTimeStamp mAnchorTime;
  Float64 mFrameCounter;
  std::atomic<UInt32> mIOCycleCounter;
  UInt32 mOverloadCounter;
  std::atomic<UInt32> mWorkLoopPhase;
  std::atomic<bool> mStopRequested;

  CASequenceLocked<Position> mPosition;
  // Under the guard. They tell a wait for one run from the runs that came and went meanwhile, and
  // one position from the next.
  UInt32 mNumberRunsBegun;
  UInt32 mNumberRunsEnded;
  UInt32 mNumberPositions;
};
