#pragma once

#include "support/CACFObject.h"

// Purpose: a string reference, and its text in other encodings.
// Thread: any.
// Ownership: as CACFObject.
// Units and range: sizes in bytes.
// Failure: none; a null string reads as empty text.
class CACFString : public CACFObject<CFStringRef> {
 public:
  CACFString() = default;
  explicit CACFString(CFStringRef inCFString, bool inWillRelease = true) noexcept
      : CACFObject(inCFString, inWillRelease) {}
  // A new string; null for a null text or one that is not valid in the encoding.
  explicit CACFString(const char* inText, CFStringEncoding inEncoding = kCFStringEncodingUTF8);

  using CACFObject::operator=;

  CFStringRef GetCFString() const noexcept { return mObject; }
  CFStringRef CopyCFString() const { return CopyObject(); }

  // The length of the text in the encoding, without a terminator.
  UInt32 GetStringByteLength(CFStringEncoding inEncoding = kCFStringEncodingUTF8) const {
    return GetStringByteLength(mObject, inEncoding);
  }
  // Copies as many whole characters as ioSize, less one byte for the terminator, has room for, and
  // terminates them. ioSize comes back as the bytes written, the terminator among them; nothing is
  // written into a buffer of size 0.
  void GetCString(char* outText, UInt32& ioSize,
                  CFStringEncoding inEncoding = kCFStringEncodingUTF8) const {
    GetCString(mObject, outText, ioSize, inEncoding);
  }

  static UInt32 GetStringByteLength(CFStringRef inString,
                                    CFStringEncoding inEncoding = kCFStringEncodingUTF8);
  static void GetCString(CFStringRef inString, char* outText, UInt32& ioSize,
                         CFStringEncoding inEncoding = kCFStringEncodingUTF8);
};
