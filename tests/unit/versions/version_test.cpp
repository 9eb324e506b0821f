// The system's version and build, and bundles' versions.

#include <CoreFoundation/CoreFoundation.h>
#include <CoreServices/CoreServices.h>
#include <CoreServices/GestaltPriv.h>
#include <sys/stat.h>

#include <array>
#include <cstring>
#include <fstream>
#include <tuple>

#include "FakeSystem.h"
#include "runtime/TMBOS.h"

namespace tembra::test {
namespace {

class SystemVersion : public SystemTest {};

TEST_F(SystemVersion, IsThreeNumbers) {
  int32_t major = -1;
  int32_t minor = -1;
  int32_t patch = -1;
  EXPECT_EQ(TMBOS_GetSystemVersion(&major, &minor, &patch), 1);
  EXPECT_EQ(std::tuple(major, minor, patch), std::tuple(10, 13, 6));
}

TEST_F(SystemVersion, EachPlaceMayBeNull) {
  int32_t patch = -1;
  EXPECT_EQ(TMBOS_GetSystemVersion(nullptr, nullptr, &patch), 1);
  EXPECT_EQ(patch, 6);
  EXPECT_EQ(TMBOS_GetSystemVersion(nullptr, nullptr, nullptr), 1);
}

TEST_F(SystemVersion, IsReadOnceAndNeverAgain) {
  EXPECT_TRUE(TMBOS_SysVerIsEqualTo(10, 13));
  const int calls = gSystem.mGestaltCalls;
  TembraGestaltSetSystemVersion(11, 0, 0);
  EXPECT_TRUE(TMBOS_SysVerIsEqualTo(10, 13));
  EXPECT_EQ(gSystem.mGestaltCalls, calls);
}

TEST_F(SystemVersion, WhatTheSystemDoesNotTellIsZeroAndKnownToBeMissing) {
  EXPECT_TRUE(tmbos_is_sysver_known());
  gSystem.mGestaltFailsFor = 'sys2';
  StandFor(10, 13, 6);
  int32_t major = -1;
  int32_t minor = -1;
  int32_t patch = -1;
  EXPECT_EQ(TMBOS_GetSystemVersion(&major, &minor, &patch), 1);
  EXPECT_EQ(std::tuple(major, minor, patch), std::tuple(10, 0, 6));
  EXPECT_FALSE(tmbos_is_sysver_known());
}

TEST_F(SystemVersion, IsHigherAbovePatchesOnly) {
  StandFor(10, 14, 6);
  EXPECT_FALSE(TMBOS_SysVerIsHigherThan(10, 14));
  StandFor(10, 15, 0);
  EXPECT_TRUE(TMBOS_SysVerIsHigherThan(10, 14));
  StandFor(11, 0, 0);
  EXPECT_TRUE(TMBOS_SysVerIsHigherThan(10, 14));
  StandFor(9, 20, 0);
  EXPECT_FALSE(TMBOS_SysVerIsHigherThan(10, 14));
}

TEST_F(SystemVersion, IsComparedAsNumbersPartByPart) {
  struct Row {
    int32_t mMajor, mMinor;
    bool mEqualOrHigher, mEqual, mHigher;
  };
  // Against 10.14.
  for (const Row& row : {Row{9, 99, false, false, false}, Row{10, 2, false, false, false},
                         Row{10, 13, false, false, false}, Row{10, 14, true, true, false},
                         Row{10, 15, true, false, true}, Row{10, 100, true, false, true},
                         Row{11, 0, true, false, true}, Row{11, 14, true, false, true}}) {
    StandFor(row.mMajor, row.mMinor, 3);
    SCOPED_TRACE(std::to_string(row.mMajor) + "." + std::to_string(row.mMinor));
    EXPECT_EQ(TMBOS_SysVerIsEqualOrHigher(10, 14), row.mEqualOrHigher);
    EXPECT_EQ(TMBOS_SysVerIsLowerThan(10, 14), !row.mEqualOrHigher);
    EXPECT_EQ(TMBOS_SysVerIsEqualTo(10, 14), row.mEqual);
    EXPECT_EQ(TMBOS_SysVerIsHigherThan(10, 14), row.mHigher);
  }
}

class BuildVersion : public SystemTest {
 protected:
  static constexpr char kPath[] = "/System/Library/CoreServices/SystemVersion.plist";
  static void SetBuild(const std::string& inBuild) {
    gSystem.mFiles[kPath] =
        InfoList("<key>ProductBuildVersion</key><string>" + inBuild + "</string>");
  }
};

TEST_F(BuildVersion, IsReadFromTheSystemsFileOnce) {
  SetBuild("17G65");
  EXPECT_STREQ(TMBOS_GetSysBuildVersion(), "17G65");
  SetBuild("18A1");
  EXPECT_STREQ(TMBOS_GetSysBuildVersion(), "17G65");
  EXPECT_EQ(gSystem.mFileReads, 1);
}

TEST_F(BuildVersion, IsLookedForAgainUntilItIsThere) {
  EXPECT_STREQ(TMBOS_GetSysBuildVersion(), "");
  gSystem.mFiles[kPath] = "no property list";
  EXPECT_STREQ(TMBOS_GetSysBuildVersion(), "");
  gSystem.mFiles[kPath] = R"(<plist version="1.0"><array/></plist>)";
  EXPECT_STREQ(TMBOS_GetSysBuildVersion(), "");
  gSystem.mFiles[kPath] = InfoList("<key>ProductVersion</key><string>10.13.6</string>");
  EXPECT_STREQ(TMBOS_GetSysBuildVersion(), "");
  gSystem.mFiles[kPath] = InfoList("<key>ProductBuildVersion</key><integer>17</integer>");
  EXPECT_STREQ(TMBOS_GetSysBuildVersion(), "");
  EXPECT_EQ(__tmbos_bld_ver.mIsRead, 0U);
  SetBuild("17G65");
  EXPECT_STREQ(TMBOS_GetSysBuildVersion(), "17G65");
}

TEST_F(BuildVersion, KeepsThirtyTwoBytesWithoutATerminatorOfTheirOwn) {
  SetBuild("0123456789abcdef0123456789abcdefMORE");
  // The buffer has one byte more, so that the text ends in owned memory.
  EXPECT_STREQ(TMBOS_GetSysBuildVersion(), "0123456789abcdef0123456789abcdef");
  EXPECT_EQ(sizeof __tmbos_bld_ver.mText, 33U);
}

// A bundle's version as the three numbers, or -7 in all of them where there is none.
class BundleVersion : public SystemTest {
 protected:
  using Numbers = std::tuple<int32_t, int32_t, int32_t, int32_t>;  // result, major, minor, build
  static Numbers Get(const char* inBundle) {
    int32_t major = -7;
    int32_t minor = -7;
    int32_t build = -7;
    const int32_t result = TMBOS_GetBundleVersion(inBundle, &major, &minor, &build);
    return {result, major, minor, build};
  }
  static Numbers Of(const std::string& inVersion) {
    return OfEntries("<key>TMBBuildVersion</key><string>" + inVersion + "</string>");
  }
  static Numbers OfEntries(const std::string& inEntries) {
    gSystem.mFiles["/a/Info.plist"] = InfoList(inEntries);
    return Get("/a/Info.plist");
  }
  // A bundle with these entries in its information list. The caller releases it.
  CFBundleRef MakeBundle(const std::string& inEntries) {
    const std::string folder = mRuntime.File("Versioned.plugin");
    EXPECT_EQ(mkdir(folder.c_str(), 0700), 0);
    EXPECT_EQ(mkdir((folder + "/Contents").c_str(), 0700), 0);
    std::ofstream(folder + "/Contents/Info.plist") << InfoList(inEntries);
    CFURLRef url = CFURLCreateFromFileSystemRepresentation(
        nullptr, reinterpret_cast<const UInt8*>(folder.data()), static_cast<CFIndex>(folder.size()),
        true);
    CFBundleRef bundle = CFBundleCreate(nullptr, url);
    CFRelease(url);
    return bundle;
  }
  static constexpr Numbers kNone = {0, -7, -7, -7};
};

TEST_F(BundleVersion, IsTheFirstThreeNumbers) {
  EXPECT_EQ(Of("3.2.1"), Numbers(1, 3, 2, 1));
  EXPECT_EQ(Of("3.2.1.9"), Numbers(1, 3, 2, 1));
  EXPECT_EQ(Of("3.2"), Numbers(1, 3, 2, 0));
  EXPECT_EQ(Of("3"), Numbers(1, 3, 0, 0));
}

TEST_F(BundleVersion, APartThatIsNoNumberIsZero) {
  EXPECT_EQ(Of("beta"), Numbers(1, 0, 0, 0)) << "the 1 it starts from is overwritten";
  EXPECT_EQ(Of("2.x.5"), Numbers(1, 2, 0, 5));
  EXPECT_EQ(Of("2..5"), Numbers(1, 2, 0, 5));
  EXPECT_EQ(Of("4b2.1"), Numbers(1, 4, 1, 0));
  EXPECT_EQ(Of(""), Numbers(1, 0, 0, 0)) << "an empty text is one empty part";
}

TEST_F(BundleVersion, IsTakenFromTheFirstOfThreeKeys) {
  const std::string own = "<key>TMBBuildVersion</key><string>1.1.1</string>";
  const std::string shown = "<key>CFBundleShortVersionString</key><string>2.2.2</string>";
  const std::string plain = "<key>CFBundleVersion</key><string>3.3.3</string>";
  EXPECT_EQ(OfEntries(plain + shown + own), Numbers(1, 1, 1, 1));
  EXPECT_EQ(OfEntries(plain + shown), Numbers(1, 2, 2, 2));
  EXPECT_EQ(OfEntries(plain), Numbers(1, 3, 3, 3));
}

TEST_F(BundleVersion, WithoutAnyOfThemThereIsNoneAndNothingIsStored) {
  EXPECT_EQ(OfEntries("<key>CFBundleName</key><string>9.9.9</string>"), kNone);
  EXPECT_EQ(OfEntries("<key>TMBBuildVersion</key><integer>9</integer>"), kNone) << "no text";
}

TEST_F(BundleVersion, AFileThatIsMissingOrNoDictionaryHasNone) {
  EXPECT_EQ(Get("/nowhere/Info.plist"), kNone);
  gSystem.mFiles["/a/Info.plist"] = "<plist";
  EXPECT_EQ(Get("/a/Info.plist"), kNone);
  gSystem.mFiles["/a/Info.plist"] = R"(<plist version="1.0"><string>1.2.3</string></plist>)";
  EXPECT_EQ(Get("/a/Info.plist"), kNone);
}

TEST_F(BundleVersion, EachPlaceMayBeNull) {
  gSystem.mFiles["/a/Info.plist"] = InfoList("<key>CFBundleVersion</key><string>4.5.6</string>");
  int32_t minor = 0;
  EXPECT_EQ(TMBOS_GetBundleVersion("/a/Info.plist", nullptr, &minor, nullptr), 1);
  EXPECT_EQ(minor, 5);
  EXPECT_EQ(TMBOS_GetBundleVersion("/a/Info.plist", nullptr, nullptr, nullptr), 1);
}

TEST_F(BundleVersion, OfNoNameIsTheProgramsOwn) {
  EXPECT_EQ(Get(nullptr), kNone);
  gSystem.mMainBundle = MakeBundle("<key>CFBundleVersion</key><string>6.5.4</string>");
  EXPECT_EQ(Get(nullptr), Numbers(1, 6, 5, 4));
  EXPECT_EQ(Get(""), kNone) << "an empty name is an identifier, and nobody's";
  CFRelease(gSystem.mMainBundle);
}

TEST_F(BundleVersion, OfAnIdentifierIsThatOfALiveBundle) {
  EXPECT_EQ(Get("com.tembra.test.versioned"), kNone);
  CFBundleRef bundle = MakeBundle(
      "<key>CFBundleIdentifier</key><string>com.tembra.test.versioned</string>"
      "<key>CFBundleVersion</key><string>7.8</string>");
  ASSERT_NE(bundle, nullptr);
  EXPECT_EQ(Get("com.tembra.test.versioned"), Numbers(1, 7, 8, 0));
  CFRelease(bundle);
}

TEST_F(BundleVersion, OfWhatIsInstalledIsReadAtItsPlace) {
  int32_t major = -7;
  int32_t minor = -7;
  int32_t build = -7;
  EXPECT_EQ(TMBOS_GetInstalledVersion(&major, &minor, &build), 0);
  EXPECT_EQ(major, -7);
  gSystem.mFiles["/Library/Tembra/tmbserver.app/Contents/Agents/tmbagent.app/Contents/Info.plist"] =
      InfoList("<key>TMBBuildVersion</key><string>5.4.3</string>");
  EXPECT_EQ(TMBOS_GetInstalledVersion(&major, &minor, &build), 1);
  EXPECT_EQ(std::tuple(major, minor, build), std::tuple(5, 4, 3));
}

TEST_F(BundleVersion, AnInformationListIsHandedOut) {
  EXPECT_EQ(tmbos_load_info("/a/Info.plist"), nullptr);
  gSystem.mFiles["/a/Info.plist"] = InfoList("<key>k</key><string>v</string>");
  CFPropertyListRef list = tmbos_load_info("/a/Info.plist");
  ASSERT_NE(list, nullptr);
  EXPECT_EQ(CFDictionaryGetCount(static_cast<CFDictionaryRef>(list)), 1);
  EXPECT_EQ(CFGetRetainCount(list), 1);
  CFRelease(list);
  EXPECT_EQ(tmbos_load_info("/a/\xff"), nullptr) << "a path that is no text";
}

}  // namespace
}  // namespace tembra::test
