#include "corefoundation/Number.h"

#include <CoreFoundation/CFString.h>

#include <bit>
#include <cmath>
#include <cstring>
#include <limits>

using namespace tembra::cf;

namespace {

// The kind by width of any kind; 0 for none.
CFNumberType CanonicalType(CFNumberType inType) {
  switch (inType) {
    case kCFNumberSInt8Type:
    case kCFNumberCharType:
      return kCFNumberSInt8Type;
    case kCFNumberSInt16Type:
    case kCFNumberShortType:
      return kCFNumberSInt16Type;
    case kCFNumberSInt32Type:
    case kCFNumberIntType:
      return kCFNumberSInt32Type;
    case kCFNumberSInt64Type:
    case kCFNumberLongType:
    case kCFNumberLongLongType:
    case kCFNumberCFIndexType:
    case kCFNumberNSIntegerType:
      return kCFNumberSInt64Type;
    case kCFNumberFloat32Type:
    case kCFNumberFloatType:
      return kCFNumberFloat32Type;
    case kCFNumberFloat64Type:
    case kCFNumberDoubleType:
    case kCFNumberCGFloatType:
      return kCFNumberFloat64Type;
  }
  return static_cast<CFNumberType>(0);
}

template <class T>
T Load(const void* inPointer) {
  T value;
  std::memcpy(&value, inPointer, sizeof(T));
  return value;
}

template <class T>
void Store(void* outPointer, T inValue) {
  std::memcpy(outPointer, &inValue, sizeof(T));
}

// The nearest integer towards zero that the type holds; false if that is not the same number.
template <class T>
bool StoreInteger(const __CFNumber& inNumber, void* outValue) {
  if (!inNumber.IsReal()) {
    // As on the platform, an integer that is too wide loses its high bits.
    T value = static_cast<T>(inNumber.mInteger);
    Store(outValue, value);
    return !inNumber.mIsUnsigned && value == inNumber.mInteger;
  }
  double real = inNumber.mReal;
  T value;
  if (std::isnan(real)) {
    value = 0;
  } else if (real >= std::ldexp(1.0, std::numeric_limits<T>::digits)) {
    value = std::numeric_limits<T>::max();
  } else if (real < -std::ldexp(1.0, std::numeric_limits<T>::digits)) {
    value = std::numeric_limits<T>::min();
  } else {
    value = static_cast<T>(real);
  }
  Store(outValue, value);
  return static_cast<double>(value) == real &&
         real < std::ldexp(1.0, std::numeric_limits<T>::digits);
}

bool FitsSigned(double inReal) {
  return inReal >= -0x1p63 && inReal < 0x1p63 && std::trunc(inReal) == inReal;
}

bool StoreReal(const __CFNumber& inNumber, bool inSingle, void* outValue) {
  double real = inNumber.AsDouble();
  bool exact = true;
  if (!inNumber.IsReal()) {
    exact =
        inNumber.mIsUnsigned
            ? real < 0x1p64 && static_cast<UInt64>(real) == static_cast<UInt64>(inNumber.mInteger)
            : FitsSigned(real) && static_cast<SInt64>(real) == inNumber.mInteger;
  }
  if (!inSingle) {
    Store(outValue, real);
    return exact;
  }
  float single = static_cast<float>(real);
  Store(outValue, single);
  return exact && (std::isnan(real) || static_cast<double>(single) == real);
}

CFComparisonResult Order(bool inLess, bool inGreater) {
  if (inLess) return kCFCompareLessThan;
  return inGreater ? kCFCompareGreaterThan : kCFCompareEqualTo;
}

CFComparisonResult CompareIntegers(const __CFNumber& inFirst, const __CFNumber& inSecond) {
  if (inFirst.mIsUnsigned != inSecond.mIsUnsigned) {
    return inFirst.mIsUnsigned ? kCFCompareGreaterThan : kCFCompareLessThan;
  }
  // Two unsigned ones both have the top bit set, so their order is that of the signed bits.
  return Order(inFirst.mInteger<inSecond.mInteger, inFirst.mInteger> inSecond.mInteger);
}

CFComparisonResult CompareIntegerToReal(const __CFNumber& inInteger, double inReal) {
  if (std::isnan(inReal)) {
    return !inInteger.mIsUnsigned && inInteger.mInteger < 0 ? kCFCompareLessThan
                                                            : kCFCompareGreaterThan;
  }
  if (inInteger.mIsUnsigned) {
    if (inReal < 0x1p63) return kCFCompareGreaterThan;
    if (inReal >= 0x1p64) return kCFCompareLessThan;
    UInt64 integer = static_cast<UInt64>(inInteger.mInteger);
    UInt64 real = static_cast<UInt64>(inReal);
    return Order(integer<real, integer> real);
  }
  if (inReal < -0x1p63) return kCFCompareGreaterThan;
  if (inReal >= 0x1p63) return kCFCompareLessThan;
  double whole = std::trunc(inReal);
  SInt64 real = static_cast<SInt64>(whole);
  if (inInteger.mInteger != real) {
    return inInteger.mInteger < real ? kCFCompareLessThan : kCFCompareGreaterThan;
  }
  return Order(inReal > whole, inReal < whole);
}

CFComparisonResult CompareReals(double inFirst, double inSecond) {
  if (std::isnan(inFirst) && std::isnan(inSecond)) return kCFCompareEqualTo;
  if (std::isnan(inFirst)) return inSecond < 0 ? kCFCompareGreaterThan : kCFCompareLessThan;
  if (std::isnan(inSecond)) return inFirst < 0 ? kCFCompareLessThan : kCFCompareGreaterThan;
  return Order(inFirst<inSecond, inFirst> inSecond);
}

constinit Immortal<__CFNumber> sPositiveInfinity{kCFNumberFloat64Type,
                                                 std::numeric_limits<double>::infinity(), true, 0};
constinit Immortal<__CFNumber> sNegativeInfinity{kCFNumberFloat64Type,
                                                 -std::numeric_limits<double>::infinity(), true, 0};
constinit Immortal<__CFNumber> sNaN{kCFNumberFloat64Type, std::numeric_limits<double>::quiet_NaN(),
                                    true, 0};

}  // namespace

