#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <string>

#include "persistence/CASettingsStorage.h"
#include "support/CACFString.h"
#include "support/Program.h"

namespace tembra::test {

// What the next calls of the platform do, see Interposed.cpp. A hook runs once, before the call.
struct Interposed {
  static Interposed& Get();
  std::function<void()> mBeforeLock;
  int mLockErrors = 0;  // so many calls fail...
  int mLockError = 0;   // ...with this
  int mLockCalls = 0;
  long mWriteLimit = -1;  // bytes until the disk is full; none if negative
  int mReadingError = 0;  // of each opening to read the file, and to write it
  int mWritingError = 0;
};

class SettingsTest : public testing::Test {
 protected:
  static constexpr UInt16 kMode = 0640;

  SettingsTest() {
    std::string folder = TEMBRA_BINARY_DIR "/tests/settings-XXXXXX";
    if (mkdtemp(folder.data()) == nullptr) throw std::runtime_error("cannot make " + folder);
    mFolder = folder;
    mFile = mFolder / "settings.plist";
    Interposed::Get() = {};
  }
  ~SettingsTest() override {
    Interposed::Get() = {};
    std::filesystem::remove_all(mFolder);
  }

  CASettingsStorage Make(CFPropertyListFormat inFormat = kCFPropertyListXMLFormat_v1_0,
                         bool inSingleProcess = false, bool inReadOnly = false) {
    return CASettingsStorage(mFile.c_str(), kMode, inFormat, inSingleProcess, inReadOnly);
  }

  static SInt32 Number(CASettingsStorage& inStorage, const char* inKey, SInt32 inDefault = -1) {
    SInt32 value = 12345;
    inStorage.CopySInt32Value(CACFString(inKey).GetCFString(), value, inDefault);
    return value;
  }
  static void Set(CASettingsStorage& inStorage, const char* inKey, SInt32 inValue) {
    inStorage.SetSInt32Value(CACFString(inKey).GetCFString(), inValue);
  }
  // Has "k" stored as 1 and the file read: a storage that made its file still reads it once.
  static void MakeCurrent(CASettingsStorage& inStorage) {
    Set(inStorage, "k", 1);
    EXPECT_EQ(Number(inStorage, "k"), 1);
  }
  // What a process that starts now reads.
  SInt32 Stored(const char* inKey) {
    CASettingsStorage fresh(mFile.c_str(), 0, kCFPropertyListXMLFormat_v1_0, false, true);
    return Number(fresh, inKey);
  }
  // As another process would, with the file's time put on a little or left where it was.
  void SetElsewhere(const char* inKey, SInt32 inValue, long inNanosLater = 1000) {
    const struct timespec before = Time();
    CASettingsStorage other(mFile.c_str(), 0, kCFPropertyListXMLFormat_v1_0, false, false);
    Set(other, inKey, inValue);
    SetTime({before.tv_sec, before.tv_nsec + inNanosLater});
  }
  void Write(const std::string& inText) { std::ofstream(mFile, std::ios::binary) << inText; }
  static std::string List(const std::string& inKey, int inValue) {
    return "<plist version=\"1.0\"><dict><key>" + inKey + "</key><integer>" +
           std::to_string(inValue) + "</integer></dict></plist>";
  }

  struct stat Status() const {
    struct stat status = {};
    EXPECT_EQ(lstat(mFile.c_str(), &status), 0);
    return status;
  }
  struct timespec Time() const {
    return Status().st_mtim;
  }
  // In the middle of a second, so that tests can move it both ways.
  void SetTime(struct timespec inTime) const {
    const struct timespec times[2] = {inTime, inTime};
    EXPECT_EQ(utimensat(AT_FDCWD, mFile.c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
  }

  std::filesystem::path mFolder;
  std::filesystem::path mFile;
};

}  // namespace tembra::test
