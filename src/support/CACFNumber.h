#pragma once

#include "support/CACFObject.h"

// Purpose: a number reference, and its value in the common widths.
// Thread: any.
// Ownership: as CACFObject.
// Units and range: a number keeps the width that it was made with. An unsigned value is kept in the
//   signed number of its width and comes back whole.
// Failure: none; a null number reads as 0.
class CACFNumber : public CACFObject<CFNumberRef> {
 public:
  explicit CACFNumber(CFNumberRef inCFNumber, bool inWillRelease = true) noexcept
      : CACFObject(inCFNumber, inWillRelease) {}
  explicit CACFNumber(SInt32 inValue);
  explicit CACFNumber(UInt32 inValue);
  explicit CACFNumber(SInt64 inValue);
  explicit CACFNumber(UInt64 inValue);
  explicit CACFNumber(Float32 inValue);
  explicit CACFNumber(Float64 inValue);

  using CACFObject::operator=;

  CFNumberRef GetCFNumber() const noexcept { return mObject; }
  CFNumberRef CopyCFNumber() const { return CopyObject(); }

  SInt32 GetSInt32() const;
  UInt32 GetUInt32() const { return static_cast<UInt32>(GetSInt32()); }
  SInt64 GetSInt64() const;
  UInt64 GetUInt64() const { return static_cast<UInt64>(GetSInt64()); }
  Float32 GetFloat32() const;
  Float64 GetFloat64() const;
};
