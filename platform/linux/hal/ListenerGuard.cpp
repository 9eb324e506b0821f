#include "hal/ListenerGuard.h"

namespace tembra::hal {

bool ListenerGuard::Begin() {
  MutexLock lock(mMutex);
  if (mIsRemoved) {
    return false;
  }
  mIsRunning = true;
  mRunner = pthread_self();
  return true;
}

void ListenerGuard::End() {
  MutexLock lock(mMutex);
  mIsRunning = false;
  mEnded.notify_all();
}

bool ListenerGuard::Remove() {
  MutexLock lock(mMutex);
  const bool first = !mIsRemoved;
  mIsRemoved = true;
  while (mIsRunning && !pthread_equal(mRunner, pthread_self())) {
    mEnded.wait(mMutex);
  }
  return first;
}

}  // namespace tembra::hal
