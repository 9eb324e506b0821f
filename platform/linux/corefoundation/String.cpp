#include "corefoundation/String.h"

#include <sys/random.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <map>

#include "base/Mutex.h"
#include "corefoundation/Allocator.h"
#include "corefoundation/Encoding.h"

using namespace tembra::cf;

namespace {

struct HashSeed {
  UInt64 mFirst = 0x9e3779b97f4a7c15ULL;
  UInt64 mSecond = 0xbf58476d1ce4e5b9ULL;
};

// Keys may come from outside: with a secret in the hash nobody can choose colliding ones.
struct HashSecret : HashSeed {
  HashSecret() {
    UInt64 random[2];
    if (getrandom(random, sizeof(random), GRND_NONBLOCK) == sizeof(random)) {
      mFirst ^= random[0];
      mSecond ^= random[1];
    }
  }
};

UInt64 Fold(UInt64 inFirst, UInt64 inSecond) {
  unsigned __int128 product = static_cast<unsigned __int128>(inFirst) * inSecond;
  return static_cast<UInt64>(product) ^ static_cast<UInt64>(product >> 64);
}

CFHashCode HashCharacters(const UniChar* inCharacters, CFIndex inLength, const HashSeed& inSeed) {
  UInt64 hash = inSeed.mFirst ^ static_cast<UInt64>(inLength);
  while (inLength > 0) {
    UInt64 word = 0;
    CFIndex count = std::min<CFIndex>(inLength, 4);
    std::memcpy(&word, inCharacters, static_cast<size_t>(count) * sizeof(UniChar));
    hash = Fold(word ^ inSeed.mSecond, hash ^ inSeed.mFirst);
    inCharacters += count;
    inLength -= count;
  }
  hash = Fold(hash ^ inSeed.mSecond, inSeed.mFirst);
  return hash ? hash : 1;
}

CFStringRef CreateDecoded(CFAllocatorRef inAllocator, const UInt8* inBytes, CFIndex inSize,
                          CFStringEncoding inEncoding, bool inIsExternal) {
  if (inSize < 0 || (inSize > 0 && !inBytes)) return nullptr;
  return Guarded([&]() -> CFStringRef {
    std::vector<UniChar> text;
    text.reserve(static_cast<size_t>(inSize));
    if (!Decode(inBytes, static_cast<size_t>(inSize), inEncoding, inIsExternal, text)) {
      return nullptr;
    }
    return CreateString(inAllocator, text.data(), static_cast<CFIndex>(text.size()));
  });
}

}  // namespace

bool __CFString::IsEqual(const Object& inOther) const {
  const auto& other = static_cast<const __CFString&>(inOther);
  return mLength == other.mLength &&
         (mLength == 0 || std::memcmp(mCharacters, other.mCharacters,
                                      static_cast<size_t>(mLength) * sizeof(UniChar)) == 0);
}

CFHashCode __CFString::Hash() const {
  return HashCharacters(mCharacters, mLength, HashSeed());
}

CFHashCode __CFString::KeyHash() const {
  static const HashSecret sSecret;
  if (mIsMutable) return HashCharacters(mCharacters, mLength, sSecret);
  CFHashCode hash = mKeyHash.load(std::memory_order_relaxed);
  if (hash == 0) {
    hash = HashCharacters(mCharacters, mLength, sSecret);
    mKeyHash.store(hash, std::memory_order_relaxed);
  }
  return hash;
}

CFStringRef __CFString::CopyDescription() const {
  return CFStringCreateCopy(nullptr, this);
}

void __CFString::FreeBuffer() {
  std::free(const_cast<UniChar*>(mCharacters));
}

namespace tembra::cf {

CFStringRef CreateString(CFAllocatorRef inAllocator, const UniChar* inCharacters,
                         CFIndex inLength) {
  if (inLength < 0 || inLength > LONG_MAX / 4 || (inLength > 0 && !inCharacters)) return nullptr;
  size_t bytes = static_cast<size_t>(inLength) * sizeof(UniChar);
  auto* string = CreateWithExtra<__CFString>(inAllocator, bytes, false);
  if (!string) return nullptr;
  auto* characters = reinterpret_cast<UniChar*>(string + 1);
  if (bytes > 0) std::memcpy(characters, inCharacters, bytes);
  string->mCharacters = characters;
  string->mLength = inLength;
  return string;
}

CFStringRef CreateString(std::string_view inUTF8) {
  return CreateDecoded(nullptr, reinterpret_cast<const UInt8*>(inUTF8.data()),
                       static_cast<CFIndex>(inUTF8.size()), kCFStringEncodingUTF8, false);
}

std::string ToUTF8(CFStringRef inString) {
  std::string text;
  size_t length = static_cast<size_t>(inString->mLength);
  for (size_t i = 0; i < length;) {
    EncodedCharacter next = Encode(inString->mCharacters + i, length - i, kCFStringEncodingUTF8);
    if (next.mSize == 0) {
      text += "\xEF\xBF\xBD";
    } else {
      text.append(reinterpret_cast<const char*>(next.mBytes), next.mSize);
    }
    i += next.mUnits;
  }
  return text;
}

}  // namespace tembra::cf

