#include "persistence/CASettingsFile.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>

#include "persistence/CAUninterrupted.h"

namespace {

// What a file is opened with that is not known to be harmless.
constexpr int kCarefulFlags = O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
constexpr mode_t kCreationMode = 0666;
// Between two looks at a lock that somebody else has: short at first, as most hold it for no longer
// than one small write takes.
constexpr long kShortestPause = 50000;
constexpr long kLongestPause = 2000000;
constexpr long kNanosPerMilli = 1000000;
constexpr long kNanosPerSecond = 1000000000;

long long GetNanos() {
  struct timespec theTime = {};
  clock_gettime(CLOCK_MONOTONIC, &theTime);
  return theTime.tv_sec * static_cast<long long>(kNanosPerSecond) + theTime.tv_nsec;
}

}  // namespace

bool CASettingsFile::Open(int inFlags) {
  Close();
  mFile = CAUninterrupted([&] { return open(mPath, inFlags | kCarefulFlags, kCreationMode); });
  if (mFile < 0) return false;
  if (IsInPlace()) return true;
  const int theError = errno;
  Close();
  errno = theError;
  return false;
}

bool CASettingsFile::OpenForReading() {
  return Open(O_RDONLY);
}

bool CASettingsFile::OpenForWriting() {
  // Not created along the way: in a sticky directory that is refused for a file of another user.
  return Open(O_RDWR);
}

bool CASettingsFile::Create() {
  return Open(O_RDWR | O_CREAT | O_EXCL);
}

bool CASettingsFile::Lock(UInt32 inMilliseconds) {
  const long long theDeadline =
      GetNanos() + inMilliseconds * static_cast<long long>(kNanosPerMilli);
  struct timespec thePause = {0, kShortestPause};
  while (flock(mFile, LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK && errno != EINTR) return false;
    if (GetNanos() >= theDeadline) return false;
    nanosleep(&thePause, nullptr);
    thePause.tv_nsec = std::min(2 * thePause.tv_nsec, kLongestPause);
  }
  return true;
}

bool CASettingsFile::IsInPlace() {
  struct stat theFile;
  struct stat thePath;
  if (fstat(mFile, &theFile) != 0 || lstat(mPath, &thePath) != 0) return false;
  if (theFile.st_dev != thePath.st_dev || theFile.st_ino != thePath.st_ino) {
    errno = ESTALE;
    return false;
  }
  mSize = theFile.st_size;
  if (S_ISREG(theFile.st_mode) && theFile.st_nlink == 1) return true;
  errno = EPERM;
  return false;
}

void CASettingsFile::Close() {
  if (mFile < 0) return;
  // A child that was forked meanwhile shares the lock; closing alone would leave it with the child.
  flock(mFile, LOCK_UN);
  close(mFile);
  mFile = -1;
}

bool CASettingsFile::GetStatus(struct stat& outStatus) const {
  return fstat(mFile, &outStatus) == 0;
}

bool CASettingsFile::Read(std::vector<UInt8>& outBytes) const {
  outBytes.resize(static_cast<size_t>(mSize));
  size_t theSize = 0;
  while (theSize < outBytes.size()) {
    const ssize_t theCount = CAUninterrupted([&] {
      return pread(mFile, outBytes.data() + theSize, outBytes.size() - theSize,
                   static_cast<off_t>(theSize));
    });
    if (theCount <= 0) {
      // Whoever is about to write has emptied it. The half that was there is nobody's any more.
      outBytes.clear();
      return theCount == 0;
    }
    theSize += static_cast<size_t>(theCount);
  }
  return true;
}

bool CASettingsFile::Write(const UInt8* inBytes, size_t inSize) const {
  if (!Empty()) return false;
  size_t theSize = 0;
  while (theSize < inSize) {
    const ssize_t theCount = CAUninterrupted([&] {
      return pwrite(mFile, inBytes + theSize, inSize - theSize, static_cast<off_t>(theSize));
    });
    if (theCount <= 0) {
      // Half a list would cost other processes what they remember; an empty file does not.
      Empty();
      return false;
    }
    theSize += static_cast<size_t>(theCount);
  }
  return true;
}

bool CASettingsFile::Empty() const {
  return CAUninterrupted([&] { return ftruncate(mFile, 0); }) == 0;
}

void CASettingsFile::SetMode(mode_t inMode) const {
  // Another user's file keeps the mode that it has.
  (void)CAUninterrupted([&] { return fchmod(mFile, inMode); });
}
