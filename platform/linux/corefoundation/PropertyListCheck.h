#pragma once

#include <CoreFoundation/CFBase.h>

#include <cstddef>

namespace tembra::cf {

// What a property list may cost. A binary one may refer to one object many times, so its limits
// hold for the tree that comes out, not for the bytes that went in.
constexpr size_t kMaxListBytes = size_t{64} << 20;
constexpr size_t kMaxListDepth = 512;
constexpr size_t kMaxListObjects = size_t{1} << 20;
constexpr size_t kMaxListExpandedBytes = size_t{128} << 20;

// Dates, in seconds from 2001 on, of the years 1 to 9999: what both formats can hold.
constexpr bool IsListDate(double inTime) {
  return -63114076800.0 <= inTime && inTime < 252423993600.0;
}

// Whether untrusted bytes may be given to the parser, which follows references and nesting as far
// as they go. Null, or what is wrong, as a constant text. Time and memory grow with the size only.
const char* CheckBinaryList(const UInt8* inBytes, size_t inSize);
const char* CheckXMLList(const UInt8* inBytes, size_t inSize);

bool LooksBinary(const UInt8* inBytes, size_t inSize);

}  // namespace tembra::cf
