#pragma once

#include <CoreFoundation/CFBase.h>

#include "corefoundation/Object.h"

// Where objects and buffers get their memory. Immutable, so it may be used from any thread as far
// as its functions allow.
struct __CFAllocator : tembra::cf::Object {
  constexpr __CFAllocator(const CFAllocatorContext& inContext, bool inImmortal)
      : Object(inImmortal), mContext(inContext) {}
  ~__CFAllocator() override {
    if (mContext.release) mContext.release(mContext.info);
  }
  CFTypeID GetTypeID() const override { return tembra::cf::kTypeAllocator; }

  CFAllocatorContext mContext;
};

namespace tembra::cf {

// Null for every way to name the default allocator.
inline CFAllocatorRef NormalAllocator(CFAllocatorRef inAllocator) {
  return inAllocator == kCFAllocatorSystemDefault || inAllocator == kCFAllocatorMalloc ||
                 inAllocator == kCFAllocatorMallocZone
             ? nullptr
             : inAllocator;
}

}  // namespace tembra::cf
