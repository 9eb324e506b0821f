#include <CoreFoundation/CoreFoundation.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "corefoundation/Object.h"

namespace {

namespace fs = std::filesystem;
using tembra::cf::Owned;
using Bundle = Owned<CFBundleRef>;
using String = Owned<CFStringRef>;
using UUID = Owned<CFUUIDRef>;

constexpr const char* kFactoryText = "11111111-2222-3333-4444-555555555555";
constexpr const char* kTypeText = "AAAAAAAA-BBBB-CCCC-DDDD-EEEEEEEEEEEE";

std::string Text(CFStringRef inString) {
  char buffer[1024];
  if (!inString) return "<null>";
  return CFStringGetCString(inString, buffer, sizeof(buffer), kCFStringEncodingUTF8) ? buffer
                                                                                     : "<bad>";
}

String Make(const std::string& inText) {
  return String(CFStringCreateWithCString(nullptr, inText.c_str(), kCFStringEncodingUTF8));
}

UUID MakeUUID(const char* inText) {
  return UUID(CFUUIDCreateFromString(nullptr, Make(inText)));
}

Owned<CFURLRef> URL(const fs::path& inPath) {
  return Owned<CFURLRef>(
      CFURLCreateWithFileSystemPath(nullptr, Make(inPath), kCFURLPOSIXPathStyle, true));
}

std::string Localized(CFBundleRef inBundle, const char* inKey, const char* inValue = nullptr,
                      const char* inTable = nullptr) {
  String value = inValue ? Make(inValue) : String();
  String table = inTable ? Make(inTable) : String();
  String text(CFBundleCopyLocalizedString(inBundle, Make(inKey), value, table));
  return Text(text);
}

// A bundle in a folder of its own.
class BundleTest : public testing::Test {
 protected:
  void SetUp() override {
    for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) unsetenv(name);
    std::string pattern = std::string(TEMBRA_BINARY_DIR) + "/bundle-test-XXXXXX";
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    mFolder = pattern;
    mPath = mFolder / "Test.plugin";
    fs::create_directories(mPath / "Contents/Linux");
    fs::create_symlink(fs::path(TEMBRA_BINARY_DIR) / "tests/plug-ins/TestFactory",
                       mPath / "Contents/Linux/Test");
    WriteInfo("");
  }
  void TearDown() override { fs::remove_all(mFolder); }

  void Write(const fs::path& inPath, const std::string& inText) {
    fs::create_directories((mPath / inPath).parent_path());
    std::ofstream(mPath / inPath, std::ios::binary) << inText;
  }
  void WriteInfo(const std::string& inMore, const std::string& inExecutable = "Test") {
    Write("Contents/Info.plist",
          "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict>"
          "<key>CFBundleIdentifier</key><string>com.tembra.test.bundle</string>"
          "<key>CFBundleDevelopmentRegion</key><string>en</string>"
          "<key>CFBundleExecutable</key><string>" +
              inExecutable + "</string>" + inMore + "</dict></plist>");
  }
  Bundle Create() { return Bundle(CFBundleCreate(nullptr, URL(mPath))); }

  fs::path mFolder;
  fs::path mPath;
};

TEST_F(BundleTest, ReadsItsInformation) {
  WriteInfo("<key>CFBundleVersion</key><string>12.3.4b5</string>");
  Bundle bundle = Create();
  ASSERT_TRUE(bundle);
  EXPECT_EQ(Text(CFBundleGetIdentifier(bundle)), "com.tembra.test.bundle");
  EXPECT_EQ(Text(static_cast<CFStringRef>(
                CFBundleGetValueForInfoDictionaryKey(bundle, kCFBundleVersionKey))),
            "12.3.4b5");
  EXPECT_EQ(CFBundleGetVersionNumber(bundle), 0x12346005u);
  EXPECT_EQ(Text(CFBundleGetDevelopmentRegion(bundle)), "en");
  EXPECT_EQ(CFDictionaryGetCount(CFBundleGetInfoDictionary(bundle)), 4);
  Owned<CFURLRef> url(CFBundleCopyBundleURL(bundle));
  EXPECT_TRUE(CFEqual(url, URL(fs::canonical(mPath))));
  EXPECT_EQ(CFGetTypeID(bundle), CFBundleGetTypeID());
  Owned<CFDictionaryRef> info(CFBundleCopyInfoDictionaryInDirectory(URL(mPath)));
  EXPECT_TRUE(CFEqual(info, CFBundleGetInfoDictionary(bundle)));
}

