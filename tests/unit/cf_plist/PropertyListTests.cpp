#include <CoreFoundation/CoreFoundation.h>
#include <CoreServices/GestaltPriv.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "corefoundation/Object.h"
#include "support/CommaLocale.h"

namespace {

using tembra::cf::Owned;
using tembra::test::CommaLocale;
using List = Owned<CFPropertyListRef>;
using Data = Owned<CFDataRef>;
using String = Owned<CFStringRef>;

constexpr CFPropertyListFormat kBinary = kCFPropertyListBinaryFormat_v1_0;
constexpr CFPropertyListFormat kXML = kCFPropertyListXMLFormat_v1_0;

Data Bytes(const std::string& inBytes) {
  return Data(CFDataCreate(nullptr, reinterpret_cast<const UInt8*>(inBytes.data()),
                           static_cast<CFIndex>(inBytes.size())));
}

std::string Text(CFDataRef inData) {
  return std::string(reinterpret_cast<const char*>(CFDataGetBytePtr(inData)),
                     static_cast<size_t>(CFDataGetLength(inData)));
}

List Read(const std::string& inBytes, CFOptionFlags inOptions = 0) {
  return List(CFPropertyListCreateWithData(nullptr, Bytes(inBytes), inOptions, nullptr, nullptr));
}

std::string XML(const std::string& inBody) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">" + inBody +
         "</plist>\n";
}

List Number(CFNumberType inType, const void* inValue) {
  return List(CFNumberCreate(nullptr, inType, inValue));
}

List RoundTrip(CFTypeRef inList, CFPropertyListFormat inFormat) {
  Data data(CFPropertyListCreateData(nullptr, inList, inFormat, 0, nullptr));
  if (!data) return {};
  CFPropertyListFormat format = kCFPropertyListOpenStepFormat;
  List list(CFPropertyListCreateWithData(nullptr, data, 0, &format, nullptr));
  EXPECT_EQ(format, inFormat);
  return list;
}

