#pragma once

#include <sys/types.h>

#include <cstdint>

// What thread policies come down to on this kernel. All calls may be made from any thread, for any
// thread of this process (by kernel ID); none allocates or locks.

namespace tembra {

enum class SchedulingMode { kUnknown, kNormal, kFIFO, kDeadline };

// Nanoseconds.
struct TimeConstraint {
  uint64_t mPeriod;
  uint64_t mComputation;
  uint64_t mConstraint;
};

// The same constraint within what the kernel accepts: runtime at least 1024 ns and at most the
// deadline, the deadline at most the period, the period within the kernel's own bounds. A period of
// 0 means none of its own: the deadline's.
TimeConstraint WithinKernelBounds(const TimeConstraint& inConstraint);

// Deadline, else FIFO, else whatever the thread has; answers which. A finite RLIMIT_RTTIME rules
// FIFO out: a client that computes too long would get the whole process killed.
SchedulingMode ApplyTimeConstraint(pid_t inThread, const TimeConstraint& inConstraint);

// Back to normal scheduling if the thread is in another mode; its niceness stays.
void ApplyNormal(pid_t inThread);

// Normal scheduling, importance steps less nice than the process is, as far as the thread may. Who
// leaves a real-time mode becomes no nicer than the process: a negative importance was told
// relative to the priority that goes.
void ApplyImportance(pid_t inThread, int inImportance);

// The caller's kernel ID, without a system call but for the first time.
pid_t CurrentThreadID();

SchedulingMode GetSchedulingMode(pid_t inThread);

// Niceness under normal scheduling; false if there is no such thread.
bool GetNiceness(pid_t inThread, int& outNiceness);

}  // namespace tembra
