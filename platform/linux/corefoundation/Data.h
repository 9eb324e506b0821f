#pragma once

#include <CoreFoundation/CFData.h>

#include "corefoundation/Object.h"

// Bytes. Immutable data either has its bytes behind the object, in the same block, or holds a
// buffer of its creator's; mutable data owns a malloc buffer.
struct __CFData : tembra::cf::Object {
  enum class Kind : UInt8 { kInline, kForeign, kMutable };

  explicit __CFData(Kind inKind) : mKind(inKind) {}
  ~__CFData() override;
  CFTypeID GetTypeID() const override { return tembra::cf::kTypeData; }
  bool IsEqual(const Object& inOther) const override;
  CFHashCode Hash() const override;

  // Mutable data only. False if it may not or cannot grow so far.
  bool Resize(CFIndex inLength);

  UInt8* mBytes = nullptr;
  CFIndex mLength = 0;
  Kind mKind;
  union {
    // kForeign: who frees the bytes; null for the default allocator.
    CFAllocatorRef mBytesDeallocator = nullptr;
    // kMutable: what the buffer holds.
    CFIndex mCapacity;
  };
  // kMutable: the most it may hold; 0 for no limit.
  CFIndex mLimit = 0;
};
