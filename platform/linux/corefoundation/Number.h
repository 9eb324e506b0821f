#pragma once

#include <CoreFoundation/CFNumber.h>

#include "corefoundation/Object.h"

// A number and the kind that it was made with.
struct __CFNumber : tembra::cf::Object {
  constexpr __CFNumber(CFNumberType inType, SInt64 inInteger, bool inIsUnsigned)
      : mType(inType), mIsUnsigned(inIsUnsigned), mInteger(inInteger) {}
  constexpr __CFNumber(CFNumberType inType, double inReal, bool inImmortal, int)
      : Object(inImmortal), mType(inType), mIsUnsigned(false), mReal(inReal) {}
  CFTypeID GetTypeID() const override { return tembra::cf::kTypeNumber; }
  bool IsEqual(const Object& inOther) const override;
  CFHashCode Hash() const override;
  CFStringRef CopyDescription() const override;

  bool IsReal() const { return mType == kCFNumberFloat32Type || mType == kCFNumberFloat64Type; }
  // The value nearest to this one.
  double AsDouble() const {
    if (IsReal()) return mReal;
    return mIsUnsigned ? static_cast<double>(static_cast<UInt64>(mInteger))
                       : static_cast<double>(mInteger);
  }

  // One of the six kinds named by width.
  const CFNumberType mType;
  // An integer of 2^63 or more, as only a property list can bring it: mInteger holds its bits.
  const bool mIsUnsigned;
  union {
    const SInt64 mInteger;
    const double mReal;
  };
};

namespace tembra::cf {

// The number with this value even where it does not fit a signed integer.
CFNumberRef CreateUnsignedNumber(CFAllocatorRef inAllocator, UInt64 inValue);

}  // namespace tembra::cf
