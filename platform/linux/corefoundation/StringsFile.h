#pragma once

#include <CoreFoundation/CFDictionary.h>

#include <cstddef>

namespace tembra::cf {

// The texts of a table of localized strings: lines of "key" = "value"; with comments, in UTF-8 or,
// with a byte order mark, UTF-16; or a property list of such a dictionary. Null if the bytes,
// which are untrusted, are neither.
CFDictionaryRef CreateFromStringsFile(const UInt8* inBytes, size_t inSize);

}  // namespace tembra::cf
