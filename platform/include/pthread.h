#pragma once

#include_next <pthread.h>

// What the C library here lacks of the native one's thread calls.
#ifdef __linux__

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

// The thread's port, which here is its kernel thread ID. The thread must not have been joined or,
// detached, have ended.
unsigned int pthread_mach_thread_np(pthread_t thread);

// Waits at most for the given time, on the clock that never jumps; ETIMEDOUT after that.
int pthread_cond_timedwait_relative_np(pthread_cond_t* cond, pthread_mutex_t* mutex,
                                       const struct timespec* relative_time);

#pragma GCC visibility pop
#ifdef __cplusplus
}

// Names the calling thread. The kernel keeps 15 bytes: of a longer name the end, which is what
// tells threads apart, cut between whole characters.
__attribute__((visibility("default"))) int pthread_setname_np(const char* name);
#endif

#endif  // __linux__
