#pragma once

#include <CoreAudio/AudioHardware.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>

namespace tembra::test {

// A machine of its own: an empty /var/run, a user who is not root, that user's empty home. Tests
// run in the process that gtest started, as root where the tests do; RunAsUser is a process of the
// user's. Where the tests run as an ordinary user, that one is the user.
//
// Two plug-ins are found: a fake one, whose device is the platform's default output, and the
// plug-in under test.
class UserFixture : public testing::Test {
 protected:
  UserFixture();

  static bool IsRoot();
  // Both run in a child, whose expectations count here; no HAL call is made in this process. The
  // second is the user's.
  static void RunInChild(const std::function<void()>& inBody);
  static void RunAsUser(const std::function<void()>& inBody);
  // What a server of root's leaves in the machine's files.
  static void AllowSound(const std::string& inNumber = "1");

  static std::string Home();
  static std::string Preference();
  // Property lists of the given XML element, any bytes, and what Python's plistlib reads as JSON.
  static void WritePreference(const std::string& inElement);
  static void WriteRaw(const std::string& inBytes);
  static std::string Witness();
  // A file name in a folder that the user may write.
  static std::string File(const std::string& inName);

  // The HAL of the calling process.
  static AudioObjectID DeviceUnderTest();
  static AudioObjectID OtherDevice();
  static AudioObjectID Default(AudioObjectPropertySelector inSelector = 'dOut');
  static OSStatus SetDefault(AudioObjectID inDevice,
                             AudioObjectPropertySelector inSelector = 'dOut');
  // Whether the HAL hands its calls over itself in this build, so that no code is patched.
  static bool IsInterposed();
  // Whether that function of the HAL begins with a jump.
  static bool BeginsWithJump(const char* inFunction);
};

constexpr char kOn[] = "<dict><key>isDefaultOutput</key><true/></dict>";
constexpr char kOff[] = "<dict><key>isDefaultOutput</key><false/></dict>";

}  // namespace tembra::test
