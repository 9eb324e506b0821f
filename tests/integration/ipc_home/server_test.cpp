// The server's id.

#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "HomeFixture.h"
#include "runtime/TMBIPC.h"
#include "support/Program.h"

namespace tembra::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ServerPid : public HomeFixture {
 protected:
  static int32_t Stored(const std::string& inText) {
    Write(kPIDFile, inText);
    return TMBIPC_GetServerPid();
  }
  // The id of a process that has ended.
  static pid_t Ended() {
    const pid_t child = fork();
    if (child == 0) _exit(0);
    EXPECT_EQ(waitpid(child, nullptr, 0), child);
    return child;
  }
};

TEST_F(ServerPid, IsStoredAsPlainDigitsThatEveryoneReads) {
  umask(077);
  EXPECT_EQ(TMBIPC_SetServerPid(4711), 1);
  EXPECT_EQ(ReadFile(kPIDFile), "4711");
  EXPECT_EQ(ModeOf(kPIDFile), 0664U);
  EXPECT_EQ(ModeOf(kHome), 0777U) << "the home is made along with it";
  EXPECT_TRUE(Exists(kSIPFile));
}

TEST_F(ServerPid, ReplacesALongerOne) {
  EXPECT_EQ(TMBIPC_SetServerPid(1234567), 1);
  EXPECT_EQ(TMBIPC_SetServerPid(42), 1);
  EXPECT_EQ(ReadFile(kPIDFile), "42");
}

TEST_F(ServerPid, IsSetByRootAlone) {
  gProcess.mUser = 1000;
  EXPECT_EQ(TMBIPC_SetServerPid(4711), 0);
  EXPECT_EQ(TMBIPC_SetServerPid(-1), 0);
  EXPECT_FALSE(Exists(kHome));
  EXPECT_THAT(gProcess.mLog, ElementsAre("3 TMBIPC[E]: Server PID must be set by root.",
                                         "3 TMBIPC[E]: Server PID must be set by root."));
}

TEST_F(ServerPid, WithoutAHomeOnlyTheHomesFailureIsTold) {
  ASSERT_EQ(symlink("/nonexistent/folder", kHome), 0);
  EXPECT_EQ(TMBIPC_SetServerPid(4711), 0);
  EXPECT_THAT(gProcess.mLog, ElementsAre("3 TMBIPC[E]: Could not create IPC home."));
}

TEST_F(ServerPid, IsWithdrawnByRemovingTheFile) {
  EXPECT_EQ(TMBIPC_SetServerPid(4711), 1);
  EXPECT_EQ(TMBIPC_SetServerPid(-1), 1);
  EXPECT_FALSE(Exists(kPIDFile));
}

TEST_F(ServerPid, WithdrawingWhatIsNotThereFailsAndMakesNoHome) {
  EXPECT_EQ(TMBIPC_SetServerPid(-1), 0);
  EXPECT_FALSE(Exists(kHome));
  EXPECT_THAT(gProcess.mLog, IsEmpty());
}

TEST_F(ServerPid, IsReadBack) {
  EXPECT_EQ(TMBIPC_SetServerPid(getpid()), 1);
  EXPECT_EQ(TMBIPC_GetServerPid(), getpid());
  EXPECT_EQ(TMBIPC_IsServerStarted(), 1);
}

TEST_F(ServerPid, IsNoneWithoutAHomeAFileOrContent) {
  EXPECT_EQ(TMBIPC_GetServerPid(), -1);
  EXPECT_EQ(TMBIPC_IsServerStarted(), 0);
  MakeHome();
  EXPECT_EQ(TMBIPC_GetServerPid(), -1);
  EXPECT_EQ(Stored(""), -1);
}

TEST_F(ServerPid, OfAnEndedProcessIsNoneAndTheFileStays) {
  MakeHome();
  EXPECT_EQ(Stored(std::to_string(Ended())), -1);
  EXPECT_EQ(TMBIPC_IsServerStarted(), 0);
  EXPECT_TRUE(Exists(kPIDFile));
}

TEST_F(ServerPid, OfAnotherUsersProcessIsThatId) {
  if (!IsReallyRoot()) GTEST_SKIP() << "needs a second user";
  MakeHome();
  const pid_t server = getpid();
  Write(kPIDFile, std::to_string(server));
  EXPECT_EQ(RunAsStranger([server] {
              // Not its to signal, so that the probe is refused.
              if (kill(server, 0) == 0) return 1;
              return TMBIPC_GetServerPid() == server ? 0 : 2;
            }),
            0);
}

TEST_F(ServerPid, ThatIsNoProcessIsNone) {
  MakeHome();
  for (const char* text : {"0", "-1", "-7", "server", " ", "99999999999999999999"}) {
    EXPECT_EQ(Stored(text), -1) << text;
  }
  EXPECT_EQ(Stored("-" + std::to_string(getpgrp())), -1) << "a group is no server";
}

TEST_F(ServerPid, OfFortyDigitsIsItsFirstThirtyOne) {
  MakeHome();
  std::string digits = std::to_string(getpid());
  digits.insert(0, 31 - digits.size(), '0');
  EXPECT_EQ(Stored(digits + "123456789"), getpid());
}

TEST_F(ServerPid, IsReadWholeUpToThirtyOneCharacters) {
  MakeHome();
  std::string digits = std::to_string(getpid());
  digits.insert(0, 30 - digits.size(), '0');
  EXPECT_EQ(Stored(digits), getpid());
  // The 31st still counts; what follows does not.
  digits.insert(0, 1, '0');
  EXPECT_EQ(Stored(digits), getpid());
  EXPECT_EQ(Stored(digits + "0"), getpid());
}

class ApplyConfig : public HomeFixture {};

TEST_F(ApplyConfig, SendsTheServerTheSignalAndAnswersItsId) {
  MakeHome();
  const pid_t server = fork();
  if (server == 0) {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGUSR2);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    Write(kPIDFile, std::to_string(getpid()));
    int signal = 0;
    _exit(sigwait(&signals, &signal) == 0 && signal == SIGUSR2 ? 7 : 1);
  }
  ASSERT_TRUE(WaitUntil([&] { return ReadFile(kPIDFile) == std::to_string(server); }));
  EXPECT_EQ(TMBIPC_ApplyConfig(), server);
  int status = 0;
  ASSERT_EQ(waitpid(server, &status, 0), server);
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 7);
}

TEST_F(ApplyConfig, SignalsNobodyWithoutAServer) {
  // This process would be ended if it or its group were meant.
  EXPECT_EQ(TMBIPC_ApplyConfig(), -1);
  MakeHome();
  for (const std::string& text :
       {std::string("0"), std::string("-1"), std::string(""), "-" + std::to_string(getpgrp())}) {
    Write(kPIDFile, text);
    EXPECT_EQ(TMBIPC_ApplyConfig(), -1) << text;
  }
}

}  // namespace
}  // namespace tembra::test
