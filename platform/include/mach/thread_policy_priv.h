#pragma once

#include <sys/types.h>

// Our own extension, for tools and tests: how a thread is really scheduled, since asking for a
// time constraint never fails.
#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

typedef enum TembraThreadSchedulingMode {
  kTembraThreadSchedulingUnknown = 0,  // no such thread, or not to be seen
  kTembraThreadSchedulingNormal = 1,   // SCHED_OTHER and its kin
  kTembraThreadSchedulingFIFO = 2,     // SCHED_FIFO or SCHED_RR
  kTembraThreadSchedulingDeadline = 3  // SCHED_DEADLINE
} TembraThreadSchedulingMode;

// Asks the kernel, so it is also right for threads of other processes. inThreadID 0 is the caller.
TembraThreadSchedulingMode TembraThreadGetSchedulingMode(pid_t inThreadID);
// "deadline", "fifo", "normal", "unknown".
const char* TembraThreadSchedulingModeName(TembraThreadSchedulingMode inMode);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
