#include "Calls.h"

#include <CoreFoundation/CoreFoundation.h>
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <filesystem>
#include <utility>

namespace tembra::test {

Calls& Calls::Get() {
  static Calls& sCalls = *new Calls;
  return sCalls;
}

int Calls::Enter(const char* inName) {
  if (!mIsWatching) return kGoOn;
  mNames.emplace_back(inName);
  if (!mOnCall) return kGoOn;
  mIsWatching = false;
  const int answer = mOnCall(inName, mNames.size() - 1);
  mIsWatching = true;
  return answer;
}

Watch::Watch(std::function<int(const std::string&, size_t)> inOnCall) {
  Calls& calls = Calls::Get();
  calls.mOnCall = std::move(inOnCall);
  calls.mNames.clear();
  calls.mNanos = 1000000000;
  calls.mSleeps.clear();
  calls.mIsWatching = true;
}

Watch::~Watch() {
  Calls::Get().mIsWatching = false;
  Calls::Get().mOnCall = nullptr;
}

size_t CountDescriptors() {
  const std::filesystem::directory_iterator entries("/proc/self/fd");
  return static_cast<size_t>(std::distance(begin(entries), end(entries)));
}

namespace {

constexpr long long kNanosPerSecond = 1000000000;

// What a system call answers, or what the test wants in its place.
template <class... Arguments>
long Call(const char* inName, long inNumber, Arguments... inArguments) {
  const int error = Calls::Get().Enter(inName);
  if (error > Calls::kGoOn) {
    errno = error;
    return -1;
  }
  return syscall(inNumber, inArguments...);
}

template <class Bytes, class... Arguments>
ssize_t Transfer(const char* inName, long inNumber, int inFile, Bytes inBytes, size_t inSize,
                 Arguments... inOffset) {
  const int answer = Calls::Get().Enter(inName);
  if (answer > Calls::kGoOn) {
    errno = answer;
    return -1;
  }
  return syscall(inNumber, inFile, inBytes, answer == Calls::kOneByte ? 1 : inSize, inOffset...);
}

template <class Function>
Function* Real(const char* inName, Function*) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, inName));
}

}  // namespace
}  // namespace tembra::test

using tembra::test::Call;
using tembra::test::Calls;
using tembra::test::kNanosPerSecond;
using tembra::test::Real;
using tembra::test::Transfer;

