#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace tembra::test {

// The file behind CASettingsStorage, kept in memory by the test, with 32-bit numbers as its values.
// It stands in for that class as far as exclusive ownership uses it.
//
// An executable takes it by compiling FakeSettingsStorage.cpp as one of its own sources. The
// storage may be used on any thread; the fields are for quiet moments.
class FakeSettingsStorage {
 public:
  static FakeSettingsStorage& Get();
  // As if there were no file. What the storages were made with stays.
  void Reset();

  // As another process would; seen at the next access if the file's time has moved, else once a
  // refresh is forced.
  void PutElsewhere(const std::string& inKey, SInt32 inValue, bool inTimeMoves = true);
  std::vector<std::string> TakeCalls();

  std::map<std::string, SInt32> mFile;
  // "read KEY", "write KEY VALUE", "remove KEY", "force".
  std::vector<std::string> mCalls;
  // How the last storage was made.
  std::string mPath;
  UInt16 mMode = 0;
  CFPropertyListFormat mFormat{};
  bool mIsSingleProcess = true;
  bool mIsReadOnly = true;

  std::map<std::string, SInt32> mInHand;
  bool mMustRefresh = true;
  std::mutex mMutex;
};

}  // namespace tembra::test
