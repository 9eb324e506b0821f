#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "persistence/HP_DeviceSettings.h"
#include "support/Program.h"
#include "support/persistence/ControlledDevice.h"

namespace tembra::test {

namespace fs = std::filesystem;

// Runs a text of Python; what it prints. Python's plistlib is the outside witness of the file.
inline std::string Python(const std::string& inText) {
  static int sNumber = 0;
  const std::string prefix = std::string(getenv("HOME")) + "/python" + std::to_string(sNumber++);
  std::ofstream(prefix + ".py") << "import json, plistlib\n" << inText;
  Program python("/usr/bin/python3", {prefix + ".py"}, prefix);
  EXPECT_EQ(python.Wait(), 0) << python.Errors();
  return python.Output();
}

class SettingsFile : public testing::Test {
 protected:
  SettingsFile() {
    fs::create_directories(mFolder);
    umask(022);
  }
  ~SettingsFile() override {
    std::error_code ignored;
    fs::remove_all("/Library/Preferences", ignored);
  }

  static void Save(const HP_Device& inDevice) {
    HP_DeviceSettings::SaveToPrefs(inDevice, HP_DeviceSettings::sStandardControlsToSave, 15);
  }
  static void Restore(HP_Device& ioDevice) {
    HP_DeviceSettings::RestoreFromPrefs(ioDevice, HP_DeviceSettings::sStandardControlsToSave, 15);
  }

  void Write(const std::string& inText) { std::ofstream(mFile) << inText; }
  std::string Content() const { return ReadFile(mFile); }
  mode_t Mode() const {
    struct stat status = {};
    EXPECT_EQ(lstat(mFile.c_str(), &status), 0);
    return status.st_mode & 07777;
  }
  std::vector<std::string> Names() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(mFolder)) {
      names.push_back(entry.path().filename());
    }
    return names;
  }
  // The whole file as Python reads it.
  nlohmann::json Read() const {
    return nlohmann::json::parse(
        Python("print(json.dumps(plistlib.load(open('" + mFile.string() + "', 'rb'))))"));
  }

  const fs::path mFolder = "/Library/Preferences/Audio";
  const fs::path mFile = mFolder / "com.apple.audio.DeviceSettings.plist";
  const std::string mName = mFile.filename();
};

inline const std::string kKeyPrefix = "com.apple.audio.CoreAudio.DeviceSettings.";

}  // namespace tembra::test
