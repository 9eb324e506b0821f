#pragma once

#include <errno.h>

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "SimulatedTime.h"
#include "device/HP_IOThread.h"
#include "support/device/SimulatedDevice.h"

namespace tembra::test {

// A device with a real I/O thread in simulated time, at a million frames a second: a frame is a
// microsecond. Each sleep of the thread takes one step of a script; at its end the thread stops.
class ThreadedDevice : public SimulatedDevice {
 public:
  struct Call {
    Float64 mNow;
    AudioTimeStamp mInputTime;
    AudioTimeStamp mOutputTime;
    UInt32 mCycle;
    bool mGuardWasHeld;
  };
  using Step = std::function<int(UInt64 inNanos)>;

  static constexpr UInt64 kNanosPerFrame = 1000;

  explicit ThreadedDevice(const char* inName = "Simulated") : SimulatedDevice(false, false) {
    SimulatedTime::Get().Reset();
    SimulatedTime::Get().mTimedWait = [this](UInt64 inNanos) { return TimedWait(inNanos); };
    mName = inName;
    Initialize();
    mThread = std::make_unique<HP_IOThread>(this);
    AddSimulatedStream(true, FloatFormat(1, 1e6));
    AddSimulatedStream(false, FloatFormat(1, 1e6));
  }
  ~ThreadedDevice() override {
    // The thread asks this device to its end.
    delete mThread.get();
    static_cast<void>(mThread.release());
  }

  // Steps.
  static int SleepWhole(UInt64 inNanos) { return SleepAndBeLate(inNanos, 0); }
  static int SleepAndBeLate(UInt64 inNanos, UInt64 inLateNanos) {
    SimulatedTime::Get().mNow += inNanos + inLateNanos;
    return ETIMEDOUT;
  }
  static Step Late(UInt64 inFrames) {
    return [=](UInt64 inNanos) { return SleepAndBeLate(inNanos, inFrames * kNanosPerFrame); };
  }
  static Step WokenAfter(
      UInt64 inFrames, std::function<void()> inWork = [] {}) {
    return [=](UInt64) {
      SimulatedTime::Get().mNow += inFrames * kNanosPerFrame;
      inWork();
      return 0;
    };
  }
  static Step WholeWith(std::function<void()> inWork) {
    return [=](UInt64 inNanos) {
      inWork();
      return SleepWhole(inNanos);
    };
  }

  void Start() {
    CAMutex::Locker theLocker(mThread->GetIOGuard());
    mThread->Start();
  }
  void AwaitEnd() {
    CAMutex::Locker theLocker(mThread->GetIOGuard());
    while (mThread->GetWorkLoopPhase() != HP_IOThread::kNotRunningPhase) {
      mThread->GetIOGuard()->Wait();
    }
  }
  void Run(std::deque<Step> inSteps) {
    mSteps = std::move(inSteps);
    Start();
    AwaitEnd();
  }

  // The device.
  CAGuard* GetIOGuard() override { return mThread == nullptr ? nullptr : mThread->GetIOGuard(); }
  bool IsSafeToExecuteCommand() override { return !mThread->IsCurrentThread(); }
  bool StartCommandExecution(void** outToken) override {
    *outToken = mThread->GetIOGuard()->Lock() ? this : nullptr;
    return true;
  }
  void FinishCommandExecution(void* inToken) override {
    if (inToken != nullptr) mThread->GetIOGuard()->Unlock();
  }
  void StartIOEngine() override { mThread->Start(); }
  void StopIOEngine() override { mThread->Stop(); }
  UInt32 GetIOCycleNumber() const override { return mThread->GetIOCycleNumber(); }

