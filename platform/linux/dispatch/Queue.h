#pragma once

#include <dispatch/dispatch.h>
#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <deque>
#include <string>

#include "base/Mutex.h"

namespace tembra {

// One lock for the bookkeeping of all queues, never held while work runs: a fork finds it free.
extern Mutex gQueueLock;

// A serial queue. At any time it is idle, or "busy": one thread, the runner, has the right to run
// its front. The runner hands that right on when its work is done: to a synchronous caller that
// waits at the front, to the worker thread if asynchronous work is there, or to nobody.
//
// Ownership: counted; queued asynchronous work and running synchronous work hold a reference.
class Queue : public dispatch_queue_s {
 public:
  explicit Queue(const char* inLabel);

  void Retain() { mReferences.fetch_add(1, std::memory_order_relaxed); }
  void Release();
  const char* Label() const { return mLabel.c_str(); }

  // Work that cannot be queued cannot be reported either: without memory these end the process.
  void Sync(dispatch_function_t inWork, void* inContext) noexcept TEMBRA_EXCLUDES(gQueueLock);
  void Async(dispatch_function_t inWork, void* inContext) noexcept TEMBRA_EXCLUDES(gQueueLock);

  // The queue whose work this thread runs, or null.
  static Queue* Current();

  std::atomic<void*> mContext{nullptr};

 private:
  struct Item {
    dispatch_function_t work;
    void* context;
    // A synchronous caller's turn, null for asynchronous work.
    std::atomic<uint32_t>* turn;
  };

  ~Queue() = default;
  static void Work(void* inQueue);
  void RunHere(dispatch_function_t inWork, void* inContext);
  // Gives the right to run to whoever is next. False if that is asynchronous work and there can be
  // no worker: the caller still has the right and runs the front.
  bool HandOn() TEMBRA_REQUIRES(gQueueLock);
  void WakeWorker() TEMBRA_REQUIRES(gQueueLock);
  // Runs asynchronous work from the front until a synchronous caller or nothing is next.
  void RunFront() TEMBRA_EXCLUDES(gQueueLock);
  // In a forked child the parent's worker, waiting callers and queued work are not there.
  void ForgetParent() TEMBRA_REQUIRES(gQueueLock);

  const std::string mLabel;
  std::atomic<long> mReferences{1};
  std::deque<Item> mItems TEMBRA_GUARDED_BY(gQueueLock);
  bool mBusy TEMBRA_GUARDED_BY(gQueueLock) = false;
  bool mHasWorker TEMBRA_GUARDED_BY(gQueueLock) = false;
  bool mRunnerKnown TEMBRA_GUARDED_BY(gQueueLock) = false;
  pthread_t mRunner TEMBRA_GUARDED_BY(gQueueLock){};
  uint32_t mGeneration TEMBRA_GUARDED_BY(gQueueLock);
  // What the worker waits on: a state below.
  std::atomic<uint32_t> mWorkerState{0};
};

}  // namespace tembra
