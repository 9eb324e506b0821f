#pragma once

#include <pthread.h>

#include "base/Mutex.h"

namespace tembra::hal {

// Keeps the promise that a listener is not called once its removal has returned: calls run between
// Begin and End, and a removal waits for the one that runs, unless it comes from inside it.
//
// Any thread; one call at a time.
class ListenerGuard {
 public:
  // False if the listener was removed: then it must not be called, and End must not either.
  bool Begin();
  void End();

  // Waits as said. False if another removal came first.
  bool Remove();

 private:
  Mutex mMutex;
  ConditionVariable mEnded;
  bool mIsRemoved TEMBRA_GUARDED_BY(mMutex) = false;
  bool mIsRunning TEMBRA_GUARDED_BY(mMutex) = false;
  pthread_t mRunner TEMBRA_GUARDED_BY(mMutex) = {};
};

}  // namespace tembra::hal
