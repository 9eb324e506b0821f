#pragma once

#include <cstdint>

namespace tembra {

// What sched_setattr(2) and sched_getattr(2) take. The kernel's own structure, in the size of its
// first version; the C library has no name for it.
//
// Units: runtime, deadline and period in nanoseconds.
struct KernelSchedulingAttributes {
  uint32_t size;
  uint32_t policy;
  uint64_t flags;
  int32_t nice;
  uint32_t priority;
  uint64_t runtime;
  uint64_t deadline;
  uint64_t period;
};
static_assert(sizeof(KernelSchedulingAttributes) == 48);

constexpr uint32_t kDeadlinePolicy = 6;
constexpr uint64_t kFlagResetOnFork = 0x01;
constexpr uint64_t kFlagReclaim = 0x02;

}  // namespace tembra
