#include "persistence/HP_DeviceSettings_File.h"

#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <charconv>
#include <filesystem>
#include <string>
#include <vector>

namespace HP_DeviceSettings_File {
namespace {

constexpr off_t kMaxSize = 64 << 20;

// An open plain file, or none.
class PlainFile {
 public:
  PlainFile(const char* inPath, int inFlags, mode_t inMode = 0)
      : mDescriptor(open(inPath, inFlags | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY, inMode)),
        mError(errno),
        mStatus() {
    if (mDescriptor >= 0 && (fstat(mDescriptor, &mStatus) != 0 || !S_ISREG(mStatus.st_mode))) {
      Close();
      mError = EINVAL;
    }
  }
  ~PlainFile() { Close(); }
  PlainFile(const PlainFile&) = delete;
  PlainFile& operator=(const PlainFile&) = delete;

  bool IsOpen() const { return mDescriptor >= 0; }
  bool IsMissing() const { return !IsOpen() && mError == ENOENT; }
  int GetDescriptor() const { return mDescriptor; }
  const struct stat& GetStatus() const { return mStatus; }

  // Some file systems tell only here that there was no room.
  bool Close() {
    const bool theIsGood = mDescriptor < 0 || close(mDescriptor) == 0;
    mDescriptor = -1;
    return theIsGood;
  }

  // False if it ends before the buffer is full.
  bool Read(std::vector<UInt8>& outBytes) const {
    size_t theSize = 0;
    while (theSize < outBytes.size()) {
      const ssize_t theCount =
          read(mDescriptor, outBytes.data() + theSize, outBytes.size() - theSize);
      if (theCount < 0 && errno == EINTR) continue;
      if (theCount <= 0) return false;
      theSize += static_cast<size_t>(theCount);
    }
    return true;
  }

  bool Write(const UInt8* inBytes, size_t inSize) const {
    while (inSize > 0) {
      const ssize_t theCount = write(mDescriptor, inBytes, inSize);
      if (theCount < 0 && errno == EINTR) continue;
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

std::string MakeTemporaryPath(const std::filesystem::path& inPath) {
  static std::atomic<unsigned> sNumber{0};
  return inPath.parent_path().string() + "/" + GetTemporaryPrefix(inPath) +
         std::to_string(getpid()) + "." + std::to_string(sNumber.fetch_add(1));
}

bool IsLeftover(const std::string& inName, const std::string& inPrefix) {
  if (!inName.starts_with(inPrefix)) return false;
  const char* const theBegin = inName.data() + inPrefix.size();
  const char* const theEnd = inName.data() + inName.size();
  pid_t thePID = 0;
  const auto theResult = std::from_chars(theBegin, theEnd, thePID);
  return theResult.ec == std::errc() && theResult.ptr != theEnd && *theResult.ptr == '.' &&
         thePID > 0 && kill(thePID, 0) != 0 && errno == ESRCH;
}

void RemoveLeftovers(const std::filesystem::path& inPath) {
  const std::string thePrefix = GetTemporaryPrefix(inPath);
  std::error_code theError;
  for (std::filesystem::directory_iterator theEntry(inPath.parent_path(), theError), theEnd;
       !theError && theEntry != theEnd; theEntry.increment(theError)) {
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
    const struct stat& theNew = theFile.GetStatus();
    if (theOld.st_uid != theNew.st_uid || theOld.st_gid != theNew.st_gid) {
      // Only some may give a file away; the mode is kept for all.
      static_cast<void>(fchown(theFile.GetDescriptor(), theOld.st_uid, theOld.st_gid) == 0);
    }
    if (fchmod(theFile.GetDescriptor(), theOld.st_mode & 07777) != 0) return false;
  }
  return theFile.Close();
}

}  // namespace

CFDataRef CopyContent(const char* inPath, bool& outExists) {
  const PlainFile theFile(inPath, O_RDONLY);
  const off_t theSize = theFile.IsOpen() ? theFile.GetStatus().st_size : 0;
  outExists = theSize != 0;
  if (!outExists || theSize > kMaxSize) return nullptr;
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
