#pragma once

#include <CoreAudio/AudioHardware.h>

#include <cstddef>

// Purpose: where in a table of properties a selector stands, made by the compiler. A property read
//   is the call that clients make most, so it is found by a hash and, rarely, a step or two on.
// Thread: any; RT safe.
// Ownership: none; keeps the selectors, not the table.
// Units and range: at most kMaxSelectors selectors, all different and none of them 0. kNone for a
//   selector that the table lacks.
// Failure: a table that breaks this does not compile.
class HP_SelectorIndex {
 public:
  static constexpr size_t kMaxSelectors = 64;
  static constexpr UInt32 kNone = 0xFFFFFFFF;

  // GetSelector gives an entry's selector.
  template <class Entry, size_t kSize, class GetSelector>
  consteval HP_SelectorIndex(const Entry (&inTable)[kSize], GetSelector inGetSelector) {
    static_assert(kSize <= kMaxSelectors);
    for (UInt32 i = 0; i < kSize; ++i) {
      const AudioObjectPropertySelector theSelector = inGetSelector(inTable[i]);
      if (theSelector == 0 || Find(theSelector) != kNone) throw theSelector;
      UInt32 theSlot = GetSlot(theSelector);
      while (mSlots[theSlot].mSelector != 0) theSlot = (theSlot + 1) % kNumberSlots;
      mSlots[theSlot] = {theSelector, i};
    }
  }

  constexpr UInt32 Find(AudioObjectPropertySelector inSelector) const noexcept {
    UInt32 theSlot = GetSlot(inSelector);
    while (mSlots[theSlot].mSelector != inSelector) {
      if (mSlots[theSlot].mSelector == 0) return kNone;
      theSlot = (theSlot + 1) % kNumberSlots;
    }
    return mSlots[theSlot].mIndex;
  }

 private:
  struct Slot {
    AudioObjectPropertySelector mSelector = 0;  // 0 where the slot is empty
    UInt32 mIndex = kNone;
  };

  // Twice and more as many as selectors, so that a search soon meets an empty one.
  static constexpr UInt32 kNumberSlots = 2 * kMaxSelectors;

  static constexpr UInt32 GetSlot(AudioObjectPropertySelector inSelector) {
    return (inSelector * 0x9E3779B1U) >> 25;
  }
  static_assert(kNumberSlots == UInt32{1} << (32 - 25));

  Slot mSlots[kNumberSlots];
};
