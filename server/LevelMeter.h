#pragma once

#include <cstddef>
#include <cstdint>

namespace tembra {

// Peak and mean power of a client's samples, of the whole run and of the time since the last look.
//
// Thread: one. Units: full scale is 1.0; what is not finite counts as 0.
class LevelMeter {
 public:
  void Add(const float* inSamples, size_t inCount);
  // Silence that was not sent.
  void AddSilence(uint64_t inCount) { mCount += inCount; }

  float GetPeak() const { return mPeak; }
  // 0 if there was no sample.
  double GetRootMeanSquare() const;
  // The peak since the last call.
  float TakeRecentPeak();

 private:
  float mPeak = 0.0f;
  float mRecentPeak = 0.0f;
  double mSquares = 0.0;
  uint64_t mCount = 0;
};

}  // namespace tembra
