// A device whose key cannot be made, and an owner that changes while it is read for the first time.

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>

#include "persistence/HP_HogMode.h"
#include "support/CAException.h"
#include "support/client/FakeHAL.h"
#include "support/device/SimulatedDevice.h"
#include "support/persistence/FakeNotifications.h"
#include "support/persistence/FakeSettingsStorage.h"

namespace {

bool sNoString = false;

}  // namespace

// In the place of the platform's.
CFMutableStringRef CFStringCreateMutable(CFAllocatorRef inAllocator, CFIndex inMaxLength) {
  if (sNoString) return nullptr;
  const auto real = reinterpret_cast<CFMutableStringRef (*)(CFAllocatorRef, CFIndex)>(
      dlsym(RTLD_NEXT, "CFStringCreateMutable"));
  return real(inAllocator, inMaxLength);
}

namespace tembra::test {
namespace {

const std::string kKey = "com.apple.audio.CoreAudio.HogMode.Owner-UID";
constexpr pid_t kOther = 1;  // it lives, and is not this process

class HogModeFailures : public testing::Test {
 protected:
  HogModeFailures() : mDevice(false, false) {
    FakeHAL::Get().Reset();
    FakeSettingsStorage::Get().Reset();
    FakeNotifications::Get().Reset();
    mDevice.mUID = "UID";
  }
  static uintptr_t LastToken() {
    return reinterpret_cast<uintptr_t>(FakeNotifications::Get().mObservations.back().mObserver);
  }

  SimulatedDevice mDevice;
};

TEST_F(HogModeFailures, ADeviceWithoutAKeyIsRefusedAndLeavesNoToken) {
  HP_HogMode before(&mDevice);
  const size_t observations = FakeNotifications::Get().mObservations.size();
  sNoString = true;
  OSStatus status = 0;
  try {
    const HP_HogMode hogMode(&mDevice);
  } catch (const CAException& exception) {
    status = exception.GetError();
  }
  sNoString = false;
  EXPECT_EQ(status, 2003329396);
  EXPECT_EQ(FakeNotifications::Get().mObservations.size(), observations);
  // Tokens follow each other: the one between these two was the refused one's.
  const uintptr_t first = LastToken();
  HP_HogMode after(&mDevice);
  ASSERT_EQ(LastToken(), first + 2);
  FakeSettingsStorage::Get().TakeCalls();
  HP_HogMode::ChangeNotification(nullptr, reinterpret_cast<void*>(first + 1), CFSTR("name"),
                                 nullptr, nullptr);
  EXPECT_THAT(FakeSettingsStorage::Get().TakeCalls(), testing::IsEmpty());
}

// A notification is delivered once the owner has been read and before it is kept.
class OvertakenHogMode : public HP_HogMode {
 public:
  using HP_HogMode::HP_HogMode;
  pid_t GetOwnerFromPreference(bool inSendNotification) const override {
    const pid_t owner = HP_HogMode::GetOwnerFromPreference(inSendNotification);
    if (!mIsOvertaken) {
      mIsOvertaken = true;
      FakeSettingsStorage::Get().PutElsewhere(kKey, getpid());
      EXPECT_EQ(FakeNotifications::Get().Deliver(kKey), 1);
    }
    return owner;
  }

 private:
  mutable bool mIsOvertaken = false;
};

TEST_F(HogModeFailures, WhatANotificationBringsDuringTheFirstReadIsNewer) {
  OvertakenHogMode hogMode(&mDevice);
  FakeSettingsStorage::Get().PutElsewhere(kKey, kOther);
  EXPECT_EQ(hogMode.GetOwner(), getpid());
  EXPECT_TRUE(hogMode.CurrentProcessIsOwner());
}

}  // namespace
}  // namespace tembra::test
