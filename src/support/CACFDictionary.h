#pragma once

#include "support/CACFObject.h"

// Purpose: a dictionary reference with typed access by string key.
// Thread: as the dictionary; one that changes needs the caller's own lock.
// Ownership: as CACFObject. Values added are retained by the dictionary; a Get hands out a borrowed
//   value.
// Units and range: none.
// Failure: Get answers false, with the output as it was, if the key is missing or the value of
//   another kind. Add answers false if the dictionary is null or cannot be changed. An Add under a
//   key that is there replaces the value.
class CACFDictionary : public CACFObject<CFDictionaryRef> {
 public:
  // A new, empty, mutable dictionary.
  explicit CACFDictionary(bool inWillRelease);
  CACFDictionary(CFDictionaryRef inCFDictionary, bool inWillRelease) noexcept
      : CACFObject(inCFDictionary, inWillRelease), mMutable(false) {}
  CACFDictionary(CFMutableDictionaryRef inCFDictionary, bool inWillRelease) noexcept
      : CACFObject(inCFDictionary, inWillRelease), mMutable(true) {}
  // A pointer alone would make a new dictionary by way of bool.
  explicit CACFDictionary(const void*) = delete;

  CFDictionaryRef GetCFDictionary() const noexcept { return mObject; }
  CFDictionaryRef GetDict() const noexcept { return mObject; }
  CFMutableDictionaryRef GetCFMutableDictionary() const noexcept;
  CFDictionaryRef CopyCFDictionary() const { return CopyObject(); }
  bool IsMutable() const noexcept { return mMutable; }

  bool HasKey(CFStringRef inKey) const;
  UInt32 Size() const;
  void GetKeys(const void** outKeys) const;
  void GetKeysAndValues(const void** outKeys, const void** outValues) const;

  bool GetBool(CFStringRef inKey, bool& outValue) const;
  bool GetSInt32(CFStringRef inKey, SInt32& outValue) const;
  bool GetUInt32(CFStringRef inKey, UInt32& outValue) const;
  bool GetSInt64(CFStringRef inKey, SInt64& outValue) const;
  bool GetUInt64(CFStringRef inKey, UInt64& outValue) const;
  bool GetFloat32(CFStringRef inKey, Float32& outValue) const;
  bool GetFloat64(CFStringRef inKey, Float64& outValue) const;
  bool Get4CC(CFStringRef inKey, UInt32& outValue) const;
  bool GetString(CFStringRef inKey, CFStringRef& outValue) const;
  bool GetArray(CFStringRef inKey, CFArrayRef& outValue) const;
  bool GetDictionary(CFStringRef inKey, CFDictionaryRef& outValue) const;
  bool GetData(CFStringRef inKey, CFDataRef& outValue) const;
  bool GetCFType(CFStringRef inKey, CFTypeRef& outValue) const;

  bool AddBool(CFStringRef inKey, bool inValue);
  bool AddSInt32(CFStringRef inKey, SInt32 inValue);
  bool AddUInt32(CFStringRef inKey, UInt32 inValue);
  bool AddSInt64(CFStringRef inKey, SInt64 inValue);
  bool AddUInt64(CFStringRef inKey, UInt64 inValue);
  bool AddFloat32(CFStringRef inKey, Float32 inValue);
  bool AddFloat64(CFStringRef inKey, Float64 inValue);
  bool AddString(CFStringRef inKey, CFStringRef inValue);
  bool AddArray(CFStringRef inKey, CFArrayRef inValue);
  bool AddDictionary(CFStringRef inKey, CFDictionaryRef inValue);
  bool AddData(CFStringRef inKey, CFDataRef inValue);
  bool AddCFType(CFStringRef inKey, CFTypeRef inValue);

  void RemoveKey(CFStringRef inKey);
  void Clear();

 private:
  CFTypeRef GetValue(CFStringRef inKey) const;

  bool mMutable;
};
