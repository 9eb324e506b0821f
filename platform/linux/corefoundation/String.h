#pragma once

#include <CoreFoundation/CFString.h>

#include <atomic>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "corefoundation/Object.h"

// UTF-16 text. Immutable text stands behind the object, in the same block, or is a constant;
// mutable text owns a malloc buffer.
struct __CFString : tembra::cf::Object {
  // A constant: the characters live as long as the process.
  constexpr __CFString(const UniChar* inCharacters, CFIndex inLength)
      : Object(true), mCharacters(inCharacters), mLength(inLength) {}
  explicit __CFString(bool inIsMutable) : mIsMutable(inIsMutable) {}
  constexpr ~__CFString() override {
    if (mIsMutable) FreeBuffer();
  }
  CFTypeID GetTypeID() const override { return tembra::cf::kTypeString; }
  bool IsEqual(const Object& inOther) const override;
  // The same in every process: names that processes agree on are made with it.
  CFHashCode Hash() const override;
  // As a key of a dictionary; another one in every process.
  CFHashCode KeyHash() const;
  CFStringRef CopyDescription() const override;

  void FreeBuffer();
  // Mutable text: puts other characters in the place of a range; false if memory runs out, the
  // range is not within the text or the limit would be passed. The characters may be this text's.
  bool Replace(CFRange inRange, const UniChar* inCharacters, CFIndex inLength);

  const UniChar* mCharacters = nullptr;
  CFIndex mLength = 0;
  CFIndex mCapacity = 0;
  CFIndex mLimit = 0;
  bool mIsMutable = false;
  // Of immutable text, once it was asked for; 0 before.
  mutable std::atomic<CFHashCode> mKeyHash{0};
};

namespace tembra::cf {

// The ASCII text of a constant string, as UTF-16.
template <size_t N>
struct ConstantText {
  consteval ConstantText(const char (&inText)[N]) {
    for (size_t i = 0; i < N; ++i) mCharacters[i] = static_cast<unsigned char>(inText[i]);
  }
  UniChar mCharacters[N]{};
};

template <ConstantText kText>
inline constinit Immortal<__CFString> sConstantString{
    kText.mCharacters, static_cast<CFIndex>(std::size(kText.mCharacters) - 1)};

// A constant string that needs no look-up and exists before any code runs.
template <ConstantText kText>
constexpr CFStringRef Constant() {
  return &sConstantString<kText>.mValue;
}

CFStringRef CreateString(CFAllocatorRef inAllocator, const UniChar* inCharacters, CFIndex inLength);
// Null if the text is not UTF-8.
CFStringRef CreateString(std::string_view inUTF8);
// UTF-8; an unpaired surrogate becomes U+FFFD.
std::string ToUTF8(CFStringRef inString);
// Upper and lower case of one letter compare equal after this. The letters of Latin, Greek and
// Cyrillic that have one code unit each; independent of the locale.
UniChar FoldCase(UniChar inCharacter);

void AppendFormat(std::vector<UniChar>& ioText, CFStringRef inFormat, va_list inArguments);

}  // namespace tembra::cf