TEST_F(BundleTest, IsRefusedWithoutAGoodInformationDictionary) {
  for (const char* bad : {"", "junk", "<plist version=\"1.0\"><array/></plist>"}) {
    Write("Contents/Info.plist", bad);
    EXPECT_FALSE(Create()) << bad;
  }
  fs::remove(mPath / "Contents/Info.plist");
  EXPECT_FALSE(Create());
  EXPECT_EQ(CFBundleCreate(nullptr, URL("/no/such/place")), nullptr);
  EXPECT_EQ(CFBundleCreate(nullptr, nullptr), nullptr);
}

TEST_F(BundleTest, IsOneObjectForItsPathAndFoundByIdentifierWhileItLives) {
  EXPECT_EQ(CFBundleGetBundleWithIdentifier(CFSTR("com.tembra.test.bundle")), nullptr);
  Bundle bundle = Create();
  Bundle again = Create();
  EXPECT_EQ(bundle.Get(), again.Get());
  EXPECT_EQ(CFBundleGetBundleWithIdentifier(CFSTR("com.tembra.test.bundle")), bundle.Get());
  EXPECT_EQ(CFBundleGetBundleWithIdentifier(CFSTR("com.tembra.test.other")), nullptr);
}

TEST_F(BundleTest, LocalizesWithTheTableElseTheValueElseTheKey) {
  Write("Contents/Resources/en.lproj/Localizable.strings",
        "/* comment */\n\"Name\" = \"Tembra\"; // more\nbare = 'single';\n\"self\";\n"
        "\"esc\" = \"a\\n\\\"b\\\" \\U00e9 \\101\";\n");
  Write("Contents/Resources/de.lproj/Localizable.strings", "\"Name\" = \"Deutsch\";");
  Write("Contents/Resources/en.lproj/Other.strings",
        "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>k</key><string>xml</string>"
        "</dict></plist>");
  Write("Contents/Resources/Plain.strings", std::string("\xFE\xFF\0k\0=\0v\0;", 10));
  Bundle bundle = Create();
  EXPECT_EQ(Localized(bundle, "Name", "default"), "Tembra");
  EXPECT_EQ(Localized(bundle, "bare"), "single");
  EXPECT_EQ(Localized(bundle, "self", "default"), "self");
  EXPECT_EQ(Localized(bundle, "esc"), "a\n\"b\" \xC3\xA9 A");
  EXPECT_EQ(Localized(bundle, "missing", "default"), "default");
  EXPECT_EQ(Localized(bundle, "missing"), "missing");
  EXPECT_EQ(Localized(bundle, "missing", ""), "missing");
  EXPECT_EQ(Localized(bundle, "k", nullptr, "Other"), "xml");
  EXPECT_EQ(Localized(bundle, "k", nullptr, "Plain"), "v");
  EXPECT_EQ(Localized(bundle, "k", "none", "NoTable"), "none");
  EXPECT_EQ(Localized(bundle, "Name", "out", "../en.lproj/Localizable"), "out");
  EXPECT_EQ(Localized(nullptr, "key", "value"), "value");
  EXPECT_EQ(Localized(nullptr, "key"), "key");
  Owned<CFURLRef> resource(
      CFBundleCopyResourceURL(bundle, CFSTR("Plain"), CFSTR("strings"), nullptr));
  EXPECT_TRUE(resource);
  EXPECT_EQ(CFBundleCopyResourceURL(bundle, CFSTR("None"), CFSTR("strings"), nullptr), nullptr);
}

TEST_F(BundleTest, LocalizesForTheUsersLanguage) {
  Write("Contents/Resources/en.lproj/Localizable.strings", "\"Name\" = \"English\";");
  Write("Contents/Resources/de.lproj/Localizable.strings", "\"Name\" = \"Deutsch\";");
  setenv("LANG", "de_AT.UTF-8", 1);
  Bundle bundle = Create();
  EXPECT_EQ(Localized(bundle, "Name"), "Deutsch");
  bundle.Reset(nullptr);
  setenv("LC_ALL", "fr_FR", 1);
  bundle = Create();
  EXPECT_EQ(Localized(bundle, "Name"), "English");
}

TEST_F(BundleTest, ABrokenTableCountsAsNone) {
  for (const char* bad :
       {"\"a\" = \"b\"", "\"a\" = ;", "\"a", "/* open", "= \"b\";", "\"a\" \"b\";",
        "\"a\" = \"\xFF\";", "<plist><array/></plist>", "\"a\" = \"\\"}) {
    Write("Contents/Resources/en.lproj/Localizable.strings", bad);
    Bundle bundle = Create();
    EXPECT_EQ(Localized(bundle, "a", "default"), "default") << bad;
  }
}

