// The preference file.

#include <CoreFoundation/CoreFoundation.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>

#include "OverrideFixture.h"
#include "runtime/TMBACLNO.h"

namespace tembra::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
namespace fs = std::filesystem;

class Preference : public OverrideFixture {
 protected:
  std::vector<std::string> Folder() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(mRuntime.File("Library/Preferences"))) {
      names.push_back(entry.path().filename());
    }
    return names;
  }
};

TEST_F(Preference, LiesInTheUsersHome) {
  CFURLRef url = tmbclno_copy_pref_url();
  char path[1024] = {};
  ASSERT_TRUE(
      CFURLGetFileSystemRepresentation(url, true, reinterpret_cast<UInt8*>(path), sizeof path));
  EXPECT_EQ(std::string(path), PreferenceFile());
  CFRelease(url);
}

TEST_F(Preference, HasAKeyForEachKindOfDefault) {
  CFStringRef output = tmbclno_copy_pref_key(false);
  CFStringRef system = tmbclno_copy_pref_key(true);
  EXPECT_TRUE(CFEqual(output, CFSTR("isDefaultOutput")));
  EXPECT_TRUE(CFEqual(system, CFSTR("isSystemOutput")));
  CFRelease(output);
  CFRelease(system);
}

TEST_F(Preference, WithoutAFileIsFalseAndSilent) {
  EXPECT_FALSE(tmbclno_is_default_output(false));
  EXPECT_FALSE(tmbclno_is_default_output(true));
  EXPECT_EQ(tmbclno_get_property_list(false), nullptr);
  EXPECT_THAT(gPlatform.mLog, IsEmpty());
}

TEST_F(Preference, WithoutADictionaryIsFalse) {
  EXPECT_FALSE(tmbclno_is_default_output(nullptr, false));
  EXPECT_FALSE(tmbclno_is_default_output(nullptr, true));
}

TEST_F(Preference, WithoutAHomeIsFalseAndSetsNothing) {
  gPlatform.mHome.clear();
  gPlatform.mIsSetUserID = true;
  gPlatform.mUser = 1001;
  gPlatform.mHome = "/nowhere";
  EXPECT_FALSE(tmbclno_is_default_output(false));
  tmbclno_set_default_output(true, false);
  EXPECT_THAT(Folder(), IsEmpty());
}

TEST_F(Preference, TakesBooleansAndNumbersAndNothingElseForTrue) {
  struct Row {
    const char* mValue;
    bool mIsTrue;
  };
  for (const Row& row :
       {Row{"<true/>", true}, Row{"<false/>", false}, Row{"<integer>1</integer>", true},
        Row{"<integer>0</integer>", false}, Row{"<integer>-3</integer>", true},
        Row{"<real>0.5</real>", true}, Row{"<real>0</real>", false},
        Row{"<string>true</string>", false}, Row{"<array><true/></array>", false},
        Row{"<data>AQ==</data>", false}, Row{"<dict/>", false}}) {
    SCOPED_TRACE(row.mValue);
    WritePreference(std::string("<dict><key>isDefaultOutput</key>") + row.mValue + "</dict>");
    EXPECT_EQ(tmbclno_is_default_output(false), row.mIsTrue);
    EXPECT_FALSE(tmbclno_is_default_output(true));
  }
}

TEST_F(Preference, ThatDoesNotParseIsSilentlyNone) {
  for (const char* bytes : {"", "bplist00", "<plist version=\"1.0\"><dict>", "\x01\x02\x03"}) {
    WriteRaw(bytes);
    EXPECT_FALSE(tmbclno_is_default_output(false));
  }
  EXPECT_THAT(gPlatform.mLog, IsEmpty());
}

TEST_F(Preference, OfAWrongTypeIsLoggedAtEachReadAndCountsAsNone) {
  WritePreference("<array><true/></array>");
  EXPECT_FALSE(tmbclno_is_default_output(false));
  EXPECT_EQ(tmbclno_get_property_list(true), nullptr);
  const std::string line =
      "3 TMBHAL: FIX: Invalid file data type, "
      "path=~/Library/Preferences/com.tembra.tmbsound.rte.plist";
  EXPECT_THAT(gPlatform.mLog, ElementsAre(line, line));
}