extern "C" {

int open(const char* inPath, int inFlags, ...) {
  va_list arguments;
  va_start(arguments, inFlags);
  const mode_t mode = (inFlags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  const char* const name = (inFlags & O_CREAT) != 0 ? "create" : "open";
  return static_cast<int>(Call(name, SYS_openat, AT_FDCWD, inPath, inFlags, mode));
}

// Closes in any case, as the system does.
int close(int inFile) {
  const int error = Calls::Get().Enter("close");
  const int result = static_cast<int>(syscall(SYS_close, inFile));
  if (error <= Calls::kGoOn) return result;
  errno = error;
  return -1;
}

int stat(const char* inPath, struct stat* outStatus) noexcept {
  return static_cast<int>(Call("stat", SYS_newfstatat, AT_FDCWD, inPath, outStatus, 0));
}

int lstat(const char* inPath, struct stat* outStatus) noexcept {
  const int result = static_cast<int>(
      Call("lstat", SYS_newfstatat, AT_FDCWD, inPath, outStatus, AT_SYMLINK_NOFOLLOW));
  if (Calls::Get().mIsElsewhere) ++outStatus->st_dev;
  return result;
}

int fstat(int inFile, struct stat* outStatus) noexcept {
  return static_cast<int>(Call("fstat", SYS_fstat, inFile, outStatus));
}

int flock(int inFile, int inOperation) noexcept {
  const char* const name = (inOperation & LOCK_UN) != 0 ? "unlock" : "lock";
  return static_cast<int>(Call(name, SYS_flock, inFile, inOperation));
}

int ftruncate(int inFile, off_t inSize) noexcept {
  return static_cast<int>(Call("ftruncate", SYS_ftruncate, inFile, inSize));
}

int fchmod(int inFile, mode_t inMode) noexcept {
  return static_cast<int>(Call("fchmod", SYS_fchmod, inFile, inMode));
}

int fchown(int inFile, uid_t inUser, gid_t inGroup) noexcept {
  return static_cast<int>(Call("fchown", SYS_fchown, inFile, inUser, inGroup));
}

int rename(const char* inOld, const char* inNew) noexcept {
  return static_cast<int>(Call("rename", SYS_renameat2, AT_FDCWD, inOld, AT_FDCWD, inNew, 0));
}

int unlink(const char* inPath) noexcept {
  return static_cast<int>(Call("unlink", SYS_unlinkat, AT_FDCWD, inPath, 0));
}

int kill(pid_t inProcess, int inSignal) noexcept {
  return static_cast<int>(Call("kill", SYS_kill, inProcess, inSignal));
}

ssize_t read(int inFile, void* outBytes, size_t inSize) {
  return Transfer("read", SYS_read, inFile, outBytes, inSize);
}

ssize_t write(int inFile, const void* inBytes, size_t inSize) {
  return Transfer("write", SYS_write, inFile, inBytes, inSize);
}

ssize_t pread(int inFile, void* outBytes, size_t inSize, off_t inOffset) {
  return Transfer("pread", SYS_pread64, inFile, outBytes, inSize, inOffset);
}

ssize_t pwrite(int inFile, const void* inBytes, size_t inSize, off_t inOffset) {
  return Transfer("pwrite", SYS_pwrite64, inFile, inBytes, inSize, inOffset);
}

int clock_gettime(clockid_t inClock, struct timespec* outTime) noexcept {
  Calls& calls = Calls::Get();
  if (!calls.mIsWatching) {
    return static_cast<int>(syscall(SYS_clock_gettime, inClock, outTime));
  }
  calls.mNanos += 1000;
  outTime->tv_sec = calls.mNanos / kNanosPerSecond;
  outTime->tv_nsec = calls.mNanos % kNanosPerSecond;
  return 0;
}

int nanosleep(const struct timespec* inTime, struct timespec* outLeft) {
  Calls& calls = Calls::Get();
  if (!calls.mIsWatching) {
    return static_cast<int>(syscall(SYS_nanosleep, inTime, outLeft));
  }
  if (const int error = calls.Enter("nanosleep"); error > Calls::kGoOn) {
    errno = error;
    return -1;
  }
  calls.mSleeps.push_back(inTime->tv_sec * kNanosPerSecond + inTime->tv_nsec);
  calls.mNanos += calls.mSleeps.back();
  return 0;
}

}  // extern "C"

CFMutableDictionaryRef CFDictionaryCreateMutable(CFAllocatorRef inAllocator, CFIndex inCapacity,
                                                 const CFDictionaryKeyCallBacks* inKeyCallBacks,
                                                 const CFDictionaryValueCallBacks* inCallBacks) {
  if (Calls::Get().Enter("make dictionary") > Calls::kGoOn) return nullptr;
  return Real("CFDictionaryCreateMutable", &CFDictionaryCreateMutable)(inAllocator, inCapacity,
                                                                       inKeyCallBacks, inCallBacks);
}

CFDataRef CFDataCreateWithBytesNoCopy(CFAllocatorRef inAllocator, const UInt8* inBytes,
                                      CFIndex inSize, CFAllocatorRef inDeallocator) {
  if (Calls::Get().Enter("make data") > Calls::kGoOn) return nullptr;
  return Real("CFDataCreateWithBytesNoCopy", &CFDataCreateWithBytesNoCopy)(inAllocator, inBytes,
                                                                           inSize, inDeallocator);
}

CFDataRef CFPropertyListCreateData(CFAllocatorRef inAllocator, CFPropertyListRef inList,
                                   CFPropertyListFormat inFormat, CFOptionFlags inOptions,
                                   CFErrorRef* outError) {
  if (Calls::Get().Enter("make list") > Calls::kGoOn) return nullptr;
  return Real("CFPropertyListCreateData", &CFPropertyListCreateData)(inAllocator, inList, inFormat,
                                                                     inOptions, outError);
}
