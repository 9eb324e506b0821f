#pragma once

#include <CoreFoundation/CoreFoundation.h>

// Purpose: the one exception of the system, thrown and held by value.
// Thread: any.
// Ownership: none.
// Units and range: one 32-bit status, mostly a four-character code; a platform error number where a
//   platform call failed.
// Failure: none.
class CAException {
 public:
  explicit CAException(OSStatus inError) noexcept : mError(inError) {}

  OSStatus GetError() const noexcept { return mError; }

 private:
  OSStatus mError;
};
