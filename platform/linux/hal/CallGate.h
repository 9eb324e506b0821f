#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace tembra::hal {

// Counts the calls that are inside a plug-in, so that the plug-in can be taken down when there are
// none. A call enters and leaves without a lock; only the one who closes the gate waits.
class CallGate {
 public:
  // One call's stay. Tests false if the gate was closed.
  class Pass {
   public:
    explicit Pass(CallGate& inGate) : mSlot(inGate.Enter()) {}
    ~Pass() {
      if (mSlot) {
        mSlot->fetch_sub(1, std::memory_order_release);
      }
    }
    Pass(const Pass&) = delete;
    Pass& operator=(const Pass&) = delete;
    explicit operator bool() const { return mSlot != nullptr; }

   private:
    std::atomic<int32_t>* mSlot;
  };

  // Lets nobody else in and waits until all have left, at most inNanos. False if somebody stayed:
  // the gate is then open again.
  bool Close(uint64_t inNanos);

 private:
  friend class Pass;

  // A cache line each, so that threads do not meet in one.
  struct alignas(64) Slot {
    std::atomic<int32_t> mInside{0};
  };
  static constexpr size_t kSlots = 8;

  std::atomic<int32_t>* Enter();
  bool IsEmpty() const;

  std::array<Slot, kSlots> mSlots;
  std::atomic<bool> mIsClosed{false};
};

}  // namespace tembra::hal
