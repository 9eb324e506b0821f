#pragma once

#include <time.h>

#include <cstdint>

namespace tembra {

constexpr int64_t kNanosPerSecond = 1'000'000'000;

// CLOCK_MONOTONIC in nanoseconds.
inline int64_t MonotonicNanos() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return int64_t{now.tv_sec} * kNanosPerSecond + now.tv_nsec;
}

// Any number of seconds as nanoseconds, kept within +-146 years so that sums do not overflow; NaN
// is 0.
inline int64_t NanosFromSeconds(double inSeconds) {
  constexpr double kLimit = 4.6e9;
  if (!(inSeconds == inSeconds)) return 0;
  if (inSeconds > kLimit) inSeconds = kLimit;
  if (inSeconds < -kLimit) inSeconds = -kLimit;
  return static_cast<int64_t>(inSeconds * 1e9);
}

}  // namespace tembra
