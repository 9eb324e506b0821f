#include "server/LevelMeter.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace tembra {

void LevelMeter::Add(const float* inSamples, size_t inCount) {
  // Eight independent sums, so that the compiler may use vector registers.
  constexpr size_t kLanes = 8;
  std::array<float, kLanes> squares{};
  std::array<float, kLanes> peaks{};
  auto take = [&](size_t inLane, float inSample) {
    const float sample = std::fabs(inSample) <= 3.4e38f ? std::fabs(inSample) : 0.0f;
    squares[inLane] += sample * sample;
    peaks[inLane] = std::max(peaks[inLane], sample);
  };
  size_t i = 0;
  for (; i + kLanes <= inCount; i += kLanes) {
    for (size_t lane = 0; lane < kLanes; ++lane) take(lane, inSamples[i + lane]);
  }
  for (; i < inCount; ++i) take(0, inSamples[i]);

  for (float sum : squares) mSquares += static_cast<double>(sum);
  const float peak = *std::max_element(peaks.begin(), peaks.end());
  mPeak = std::max(mPeak, peak);
  mRecentPeak = std::max(mRecentPeak, peak);
  mCount += inCount;
}

double LevelMeter::GetRootMeanSquare() const {
  return mCount != 0 ? std::sqrt(mSquares / static_cast<double>(mCount)) : 0.0;
}

float LevelMeter::TakeRecentPeak() {
  const float peak = mRecentPeak;
  mRecentPeak = 0.0f;
  return peak;
}

}  // namespace tembra
