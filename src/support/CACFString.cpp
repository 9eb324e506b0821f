#include "support/CACFString.h"

CACFString::CACFString(const char* inText, CFStringEncoding inEncoding)
    : CACFObject(inText != nullptr
                     ? CFStringCreateWithCString(kCFAllocatorDefault, inText, inEncoding)
                     : nullptr) {}

UInt32 CACFString::GetStringByteLength(CFStringRef inString, CFStringEncoding inEncoding) {
  if (inString == nullptr) return 0;
  CFIndex theSize = 0;
  CFStringGetBytes(inString, CFRangeMake(0, CFStringGetLength(inString)), inEncoding, 0, false,
                   nullptr, 0, &theSize);
  return static_cast<UInt32>(theSize);
}

void CACFString::GetCString(CFStringRef inString, char* outText, UInt32& ioSize,
                            CFStringEncoding inEncoding) {
  if (ioSize == 0) return;
  CFIndex theSize = 0;
  if (inString != nullptr) {
    CFStringGetBytes(inString, CFRangeMake(0, CFStringGetLength(inString)), inEncoding, 0, false,
                     reinterpret_cast<UInt8*>(outText), static_cast<CFIndex>(ioSize) - 1, &theSize);
  }
  outText[theSize] = 0;
  ioSize = static_cast<UInt32>(theSize) + 1;
}
