#pragma once

#include "support/CACFObject.h"

// Purpose: an array reference with typed access by index.
// Thread: as the array; one that changes needs the caller's own lock.
// Ownership: as CACFObject. Values put in are retained by the array; a Get hands out a borrowed
//   value.
// Units and range: indices from 0.
// Failure: Get answers false, with the output as it was, if the index is past the end or the value
//   of another kind. Append, Insert and Set answer false if the array is null or cannot be changed.
//   An Insert past the end appends; a Set at the end appends, and past it fails.
class CACFArray : public CACFObject<CFArrayRef> {
 public:
  // A new, empty, mutable array.
  explicit CACFArray(bool inWillRelease);
  CACFArray(CFArrayRef inCFArray, bool inWillRelease) noexcept
      : CACFObject(inCFArray, inWillRelease), mMutable(false) {}
  CACFArray(CFMutableArrayRef inCFArray, bool inWillRelease) noexcept
      : CACFObject(inCFArray, inWillRelease), mMutable(true) {}
  // A pointer alone would make a new array by way of bool.
  explicit CACFArray(const void*) = delete;

  CFArrayRef GetCFArray() const noexcept { return mObject; }
  CFMutableArrayRef GetCFMutableArray() const noexcept;
  CFArrayRef CopyCFArray() const { return CopyObject(); }
  bool IsMutable() const noexcept { return mMutable; }

  UInt32 GetNumberItems() const;
  bool HasItem(CFTypeRef inItem) const;
  bool GetIndexOfItem(CFTypeRef inItem, UInt32& outIndex) const;

  bool GetBool(UInt32 inIndex, bool& outValue) const;
  bool GetSInt32(UInt32 inIndex, SInt32& outValue) const;
  bool GetUInt32(UInt32 inIndex, UInt32& outValue) const;
  bool GetSInt64(UInt32 inIndex, SInt64& outValue) const;
  bool GetUInt64(UInt32 inIndex, UInt64& outValue) const;
  bool GetFloat32(UInt32 inIndex, Float32& outValue) const;
  bool GetFloat64(UInt32 inIndex, Float64& outValue) const;
  bool Get4CC(UInt32 inIndex, UInt32& outValue) const;
  bool GetString(UInt32 inIndex, CFStringRef& outValue) const;
  bool GetArray(UInt32 inIndex, CFArrayRef& outValue) const;
  bool GetDictionary(UInt32 inIndex, CFDictionaryRef& outValue) const;
  bool GetData(UInt32 inIndex, CFDataRef& outValue) const;
  bool GetUUID(UInt32 inIndex, CFUUIDRef& outValue) const;
  bool GetCFType(UInt32 inIndex, CFTypeRef& outValue) const;

  bool AppendBool(bool inValue);
  bool AppendSInt32(SInt32 inValue);
  bool AppendUInt32(UInt32 inValue);
  bool AppendSInt64(SInt64 inValue);
  bool AppendUInt64(UInt64 inValue);
  bool AppendFloat32(Float32 inValue);
  bool AppendFloat64(Float64 inValue);
  bool AppendString(CFStringRef inValue) { return AppendCFType(inValue); }
  bool AppendArray(CFArrayRef inValue) { return AppendCFType(inValue); }
  bool AppendDictionary(CFDictionaryRef inValue) { return AppendCFType(inValue); }
  bool AppendData(CFDataRef inValue) { return AppendCFType(inValue); }
  bool AppendCFType(CFTypeRef inValue);

  bool InsertBool(UInt32 inIndex, bool inValue);
  bool InsertSInt32(UInt32 inIndex, SInt32 inValue);
  bool InsertUInt32(UInt32 inIndex, UInt32 inValue);
  bool InsertSInt64(UInt32 inIndex, SInt64 inValue);
  bool InsertUInt64(UInt32 inIndex, UInt64 inValue);
  bool InsertFloat32(UInt32 inIndex, Float32 inValue);
  bool InsertFloat64(UInt32 inIndex, Float64 inValue);
  bool InsertString(UInt32 inIndex, CFStringRef inValue) { return InsertCFType(inIndex, inValue); }
  bool InsertArray(UInt32 inIndex, CFArrayRef inValue) { return InsertCFType(inIndex, inValue); }
  bool InsertDictionary(UInt32 inIndex, CFDictionaryRef inValue) {
    return InsertCFType(inIndex, inValue);
  }
  bool InsertData(UInt32 inIndex, CFDataRef inValue) { return InsertCFType(inIndex, inValue); }
  bool InsertCFType(UInt32 inIndex, CFTypeRef inValue);

  bool SetBool(UInt32 inIndex, bool inValue);
  bool SetSInt32(UInt32 inIndex, SInt32 inValue);
  bool SetUInt32(UInt32 inIndex, UInt32 inValue);
  bool SetSInt64(UInt32 inIndex, SInt64 inValue);
  bool SetUInt64(UInt32 inIndex, UInt64 inValue);
  bool SetFloat32(UInt32 inIndex, Float32 inValue);
  bool SetFloat64(UInt32 inIndex, Float64 inValue);
  bool SetString(UInt32 inIndex, CFStringRef inValue) { return SetCFType(inIndex, inValue); }
  bool SetArray(UInt32 inIndex, CFArrayRef inValue) { return SetCFType(inIndex, inValue); }
  bool SetDictionary(UInt32 inIndex, CFDictionaryRef inValue) {
    return SetCFType(inIndex, inValue);
  }
  bool SetData(UInt32 inIndex, CFDataRef inValue) { return SetCFType(inIndex, inValue); }
  bool SetCFType(UInt32 inIndex, CFTypeRef inValue);

  bool RemoveItemAtIndex(UInt32 inIndex);
  void Clear();

 private:
  CFTypeRef GetValue(UInt32 inIndex) const;

  bool mMutable;
};
