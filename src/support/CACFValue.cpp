#include "support/CACFValue.h"

namespace CACFValue {
namespace {

// A conversion that loses something is a conversion all the same.
template <class T>
bool GetNumber(CFTypeRef inValue, CFNumberType inType, T& outValue) {
  if (inValue == nullptr || CFGetTypeID(inValue) != CFNumberGetTypeID()) return false;
  CFNumberGetValue(static_cast<CFNumberRef>(inValue), inType, &outValue);
  return true;
}

template <class T>
bool GetReference(CFTypeRef inValue, CFTypeID inTypeID, T& outValue) {
  if (inValue == nullptr || CFGetTypeID(inValue) != inTypeID) return false;
  outValue = static_cast<T>(inValue);
  return true;
}

}  // namespace

bool Get(CFTypeRef inValue, bool& outValue) {
  if (inValue == nullptr) return false;
  if (CFGetTypeID(inValue) == CFBooleanGetTypeID()) {
    outValue = CFBooleanGetValue(static_cast<CFBooleanRef>(inValue)) != 0;
    return true;
  }
  Float64 theNumber = 0;
  if (!Get(inValue, theNumber)) return false;
  outValue = theNumber != 0;
  return true;
}

bool Get(CFTypeRef inValue, SInt32& outValue) {
  return GetNumber(inValue, kCFNumberSInt32Type, outValue);
}

// By way of the wider number, so that a value above 2^31 is right whichever way it was kept.
bool Get(CFTypeRef inValue, UInt32& outValue) {
  SInt64 theValue = 0;
  if (!Get(inValue, theValue)) return false;
  outValue = static_cast<UInt32>(theValue);
  return true;
}

bool Get(CFTypeRef inValue, SInt64& outValue) {
  return GetNumber(inValue, kCFNumberSInt64Type, outValue);
}

bool Get(CFTypeRef inValue, UInt64& outValue) {
  return GetNumber(inValue, kCFNumberSInt64Type, outValue);
}

bool Get(CFTypeRef inValue, Float32& outValue) {
  return GetNumber(inValue, kCFNumberFloat32Type, outValue);
}

bool Get(CFTypeRef inValue, Float64& outValue) {
  return GetNumber(inValue, kCFNumberFloat64Type, outValue);
}

bool Get(CFTypeRef inValue, CFStringRef& outValue) {
  return GetReference(inValue, CFStringGetTypeID(), outValue);
}

bool Get(CFTypeRef inValue, CFArrayRef& outValue) {
  return GetReference(inValue, CFArrayGetTypeID(), outValue);
}

bool Get(CFTypeRef inValue, CFDictionaryRef& outValue) {
  return GetReference(inValue, CFDictionaryGetTypeID(), outValue);
}

bool Get(CFTypeRef inValue, CFDataRef& outValue) {
  return GetReference(inValue, CFDataGetTypeID(), outValue);
}

bool Get(CFTypeRef inValue, CFUUIDRef& outValue) {
  return GetReference(inValue, CFUUIDGetTypeID(), outValue);
}

bool Get4CC(CFTypeRef inValue, UInt32& outValue) {
  CFStringRef theString = nullptr;
  if (!Get(inValue, theString)) return Get(inValue, outValue);
  UInt8 theBytes[4];
  CFIndex theSize = 0;
  const CFRange theAll = CFRangeMake(0, CFStringGetLength(theString));
  if (theAll.length != 4 || CFStringGetBytes(theString, theAll, kCFStringEncodingASCII, 0, false,
                                             theBytes, sizeof(theBytes), &theSize) != 4) {
    return false;
  }
  outValue = UInt32{theBytes[0]} << 24 | UInt32{theBytes[1]} << 16 | UInt32{theBytes[2]} << 8 |
             UInt32{theBytes[3]};
  return true;
}

}  // namespace CACFValue
