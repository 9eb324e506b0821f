#pragma once

#include <CoreAudio/CoreAudioTypes.h>

#include <cstdint>
#include <vector>

#include "base/Mutex.h"

namespace tembra {

// Frames on their way to something that plays them as they come. It is bounded: what comes while
// it is full pushes the oldest frames out, so the delay never grows beyond the bound.
//
// Thread: one puts, one takes. Units: interleaved frames.
class LiveQueue {
 public:
  LiveQueue(UInt32 inChannels, uint64_t inMaxFrames);

  void Put(const float* inFrames, UInt32 inCount);
  // Waits until inCount frames are there, the time is over or the queue is ended; takes at most
  // inCount frames and answers how many.
  UInt32 Take(float* outFrames, UInt32 inCount, uint64_t inTimeoutNanos);
  // Takers no longer wait; what is there can still be taken.
  void End();
  bool HasEnded();

  UInt32 GetChannels() const { return mChannels; }
  uint64_t GetWaitingFrames();
  uint64_t GetDroppedFrames();

 private:
  const UInt32 mChannels;
  const uint64_t mMaxFrames;
  Mutex mMutex;
  ConditionVariable mChanged;
  std::vector<float> mRing TEMBRA_GUARDED_BY(mMutex);
  uint64_t mFirst TEMBRA_GUARDED_BY(mMutex) = 0;
  uint64_t mCount TEMBRA_GUARDED_BY(mMutex) = 0;
  uint64_t mDropped TEMBRA_GUARDED_BY(mMutex) = 0;
  bool mEnded TEMBRA_GUARDED_BY(mMutex) = false;
};

}  // namespace tembra