TEST_F(Preference, OfAWrongTypeIsReplacedByADictionaryWithTheOneKey) {
  WritePreference("<array><string>isDefaultOutput</string></array>");
  tmbclno_set_default_output(true, false);
  EXPECT_EQ(Witness(), R"({"isDefaultOutput": true})");
}

TEST_F(Preference, IsWrittenInBinary) {
  tmbclno_set_default_output(true, true);
  EXPECT_EQ(ReadRaw().substr(0, 8), "bplist00");
  EXPECT_EQ(Witness(), R"({"isSystemOutput": true})");
  WritePreference("<dict><key>isDefaultOutput</key><false/></dict>");
  tmbclno_set_default_output(true, false);
  EXPECT_EQ(ReadRaw().substr(0, 8), "bplist00") << "also where it was XML";
}

TEST_F(Preference, KeepsOtherKeys) {
  WritePreference(
      "<dict><key>isDefaultOutput</key><false/><key>volume</key><real>0.5</real>"
      "<key>list</key><array><integer>1</integer></array></dict>");
  tmbclno_set_default_output(true, false);
  EXPECT_EQ(Witness(), R"({"isDefaultOutput": true, "list": [1], "volume": 0.5})");
}

TEST_F(Preference, SettingFalseWithoutAFileMakesNone) {
  tmbclno_set_default_output(false, false);
  EXPECT_THAT(Folder(), IsEmpty());
  EXPECT_EQ(gPlatform.mOpenedForWriting, 0);
}

TEST_F(Preference, SettingWhatItHoldsDoesNotTouchIt) {
  WritePreference("<dict><key>isDefaultOutput</key><true/></dict>");
  const std::string before = ReadRaw();
  tmbclno_set_default_output(true, false);
  tmbclno_set_default_output(false, true);
  EXPECT_EQ(ReadRaw(), before);
  EXPECT_EQ(gPlatform.mOpenedForWriting, 0);
}

TEST_F(Preference, AValueOfAWrongTypeCountsAsFalse) {
  WritePreference("<dict><key>isDefaultOutput</key><string>yes</string></dict>");
  tmbclno_set_default_output(false, false);
  EXPECT_EQ(gPlatform.mOpenedForWriting, 0);
  tmbclno_set_default_output(true, false);
  EXPECT_EQ(Witness(), R"({"isDefaultOutput": true})");
}

