#pragma once

#include <CoreAudio/CoreAudioTypes.h>

#include <cstdint>

namespace tembra {

// What a block's time stamp means for the place of its samples.
struct TimelineStep {
  uint64_t mSilence = 0;  // frames of silence before the block
  bool mStart = false;    // the first block, or one behind a reset
  bool mReset = false;    // the time went backwards or leapt beyond the bound
};

// Puts one client's blocks in order by their sample times.
//
// A client sends nothing for a buffer that is silent or that it could not send, so a gap in its
// time stamps is silence. Its clock is read anew at each wake-up, so the time stamps of buffers
// that follow each other without a gap lie a little more than a buffer apart; that surplus is no
// silence, for nothing was rendered in it. The timeline therefore counts whole buffers: a step of
// up to one and three quarters is the next buffer, and the surplus seen in such steps is taken
// into account when a longer one is divided into buffers.
//
// Thread: one. Units: frames.
// Failure: a time that goes backwards, or a gap longer than the bound, starts anew without silence.
class Timeline {
 public:
  explicit Timeline(uint64_t inMaxGapFrames) : mMaxGap(inMaxGapFrames) {}

  // inSampleTime is finite.
  TimelineStep Accept(double inSampleTime, UInt32 inFrames);

  uint64_t GetGaps() const { return mGaps; }
  uint64_t GetSilenceFrames() const { return mSilenceFrames; }
  uint64_t GetResets() const { return mResets; }
  // Frames that the client's clock ran while it rendered nothing, because it woke up late.
  double GetSurplusFrames() const { return mSurplusFrames; }

 private:
  bool mStarted = false;
  double mLastTime = 0.0;
  UInt32 mLastFrames = 0;
  double mMeanSurplus = 0.0;
  uint64_t mMaxGap;
  uint64_t mGaps = 0;
  uint64_t mSilenceFrames = 0;
  uint64_t mResets = 0;
  double mSurplusFrames = 0.0;
};

}  // namespace tembra
