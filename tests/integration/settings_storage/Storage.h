#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <filesystem>
#include <functional>
#include <string>

#include "persistence/CASettingsStorage.h"
#include "support/CACFString.h"

namespace tembra::test {

// A property list as a text in which each value has its kind: what two readers make of one file can
// be compared. Integers are "i", reals "f" and their bits, booleans "b", strings "s" and data "d"
// in hexadecimal, dates "t" and whole seconds since 2001.
std::string Describe(CFTypeRef inValue);

// What is in a file that no one is writing; "(unreadable)" if it is no property list.
std::string DescribeFile(const std::filesystem::path& inFile);

// A folder with a file of settings in it, in memory: what is killed or damaged here need not wait
// for a disk.
class StorageTest : public testing::Test {
 protected:
  StorageTest();
  ~StorageTest() override;

  CASettingsStorage Make(CFPropertyListFormat inFormat = kCFPropertyListXMLFormat_v1_0) const {
    return CASettingsStorage(mFile.c_str(), 0666, inFormat, false, false);
  }
  static void Set(CASettingsStorage& inStorage, const std::string& inKey, SInt32 inValue) {
    inStorage.SetSInt32Value(CACFString(inKey.c_str()).GetCFString(), inValue);
  }
  static SInt32 Get(CASettingsStorage& inStorage, const std::string& inKey) {
    SInt32 value = 0;
    inStorage.CopySInt32Value(CACFString(inKey.c_str()).GetCFString(), value, -1);
    return value;
  }

  // Runs in another process, which is not waited for.
  static pid_t Start(const std::function<void()>& inBody);
  static void ExpectGoodEnd(pid_t inProcess);

  // What Python's plistlib makes of the files, one line for each, in the words of Describe.
  std::string Witness(const std::filesystem::path& inFolder) const;
  // Runs a program of Python's, with `describe` defined; what it prints.
  std::string Python(const std::string& inProgram, const std::string& inArgument) const;

  std::filesystem::path mFolder;
  std::filesystem::path mFile;
};

}  // namespace tembra::test
