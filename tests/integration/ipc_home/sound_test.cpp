// Whether sound is allowed, on both sides of the file, and what the system's protection has to do
// with it.

#include <unistd.h>

#include "HomeFixture.h"
#include "runtime/TMBIPC.h"
#include "runtime/TMBOS.h"
#include "support/Program.h"

namespace tembra::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kDisabled[] = "System Integrity Protection status: disabled.\n";
constexpr char kEnabled[] = "System Integrity Protection status: enabled.\n";

class Protection : public HomeFixture {
 protected:
  static int32_t Stored(const std::string& inText) {
    Write(kSIPFile, inText);
    __tmb_ipc_sip_enabled = -1;
    return TMBIPC_IsSIPEnabled();
  }
};

TEST_F(Protection, IsOnUnlessTheFileSaysOtherwise) {
  EXPECT_EQ(TMBIPC_IsSIPEnabled(), 1);
  MakeHome();
  EXPECT_EQ(Stored(""), 1);
  EXPECT_EQ(Stored(kEnabled), 1);
  EXPECT_EQ(Stored("status:disabled"), 1);
  EXPECT_EQ(Stored(kDisabled), 0);
  EXPECT_EQ(Stored("some text before status: disabled and behind"), 0);
}

TEST_F(Protection, IsReadFromTheFirst255Bytes) {
  MakeHome();
  const std::string disabled = "status: disabled";
  EXPECT_EQ(Stored(std::string(255 - disabled.size(), 'x') + disabled + "more"), 0);
  EXPECT_EQ(Stored(std::string(256 - disabled.size(), 'x') + disabled), 1);
  EXPECT_EQ(Stored(std::string(256, 'x') + disabled), 1);
}

TEST_F(Protection, IsReadOnce) {
  EXPECT_EQ(TMBIPC_IsSIPEnabled(), 1);
  EXPECT_EQ(__tmb_ipc_sip_enabled, 1) << "also where there was no file";
  MakeHome();
  Write(kSIPFile, kDisabled);
  EXPECT_EQ(TMBIPC_IsSIPEnabled(), 1);
  __tmb_ipc_sip_enabled = -1;
  EXPECT_EQ(TMBIPC_IsSIPEnabled(), 0);
  Write(kSIPFile, kEnabled);
  EXPECT_EQ(TMBIPC_IsSIPEnabled(), 0);
}

TEST_F(Protection, AnyPositiveNumberKeptMeansOn) {
  __tmb_ipc_sip_enabled = 5;
  EXPECT_EQ(TMBIPC_IsSIPEnabled(), 1);
}

class SetSoundAllowed : public HomeFixture {};

TEST_F(SetSoundAllowed, StoresOneDigit) {
  MakeHome();
  EXPECT_EQ(TMBIPC_SetSoundAllowed(1), 1);
  EXPECT_EQ(ReadFile(kSoundFile), "1");
  EXPECT_EQ(TMBIPC_SetSoundAllowed(0), 0);
  EXPECT_EQ(ReadFile(kSoundFile), "0");
  EXPECT_EQ(TMBIPC_SetSoundAllowed(-3), 1) << "anything but zero";
  EXPECT_EQ(ReadFile(kSoundFile), "1");
}

TEST_F(SetSoundAllowed, IsRootsAlone) {
  MakeHome();
  gProcess.mUser = 1000;
  EXPECT_EQ(TMBIPC_SetSoundAllowed(1), 0);
  EXPECT_FALSE(Exists(kSoundFile));
  EXPECT_THAT(gProcess.mLog, ElementsAre("3 TMBIPC[E]: Sound status must be set by root."));
}

TEST_F(SetSoundAllowed, NeedsTheHomeAndMakesNone) {
  EXPECT_EQ(TMBIPC_SetSoundAllowed(1), 0);
  EXPECT_FALSE(Exists(kHome));
  EXPECT_THAT(gProcess.mLog, ElementsAre("3 TMBIPC[E]: Could not store sound status."));
}

TEST_F(SetSoundAllowed, LeavesItsModeToTheUmaskAndSetsTheOtherFiles) {
  MakeHome();
  Write(kPIDFile, "1");
  ASSERT_EQ(chmod(kPIDFile, 0600), 0);
  umask(027);
  EXPECT_EQ(TMBIPC_SetSoundAllowed(1), 1);
  EXPECT_EQ(ModeOf(kSoundFile), 0640U);
  EXPECT_EQ(ModeOf(kPIDFile), 0664U);
  ASSERT_EQ(unlink(kPIDFile), 0);
  EXPECT_EQ(TMBIPC_SetSoundAllowed(1), 1) << "a missing one is no failure";
  EXPECT_FALSE(Exists(kPIDFile));
}

TEST_F(SetSoundAllowed, DoesNotCareForProtectionBelowTheGate) {
  MakeHome();
  Write(kSIPFile, kEnabled);
  StandFor(10, 13, 6);
  EXPECT_EQ(TMBIPC_SetSoundAllowed(1), 1);
  StandFor(9, 99, 0);
  EXPECT_EQ(TMBIPC_SetSoundAllowed(1), 1);
  EXPECT_EQ(__tmb_ipc_sip_enabled, -1) << "not even asked";
}

