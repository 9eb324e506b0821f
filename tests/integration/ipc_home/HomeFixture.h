#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace tembra::test {

constexpr char kHome[] = "/var/run/tmbipc";
constexpr char kPIDFile[] = "/var/run/tmbipc/tmbserverd.0.pid";
constexpr char kSIPFile[] = "/var/run/tmbipc/tmbserverd.0.sip";
constexpr char kSoundFile[] = "/var/run/tmbipc/tmbserverd.0.snd";
// A user without an account, who is not the one the tests run as.
constexpr uid_t kStranger = 60001;

// What the functions under test see of the process: who it is, and what becomes of its log lines.
struct Process {
  uid_t mUser = 0;
  std::vector<std::string> mLog;  // "PRIORITY text"
  unsigned mGestaltFailsFor = 0;  // a selector
};
extern Process gProcess;

// An empty /var/run, a process that believes itself root's, and the system of version 10.13.6.
// Where the tests run as an ordinary user, what needs root's rights is skipped by name.
class HomeFixture : public testing::Test {
 protected:
  HomeFixture();
  ~HomeFixture() override;

  // What is known of the system is read anew.
  static void StandFor(int32_t inMajor, int32_t inMinor, int32_t inPatch);
  static void MakeHome();
  static bool IsReallyRoot();
  // Runs in a child of another user; answers what it answers (0 to 255).
  static int RunAsStranger(const std::function<int()>& inBody);
  // Puts a csrutil in the command path that prints this.
  void ProvideCsrutil(const std::string& inOutput);

  static void Write(const std::string& inPath, const std::string& inText);
  static mode_t ModeOf(const std::string& inPath);
  static bool Exists(const std::string& inPath);

  // A file outside the home that nothing may change, and whether it is as it was.
  std::string MakeVictim();
  static bool IsVictimUnharmed(const std::string& inPath);

  std::string mFolder;  // the test's own, for what is not in the home

 private:
  const mode_t mOldMask;
  const std::string mOldPath;
};

}  // namespace tembra::test
