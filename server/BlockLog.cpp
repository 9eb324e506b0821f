#include "server/BlockLog.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <utility>

namespace tembra {

namespace {

constexpr size_t kFlushSize = 32768;

template <typename T>
void AppendNumber(std::string& ioText, T inValue, char inEnd) {
  char digits[64];
  const std::to_chars_result result = std::to_chars(digits, digits + sizeof(digits), inValue);
  ioText.append(digits, result.ptr);
  ioText.push_back(inEnd);
}

}  // namespace

std::unique_ptr<BlockLog> BlockLog::Create(const std::string& inPath, ErrorFunction inOnError,
                                           std::string& outError) {
  const int file = open(inPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (file < 0) {
    outError = "cannot write '" + inPath + "': " + strerror(errno) +
               ". Name a file in a folder that you may write to.";
    return nullptr;
  }
  return std::unique_ptr<BlockLog>(new BlockLog(file, inPath, std::move(inOnError)));
}

BlockLog::BlockLog(int inFile, std::string inPath, ErrorFunction inOnError)
    : mFile(inFile),
      mPath(std::move(inPath)),
      mOnError(std::move(inOnError)),
      mQueue(dispatch_queue_create("com.tembra.tmbasrv.blocklog", DISPATCH_QUEUE_SERIAL)) {}

BlockLog::~BlockLog() {
  Flush();
  dispatch_sync(mQueue, ^{
                });
  dispatch_release(mQueue);
  close(mFile);
}

void BlockLog::Add(int32_t inPID, double inSampleTime, uint64_t inHostTime, uint64_t inNow,
                   uint32_t inFrames) {
  AppendNumber(mLines, inPID, ',');
  AppendNumber(mLines, inSampleTime, ',');
  AppendNumber(mLines, inHostTime, ',');
  AppendNumber(mLines, inNow, ',');
  AppendNumber(mLines, inFrames, '\n');
  if (mLines.size() >= kFlushSize) Flush();
}

void BlockLog::Flush() {
  if (mLines.empty()) return;
  const std::string lines = std::exchange(mLines, {});
  dispatch_async(mQueue, ^{
    size_t done = 0;
    while (done < lines.size() && !mFailed) {
      const ssize_t written = write(mFile, lines.data() + done, lines.size() - done);
      if (written < 0 && errno == EINTR) continue;
      if (written <= 0) {
        mFailed = true;
        mOnError("cannot go on writing '" + mPath + "': " + strerror(errno));
      } else {
        done += static_cast<size_t>(written);
      }
    }
  });
}

}  // namespace tembra