constinit const CFNumberRef kCFNumberPositiveInfinity = &sPositiveInfinity.mValue;
constinit const CFNumberRef kCFNumberNegativeInfinity = &sNegativeInfinity.mValue;
constinit const CFNumberRef kCFNumberNaN = &sNaN.mValue;

bool __CFNumber::IsEqual(const Object& inOther) const {
  return CFNumberCompare(this, static_cast<const __CFNumber*>(&inOther), nullptr) ==
         kCFCompareEqualTo;
}

CFHashCode __CFNumber::Hash() const {
  // Equal numbers of different kinds must agree, so whole reals hash as integers.
  if (!IsReal()) return static_cast<CFHashCode>(mInteger) * 2654435761UL;
  if (FitsSigned(mReal)) {
    return static_cast<CFHashCode>(static_cast<SInt64>(mReal)) * 2654435761UL;
  }
  if (mReal >= 0x1p63 && mReal < 0x1p64) return static_cast<UInt64>(mReal) * 2654435761UL;
  if (std::isnan(mReal)) return 1;
  return std::bit_cast<UInt64>(mReal) * 2654435761UL;
}

CFStringRef __CFNumber::CopyDescription() const {
  if (IsReal()) return CFStringCreateWithFormat(nullptr, nullptr, CFSTR("%.17g"), mReal);
  return CFStringCreateWithFormat(nullptr, nullptr, mIsUnsigned ? CFSTR("%llu") : CFSTR("%lld"),
                                  mInteger);
}

namespace tembra::cf {

CFNumberRef CreateUnsignedNumber(CFAllocatorRef inAllocator, UInt64 inValue) {
  return Create<__CFNumber>(inAllocator, kCFNumberSInt64Type, static_cast<SInt64>(inValue),
                            inValue >> 63 != 0);
}

}  // namespace tembra::cf

CFTypeID CFNumberGetTypeID() {
  return kTypeNumber;
}

CFNumberRef CFNumberCreate(CFAllocatorRef inAllocator, CFNumberType inType, const void* inValue) {
  if (!inValue) return nullptr;
  CFNumberType type = CanonicalType(inType);
  switch (type) {
    case kCFNumberSInt8Type:
      return Create<__CFNumber>(inAllocator, type, SInt64{Load<SInt8>(inValue)}, false);
    case kCFNumberSInt16Type:
      return Create<__CFNumber>(inAllocator, type, SInt64{Load<SInt16>(inValue)}, false);
    case kCFNumberSInt32Type:
      return Create<__CFNumber>(inAllocator, type, SInt64{Load<SInt32>(inValue)}, false);
    case kCFNumberSInt64Type:
      return Create<__CFNumber>(inAllocator, type, Load<SInt64>(inValue), false);
    case kCFNumberFloat32Type:
      return Create<__CFNumber>(inAllocator, type, double{Load<Float32>(inValue)}, false, 0);
    case kCFNumberFloat64Type:
      return Create<__CFNumber>(inAllocator, type, Load<Float64>(inValue), false, 0);
    default:
      return nullptr;
  }
}

CFNumberType CFNumberGetType(CFNumberRef inNumber) {
  return inNumber->mType;
}

CFIndex CFNumberGetByteSize(CFNumberRef inNumber) {
  switch (inNumber->mType) {
    case kCFNumberSInt8Type:
      return 1;
    case kCFNumberSInt16Type:
      return 2;
    case kCFNumberSInt32Type:
    case kCFNumberFloat32Type:
      return 4;
    default:
      return 8;
  }
}

Boolean CFNumberIsFloatType(CFNumberRef inNumber) {
  return inNumber->IsReal();
}

Boolean CFNumberGetValue(CFNumberRef inNumber, CFNumberType inType, void* outValue) {
  UInt64 unused;
  if (!outValue) outValue = &unused;
  switch (CanonicalType(inType)) {
    case kCFNumberSInt8Type:
      return StoreInteger<SInt8>(*inNumber, outValue);
    case kCFNumberSInt16Type:
      return StoreInteger<SInt16>(*inNumber, outValue);
    case kCFNumberSInt32Type:
      return StoreInteger<SInt32>(*inNumber, outValue);
    case kCFNumberSInt64Type:
      return StoreInteger<SInt64>(*inNumber, outValue);
    case kCFNumberFloat32Type:
      return StoreReal(*inNumber, true, outValue);
    case kCFNumberFloat64Type:
      return StoreReal(*inNumber, false, outValue);
    default:
      return false;
  }
}

CFComparisonResult CFNumberCompare(CFNumberRef inNumber, CFNumberRef inOther, void*) {
  if (inNumber->IsReal() && inOther->IsReal()) {
    return CompareReals(inNumber->mReal, inOther->mReal);
  }
  if (inNumber->IsReal()) {
    return static_cast<CFComparisonResult>(-CompareIntegerToReal(*inOther, inNumber->mReal));
  }
  if (inOther->IsReal()) return CompareIntegerToReal(*inNumber, inOther->mReal);
  return CompareIntegers(*inNumber, *inOther);
}
