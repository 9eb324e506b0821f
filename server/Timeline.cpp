#include "server/Timeline.h"

#include <algorithm>
#include <cmath>

namespace tembra {

TimelineStep Timeline::Accept(double inSampleTime, UInt32 inFrames) {
  TimelineStep step;
  const double distance = inSampleTime - mLastTime;
  const double beyond = distance - mLastFrames;
  if (!mStarted) {
    step.mStart = true;
  } else if (distance <= 0.0 || beyond > static_cast<double>(mMaxGap)) {
    step.mStart = true;
    step.mReset = true;
    ++mResets;
    mMeanSurplus = 0.0;
  } else {
    const double size = inFrames;
    const double missing = std::floor((beyond - mMeanSurplus + size / 4.0) / (size + mMeanSurplus));
    if (missing >= 1.0) {
      step.mSilence = static_cast<uint64_t>(missing) * inFrames;
      ++mGaps;
      mSilenceFrames += step.mSilence;
    } else {
      mMeanSurplus =
          std::clamp(mMeanSurplus + (beyond - mMeanSurplus) / 16.0, 0.0, mLastFrames / 4.0);
      mSurplusFrames += beyond;
    }
  }
  mStarted = true;
  mLastTime = inSampleTime;
  mLastFrames = inFrames;
  return step;
}

}  // namespace tembra
