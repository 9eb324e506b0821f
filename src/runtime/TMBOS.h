#pragma once

// Which system and which build of the product are present.
//
// Thread: any.
// Ownership: tmbos_load_info hands out a reference; GetSysBuildVersion's text is static.
// Units and range: version numbers as they are written, each compared as a number.
// Failure: numbers that cannot be had are 0, a text that cannot be had is empty.

#include <CoreFoundation/CoreFoundation.h>

#include <atomic>
#include <cstdint>

// Each pointer may be null. Always 1.
int32_t TMBOS_GetSystemVersion(int32_t* outMajor, int32_t* outMinor, int32_t* outPatch);
// Up to 32 bytes of the system's build, read once.
const char* TMBOS_GetSysBuildVersion();

// Major and minor are compared, the patch is not.
bool TMBOS_SysVerIsEqualOrHigher(int32_t inMajor, int32_t inMinor);
bool TMBOS_SysVerIsEqualTo(int32_t inMajor, int32_t inMinor);
bool TMBOS_SysVerIsLowerThan(int32_t inMajor, int32_t inMinor);
bool TMBOS_SysVerIsHigherThan(int32_t inMajor, int32_t inMinor);

// The version of a bundle: null means the main bundle, a text that begins with "/" is the path of
// an information property list, any other is a bundle's identifier. Each pointer may be null.
// 1, or 0 if there is no version; then nothing is stored.
int32_t TMBOS_GetBundleVersion(const char* inBundle, int32_t* outMajor, int32_t* outMinor,
                               int32_t* outBuild);
// The same of the product that is installed on this machine.
int32_t TMBOS_GetInstalledVersion(int32_t* outMajor, int32_t* outMinor, int32_t* outBuild);

// False if the system did not say all of its version, which then reads as 0 in part or whole.
bool tmbos_is_sysver_known();

void tmbos_update_sysver();
void tmbos_update_bldver();
// The property list at that path; null if there is none. The caller releases it.
CFPropertyListRef tmbos_load_info(const char* inPath);

// The system's version, read at first use and never again. The flag is set after the numbers.
struct TMBOSSystemVersion {
  std::atomic<int32_t> mMajor{0};
  std::atomic<int32_t> mMinor{0};
  std::atomic<int32_t> mPatch{0};
  std::atomic<bool> mIsComplete{false};
  std::atomic<uint32_t> mIsRead{0};
};
extern TMBOSSystemVersion __tmbos_sys_ver;

// The system's build, and room for the terminator that a build of 32 bytes lacks.
struct TMBOSBuildVersion {
  static constexpr uint32_t kSize = 32;
  char mText[kSize + 1] = {};
  std::atomic<uint32_t> mIsRead{0};
};
extern TMBOSBuildVersion __tmbos_bld_ver;
