#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "corefoundation/Encoding.h"
#include "corefoundation/String.h"

using namespace tembra::cf;

bool __CFString::Replace(CFRange inRange, const UniChar* inCharacters, CFIndex inLength) {
  if (!mIsMutable || inRange.location < 0 || inRange.length < 0 || inLength < 0 ||
      inRange.location > mLength || inRange.length > mLength - inRange.location) {
    return false;
  }
  CFIndex kept = mLength - inRange.length;
  if (inLength > LONG_MAX / 4 - kept) return false;
  CFIndex newLength = kept + inLength;
  if (mLimit > 0 && newLength > mLimit) return false;
  CFIndex tail = kept - inRange.location;
  auto* old = const_cast<UniChar*>(mCharacters);
  // A new buffer also when the characters are this text's own.
  bool isOwn = inCharacters >= old && inCharacters < old + mLength;
  if (newLength > mCapacity || isOwn) {
    CFIndex capacity = std::max({newLength, mCapacity * 2, CFIndex{16}});
    auto* buffer =
        static_cast<UniChar*>(std::malloc(static_cast<size_t>(capacity) * sizeof(UniChar)));
    if (!buffer) return false;
    std::copy_n(old, inRange.location, buffer);
    std::copy_n(inCharacters, inLength, buffer + inRange.location);
    std::copy_n(old + inRange.location + inRange.length, tail,
                buffer + inRange.location + inLength);
    std::free(old);
    mCharacters = buffer;
    mCapacity = capacity;
  } else if (old) {
    std::memmove(old + inRange.location + inLength, old + inRange.location + inRange.length,
                 static_cast<size_t>(tail) * sizeof(UniChar));
    std::copy_n(inCharacters, inLength, old + inRange.location);
  }
  mLength = newLength;
  return true;
}

CFMutableStringRef CFStringCreateMutable(CFAllocatorRef inAllocator, CFIndex inMaxLength) {
  auto* string = Create<__CFString>(inAllocator, true);
  if (string) string->mLimit = std::max<CFIndex>(inMaxLength, 0);
  return string;
}

CFMutableStringRef CFStringCreateMutableCopy(CFAllocatorRef inAllocator, CFIndex inMaxLength,
                                             CFStringRef inString) {
  Owned<CFMutableStringRef> copy(CFStringCreateMutable(inAllocator, inMaxLength));
  if (!copy || !copy.Get()->Replace(CFRangeMake(0, 0), inString->mCharacters, inString->mLength)) {
    return nullptr;
  }
  return copy.Detach();
}

void CFStringAppend(CFMutableStringRef inString, CFStringRef inOther) {
  CFStringAppendCharacters(inString, inOther->mCharacters, inOther->mLength);
}

void CFStringAppendCharacters(CFMutableStringRef inString, const UniChar* inCharacters,
                              CFIndex inLength) {
  inString->Replace(CFRangeMake(inString->mLength, 0), inCharacters, inLength);
}

void CFStringAppendCString(CFMutableStringRef inString, const char* inText,
                           CFStringEncoding inEncoding) {
  Owned<CFStringRef> text(CFStringCreateWithCString(nullptr, inText, inEncoding));
  if (text) CFStringAppend(inString, text);
}

void CFStringAppendFormat(CFMutableStringRef inString, CFDictionaryRef inOptions,
                          CFStringRef inFormat, ...) {
  va_list arguments;
  va_start(arguments, inFormat);
  CFStringAppendFormatAndArguments(inString, inOptions, inFormat, arguments);
  va_end(arguments);
}

void CFStringAppendFormatAndArguments(CFMutableStringRef inString, CFDictionaryRef inOptions,
                                      CFStringRef inFormat, va_list inArguments) {
  Owned<CFStringRef> text(
      CFStringCreateWithFormatAndArguments(nullptr, inOptions, inFormat, inArguments));
  if (text) CFStringAppend(inString, text);
}

void CFStringInsert(CFMutableStringRef inString, CFIndex inIndex, CFStringRef inInserted) {
  CFStringReplace(inString, CFRangeMake(inIndex, 0), inInserted);
}

void CFStringDelete(CFMutableStringRef inString, CFRange inRange) {
  inString->Replace(inRange, nullptr, 0);
}

void CFStringReplace(CFMutableStringRef inString, CFRange inRange, CFStringRef inReplacement) {
  inString->Replace(inRange, inReplacement->mCharacters, inReplacement->mLength);
}

void CFStringReplaceAll(CFMutableStringRef inString, CFStringRef inReplacement) {
  CFStringReplace(inString, CFRangeMake(0, inString->mLength), inReplacement);
}

CFIndex CFStringFindAndReplace(CFMutableStringRef inString, CFStringRef inPattern,
                               CFStringRef inReplacement, CFRange inRange,
                               CFStringCompareFlags inOptions) {
  CFIndex count = 0;
  CFRange found;
  while (CFStringFindWithOptions(inString, inPattern, inRange, inOptions, &found)) {
    CFIndex end = inRange.location + inRange.length;
    if (!inString->Replace(found, inReplacement->mCharacters, inReplacement->mLength)) break;
    ++count;
    if (inOptions & kCFCompareBackwards) {
      inRange.length = found.location - inRange.location;
    } else {
      inRange.location = found.location + inReplacement->mLength;
      inRange.length = end - found.location - found.length;
    }
    if (inOptions & kCFCompareAnchored) break;
  }
  return count;
}

void CFStringTrimWhitespace(CFMutableStringRef inString) {
  auto isSpace = [](UniChar inUnit) {
    return inUnit == ' ' || (inUnit >= '\t' && inUnit <= '\r') || inUnit == 0x85 || inUnit == 0xA0;
  };
  CFIndex end = inString->mLength;
  while (end > 0 && isSpace(inString->mCharacters[end - 1])) --end;
  CFStringDelete(inString, CFRangeMake(end, inString->mLength - end));
  CFIndex start = 0;
  while (start < end && isSpace(inString->mCharacters[start])) ++start;
  CFStringDelete(inString, CFRangeMake(0, start));
}

CFStringRef CFStringCreateByCombiningStrings(CFAllocatorRef inAllocator, CFArrayRef inStrings,
                                             CFStringRef inSeparator) {
  Owned<CFMutableStringRef> text(CFStringCreateMutable(nullptr, 0));
  if (!text) return nullptr;
  for (CFIndex i = 0; i < CFArrayGetCount(inStrings); ++i) {
    if (i > 0 && inSeparator) CFStringAppend(text, inSeparator);
    CFStringAppend(text, static_cast<CFStringRef>(CFArrayGetValueAtIndex(inStrings, i)));
  }
  return CreateString(inAllocator, text.Get()->mCharacters, text.Get()->mLength);
}

CFArrayRef CFStringCreateArrayBySeparatingStrings(CFAllocatorRef inAllocator, CFStringRef inString,
                                                  CFStringRef inSeparator) {
  Owned<CFMutableArrayRef> parts(CFArrayCreateMutable(inAllocator, 0, &kCFTypeArrayCallBacks));
  if (!parts) return nullptr;
  CFIndex start = 0;
  for (;;) {
    CFRange found = CFRangeMake(inString->mLength, 0);
    bool more = CFStringFindWithOptions(inString, inSeparator,
                                        CFRangeMake(start, inString->mLength - start), 0, &found);
    Owned<CFStringRef> part(
        CreateString(inAllocator, inString->mCharacters + start, found.location - start));
    if (!part) return nullptr;
    CFArrayAppendValue(parts, part);
    if (!more) return parts.Detach();
    start = found.location + found.length;
  }
}
