#include "support/CACFArray.h"

#include "support/CACFBoolean.h"
#include "support/CACFNumber.h"
#include "support/CACFValue.h"

CACFArray::CACFArray(bool inWillRelease)
    : CACFObject(CFArrayCreateMutable(kCFAllocatorDefault, 0, &kCFTypeArrayCallBacks),
                 inWillRelease),
      mMutable(true) {}

CFMutableArrayRef CACFArray::GetCFMutableArray() const noexcept {
  return mMutable ? const_cast<CFMutableArrayRef>(mObject) : nullptr;
}

UInt32 CACFArray::GetNumberItems() const {
  return mObject != nullptr ? static_cast<UInt32>(CFArrayGetCount(mObject)) : 0;
}

bool CACFArray::HasItem(CFTypeRef inItem) const {
  UInt32 theIndex = 0;
  return GetIndexOfItem(inItem, theIndex);
}

bool CACFArray::GetIndexOfItem(CFTypeRef inItem, UInt32& outIndex) const {
  if (mObject == nullptr) return false;
  CFIndex theIndex =
      CFArrayGetFirstIndexOfValue(mObject, CFRangeMake(0, CFArrayGetCount(mObject)), inItem);
  if (theIndex == kCFNotFound) return false;
  outIndex = static_cast<UInt32>(theIndex);
  return true;
}

CFTypeRef CACFArray::GetValue(UInt32 inIndex) const {
  if (inIndex >= GetNumberItems()) return nullptr;
  return CFArrayGetValueAtIndex(mObject, static_cast<CFIndex>(inIndex));
}

bool CACFArray::GetBool(UInt32 inIndex, bool& outValue) const {
  return CACFValue::Get(GetValue(inIndex), outValue);
}

bool CACFArray::GetSInt32(UInt32 inIndex, SInt32& outValue) const {
  return CACFValue::Get(GetValue(inIndex), outValue);
}

bool CACFArray::GetUInt32(UInt32 inIndex, UInt32& outValue) const {
  return CACFValue::Get(GetValue(inIndex), outValue);
}

bool CACFArray::GetSInt64(UInt32 inIndex, SInt64& outValue) const {
  return CACFValue::Get(GetValue(inIndex), outValue);
}

bool CACFArray::GetUInt64(UInt32 inIndex, UInt64& outValue) const {
  return CACFValue::Get(GetValue(inIndex), outValue);
}

bool CACFArray::GetFloat32(UInt32 inIndex, Float32& outValue) const {
  return CACFValue::Get(GetValue(inIndex), outValue);
}

bool CACFArray::GetFloat64(UInt32 inIndex, Float64& outValue) const {
  return CACFValue::Get(GetValue(inIndex), outValue);
}

bool CACFArray::GetString(UInt32 inIndex, CFStringRef& outValue) const {
  return CACFValue::Get(GetValue(inIndex), outValue);
}

bool CACFArray::GetArray(UInt32 inIndex, CFArrayRef& outValue) const {
  return CACFValue::Get(GetValue(inIndex), outValue);
}

bool CACFArray::GetDictionary(UInt32 inIndex, CFDictionaryRef& outValue) const {
  return CACFValue::Get(GetValue(inIndex), outValue);
}

bool CACFArray::GetData(UInt32 inIndex, CFDataRef& outValue) const {
  return CACFValue::Get(GetValue(inIndex), outValue);
}

bool CACFArray::GetUUID(UInt32 inIndex, CFUUIDRef& outValue) const {
  return CACFValue::Get(GetValue(inIndex), outValue);
}

bool CACFArray::Get4CC(UInt32 inIndex, UInt32& outValue) const {
  return CACFValue::Get4CC(GetValue(inIndex), outValue);
}

bool CACFArray::GetCFType(UInt32 inIndex, CFTypeRef& outValue) const {
  CFTypeRef theValue = GetValue(inIndex);
  if (theValue == nullptr) return false;
  outValue = theValue;
  return true;
}

bool CACFArray::AppendBool(bool inValue) {
  return AppendCFType(CACFBoolean(inValue).GetCFBoolean());
}

bool CACFArray::AppendSInt32(SInt32 inValue) {
  return AppendCFType(CACFNumber(inValue).GetCFNumber());
}

bool CACFArray::AppendUInt32(UInt32 inValue) {
  return AppendCFType(CACFNumber(inValue).GetCFNumber());
}

bool CACFArray::AppendSInt64(SInt64 inValue) {
  return AppendCFType(CACFNumber(inValue).GetCFNumber());
}

