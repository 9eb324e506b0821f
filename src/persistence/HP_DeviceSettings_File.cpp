#include "persistence/HP_DeviceSettings_File.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <charconv>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "persistence/CAUninterrupted.h"
#include "support/CAProcess.h"

namespace HP_DeviceSettings_File {
namespace {

constexpr off_t kMaxSize = 64 << 20;

// An open plain file, or none.
class PlainFile {
 public:
  PlainFile(const char* inPath, int inFlags, mode_t inMode = 0)
      : mDescriptor(CAUninterrupted([&] {
          return open(inPath, inFlags | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY, inMode);
        })),
        mError(mDescriptor < 0 ? errno : 0),
        mStatus() {
    if (mDescriptor >= 0 && (fstat(mDescriptor, &mStatus) != 0 || !S_ISREG(mStatus.st_mode))) {
      Close();
      mError = EINVAL;
      mStatus = {};
    }
  }
  ~PlainFile() { Close(); }
  PlainFile(const PlainFile&) = delete;
  PlainFile& operator=(const PlainFile&) = delete;

  bool IsOpen() const { return mDescriptor >= 0; }
  bool IsMissing() const { return mError == ENOENT; }
  int GetDescriptor() const { return mDescriptor; }
  const struct stat& GetStatus() const { return mStatus; }

  // Some file systems tell only here that there was no room. A file whose closing was interrupted
  // is closed.
  bool Close() {
    const int theDescriptor = std::exchange(mDescriptor, -1);
    return theDescriptor < 0 || close(theDescriptor) == 0 || errno == EINTR;
  }

  // False if it ends before the buffer is full.
  bool Read(std::vector<UInt8>& outBytes) const {
    size_t theSize = 0;
    while (theSize < outBytes.size()) {
      const ssize_t theCount = CAUninterrupted(
          [&] { return read(mDescriptor, outBytes.data() + theSize, outBytes.size() - theSize); });
      if (theCount <= 0) return false;
      theSize += static_cast<size_t>(theCount);
    }
    return true;
  }

  bool Write(const UInt8* inBytes, size_t inSize) const {
    while (inSize > 0) {
      const ssize_t theCount = CAUninterrupted([&] { return write(mDescriptor, inBytes, inSize); });
      if (theCount <= 0) return false;
      inBytes += theCount;
      inSize -= static_cast<size_t>(theCount);
    }
    return true;
  }

 private:
  int mDescriptor;
  int mError;
  struct stat mStatus;
};

// Temporary files are named after the file and their writer: ".NAME.PID.NUMBER".
std::string GetTemporaryPrefix(const std::filesystem::path& inPath) {
  return "." + inPath.filename().string() + ".";
}

// One that is free: an earlier process with this one's id may have left some.
std::string MakeTemporaryPath(const std::filesystem::path& inPath) {
  static std::atomic<unsigned> sNumber{0};
  const std::string theStart = inPath.parent_path().string() + "/" + GetTemporaryPrefix(inPath) +
                               std::to_string(getpid()) + ".";
  std::string thePath;
  struct stat theStatus;
  do {
    thePath = theStart + std::to_string(sNumber.fetch_add(1));
  } while (lstat(thePath.c_str(), &theStatus) == 0);
  return thePath;
}

bool IsLeftover(const std::string& inName, const std::string& inPrefix) {
  if (!inName.starts_with(inPrefix)) return false;
  pid_t thePID = 0;  // stays so where there is no number
  const char* const theRest =
      std::from_chars(inName.data() + inPrefix.size(), inName.data() + inName.size(), thePID).ptr;
  return *theRest == '.' && thePID > 0 && !CAProcess::ProcessExists(thePID);
}

void RemoveLeftovers(const std::filesystem::path& inPath) {
  const std::string thePrefix = GetTemporaryPrefix(inPath);
  std::error_code theError;
  for (std::filesystem::directory_iterator theEntry(inPath.parent_path(), theError), theEnd;
       theEntry != theEnd; theEntry.increment(theError)) {
    if (IsLeftover(theEntry->path().filename().string(), thePrefix)) {
      unlink(theEntry->path().c_str());
    }
  }
}

// The temporary file has all of the content and what is to stay of the old file.
bool WriteTemporary(const std::string& inPath, CFDataRef inContent, const PlainFile& inOldFile) {
  PlainFile theFile(inPath.c_str(), O_WRONLY | O_CREAT | O_EXCL, inOldFile.IsOpen() ? 0600 : 0666);
  if (!theFile.IsOpen() || !theFile.Write(CFDataGetBytePtr(inContent),
                                          static_cast<size_t>(CFDataGetLength(inContent)))) {
    return false;
  }
  if (inOldFile.IsOpen()) {
    const struct stat& theOld = inOldFile.GetStatus();
    const int theDescriptor = theFile.GetDescriptor();
    // Only some may give a file away; the mode is kept for all.
    static_cast<void>(
        CAUninterrupted([&] { return fchown(theDescriptor, theOld.st_uid, theOld.st_gid); }));
    if (CAUninterrupted([&] { return fchmod(theDescriptor, theOld.st_mode & 07777); }) != 0) {
      return false;
    }
  }
  return theFile.Close();
}

}  // namespace

CFDataRef CopyContent(const char* inPath, bool& outExists) {
  const PlainFile theFile(inPath, O_RDONLY);
  const off_t theSize = theFile.GetStatus().st_size;
  outExists = theFile.IsOpen() ? theSize != 0 : !theFile.IsMissing();
  if (theSize == 0 || theSize > kMaxSize) return nullptr;
  std::vector<UInt8> theBytes(static_cast<size_t>(theSize));
  if (!theFile.Read(theBytes)) return nullptr;
  return CFDataCreate(kCFAllocatorDefault, theBytes.data(), static_cast<CFIndex>(theSize));
}

void Replace(const char* inPath, CFDataRef inContent) {
  const PlainFile theOldFile(inPath, O_RDWR);
  if (!theOldFile.IsOpen() && !theOldFile.IsMissing()) return;
  RemoveLeftovers(inPath);
  const std::string theTemporary = MakeTemporaryPath(inPath);
  if (!WriteTemporary(theTemporary, inContent, theOldFile) ||
      rename(theTemporary.c_str(), inPath) != 0) {
    unlink(theTemporary.c_str());
  }
}

}  // namespace HP_DeviceSettings_File
