#include <CoreFoundation/CoreFoundation.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cmath>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "corefoundation/Object.h"

namespace {

using tembra::cf::Owned;
using UUID = Owned<CFUUIDRef>;
using URL = Owned<CFURLRef>;
using String = Owned<CFStringRef>;

std::string Text(CFStringRef inString) {
  char buffer[512];
  if (!inString) return "<null>";
  return CFStringGetCString(inString, buffer, sizeof(buffer), kCFStringEncodingUTF8) ? buffer
                                                                                     : "<bad>";
}

URL Path(const char* inPath, bool inIsDirectory = false) {
  return URL(CFURLCreateFromFileSystemRepresentation(
      nullptr, reinterpret_cast<const UInt8*>(inPath), static_cast<CFIndex>(std::strlen(inPath)),
      inIsDirectory));
}

std::string PathText(CFURLRef inURL) {
  return Text(String(CFURLCopyFileSystemPath(inURL, kCFURLPOSIXPathStyle)));
}

TEST(CFUUID, GoesThroughTextAndBytes) {
  UUID uuid(CFUUIDCreateFromString(nullptr, CFSTR("f8bb1c28-BAE8-11d6-9C31-00039315CD46")));
  ASSERT_TRUE(uuid);
  EXPECT_EQ(Text(String(CFUUIDCreateString(nullptr, uuid))),
            "F8BB1C28-BAE8-11D6-9C31-00039315CD46");
  CFUUIDBytes bytes = CFUUIDGetUUIDBytes(uuid);
  EXPECT_EQ(bytes.byte0, 0xF8);
  EXPECT_EQ(bytes.byte15, 0x46);
  UUID again(CFUUIDCreateFromUUIDBytes(nullptr, bytes));
  EXPECT_TRUE(CFEqual(uuid, again));
  EXPECT_EQ(CFHash(uuid), CFHash(again));
}

TEST(CFUUID, RefusesOtherTexts) {
  for (const char* bad :
       {"", "F8BB1C28-BAE8-11D6-9C31-00039315CD4", "F8BB1C28BAE811D69C3100039315CD46",
        "G8BB1C28-BAE8-11D6-9C31-00039315CD46", "F8BB1C28-BAE8-11D6-9C31-00039315CD461",
        "F8BB1C28-BAE8-11D6-9C31+00039315CD46"}) {
    String text(CFStringCreateWithCString(nullptr, bad, kCFStringEncodingASCII));
    EXPECT_EQ(CFUUIDCreateFromString(nullptr, text), nullptr) << bad;
  }
}

TEST(CFUUID, EqualLiveValuesAreOneObject) {
  CFUUIDRef constant =
      CFUUIDGetConstantUUIDWithBytes(nullptr, 0, 0, 0, 0, 0, 0, 0, 0, 0xC0, 0, 0, 0, 0, 0, 0, 0x46);
  EXPECT_EQ(constant, IUnknownUUID);
  UUID made(CFUUIDCreateFromString(nullptr, CFSTR("00000000-0000-0000-C000-000000000046")));
  EXPECT_EQ(made.Get(), constant);
  made.Reset(nullptr);
  CFRelease(constant);
  EXPECT_EQ(Text(String(CFUUIDCreateString(nullptr, constant))),
            "00000000-0000-0000-C000-000000000046");
  UUID random(CFUUIDCreate(nullptr)), other(CFUUIDCreate(nullptr));
  EXPECT_FALSE(CFEqual(random, other));
  CFUUIDBytes bytes = CFUUIDGetUUIDBytes(random);
  EXPECT_EQ(bytes.byte6 >> 4, 4);
  EXPECT_EQ(bytes.byte8 >> 6, 2);
}

TEST(CFUUID, AConstantOfAValueInUseOutlivesItsUsers) {
  UUID user(CFUUIDCreateWithBytes(nullptr, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16));
  CFUUIDRef constant = CFUUIDGetConstantUUIDWithBytes(nullptr, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11,
                                                      12, 13, 14, 15, 16);
  EXPECT_EQ(constant, user.Get());
  user.Reset(nullptr);
  EXPECT_EQ(CFUUIDGetUUIDBytes(constant).byte15, 16);
}

TEST(CFUUID, IsMadeAndDroppedByManyThreadsAtOnce) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([] {
      for (int n = 0; n < 5000; ++n) {
        UUID uuid(CFUUIDCreateWithBytes(nullptr, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9));
        ASSERT_EQ(CFUUIDGetUUIDBytes(uuid).byte3, 9);
      }
    });
  }
  for (auto& thread : threads) thread.join();
}

