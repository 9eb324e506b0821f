#pragma once

#include <CoreAudio/CoreAudioTypes.h>

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "base/Mutex.h"
#include "server/RecordingFile.h"

namespace tembra {

// Writes recordings on a thread of its own, so that a slow disk never holds up receiving.
//
// What waits to be written is bounded. A block that finds no room is not waited for: it is counted
// as lost, and silence of its length takes its place in the file as soon as there is room again,
// so a file keeps its length and the queue never grows.
//
// Thread: all operations from one thread, the owner's; files are touched on the writer's alone.
// Ownership: the writer owns its files; its end writes all that waits and closes them.
// Units: interleaved frames; the bound is bytes of samples.
// Failure: a file that cannot be opened or written is told once through the error function, on the
// writer's thread, and then takes nothing more.
class FileWriter {
 public:
  using FileID = uint64_t;
  using ErrorFunction = std::function<void(const std::string&)>;

  FileWriter(size_t inMaxBytes, ErrorFunction inOnError);
  ~FileWriter();
  FileWriter(const FileWriter&) = delete;
  FileWriter& operator=(const FileWriter&) = delete;

  FileID Adopt(std::unique_ptr<RecordingFile> inFile, UInt32 inChannels);
  // Opens the file when the writer gets to it.
  FileID Open(const std::string& inPath, double inRate, UInt32 inChannels);
  // Silence first, then the frames. False if they were lost.
  bool Write(FileID inFile, uint64_t inSilence, const float* inFrames, UInt32 inCount);
  void Close(FileID inFile);
  // Returns when all that was given so far is written.
  void Drain();

  uint64_t GetLostFrames() const { return mLostFrames; }
  size_t GetWaitingBytes();

 private:
  enum class Kind { kAdopt, kOpen, kWrite, kClose };
  struct Task {
    Kind mKind = Kind::kWrite;
    FileID mFile = 0;
    std::unique_ptr<RecordingFile> mAdopted;
    std::string mPath;
    double mRate = 0.0;
    UInt32 mChannels = 0;
    uint64_t mSilence = 0;
    std::vector<float> mFrames;
  };

  // What the owner's thread knows of a file.
  struct Account {
    UInt32 mChannels = 0;
    uint64_t mOwedSilence = 0;
  };

  void Post(Task inTask);
  void Run();
  void Perform(Task& ioTask);
  void Recycle(std::vector<float> inBuffer) TEMBRA_REQUIRES(mMutex);

  const size_t mMaxBytes;
  const ErrorFunction mOnError;
  FileID mNextFile = 1;
  std::map<FileID, Account> mAccounts;
  uint64_t mLostFrames = 0;

  Mutex mMutex;
  ConditionVariable mChanged;
  std::deque<Task> mTasks TEMBRA_GUARDED_BY(mMutex);
  std::vector<std::vector<float>> mSpare TEMBRA_GUARDED_BY(mMutex);
  size_t mWaitingBytes TEMBRA_GUARDED_BY(mMutex) = 0;
  bool mBusy TEMBRA_GUARDED_BY(mMutex) = false;
  bool mEnd TEMBRA_GUARDED_BY(mMutex) = false;

  struct OpenFile {
    std::unique_ptr<RecordingFile> mFile;
    uint64_t mUnflushed = 0;
  };
  std::map<FileID, OpenFile> mFiles;  // the writer's thread only
  std::thread mThread;
};

}  // namespace tembra
