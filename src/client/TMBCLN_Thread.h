#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <atomic>

#include "client/xtl_thread.h"

// The run-loop thread of a device: it fires the device's retry timers, also in a process that runs
// no run loop.
//
// Thread: made and started by the device's constructor; the loop is stopped by its destructor.
// Ownership: belongs to its maker until create() succeeded and to its thread from then on, which
//   frees it when the loop has been stopped. Abandon() gives up a thread that did not come up in
//   time, started or not.
// Failure: create() answers false if no thread could be started.
class __TMBCLN_Thread : public xtl::thread_impl<int> {
 public:
  __TMBCLN_Thread();
  ~__TMBCLN_Thread() override;

  bool create();
  // Null until the thread has come up.
  CFRunLoopRef runLoop() const { return mRunLoop.load(std::memory_order_acquire); }
  // Stops the loop and lets go of it.
  bool destroy();
  // True: the thread will never run its loop, and the object is gone, or goes when its thread comes
  // up late. False: the thread came up meanwhile and has its loop.
  bool Abandon();

 protected:
  void main() override;

 private:
  // Whether the thread's start or the maker's patience came first.
  enum Phase { kStarting, kRunning, kAbandoned };

  static void perform(void* inInfo);

  std::atomic<CFRunLoopRef> mRunLoop{nullptr};
  CFRunLoopSourceRef mSource = nullptr;
  std::atomic<Phase> mPhase{kStarting};
};
