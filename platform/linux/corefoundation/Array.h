#pragma once

#include <CoreFoundation/CFArray.h>

#include <vector>

#include "corefoundation/Object.h"

struct __CFArray : tembra::cf::Object {
  // Null callbacks: plain pointers.
  __CFArray(const CFArrayCallBacks* inCallBacks, bool inIsMutable);
  ~__CFArray() override;
  CFTypeID GetTypeID() const override { return tembra::cf::kTypeArray; }
  bool IsEqual(const Object& inOther) const override;
  CFHashCode Hash() const override { return mValues.size(); }
  CFStringRef CopyDescription() const override;

  CFIndex Count() const { return static_cast<CFIndex>(mValues.size()); }
  bool AreEqual(const void* inFirst, const void* inSecond) const {
    return inFirst == inSecond || (mCallBacks.equal && mCallBacks.equal(inFirst, inSecond));
  }
  // Replaces the values of a range within the array.
  void Replace(CFRange inRange, const void* const* inValues, CFIndex inCount);

  const void* Retain(const void* inValue) const {
    return mCallBacks.retain ? mCallBacks.retain(GetAllocator(), inValue) : inValue;
  }
  void Release(const void* inValue) const {
    if (mCallBacks.release) mCallBacks.release(GetAllocator(), inValue);
  }

  const CFArrayCallBacks mCallBacks;
  const bool mIsMutable;
  std::vector<const void*> mValues;
};
