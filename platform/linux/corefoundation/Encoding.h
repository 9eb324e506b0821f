#pragma once

#include <CoreFoundation/CFString.h>

#include <cstddef>
#include <vector>

namespace tembra::cf {

// Text in an encoding to UTF-16, appended. False if the encoding is unknown or the bytes are not
// text in it. An external representation may begin with a byte order mark.
bool Decode(const UInt8* inBytes, size_t inSize, CFStringEncoding inEncoding, bool inIsExternal,
            std::vector<UniChar>& ioText);

bool IsKnownEncoding(CFStringEncoding inEncoding);

// The most bytes that Encode makes of one character.
constexpr size_t kMaxEncodedBytes = 4;

// One character at the beginning of inCharacters (inLength > 0).
struct EncodedCharacter {
  UInt8 mBytes[kMaxEncodedBytes];
  // 0 if the encoding lacks the character, or it is an unpaired surrogate.
  size_t mSize;
  // The code units that it takes: 1 or 2.
  size_t mUnits;
};
EncodedCharacter Encode(const UniChar* inCharacters, size_t inLength, CFStringEncoding inEncoding);

}  // namespace tembra::cf
