#pragma once

#include <CoreFoundation/CFBase.h>

#include <string>
#include <vector>

namespace tembra::cf {

// The most that is read of a file that must be in memory whole.
constexpr size_t kMaxFileSize = size_t{64} << 20;

// A descriptor that closes itself.
class FileDescriptor {
 public:
  FileDescriptor() = default;
  explicit FileDescriptor(int inDescriptor) : mDescriptor(inDescriptor) {}
  FileDescriptor(FileDescriptor&& inOther) noexcept : mDescriptor(inOther.Detach()) {}
  FileDescriptor& operator=(FileDescriptor&& inOther) noexcept;
  ~FileDescriptor() { Close(); }
  bool IsOpen() const { return mDescriptor >= 0; }
  int Get() const { return mDescriptor; }
  int Detach();
  void Close();

 private:
  int mDescriptor = -1;
};

// The bytes of a regular file of at most kMaxFileSize. 0, or an errno; a file that is not regular
// is EINVAL and one too large EFBIG. Never waits on a special file.
int ReadWholeFile(const std::string& inPath, int inExtraOpenFlags, std::vector<UInt8>& outBytes);
int ReadWholeFile(int inDescriptor, std::vector<UInt8>& outBytes);

// All of the bytes, or an errno.
int WriteAll(int inDescriptor, const UInt8* inBytes, size_t inSize);

}  // namespace tembra::cf
