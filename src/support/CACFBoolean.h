#pragma once

#include "support/CACFObject.h"

// Purpose: a boolean reference.
// Thread: any.
// Ownership: as CACFObject.
// Units and range: none.
// Failure: none; a null boolean reads as false.
class CACFBoolean : public CACFObject<CFBooleanRef> {
 public:
  explicit CACFBoolean(CFBooleanRef inCFBoolean, bool inWillRelease = true) noexcept
      : CACFObject(inCFBoolean, inWillRelease) {}
  explicit CACFBoolean(bool inValue)
      : CACFObject(
            static_cast<CFBooleanRef>(CFRetain(inValue ? kCFBooleanTrue : kCFBooleanFalse))) {}

  using CACFObject::operator=;

  CFBooleanRef GetCFBoolean() const noexcept { return mObject; }
  CFBooleanRef CopyCFBoolean() const { return CopyObject(); }

  bool GetBoolean() const { return mObject != nullptr && CFBooleanGetValue(mObject) != 0; }
};
