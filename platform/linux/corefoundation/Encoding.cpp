#include "corefoundation/Encoding.h"

namespace tembra::cf {

namespace {

// The upper half of Mac OS Roman.
constexpr UniChar kMacRoman[128] = {
    0x00C4, 0x00C5, 0x00C7, 0x00C9, 0x00D1, 0x00D6, 0x00DC, 0x00E1, 0x00E0, 0x00E2, 0x00E4, 0x00E3,
    0x00E5, 0x00E7, 0x00E9, 0x00E8, 0x00EA, 0x00EB, 0x00ED, 0x00EC, 0x00EE, 0x00EF, 0x00F1, 0x00F3,
    0x00F2, 0x00F4, 0x00F6, 0x00F5, 0x00FA, 0x00F9, 0x00FB, 0x00FC, 0x2020, 0x00B0, 0x00A2, 0x00A3,
    0x00A7, 0x2022, 0x00B6, 0x00DF, 0x00AE, 0x00A9, 0x2122, 0x00B4, 0x00A8, 0x2260, 0x00C6, 0x00D8,
    0x221E, 0x00B1, 0x2264, 0x2265, 0x00A5, 0x00B5, 0x2202, 0x2211, 0x220F, 0x03C0, 0x222B, 0x00AA,
    0x00BA, 0x03A9, 0x00E6, 0x00F8, 0x00BF, 0x00A1, 0x00AC, 0x221A, 0x0192, 0x2248, 0x2206, 0x00AB,
    0x00BB, 0x2026, 0x00A0, 0x00C0, 0x00C3, 0x00D5, 0x0152, 0x0153, 0x2013, 0x2014, 0x201C, 0x201D,
    0x2018, 0x2019, 0x00F7, 0x25CA, 0x00FF, 0x0178, 0x2044, 0x20AC, 0x2039, 0x203A, 0xFB01, 0xFB02,
    0x2021, 0x00B7, 0x201A, 0x201E, 0x2030, 0x00C2, 0x00CA, 0x00C1, 0x00CB, 0x00C8, 0x00CD, 0x00CE,
    0x00CF, 0x00CC, 0x00D3, 0x00D4, 0xF8FF, 0x00D2, 0x00DA, 0x00DB, 0x00D9, 0x0131, 0x02C6, 0x02DC,
    0x00AF, 0x02D8, 0x02D9, 0x02DA, 0x00B8, 0x02DD, 0x02DB, 0x02C7,
};

bool IsHighSurrogate(UInt32 inUnit) {
  return inUnit >= 0xD800 && inUnit < 0xDC00;
}
bool IsLowSurrogate(UInt32 inUnit) {
  return inUnit >= 0xDC00 && inUnit < 0xE000;
}

void Append(std::vector<UniChar>& ioText, UInt32 inCharacter) {
  if (inCharacter >= 0x10000) {
    ioText.push_back(static_cast<UniChar>(0xD7C0 + (inCharacter >> 10)));
    ioText.push_back(static_cast<UniChar>(0xDC00 + (inCharacter & 0x3FF)));
  } else {
    ioText.push_back(static_cast<UniChar>(inCharacter));
  }
}

bool DecodeUTF8(const UInt8* inBytes, size_t inSize, std::vector<UniChar>& ioText) {
  for (size_t i = 0; i < inSize;) {
    UInt8 lead = inBytes[i++];
    if (lead < 0x80) {
      ioText.push_back(lead);
      continue;
    }
    size_t more = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : 1;
    if (lead < 0xC2 || lead > 0xF4 || inSize - i < more) return false;
    UInt32 character = lead & (0x3F >> more);
    for (size_t n = 0; n < more; ++n) {
      UInt8 next = inBytes[i++];
      if ((next & 0xC0) != 0x80) return false;
      character = character << 6 | (next & 0x3F);
    }
    // Longer than needed, a surrogate, or beyond the last character.
    if ((more == 2 && character < 0x800) || (more == 3 && character < 0x10000) ||
        (character >= 0xD800 && character < 0xE000) || character > 0x10FFFF) {
      return false;
    }
    Append(ioText, character);
  }
  return true;
}

bool DecodeUTF16(const UInt8* inBytes, size_t inSize, bool inIsBig, std::vector<UniChar>& ioText) {
  if (inSize % 2 != 0) return false;
  for (size_t i = 0; i < inSize; i += 2) {
    UInt32 first = inBytes[i], second = inBytes[i + 1];
    ioText.push_back(static_cast<UniChar>(inIsBig ? first << 8 | second : second << 8 | first));
  }
  return true;
}

bool DecodeUTF32(const UInt8* inBytes, size_t inSize, bool inIsBig, std::vector<UniChar>& ioText) {
  if (inSize % 4 != 0) return false;
  for (size_t i = 0; i < inSize; i += 4) {
    UInt32 character = 0;
    for (size_t n = 0; n < 4; ++n) {
      character |= UInt32{inBytes[i + n]} << 8 * (inIsBig ? 3 - n : n);
    }
    if (character > 0x10FFFF || (character >= 0xD800 && character < 0xE000)) return false;
    Append(ioText, character);
  }
  return true;
}

bool StartsWith(const UInt8* inBytes, size_t inSize, std::initializer_list<UInt8> inMark) {
  if (inSize < inMark.size()) return false;
  for (UInt8 byte : inMark) {
    if (*inBytes++ != byte) return false;
  }
  return true;
}

EncodedCharacter OneByte(UInt32 inByte, size_t inUnits) {
  return {{static_cast<UInt8>(inByte)}, 1, inUnits};
}

EncodedCharacter EncodeUTF8(UInt32 inCharacter, size_t inUnits) {
  EncodedCharacter result{{}, 0, inUnits};
  auto put = [&](UInt32 inByte) { result.mBytes[result.mSize++] = static_cast<UInt8>(inByte); };
  if (inCharacter < 0x80) {
    put(inCharacter);
    return result;
  }
  if (inCharacter < 0x800) {
    put(0xC0 | inCharacter >> 6);
  } else {
    if (inCharacter < 0x10000) {
      put(0xE0 | inCharacter >> 12);
    } else {
      put(0xF0 | inCharacter >> 18);
      put(0x80 | (inCharacter >> 12 & 0x3F));
    }
    put(0x80 | (inCharacter >> 6 & 0x3F));
  }
  put(0x80 | (inCharacter & 0x3F));
  return result;
}

EncodedCharacter EncodeUTF16(const UniChar* inCharacters, size_t inUnits, bool inIsBig) {
  EncodedCharacter result{{}, 0, inUnits};
  for (size_t i = 0; i < inUnits; ++i) {
    UInt8 high = static_cast<UInt8>(inCharacters[i] >> 8),
          low = static_cast<UInt8>(inCharacters[i]);
    result.mBytes[result.mSize++] = inIsBig ? high : low;
    result.mBytes[result.mSize++] = inIsBig ? low : high;
  }
  return result;
}

EncodedCharacter EncodeUTF32(UInt32 inCharacter, size_t inUnits, bool inIsBig) {
  EncodedCharacter result{{}, 4, inUnits};
  for (size_t n = 0; n < 4; ++n) {
    result.mBytes[n] = static_cast<UInt8>(inCharacter >> 8 * (inIsBig ? 3 - n : n));
  }
  return result;
}

}  // namespace

bool IsKnownEncoding(CFStringEncoding inEncoding) {
  switch (inEncoding) {
    case kCFStringEncodingMacRoman:
    case kCFStringEncodingISOLatin1:
    case kCFStringEncodingASCII:
    case kCFStringEncodingUTF8:
    case kCFStringEncodingUTF16:
    case kCFStringEncodingUTF16BE:
    case kCFStringEncodingUTF16LE:
    case kCFStringEncodingUTF32:
    case kCFStringEncodingUTF32BE:
    case kCFStringEncodingUTF32LE:
      return true;
    default:
      return false;
  }
}

bool Decode(const UInt8* inBytes, size_t inSize, CFStringEncoding inEncoding, bool inIsExternal,
            std::vector<UniChar>& ioText) {
  switch (inEncoding) {
    case kCFStringEncodingASCII:
      for (size_t i = 0; i < inSize; ++i) {
        if (inBytes[i] >= 0x80) return false;
        ioText.push_back(inBytes[i]);
      }
      return true;
    case kCFStringEncodingISOLatin1:
      ioText.insert(ioText.end(), inBytes, inBytes + inSize);
      return true;
    case kCFStringEncodingMacRoman:
      for (size_t i = 0; i < inSize; ++i) {
        ioText.push_back(inBytes[i] < 0x80 ? inBytes[i] : kMacRoman[inBytes[i] - 0x80]);
      }
      return true;
    case kCFStringEncodingUTF8:
      if (inIsExternal && StartsWith(inBytes, inSize, {0xEF, 0xBB, 0xBF})) {
        inBytes += 3;
        inSize -= 3;
      }
      return DecodeUTF8(inBytes, inSize, ioText);
    case kCFStringEncodingUTF16:
      if (inIsExternal && StartsWith(inBytes, inSize, {0xFE, 0xFF})) {
        return DecodeUTF16(inBytes + 2, inSize - 2, true, ioText);
      }
      if (inIsExternal && StartsWith(inBytes, inSize, {0xFF, 0xFE})) {
        return DecodeUTF16(inBytes + 2, inSize - 2, false, ioText);
      }
      return DecodeUTF16(inBytes, inSize, false, ioText);
    case kCFStringEncodingUTF16BE:
      return DecodeUTF16(inBytes, inSize, true, ioText);
    case kCFStringEncodingUTF16LE:
      return DecodeUTF16(inBytes, inSize, false, ioText);
    case kCFStringEncodingUTF32:
    case kCFStringEncodingUTF32LE:
      return DecodeUTF32(inBytes, inSize, false, ioText);
    case kCFStringEncodingUTF32BE:
      return DecodeUTF32(inBytes, inSize, true, ioText);
    default:
      return false;
  }
}

EncodedCharacter Encode(const UniChar* inCharacters, size_t inLength, CFStringEncoding inEncoding) {
  UInt32 character = inCharacters[0];
  size_t units = 1;
  bool isUnpaired = false;
  if (IsHighSurrogate(character) && inLength > 1 && IsLowSurrogate(inCharacters[1])) {
    character = 0x10000 + ((character - 0xD800) << 10) + (inCharacters[1] - 0xDC00U);
    units = 2;
  } else {
    isUnpaired = character >= 0xD800 && character < 0xE000;
  }
  EncodedCharacter none{{}, 0, units};
  switch (inEncoding) {
    case kCFStringEncodingASCII:
      return character < 0x80 ? OneByte(character, units) : none;
    case kCFStringEncodingISOLatin1:
      return character < 0x100 ? OneByte(character, units) : none;
    case kCFStringEncodingMacRoman:
      if (character < 0x80) return OneByte(character, units);
      for (UInt32 i = 0; i < 128; ++i) {
        if (kMacRoman[i] == character) return OneByte(0x80 + i, units);
      }
      return none;
    case kCFStringEncodingUTF8:
      return isUnpaired ? none : EncodeUTF8(character, units);
    case kCFStringEncodingUTF16:
    case kCFStringEncodingUTF16LE:
      return EncodeUTF16(inCharacters, units, false);
    case kCFStringEncodingUTF16BE:
      return EncodeUTF16(inCharacters, units, true);
    case kCFStringEncodingUTF32:
    case kCFStringEncodingUTF32LE:
      return isUnpaired ? none : EncodeUTF32(character, units, false);
    case kCFStringEncodingUTF32BE:
      return isUnpaired ? none : EncodeUTF32(character, units, true);
    default:
      return none;
  }
}

}  // namespace tembra::cf
