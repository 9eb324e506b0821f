#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <string>

#include "support/PrivateRuntime.h"

namespace tembra::test {

// What the functions under test see of the machine in place of what is really there.
struct FakeSystem {
  std::map<std::string, std::string> mFiles;  // contents by path; nothing else exists
  int mFileReads = 0;
  bool mHasAccount = true;
  bool mIsSetUserID = false;
  std::string mHome;  // of the account
  unsigned mGestaltFailsFor = 0;
  int mGestaltCalls = 0;
  CFBundleRef mMainBundle = nullptr;
};
extern FakeSystem gSystem;

// A fresh system of version 10.13.6, of which nothing has been read yet.
class SystemTest : public testing::Test {
 protected:
  SystemTest();
  static void StandFor(int32_t inMajor, int32_t inMinor, int32_t inPatch);
  static std::string InfoList(const std::string& inEntries);

  PrivateRuntime mRuntime;
};

}  // namespace tembra::test
