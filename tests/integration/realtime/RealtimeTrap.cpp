#include "RealtimeTrap.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <stdarg.h>
#include <stdlib.h>
#include <sys/epoll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <atomic>

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define TEMBRA_UNDER_SANITIZER 1
#include <sanitizer/allocator_interface.h>
#endif
#endif

namespace {

thread_local bool tArmed = false;
thread_local bool tFollowed = false;

std::atomic<std::uint64_t> sAllocations{0};
std::atomic<std::uint64_t> sLocks{0};
std::atomic<std::uint64_t> sBlocking{0};
std::atomic<std::uint64_t> sSends{0};
std::atomic<std::uint64_t> sCycles{0};
std::atomic<const char*> sFirst{nullptr};
std::atomic<const void*> sMutexes[8]{};

void Note(std::atomic<std::uint64_t>& ioCounter, const char* inAct) {
  if (!tArmed) return;
  ioCounter.fetch_add(1, std::memory_order_relaxed);
  const char* none = nullptr;
  sFirst.compare_exchange_strong(none, inAct);
}

[[maybe_unused]] void NoteMutex(const void* inMutex) {
  if (!tArmed) return;
  for (std::atomic<const void*>& place : sMutexes) {
    const void* known = nullptr;
    if (place.compare_exchange_strong(known, inMutex) || known == inMutex) return;
  }
}

// The next definition of a function after this executable's own. Looking it up may allocate and
// lock, which is the trap's own doing and not the caller's.
template <typename Function>
Function* Next(std::atomic<Function*>& ioCache, const char* inName) {
  Function* function = ioCache.load(std::memory_order_acquire);
  if (function == nullptr) {
    const bool armed = tArmed;
    tArmed = false;
    function = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, inName));
    ioCache.store(function, std::memory_order_release);
    tArmed = armed;
  }
  return function;
}

}  // namespace

namespace tembra::test::realtime_trap {

void Arm() {
  tArmed = true;
}
void Disarm() {
  tArmed = false;
}
void FollowThisThread() {
  tFollowed = true;
}

bool SeesEverything() {
#ifdef TEMBRA_UNDER_SANITIZER
  return false;
#else
  return true;
#endif
}

Findings Collect() {
  const char* first = sFirst.load();
  std::uint64_t mutexes = 0;
  for (const std::atomic<const void*>& place : sMutexes) mutexes += place.load() != nullptr ? 1 : 0;
  return {sAllocations.load(),
          sLocks.load(),
          mutexes,
          sBlocking.load(),
          sSends.load(),
          sCycles.load(),
          first != nullptr ? first : ""};
}

void Reset() {
  sAllocations = 0;
  sLocks = 0;
  sBlocking = 0;
  sSends = 0;
  sCycles = 0;
  sFirst = nullptr;
  for (std::atomic<const void*>& place : sMutexes) place = nullptr;
}

}  // namespace tembra::test::realtime_trap

// The sleep of the I/O thread: not its own doing between wake-up and sleep.
extern "C" __attribute__((visibility("default"))) int pthread_cond_timedwait_relative_np(
    pthread_cond_t* inCondition, pthread_mutex_t* inMutex, const struct timespec* inTime) {
  static std::atomic<int (*)(pthread_cond_t*, pthread_mutex_t*, const struct timespec*)> sNext;
  tArmed = false;
  const int result =
      Next(sNext, "pthread_cond_timedwait_relative_np")(inCondition, inMutex, inTime);
  if (tFollowed) {
    sCycles.fetch_add(1, std::memory_order_relaxed);
    tArmed = true;
  }
  return result;
}

#ifdef TEMBRA_UNDER_SANITIZER

namespace {

void Allocated(const volatile void*, size_t) {
  Note(sAllocations, "malloc");
}
void Freed(const volatile void*) {
  Note(sAllocations, "free");
}
const int sHooks = __sanitizer_install_malloc_and_free_hooks(Allocated, Freed);

}  // namespace

#else

