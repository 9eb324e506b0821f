#include <CoreFoundation/CoreFoundation.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "corefoundation/Object.h"

namespace {

namespace fs = std::filesystem;
using tembra::cf::Owned;
using Value = Owned<CFPropertyListRef>;
using String = Owned<CFStringRef>;

const CFStringRef kApp = CFSTR("com.tembra.test.preferences");

String Make(const std::string& inText) {
  return String(CFStringCreateWithCString(nullptr, inText.c_str(), kCFStringEncodingUTF8));
}

void Set(const std::string& inKey, CFTypeRef inValue) {
  CFPreferencesSetValue(Make(inKey), inValue, kApp, kCFPreferencesCurrentUser,
                        kCFPreferencesAnyHost);
}
Value Get(const std::string& inKey) {
  return Value(
      CFPreferencesCopyValue(Make(inKey), kApp, kCFPreferencesCurrentUser, kCFPreferencesAnyHost));
}
bool Synchronize() {
  return CFPreferencesSynchronize(kApp, kCFPreferencesCurrentUser, kCFPreferencesAnyHost);
}

// Runs a body in another process; true if it said so.
pid_t Start(const std::function<bool()>& inBody) {
  pid_t child = fork();
  if (child == 0) _exit(inBody() ? 0 : 1);
  return child;
}
bool Wait(pid_t inChild) {
  int status = 0;
  return waitpid(inChild, &status, 0) == inChild && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}
bool InAnotherProcess(const std::function<bool()>& inBody) {
  return Wait(Start(inBody));
}

class PreferencesTest : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = std::string(TEMBRA_BINARY_DIR) + "/preferences-test-XXXXXX";
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    mHome = pattern;
    setenv("HOME", mHome.c_str(), 1);
    mFolder = mHome / "Library/Preferences";
    mFile = mFolder / "com.tembra.test.preferences.plist";
    mLock = mFolder / ".com.tembra.test.preferences.plist.lock";
    mTemporary = mFolder / ".com.tembra.test.preferences.plist.tmp";
  }
  void TearDown() override { fs::remove_all(mHome); }

  mode_t ModeOf(const fs::path& inPath) {
    struct stat status = {};
    EXPECT_EQ(lstat(inPath.c_str(), &status), 0) << inPath;
    return status.st_mode & 07777;
  }

  fs::path mHome, mFolder, mFile, mLock, mTemporary;
};

TEST_F(PreferencesTest, AValueIsSeenAtOnceHereAndElsewhereAfterSynchronize) {
  EXPECT_FALSE(Get("key"));
  Set("key", CFSTR("value"));
  EXPECT_TRUE(CFEqual(Get("key"), CFSTR("value")));
  EXPECT_FALSE(fs::exists(mFile));
  ASSERT_TRUE(Synchronize());
  EXPECT_TRUE(
      InAnotherProcess([] { return Synchronize() && CFEqual(Get("key"), CFSTR("value")); }));
  EXPECT_EQ(ModeOf(mFile), 0600u);
  EXPECT_EQ(ModeOf(mFolder), 0700u);
  EXPECT_FALSE(fs::exists(mTemporary));
}

TEST_F(PreferencesTest, AnotherProcesssValueIsSeenAfterSynchronizeOnly) {
  Set("mine", kCFBooleanTrue);
  ASSERT_TRUE(Synchronize());
  ASSERT_TRUE(InAnotherProcess([] {
    Set("theirs", CFSTR("x"));
    return Synchronize();
  }));
  EXPECT_FALSE(Get("theirs"));
  ASSERT_TRUE(Synchronize());
  EXPECT_TRUE(CFEqual(Get("theirs"), CFSTR("x")));
  EXPECT_TRUE(CFEqual(Get("mine"), kCFBooleanTrue));
}

TEST_F(PreferencesTest, ChangesOfTwoProcessesAreMergedByKey) {
  Set("a", CFSTR("old"));
  Set("b", CFSTR("old"));
  Set("c", CFSTR("old"));
  ASSERT_TRUE(Synchronize());
  ASSERT_TRUE(InAnotherProcess([] {
    Set("b", CFSTR("theirs"));
    Set("c", nullptr);
    return Synchronize();
  }));
  Set("a", CFSTR("mine"));
  ASSERT_TRUE(Synchronize());
  EXPECT_TRUE(CFEqual(Get("a"), CFSTR("mine")));
  EXPECT_TRUE(CFEqual(Get("b"), CFSTR("theirs")));
  EXPECT_FALSE(Get("c"));
}

