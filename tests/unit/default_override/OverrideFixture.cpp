#include "OverrideFixture.h"

#include <CoreFoundation/CoreFoundation.h>
#include <dlfcn.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fstream>

#include "runtime/TMBACLNO.h"
#include "runtime/TMBIPC.h"
#include "support/Program.h"

namespace tembra::test {
FakePlatform gPlatform;
}
using tembra::test::gPlatform;

// The code under test is linked into this program and asks these before anybody else.

OSStatus AudioObjectGetPropertyData(AudioObjectID inObjectID,
                                    const AudioObjectPropertyAddress* inAddress,
                                    UInt32 inQualifierDataSize, const void* inQualifierData,
                                    UInt32* ioDataSize, void* outData) {
  gPlatform.mReads.push_back({inObjectID, inAddress, inQualifierDataSize, inQualifierData,
                              ioDataSize, ioDataSize ? *ioDataSize : 0, outData});
  if (ioDataSize && *ioDataSize >= 4 && outData) memcpy(outData, &gPlatform.mDefault, 4);
  return gPlatform.mStatus;
}

OSStatus AudioObjectSetPropertyData(AudioObjectID inObjectID,
                                    const AudioObjectPropertyAddress* inAddress,
                                    UInt32 inQualifierDataSize, const void* inQualifierData,
                                    UInt32 inDataSize, const void* inData) {
  gPlatform.mWrites.push_back(
      {inObjectID, inAddress, inQualifierDataSize, inQualifierData, nullptr, inDataSize, inData});
  return gPlatform.mStatus;
}

OSStatus tmbclno_override_aogpd() {
  gPlatform.mInstallation.emplace_back("get");
  return gPlatform.mOverrideStatus;
}

OSStatus tmbclno_override_aospd() {
  gPlatform.mInstallation.emplace_back("set");
  return gPlatform.mOverrideStatus;
}

int32_t TMBIPC_IsSoundAllowed() {
  gPlatform.mInstallation.emplace_back("is sound allowed?");
  return gPlatform.mSoundAllowed;
}

extern "C" uid_t getuid() noexcept {
  return gPlatform.mUser;
}

int issetugid() {
  return gPlatform.mIsSetUserID ? 1 : 0;
}

extern "C" int getpwuid_r(uid_t inUser, struct passwd* outEntry, char* outText, size_t,
                          struct passwd** outFound) {
  *outFound = nullptr;
  if (inUser != gPlatform.mUser) return 0;
  strcpy(outText, gPlatform.mHome.c_str());
  outEntry->pw_dir = outText;
  *outFound = outEntry;
  return 0;
}

extern "C" void syslog(int inPriority, const char* inFormat, ...) {
  char text[512];
  va_list arguments;
  va_start(arguments, inFormat);
  vsnprintf(text, sizeof text, inFormat, arguments);
  va_end(arguments);
  gPlatform.mLog.push_back(std::to_string(inPriority) + " " + text);
}

Boolean CFWriteStreamOpen(CFWriteStreamRef inStream) {
  ++gPlatform.mOpenedForWriting;
  static const auto sReal =
      reinterpret_cast<decltype(&CFWriteStreamOpen)>(dlsym(RTLD_NEXT, "CFWriteStreamOpen"));
  return sReal(inStream);
}

CFIndex CFPropertyListWrite(CFPropertyListRef inList, CFWriteStreamRef inStream,
                            CFPropertyListFormat inFormat, CFOptionFlags inOptions,
                            CFErrorRef* outError) {
  static const auto sReal =
      reinterpret_cast<decltype(&CFPropertyListWrite)>(dlsym(RTLD_NEXT, "CFPropertyListWrite"));
  if (!gPlatform.mIsDiskFull) return sReal(inList, inStream, inFormat, inOptions, outError);
  const UInt8 half[] = {'b', 'p', 'l', 'i', 's', 't'};
  CFWriteStreamWrite(inStream, half, sizeof half);
  return 0;
}

namespace tembra::test {

OverrideFixture::OverrideFixture() {
  gPlatform = {};
  gPlatform.mHome = mRuntime.Path();
  mkdir(mRuntime.File("Library").c_str(), 0700);
  mkdir(mRuntime.File("Library/Preferences").c_str(), 0700);
  tmbclno_aogpd_overriden = false;
  tmbclno_aogpd_entry = nullptr;
  tmbclno_aospd_entry = nullptr;
  TMBACLNO_Initialize(kDevice);
}

std::string OverrideFixture::PreferenceFile() const {
  return mRuntime.File("Library/Preferences/com.tembra.tmbsound.rte.plist");
}

void OverrideFixture::WritePreference(const std::string& inElement) const {
  WriteRaw(R"(<?xml version="1.0" encoding="UTF-8"?><plist version="1.0">)" + inElement +
           "</plist>");
}

void OverrideFixture::WriteRaw(const std::string& inBytes) const {
  std::ofstream(PreferenceFile(), std::ios::binary | std::ios::trunc) << inBytes;
}

std::string OverrideFixture::ReadRaw() const {
  return ReadFile(PreferenceFile());
}

std::string OverrideFixture::Witness() const {
  if (access(PreferenceFile().c_str(), F_OK) != 0) return "";
  Program python("/usr/bin/python3",
                 {"-c",
                  "import plistlib,json,sys;"
                  "print(json.dumps(plistlib.load(open(sys.argv[1],'rb')),sort_keys=True),end='')",
                  PreferenceFile()},
                 mRuntime.File("python"));
  EXPECT_EQ(python.Wait(), 0) << python.Errors();
  return python.Output();
}

}  // namespace tembra::test
