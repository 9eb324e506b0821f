#include <mach/mach.h>
#include <pthread.h>
#include <time.h>

#include <cerrno>
#include <cstring>
#include <limits>

#include "mach/ThreadScheduling.h"

namespace {

constexpr long kNanosPerSecond = 1000000000;

// What the kernel keeps of a thread's name, without the terminator.
constexpr size_t kKernelNameLength = 15;

bool IsContinuationByte(char inByte) {
  return (static_cast<unsigned char>(inByte) & 0xC0) == 0x80;
}

}  // namespace

mach_port_t mach_thread_self(void) {
  return static_cast<mach_port_t>(tembra::CurrentThreadID());
}

unsigned int pthread_mach_thread_np(pthread_t thread) {
  if (pthread_equal(thread, pthread_self())) {
    return mach_thread_self();
  }
  // The C library tells a thread's ID only through the thread's CPU clock, whose ID is built from
  // it: the complement of the thread ID above three bits of clock kind.
  clockid_t clock = 0;
  if (pthread_getcpuclockid(thread, &clock) != 0) {
    return MACH_PORT_NULL;
  }
  return ~(static_cast<unsigned int>(clock >> 3));
}

int pthread_cond_timedwait_relative_np(pthread_cond_t* cond, pthread_mutex_t* mutex,
                                       const struct timespec* relative_time) {
  if (relative_time->tv_nsec < 0 || relative_time->tv_nsec >= kNanosPerSecond) {
    return EINVAL;
  }
  timespec deadline;
  clock_gettime(CLOCK_MONOTONIC, &deadline);
  if (relative_time->tv_sec < 0) {
    deadline = {};
  } else if (relative_time->tv_sec >= std::numeric_limits<time_t>::max() - deadline.tv_sec - 1) {
    deadline.tv_sec = std::numeric_limits<time_t>::max();
  } else {
    deadline.tv_sec += relative_time->tv_sec;
    deadline.tv_nsec += relative_time->tv_nsec;
    if (deadline.tv_nsec >= kNanosPerSecond) {
      deadline.tv_sec += 1;
      deadline.tv_nsec -= kNanosPerSecond;
    }
  }
  return pthread_cond_clockwait(cond, mutex, CLOCK_MONOTONIC, &deadline);
}

int pthread_setname_np(const char* name) {
  const size_t length = strlen(name);
  const char* start = length > kKernelNameLength ? name + (length - kKernelNameLength) : name;
  while (IsContinuationByte(*start)) {
    ++start;
  }
  return pthread_setname_np(pthread_self(), start);
}