extern "C" {

#define TRAP_EXPORT __attribute__((visibility("default")))

void* __libc_malloc(size_t inSize);
void* __libc_calloc(size_t inCount, size_t inSize);
void* __libc_realloc(void* inBlock, size_t inSize);
void* __libc_memalign(size_t inAlignment, size_t inSize);
void __libc_free(void* inBlock);

TRAP_EXPORT void* malloc(size_t inSize) {
  Note(sAllocations, "malloc");
  return __libc_malloc(inSize);
}
TRAP_EXPORT void* calloc(size_t inCount, size_t inSize) {
  Note(sAllocations, "calloc");
  return __libc_calloc(inCount, inSize);
}
TRAP_EXPORT void* realloc(void* inBlock, size_t inSize) {
  Note(sAllocations, "realloc");
  return __libc_realloc(inBlock, inSize);
}
TRAP_EXPORT void* aligned_alloc(size_t inAlignment, size_t inSize) {
  Note(sAllocations, "aligned_alloc");
  return __libc_memalign(inAlignment, inSize);
}
TRAP_EXPORT int posix_memalign(void** outBlock, size_t inAlignment, size_t inSize) {
  Note(sAllocations, "posix_memalign");
  *outBlock = __libc_memalign(inAlignment, inSize);
  return *outBlock == nullptr ? 12 : 0;
}
TRAP_EXPORT void free(void* inBlock) {
  if (inBlock != nullptr) Note(sAllocations, "free");
  __libc_free(inBlock);
}

TRAP_EXPORT int pthread_mutex_lock(pthread_mutex_t* inMutex) noexcept {
  static std::atomic<int (*)(pthread_mutex_t*)> sNext;
  Note(sLocks, "pthread_mutex_lock");
  NoteMutex(inMutex);
  return Next(sNext, "pthread_mutex_lock")(inMutex);
}
TRAP_EXPORT int pthread_rwlock_rdlock(pthread_rwlock_t* inLock) noexcept {
  static std::atomic<int (*)(pthread_rwlock_t*)> sNext;
  Note(sLocks, "pthread_rwlock_rdlock");
  return Next(sNext, "pthread_rwlock_rdlock")(inLock);
}
TRAP_EXPORT int pthread_rwlock_wrlock(pthread_rwlock_t* inLock) noexcept {
  static std::atomic<int (*)(pthread_rwlock_t*)> sNext;
  Note(sLocks, "pthread_rwlock_wrlock");
  return Next(sNext, "pthread_rwlock_wrlock")(inLock);
}

TRAP_EXPORT int usleep(useconds_t inMicros) {
  static std::atomic<int (*)(useconds_t)> sNext;
  Note(sBlocking, "usleep");
  return Next(sNext, "usleep")(inMicros);
}
TRAP_EXPORT int nanosleep(const struct timespec* inTime, struct timespec* outRest) {
  static std::atomic<int (*)(const struct timespec*, struct timespec*)> sNext;
  Note(sBlocking, "nanosleep");
  return Next(sNext, "nanosleep")(inTime, outRest);
}
TRAP_EXPORT int clock_nanosleep(clockid_t inClock, int inFlags, const struct timespec* inTime,
                                struct timespec* outRest) {
  static std::atomic<int (*)(clockid_t, int, const struct timespec*, struct timespec*)> sNext;
  Note(sBlocking, "clock_nanosleep");
  return Next(sNext, "clock_nanosleep")(inClock, inFlags, inTime, outRest);
}
TRAP_EXPORT int poll(struct pollfd* ioFiles, nfds_t inCount, int inTimeout) {
  static std::atomic<int (*)(struct pollfd*, nfds_t, int)> sNext;
  Note(sBlocking, "poll");
  return Next(sNext, "poll")(ioFiles, inCount, inTimeout);
}
TRAP_EXPORT int epoll_wait(int inPoll, struct epoll_event* outEvents, int inMost, int inTimeout) {
  static std::atomic<int (*)(int, struct epoll_event*, int, int)> sNext;
  Note(sBlocking, "epoll_wait");
  return Next(sNext, "epoll_wait")(inPoll, outEvents, inMost, inTimeout);
}
TRAP_EXPORT int connect(int inSocket, const struct sockaddr* inAddress, socklen_t inLength) {
  static std::atomic<int (*)(int, const struct sockaddr*, socklen_t)> sNext;
  Note(sBlocking, "connect");
  return Next(sNext, "connect")(inSocket, inAddress, inLength);
}
TRAP_EXPORT int flock(int inFile, int inOperation) noexcept {
  static std::atomic<int (*)(int, int)> sNext;
  Note(sBlocking, "flock");
  return Next(sNext, "flock")(inFile, inOperation);
}
TRAP_EXPORT ssize_t read(int inFile, void* outBytes, size_t inSize) {
  static std::atomic<ssize_t (*)(int, void*, size_t)> sNext;
  Note(sBlocking, "read");
  return Next(sNext, "read")(inFile, outBytes, inSize);
}
TRAP_EXPORT ssize_t write(int inFile, const void* inBytes, size_t inSize) {
  static std::atomic<ssize_t (*)(int, const void*, size_t)> sNext;
  Note(sBlocking, "write");
  return Next(sNext, "write")(inFile, inBytes, inSize);
}
TRAP_EXPORT int open(const char* inPath, int inFlags, ...) {
  static std::atomic<int (*)(const char*, int, ...)> sNext;
  va_list arguments;
  va_start(arguments, inFlags);
  const mode_t mode = (inFlags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  Note(sBlocking, "open");
  return Next(sNext, "open")(inPath, inFlags, mode);
}
TRAP_EXPORT FILE* fopen(const char* inPath, const char* inMode) {
  static std::atomic<FILE* (*)(const char*, const char*)> sNext;
  Note(sBlocking, "fopen");
  return Next(sNext, "fopen")(inPath, inMode);
}
TRAP_EXPORT void syslog(int inPriority, const char* inFormat, ...) {
  Note(sBlocking, "syslog");
  va_list arguments;
  va_start(arguments, inFormat);
  vsyslog(inPriority, inFormat, arguments);
  va_end(arguments);
}
TRAP_EXPORT int puts(const char* inText) {
  static std::atomic<int (*)(const char*)> sNext;
  Note(sBlocking, "puts");
  return Next(sNext, "puts")(inText);
}
TRAP_EXPORT ssize_t sendmsg(int inSocket, const struct msghdr* inMessage, int inFlags) {
  static std::atomic<ssize_t (*)(int, const struct msghdr*, int)> sNext;
  if (tArmed) {
    if ((inFlags & MSG_DONTWAIT) == 0) Note(sBlocking, "sendmsg without MSG_DONTWAIT");
    sSends.fetch_add(1, std::memory_order_relaxed);
  }
  return Next(sNext, "sendmsg")(inSocket, inMessage, inFlags);
}
TRAP_EXPORT ssize_t send(int inSocket, const void* inBytes, size_t inSize, int inFlags) {
  static std::atomic<ssize_t (*)(int, const void*, size_t, int)> sNext;
  if (tArmed) {
    if ((inFlags & MSG_DONTWAIT) == 0) Note(sBlocking, "send without MSG_DONTWAIT");
    sSends.fetch_add(1, std::memory_order_relaxed);
  }
  return Next(sNext, "send")(inSocket, inBytes, inSize, inFlags);
}

}  // extern "C"

#endif