CFStringRef __CFStringMakeConstantString(const char* inText) {
  static tembra::Mutex& sMutex = *new tembra::Mutex;
  static auto& sTable = *new std::map<std::string, CFStringRef, std::less<>>;
  tembra::MutexLock lock(sMutex);
  auto found = sTable.find(std::string_view(inText));
  if (found != sTable.end()) return found->second;
  CFStringRef string = CreateString(inText);
  if (!string) string = CFStringCreateWithCString(nullptr, inText, kCFStringEncodingMacRoman);
  if (!string) return nullptr;
  const_cast<__CFString*>(string)->MakeImmortal();
  return sTable.emplace(inText, string).first->second;
}

CFTypeID CFStringGetTypeID() {
  return kTypeString;
}

CFStringRef CFStringCreateWithCString(CFAllocatorRef inAllocator, const char* inText,
                                      CFStringEncoding inEncoding) {
  if (!inText) return nullptr;
  return CreateDecoded(inAllocator, reinterpret_cast<const UInt8*>(inText),
                       static_cast<CFIndex>(std::strlen(inText)), inEncoding, false);
}

CFStringRef CFStringCreateWithBytes(CFAllocatorRef inAllocator, const UInt8* inBytes,
                                    CFIndex inSize, CFStringEncoding inEncoding,
                                    Boolean inIsExternal) {
  return CreateDecoded(inAllocator, inBytes, inSize, inEncoding, inIsExternal);
}

CFStringRef CFStringCreateWithCharacters(CFAllocatorRef inAllocator, const UniChar* inCharacters,
                                         CFIndex inLength) {
  return CreateString(inAllocator, inCharacters, inLength);
}

CFStringRef CFStringCreateWithCStringNoCopy(CFAllocatorRef inAllocator, const char* inText,
                                            CFStringEncoding inEncoding,
                                            CFAllocatorRef inContentsDeallocator) {
  CFStringRef string = CFStringCreateWithCString(inAllocator, inText, inEncoding);
  if (string) CFAllocatorDeallocate(inContentsDeallocator, const_cast<char*>(inText));
  return string;
}

CFStringRef CFStringCreateWithBytesNoCopy(CFAllocatorRef inAllocator, const UInt8* inBytes,
                                          CFIndex inSize, CFStringEncoding inEncoding,
                                          Boolean inIsExternal,
                                          CFAllocatorRef inContentsDeallocator) {
  CFStringRef string = CreateDecoded(inAllocator, inBytes, inSize, inEncoding, inIsExternal);
  if (string) CFAllocatorDeallocate(inContentsDeallocator, const_cast<UInt8*>(inBytes));
  return string;
}

CFStringRef CFStringCreateWithSubstring(CFAllocatorRef inAllocator, CFStringRef inString,
                                        CFRange inRange) {
  if (inRange.location < 0 || inRange.length < 0 || inRange.location > inString->mLength ||
      inRange.length > inString->mLength - inRange.location) {
    return nullptr;
  }
  return CreateString(inAllocator, inString->mCharacters + inRange.location, inRange.length);
}

CFStringRef CFStringCreateCopy(CFAllocatorRef inAllocator, CFStringRef inString) {
  if (!inString->mIsMutable && NormalAllocator(inAllocator) == inString->GetAllocator()) {
    return static_cast<CFStringRef>(CFRetain(inString));
  }
  return CreateString(inAllocator, inString->mCharacters, inString->mLength);
}

CFStringRef CFStringCreateFromExternalRepresentation(CFAllocatorRef inAllocator, CFDataRef inData,
                                                     CFStringEncoding inEncoding) {
  return CreateDecoded(inAllocator, CFDataGetBytePtr(inData), CFDataGetLength(inData), inEncoding,
                       true);
}

CFDataRef CFStringCreateExternalRepresentation(CFAllocatorRef inAllocator, CFStringRef inString,
                                               CFStringEncoding inEncoding, UInt8 inLossByte) {
  return Guarded([&]() -> CFDataRef {
    CFRange all = CFRangeMake(0, inString->mLength);
    CFIndex size = 0;
    if (CFStringGetBytes(inString, all, inEncoding, inLossByte, true, nullptr, 0, &size) !=
        inString->mLength) {
      return nullptr;
    }
    std::vector<UInt8> bytes(static_cast<size_t>(size));
    CFStringGetBytes(inString, all, inEncoding, inLossByte, true, bytes.data(), size, &size);
    return CFDataCreate(inAllocator, bytes.data(), size);
  });
}

CFIndex CFStringGetLength(CFStringRef inString) {
  return inString->mLength;
}