  void StartIOCycleTimingServices() override {
    mClockAnchor = SimulatedTime::Get().mNow;
    Log("clock on");
    const std::lock_guard<std::mutex> theLock(mMutex);
    ++mRunsBegun;
    mBegun.notify_all();
  }
  void StopIOCycleTimingServices() override { Log("clock off"); }
  bool EstablishIOCycleAnchorTime(AudioTimeStamp& ioTime) override {
    EXPECT_EQ(ioTime.mFlags, 7u);
    EXPECT_EQ(ioTime.mSampleTime, 0.0);
    EXPECT_EQ(ioTime.mHostTime, 0u);
    const bool theAnswer = mHasAnchor && HP_Device::EstablishIOCycleAnchorTime(ioTime);
    if (mThread->GetWorkLoopPhase() == HP_IOThread::kRunningPhase) {
      SimulatedTime::Get().mNow += mFramesToAnchor * kNanosPerFrame;
    }
    return theAnswer;
  }
  bool UpdateIOCycleTimingServices() override { return mClockHasShifted; }
  void GetCurrentTime(AudioTimeStamp& outTime) override {
    outTime = {};
    outTime.mHostTime = SimulatedTime::Get().mNow;
    outTime.mSampleTime = static_cast<Float64>((outTime.mHostTime - mClockAnchor) / kNanosPerFrame);
    outTime.mRateScalar = 1.0;
    outTime.mFlags = 7;
  }
  void TranslateTime(const AudioTimeStamp& inTime, AudioTimeStamp& outTime) override {
    EXPECT_EQ(inTime.mFlags, 1u);
    EXPECT_EQ(outTime.mFlags, 7u);
    outTime.mSampleTime = inTime.mSampleTime;
    outTime.mHostTime =
        mClockAnchor +
        static_cast<UInt64>(static_cast<SInt64>(inTime.mSampleTime * kNanosPerFrame));
    outTime.mRateScalar = 1.0;
  }
  bool CallIOProcs(const AudioTimeStamp& inNow, const AudioTimeStamp& inInput,
                   const AudioTimeStamp& inOutput) override {
    if (mIsLogged) {
      mCalls.push_back({inNow.mSampleTime, inInput, inOutput, GetIOCycleNumber(),
                        mThread->GetIOGuard()->IsOwnedByCurrentThread()});
    }
    if (mOnCall) mOnCall();
    return mCallAnswer;
  }
  void PropertiesChanged(UInt32, const AudioObjectPropertyAddress* inAddress) const override {
    const UInt32 theSelector = inAddress->mSelector;
    Log(theSelector == 'goin' ? "goin" : theSelector == 'over' ? "over" : "other");
    if (mThread->GetIOGuard()->IsOwnedByCurrentThread()) Log("guard held!");
    EXPECT_EQ(inAddress->mScope, kAudioObjectPropertyScopeGlobal);
    EXPECT_EQ(inAddress->mElement, 0u);
    if (mOnNotification) mOnNotification(theSelector);
  }
  UInt32 GetSafetyOffset(bool inIsInput) const override { return inIsInput ? 10 : 20; }

  void Log(const std::string& inEvent) const {
    const std::lock_guard<std::mutex> theLock(mMutex);
    mLog.push_back(inEvent);
  }
  std::vector<std::string> GetLog() const {
    const std::lock_guard<std::mutex> theLock(mMutex);
    return mLog;
  }

  std::unique_ptr<HP_IOThread> mThread;
  // Set before the start; changed on the I/O thread, or while it is not running.
  std::deque<Step> mSteps;
  Step mLastStep;  // instead of the stop at the end of the script
  std::vector<UInt64> mSleeps;
  std::vector<Call> mCalls;
  std::function<void()> mOnCall;
  std::function<void(UInt32)> mOnNotification;
  bool mIsLogged = true;
  UInt64 mFramesToAnchor = 0;  // what taking an anchor costs in the steady state
  std::atomic<bool> mCallAnswer{true};
  std::atomic<bool> mHasAnchor{true};
  std::atomic<bool> mClockHasShifted{false};

 private:
  int TimedWait(UInt64 inNanos) {
    if (!mThread->IsCurrentThread()) {
      // The wait of a start: until the thread has come up.
      std::unique_lock<std::mutex> theLock(mMutex);
      const UInt32 theRuns = mRunsSeen;
      mBegun.wait(theLock, [&] { return mRunsBegun != theRuns; });
      mRunsSeen = mRunsBegun;
      return 0;
    }
    if (mIsLogged) mSleeps.push_back(inNanos);
    if (mSteps.empty()) {
      if (mLastStep) return mLastStep(inNanos);
      mThread->Stop();
      return 0;
    }
    const Step theStep = std::move(mSteps.front());
    mSteps.pop_front();
    return theStep(inNanos);
  }

  std::atomic<UInt64> mClockAnchor{0};
  mutable std::mutex mMutex;
  std::condition_variable mBegun;
  UInt32 mRunsBegun = 0;
  UInt32 mRunsSeen = 0;
  mutable std::vector<std::string> mLog;
};

}  // namespace tembra::test
