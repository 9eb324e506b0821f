#include "server/FileWriter.h"

#include <utility>

#include "server/Threads.h"

namespace tembra {

namespace {

// A reader of the growing file sees at most about this much less than there is.
constexpr uint64_t kFlushFrames = 48000;
constexpr size_t kMaxSpare = 64;

}  // namespace

FileWriter::FileWriter(size_t inMaxBytes, ErrorFunction inOnError)
    : mMaxBytes(inMaxBytes), mOnError(std::move(inOnError)) {
  mThread = StartThread("tembra.writer", [this] { Run(); });
}

FileWriter::~FileWriter() {
  {
    MutexLock lock(mMutex);
    mEnd = true;
  }
  mChanged.notify_all();
  mThread.join();
}

FileWriter::FileID FileWriter::Adopt(std::unique_ptr<RecordingFile> inFile, UInt32 inChannels) {
  Task task;
  task.mKind = Kind::kAdopt;
  task.mFile = mNextFile++;
  task.mAdopted = std::move(inFile);
  const FileID file = task.mFile;
  mAccounts[file].mChannels = inChannels;
  Post(std::move(task));
  return file;
}

FileWriter::FileID FileWriter::Open(const std::string& inPath, double inRate, UInt32 inChannels) {
  Task task;
  task.mKind = Kind::kOpen;
  task.mFile = mNextFile++;
  task.mPath = inPath;
  task.mRate = inRate;
  task.mChannels = inChannels;
  const FileID file = task.mFile;
  mAccounts[file].mChannels = inChannels;
  Post(std::move(task));
  return file;
}

bool FileWriter::Write(FileID inFile, uint64_t inSilence, const float* inFrames, UInt32 inCount) {
  auto found = mAccounts.find(inFile);
  if (found == mAccounts.end()) return false;
  Account& account = found->second;
  const size_t samples = size_t{inCount} * account.mChannels;
  const size_t bytes = samples * sizeof(float);

  Task task;
  {
    MutexLock lock(mMutex);
    if (mWaitingBytes + bytes > mMaxBytes) {
      account.mOwedSilence += inSilence + inCount;
      mLostFrames += inCount;
      return false;
    }
    mWaitingBytes += bytes;
    if (!mSpare.empty()) {
      task.mFrames = std::move(mSpare.back());
      mSpare.pop_back();
    }
  }
  task.mFile = inFile;
  task.mSilence = std::exchange(account.mOwedSilence, 0) + inSilence;
  task.mFrames.assign(inFrames, inFrames + samples);
  task.mChannels = account.mChannels;
  Post(std::move(task));
  return true;
}

void FileWriter::Close(FileID inFile) {
  auto found = mAccounts.find(inFile);
  if (found == mAccounts.end()) return;
  Task task;
  task.mKind = Kind::kClose;
  task.mFile = inFile;
  task.mSilence = found->second.mOwedSilence;
  mAccounts.erase(found);
  Post(std::move(task));
}

void FileWriter::Drain() {
  MutexLock lock(mMutex);
  while (!mTasks.empty() || mBusy) mChanged.wait(mMutex);
}

size_t FileWriter::GetWaitingBytes() {
  MutexLock lock(mMutex);
  return mWaitingBytes;
}

void FileWriter::Post(Task inTask) {
  {
    MutexLock lock(mMutex);
    mTasks.push_back(std::move(inTask));
  }
  mChanged.notify_all();
}

void FileWriter::Run() {
  for (;;) {
    Task task;
    {
      MutexLock lock(mMutex);
      mBusy = false;
      if (mTasks.empty()) mChanged.notify_all();
      while (mTasks.empty() && !mEnd) mChanged.wait(mMutex);
      if (mTasks.empty()) break;
      task = std::move(mTasks.front());
      mTasks.pop_front();
      mBusy = true;
    }
    Perform(task);
    MutexLock lock(mMutex);
    mWaitingBytes -= task.mFrames.size() * sizeof(float);
    Recycle(std::move(task.mFrames));
  }
  mFiles.clear();
}

void FileWriter::Perform(Task& ioTask) {
  std::string error;
  if (ioTask.mKind == Kind::kAdopt) {
    mFiles[ioTask.mFile].mFile = std::move(ioTask.mAdopted);
    return;
  }
  if (ioTask.mKind == Kind::kOpen) {
    auto file = RecordingFile::Create(ioTask.mPath, ioTask.mRate, ioTask.mChannels, error);
    if (file == nullptr) {
      mOnError(error);
    } else {
      mFiles[ioTask.mFile].mFile = std::move(file);
    }
    return;
  }
  auto found = mFiles.find(ioTask.mFile);
  if (found == mFiles.end()) return;
  RecordingFile& file = *found->second.mFile;
  const uint64_t frames =
      ioTask.mKind == Kind::kWrite ? ioTask.mFrames.size() / ioTask.mChannels : 0;
  if (!file.WriteSilence(ioTask.mSilence) ||
      (frames > 0 && !file.Write(ioTask.mFrames.data(), frames))) {
    mOnError(file.GetError());
    mFiles.erase(found);
    return;
  }
  if (ioTask.mKind == Kind::kClose) {
    mFiles.erase(found);
    return;
  }
  found->second.mUnflushed += frames + ioTask.mSilence;
  if (found->second.mUnflushed >= kFlushFrames) {
    file.Flush();
    found->second.mUnflushed = 0;
  }
}

void FileWriter::Recycle(std::vector<float> inBuffer) {
  if (mSpare.size() < kMaxSpare) mSpare.push_back(std::move(inBuffer));
}

}  // namespace tembra
