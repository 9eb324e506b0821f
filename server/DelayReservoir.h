#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace tembra {

// The distribution of a client's delays in bounded memory: every value up to kCapacity, a fair
// random choice of that many beyond.
//
// Thread: one. Units: nanoseconds, signed.
class DelayReservoir {
 public:
  static constexpr size_t kCapacity = 4096;

  void Add(int64_t inDelay);
  uint64_t GetCount() const { return mCount; }
  // The smallest value that at least this share (0 to 1) of the values do not exceed; 0 if there
  // is none.
  int64_t GetQuantile(double inShare) const;
  int64_t GetLargest() const { return mLargest; }

 private:
  std::vector<int64_t> mValues;
  uint64_t mCount = 0;
  int64_t mLargest = 0;
  uint64_t mRandom = 0x9E3779B97F4A7C15;
};

}  // namespace tembra