TEST_F(SetSoundAllowed, AtTheGateNeedsProtectionOff) {
  MakeHome();
  StandFor(10, 14, 6);
  EXPECT_EQ(TMBIPC_SetSoundAllowed(1), 0);
  EXPECT_EQ(ReadFile(kSoundFile), "0");
  Write(kSIPFile, kEnabled);
  StandFor(10, 14, 0);
  EXPECT_EQ(TMBIPC_SetSoundAllowed(1), 0);
  EXPECT_EQ(ReadFile(kSoundFile), "0");
  Write(kSIPFile, kDisabled);
  StandFor(10, 14, 0);
  EXPECT_EQ(TMBIPC_SetSoundAllowed(1), 1);
  EXPECT_EQ(ReadFile(kSoundFile), "1");
  EXPECT_EQ(TMBIPC_SetSoundAllowed(0), 0);
}

TEST_F(SetSoundAllowed, AboveTheGateStoresZero) {
  MakeHome();
  Write(kSIPFile, kDisabled);
  for (const int32_t minor : {15, 16}) {
    StandFor(10, minor, 0);
    EXPECT_EQ(TMBIPC_SetSoundAllowed(1), 0);
    EXPECT_EQ(ReadFile(kSoundFile), "0");
  }
  StandFor(11, 0, 0);
  EXPECT_EQ(TMBIPC_SetSoundAllowed(1), 0);
  EXPECT_EQ(ReadFile(kSoundFile), "0");
}

TEST_F(SetSoundAllowed, ASystemThatDoesNotTellItsVersionGetsNone) {
  MakeHome();
  for (const unsigned selector : {'sys1', 'sys2', 'sys3'}) {
    gProcess.mGestaltFailsFor = selector;
    StandFor(10, 13, 6);
    EXPECT_EQ(TMBIPC_SetSoundAllowed(1), 0);
    EXPECT_EQ(ReadFile(kSoundFile), "0");
  }
}

class IsSoundAllowed : public HomeFixture {
 protected:
  static int32_t Stored(const std::string& inText) {
    Write(kSoundFile, inText);
    return TMBIPC_IsSoundAllowed();
  }
};

TEST_F(IsSoundAllowed, NotWithoutAHomeAFileOrContent) {
  EXPECT_EQ(TMBIPC_IsSoundAllowed(), 0);
  MakeHome();
  EXPECT_EQ(TMBIPC_IsSoundAllowed(), 0);
  EXPECT_EQ(Stored(""), 0);
  EXPECT_EQ(Stored("yes"), 0);
  EXPECT_THAT(gProcess.mLog, IsEmpty());
}

TEST_F(IsSoundAllowed, AnswersTheNumberAsItIsAndReadsItEachTime) {
  MakeHome();
  EXPECT_EQ(Stored("1"), 1);
  EXPECT_EQ(Stored("0"), 0);
  EXPECT_EQ(Stored("7"), 7);
  EXPECT_EQ(Stored("-2"), -2);
  EXPECT_EQ(Stored(std::string(30, '0') + "9" + "5"), 9) << "31 characters are read";
}

TEST_F(IsSoundAllowed, BelowTheGateWhateverTheProtection) {
  MakeHome();
  for (const char* protection : {kEnabled, kDisabled}) {
    Write(kSIPFile, protection);
    StandFor(10, 13, 6);
    EXPECT_EQ(Stored("1"), 1);
  }
}

TEST_F(IsSoundAllowed, AtTheGateOnlyWithProtectionOff) {
  MakeHome();
  StandFor(10, 14, 6);
  EXPECT_EQ(Stored("1"), 0) << "no file says that it is off";
  Write(kSIPFile, kEnabled);
  StandFor(10, 14, 6);
  EXPECT_EQ(Stored("1"), 0);
  Write(kSIPFile, kDisabled);
  StandFor(10, 14, 6);
  EXPECT_EQ(Stored("1"), 1);
  EXPECT_EQ(Stored("7"), 7);
}

TEST_F(IsSoundAllowed, NeverAboveTheGateWhateverTheFileSays) {
  MakeHome();
  Write(kSIPFile, kDisabled);
  StandFor(10, 15, 0);
  EXPECT_EQ(Stored("1"), 0);
  StandFor(11, 0, 0);
  EXPECT_EQ(Stored("1"), 0);
  EXPECT_EQ(__tmb_ipc_sip_enabled, -1);
}

TEST_F(IsSoundAllowed, NotOnASystemThatDoesNotTellItsVersion) {
  MakeHome();
  for (const unsigned selector : {'sys1', 'sys2', 'sys3'}) {
    gProcess.mGestaltFailsFor = selector;
    StandFor(10, 13, 6);
    EXPECT_EQ(Stored("1"), 0);
  }
}

}  // namespace
}  // namespace tembra::test
