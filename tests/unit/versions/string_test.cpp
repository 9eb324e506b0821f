// Strings and paths.

#include <CoreFoundation/CoreFoundation.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <cstring>

#include "FakeSystem.h"
#include "runtime/TMBString.h"

namespace tembra::test {
namespace {

std::string TextOf(CFStringRef inString) {
  if (inString == nullptr) return "(null)";
  char text[8192] = {};
  EXPECT_TRUE(CFStringGetCString(inString, text, sizeof text, kCFStringEncodingUTF8));
  CFRelease(inString);
  return text;
}

TEST(UTF8ToCFString, TakesALengthOrTheWholeText) {
  EXPECT_EQ(TextOf(TMBString_UTF8ToCFString("Tembra", 0)), "Tembra");
  EXPECT_EQ(TextOf(TMBString_UTF8ToCFString("Tembra", 3)), "Tem");
  EXPECT_EQ(TextOf(TMBString_UTF8ToCFString("", 0)), "");
  EXPECT_EQ(TextOf(TMBString_UTF8ToCFString("\xC3\xA9t\xC3\xA9", 0)), "\xC3\xA9t\xC3\xA9");
}

TEST(UTF8ToCFString, HasNothingForNullAndForWhatIsNotUTF8) {
  EXPECT_EQ(TMBString_UTF8ToCFString(nullptr, 0), nullptr);
  EXPECT_EQ(TMBString_UTF8ToCFString(nullptr, 5), nullptr);
  EXPECT_EQ(TMBString_UTF8ToCFString("\xC3(", 0), nullptr);
  EXPECT_EQ(TMBString_UTF8ToCFString("\xC3\xA9", 1), nullptr);
}

class ExpandPath : public SystemTest {
 protected:
  ExpandPath() { memset(mBuffer, '#', sizeof mBuffer); }
  // The expanded path; "(null)" if there is none.
  std::string Expand(const std::string& inPath, int32_t inMustExist = 0) {
    char* result = TMBString_ExpandPath(inPath.c_str(), mBuffer, inMustExist);
    EXPECT_TRUE(result == nullptr || result == mBuffer);
    return result != nullptr ? result : "(null)";
  }
  // The home with its own links resolved.
  std::string Home() {
    char path[PATH_MAX];
    return realpath(gSystem.mHome.c_str(), path);
  }
  char mBuffer[kTMBStringPathSize + 1];
};

TEST_F(ExpandPath, HasNothingForNullAndEmpty) {
  EXPECT_EQ(TMBString_ExpandPath(nullptr, mBuffer, 0), nullptr);
  EXPECT_EQ(Expand(""), "(null)");
  EXPECT_EQ(mBuffer[0], '#');
  EXPECT_EQ(TMBString_CFExpandPath(nullptr, 0), nullptr);
}

TEST_F(ExpandPath, ALoneTildeIsTheHome) {
  EXPECT_EQ(Expand("~"), Home()) << "the resolved form, where it resolves";
  gSystem.mHome = "/nowhere/at/all";
  EXPECT_EQ(Expand("~"), "/nowhere/at/all/");
  EXPECT_EQ(Expand("~", 1), "(null)");
}

TEST_F(ExpandPath, ATildeBeginsAPathInTheHome) {
  ASSERT_EQ(mkdir(mRuntime.File("Library").c_str(), 0700), 0);
  EXPECT_EQ(Expand("~/Library"), Home() + "/Library");
  EXPECT_EQ(Expand("~/Library", 1), Home() + "/Library");
  EXPECT_EQ(Expand("~/Library/new"), gSystem.mHome + "/Library/new");
}

TEST_F(ExpandPath, ANameBehindTheTildeMeansTheSameHome) {
  ASSERT_EQ(mkdir(mRuntime.File("Library").c_str(), 0700), 0);
  EXPECT_EQ(Expand("~root/Library"), Home() + "/Library");
  EXPECT_EQ(Expand("~root"), Home());
}

TEST_F(ExpandPath, ATildeElsewhereIsACharacter) {
  EXPECT_EQ(Expand("/nowhere/~/x"), "/nowhere/~/x");
}

TEST_F(ExpandPath, WithoutAnAccountTheEnvironmentNamesTheHome) {
  gSystem.mHasAccount = false;
  setenv("HOME", "/nowhere/else", 1);
  EXPECT_EQ(Expand("~/x"), "/nowhere/else/x");
  unsetenv("HOME");
  EXPECT_EQ(Expand("~/x"), "(null)");
}

TEST_F(ExpandPath, TheAccountGoesBeforeTheEnvironment) {
  setenv("HOME", "/nowhere/else", 1);
  gSystem.mHome = "/nowhere/account";
  EXPECT_EQ(Expand("~/x"), "/nowhere/account/x");
}

TEST_F(ExpandPath, ASetUserIDProcessReadsNoEnvironment) {
  gSystem.mHasAccount = false;
  gSystem.mIsSetUserID = true;
  setenv("HOME", "/nowhere/else", 1);
  EXPECT_EQ(Expand("~/x"), "(null)");
}

TEST_F(ExpandPath, ResolvesLinksAndDots) {
  ASSERT_EQ(mkdir(mRuntime.File("real").c_str(), 0700), 0);
  ASSERT_EQ(symlink("real", mRuntime.File("link").c_str()), 0);
  EXPECT_EQ(Expand(gSystem.mHome + "/link/../link/."), Home() + "/real");
}

TEST_F(ExpandPath, WhatDoesNotExistIsLeftUnresolvedOrRefused) {
  const std::string path = gSystem.mHome + "/no/such/../folder";
  EXPECT_EQ(Expand(path), path);
  EXPECT_EQ(Expand(path, 1), "(null)");
  EXPECT_EQ(TextOf(TMBString_CFExpandPath(path.c_str(), 0)), path);
  EXPECT_EQ(TMBString_CFExpandPath(path.c_str(), 1), nullptr);
}

TEST_F(ExpandPath, KeepsWithin1024BytesWithTheTerminator) {
  const std::string path = "/nowhere/" + std::string(2000, 'x');
  EXPECT_EQ(Expand(path), path.substr(0, 1023));
  EXPECT_EQ(mBuffer[1023], 0);
  EXPECT_EQ(mBuffer[1024], '#');
  const std::string fits = "/nowhere/" + std::string(1014, 'x');
  EXPECT_EQ(Expand(fits), fits);
}

TEST_F(ExpandPath, AResolvedPathIsCutToo) {
  std::string deep = gSystem.mHome;
  for (int level = 0; level < 8; ++level) {
    deep += "/" + std::string(200, static_cast<char>('a' + level));
    ASSERT_EQ(mkdir(deep.c_str(), 0700), 0);
  }
  char whole[PATH_MAX];
  ASSERT_NE(realpath(deep.c_str(), whole), nullptr);
  EXPECT_EQ(Expand(deep), std::string(whole).substr(0, 1023));
  EXPECT_EQ(mBuffer[1024], '#');
}

TEST_F(ExpandPath, GivesAString) {
  EXPECT_EQ(TextOf(TMBString_CFExpandPath("~", 0)), Home());
}

}  // namespace
}  // namespace tembra::test
