#include "support/CACFNumber.h"

#include "support/CACFValue.h"

namespace {

template <class T>
T GetValue(CFNumberRef inNumber) {
  T theValue = 0;
  CACFValue::Get(inNumber, theValue);
  return theValue;
}

}  // namespace

CACFNumber::CACFNumber(SInt32 inValue)
    : CACFObject(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt32Type, &inValue)) {}

CACFNumber::CACFNumber(UInt32 inValue) : CACFNumber(static_cast<SInt32>(inValue)) {}

CACFNumber::CACFNumber(SInt64 inValue)
    : CACFObject(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, &inValue)) {}

CACFNumber::CACFNumber(UInt64 inValue) : CACFNumber(static_cast<SInt64>(inValue)) {}

CACFNumber::CACFNumber(Float32 inValue)
    : CACFObject(CFNumberCreate(kCFAllocatorDefault, kCFNumberFloat32Type, &inValue)) {}

CACFNumber::CACFNumber(Float64 inValue)
    : CACFObject(CFNumberCreate(kCFAllocatorDefault, kCFNumberFloat64Type, &inValue)) {}

SInt32 CACFNumber::GetSInt32() const {
  return GetValue<SInt32>(mObject);
}

SInt64 CACFNumber::GetSInt64() const {
  return GetValue<SInt64>(mObject);
}

Float32 CACFNumber::GetFloat32() const {
  return GetValue<Float32>(mObject);
}

Float64 CACFNumber::GetFloat64() const {
  return GetValue<Float64>(mObject);
}