TEST(CFURL, HoldsAFilePath) {
  URL url(
      CFURLCreateWithFileSystemPath(nullptr, CFSTR("/tmp/a b.plist"), kCFURLPOSIXPathStyle, false));
  EXPECT_EQ(Text(CFURLGetString(url)), "file:///tmp/a%20b.plist");
  EXPECT_EQ(PathText(url), "/tmp/a b.plist");
  EXPECT_EQ(Text(String(CFURLCopyPath(url))), "/tmp/a%20b.plist");
  EXPECT_EQ(Text(String(CFURLCopyLastPathComponent(url))), "a b.plist");
  EXPECT_EQ(Text(String(CFURLCopyPathExtension(url))), "plist");
  EXPECT_EQ(Text(String(CFURLCopyScheme(url))), "file");
  EXPECT_FALSE(CFURLHasDirectoryPath(url));
  UInt8 path[32];
  EXPECT_TRUE(CFURLGetFileSystemRepresentation(url, true, path, 15));
  EXPECT_STREQ(reinterpret_cast<char*>(path), "/tmp/a b.plist");
  EXPECT_FALSE(CFURLGetFileSystemRepresentation(url, true, path, 14));
  EXPECT_EQ(CFURLCreateWithFileSystemPath(nullptr, CFSTR("a:b"), kCFURLHFSPathStyle, false),
            nullptr);
  EXPECT_EQ(CFURLCreateWithFileSystemPath(nullptr, CFSTR(""), kCFURLPOSIXPathStyle, false),
            nullptr);
}

TEST(CFURL, AddsAndRemovesComponents) {
  URL folder = Path("/usr/lib/", true);
  EXPECT_TRUE(CFURLHasDirectoryPath(folder));
  EXPECT_EQ(Text(CFURLGetString(folder)), "file:///usr/lib/");
  URL file(CFURLCreateCopyAppendingPathComponent(nullptr, folder, CFSTR("x.so"), false));
  EXPECT_EQ(PathText(file), "/usr/lib/x.so");
  URL bare(CFURLCreateCopyDeletingPathExtension(nullptr, file));
  EXPECT_EQ(PathText(bare), "/usr/lib/x");
  URL other(CFURLCreateCopyAppendingPathExtension(nullptr, bare, CFSTR("txt")));
  EXPECT_EQ(PathText(other), "/usr/lib/x.txt");
  URL up(CFURLCreateCopyDeletingLastPathComponent(nullptr, file));
  EXPECT_TRUE(CFEqual(up, folder));
  EXPECT_EQ(CFHash(up), CFHash(folder));
  URL root(CFURLCreateCopyDeletingLastPathComponent(nullptr, Path("/usr")));
  EXPECT_EQ(PathText(root), "/");
  EXPECT_EQ(CFURLCopyPathExtension(Path("/usr/.hidden")), nullptr);
}

TEST(CFURL, ResolvesRelativePaths) {
  URL base = Path("/opt/app", true);
  URL url(CFURLCreateWithFileSystemPathRelativeToBase(nullptr, CFSTR("x/y"), kCFURLPOSIXPathStyle,
                                                      false, base));
  EXPECT_EQ(PathText(url), "/opt/app/x/y");
  URL beside(CFURLCreateWithFileSystemPathRelativeToBase(nullptr, CFSTR("x"), kCFURLPOSIXPathStyle,
                                                         false, Path("/opt/app")));
  EXPECT_EQ(PathText(beside), "/opt/x");
  URL relative = Path("some-file");
  EXPECT_EQ(PathText(relative).front(), '/');
  EXPECT_TRUE(CFStringHasSuffix(CFURLGetString(relative), CFSTR("/some-file")));
}

TEST(CFDate, CountsFrom2001) {
  EXPECT_EQ(kCFAbsoluteTimeIntervalSince1970, 978307200.0);
  Owned<CFDateRef> early(CFDateCreate(nullptr, 1.5)), late(CFDateCreate(nullptr, 2.0));
  EXPECT_EQ(CFDateGetAbsoluteTime(early), 1.5);
  EXPECT_EQ(CFDateCompare(early, late, nullptr), kCFCompareLessThan);
  EXPECT_EQ(CFDateCompare(late, early, nullptr), kCFCompareGreaterThan);
  EXPECT_EQ(CFDateGetTimeIntervalSinceDate(late, early), 0.5);
  Owned<CFDateRef> same(CFDateCreate(nullptr, 2.0));
  EXPECT_TRUE(CFEqual(late, same));
  EXPECT_EQ(CFHash(late), CFHash(same));
  EXPECT_LT(std::fabs(CFAbsoluteTimeGetCurrent() + kCFAbsoluteTimeIntervalSince1970 -
                      static_cast<double>(time(nullptr))),
            5.0);
}

TEST(CFError, TellsDomainCodeAndDescription) {
  Owned<CFErrorRef> plain(CFErrorCreate(nullptr, kCFErrorDomainPOSIX, ENOENT, nullptr));
  EXPECT_EQ(CFErrorGetCode(plain), ENOENT);
  EXPECT_TRUE(CFEqual(CFErrorGetDomain(plain), CFSTR("NSPOSIXErrorDomain")));
  EXPECT_NE(Text(String(CFErrorCopyDescription(plain))).find("No such file"), std::string::npos);
  const void* key = kCFErrorLocalizedDescriptionKey;
  const void* value = CFSTR("it broke");
  Owned<CFDictionaryRef> info(CFDictionaryCreate(
      nullptr, &key, &value, 1, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
  Owned<CFErrorRef> told(CFErrorCreate(nullptr, kCFErrorDomainCocoa, 7, info));
  EXPECT_EQ(Text(String(CFErrorCopyDescription(told))), "it broke");
  Owned<CFDictionaryRef> back(CFErrorCopyUserInfo(told));
  EXPECT_TRUE(CFEqual(back, info));
  EXPECT_EQ(CFErrorCopyFailureReason(told), nullptr);
}

}  // namespace
