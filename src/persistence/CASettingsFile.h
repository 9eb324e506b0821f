#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <sys/stat.h>

#include <ctime>
#include <vector>

// An open file in a place where others, too, may write: /tmp, say.
//
// Purpose: opens only a regular file that has no second link and that its path still leads to,
//   never follows a link, never waits for a peer, and holds the file's flock while it is read or
//   written. So what somebody planted at the path is neither written through nor waited for.
// Thread: one.
// Ownership: owns the descriptor; the path is borrowed. The lock goes with Close, also where a
//   forked child has inherited the descriptor.
// Units and range: bytes; times as the file system counts them.
// Failure: false. Of a file that could not be opened errno tells why: ESTALE if another one has
//   taken its place, EPERM if it is not one that is used here.
class CASettingsFile {
 public:
  explicit CASettingsFile(const char* inPath) : mPath(inPath), mFile(-1), mSize(0) {}
  ~CASettingsFile() { Close(); }
  CASettingsFile(const CASettingsFile&) = delete;
  CASettingsFile& operator=(const CASettingsFile&) = delete;

  bool OpenForReading();
  bool OpenForWriting();
  // Only where there is no file.
  bool Create();

  // Waits for the lock, at most that long.
  bool Lock(UInt32 inMilliseconds);
  // Whether the path still leads to this file, and nothing else does.
  bool IsInPlace();
  // When it was last found in place.
  off_t GetSize() const { return mSize; }
  void Close();

  bool GetStatus(struct stat& outStatus) const;
  // As many bytes as that size. None if there are no longer so many: then it has been emptied.
  bool Read(std::vector<UInt8>& outBytes) const;
  // In place of what is there; an empty file if that fails.
  bool Write(const UInt8* inBytes, size_t inSize) const;
  bool Empty() const;
  void SetMode(mode_t inMode) const;

 private:
  bool Open(int inFlags);

  const char* const mPath;
  int mFile;
  off_t mSize;
};
