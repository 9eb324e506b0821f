#pragma once

// The host clock.

#ifndef __linux__
#include_next <mach/mach_time.h>
#else

#include <mach/mach.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

// Ticks times numer over denom are nanoseconds.
struct mach_timebase_info {
  uint32_t numer;
  uint32_t denom;
};
typedef struct mach_timebase_info* mach_timebase_info_t;
typedef struct mach_timebase_info mach_timebase_info_data_t;

kern_return_t mach_timebase_info(mach_timebase_info_t info);

// Ticks since some moment before this process began; never goes back, stands still in suspend.
// Safe on a real-time thread.
uint64_t mach_absolute_time(void);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif  // __linux__
