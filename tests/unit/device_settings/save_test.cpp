// Saving where the list cannot be read or made.

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <string>

#include "persistence/HP_DeviceSettings.h"
#include "support/persistence/ControlledDevice.h"
#include "support/persistence/FakeSettingsFile.h"

namespace {

bool sNoList = false;

}  // namespace

// In the place of the platform's.
CFDataRef CFPropertyListCreateXMLData(CFAllocatorRef inAllocator, CFPropertyListRef inList) {
  if (sNoList) return nullptr;
  const auto real = reinterpret_cast<CFDataRef (*)(CFAllocatorRef, CFPropertyListRef)>(
      dlsym(RTLD_NEXT, "CFPropertyListCreateXMLData"));
  return real(inAllocator, inList);
}

namespace tembra::test {
namespace {

class SettingsSave : public testing::Test {
 protected:
  SettingsSave() {
    mFile = {};
    mDevice.mControls.Add('mute', 'inpt', 0, 1u);
  }
  void Save() const {
    HP_DeviceSettings::SaveToPrefs(mDevice, HP_DeviceSettings::sStandardControlsToSave, 15);
  }

  FakeSettingsFile& mFile = FakeSettingsFile::Get();
  ControlledDevice mDevice;
};

TEST_F(SettingsSave, AListThatCannotBeMadeIsNotWritten) {
  Save();
  ASSERT_EQ(mFile.mWrites, 1);
  const std::string before = mFile.mContent.value();
  mDevice.mControls.Add('mute', 'inpt', 0, 0u);
  sNoList = true;
  Save();
  sNoList = false;
  EXPECT_EQ(mFile.mWrites, 1);
  EXPECT_EQ(mFile.mContent.value(), before);
  Save();
  EXPECT_EQ(mFile.mWrites, 2);
  EXPECT_NE(mFile.mContent.value(), before);
}

TEST_F(SettingsSave, AListThatCannotBeReadIsNotWritten) {
  for (const char* text : {"junk", "<plist version=\"1.0\"><array/></plist>"}) {
    mFile.mContent = text;
    Save();
    EXPECT_EQ(mFile.mWrites, 0);
    EXPECT_EQ(mFile.mContent.value(), text);
  }
}

}  // namespace
}  // namespace tembra::test