Owned<CFMutableDictionaryRef> MakeDictionary() {
  return Owned<CFMutableDictionaryRef>(CFDictionaryCreateMutable(
      nullptr, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
}

class BothFormats : public testing::TestWithParam<CFPropertyListFormat> {};
INSTANTIATE_TEST_SUITE_P(PropertyList, BothFormats, testing::Values(kBinary, kXML));

TEST_P(BothFormats, IntegersOfEveryWidthKeepTheirValue) {
  for (SInt64 value : {0LL, 1LL, -1LL, 127LL, 128LL, 255LL, 256LL, -129LL, 65535LL, 65536LL,
                       2147483647LL, 2147483648LL, -2147483648LL, 4294967295LL, 4294967296LL,
                       9223372036854775807LL, -9223372036854775807LL - 1}) {
    List number = Number(kCFNumberSInt64Type, &value);
    List back = RoundTrip(number, GetParam());
    ASSERT_TRUE(back) << value;
    EXPECT_TRUE(CFEqual(number, back)) << value;
    EXPECT_FALSE(CFNumberIsFloatType(static_cast<CFNumberRef>(back.Get())));
  }
}

TEST_P(BothFormats, RealsStayRealToTheLastBit) {
  for (double value : {0.0, 44100.0, 0.1 + 0.2, 1e300, 5e-324, 1.0 / 3, -48000.25, 1e-7}) {
    List back = RoundTrip(Number(kCFNumberFloat64Type, &value), GetParam());
    ASSERT_TRUE(back) << value;
    auto number = static_cast<CFNumberRef>(back.Get());
    EXPECT_TRUE(CFNumberIsFloatType(number));
    double read = 0;
    EXPECT_TRUE(CFNumberGetValue(number, kCFNumberFloat64Type, &read));
    EXPECT_EQ(read, value);
  }
  List infinite = RoundTrip(kCFNumberPositiveInfinity, GetParam());
  EXPECT_TRUE(CFEqual(infinite, kCFNumberPositiveInfinity));
  List nan = RoundTrip(kCFNumberNaN, GetParam());
  EXPECT_TRUE(CFEqual(nan, kCFNumberNaN));
}

TEST_P(BothFormats, OtherValuesComeBackEqual) {
  auto dictionary = MakeDictionary();
  Owned<CFMutableArrayRef> array(CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks));
  CFArrayAppendValue(array, kCFBooleanTrue);
  CFArrayAppendValue(array, kCFBooleanFalse);
  CFArrayAppendValue(array, CFSTR(""));
  String text(
      CFStringCreateWithCString(nullptr, "<&> \"\xC3\xA9\xF0\x9F\x98\x80", kCFStringEncodingUTF8));
  CFArrayAppendValue(array, text);
  CFArrayAppendValue(array, Bytes(std::string("\0\xFF\x01", 3)));
  CFArrayAppendValue(array, Bytes(""));
  CFArrayAppendValue(array, Bytes(std::string(1000, 'x')));
  Owned<CFDateRef> date(CFDateCreate(nullptr, 700000000.0)), early(CFDateCreate(nullptr, -3600.0));
  CFArrayAppendValue(array, date);
  CFArrayAppendValue(array, early);
  CFDictionarySetValue(dictionary, text, array);
  CFDictionarySetValue(dictionary, CFSTR("empty"), MakeDictionary());
  List back = RoundTrip(dictionary, GetParam());
  EXPECT_TRUE(CFEqual(dictionary, back));
}

TEST_P(BothFormats, DatesOfAllYearsComeBackEqual) {
  // The first and the last second, the year 4001 that stands for never, and both sides of where
  // seconds leave 32 bits.
  for (const double time :
       {-63114076800.0, 252423993599.0, 63113904000.0, -31588531199.0, 2147483646.0, 2147483647.0,
        2147483648.0, -2147483647.0, -2147483648.0, -2147483649.0}) {
    SCOPED_TRACE(time);
    Owned<CFDateRef> date(CFDateCreate(nullptr, time));
    List back = RoundTrip(date, GetParam());
    ASSERT_TRUE(back);
    EXPECT_EQ(CFDateGetAbsoluteTime(static_cast<CFDateRef>(back.Get())), time);
  }
}

TEST_P(BothFormats, DatesOfOtherYearsAreRefused) {
  for (const double time : {-63114076801.0, 252423993600.0, 1e300, -1e300}) {
    Owned<CFDateRef> date(CFDateCreate(nullptr, time));
    EXPECT_EQ(CFPropertyListCreateData(nullptr, date, GetParam(), 0, nullptr), nullptr) << time;
  }
}

TEST_P(BothFormats, LongContainersAndStringsComeBackEqual) {
  auto dictionary = MakeDictionary();
  for (int i = 0; i < 2000; ++i) {
    String key(CFStringCreateWithFormat(nullptr, nullptr, CFSTR("key-%05d"), i));
    CFDictionarySetValue(dictionary, key, key);
  }
  List back = RoundTrip(dictionary, GetParam());
  EXPECT_TRUE(CFEqual(dictionary, back));
}

TEST_P(BothFormats, IntegersFrom2To63AreUnsignedAndKeepTheirValue) {
  List list = Read(XML("<integer>18446744073709551615</integer>"));
  ASSERT_TRUE(list);
  List back = RoundTrip(list, GetParam());
  for (CFTypeRef ref : {list.Get(), back.Get()}) {
    auto number = static_cast<CFNumberRef>(ref);
    SInt64 bits = 0;
    EXPECT_FALSE(CFNumberGetValue(number, kCFNumberSInt64Type, &bits));
    EXPECT_EQ(bits, -1);
    double real = 0;
    CFNumberGetValue(number, kCFNumberFloat64Type, &real);
    EXPECT_EQ(real, 18446744073709551616.0);
  }
  EXPECT_TRUE(CFEqual(list, back));
  SInt64 minusOne = -1;
  EXPECT_FALSE(CFEqual(list, Number(kCFNumberSInt64Type, &minusOne)));
}

TEST_P(BothFormats, WhatIsNoPropertyListIsRefusedWithAnError) {
  Owned<CFUUIDRef> uuid(CFUUIDCreate(nullptr));
  auto badKey = MakeDictionary();
  CFDictionarySetValue(badKey, kCFBooleanTrue, CFSTR("x"));
  auto badValue = MakeDictionary();
  CFDictionarySetValue(badValue, CFSTR("x"), kCFNull);
  const UniChar lone[] = {0xD800}, null[] = {'a', 0};
  String surrogate(CFStringCreateWithCharacters(nullptr, lone, 1));
  String withNull(CFStringCreateWithCharacters(nullptr, null, 2));
  Owned<CFDateRef> far(CFDateCreate(nullptr, 1e12));
  Owned<CFMutableArrayRef> itself(CFArrayCreateMutable(nullptr, 0, nullptr));
  CFArrayAppendValue(itself, itself);
  for (CFTypeRef bad : std::vector<CFTypeRef>{uuid, kCFNull, badKey, badValue, surrogate, withNull,
                                              far, itself, nullptr}) {
    CFErrorRef error = nullptr;
    EXPECT_EQ(CFPropertyListCreateData(nullptr, bad, GetParam(), 0, &error), nullptr);
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(CFErrorGetCode(error), kCFPropertyListWriteStreamError);
    CFRelease(error);
  }
}

TEST_P(BothFormats, GoesThroughFileStreams) {
  std::string path = std::string(TEMBRA_BINARY_DIR) + "/list-" + std::to_string(GetParam()) + "-" +
                     std::to_string(getpid());
  Owned<CFURLRef> url(
      CFURLCreateFromFileSystemRepresentation(nullptr, reinterpret_cast<const UInt8*>(path.data()),
                                              static_cast<CFIndex>(path.size()), false));
  auto dictionary = MakeDictionary();
  CFDictionarySetValue(dictionary, CFSTR("a"), kCFBooleanTrue);
  Owned<CFWriteStreamRef> out(CFWriteStreamCreateWithFile(nullptr, url));
  CFErrorRef error = nullptr;
  EXPECT_EQ(CFPropertyListWrite(dictionary, out, GetParam(), 0, &error), 0);
  ASSERT_NE(error, nullptr);
  CFRelease(error);
  EXPECT_EQ(CFWriteStreamGetStatus(out), kCFStreamStatusNotOpen);
  ASSERT_TRUE(CFWriteStreamOpen(out));
  EXPECT_FALSE(CFWriteStreamOpen(out));
  EXPECT_GT(CFPropertyListWrite(dictionary, out, GetParam(), 0, nullptr), 0);
  CFWriteStreamClose(out);
  EXPECT_EQ(CFWriteStreamGetStatus(out), kCFStreamStatusClosed);
  Owned<CFReadStreamRef> in(CFReadStreamCreateWithFile(nullptr, url));
  UInt8 byte;
  EXPECT_EQ(CFReadStreamRead(in, &byte, 1), -1);
  ASSERT_TRUE(CFReadStreamOpen(in));
  CFPropertyListFormat format;
  List back(CFPropertyListCreateWithStream(nullptr, in, 0, 0, &format, nullptr));
  EXPECT_TRUE(CFEqual(back, dictionary));
  EXPECT_EQ(format, GetParam());
  EXPECT_EQ(CFReadStreamGetStatus(in), kCFStreamStatusAtEnd);
  EXPECT_EQ(CFReadStreamRead(in, &byte, 1), 0);
  EXPECT_EQ(CFReadStreamCopyProperty(in, CFSTR("any")), nullptr);
  unlink(path.c_str());
  Owned<CFReadStreamRef> missing(CFReadStreamCreateWithFile(nullptr, url));
  EXPECT_FALSE(CFReadStreamOpen(missing));
  EXPECT_EQ(CFReadStreamGetStatus(missing), kCFStreamStatusError);
  EXPECT_EQ(CFReadStreamGetError(missing).error, ENOENT);
  Owned<CFErrorRef> why(CFReadStreamCopyError(missing));
  EXPECT_EQ(CFErrorGetCode(why), ENOENT);
  SInt32 code = 0;
  CFDataRef data = nullptr;
  EXPECT_FALSE(
      CFURLCreateDataAndPropertiesFromResource(nullptr, url, &data, nullptr, nullptr, &code));
  EXPECT_EQ(code, kCFURLResourceNotFoundError);
}

TEST(PropertyList, TheOlderPairWorks) {
  Data xml(CFPropertyListCreateXMLData(nullptr, CFSTR("text")));
  EXPECT_NE(Text(xml).find("<string>text</string>"), std::string::npos);
  List back(CFPropertyListCreateFromXMLData(nullptr, xml, 0, nullptr));
  EXPECT_TRUE(CFEqual(back, CFSTR("text")));
  CFStringRef why = nullptr;
  EXPECT_EQ(CFPropertyListCreateFromXMLData(nullptr, Bytes("junk"), 0, &why), nullptr);
  ASSERT_NE(why, nullptr);
  CFRelease(why);
}

// No file of this machine says so; the platform stands in for it.
TEST(URLAccess, TheSystemsVersionFileSaysWhatGestaltSays) {
  Owned<CFURLRef> url(CFURLCreateWithFileSystemPath(
      nullptr, CFSTR("/System/Library/CoreServices/SystemVersion.plist"), kCFURLPOSIXPathStyle,
      false));
  TembraGestaltSetSystemVersion(10, 14, 2);
  CFDataRef data = nullptr;
  SInt32 code = 1;
  EXPECT_TRUE(
      CFURLCreateDataAndPropertiesFromResource(nullptr, url, &data, nullptr, nullptr, &code));
  TembraGestaltSetSystemVersion(10, 13, 6);
  EXPECT_EQ(code, 0);
  Data bytes(data);
  List list(CFPropertyListCreateWithData(nullptr, bytes, 0, nullptr, nullptr));
  ASSERT_TRUE(list);
  auto dictionary = static_cast<CFDictionaryRef>(list.Get());
  EXPECT_TRUE(CFEqual(CFDictionaryGetValue(dictionary, CFSTR("ProductVersion")), CFSTR("10.14.2")));
  EXPECT_TRUE(
      CFEqual(CFDictionaryGetValue(dictionary, CFSTR("ProductBuildVersion")), CFSTR("17G65")));
}

TEST(PropertyList, OnlyTheTwoFormatsAreWritten) {
  EXPECT_EQ(
      CFPropertyListCreateData(nullptr, CFSTR("x"), kCFPropertyListOpenStepFormat, 0, nullptr),
      nullptr);
  EXPECT_TRUE(CFPropertyListIsValid(CFSTR("x"), kBinary));
  EXPECT_FALSE(CFPropertyListIsValid(CFSTR("x"), kCFPropertyListOpenStepFormat));
  EXPECT_FALSE(CFPropertyListIsValid(kCFNull, kBinary));
}

TEST(PropertyList, OptionsDecideWhatIsMutable) {
  std::string xml = XML("<dict><key>a</key><array><string>s</string></array></dict>");
  struct {
    CFOptionFlags mOptions;
    bool mContainers, mLeaves;
  } const rows[] = {{kCFPropertyListImmutable, false, false},
                    {kCFPropertyListMutableContainers, true, false},
                    {kCFPropertyListMutableContainersAndLeaves, true, true}};
  for (const auto& row : rows) {
    List read = Read(xml, row.mOptions);
    List copied(CFPropertyListCreateDeepCopy(nullptr, read, row.mOptions));
    for (CFTypeRef ref : {read.Get(), copied.Get()}) {
      auto dictionary = static_cast<CFMutableDictionaryRef>(const_cast<void*>(ref));
      auto array = static_cast<CFMutableArrayRef>(
          const_cast<void*>(CFDictionaryGetValue(dictionary, CFSTR("a"))));
      auto string =
          static_cast<CFMutableStringRef>(const_cast<void*>(CFArrayGetValueAtIndex(array, 0)));
      CFStringAppend(string, CFSTR("!"));
      EXPECT_EQ(CFStringGetLength(string), row.mLeaves ? 2 : 1);
      CFArrayAppendValue(array, CFSTR("more"));
      EXPECT_EQ(CFArrayGetCount(array), row.mContainers ? 2 : 1);
      CFDictionarySetValue(dictionary, CFSTR("b"), CFSTR("more"));
      EXPECT_EQ(CFDictionaryGetCount(dictionary), row.mContainers ? 2 : 1);
    }
  }
}

TEST(PropertyList, ADeepCopyIsIndependent) {
  auto dictionary = MakeDictionary();
  Owned<CFMutableStringRef> value(CFStringCreateMutableCopy(nullptr, 0, CFSTR("v")));
  CFDictionarySetValue(dictionary, CFSTR("k"), value);
  List copy(CFPropertyListCreateDeepCopy(nullptr, dictionary, 0));
  EXPECT_TRUE(CFEqual(copy, dictionary));
  CFStringAppend(value, CFSTR("!"));
  EXPECT_FALSE(CFEqual(copy, dictionary));
  EXPECT_EQ(CFPropertyListCreateDeepCopy(nullptr, kCFNull, 0), nullptr);
}

TEST(PropertyList, RealsDoNotDependOnTheLocale) {
  double value = 0.5;
  List back;
  {
    const CommaLocale locale;
    if (!locale.IsThere()) GTEST_SKIP() << "no locale with a decimal comma (package locales)";
    back = RoundTrip(Number(kCFNumberFloat64Type, &value), kXML);
  }
  EXPECT_TRUE(CFEqual(back, Number(kCFNumberFloat64Type, &value)));
}

TEST(PropertyList, JunkIsRefusedWithAnError) {
  for (const std::string& bad :
       {std::string(), std::string("junk"), std::string("bplist00"),
        std::string("bplist01") + std::string(60, '\0'), XML("<foo/>"), XML("<array>"),
        std::string("<plist"), XML("</array><array>"), XML("<dict><string>a</string></dict>"),
        XML("<string>\xFF</string>"), std::string("<plist>\0</plist>", 16),
        "<plist" + std::string(1 << 20, '<') + ">"}) {
    CFErrorRef error = nullptr;
    EXPECT_EQ(CFPropertyListCreateWithData(nullptr, Bytes(bad), 0, nullptr, &error), nullptr)
        << bad;
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(CFErrorGetCode(error), kCFPropertyListReadCorruptError);
    String text(CFErrorCopyDescription(error));
    EXPECT_GT(CFStringGetLength(text), 0);
    CFRelease(error);
  }
  EXPECT_EQ(CFPropertyListCreateWithData(nullptr, nullptr, 0, nullptr, nullptr), nullptr);
}

std::string Nested(int inDepth) {
  std::string body;
  for (int i = 0; i < inDepth; ++i) body += "<array>";
  for (int i = 0; i < inDepth; ++i) body += "</array>";
  return XML(body);
}

TEST(PropertyList, NestingIsBounded) {
  EXPECT_TRUE(Read(Nested(512)));
  EXPECT_FALSE(Read(Nested(513)));
  EXPECT_FALSE(Read(Nested(1000000)));
  // Ends that the parser does not see do not count.
  for (const char* unit : {"<array><!-- </array> -->", "<array a=\"</array>\">",
                           "<array><?x </array> ?>", "<array><![CDATA[</array>]]>"}) {
    std::string body;
    for (int i = 0; i < 100000; ++i) body += unit;
    EXPECT_FALSE(Read(XML(body))) << unit;
  }
}

// A binary list of these objects, the first one on top.
std::string Binary(const std::vector<std::string>& inObjects) {
  std::string bytes = "bplist00", table;
  auto put = [](std::string& ioText, UInt64 inValue, int inWidth) {
    for (int i = inWidth - 1; i >= 0; --i) ioText += static_cast<char>(inValue >> 8 * i);
  };
  for (const std::string& object : inObjects) {
    put(table, bytes.size(), 4);
    bytes += object;
  }
  UInt64 tableOffset = bytes.size();
  bytes += table + std::string(6, '\0') + "\x04\x01";
  put(bytes, inObjects.size(), 8);
  put(bytes, 0, 8);
  put(bytes, tableOffset, 8);
  return bytes;
}

TEST(PropertyList, BinaryListsOfOtherMakersAreRead) {
  List list = Read(Binary({"\xA3\x01\x02\x03",
                           "\x51"
                           "a",
                           std::string("\x11\x01\x00", 3), "\x09"}));
  ASSERT_TRUE(list);
  auto array = static_cast<CFArrayRef>(list.Get());
  EXPECT_TRUE(CFEqual(CFArrayGetValueAtIndex(array, 0), CFSTR("a")));
  SInt32 value = 256;
  EXPECT_TRUE(CFEqual(CFArrayGetValueAtIndex(array, 1), Number(kCFNumberSInt32Type, &value)));
  EXPECT_EQ(CFArrayGetValueAtIndex(array, 2), kCFBooleanTrue);
}

TEST(PropertyList, HostileBinaryListsAreRefused) {
  // Contains itself.
  EXPECT_FALSE(Read(Binary({std::string("\xA1\x00", 2)})));
  EXPECT_FALSE(Read(Binary({"\xA1\x01", std::string("\xA1\x00", 2)})));
  // Refers beyond the table.
  EXPECT_FALSE(Read(Binary({"\xA1\x05"})));
  // A key that is no string; a UID; a set; an unknown kind.
  EXPECT_FALSE(Read(Binary({"\xD1\x01\x01", "\x09"})));
  EXPECT_FALSE(Read(Binary({"\x80\x01"})));
  EXPECT_FALSE(Read(Binary({"\xC1\x01", "\x09"})));
  EXPECT_FALSE(Read(Binary({std::string("\x00", 1)})));
  EXPECT_FALSE(Read(Binary({"\xF0"})));
  // Lengths beyond the end.
  EXPECT_FALSE(
      Read(Binary({"\x5F\x10\xFF"
                   "a"})));
  EXPECT_FALSE(Read(Binary({std::string("\x4F\x13\x7F\xFF\xFF\xFF\xFF\xFF\xFF\xFF", 10)})));
  EXPECT_FALSE(Read(Binary({std::string("\xAF\x13\x7F\xFF\xFF\xFF\xFF\xFF\xFF\xFF", 10)})));
  // A date that no clock shows.
  EXPECT_FALSE(Read(Binary({std::string("\x33\x7F\xF0\x00\x00\x00\x00\x00\x00", 9)})));
  EXPECT_TRUE(
      Read(Binary({"\x51"
                   "a"})));
}

TEST(PropertyList, DatesThatCouldNotBeWrittenAgainAreNotRead) {
  // 1e300, and the first second of the year 10000.
  EXPECT_FALSE(Read(Binary({std::string("\x33\x7E\x37\xE4\x3C\x88\x00\x75\x9C", 9)})));
  EXPECT_FALSE(Read(Binary({std::string("\x33\x42\x4D\x62\xD2\x3C\x80\x00\x00", 9)})));
}

TEST(PropertyList, BinaryStringsWithANullCharacterAreRefused) {
  EXPECT_FALSE(Read(Binary({std::string("\x53\x61\x00\x62", 4)})));
  EXPECT_FALSE(Read(Binary({std::string("\x62\x00\x61\x00\x00", 5)})));
  // As a key too.
  EXPECT_FALSE(Read(Binary({"\xD1\x01\x02", std::string("\x51\x00", 2), "\x09"})));
  // A null byte of a wide character is none, nor is one in data.
  EXPECT_TRUE(Read(Binary({std::string("\x62\x00\x61\x01\x00", 5)})));
  EXPECT_TRUE(Read(Binary({std::string("\x42\x00\x00", 3)})));
}

TEST(PropertyList, LargeIntegersKeepTheirSignInLongLists) {
  // Each is one reference to one of two objects of the same 64 bits.
  const std::string negative = "\x13" + std::string(8, '\xFF');
  const std::string positive = "\x14" + std::string(8, '\0') + std::string(8, '\xFF');
  std::string references;
  for (int i = 0; i < 6000; ++i) references += i % 2 == 0 ? '\x01' : '\x02';
  List list = Read(Binary({std::string("\xAF\x11\x17\x70") + references, negative, positive}));
  ASSERT_TRUE(list);
  auto array = static_cast<CFArrayRef>(list.Get());
  ASSERT_EQ(CFArrayGetCount(array), 6000);
  const SInt64 minusOne = -1;
  const List expected = Number(kCFNumberSInt64Type, &minusOne);
  double value = 0;
  CFNumberGetValue(static_cast<CFNumberRef>(CFArrayGetValueAtIndex(array, 5999)),
                   kCFNumberFloat64Type, &value);
  EXPECT_EQ(value, 0x1p64);
  EXPECT_TRUE(CFEqual(CFArrayGetValueAtIndex(array, 5998), expected));
}

TEST(PropertyList, AListThatExpandsWithoutBoundIsRefused) {
  // Each level holds the next one ten times.
  std::vector<std::string> objects;
  for (int i = 1; i <= 30; ++i) objects.push_back("\xAA" + std::string(10, static_cast<char>(i)));
  objects.push_back(
      "\x51"
      "a");
  EXPECT_FALSE(Read(Binary(objects)));
  // The same with little branching is deep only.
  std::vector<std::string> chain;
  for (int i = 1; i <= 200; ++i) chain.push_back("\xA1" + std::string(1, static_cast<char>(i)));
  chain.push_back(
      "\x51"
      "a");
  EXPECT_TRUE(Read(Binary(chain)));
  // One large text many times over.
  std::string text = "\x5F\x12";
  text += std::string("\x00\x10\x00\x00", 4) + std::string(1 << 20, 'x');
  std::string references = "\xAF\x11";
  references += std::string("\x01\x00", 2) + std::string(256, '\x01');
  EXPECT_FALSE(Read(Binary({references, text})));
}

std::string SampleBinary() {
  auto dictionary = MakeDictionary();
  SInt32 value = 123456;
  double real = 44100;
  CFDictionarySetValue(dictionary, CFSTR("uid"), Number(kCFNumberSInt32Type, &value));
  CFDictionarySetValue(dictionary, CFSTR("rate"), Number(kCFNumberFloat64Type, &real));
  CFDictionarySetValue(dictionary, CFSTR("data"), Bytes("bytes"));
  Owned<CFMutableArrayRef> array(CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks));
  String accent(CFStringCreateWithCString(nullptr, "\xC3\xA9\xE2\x82\xAC", kCFStringEncodingUTF8));
  CFArrayAppendValue(array, accent);
  CFArrayAppendValue(array, kCFBooleanFalse);
  CFDictionarySetValue(dictionary, CFSTR("list"), array);
  return Text(Data(CFPropertyListCreateData(nullptr, dictionary, kBinary, 0, nullptr)));
}

