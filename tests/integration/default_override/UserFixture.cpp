#include "UserFixture.h"

#include <CoreFoundation/CoreFoundation.h>
#include <dlfcn.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "support/OtherUser.h"
#include "support/PrivateMounts.h"
#include "support/Program.h"

namespace tembra::test {

namespace fs = std::filesystem;

namespace {

constexpr char kFolder[] = "/var/run/user";
constexpr int kBuildIsClosed = 77;

// Someone without an account: their home is what the environment says.
uid_t FreeUserID() {
  uid_t user = 60001;
  while (getpwuid(user) != nullptr) ++user;
  return user;
}

uid_t UserID() {
  static const uid_t sUser = getuid() != 0 ? getuid() : FreeUserID();
  return sUser;
}

AudioObjectPropertyAddress Global(AudioObjectPropertySelector inSelector) {
  return {inSelector, kAudioObjectPropertyScopeGlobal, 0};
}

bool IsUnderTest(AudioObjectID inDevice) {
  const AudioObjectPropertyAddress address = Global(kAudioDevicePropertyDeviceUID);
  CFStringRef uid = nullptr;
  UInt32 size = sizeof uid;
  if (AudioObjectGetPropertyData(inDevice, &address, 0, nullptr, &size, &uid) != 0) return false;
  const bool is = CFEqual(uid, CFSTR("TMBAudioCln_Plugin"));
  CFRelease(uid);
  return is;
}

AudioObjectID FindDevice(bool inIsUnderTest) {
  const AudioObjectPropertyAddress address = Global(kAudioHardwarePropertyDevices);
  AudioObjectID devices[8] = {};
  UInt32 size = sizeof devices;
  EXPECT_EQ(AudioObjectGetPropertyData(1, &address, 0, nullptr, &size, devices), 0);
  EXPECT_EQ(size, 2 * sizeof(AudioObjectID)) << "both plug-ins' devices";
  for (UInt32 i = 0; i < size / sizeof(AudioObjectID); ++i) {
    if (IsUnderTest(devices[i]) == inIsUnderTest) return devices[i];
  }
  return kAudioObjectUnknown;
}

}  // namespace

UserFixture::UserFixture() {
  fs::remove_all(kFolder);
  fs::remove_all("/var/run/tmbipc");
  fs::create_directories(Home() + "/Library/Preferences");
  fs::create_directories(File("runtime"));
  fs::permissions(File("runtime"), fs::perms(0700));
  if (IsRoot()) {
    for (const auto& entry : fs::recursive_directory_iterator(kFolder)) {
      EXPECT_EQ(lchown(entry.path().c_str(), UserID(), UserID()), 0);
    }
    EXPECT_EQ(chown(kFolder, UserID(), UserID()), 0);
  }
  setenv("TEMBRA_HAL_PLUGIN_PATH",
         TEMBRA_BINARY_DIR "/tests/plug-ins:" TEMBRA_BINARY_DIR "/lib/tembra/plug-ins", 1);
}

bool UserFixture::IsRoot() {
  return getuid() == 0;
}

void UserFixture::RunAsUser(const std::function<void()>& inBody) {
  RunInChild([&inBody] {
    const uid_t user = UserID();
    if (getuid() == 0 && !BecomeUser(user)) _exit(1);
    setenv("HOME", Home().c_str(), 1);
    setenv("XDG_RUNTIME_DIR", File("runtime").c_str(), 1);
    if (access(TEMBRA_BINARY_DIR "/lib/libtmbhal.so", R_OK) != 0) _exit(kBuildIsClosed);
    inBody();
  });
}

void UserFixture::RunInChild(const std::function<void()>& inBody) {
  const pid_t child = fork();
  if (child == 0) {
    try {
      inBody();
    } catch (const std::exception& error) {
      // Else this child would go on with the tests that follow.
      ADD_FAILURE() << error.what();
    }
    std::fflush(nullptr);
    _exit(testing::Test::HasFailure() ? 1 : 0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status)) << "signal " << WTERMSIG(status);
  if (WEXITSTATUS(status) == kBuildIsClosed) {
    GTEST_SKIP() << "the build folder is closed to other users";
  }
  EXPECT_EQ(WEXITSTATUS(status), 0) << "see above";
}

void UserFixture::AllowSound(const std::string& inNumber) {
  fs::create_directories("/var/run/tmbipc");
  std::ofstream("/var/run/tmbipc/tmbserverd.0.snd") << inNumber;
}

std::string UserFixture::Home() {
  const passwd* const account = getpwuid(UserID());
  return account != nullptr ? account->pw_dir : File("home");
}

std::string UserFixture::Preference() {
  // /var/run may be a link, and what is told of the path has it resolved.
  return fs::weakly_canonical(Home() + "/Library/Preferences/com.tembra.tmbsound.rte.plist");
}

void UserFixture::WritePreference(const std::string& inElement) {
  WriteRaw(R"(<?xml version="1.0" encoding="UTF-8"?><plist version="1.0">)" + inElement +
           "</plist>");
}

void UserFixture::WriteRaw(const std::string& inBytes) {
  // Replaced whole, as a reader may be at it.
  const std::string beside = Preference() + ".test";
  std::ofstream(beside, std::ios::binary | std::ios::trunc) << inBytes;
  ASSERT_EQ(rename(beside.c_str(), Preference().c_str()), 0);
}

std::string UserFixture::Witness() {
  if (access(Preference().c_str(), F_OK) != 0) return "";
  Program python("/usr/bin/python3",
                 {"-c",
                  "import plistlib,json,sys;"
                  "print(json.dumps(plistlib.load(open(sys.argv[1],'rb')),sort_keys=True),end='')",
                  Preference()},
                 File("python"));
  EXPECT_EQ(python.Wait(), 0) << python.Errors();
  return python.Output();
}

std::string UserFixture::File(const std::string& inName) {
  return std::string(kFolder) + "/" + inName;
}

AudioObjectID UserFixture::DeviceUnderTest() {
  return FindDevice(true);
}

AudioObjectID UserFixture::OtherDevice() {
  return FindDevice(false);
}

AudioObjectID UserFixture::Default(AudioObjectPropertySelector inSelector) {
  const AudioObjectPropertyAddress address = Global(inSelector);
  AudioObjectID device = kAudioObjectUnknown;
  UInt32 size = sizeof device;
  EXPECT_EQ(AudioObjectGetPropertyData(1, &address, 0, nullptr, &size, &device), 0);
  EXPECT_EQ(size, sizeof device);
  return device;
}

OSStatus UserFixture::SetDefault(AudioObjectID inDevice, AudioObjectPropertySelector inSelector) {
  const AudioObjectPropertyAddress address = Global(inSelector);
  return AudioObjectSetPropertyData(1, &address, 0, nullptr, sizeof inDevice, &inDevice);
}

bool UserFixture::IsInterposed() {
  return dlsym(RTLD_DEFAULT, "AudioObjectInterposeGetPropertyData") != nullptr;
}

bool UserFixture::BeginsWithJump(const char* inFunction) {
  return *static_cast<const unsigned char*>(dlsym(RTLD_DEFAULT, inFunction)) == 0xE9;
}

}  // namespace tembra::test

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  std::vector<std::string> homes;
  // A user's own account names their home, whatever the environment says.
  const passwd* const account = getuid() != 0 ? getpwuid(getuid()) : nullptr;
  if (account != nullptr) homes.emplace_back(account->pw_dir);
  testing::AddGlobalTestEnvironment(new tembra::test::PrivateMounts(homes));
  return RUN_ALL_TESTS();
}
