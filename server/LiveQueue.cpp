#include "server/LiveQueue.h"

#include <algorithm>
#include <chrono>

namespace tembra {

LiveQueue::LiveQueue(UInt32 inChannels, uint64_t inMaxFrames)
    : mChannels(inChannels), mMaxFrames(inMaxFrames), mRing(inChannels * inMaxFrames) {}

void LiveQueue::Put(const float* inFrames, UInt32 inCount) {
  uint64_t count = inCount;
  {
    MutexLock lock(mMutex);
    if (count > mMaxFrames) {
      mDropped += count - mMaxFrames;
      inFrames += (count - mMaxFrames) * mChannels;
      count = mMaxFrames;
    }
    const uint64_t excess = mCount + count > mMaxFrames ? mCount + count - mMaxFrames : 0;
    mFirst = (mFirst + excess) % mMaxFrames;
    mCount -= excess;
    mDropped += excess;
    for (uint64_t done = 0; done < count;) {
      const uint64_t place = (mFirst + mCount) % mMaxFrames;
      const uint64_t part = std::min(count - done, mMaxFrames - place);
      std::copy_n(inFrames + done * mChannels, part * mChannels,
                  mRing.begin() + static_cast<ptrdiff_t>(place * mChannels));
      mCount += part;
      done += part;
    }
  }
  mChanged.notify_all();
}

UInt32 LiveQueue::Take(float* outFrames, UInt32 inCount, uint64_t inTimeoutNanos) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::nanoseconds(inTimeoutNanos);
  MutexLock lock(mMutex);
  while (mCount < inCount && !mEnded) {
    if (mChanged.wait_until(mMutex, deadline) == std::cv_status::timeout) break;
  }
  const uint64_t count = std::min<uint64_t>(inCount, mCount);
  for (uint64_t done = 0; done < count;) {
    const uint64_t part = std::min(count - done, mMaxFrames - mFirst);
    std::copy_n(mRing.begin() + static_cast<ptrdiff_t>(mFirst * mChannels), part * mChannels,
                outFrames + done * mChannels);
    mFirst = (mFirst + part) % mMaxFrames;
    mCount -= part;
    done += part;
  }
  return static_cast<UInt32>(count);
}

void LiveQueue::End() {
  {
    MutexLock lock(mMutex);
    mEnded = true;
  }
  mChanged.notify_all();
}

bool LiveQueue::HasEnded() {
  MutexLock lock(mMutex);
  return mEnded;
}

uint64_t LiveQueue::GetWaitingFrames() {
  MutexLock lock(mMutex);
  return mCount;
}

uint64_t LiveQueue::GetDroppedFrames() {
  MutexLock lock(mMutex);
  return mDropped;
}

}  // namespace tembra