TEST_F(PreferencesTest, ANullValueRemovesTheKey) {
  Set("key", CFSTR("value"));
  ASSERT_TRUE(Synchronize());
  Set("key", nullptr);
  EXPECT_FALSE(Get("key"));
  ASSERT_TRUE(Synchronize());
  EXPECT_TRUE(InAnotherProcess([] { return Synchronize() && !Get("key"); }));
}

TEST_F(PreferencesTest, ListsKeysAndTakesManyAtOnce) {
  EXPECT_EQ(CFPreferencesCopyKeyList(kApp, kCFPreferencesCurrentUser, kCFPreferencesAnyHost),
            nullptr);
  const void* keys[] = {CFSTR("a"), CFSTR("b")};
  const void* values[] = {CFSTR("1"), CFSTR("2")};
  Owned<CFDictionaryRef> both(CFDictionaryCreate(
      nullptr, keys, values, 2, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
  CFPreferencesSetMultiple(both, nullptr, kApp, kCFPreferencesCurrentUser, kCFPreferencesAnyHost);
  Owned<CFArrayRef> list(
      CFPreferencesCopyKeyList(kApp, kCFPreferencesCurrentUser, kCFPreferencesAnyHost));
  ASSERT_TRUE(list);
  EXPECT_EQ(CFArrayGetCount(list), 2);
  Owned<CFDictionaryRef> all(
      CFPreferencesCopyMultiple(nullptr, kApp, kCFPreferencesCurrentUser, kCFPreferencesAnyHost));
  EXPECT_TRUE(CFEqual(all, both));
  Owned<CFArrayRef> first(CFArrayCreate(nullptr, keys, 1, &kCFTypeArrayCallBacks));
  CFPreferencesSetMultiple(nullptr, first, kApp, kCFPreferencesCurrentUser, kCFPreferencesAnyHost);
  EXPECT_FALSE(Get("a"));
  EXPECT_TRUE(Get("b"));
}

TEST_F(PreferencesTest, HostsAndApplicationsAreApart) {
  Set("key", CFSTR("any host"));
  CFPreferencesSetValue(CFSTR("key"), CFSTR("this host"), kApp, kCFPreferencesCurrentUser,
                        kCFPreferencesCurrentHost);
  CFPreferencesSetValue(CFSTR("key"), CFSTR("any app"), kCFPreferencesAnyApplication,
                        kCFPreferencesCurrentUser, kCFPreferencesAnyHost);
  CFPreferencesSetValue(CFSTR("other"), CFSTR("any app"), kCFPreferencesAnyApplication,
                        kCFPreferencesCurrentUser, kCFPreferencesAnyHost);
  ASSERT_TRUE(CFPreferencesSynchronize(kApp, kCFPreferencesCurrentUser, kCFPreferencesCurrentHost));
  ASSERT_TRUE(CFPreferencesSynchronize(kCFPreferencesAnyApplication, kCFPreferencesCurrentUser,
                                       kCFPreferencesAnyHost));
  EXPECT_TRUE(CFEqual(Get("key"), CFSTR("any host")));
  Value found(CFPreferencesCopyAppValue(CFSTR("key"), kApp));
  EXPECT_TRUE(CFEqual(found, CFSTR("this host")));
  Value fallback(CFPreferencesCopyAppValue(CFSTR("other"), kApp));
  EXPECT_TRUE(CFEqual(fallback, CFSTR("any app")));
  EXPECT_TRUE(fs::exists(mFolder / ".GlobalPreferences.plist"));
  std::vector<std::string> files;
  for (const auto& entry : fs::directory_iterator(mFolder / "ByHost")) {
    if (entry.path().filename().string()[0] != '.') files.push_back(entry.path().filename());
  }
  ASSERT_EQ(files.size(), 1u);
  EXPECT_THAT(files[0],
              testing::MatchesRegex("com\\.tembra\\.test\\.preferences\\.[0-9A-F-]{36}\\.plist"));
}

TEST_F(PreferencesTest, ReadsBooleansAndIntegersOfAnyKind) {
  struct {
    CFTypeRef mValue;
    bool mIsBoolean, mIsTrue;
    CFIndex mInteger;
    bool mIsInteger;
  } const rows[] = {{kCFBooleanTrue, true, true, 1, true},   {CFSTR("yes"), true, true, 0, false},
                    {CFSTR("False"), true, false, 0, false}, {CFSTR("12"), true, true, 12, true},
                    {CFSTR("junk"), false, false, 0, false}, {nullptr, false, false, 0, false}};
  for (const auto& row : rows) {
    CFPreferencesSetAppValue(CFSTR("key"), row.mValue, kApp);
    Boolean isValid;
    EXPECT_EQ(CFPreferencesGetAppBooleanValue(CFSTR("key"), kApp, &isValid), row.mIsTrue);
    EXPECT_EQ(isValid, row.mIsBoolean);
    EXPECT_EQ(CFPreferencesGetAppIntegerValue(CFSTR("key"), kApp, &isValid), row.mInteger);
    EXPECT_EQ(isValid, row.mIsInteger);
  }
}

TEST_F(PreferencesTest, WhatNoFileCanHoldIsNotTaken) {
  Set("null", kCFNull);
  EXPECT_FALSE(Get("null"));
  for (const char* app : {"../evil", "a/b", ""}) {
    String name = Make(app);
    CFPreferencesSetValue(CFSTR("k"), CFSTR("v"), name, kCFPreferencesCurrentUser,
                          kCFPreferencesAnyHost);
    EXPECT_EQ(
        CFPreferencesCopyValue(CFSTR("k"), name, kCFPreferencesCurrentUser, kCFPreferencesAnyHost),
        nullptr);
    EXPECT_FALSE(CFPreferencesSynchronize(name, kCFPreferencesCurrentUser, kCFPreferencesAnyHost));
  }
  EXPECT_FALSE(CFPreferencesSynchronize(kApp, CFSTR("no such user"), kCFPreferencesAnyHost));
  EXPECT_FALSE(CFPreferencesSynchronize(kApp, kCFPreferencesCurrentUser, CFSTR("elsewhere")));
}

TEST_F(PreferencesTest, ReadsXMLFilesAndTakesBrokenOnesForEmpty) {
  fs::create_directories(mFolder);
  std::ofstream(mFile) << "<plist version=\"1.0\"><dict><key>k</key><true/></dict></plist>";
  EXPECT_TRUE(CFEqual(Get("k"), kCFBooleanTrue));
  std::ofstream(mFile) << "junk";
  ASSERT_TRUE(Synchronize());
  EXPECT_FALSE(Get("k"));
  Set("new", kCFBooleanFalse);
  ASSERT_TRUE(Synchronize());
  EXPECT_TRUE(InAnotherProcess([] { return Synchronize() && Get("new") && !Get("k"); }));
}

TEST_F(PreferencesTest, LinksAndSpecialFilesAreNotFollowed) {
  fs::create_directories(mFolder);
  std::ofstream(mHome / "secret")
      << "<plist version=\"1.0\"><dict><key>k</key><true/></dict></plist>";
  fs::create_symlink(mHome / "secret", mFile);
  EXPECT_FALSE(Get("k"));
  // Writing replaces the link and leaves its target alone.
  auto size = fs::file_size(mHome / "secret");
  Set("a", kCFBooleanTrue);
  ASSERT_TRUE(Synchronize());
  EXPECT_FALSE(fs::is_symlink(mFile));
  EXPECT_EQ(fs::file_size(mHome / "secret"), size);
  fs::remove(mFile);
  ASSERT_EQ(mkfifo(mFile.c_str(), 0600), 0);
  ASSERT_TRUE(Synchronize());
  EXPECT_FALSE(Get("a"));
  // A planted link in the lock's or the temporary file's place is not followed either.
  fs::remove(mFile);
  fs::remove(mTemporary);
  fs::create_symlink(mHome / "secret", mTemporary);
  Set("b", kCFBooleanTrue);
  ASSERT_TRUE(Synchronize());
  EXPECT_EQ(fs::file_size(mHome / "secret"), size);
  fs::remove(mLock);
  fs::create_symlink(mHome / "secret", mLock);
  Set("c", kCFBooleanTrue);
  EXPECT_FALSE(Synchronize());
  EXPECT_TRUE(Get("c"));
}

TEST_F(PreferencesTest, WhatCannotBeWrittenStaysPending) {
  std::ofstream(mHome / "Library") << "a file where a folder should be";
  Set("k", kCFBooleanTrue);
  EXPECT_FALSE(Synchronize());
  EXPECT_TRUE(Get("k"));
  fs::remove(mHome / "Library");
  EXPECT_TRUE(Synchronize());
  EXPECT_TRUE(fs::exists(mFile));
}

TEST_F(PreferencesTest, AHeldLockIsNotWaitedForBeyondItsBound) {
  Set("first", kCFBooleanTrue);
  ASSERT_TRUE(Synchronize());
  int ready[2];
  ASSERT_EQ(pipe2(ready, O_CLOEXEC), 0);
  pid_t holder = Start([&] {
    int file = open(mLock.c_str(), O_RDWR | O_CLOEXEC);
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    if (fcntl(file, F_SETLK, &lock) != 0) return false;
    if (write(ready[1], "x", 1) != 1) return false;
    for (;;) pause();
  });
  char byte;
  ASSERT_EQ(read(ready[0], &byte, 1), 1);
  Set("second", kCFBooleanTrue);
  EXPECT_FALSE(Synchronize());
  EXPECT_TRUE(Get("second"));
  kill(holder, SIGKILL);
  waitpid(holder, nullptr, 0);
  EXPECT_TRUE(Synchronize());
  close(ready[0]);
  close(ready[1]);
}

TEST_F(PreferencesTest, EightWritersLoseNoUpdate) {
  std::vector<pid_t> writers;
  for (int writer = 0; writer < 8; ++writer) {
    writers.push_back(Start([writer] {
      for (int i = 0; i < 25; ++i) {
        Set(std::to_string(writer) + "-" + std::to_string(i), kCFBooleanTrue);
        // Fair enough among eight, but not certain, so a refusal is tried again.
        while (!Synchronize()) {
        }
      }
      return true;
    }));
  }
  for (pid_t writer : writers) EXPECT_TRUE(Wait(writer));
  ASSERT_TRUE(Synchronize());
  Owned<CFArrayRef> keys(
      CFPreferencesCopyKeyList(kApp, kCFPreferencesCurrentUser, kCFPreferencesAnyHost));
  ASSERT_TRUE(keys);
  EXPECT_EQ(CFArrayGetCount(keys), 200);
}

TEST_F(PreferencesTest, AWriterKilledAtAnyPointLeavesAWholeFile) {
  Set("base", kCFBooleanTrue);
  ASSERT_TRUE(Synchronize());
  unsigned seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  for (int round = 0; round < 60; ++round) {
    int progress[2];
    ASSERT_EQ(pipe2(progress, O_CLOEXEC), 0);
    pid_t writer = Start([&] {
      for (int i = 0;; ++i) {
        Set("count", i % 2 ? kCFBooleanTrue : kCFBooleanFalse);
        Set("ballast", Make(std::string(20000, 'x')));
        Synchronize();
        if (write(progress[1], "x", 1) != 1) return false;
      }
    });
    close(progress[1]);
    // Killed somewhere in the write that follows a random number of whole ones.
    for (unsigned n = 1 + random() % 8; n > 0; --n) {
      char byte;
      ASSERT_EQ(read(progress[0], &byte, 1), 1);
    }
    kill(writer, SIGKILL);
    waitpid(writer, nullptr, 0);
    close(progress[0]);
    ASSERT_TRUE(Synchronize());
    ASSERT_TRUE(Get("base")) << round;
    ASSERT_TRUE(Get("count")) << round;
  }
  // What a killed writer left goes with the next write.
  Set("last", kCFBooleanTrue);
  ASSERT_TRUE(Synchronize());
  EXPECT_FALSE(fs::exists(mTemporary));
}

TEST_F(PreferencesTest, AllUsersShareOneFolder) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root, to change the root folder";
  EXPECT_TRUE(InAnotherProcess([this] {
    // The child's own root, so the machine's /Library stays as it is.
    if (chroot(mHome.c_str()) != 0 || chdir("/") != 0) return false;
    CFPreferencesSetValue(CFSTR("k"), CFSTR("v"), kApp, kCFPreferencesAnyUser,
                          kCFPreferencesAnyHost);
    if (!CFPreferencesSynchronize(kApp, kCFPreferencesAnyUser, kCFPreferencesAnyHost)) return false;
    Value app(CFPreferencesCopyAppValue(CFSTR("k"), kApp));
    return app && CFEqual(app, CFSTR("v"));
  }));
  fs::path file = mHome / "Library/Preferences/com.tembra.test.preferences.plist";
  ASSERT_TRUE(fs::exists(file));
  EXPECT_EQ(ModeOf(file), 0644u);
}

}  // namespace
