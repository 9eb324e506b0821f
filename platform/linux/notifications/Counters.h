#pragma once

#include <atomic>
#include <cstdint>

namespace tembra::notifications {

// What the process counted; relaxed, each for itself.
struct Counters {
  std::atomic<uint64_t> received, delivered, malformed, unauthorized, overflowed, posted, postsLost,
      refused, swept;
};

extern Counters gCounters;

inline void Count(std::atomic<uint64_t>& ioCounter, uint64_t inAdd = 1) {
  ioCounter.fetch_add(inAdd, std::memory_order_relaxed);
}

}  // namespace tembra::notifications