TEST_F(BundleTest, LoadsItsExecutable) {
  Bundle bundle = Create();
  Owned<CFURLRef> url(CFBundleCopyExecutableURL(bundle));
  EXPECT_TRUE(CFStringHasSuffix(CFURLGetString(url), CFSTR("Test.plugin/Contents/Linux/Test")));
  EXPECT_FALSE(CFBundleIsExecutableLoaded(bundle));
  EXPECT_TRUE(CFBundlePreflightExecutable(bundle, nullptr));
  ASSERT_TRUE(CFBundleLoadExecutable(bundle));
  EXPECT_TRUE(CFBundleIsExecutableLoaded(bundle));
  auto function = reinterpret_cast<CFPlugInFactoryFunction>(
      CFBundleGetFunctionPointerForName(bundle, CFSTR("TestFactory")));
  ASSERT_NE(function, nullptr);
  String made(static_cast<CFStringRef>(function(nullptr, MakeUUID(kTypeText))));
  EXPECT_EQ(Text(made), kTypeText);
  EXPECT_EQ(CFBundleGetFunctionPointerForName(bundle, CFSTR("NoSuchFunction")), nullptr);
  // Loaded code keeps its bundle.
  bundle.Reset(nullptr);
  CFBundleRef found = CFBundleGetBundleWithIdentifier(CFSTR("com.tembra.test.bundle"));
  ASSERT_NE(found, nullptr);
  CFBundleUnloadExecutable(found);
  EXPECT_EQ(CFBundleGetBundleWithIdentifier(CFSTR("com.tembra.test.bundle")), nullptr);
}

TEST_F(BundleTest, AnExecutableThatIsNotThereIsAnError) {
  for (const char* name : {"Missing", "../../Info.plist", ".."}) {
    WriteInfo("", name);
    Bundle bundle = Create();
    CFErrorRef error = nullptr;
    EXPECT_FALSE(CFBundleLoadExecutableAndReturnError(bundle, &error)) << name;
    ASSERT_NE(error, nullptr);
    CFRelease(error);
    EXPECT_EQ(CFBundleGetFunctionPointerForName(bundle, CFSTR("TestFactory")), nullptr);
    EXPECT_EQ(CFBundleCopyExecutableURL(bundle), nullptr);
  }
}

TEST_F(BundleTest, FindsTheBundlesOfADirectory) {
  fs::create_directories(mFolder / "Empty.plugin");
  fs::create_directories(mFolder / "Test.other/Contents");
  fs::copy(mPath / "Contents/Info.plist", mFolder / "Test.other/Contents/Info.plist");
  Owned<CFArrayRef> typed(
      CFBundleCreateBundlesFromDirectory(nullptr, URL(mFolder), CFSTR("plugin")));
  EXPECT_EQ(CFArrayGetCount(typed), 1);
  Owned<CFArrayRef> any(CFBundleCreateBundlesFromDirectory(nullptr, URL(mFolder), nullptr));
  EXPECT_EQ(CFArrayGetCount(any), 2);
}

TEST(MainBundle, IsTheProgramAndExistsOnce) {
  CFBundleRef bundle = CFBundleGetMainBundle();
  ASSERT_NE(bundle, nullptr);
  EXPECT_EQ(bundle, CFBundleGetMainBundle());
  EXPECT_TRUE(CFBundleIsExecutableLoaded(bundle));
  EXPECT_EQ(CFBundleGetIdentifier(bundle), nullptr);
  EXPECT_NE(CFBundleGetInfoDictionary(bundle), nullptr);
}

class PlugInTest : public BundleTest {
 protected:
  void SetUp() override {
    BundleTest::SetUp();
    WriteInfo(std::string("<key>CFPlugInFactories</key><dict><key>") + kFactoryText +
              "</key><string>TestFactory</string><key>junk</key><string>x</string></dict>"
              "<key>CFPlugInTypes</key><dict><key>" +
              kTypeText + "</key><array><string>" + kFactoryText +
              "</string><string>junk</string></array></dict>");
  }
  const UUID mFactory = MakeUUID(kFactoryText);
  const UUID mType = MakeUUID(kTypeText);
};

