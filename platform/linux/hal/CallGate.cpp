#include "hal/CallGate.h"

#include <mach/mach_time.h>
#include <pthread.h>
#include <time.h>

namespace tembra::hal {

std::atomic<int32_t>* CallGate::Enter() {
  // Any spread will do. Thread handles are addresses of large aligned blocks.
  const size_t spread = static_cast<size_t>(pthread_self()) >> 12;
  std::atomic<int32_t>& inside = mSlots[(spread ^ (spread >> 6)) % kSlots].mInside;
  // In one order with Close: either this count is seen there, or the closed gate here.
  inside.fetch_add(1, std::memory_order_seq_cst);
  if (mIsClosed.load(std::memory_order_seq_cst)) {
    inside.fetch_sub(1, std::memory_order_release);
    return nullptr;
  }
  return &inside;
}

bool CallGate::IsEmpty() const {
  for (const Slot& slot : mSlots) {
    if (slot.mInside.load(std::memory_order_seq_cst) != 0) {
      return false;
    }
  }
  return true;
}

bool CallGate::Close(uint64_t inNanos) {
  mIsClosed.store(true, std::memory_order_seq_cst);
  const uint64_t start = mach_absolute_time();
  while (!IsEmpty()) {
    if (mach_absolute_time() - start >= inNanos) {
      mIsClosed.store(false, std::memory_order_seq_cst);
      return false;
    }
    const timespec pause{0, 1000000};
    nanosleep(&pause, nullptr);
  }
  return true;
}

}  // namespace tembra::hal