TEST_F(Preference, IsReplacedWholeWithItsModeAndLeavesNothingBeside) {
  WritePreference("<dict><key>isDefaultOutput</key><false/></dict>");
  ASSERT_EQ(chmod(PreferenceFile().c_str(), 0640), 0);
  tmbclno_set_default_output(true, false);
  struct stat status;
  ASSERT_EQ(stat(PreferenceFile().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0640U);
  EXPECT_THAT(Folder(), ElementsAre("com.tembra.tmbsound.rte.plist"));
}

TEST_F(Preference, BehindALinkStaysBehindIt) {
  const std::string elsewhere = mRuntime.File("elsewhere.plist");
  ASSERT_EQ(symlink(elsewhere.c_str(), PreferenceFile().c_str()), 0);
  WriteRaw(R"(<plist version="1.0"><dict/></plist>)");
  tmbclno_set_default_output(true, false);
  EXPECT_TRUE(fs::is_symlink(PreferenceFile()));
  EXPECT_EQ(Witness(), R"({"isDefaultOutput": true})");
}

TEST_F(Preference, AWriteThatFailsIsSilentAndLeavesTheOldFile) {
  // Without the folder there is nowhere to write.
  fs::remove_all(mRuntime.File("Library/Preferences"));
  tmbclno_set_default_output(true, false);
  EXPECT_FALSE(fs::exists(mRuntime.File("Library/Preferences")));
  // A directory in the file's place cannot be replaced.
  fs::create_directories(PreferenceFile() + "/inside");
  tmbclno_set_default_output(true, false);
  EXPECT_TRUE(fs::exists(PreferenceFile() + "/inside"));
  EXPECT_THAT(Folder(), ElementsAre("com.tembra.tmbsound.rte.plist"));
  EXPECT_THAT(gPlatform.mLog, IsEmpty());
}

TEST_F(Preference, AWriteThatStopsHalfWayIsSilentAndLeavesTheOldFile) {
  gPlatform.mIsDiskFull = true;
  tmbclno_set_default_output(true, false);
  EXPECT_THAT(Folder(), IsEmpty());
  WritePreference("<dict><key>isDefaultOutput</key><false/></dict>");
  const std::string before = ReadRaw();
  tmbclno_set_default_output(true, false);
  EXPECT_EQ(ReadRaw(), before);
  EXPECT_THAT(Folder(), ElementsAre("com.tembra.tmbsound.rte.plist"));
  EXPECT_EQ(gPlatform.mOpenedForWriting, 2);
  EXPECT_THAT(gPlatform.mLog, IsEmpty());
}

TEST_F(Preference, WhatIsNoPlainFileIsNotReplaced) {
  // A socket can be neither read nor written as a file, and yet be renamed over.
  const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{AF_UNIX, {}};
  const std::string path = mRuntime.File("s");
  ASSERT_LT(path.size(), sizeof address.sun_path);
  strcpy(address.sun_path, path.c_str());
  ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  ASSERT_EQ(rename(path.c_str(), PreferenceFile().c_str()), 0);
  tmbclno_set_default_output(true, false);
  EXPECT_TRUE(fs::is_socket(PreferenceFile()));
  EXPECT_EQ(gPlatform.mOpenedForWriting, 0);
  EXPECT_THAT(gPlatform.mLog, IsEmpty());
  close(listener);
}

TEST_F(Preference, AWriteSweepsAwayWhatKilledWritersLeft) {
  const pid_t dead = fork();
  if (dead == 0) _exit(0);
  ASSERT_EQ(waitpid(dead, nullptr, 0), dead);
  const std::string gone = "." + std::to_string(dead);
  const std::string alive = "." + std::to_string(getpid());
  const std::vector<std::string> leftovers{gone + ".0.new", gone + ".17.new", gone + ".new"};
  // Of a live writer, of other files, and of other makers.
  const std::vector<std::string> others{alive + ".0.new", ".new",      gone + "0x.new",
                                        gone + ".0.old",  ".-1.0.new", ".0.0.new",
                                        ".backup",        gone,        ".x.0.new"};
  for (const auto& names : {leftovers, others}) {
    for (const std::string& name : names) std::ofstream(PreferenceFile() + name) << "half";
  }
  std::ofstream(mRuntime.File("Library/Preferences/other.plist") + gone + ".0.new") << "half";

  tmbclno_set_default_output(false, false);
  EXPECT_EQ(Folder().size(), leftovers.size() + others.size() + 1) << "nothing was written";
  tmbclno_set_default_output(true, false);
  for (const std::string& name : leftovers) EXPECT_FALSE(fs::exists(PreferenceFile() + name));
  for (const std::string& name : others) EXPECT_TRUE(fs::exists(PreferenceFile() + name)) << name;
  EXPECT_EQ(Folder().size(), others.size() + 2);
  EXPECT_EQ(Witness(), R"({"isDefaultOutput": true})");
}

TEST_F(Preference, IsHandedOutMutableOrNot) {
  WritePreference("<dict><key>isDefaultOutput</key><false/></dict>");
  CFPropertyListRef list = tmbclno_get_property_list(true);
  ASSERT_NE(list, nullptr);
  EXPECT_EQ(CFGetRetainCount(list), 1);
  auto dictionary = static_cast<CFMutableDictionaryRef>(const_cast<void*>(list));
  CFDictionarySetValue(dictionary, CFSTR("new"), kCFBooleanTrue);
  EXPECT_EQ(CFDictionaryGetCount(dictionary), 2);
  CFRelease(list);
  list = tmbclno_get_property_list(false);
  ASSERT_NE(list, nullptr);
  EXPECT_FALSE(tmbclno_is_default_output(static_cast<CFDictionaryRef>(list), false));
  CFRelease(list);
}

}  // namespace
}  // namespace tembra::test