UniChar CFStringGetCharacterAtIndex(CFStringRef inString, CFIndex inIndex) {
  return inIndex >= 0 && inIndex < inString->mLength ? inString->mCharacters[inIndex] : 0;
}

void CFStringGetCharacters(CFStringRef inString, CFRange inRange, UniChar* outCharacters) {
  if (inRange.location < 0 || inRange.length <= 0 || inRange.location > inString->mLength ||
      inRange.length > inString->mLength - inRange.location) {
    return;
  }
  std::memcpy(outCharacters, inString->mCharacters + inRange.location,
              static_cast<size_t>(inRange.length) * sizeof(UniChar));
}

Boolean CFStringGetCString(CFStringRef inString, char* outText, CFIndex inSize,
                           CFStringEncoding inEncoding) {
  if (!outText || inSize < 1) return false;
  CFIndex used = 0;
  CFIndex converted = CFStringGetBytes(inString, CFRangeMake(0, inString->mLength), inEncoding, 0,
                                       false, reinterpret_cast<UInt8*>(outText), inSize - 1, &used);
  bool fits = converted == inString->mLength;
  outText[fits ? used : 0] = 0;
  return fits;
}

const char* CFStringGetCStringPtr(CFStringRef, CFStringEncoding) {
  return nullptr;
}

const UniChar* CFStringGetCharactersPtr(CFStringRef inString) {
  return inString->mCharacters;
}

CFIndex CFStringGetBytes(CFStringRef inString, CFRange inRange, CFStringEncoding inEncoding,
                         UInt8 inLossByte, Boolean inIsExternal, UInt8* outBytes, CFIndex inMaxSize,
                         CFIndex* outSize) {
  if (outSize) *outSize = 0;
  if (!IsKnownEncoding(inEncoding) || inRange.location < 0 || inRange.length < 0 ||
      inRange.location > inString->mLength ||
      inRange.length > inString->mLength - inRange.location) {
    return 0;
  }
  CFIndex size = 0;
  auto put = [&](const UInt8* inBytes, size_t inCount) {
    if (outBytes) {
      if (static_cast<CFIndex>(inCount) > inMaxSize - size) return false;
      std::memcpy(outBytes + size, inBytes, inCount);
    }
    size += static_cast<CFIndex>(inCount);
    return true;
  };
  if (inIsExternal && inEncoding == kCFStringEncodingUTF16) {
    constexpr UInt8 kMark[] = {0xFF, 0xFE};
    if (!put(kMark, sizeof(kMark))) return 0;
  }
  const UniChar* characters = inString->mCharacters + inRange.location;
  CFIndex done = 0;
  while (done < inRange.length) {
    EncodedCharacter next =
        Encode(characters + done, static_cast<size_t>(inRange.length - done), inEncoding);
    if (next.mSize == 0) {
      if (inLossByte == 0) break;
      next.mBytes[0] = inLossByte;
      next.mSize = 1;
    }
    if (!put(next.mBytes, next.mSize)) break;
    done += static_cast<CFIndex>(next.mUnits);
  }
  if (outSize) *outSize = size;
  return done;
}

CFIndex CFStringGetMaximumSizeForEncoding(CFIndex inLength, CFStringEncoding inEncoding) {
  CFIndex perUnit = 1;
  switch (inEncoding) {
    case kCFStringEncodingUTF8:
      perUnit = 3;
      break;
    case kCFStringEncodingUTF16:
    case kCFStringEncodingUTF16BE:
    case kCFStringEncodingUTF16LE:
      perUnit = 2;
      break;
    case kCFStringEncodingUTF32:
    case kCFStringEncodingUTF32BE:
    case kCFStringEncodingUTF32LE:
      perUnit = 4;
      break;
    default:
      break;
  }
  return inLength < 0 || inLength > LONG_MAX / perUnit ? kCFNotFound : inLength * perUnit;
}

CFIndex CFStringGetMaximumSizeOfFileSystemRepresentation(CFStringRef inString) {
  return CFStringGetMaximumSizeForEncoding(inString->mLength, kCFStringEncodingUTF8) + 1;
}

Boolean CFStringGetFileSystemRepresentation(CFStringRef inString, char* outPath, CFIndex inSize) {
  return CFStringGetCString(inString, outPath, inSize, kCFStringEncodingUTF8);
}

CFStringEncoding CFStringGetSystemEncoding() {
  return kCFStringEncodingUTF8;
}

CFStringEncoding CFStringGetFastestEncoding(CFStringRef) {
  return kCFStringEncodingUTF16;
}

CFStringEncoding CFStringGetSmallestEncoding(CFStringRef inString) {
  bool isASCII = std::all_of(inString->mCharacters, inString->mCharacters + inString->mLength,
                             [](UniChar inUnit) { return inUnit < 0x80; });
  return isASCII ? kCFStringEncodingASCII : kCFStringEncodingUTF8;
}
