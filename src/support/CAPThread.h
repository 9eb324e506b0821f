#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <pthread.h>

#include <atomic>

// Purpose: a detached thread with a scheduling policy: a priority, or time constraints.
// Thread: Start and the setters by any thread; the setters act at once on a thread that runs. The
//   name is set before Start. The new thread blocks all signals.
// Ownership: the routine's parameter is borrowed. The object must outlive its thread, or be made
//   with inAutoDelete, in which case the thread deletes it at its end.
// Units and range: period, computation and constraint in host ticks; a name of up to 63 bytes.
// Failure: Start throws a CAException with the platform's number. Scheduling is a request: a system
//   that refuses it leaves the thread as it was, and nothing is thrown.
class CAPThread {
 public:
  using ThreadRoutine = void* (*)(void* inParameter);

  static constexpr UInt32 kMinThreadPriority = 1;
  static constexpr UInt32 kMaxThreadPriority = 63;
  static constexpr UInt32 kDefaultThreadPriority = 31;

  CAPThread(ThreadRoutine inThreadRoutine, void* inParameter,
            UInt32 inPriority = kDefaultThreadPriority, bool inFixedPriority = false,
            bool inAutoDelete = false, const char* inThreadName = nullptr);
  CAPThread(ThreadRoutine inThreadRoutine, void* inParameter, UInt32 inPeriod, UInt32 inComputation,
            UInt32 inConstraint, bool inIsPreemptible, bool inAutoDelete = false,
            const char* inThreadName = nullptr);
  virtual ~CAPThread();
  CAPThread(const CAPThread&) = delete;
  CAPThread& operator=(const CAPThread&) = delete;

  // Does nothing if the thread exists.
  virtual void Start();

  pthread_t GetPThread() const { return mPThread.load(); }
  bool IsRunning() const;
  bool IsCurrentThread() const;

  // Cut at 63 bytes; null clears it.
  void SetName(const char* inThreadName);
  const char* GetName() const { return mThreadName; }

  void SetPriority(UInt32 inPriority, bool inFixedPriority);
  void SetTimeConstraints(UInt32 inPeriod, UInt32 inComputation, UInt32 inConstraint,
                          bool inIsPreemptible);
  void ClearTimeConstraints() { SetPriority(mPriority, mFixedPriority); }
  bool IsTimeConstraintSet() const { return mTimeConstraintSet; }

  // 0 if there is no thread.
  UInt32 GetScheduledPriority() const;
  UInt32 GetSpawningThreadPriority() const { return mSpawningThreadPriority; }

  static void SetPriority(pthread_t inThread, UInt32 inPriority, bool inFixedPriority);
  // inPolicy is the one that the thread runs under, timeshare, round robin or FIFO; without it the
  // thread is asked. 0 for a null handle or if the system does not tell.
  static UInt32 getScheduledPriority(pthread_t inThread, int inPolicy);
  static UInt32 getScheduledPriority(pthread_t inThread);

 private:
  struct StartRecord;

  static void* Entry(void* inStartRecord);
  void RunRoutine();
  void ApplyTimeConstraints(pthread_t inThread) const;

  std::atomic<pthread_t> mPThread;
  UInt32 mSpawningThreadPriority;
  ThreadRoutine mThreadRoutine;
  void* mThreadParameter;
  char mThreadName[64];
  std::atomic<UInt32> mPriority;
  std::atomic<UInt32> mPeriod;
  std::atomic<UInt32> mComputation;
  std::atomic<UInt32> mConstraint;
  std::atomic<bool> mIsPreemptible;
  std::atomic<bool> mTimeConstraintSet;
  std::atomic<bool> mFixedPriority;
  const bool mAutoDelete;
};
