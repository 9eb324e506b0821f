#include "dispatch/Queue.h"

#include <stdio.h>
#include <stdlib.h>

#include <utility>

#include "base/ForkHandlers.h"
#include "base/ServiceThread.h"

namespace tembra {

Mutex gQueueLock;

namespace {

enum WorkerState : uint32_t { kWait, kRun, kEnd };

thread_local Queue* tCurrent = nullptr;

void LockForFork() TEMBRA_NO_THREAD_SAFETY_ANALYSIS {
  gQueueLock.lock();
}

void UnlockAfterFork() TEMBRA_NO_THREAD_SAFETY_ANALYSIS {
  gQueueLock.unlock();
}

}  // namespace

Queue::Queue(const char* inLabel) : mLabel(inLabel ? inLabel : ""), mGeneration(ForkGeneration()) {
  static const bool sRegistered = [] {
    RegisterForkHooks(ForkOrder::kDispatch, {LockForFork, UnlockAfterFork, UnlockAfterFork});
    return true;
  }();
  (void)sRegistered;
}

Queue* Queue::Current() {
  return tCurrent;
}

void Queue::Release() {
  if (mReferences.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
  {
    MutexLock lock(gQueueLock);
    if (mGeneration != ForkGeneration()) ForgetParent();
    if (mHasWorker) {
      // The worker may stand inside its last work just now; it deletes the queue when it is out.
      mWorkerState.store(kEnd, std::memory_order_release);
      mWorkerState.notify_one();
      return;
    }
  }
  delete this;
}

void Queue::ForgetParent() {
  mGeneration = ForkGeneration();
  mItems.clear();
  mHasWorker = false;
  mWorkerState.store(kWait, std::memory_order_relaxed);
  if (!mRunnerKnown || !pthread_equal(mRunner, pthread_self())) mBusy = mRunnerKnown = false;
}

void Queue::RunHere(dispatch_function_t inWork, void* inContext) {
  Queue* outer = std::exchange(tCurrent, this);
  inWork(inContext);
  tCurrent = outer;
}

void Queue::Sync(dispatch_function_t inWork, void* inContext) noexcept {
  Retain();
  std::atomic<uint32_t> turn{0};
  bool wait;
  {
    MutexLock lock(gQueueLock);
    if (mGeneration != ForkGeneration()) ForgetParent();
    if (mBusy && mRunnerKnown && pthread_equal(mRunner, pthread_self())) {
      fprintf(stderr, "dispatch_sync: queue \"%s\" is already owned by this thread\n", Label());
      abort();
    }
    wait = mBusy;
    if (wait) {
      mItems.push_back({inWork, inContext, &turn});
    } else {
      mBusy = mRunnerKnown = true;
      mRunner = pthread_self();
    }
  }
  if (wait) {
    turn.wait(0, std::memory_order_acquire);
    // The lock also holds this frame until the one who gave the turn has let go of it.
    MutexLock lock(gQueueLock);
    mRunnerKnown = true;
    mRunner = pthread_self();
  }
  RunHere(inWork, inContext);
  bool runFront;
  {
    MutexLock lock(gQueueLock);
    runFront = !HandOn();
  }
  if (runFront) RunFront();
  Release();
}

void Queue::Async(dispatch_function_t inWork, void* inContext) noexcept {
  Retain();
  {
    MutexLock lock(gQueueLock);
    if (mGeneration != ForkGeneration()) ForgetParent();
    mItems.push_back({inWork, inContext, nullptr});
    if (mBusy) return;
    mBusy = true;
    if (!mHasWorker) mHasWorker = StartServiceThread("tembra.queue", Work, this);
    if (mHasWorker) {
      WakeWorker();
      return;
    }
  }
  // No thread can be had: the caller does the work rather than lose it.
  RunFront();
}

void Queue::WakeWorker() {
  mRunnerKnown = false;
  mWorkerState.store(kRun, std::memory_order_release);
  mWorkerState.notify_one();
}

bool Queue::HandOn() {
  mRunnerKnown = false;
  if (mItems.empty()) {
    mBusy = false;
    return true;
  }
  if (std::atomic<uint32_t>* turn = mItems.front().turn) {
    mItems.pop_front();
    turn->store(1, std::memory_order_release);
    turn->notify_one();
    return true;
  }
  if (!mHasWorker) mHasWorker = StartServiceThread("tembra.queue", Work, this);
  if (mHasWorker) WakeWorker();
  return mHasWorker;
}

void Queue::RunFront() {
  long done = 0;
  while (true) {
    Item item;
    {
      MutexLock lock(gQueueLock);
      if (mItems.empty() || mItems.front().turn) {
        HandOn();
        break;
      }
      item = mItems.front();
      mItems.pop_front();
      mRunnerKnown = true;
      mRunner = pthread_self();
    }
    RunHere(item.work, item.context);
    ++done;
  }
  // Last, for the queue may go with these: each item held one reference.
  while (done-- > 0) Release();  // NOLINT(clang-analyzer-cplusplus.NewDelete)
}

void Queue::Work(void* inQueue) {
  auto* queue = static_cast<Queue*>(inQueue);
  while (true) {
    queue->mWorkerState.wait(kWait, std::memory_order_acquire);
    uint32_t run = kRun;
    if (queue->mWorkerState.compare_exchange_strong(run, kWait, std::memory_order_acq_rel)) {
      queue->RunFront();
    } else if (run == kEnd) {
      // Once more through the lock: whoever stored the end may still hold it.
      { MutexLock lock(gQueueLock); }
      delete queue;
      return;
    }
  }
}

}  // namespace tembra