// What is read must be a list that can be written again; what is not is an error.
void CheckUntrusted(const std::string& inBytes) {
  CFErrorRef error = nullptr;
  List list(CFPropertyListCreateWithData(nullptr, Bytes(inBytes), 0, nullptr, &error));
  ASSERT_EQ(list.Get() == nullptr, error != nullptr);
  if (error) CFRelease(error);
  if (list) ASSERT_TRUE(CFPropertyListIsValid(list, kBinary));
}

TEST(PropertyList, EveryPrefixAndEveryBitFlipIsSurvived) {
  auto dictionary = MakeDictionary();
  CFDictionarySetValue(dictionary, CFSTR("k"), CFSTR("v"));
  for (const std::string& sample :
       {SampleBinary(),
        Text(Data(CFPropertyListCreateData(nullptr, dictionary, kXML, 0, nullptr)))}) {
    for (size_t size = 0; size < sample.size(); ++size) CheckUntrusted(sample.substr(0, size));
    for (size_t bit = 0; bit < sample.size() * 8; ++bit) {
      std::string flipped = sample;
      flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ (1 << bit % 8));
      CheckUntrusted(flipped);
    }
  }
}

TEST(PropertyList, RandomDamageIsSurvived) {
  unsigned seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  std::string sample = SampleBinary();
  for (int round = 0; round < 20000; ++round) {
    std::string damaged = sample;
    for (unsigned i = 0; i < 1 + random() % 6; ++i) {
      damaged[random() % damaged.size()] = static_cast<char>(random());
    }
    CheckUntrusted(damaged);
  }
}

}  // namespace
