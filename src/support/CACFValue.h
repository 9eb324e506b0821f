#pragma once

#include <CoreFoundation/CoreFoundation.h>

// Purpose: reads a platform value of any kind as the one that is wanted. It is what the typed
//   accessors of CACFDictionary and CACFArray share.
// Thread: any.
// Ownership: none; references that come out are borrowed.
// Units and range: a number is converted to the width asked for.
// Failure: false, with the output as it was, for a null value or one of another kind.
namespace CACFValue {

// A boolean, or a number that is true if it is not 0.
bool Get(CFTypeRef inValue, bool& outValue);
bool Get(CFTypeRef inValue, SInt32& outValue);
bool Get(CFTypeRef inValue, UInt32& outValue);
bool Get(CFTypeRef inValue, SInt64& outValue);
bool Get(CFTypeRef inValue, UInt64& outValue);
bool Get(CFTypeRef inValue, Float32& outValue);
bool Get(CFTypeRef inValue, Float64& outValue);
bool Get(CFTypeRef inValue, CFStringRef& outValue);
bool Get(CFTypeRef inValue, CFArrayRef& outValue);
bool Get(CFTypeRef inValue, CFDictionaryRef& outValue);
bool Get(CFTypeRef inValue, CFDataRef& outValue);
bool Get(CFTypeRef inValue, CFUUIDRef& outValue);
// A number, or a string of four characters, the first of them the highest byte.
bool Get4CC(CFTypeRef inValue, UInt32& outValue);

}  // namespace CACFValue
