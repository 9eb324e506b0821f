#pragma once

#include <functional>
#include <optional>
#include <string>

namespace tembra::test {

// The file of device settings, kept in memory by the test.
//
// An executable takes it by compiling FakeSettingsFile.cpp as one of its own sources.
struct FakeSettingsFile {
  static FakeSettingsFile& Get();

  // Nothing if there is no file.
  std::optional<std::string> mContent;
  int mReads = 0;
  int mWrites = 0;
  std::string mPath;  // as last asked for
  // Runs before a write, if it is set.
  std::function<void()> mOnWrite;
};

}  // namespace tembra::test
