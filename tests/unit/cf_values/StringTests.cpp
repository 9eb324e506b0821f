#include <CoreFoundation/CoreFoundation.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "corefoundation/Object.h"

namespace {

using String = tembra::cf::Owned<CFStringRef>;
using MutableString = tembra::cf::Owned<CFMutableStringRef>;
using tembra::cf::Owned;

String Make(const char* inText) {
  return String(CFStringCreateWithCString(nullptr, inText, kCFStringEncodingUTF8));
}

std::string Text(CFStringRef inString) {
  if (!inString) return "<null>";
  std::vector<char> buffer(static_cast<size_t>(CFStringGetLength(inString)) * 3 + 1);
  EXPECT_TRUE(CFStringGetCString(inString, buffer.data(), static_cast<CFIndex>(buffer.size()),
                                 kCFStringEncodingUTF8));
  return buffer.data();
}

template <class... Args>
std::string Format(const char* inFormat, Args... inArgs) {
  String format = Make(inFormat);
  String text(CFStringCreateWithFormat(nullptr, nullptr, format, inArgs...));
  return Text(text);
}

TEST(CFString, CountsUTF16Units) {
  String text = Make("a\xC3\xA9\xF0\x9F\x98\x80");
  EXPECT_EQ(CFStringGetLength(text), 4);
  EXPECT_EQ(CFStringGetCharacterAtIndex(text, 1), 0xE9);
  EXPECT_EQ(CFStringGetCharacterAtIndex(text, 2), 0xD83D);
  EXPECT_EQ(CFStringGetCharacterAtIndex(text, 3), 0xDE00);
  EXPECT_EQ(CFStringGetCharacterAtIndex(text, 4), 0);
}

TEST(CFString, RefusesBytesThatAreNotTextInTheEncoding) {
  for (const char* bad : {"\xC0\x80", "\x80", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xE2\x82",
                          "\xFF", "\xE0\x80\xAF", "\xF0\x80\x80\xAF"}) {
    EXPECT_EQ(CFStringCreateWithCString(nullptr, bad, kCFStringEncodingUTF8), nullptr) << bad;
  }
  EXPECT_EQ(CFStringCreateWithCString(nullptr, "\xE9", kCFStringEncodingASCII), nullptr);
  EXPECT_EQ(CFStringCreateWithCString(nullptr, "a", 0x12345), nullptr);
  const UInt8 odd[] = {1, 2, 3};
  EXPECT_EQ(CFStringCreateWithBytes(nullptr, odd, 3, kCFStringEncodingUTF16, false), nullptr);
  EXPECT_EQ(CFStringCreateWithBytes(nullptr, odd, -1, kCFStringEncodingUTF8, false), nullptr);
}

TEST(CFString, ReadsEachEncoding) {
  const UInt8 bytes[] = {'x', 0xE9};
  String latin(CFStringCreateWithBytes(nullptr, bytes, 2, kCFStringEncodingISOLatin1, false));
  EXPECT_EQ(Text(latin), "x\xC3\xA9");
  String roman(CFStringCreateWithBytes(nullptr, bytes, 2, kCFStringEncodingMacRoman, false));
  EXPECT_EQ(Text(roman), "x\xC3\x88");
  const UInt8 big[] = {0xFE, 0xFF, 0x00, 'h', 0x20, 0xAC};
  String marked(CFStringCreateWithBytes(nullptr, big, 6, kCFStringEncodingUTF16, true));
  EXPECT_EQ(Text(marked), "h\xE2\x82\xAC");
  const UInt8 little[] = {'h', 0, 0xAC, 0x20};
  String plain(CFStringCreateWithBytes(nullptr, little, 4, kCFStringEncodingUTF16, false));
  EXPECT_TRUE(CFEqual(marked, plain));
  const UInt8 utf8Mark[] = {0xEF, 0xBB, 0xBF, 'a'};
  String bom(CFStringCreateWithBytes(nullptr, utf8Mark, 4, kCFStringEncodingUTF8, true));
  EXPECT_EQ(CFStringGetLength(bom), 1);
  const UInt8 wide[] = {0, 1, 0xF6, 0};
  String utf32(CFStringCreateWithBytes(nullptr, wide, 4, kCFStringEncodingUTF32BE, false));
  EXPECT_EQ(CFStringGetLength(utf32), 2);
}

TEST(CFString, GivesCStringOnlyWhenAllOfItFits) {
  String text = Make("h\xC3\xA9llo");
  char buffer[8] = "xxxxxxx";
  EXPECT_TRUE(CFStringGetCString(text, buffer, 7, kCFStringEncodingUTF8));
  EXPECT_STREQ(buffer, "h\xC3\xA9llo");
  EXPECT_FALSE(CFStringGetCString(text, buffer, 6, kCFStringEncodingUTF8));
  EXPECT_STREQ(buffer, "");
  EXPECT_FALSE(CFStringGetCString(text, buffer, 8, kCFStringEncodingASCII));
  EXPECT_FALSE(CFStringGetCString(text, buffer, 0, kCFStringEncodingUTF8));
  EXPECT_TRUE(CFStringGetCString(text, buffer, 8, kCFStringEncodingISOLatin1));
  EXPECT_STREQ(buffer, "h\xE9llo");
}

TEST(CFString, GetBytesConvertsARangeAndStopsWhereItMust) {
  String text = Make(
      "a\xE2\x82\xAC"
      "b");
  CFIndex used = -1;
  UInt8 buffer[8] = {};
  EXPECT_EQ(
      CFStringGetBytes(text, CFRangeMake(0, 3), kCFStringEncodingASCII, 0, false, buffer, 8, &used),
      1);
  EXPECT_EQ(used, 1);
  EXPECT_EQ(CFStringGetBytes(text, CFRangeMake(0, 3), kCFStringEncodingASCII, '?', false, buffer, 8,
                             &used),
            3);
  EXPECT_EQ(std::string(buffer, buffer + used), "a?b");
  EXPECT_EQ(
      CFStringGetBytes(text, CFRangeMake(1, 2), kCFStringEncodingUTF8, 0, false, nullptr, 0, &used),
      2);
  EXPECT_EQ(used, 4);
  // A character that does not fit whole is left out.
  EXPECT_EQ(
      CFStringGetBytes(text, CFRangeMake(0, 3), kCFStringEncodingUTF8, 0, false, buffer, 3, &used),
      1);
  EXPECT_EQ(used, 1);
  EXPECT_EQ(
      CFStringGetBytes(text, CFRangeMake(2, 5), kCFStringEncodingUTF8, 0, false, buffer, 8, &used),
      0);
}

TEST(CFString, GetBytesKeepsSurrogatePairsTogetherAndRefusesLoneOnes) {
  const UniChar lone[] = {'a', 0xD83D, 'b'};
  String text(CFStringCreateWithCharacters(nullptr, lone, 3));
  CFIndex used;
  UInt8 buffer[16];
  EXPECT_EQ(
      CFStringGetBytes(text, CFRangeMake(0, 3), kCFStringEncodingUTF8, 0, false, buffer, 16, &used),
      1);
  String pair = Make("\xF0\x9F\x98\x80");
  EXPECT_EQ(CFStringGetBytes(pair, CFRangeMake(0, 2), kCFStringEncodingASCII, '?', false, buffer,
                             16, &used),
            2);
  EXPECT_EQ(used, 1);
}

TEST(CFString, ExternalUTF16BeginsWithAMark) {
  String text = Make("a");
  UInt8 buffer[4];
  CFIndex used;
  CFStringGetBytes(text, CFRangeMake(0, 1), kCFStringEncodingUTF16, 0, true, buffer, 4, &used);
  EXPECT_THAT(std::vector<UInt8>(buffer, buffer + used), testing::ElementsAre(0xFF, 0xFE, 'a', 0));
  Owned<CFDataRef> data(
      CFStringCreateExternalRepresentation(nullptr, text, kCFStringEncodingUTF16, 0));
  String back(CFStringCreateFromExternalRepresentation(nullptr, data, kCFStringEncodingUTF16));
  EXPECT_TRUE(CFEqual(text, back));
}

TEST(CFString, MaximumSizesCoverEveryText) {
  EXPECT_EQ(CFStringGetMaximumSizeForEncoding(10, kCFStringEncodingUTF8), 30);
  EXPECT_EQ(CFStringGetMaximumSizeForEncoding(10, kCFStringEncodingUTF16), 20);
  EXPECT_EQ(CFStringGetMaximumSizeForEncoding(10, kCFStringEncodingASCII), 10);
  EXPECT_EQ(CFStringGetMaximumSizeForEncoding(LONG_MAX, kCFStringEncodingUTF8), kCFNotFound);
}

TEST(CFString, ConstantStringsAreOneObjectForEachText) {
  EXPECT_EQ(CFSTR("same"), __CFStringMakeConstantString("same"));
  EXPECT_NE(CFSTR("same"), CFSTR("other"));
  std::vector<CFStringRef> seen(8);
  std::vector<std::thread> threads;
  for (auto& slot : seen) {
    threads.emplace_back([&] { slot = __CFStringMakeConstantString("raced for"); });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_THAT(seen, testing::Each(seen[0]));
  CFIndex count = CFGetRetainCount(seen[0]);
  CFRelease(seen[0]);
  EXPECT_EQ(CFGetRetainCount(seen[0]), count);
}

const CFStringRef kAtNamespaceScope = CFSTR("static");

TEST(CFString, ConstantStringsInitializeStatics) {
  EXPECT_EQ(Text(kAtNamespaceScope), "static");
}

TEST(CFString, EqualTextsAreEqualAndHashAlikeHoweverMade) {
  String first = Make("hello world");
  MutableString second(CFStringCreateMutable(nullptr, 0));
  CFStringAppendCString(second, "hello ", kCFStringEncodingASCII);
  CFStringAppend(second, CFSTR("world"));
  EXPECT_TRUE(CFEqual(first, second));
  EXPECT_EQ(CFHash(first), CFHash(second));
  EXPECT_EQ(CFHash(first), CFHash(first));
  CFHashCode before = CFHash(second);
  CFStringAppend(second, CFSTR("!"));
  EXPECT_FALSE(CFEqual(first, second));
  EXPECT_NE(before, CFHash(second));
}

// Processes find each other by names that are made with it.
TEST(CFString, TheHashOfATextIsTheSameInEveryProcess) {
  EXPECT_EQ(CFHash(Make("TMBAudioCln_Plugin").Get()), 6417128929657487900UL);
}

TEST(CFString, CopiesOfImmutableTextAreTheSameObject) {
  String text = Make("abc");
  String copy(CFStringCreateCopy(nullptr, text));
  EXPECT_EQ(text.Get(), copy.Get());
  MutableString mutableText(CFStringCreateMutableCopy(nullptr, 0, text));
  String frozen(CFStringCreateCopy(nullptr, mutableText));
  CFStringAppend(mutableText, CFSTR("d"));
  EXPECT_EQ(Text(frozen), "abc");
  EXPECT_EQ(Text(mutableText), "abcd");
  EXPECT_EQ(Text(text), "abc");
}

TEST(CFString, ComparesByCodeUnit) {
  EXPECT_EQ(CFStringCompare(CFSTR("abc"), CFSTR("abc"), 0), kCFCompareEqualTo);
  EXPECT_EQ(CFStringCompare(CFSTR("abc"), CFSTR("abd"), 0), kCFCompareLessThan);
  EXPECT_EQ(CFStringCompare(CFSTR("abd"), CFSTR("abc"), 0), kCFCompareGreaterThan);
  EXPECT_EQ(CFStringCompare(CFSTR("ab"), CFSTR("abc"), 0), kCFCompareLessThan);
  EXPECT_EQ(CFStringCompare(CFSTR("abc"), CFSTR("ab"), 0), kCFCompareGreaterThan);
  EXPECT_EQ(CFStringCompare(CFSTR("ABC"), CFSTR("abc"), 0), kCFCompareLessThan);
}

TEST(CFString, ComparesWithoutCase) {
  EXPECT_EQ(CFStringCompare(CFSTR("ABC"), CFSTR("abc"), kCFCompareCaseInsensitive),
            kCFCompareEqualTo);
  String upper = Make("\xC3\x89\xCE\xA9\xD0\x96\xC4\x80\xC5\xB8\xD0\x81");
  String lower = Make("\xC3\xA9\xCF\x89\xD0\xB6\xC4\x81\xC3\xBF\xD1\x91");
  EXPECT_EQ(CFStringCompare(upper, lower, kCFCompareCaseInsensitive), kCFCompareEqualTo);
  String times = Make("\xC3\x97"), divided = Make("\xC3\xB7");
  EXPECT_NE(CFStringCompare(times, divided, kCFCompareCaseInsensitive), kCFCompareEqualTo);
}

TEST(CFString, ComparesNumerically) {
  EXPECT_EQ(CFStringCompare(CFSTR("v2"), CFSTR("v10"), kCFCompareNumerically), kCFCompareLessThan);
  EXPECT_EQ(CFStringCompare(CFSTR("v2"), CFSTR("v10"), 0), kCFCompareGreaterThan);
  EXPECT_EQ(CFStringCompare(CFSTR("v002b"), CFSTR("v2b"), kCFCompareNumerically),
            kCFCompareEqualTo);
  EXPECT_EQ(CFStringCompare(CFSTR("99999999999999999999998"), CFSTR("99999999999999999999999"),
                            kCFCompareNumerically),
            kCFCompareLessThan);
}

TEST(CFString, FindsForwardsAndBackwards) {
  CFRange found = CFStringFind(CFSTR("abcabc"), CFSTR("bc"), 0);
  EXPECT_EQ(found.location, 1);
  EXPECT_EQ(found.length, 2);
  EXPECT_EQ(CFStringFind(CFSTR("abcabc"), CFSTR("bc"), kCFCompareBackwards).location, 4);
  EXPECT_EQ(CFStringFind(CFSTR("abcabc"), CFSTR("bc"), kCFCompareAnchored).location, kCFNotFound);
  EXPECT_EQ(CFStringFind(CFSTR("abcabc"), CFSTR("BC"), 0).location, kCFNotFound);
  EXPECT_EQ(CFStringFind(CFSTR("abcabc"), CFSTR("BC"), kCFCompareCaseInsensitive).location, 1);
  EXPECT_EQ(CFStringFind(CFSTR("a"), CFSTR("abc"), 0).location, kCFNotFound);
  EXPECT_EQ(CFStringFind(CFSTR("a"), CFSTR(""), 0).location, kCFNotFound);
}

TEST(CFString, KnowsPrefixAndSuffix) {
  EXPECT_TRUE(CFStringHasPrefix(CFSTR("abc"), CFSTR("ab")));
  EXPECT_TRUE(CFStringHasPrefix(CFSTR("abc"), CFSTR("")));
  EXPECT_FALSE(CFStringHasPrefix(CFSTR("abc"), CFSTR("bc")));
  EXPECT_FALSE(CFStringHasPrefix(CFSTR("a"), CFSTR("ab")));
  EXPECT_TRUE(CFStringHasSuffix(CFSTR("abc"), CFSTR("bc")));
  EXPECT_FALSE(CFStringHasSuffix(CFSTR("c"), CFSTR("bc")));
}

TEST(CFString, ReadsIntegers) {
  EXPECT_EQ(CFStringGetIntValue(CFSTR("42")), 42);
  EXPECT_EQ(CFStringGetIntValue(CFSTR("  -17xyz")), -17);
  EXPECT_EQ(CFStringGetIntValue(CFSTR("+8")), 8);
  EXPECT_EQ(CFStringGetIntValue(CFSTR("xyz")), 0);
  EXPECT_EQ(CFStringGetIntValue(CFSTR("")), 0);
  EXPECT_EQ(CFStringGetIntValue(CFSTR("99999999999999999999")), INT_MAX);
  EXPECT_EQ(CFStringGetIntValue(CFSTR("-99999999999999999999")), INT_MIN);
  EXPECT_DOUBLE_EQ(CFStringGetDoubleValue(CFSTR(" 44100.5 Hz")), 44100.5);
  EXPECT_EQ(CFStringGetDoubleValue(CFSTR("inf")), 0.0);
}

TEST(CFString, TakesSubstringsWithinTheText) {
  String part(CFStringCreateWithSubstring(nullptr, CFSTR("hello"), CFRangeMake(1, 3)));
  EXPECT_EQ(Text(part), "ell");
  EXPECT_EQ(CFStringCreateWithSubstring(nullptr, CFSTR("hello"), CFRangeMake(3, 3)), nullptr);
  EXPECT_EQ(CFStringCreateWithSubstring(nullptr, CFSTR("hello"), CFRangeMake(-1, 3)), nullptr);
  UniChar units[3] = {};
  CFStringGetCharacters(CFSTR("hello"), CFRangeMake(2, 3), units);
  EXPECT_THAT(units, testing::ElementsAre('l', 'l', 'o'));
}

TEST(CFString, EditsMutableText) {
  MutableString text(CFStringCreateMutable(nullptr, 0));
  CFStringAppendFormat(text, nullptr, CFSTR("%d-%@"), 5, CFSTR("x"));
  CFStringInsert(text, 0, CFSTR("<<"));
  EXPECT_EQ(Text(text), "<<5-x");
  CFStringReplace(text, CFRangeMake(2, 1), CFSTR("five"));
  EXPECT_EQ(Text(text), "<<five-x");
  CFStringDelete(text, CFRangeMake(0, 2));
  EXPECT_EQ(Text(text), "five-x");
  EXPECT_EQ(CFStringFindAndReplace(text, CFSTR("e"), CFSTR("ee"), CFRangeMake(0, 6), 0), 1);
  EXPECT_EQ(Text(text), "fivee-x");
  CFStringAppend(text, text);
  EXPECT_EQ(Text(text), "fivee-xfivee-x");
  CFStringReplaceAll(text, CFSTR("  \t in \n"));
  CFStringTrimWhitespace(text);
  EXPECT_EQ(Text(text), "in");
  CFStringReplace(text, CFRangeMake(1, 9), CFSTR("bad range"));
  EXPECT_EQ(Text(text), "in");
}

TEST(CFString, MutableTextKeepsToItsLimitAndImmutableTextDoesNotChange) {
  MutableString text(CFStringCreateMutable(nullptr, 4));
  CFStringAppend(text, CFSTR("abc"));
  CFStringAppend(text, CFSTR("de"));
  EXPECT_EQ(Text(text), "abc");
  String constant = Make("fixed");
  CFStringAppend(const_cast<CFMutableStringRef>(constant.Get()), CFSTR("!"));
  EXPECT_EQ(Text(constant), "fixed");
}

TEST(CFString, JoinsAndSplits) {
  Owned<CFArrayRef> parts(
      CFStringCreateArrayBySeparatingStrings(nullptr, CFSTR("a,,b"), CFSTR(",")));
  ASSERT_EQ(CFArrayGetCount(parts), 3);
  EXPECT_EQ(Text(static_cast<CFStringRef>(CFArrayGetValueAtIndex(parts, 1))), "");
  String joined(CFStringCreateByCombiningStrings(nullptr, parts, CFSTR("+")));
  EXPECT_EQ(Text(joined), "a++b");
}

TEST(CFStringFormat, FormatsIntegersOfEachWidth) {
  EXPECT_EQ(Format("%d %i", -5, 6), "-5 6");
  EXPECT_EQ(Format("%u", 4294967295u), "4294967295");
  EXPECT_EQ(Format("%ld %lu", -5L, 5UL), "-5 5");
  EXPECT_EQ(Format("%lld %qd %qu", -5LL, 9223372036854775807LL, 18446744073709551615ULL),
            "-5 9223372036854775807 18446744073709551615");
  EXPECT_EQ(Format("%x %X %o %#x", 255, 255, 8, 255), "ff FF 10 0xff");
  EXPECT_EQ(Format("%hhd %hd", 257, 65537), "1 1");
  EXPECT_EQ(Format("%zu %td %jd", size_t{7}, ptrdiff_t{-7}, intmax_t{9}), "7 -7 9");
  EXPECT_EQ(Format("%5d|%-5d|%05d|%+d", 42, 42, 42, 42), "   42|42   |00042|+42");
  EXPECT_EQ(Format("%*d|%-*d|%.3d", 4, 7, 4, 7, 7), "   7|7   |007");
}

TEST(CFStringFormat, FormatsTextCharactersAndObjects) {
  EXPECT_EQ(Format("%s|%5s|%-5s|%.2s", "abc", "abc", "abc", "abc"), "abc|  abc|abc  |ab");
  EXPECT_EQ(Format("%s", "\xC3\xA9"), "\xC3\xA9");
  EXPECT_EQ(Format("%s", static_cast<const char*>(nullptr)), "(null)");
  EXPECT_EQ(Format("%c%C", 'x', 0xE9), "x\xC3\xA9");
  EXPECT_EQ(Format("%@ %@", CFSTR("obj"), static_cast<CFTypeRef>(nullptr)), "obj (null)");
  int value = 12;
  Owned<CFNumberRef> number(CFNumberCreate(nullptr, kCFNumberIntType, &value));
  EXPECT_EQ(Format("%@ %@", number.Get(), kCFBooleanTrue), "12 true");
  EXPECT_EQ(Format("%6@|", CFSTR("ab")), "    ab|");
  EXPECT_EQ(Format("%p", reinterpret_cast<void*>(0x1234)), "0x1234");
  EXPECT_EQ(Format("100%%"), "100%");
}

TEST(CFStringFormat, FormatsReals) {
  EXPECT_EQ(Format("%f %.2f %g %e", 1.5, 2.345, 0.5, 1500.0), "1.500000 2.35 0.5 1.500000e+03");
  EXPECT_EQ(Format("%Lg", 2.5L), "2.5");
}

TEST(CFStringFormat, TakesArgumentsByPosition) {
  EXPECT_EQ(Format("%2$s %1$d", 7, "seven"), "seven 7");
  EXPECT_EQ(Format("%2$@/%1$lld/%2$@", 5LL, CFSTR("x")), "x/5/x");
}

TEST(CFStringFormat, MixesManyArguments) {
  EXPECT_EQ(Format("%d %f %s %lld %f %d %d %d %d %d", 1, 2.0, "3", 4LL, 5.0, 6, 7, 8, 9, 10),
            "1 2.000000 3 4 5.000000 6 7 8 9 10");
  std::string wide = Format("%300d", 1);
  EXPECT_EQ(wide, std::string(299, ' ') + "1");
}

TEST(CFStringFormat, AnUnfinishedConversionPutsNothing) {
  EXPECT_EQ(Format("abc%"), "abc");
  EXPECT_EQ(Format("%y|"), "|");
  EXPECT_EQ(Format("%99999999999$d|"), "d|");
}

}  // namespace
