#pragma once

#include <dispatch/dispatch.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace tembra {

// A line for each block that was taken: pid, sample time, host time in the block, host time of its
// receipt, frames; separated by commas, in no locale's form.
//
// Thread: the server's loop; writing happens on a queue of its own, so the file lags behind by what
// Flush has not been called for.
// Units: frames, nanoseconds. Failure: told once through the error function.
class BlockLog {
 public:
  using ErrorFunction = std::function<void(const std::string&)>;

  // Null if the file cannot be made; outError says why.
  static std::unique_ptr<BlockLog> Create(const std::string& inPath, ErrorFunction inOnError,
                                          std::string& outError);
  // Waits until all is written.
  ~BlockLog();
  BlockLog(const BlockLog&) = delete;
  BlockLog& operator=(const BlockLog&) = delete;

  void Add(int32_t inPID, double inSampleTime, uint64_t inHostTime, uint64_t inNow,
           uint32_t inFrames);
  void Flush();

 private:
  BlockLog(int inFile, std::string inPath, ErrorFunction inOnError);

  const int mFile;
  const std::string mPath;
  const ErrorFunction mOnError;
  std::string mLines;
  dispatch_queue_t mQueue;
  bool mFailed = false;  // the queue's
};

}  // namespace tembra
