#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

// Purpose: a few values that belong together, written by one thread and read whole by others
//   without a lock. There are two copies and a sequence counter, whose lowest bit says which copy
//   is being left alone; so a reader never waits for a writer that was interrupted. Release stores
//   and acquire loads alone order it, so that thread checkers can follow it.
// Thread: Store by one thread at a time, which the owner sees to; wait-free. Load by any thread; it
//   tries again only when a writer went on while it was reading. Both RT safe.
// Ownership: holds copies of the value.
// Units and range: any trivially copyable T; the counter wraps after 2^31 writes, which harms a
//   reader only if exactly so many fall into one read.
// Failure: none.
template <class T>
class CASequenceLocked {
  static_assert(std::is_trivially_copyable_v<T>);

 public:
  CASequenceLocked() noexcept { Store(T{}); }
  explicit CASequenceLocked(const T& inValue) noexcept { Store(inValue); }
  CASequenceLocked(const CASequenceLocked&) = delete;
  CASequenceLocked& operator=(const CASequenceLocked&) = delete;

  void Store(const T& inValue) noexcept {
    uint64_t theWords[kNumberWords] = {};
    std::memcpy(theWords, &inValue, sizeof(T));
    const uint32_t theSequence = mSequence.load(std::memory_order_relaxed);
    // Readers go to the second copy while the first is written, and back.
    mSequence.store(theSequence + 1, std::memory_order_release);
    StoreWords(mWords[0], theWords);
    mSequence.store(theSequence + 2, std::memory_order_release);
    StoreWords(mWords[1], theWords);
  }

  T Load() const noexcept {
    uint64_t theWords[kNumberWords];
    uint32_t theSequence;
    do {
      theSequence = mSequence.load(std::memory_order_acquire);
      const std::atomic<uint64_t>* theCopy = mWords[theSequence & 1];
      for (size_t i = 0; i < kNumberWords; ++i) {
        theWords[i] = theCopy[i].load(std::memory_order_acquire);
      }
    } while (mSequence.load(std::memory_order_relaxed) != theSequence);
    T theValue;
    std::memcpy(&theValue, theWords, sizeof(T));
    return theValue;
  }

 private:
  static constexpr size_t kNumberWords = (sizeof(T) + sizeof(uint64_t) - 1) / sizeof(uint64_t);

  // A reader that sees one of these words also sees the counter that was stored before it.
  static void StoreWords(std::atomic<uint64_t>* outCopy, const uint64_t* inWords) noexcept {
    for (size_t i = 0; i < kNumberWords; ++i) {
      outCopy[i].store(inWords[i], std::memory_order_release);
    }
  }

  std::atomic<uint64_t> mWords[2][kNumberWords] = {};
  std::atomic<uint32_t> mSequence{0};
};
