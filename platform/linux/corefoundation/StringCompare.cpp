#include <algorithm>
#include <cerrno>
#include <clocale>
#include <cstdlib>
#include <string>

#include "corefoundation/String.h"

using namespace tembra::cf;

namespace tembra::cf {

UniChar FoldCase(UniChar inCharacter) {
  UniChar c = inCharacter;
  if (c < 0x80) return c >= 'A' && c <= 'Z' ? static_cast<UniChar>(c + 32) : c;
  // Latin-1, Greek and Cyrillic capitals stand 32 (or 80) below their small letters.
  if ((c >= 0xC0 && c <= 0xDE && c != 0xD7) || (c >= 0x391 && c <= 0x3A9 && c != 0x3A2) ||
      (c >= 0x410 && c <= 0x42F)) {
    return static_cast<UniChar>(c + 32);
  }
  if (c >= 0x400 && c <= 0x40F) return static_cast<UniChar>(c + 80);
  // Latin Extended-A pairs them, capital first, on even code points and then on odd ones.
  if ((c >= 0x100 && c <= 0x137 && c != 0x130 && c != 0x131) || (c >= 0x14A && c <= 0x177)) {
    return static_cast<UniChar>(c | 1);
  }
  if ((c >= 0x139 && c <= 0x148) || (c >= 0x179 && c <= 0x17E)) {
    return static_cast<UniChar>(c % 2 == 1 ? c + 1 : c);
  }
  return c == 0x178 ? UniChar{0xFF} : c;
}

}  // namespace tembra::cf

namespace {

bool IsDigit(UniChar inUnit) {
  return inUnit >= '0' && inUnit <= '9';
}

// Two runs of digits by their value, however long; both ends move behind their run.
int CompareDigits(const UniChar*& ioFirst, const UniChar* inFirstEnd, const UniChar*& ioSecond,
                  const UniChar* inSecondEnd) {
  while (ioFirst < inFirstEnd && *ioFirst == '0') ++ioFirst;
  while (ioSecond < inSecondEnd && *ioSecond == '0') ++ioSecond;
  const UniChar* first = ioFirst;
  const UniChar* second = ioSecond;
  ioFirst = std::find_if_not(ioFirst, inFirstEnd, IsDigit);
  ioSecond = std::find_if_not(ioSecond, inSecondEnd, IsDigit);
  if (ioFirst - first != ioSecond - second) return ioFirst - first < ioSecond - second ? -1 : 1;
  for (; first < ioFirst; ++first, ++second) {
    if (*first != *second) return *first < *second ? -1 : 1;
  }
  return 0;
}

bool Matches(const UniChar* inText, CFStringRef inPattern, bool inIgnoreCase) {
  for (CFIndex i = 0; i < inPattern->mLength; ++i) {
    UniChar a = inText[i], b = inPattern->mCharacters[i];
    if (a != b && !(inIgnoreCase && FoldCase(a) == FoldCase(b))) return false;
  }
  return true;
}

bool IsWithin(CFStringRef inString, CFRange inRange) {
  return inRange.location >= 0 && inRange.length >= 0 && inRange.location <= inString->mLength &&
         inRange.length <= inString->mLength - inRange.location;
}

}  // namespace

CFComparisonResult CFStringCompare(CFStringRef inFirst, CFStringRef inSecond,
                                   CFStringCompareFlags inOptions) {
  return CFStringCompareWithOptions(inFirst, inSecond, CFRangeMake(0, inFirst->mLength), inOptions);
}

