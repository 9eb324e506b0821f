#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>

#include "Calls.h"
#include "support/CACFObject.h"
#include "support/Program.h"

namespace tembra::test {

namespace fs = std::filesystem;

// A folder of the test's own with one file in it.
class FailuresTest : public testing::Test {
 protected:
  FailuresTest() {
    std::string folder = TEMBRA_BINARY_DIR "/tests/settings-failures-XXXXXX";
    if (mkdtemp(folder.data()) == nullptr) throw std::runtime_error("cannot make " + folder);
    mFolder = folder;
    mFile = mFolder / "settings.plist";
  }
  ~FailuresTest() override { fs::remove_all(mFolder); }

  void Write(const std::string& inText) const { std::ofstream(mFile, std::ios::binary) << inText; }
  // Another file takes the place.
  void Replace(const std::string& inText) const {
    std::ofstream(mFolder / "new", std::ios::binary) << inText;
    fs::rename(mFolder / "new", mFile);
  }
  std::string Content() const { return ReadFile(mFile); }
  void SetTime(struct timespec inTime) const {
    const struct timespec times[2] = {inTime, inTime};
    EXPECT_EQ(utimensat(AT_FDCWD, mFile.c_str(), times, 0), 0);
  }

  static std::string List(const std::string& inEntries) {
    return "<plist version=\"1.0\"><dict>" + inEntries + "</dict></plist>";
  }
  static std::string Entry(const std::string& inKey, int inValue) {
    return "<key>" + inKey + "</key><integer>" + std::to_string(inValue) + "</integer>";
  }
  static bool IsList(const std::string& inText) {
    const CACFObject<CFDataRef> data(CFDataCreate(nullptr,
                                                  reinterpret_cast<const UInt8*>(inText.data()),
                                                  static_cast<CFIndex>(inText.size())));
    const CACFObject<CFPropertyListRef> list(
        CFPropertyListCreateWithData(nullptr, data.GetObject(), 0, nullptr, nullptr));
    return list.IsValid() && CFGetTypeID(list.GetObject()) == CFDictionaryGetTypeID();
  }

  fs::path mFolder;
  fs::path mFile;
};

}  // namespace tembra::test
