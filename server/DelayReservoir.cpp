#include "server/DelayReservoir.h"

#include <algorithm>
#include <cmath>

namespace tembra {

void DelayReservoir::Add(int64_t inDelay) {
  mLargest = mCount == 0 ? inDelay : std::max(mLargest, inDelay);
  ++mCount;
  if (mValues.size() < kCapacity) {
    mValues.push_back(inDelay);
    return;
  }
  // xorshift: the choice need not be secret, only even.
  mRandom ^= mRandom << 13;
  mRandom ^= mRandom >> 7;
  mRandom ^= mRandom << 17;
  const uint64_t slot = mRandom % mCount;
  if (slot < kCapacity) mValues[slot] = inDelay;
}

int64_t DelayReservoir::GetQuantile(double inShare) const {
  if (mValues.empty()) return 0;
  std::vector<int64_t> sorted = mValues;
  const double rank = std::ceil(inShare * static_cast<double>(sorted.size()));
  const size_t index = rank < 1.0 ? 0 : std::min(static_cast<size_t>(rank), sorted.size()) - 1;
  std::nth_element(sorted.begin(), sorted.begin() + static_cast<ptrdiff_t>(index), sorted.end());
  return sorted[index];
}

}  // namespace tembra
