#pragma once

#include <condition_variable>
#include <mutex>

#include "base/ThreadAnnotations.h"

namespace tembra {

// std::mutex with the attributes that let the compiler check who holds it.
class TEMBRA_CAPABILITY("mutex") Mutex {
 public:
  void lock() TEMBRA_ACQUIRE() { mMutex.lock(); }
  void unlock() TEMBRA_RELEASE() { mMutex.unlock(); }
  bool try_lock() TEMBRA_TRY_ACQUIRE(true) { return mMutex.try_lock(); }

 private:
  std::mutex mMutex;
};

class TEMBRA_SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& inMutex) TEMBRA_ACQUIRE(inMutex) : mMutex(inMutex) { mMutex.lock(); }
  ~MutexLock() TEMBRA_RELEASE() { mMutex.unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  Mutex& mMutex;
};

// Waits with a Mutex held; std::condition_variable_any unlocks and relocks it.
using ConditionVariable = std::condition_variable_any;

}  // namespace tembra