TEST_F(PlugInTest, RegistersItsFactoriesAndMakesInstances) {
  EXPECT_EQ(CFPlugInFindFactoriesForPlugInType(mType), nullptr);
  Owned<CFPlugInRef> plugIn(CFPlugInCreate(nullptr, URL(mPath)));
  ASSERT_TRUE(plugIn);
  EXPECT_EQ(CFPlugInGetBundle(plugIn), plugIn.Get());
  EXPECT_EQ(CFBundleGetPlugIn(plugIn), plugIn.Get());
  Owned<CFArrayRef> factories(CFPlugInFindFactoriesForPlugInTypeInPlugIn(mType, plugIn));
  ASSERT_TRUE(factories);
  ASSERT_EQ(CFArrayGetCount(factories), 1);
  EXPECT_EQ(CFArrayGetValueAtIndex(factories, 0), mFactory.Get());
  Owned<CFArrayRef> everywhere(CFPlugInFindFactoriesForPlugInType(mType));
  EXPECT_TRUE(CFEqual(factories, everywhere));
  EXPECT_FALSE(CFBundleIsExecutableLoaded(plugIn));
  String instance(static_cast<CFStringRef>(CFPlugInInstanceCreate(nullptr, mFactory, mType)));
  EXPECT_EQ(Text(instance), kTypeText);
  EXPECT_TRUE(CFBundleIsExecutableLoaded(plugIn));
  CFBundleUnloadExecutable(plugIn);
  plugIn.Reset(nullptr);
  EXPECT_EQ(CFPlugInFindFactoriesForPlugInType(mType), nullptr);
  EXPECT_EQ(CFPlugInInstanceCreate(nullptr, mFactory, mType), nullptr);
}

TEST_F(PlugInTest, RefusesWhatItDoesNotServe) {
  Owned<CFPlugInRef> plugIn(CFPlugInCreate(nullptr, URL(mPath)));
  EXPECT_EQ(CFPlugInInstanceCreate(nullptr, mFactory, mFactory), nullptr);
  EXPECT_EQ(CFPlugInInstanceCreate(nullptr, mType, mType), nullptr);
  EXPECT_FALSE(CFPlugInRegisterFactoryFunctionByName(mFactory, plugIn, CFSTR("x")));
  WriteInfo("");
  plugIn.Reset(nullptr);
  EXPECT_EQ(CFPlugInCreate(nullptr, URL(mPath)), nullptr);
}

TEST_F(PlugInTest, AnInstanceKeepsItsPlugIn) {
  CFPlugInRef plugIn = CFPlugInCreate(nullptr, URL(mPath));
  CFPlugInAddInstanceForFactory(mFactory);
  EXPECT_EQ(CFGetRetainCount(plugIn), 2);
  CFRelease(plugIn);
  EXPECT_NE(CFBundleGetBundleWithIdentifier(CFSTR("com.tembra.test.bundle")), nullptr);
  CFPlugInRemoveInstanceForFactory(mFactory);
  EXPECT_EQ(CFBundleGetBundleWithIdentifier(CFSTR("com.tembra.test.bundle")), nullptr);
  // Neither more removals nor unknown factories do any harm.
  CFPlugInRemoveInstanceForFactory(mFactory);
  CFPlugInAddInstanceForFactory(mFactory);
}

void* LocalFactory(CFAllocatorRef, CFUUIDRef inType) {
  return const_cast<__CFUUID*>(inType);
}

TEST_F(PlugInTest, AHostMayRegisterFactoriesOfItsOwn) {
  UUID factory(CFUUIDCreate(nullptr)), type(CFUUIDCreate(nullptr));
  EXPECT_FALSE(CFPlugInRegisterPlugInType(factory, type));
  ASSERT_TRUE(CFPlugInRegisterFactoryFunction(factory, LocalFactory));
  EXPECT_FALSE(CFPlugInRegisterFactoryFunction(factory, LocalFactory));
  EXPECT_EQ(CFPlugInInstanceCreate(nullptr, factory, type), nullptr);
  ASSERT_TRUE(CFPlugInRegisterPlugInType(factory, type));
  EXPECT_EQ(CFPlugInInstanceCreate(nullptr, factory, type), type.Get());
  EXPECT_TRUE(CFPlugInUnregisterPlugInType(factory, type));
  EXPECT_FALSE(CFPlugInUnregisterPlugInType(factory, type));
  EXPECT_TRUE(CFPlugInUnregisterFactory(factory));
  EXPECT_FALSE(CFPlugInUnregisterFactory(factory));
}

}  // namespace
