#include "support/CACFDictionary.h"

#include "support/CACFBoolean.h"
#include "support/CACFNumber.h"
#include "support/CACFValue.h"

CACFDictionary::CACFDictionary(bool inWillRelease)
    : CACFObject(CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks,
                                           &kCFTypeDictionaryValueCallBacks),
                 inWillRelease),
      mMutable(true) {}

CFMutableDictionaryRef CACFDictionary::GetCFMutableDictionary() const noexcept {
  return mMutable ? const_cast<CFMutableDictionaryRef>(mObject) : nullptr;
}

bool CACFDictionary::HasKey(CFStringRef inKey) const {
  return mObject != nullptr && CFDictionaryContainsKey(mObject, inKey) != 0;
}

UInt32 CACFDictionary::Size() const {
  return mObject != nullptr ? static_cast<UInt32>(CFDictionaryGetCount(mObject)) : 0;
}

void CACFDictionary::GetKeys(const void** outKeys) const {
  GetKeysAndValues(outKeys, nullptr);
}

void CACFDictionary::GetKeysAndValues(const void** outKeys, const void** outValues) const {
  if (mObject != nullptr) CFDictionaryGetKeysAndValues(mObject, outKeys, outValues);
}

CFTypeRef CACFDictionary::GetValue(CFStringRef inKey) const {
  return mObject != nullptr ? CFDictionaryGetValue(mObject, inKey) : nullptr;
}

bool CACFDictionary::GetBool(CFStringRef inKey, bool& outValue) const {
  return CACFValue::Get(GetValue(inKey), outValue);
}

bool CACFDictionary::GetSInt32(CFStringRef inKey, SInt32& outValue) const {
  return CACFValue::Get(GetValue(inKey), outValue);
}

bool CACFDictionary::GetUInt32(CFStringRef inKey, UInt32& outValue) const {
  return CACFValue::Get(GetValue(inKey), outValue);
}

bool CACFDictionary::GetSInt64(CFStringRef inKey, SInt64& outValue) const {
  return CACFValue::Get(GetValue(inKey), outValue);
}

bool CACFDictionary::GetUInt64(CFStringRef inKey, UInt64& outValue) const {
  return CACFValue::Get(GetValue(inKey), outValue);
}

bool CACFDictionary::GetFloat32(CFStringRef inKey, Float32& outValue) const {
  return CACFValue::Get(GetValue(inKey), outValue);
}

bool CACFDictionary::GetFloat64(CFStringRef inKey, Float64& outValue) const {
  return CACFValue::Get(GetValue(inKey), outValue);
}

bool CACFDictionary::GetString(CFStringRef inKey, CFStringRef& outValue) const {
  return CACFValue::Get(GetValue(inKey), outValue);
}

bool CACFDictionary::GetArray(CFStringRef inKey, CFArrayRef& outValue) const {
  return CACFValue::Get(GetValue(inKey), outValue);
}

bool CACFDictionary::GetDictionary(CFStringRef inKey, CFDictionaryRef& outValue) const {
  return CACFValue::Get(GetValue(inKey), outValue);
}

bool CACFDictionary::GetData(CFStringRef inKey, CFDataRef& outValue) const {
  return CACFValue::Get(GetValue(inKey), outValue);
}

bool CACFDictionary::Get4CC(CFStringRef inKey, UInt32& outValue) const {
  return CACFValue::Get4CC(GetValue(inKey), outValue);
}

bool CACFDictionary::GetCFType(CFStringRef inKey, CFTypeRef& outValue) const {
  CFTypeRef theValue = GetValue(inKey);
  if (theValue == nullptr) return false;
  outValue = theValue;
  return true;
}

bool CACFDictionary::AddBool(CFStringRef inKey, bool inValue) {
  return AddCFType(inKey, CACFBoolean(inValue).GetCFBoolean());
}

bool CACFDictionary::AddSInt32(CFStringRef inKey, SInt32 inValue) {
  return AddCFType(inKey, CACFNumber(inValue).GetCFNumber());
}

bool CACFDictionary::AddUInt32(CFStringRef inKey, UInt32 inValue) {
  return AddCFType(inKey, CACFNumber(inValue).GetCFNumber());
}

bool CACFDictionary::AddSInt64(CFStringRef inKey, SInt64 inValue) {
  return AddCFType(inKey, CACFNumber(inValue).GetCFNumber());
}

bool CACFDictionary::AddUInt64(CFStringRef inKey, UInt64 inValue) {
  return AddCFType(inKey, CACFNumber(inValue).GetCFNumber());
}

bool CACFDictionary::AddFloat32(CFStringRef inKey, Float32 inValue) {
  return AddCFType(inKey, CACFNumber(inValue).GetCFNumber());
}

bool CACFDictionary::AddFloat64(CFStringRef inKey, Float64 inValue) {
  return AddCFType(inKey, CACFNumber(inValue).GetCFNumber());
}

bool CACFDictionary::AddString(CFStringRef inKey, CFStringRef inValue) {
  return AddCFType(inKey, inValue);
}

bool CACFDictionary::AddArray(CFStringRef inKey, CFArrayRef inValue) {
  return AddCFType(inKey, inValue);
}

bool CACFDictionary::AddDictionary(CFStringRef inKey, CFDictionaryRef inValue) {
  return AddCFType(inKey, inValue);
}

bool CACFDictionary::AddData(CFStringRef inKey, CFDataRef inValue) {
  return AddCFType(inKey, inValue);
}

bool CACFDictionary::AddCFType(CFStringRef inKey, CFTypeRef inValue) {
  if (GetCFMutableDictionary() == nullptr || inKey == nullptr || inValue == nullptr) return false;
  CFDictionarySetValue(GetCFMutableDictionary(), inKey, inValue);
  return true;
}

void CACFDictionary::RemoveKey(CFStringRef inKey) {
  if (GetCFMutableDictionary() != nullptr) CFDictionaryRemoveValue(GetCFMutableDictionary(), inKey);
}

void CACFDictionary::Clear() {
  if (GetCFMutableDictionary() != nullptr) CFDictionaryRemoveAllValues(GetCFMutableDictionary());
}
