#include "FakeSystem.h"

#include <CoreFoundation/CoreFoundation.h>
#include <CoreServices/CoreServices.h>
#include <CoreServices/GestaltPriv.h>
#include <dlfcn.h>
#include <pwd.h>
#include <unistd.h>

#include <cstring>

#include "runtime/TMBOS.h"

namespace tembra::test {
FakeSystem gSystem;
}
using tembra::test::gSystem;

// The code under test is linked into this program and asks these before anybody else.
OSErr Gestalt(OSType inSelector, SInt32* outResponse) {
  ++gSystem.mGestaltCalls;
  if (inSelector == gSystem.mGestaltFailsFor) return gestaltUnknownErr;
  static const auto sReal =
      reinterpret_cast<OSErr (*)(OSType, SInt32*)>(dlsym(RTLD_NEXT, "Gestalt"));
  return sReal(inSelector, outResponse);
}

Boolean CFURLCreateDataAndPropertiesFromResource(CFAllocatorRef, CFURLRef inURL, CFDataRef* outData,
                                                 CFDictionaryRef*, CFArrayRef, SInt32* outError) {
  ++gSystem.mFileReads;
  char path[1024] = {};
  CFURLGetFileSystemRepresentation(inURL, true, reinterpret_cast<UInt8*>(path), sizeof path);
  const auto found = gSystem.mFiles.find(path);
  if (found == gSystem.mFiles.end()) {
    *outError = kCFURLResourceNotFoundError;
    return false;
  }
  *outData = CFDataCreate(nullptr, reinterpret_cast<const UInt8*>(found->second.data()),
                          static_cast<CFIndex>(found->second.size()));
  return true;
}

extern "C" int getpwuid_r(uid_t inUser, struct passwd* outEntry, char* outText, size_t,
                          struct passwd** outFound) {
  *outFound = nullptr;
  if (!gSystem.mHasAccount || inUser != getuid()) return 0;
  strcpy(outText, gSystem.mHome.c_str());
  outEntry->pw_dir = outText;
  *outFound = outEntry;
  return 0;
}

CFBundleRef CFBundleGetMainBundle() {
  return gSystem.mMainBundle;
}

int issetugid() {
  return gSystem.mIsSetUserID ? 1 : 0;
}

namespace tembra::test {

SystemTest::SystemTest() {
  gSystem = {};
  gSystem.mHome = mRuntime.Path();
  StandFor(10, 13, 6);
  __tmbos_bld_ver.mIsRead = 0;
  memset(__tmbos_bld_ver.mText, 0, sizeof __tmbos_bld_ver.mText);
}

void SystemTest::StandFor(int32_t inMajor, int32_t inMinor, int32_t inPatch) {
  TembraGestaltSetSystemVersion(inMajor, inMinor, inPatch);
  __tmbos_sys_ver.mIsRead = 0;
}

std::string SystemTest::InfoList(const std::string& inEntries) {
  return R"(<?xml version="1.0" encoding="UTF-8"?><plist version="1.0"><dict>)" + inEntries +
         "</dict></plist>";
}

}  // namespace tembra::test
