#include "corefoundation/File.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace tembra::cf {

FileDescriptor& FileDescriptor::operator=(FileDescriptor&& inOther) noexcept {
  if (this != &inOther) {
    Close();
    mDescriptor = inOther.Detach();
  }
  return *this;
}

int FileDescriptor::Detach() {
  return std::exchange(mDescriptor, -1);
}

void FileDescriptor::Close() {
  if (mDescriptor >= 0) close(Detach());
}

int ReadWholeFile(const std::string& inPath, int inExtraOpenFlags, std::vector<UInt8>& outBytes) {
  FileDescriptor file(
      open(inPath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | inExtraOpenFlags));
  if (!file.IsOpen()) return errno;
  return ReadWholeFile(file.Get(), outBytes);
}

int ReadWholeFile(int inDescriptor, std::vector<UInt8>& outBytes) {
  struct stat status;
  if (fstat(inDescriptor, &status) != 0) return errno;
  if (!S_ISREG(status.st_mode)) return EINVAL;
  if (status.st_size < 0 || static_cast<size_t>(status.st_size) > kMaxFileSize) return EFBIG;
  // One byte more than expected shows the end without a second round; a growing file stays bounded.
  outBytes.resize(static_cast<size_t>(status.st_size) + 1);
  size_t size = 0;
  for (;;) {
    if (size == outBytes.size()) {
      if (size > kMaxFileSize) return EFBIG;
      outBytes.resize(size * 2);
    }
    ssize_t count = read(inDescriptor, outBytes.data() + size, outBytes.size() - size);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return errno;
    if (count == 0) break;
    size += static_cast<size_t>(count);
  }
  outBytes.resize(size);
  return size > kMaxFileSize ? EFBIG : 0;
}

int WriteAll(int inDescriptor, const UInt8* inBytes, size_t inSize) {
  while (inSize > 0) {
    ssize_t count = write(inDescriptor, inBytes, inSize);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return errno;
    inBytes += count;
    inSize -= static_cast<size_t>(count);
  }
  return 0;
}

}  // namespace tembra::cf
