#include "HomeFixture.h"

#include <CoreServices/CoreServices.h>
#include <CoreServices/GestaltPriv.h>
#include <dlfcn.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "runtime/TMBIPC.h"
#include "runtime/TMBOS.h"
#include "support/OtherUser.h"
#include "support/PrivateMounts.h"
#include "support/Program.h"

namespace tembra::test {

Process gProcess;

}  // namespace tembra::test

// The code under test is linked into this program and asks these before the C library and the
// platform.
extern "C" uid_t getuid() noexcept {
  return tembra::test::gProcess.mUser;
}

extern "C" void syslog(int inPriority, const char* inFormat, ...) {
  char text[512];
  va_list arguments;
  va_start(arguments, inFormat);
  vsnprintf(text, sizeof text, inFormat, arguments);
  va_end(arguments);
  tembra::test::gProcess.mLog.push_back(std::to_string(inPriority) + " " + text);
}

extern "C" OSErr Gestalt(OSType inSelector, SInt32* outResponse) {
  if (inSelector == tembra::test::gProcess.mGestaltFailsFor) return gestaltUnknownErr;
  static const auto sReal =
      reinterpret_cast<OSErr (*)(OSType, SInt32*)>(dlsym(RTLD_NEXT, "Gestalt"));
  return sReal(inSelector, outResponse);
}

namespace tembra::test {

namespace fs = std::filesystem;

HomeFixture::HomeFixture()
    : mFolder("/var/run/test"), mOldMask(umask(022)), mOldPath(getenv("PATH")) {
  gProcess = {};
  StandFor(10, 13, 6);
  fs::remove_all(kHome);
  fs::remove_all(mFolder);
  fs::create_directory(mFolder);
}

HomeFixture::~HomeFixture() {
  umask(mOldMask);
  setenv("PATH", mOldPath.c_str(), 1);
}

void HomeFixture::StandFor(int32_t inMajor, int32_t inMinor, int32_t inPatch) {
  TembraGestaltSetSystemVersion(inMajor, inMinor, inPatch);
  __tmbos_sys_ver.mIsRead = 0;
  __tmb_ipc_sip_enabled = -1;
}

void HomeFixture::MakeHome() {
  ASSERT_EQ(mkdir(kHome, 0777), 0);
}

bool HomeFixture::IsReallyRoot() {
  return syscall(SYS_getuid) == 0;
}

int HomeFixture::RunAsStranger(const std::function<int()>& inBody) {
  return RunAsUser(kStranger, [&] {
    gProcess.mUser = kStranger;
    return inBody();
  });
}

void HomeFixture::ProvideCsrutil(const std::string& inOutput) {
  Write(mFolder + "/text", inOutput);
  Write(mFolder + "/csrutil",
        "#!/bin/sh\n[ \"$*\" = status ] && exec cat " + mFolder + "/text\nexit 1\n");
  fs::permissions(mFolder + "/csrutil", fs::perms(0755));
  setenv("PATH", (mFolder + ":" + mOldPath).c_str(), 1);
}

void HomeFixture::Write(const std::string& inPath, const std::string& inText) {
  std::ofstream file(inPath, std::ios::binary | std::ios::trunc);
  file << inText;
  ASSERT_TRUE(file.flush()) << inPath;
}

mode_t HomeFixture::ModeOf(const std::string& inPath) {
  struct stat status;
  return lstat(inPath.c_str(), &status) == 0 ? status.st_mode & 07777 : static_cast<mode_t>(-1);
}

bool HomeFixture::Exists(const std::string& inPath) {
  struct stat status;
  return lstat(inPath.c_str(), &status) == 0;
}

std::string HomeFixture::MakeVictim() {
  const std::string path = mFolder + "/victim";
  Write(path, "precious");
  fs::permissions(path, fs::perms(0600));
  return path;
}

bool HomeFixture::IsVictimUnharmed(const std::string& inPath) {
  return ReadFile(inPath) == "precious" && ModeOf(inPath) == 0600;
}

}  // namespace tembra::test

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  testing::AddGlobalTestEnvironment(new tembra::test::PrivateMounts);
  return RUN_ALL_TESTS();
}
