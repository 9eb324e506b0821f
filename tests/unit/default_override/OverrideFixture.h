#pragma once

#include <CoreAudio/AudioHardware.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/PrivateRuntime.h"

namespace tembra::test {

// A call of a platform function that reached it.
struct NativeCall {
  AudioObjectID mObject;
  const AudioObjectPropertyAddress* mAddress;
  UInt32 mQualifierSize;
  const void* mQualifier;
  const void* mSize;  // where the size is, or null
  UInt32 mSizeValue;
  const void* mData;
  bool operator==(const NativeCall&) const = default;
};

// What the override sees of its process and of the platform, and what it does to them.
struct FakePlatform {
  std::vector<NativeCall> mReads;
  std::vector<NativeCall> mWrites;
  OSStatus mStatus = 0;          // what both answer
  AudioObjectID mDefault = 777;  // what a read hands out

  uid_t mUser = 1000;
  bool mIsSetUserID = false;
  int mSoundAllowed = 1;
  std::vector<std::string> mInstallation;  // what was done, in order
  OSStatus mOverrideStatus = 0;

  std::string mHome;
  std::vector<std::string> mLog;  // "PRIORITY text"
  int mOpenedForWriting = 0;
  bool mIsDiskFull = false;
};
extern FakePlatform gPlatform;

// A user's home with a folder for preferences, a device of number 42, and no patch.
class OverrideFixture : public testing::Test {
 protected:
  static constexpr AudioObjectID kDevice = 42;

  OverrideFixture();

  std::string PreferenceFile() const;
  // Writes the file by another program's means: a property list of the given XML element.
  void WritePreference(const std::string& inElement) const;
  void WriteRaw(const std::string& inBytes) const;
  std::string ReadRaw() const;
  // What Python's plistlib reads, as JSON with sorted keys; "" if there is no file.
  std::string Witness() const;

  PrivateRuntime mRuntime;
};

}  // namespace tembra::test
