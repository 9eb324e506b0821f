// In a set-uid process there are no ports and no notifications, and the environment is not read.

#include <CoreFoundation/CFMessagePort.h>
#include <CoreFoundation/CFNotificationCenter.h>
#include <dlfcn.h>
#include <elf.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "base/RuntimeDirectory.h"
#include "support/PrivateRuntime.h"

namespace {
bool gSecure = false;
}

// The libraries ask this executable before the C library.
extern "C" __attribute__((visibility("default"))) unsigned long getauxval(
    unsigned long inType) noexcept {
  if (inType == AT_SECURE && gSecure) return 1;
  static const auto sReal =
      reinterpret_cast<unsigned long (*)(unsigned long)>(dlsym(RTLD_NEXT, "getauxval"));
  return sReal ? sReal(inType) : 0;
}

namespace {

class SecureHost : public testing::Test {
 protected:
  void TearDown() override { gSecure = false; }
  tembra::test::PrivateRuntime mRuntime;
};

TEST_F(SecureHost, HasNoRuntimeDirectory) {
  EXPECT_TRUE(tembra::OpenRuntimeDirectory(nullptr));
  gSecure = true;
  EXPECT_FALSE(tembra::OpenRuntimeDirectory(nullptr));
  EXPECT_FALSE(tembra::OpenRuntimeDirectory("ports"));
}

TEST_F(SecureHost, SaysThatItIsOne) {
  EXPECT_EQ(issetugid(), 0);
  gSecure = true;
  EXPECT_EQ(issetugid(), 1);
}

TEST_F(SecureHost, OpensNoPort) {
  CFMessagePortRef port =
      CFMessagePortCreateLocal(nullptr, CFSTR("host"), nullptr, nullptr, nullptr);
  ASSERT_NE(port, nullptr);
  gSecure = true;
  EXPECT_EQ(CFMessagePortCreateLocal(nullptr, CFSTR("other"), nullptr, nullptr, nullptr), nullptr);
  EXPECT_EQ(CFMessagePortCreateRemote(nullptr, CFSTR("host")), nullptr);
  gSecure = false;
  CFMessagePortInvalidate(port);
  CFRelease(port);
}

TEST_F(SecureHost, HasNoNotificationCenterAndCallsOnNoneDoNothing) {
  EXPECT_NE(CFNotificationCenterGetDistributedCenter(), nullptr);
  gSecure = true;
  CFNotificationCenterRef center = CFNotificationCenterGetDistributedCenter();
  EXPECT_EQ(center, nullptr);
  auto never = [](CFNotificationCenterRef, void*, CFNotificationName, const void*,
                  CFDictionaryRef) { FAIL(); };
  CFNotificationCenterAddObserver(center, nullptr, never, CFSTR("name"), nullptr,
                                  CFNotificationSuspensionBehaviorDeliverImmediately);
  CFNotificationCenterPostNotificationWithOptions(center, CFSTR("name"), nullptr, nullptr, 1);
  CFNotificationCenterRemoveObserver(center, nullptr, CFSTR("name"), nullptr);
  CFNotificationCenterRemoveEveryObserver(center, nullptr);
}

}  // namespace
