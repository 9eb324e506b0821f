#include "hal/MasterLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/RuntimeDirectory.h"

namespace tembra::hal {

bool MasterLock::IsHeld() {
  if (mFile.load(std::memory_order_acquire) >= 0) {
    return true;
  }
  const Descriptor directory = OpenRuntimeDirectory(nullptr);
  if (!directory) {
    return false;
  }
  // Nobody removes the file, so the lock is always on the one that the name leads to.
  Descriptor file(openat(directory.Get(), "hal.master",
                         O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0600));
  struct stat status;
  if (!file || fstat(file.Get(), &status) != 0 || !S_ISREG(status.st_mode) ||
      status.st_uid != geteuid() || flock(file.Get(), LOCK_EX | LOCK_NB) != 0) {
    // Another thread of this process may just have got it.
    return mFile.load(std::memory_order_acquire) >= 0;
  }
  mFile.store(file.Detach(), std::memory_order_release);
  return true;
}

void MasterLock::ForgetInChild() {
  if (const int file = mFile.exchange(-1); file >= 0) {
    close(file);
  }
}

}  // namespace tembra::hal
