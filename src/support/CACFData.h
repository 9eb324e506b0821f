#pragma once

#include "support/CACFObject.h"

// Purpose: a data reference and its bytes.
// Thread: any.
// Ownership: as CACFObject; bytes given at construction are copied.
// Units and range: sizes in bytes.
// Failure: none; null data has no bytes.
class CACFData : public CACFObject<CFDataRef> {
 public:
  explicit CACFData(CFDataRef inCFData, bool inWillRelease = true) noexcept
      : CACFObject(inCFData, inWillRelease) {}
  CACFData(const void* inData, UInt32 inDataSize)
      : CACFObject(CFDataCreate(kCFAllocatorDefault, static_cast<const UInt8*>(inData),
                                static_cast<CFIndex>(inDataSize))) {}

  using CACFObject::operator=;

  CFDataRef GetCFData() const noexcept { return mObject; }
  CFDataRef CopyCFData() const { return CopyObject(); }

  const void* GetDataPtr() const {
    return mObject != nullptr ? CFDataGetBytePtr(mObject) : nullptr;
  }
  UInt32 GetSize() const {
    return mObject != nullptr ? static_cast<UInt32>(CFDataGetLength(mObject)) : 0;
  }
};