CFComparisonResult CFStringCompareWithOptions(CFStringRef inFirst, CFStringRef inSecond,
                                              CFRange inRange, CFStringCompareFlags inOptions) {
  if (!IsWithin(inFirst, inRange)) return kCFCompareLessThan;
  const UniChar* first = inFirst->mCharacters + inRange.location;
  const UniChar* firstEnd = first + inRange.length;
  const UniChar* second = inSecond->mCharacters;
  const UniChar* secondEnd = second + inSecond->mLength;
  bool ignoreCase = inOptions & kCFCompareCaseInsensitive;
  while (first < firstEnd && second < secondEnd) {
    if ((inOptions & kCFCompareNumerically) && IsDigit(*first) && IsDigit(*second)) {
      if (int order = CompareDigits(first, firstEnd, second, secondEnd)) {
        return static_cast<CFComparisonResult>(order);
      }
      continue;
    }
    UniChar a = ignoreCase ? FoldCase(*first) : *first;
    UniChar b = ignoreCase ? FoldCase(*second) : *second;
    if (a != b) return a < b ? kCFCompareLessThan : kCFCompareGreaterThan;
    ++first;
    ++second;
  }
  if (first < firstEnd) return kCFCompareGreaterThan;
  return second < secondEnd ? kCFCompareLessThan : kCFCompareEqualTo;
}

Boolean CFStringFindWithOptions(CFStringRef inString, CFStringRef inPattern, CFRange inRange,
                                CFStringCompareFlags inOptions, CFRange* outFound) {
  CFIndex length = inPattern->mLength;
  if (!IsWithin(inString, inRange) || length == 0 || length > inRange.length) return false;
  bool ignoreCase = inOptions & kCFCompareCaseInsensitive;
  bool backwards = inOptions & kCFCompareBackwards;
  CFIndex first = inRange.location, last = inRange.location + inRange.length - length;
  CFIndex tries = inOptions & kCFCompareAnchored ? 1 : last - first + 1;
  for (CFIndex i = 0; i < tries; ++i) {
    CFIndex at = backwards ? last - i : first + i;
    if (Matches(inString->mCharacters + at, inPattern, ignoreCase)) {
      if (outFound) *outFound = CFRangeMake(at, length);
      return true;
    }
  }
  return false;
}

CFRange CFStringFind(CFStringRef inString, CFStringRef inPattern, CFStringCompareFlags inOptions) {
  CFRange found = CFRangeMake(kCFNotFound, 0);
  CFStringFindWithOptions(inString, inPattern, CFRangeMake(0, inString->mLength), inOptions,
                          &found);
  return found;
}

Boolean CFStringHasPrefix(CFStringRef inString, CFStringRef inPrefix) {
  return inPrefix->mLength <= inString->mLength && Matches(inString->mCharacters, inPrefix, false);
}

Boolean CFStringHasSuffix(CFStringRef inString, CFStringRef inSuffix) {
  CFIndex at = inString->mLength - inSuffix->mLength;
  return at >= 0 && Matches(inString->mCharacters + at, inSuffix, false);
}

SInt32 CFStringGetIntValue(CFStringRef inString) {
  const UniChar* at = inString->mCharacters;
  const UniChar* end = at + inString->mLength;
  while (at < end && (*at == ' ' || (*at >= '\t' && *at <= '\r'))) ++at;
  bool isNegative = at < end && *at == '-';
  if (at < end && (*at == '-' || *at == '+')) ++at;
  SInt64 value = 0;
  for (; at < end && IsDigit(*at); ++at) {
    value = std::min<SInt64>(value * 10 + (*at - '0'), SInt64{INT_MAX} + 1);
  }
  if (isNegative) return static_cast<SInt32>(-value);
  return static_cast<SInt32>(std::min<SInt64>(value, INT_MAX));
}

double CFStringGetDoubleValue(CFStringRef inString) {
  return Guarded([&] {
    static const locale_t sPlain = newlocale(LC_ALL_MASK, "C", nullptr);
    std::string text = ToUTF8(inString);
    size_t start = text.find_first_not_of(" \t\n\v\f\r");
    if (start == std::string::npos) return 0.0;
    // Decimal digits only: strtod would take hexadecimal, "inf" and "nan" as well.
    size_t end = text.find_first_not_of("+-0123456789.eE", start);
    return strtod_l(text.substr(start, end - start).c_str(), nullptr, sPlain);
  });
}
