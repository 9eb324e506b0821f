#pragma once

#include <CoreAudio/AudioHardware.h>

#include <vector>

// Purpose: a property address, and the tests that let a wildcard in either address match.
// Thread: a value.
// Ownership: none.
// Units and range: '****' is the wildcard of selectors and scopes, 0xFFFFFFFF that of elements.
//   Congruence is symmetric but not transitive.
// Failure: none.
struct CAPropertyAddress : public AudioObjectPropertyAddress {
  CAPropertyAddress() noexcept : CAPropertyAddress(0) {}
  explicit CAPropertyAddress(AudioObjectPropertySelector inSelector,
                             AudioObjectPropertyScope inScope = kAudioObjectPropertyScopeGlobal,
                             AudioObjectPropertyElement inElement = 0) noexcept
      : AudioObjectPropertyAddress() {
    mSelector = inSelector;
    mScope = inScope;
    mElement = inElement;
  }
  CAPropertyAddress(const AudioObjectPropertyAddress& inAddress) noexcept
      : AudioObjectPropertyAddress(inAddress) {}

  static bool IsCongruentSelector(AudioObjectPropertySelector inLeft,
                                  AudioObjectPropertySelector inRight) noexcept {
    return inLeft == inRight || inLeft == kAudioObjectPropertySelectorWildcard ||
           inRight == kAudioObjectPropertySelectorWildcard;
  }
  static bool IsCongruentScope(AudioObjectPropertyScope inLeft,
                               AudioObjectPropertyScope inRight) noexcept {
    return inLeft == inRight || inLeft == kAudioObjectPropertyScopeWildcard ||
           inRight == kAudioObjectPropertyScopeWildcard;
  }
  static bool IsCongruentElement(AudioObjectPropertyElement inLeft,
                                 AudioObjectPropertyElement inRight) noexcept {
    return inLeft == inRight || inLeft == kAudioObjectPropertyElementWildcard ||
           inRight == kAudioObjectPropertyElementWildcard;
  }
  static bool IsCongruentAddress(const AudioObjectPropertyAddress& inLeft,
                                 const AudioObjectPropertyAddress& inRight) noexcept {
    return IsCongruentScope(inLeft.mScope, inRight.mScope) &&
           IsCongruentSelector(inLeft.mSelector, inRight.mSelector) &&
           IsCongruentElement(inLeft.mElement, inRight.mElement);
  }

  struct CongruentEqualTo {
    bool operator()(const AudioObjectPropertyAddress& inLeft,
                    const AudioObjectPropertyAddress& inRight) const noexcept {
      return IsCongruentAddress(inLeft, inRight);
    }
  };
};

// Purpose: addresses in the order of their insertion.
// Thread: one at a time.
// Ownership: holds copies; what GetItems answers is valid until the list changes.
// Units and range: none.
// Failure: none but std::bad_alloc.
class CAPropertyAddressList {
 public:
  UInt32 GetNumberItems() const noexcept { return static_cast<UInt32>(mAddressList.size()); }
  CAPropertyAddress* GetItems() noexcept { return mAddressList.data(); }
  const CAPropertyAddress* GetItems() const noexcept { return mAddressList.data(); }

  // True if any item is congruent with the address.
  bool HasItem(const AudioObjectPropertyAddress& inAddress) const noexcept;
  void AppendItem(const AudioObjectPropertyAddress& inAddress);
  // Unless HasItem: a wildcard in the list absorbs all that it matches.
  void AppendUniqueItem(const AudioObjectPropertyAddress& inAddress);
  void EraseAllItems() noexcept { mAddressList.clear(); }

 private:
  std::vector<CAPropertyAddress> mAddressList;
};
