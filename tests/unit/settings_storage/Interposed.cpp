// This executable's own versions of a few calls, so that what other processes do between two steps,
// and what a machine refuses, comes when the test wants it.

#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <sys/file.h>
#include <sys/syscall.h>

#include <utility>

#include "SettingsFixture.h"

namespace tembra::test {

Interposed& Interposed::Get() {
  static Interposed& sInterposed = *new Interposed;
  return sInterposed;
}

}  // namespace tembra::test

using tembra::test::Interposed;

extern "C" int flock(int inFile, int inOperation) noexcept {
  Interposed& interposed = Interposed::Get();
  if ((inOperation & LOCK_EX) != 0) {
    ++interposed.mLockCalls;
    if (auto hook = std::exchange(interposed.mBeforeLock, nullptr)) hook();
    if (interposed.mLockErrors > 0) {
      --interposed.mLockErrors;
      errno = interposed.mLockError;
      return -1;
    }
  }
  return static_cast<int>(syscall(SYS_flock, inFile, inOperation));
}

extern "C" ssize_t pwrite(int inFile, const void* inBytes, size_t inSize, off_t inOffset) {
  Interposed& interposed = Interposed::Get();
  if (interposed.mWriteLimit >= 0) {
    const long left = interposed.mWriteLimit - inOffset;
    if (left <= 0) {
      errno = ENOSPC;
      return -1;
    }
    if (static_cast<long>(inSize) > left) inSize = static_cast<size_t>(left);
  }
  return syscall(SYS_pwrite64, inFile, inBytes, inSize, inOffset);
}

extern "C" int open(const char* inPath, int inFlags, ...) {
  Interposed& interposed = Interposed::Get();
  const bool writes = (inFlags & O_ACCMODE) != O_RDONLY;
  if (const int error = writes ? interposed.mWritingError : interposed.mReadingError; error != 0) {
    errno = error;
    return -1;
  }
  va_list arguments;
  va_start(arguments, inFlags);
  const mode_t mode = (inFlags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return static_cast<int>(syscall(SYS_openat, AT_FDCWD, inPath, inFlags, mode));
}