bool CACFArray::AppendUInt64(UInt64 inValue) {
  return AppendCFType(CACFNumber(inValue).GetCFNumber());
}

bool CACFArray::AppendFloat32(Float32 inValue) {
  return AppendCFType(CACFNumber(inValue).GetCFNumber());
}

bool CACFArray::AppendFloat64(Float64 inValue) {
  return AppendCFType(CACFNumber(inValue).GetCFNumber());
}

bool CACFArray::InsertBool(UInt32 inIndex, bool inValue) {
  return InsertCFType(inIndex, CACFBoolean(inValue).GetCFBoolean());
}

bool CACFArray::InsertSInt32(UInt32 inIndex, SInt32 inValue) {
  return InsertCFType(inIndex, CACFNumber(inValue).GetCFNumber());
}

bool CACFArray::InsertUInt32(UInt32 inIndex, UInt32 inValue) {
  return InsertCFType(inIndex, CACFNumber(inValue).GetCFNumber());
}

bool CACFArray::InsertSInt64(UInt32 inIndex, SInt64 inValue) {
  return InsertCFType(inIndex, CACFNumber(inValue).GetCFNumber());
}

bool CACFArray::InsertUInt64(UInt32 inIndex, UInt64 inValue) {
  return InsertCFType(inIndex, CACFNumber(inValue).GetCFNumber());
}

bool CACFArray::InsertFloat32(UInt32 inIndex, Float32 inValue) {
  return InsertCFType(inIndex, CACFNumber(inValue).GetCFNumber());
}

bool CACFArray::InsertFloat64(UInt32 inIndex, Float64 inValue) {
  return InsertCFType(inIndex, CACFNumber(inValue).GetCFNumber());
}

bool CACFArray::SetBool(UInt32 inIndex, bool inValue) {
  return SetCFType(inIndex, CACFBoolean(inValue).GetCFBoolean());
}

bool CACFArray::SetSInt32(UInt32 inIndex, SInt32 inValue) {
  return SetCFType(inIndex, CACFNumber(inValue).GetCFNumber());
}

bool CACFArray::SetUInt32(UInt32 inIndex, UInt32 inValue) {
  return SetCFType(inIndex, CACFNumber(inValue).GetCFNumber());
}

bool CACFArray::SetSInt64(UInt32 inIndex, SInt64 inValue) {
  return SetCFType(inIndex, CACFNumber(inValue).GetCFNumber());
}

bool CACFArray::SetUInt64(UInt32 inIndex, UInt64 inValue) {
  return SetCFType(inIndex, CACFNumber(inValue).GetCFNumber());
}

bool CACFArray::SetFloat32(UInt32 inIndex, Float32 inValue) {
  return SetCFType(inIndex, CACFNumber(inValue).GetCFNumber());
}

bool CACFArray::SetFloat64(UInt32 inIndex, Float64 inValue) {
  return SetCFType(inIndex, CACFNumber(inValue).GetCFNumber());
}

bool CACFArray::AppendCFType(CFTypeRef inValue) {
  if (GetCFMutableArray() == nullptr || inValue == nullptr) return false;
  CFArrayAppendValue(GetCFMutableArray(), inValue);
  return true;
}

bool CACFArray::InsertCFType(UInt32 inIndex, CFTypeRef inValue) {
  if (inIndex >= GetNumberItems()) return AppendCFType(inValue);
  if (GetCFMutableArray() == nullptr || inValue == nullptr) return false;
  CFArrayInsertValueAtIndex(GetCFMutableArray(), static_cast<CFIndex>(inIndex), inValue);
  return true;
}

bool CACFArray::SetCFType(UInt32 inIndex, CFTypeRef inValue) {
  if (inIndex > GetNumberItems() || GetCFMutableArray() == nullptr || inValue == nullptr) {
    return false;
  }
  CFArraySetValueAtIndex(GetCFMutableArray(), static_cast<CFIndex>(inIndex), inValue);
  return true;
}

bool CACFArray::RemoveItemAtIndex(UInt32 inIndex) {
  if (inIndex >= GetNumberItems() || GetCFMutableArray() == nullptr) return false;
  CFArrayRemoveValueAtIndex(GetCFMutableArray(), static_cast<CFIndex>(inIndex));
  return true;
}

void CACFArray::Clear() {
  if (GetCFMutableArray() != nullptr) CFArrayRemoveAllValues(GetCFMutableArray());
}
