#pragma once

#include <time.h>

#include "base/Mutex.h"

namespace tembra {

constexpr int kExitPatience = 200;  // milliseconds

// For exit handlers: other threads still run and hold a lock for moments only, but one of them may
// have been stopped for good while it held it. Whether the lock was had within the time.
inline bool LockWithin(Mutex& inMutex, int inMilliseconds) TEMBRA_TRY_ACQUIRE(true, inMutex) {
  for (int i = 0; !inMutex.try_lock(); ++i) {
    if (i >= inMilliseconds) return false;
    const timespec rest{0, 1'000'000};
    nanosleep(&rest, nullptr);
  }
  return true;
}

}  // namespace tembra
