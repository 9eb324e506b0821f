// The home itself, and what the shell stores in it.

#include <dirent.h>
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <filesystem>

#include "HomeFixture.h"
#include "runtime/TMBIPC.h"
#include "support/OtherUser.h"
#include "support/Program.h"

namespace tembra::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
namespace fs = std::filesystem;

class InitRuntime : public HomeFixture {};

TEST_F(InitRuntime, MakesTheHomeOpenToEveryoneWhateverTheUmask) {
  umask(077);
  EXPECT_EQ(TMBIPC_InitRuntime(), 1);
  EXPECT_TRUE(fs::is_directory(kHome));
  EXPECT_EQ(ModeOf(kHome), 0777U);
  EXPECT_THAT(gProcess.mLog, IsEmpty());
}

TEST_F(InitRuntime, IsRootsAlone) {
  gProcess.mUser = 1000;
  EXPECT_EQ(TMBIPC_InitRuntime(), 0);
  EXPECT_FALSE(Exists(kHome));
  EXPECT_THAT(gProcess.mLog, ElementsAre("3 TMBIPC[E]: Runtime must be initialized by root."));
}

TEST_F(InitRuntime, APlainFileInItsPlaceIsReplacedByTheDirectory) {
  Write(kHome, "no directory");
  EXPECT_EQ(TMBIPC_InitRuntime(), 1);
  EXPECT_TRUE(fs::is_directory(kHome));
  EXPECT_EQ(ModeOf(kHome), 0777U);
}

TEST_F(InitRuntime, WhatHasADirectorysBitCountsAsOne) {
  // A socket's type has that bit too.
  const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{AF_UNIX, {}};
  strcpy(address.sun_path, kHome);
  ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  EXPECT_EQ(TMBIPC_InitRuntime(), 1);
  EXPECT_TRUE(fs::is_socket(kHome));
  EXPECT_EQ(ModeOf(kHome), 0777U);
  close(listener);
}

TEST_F(InitRuntime, AnotherUsersDirectoryGetsTheModeAndKeepsItsOwner) {
  if (!IsReallyRoot()) GTEST_SKIP() << "only root gives files away";
  MakeHome();
  ASSERT_EQ(chown(kHome, kStranger, kStranger), 0);
  ASSERT_EQ(chmod(kHome, 0700), 0);
  EXPECT_EQ(TMBIPC_InitRuntime(), 1);
  struct stat status;
  ASSERT_EQ(stat(kHome, &status), 0);
  EXPECT_EQ(status.st_uid, kStranger);
  EXPECT_EQ(status.st_gid, kStranger);
  EXPECT_EQ(status.st_mode & 07777, 0777U);
}

TEST_F(InitRuntime, ANewDirectoryIsRoots) {
  if (!IsReallyRoot()) GTEST_SKIP() << "only root makes files of root's";
  // What a set-group-id folder would hand down is put right.
  ASSERT_EQ(chown("/var/run", 0, kStranger), 0);
  ASSERT_EQ(chmod("/var/run", 02755), 0);
  EXPECT_EQ(TMBIPC_InitRuntime(), 1);
  struct stat status;
  ASSERT_EQ(stat(kHome, &status), 0);
  EXPECT_EQ(status.st_uid, 0U);
  EXPECT_EQ(status.st_gid, 0U);
}

TEST_F(InitRuntime, AHomeThatCannotBeHadIsTold) {
  ASSERT_EQ(symlink("/nonexistent/folder", kHome), 0);
  EXPECT_EQ(TMBIPC_InitRuntime(), 0);
  EXPECT_THAT(gProcess.mLog, ElementsAre("3 TMBIPC[E]: Could not create IPC home."));
}

TEST_F(InitRuntime, AnExistingHomeThatCannotBeOpenedToAllIsTold) {
  MakeHome();
  if (mount("home", kHome, "tmpfs", MS_RDONLY, nullptr) != 0) GTEST_SKIP() << "needs a mount";
  EXPECT_EQ(TMBIPC_InitRuntime(), 0);
  EXPECT_EQ(TMBIPC_SetServerPid(4711), 0);
  EXPECT_EQ(umount(kHome), 0);
  EXPECT_THAT(gProcess.mLog, ElementsAre("3 TMBIPC[E]: Could not create IPC home.",
                                         "3 TMBIPC[E]: Could not create IPC home."));
}

TEST_F(InitRuntime, KeepsTheFilesOfAnExistingHome) {
  MakeHome();
  Write(std::string(kHome) + "/speech.1.ipc", "channel");
  Write(kPIDFile, "1");
  EXPECT_EQ(TMBIPC_InitRuntime(), 1);
  EXPECT_EQ(ReadFile(std::string(kHome) + "/speech.1.ipc"), "channel");
  EXPECT_EQ(ReadFile(kPIDFile), "1");
}

TEST_F(InitRuntime, StoresWhatTheSystemSaysOfItsProtection) {
  ProvideCsrutil("System Integrity Protection status: disabled.\n");
  umask(077);
  EXPECT_EQ(TMBIPC_InitRuntime(), 1);
  EXPECT_EQ(ReadFile(kSIPFile), "System Integrity Protection status: disabled.\n");
  EXPECT_EQ(ModeOf(kSIPFile), 0664U);
  EXPECT_EQ(ModeOf(kHome), 0777U) << "nothing is left of the time the shell ran";
}

TEST_F(InitRuntime, WithoutTheCommandTheFileIsEmptyAndProtectionCountsAsOn) {
  setenv("PATH", mFolder.c_str(), 1);
  EXPECT_EQ(TMBIPC_InitRuntime(), 1);
  EXPECT_TRUE(Exists(kSIPFile));
  EXPECT_EQ(ReadFile(kSIPFile), "");
  EXPECT_EQ(TMBIPC_IsSIPEnabled(), 1);
}

TEST_F(InitRuntime, LetsTheNextReaderLookAnew) {
  EXPECT_EQ(TMBIPC_IsSIPEnabled(), 1);
  ProvideCsrutil("status: disabled");
  EXPECT_EQ(TMBIPC_InitRuntime(), 1);
  EXPECT_EQ(__tmb_ipc_sip_enabled, -1);
  EXPECT_EQ(TMBIPC_IsSIPEnabled(), 0);
}

// What somebody may have put in the place of the file that the shell writes.
class Planted : public HomeFixture, public testing::WithParamInterface<const char*> {
 protected:
  void Plant(const char* inPath, const std::string& inVictim) {
    const std::string kind = GetParam();
    if (kind == "link") {
      ASSERT_EQ(symlink(inVictim.c_str(), inPath), 0);
    } else if (kind == "dangling") {
      ASSERT_EQ(symlink((mFolder + "/new").c_str(), inPath), 0);
    } else if (kind == "second_name") {
      ASSERT_EQ(link(inVictim.c_str(), inPath), 0);
    } else if (kind == "fifo") {
      ASSERT_EQ(mkfifo(inPath, 0666), 0);
    } else if (kind == "directory") {
      ASSERT_EQ(mkdir(inPath, 0777), 0);
    } else {
      ASSERT_EQ(mkdir(inPath, 0777), 0);
      Write(std::string(inPath) + "/inside", "");
    }
  }
  bool NothingHappened(const std::string& inVictim) {
    return IsVictimUnharmed(inVictim) && !Exists(mFolder + "/new");
  }
};

INSTANTIATE_TEST_SUITE_P(Kinds, Planted,
                         testing::Values("link", "dangling", "second_name", "fifo", "directory",
                                         "full_directory"),
                         [](const auto& inInfo) { return std::string(inInfo.param); });

TEST_P(Planted, TheShellWritesToAFileOfItsOwn) {
  ProvideCsrutil("status: disabled");
  MakeHome();
  const std::string victim = MakeVictim();
  Plant(kSIPFile, victim);
  EXPECT_EQ(TMBIPC_InitRuntime(), 1);
  EXPECT_TRUE(NothingHappened(victim));
  if (std::string(GetParam()) == "full_directory") {
    EXPECT_EQ(TMBIPC_IsSIPEnabled(), 1) << "what cannot be put away is no answer";
  } else {
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(kSIPFile)));
    EXPECT_EQ(ReadFile(kSIPFile), "status: disabled");
  }
}

TEST_P(Planted, TheServersIdIsNotWritten) {
  MakeHome();
  const std::string victim = MakeVictim();
  Plant(kPIDFile, victim);
  EXPECT_EQ(TMBIPC_SetServerPid(4711), 0);
  EXPECT_THAT(gProcess.mLog, ElementsAre("3 TMBIPC[E]: Could not store server PID."));
  EXPECT_TRUE(NothingHappened(victim));
}

TEST_P(Planted, TheSoundStatusIsNotWritten) {
  MakeHome();
  const std::string victim = MakeVictim();
  Plant(kSoundFile, victim);
  EXPECT_EQ(TMBIPC_SetSoundAllowed(1), 0);
  EXPECT_THAT(gProcess.mLog, ElementsAre("3 TMBIPC[E]: Could not store sound status."));
  EXPECT_TRUE(NothingHappened(victim));
}

TEST_P(Planted, TheModeOfWhatStandsForTheServersIdIsLeftAlone) {
  MakeHome();
  const std::string victim = MakeVictim();
  Plant(kPIDFile, victim);
  EXPECT_EQ(TMBIPC_SetSoundAllowed(1), 1);
  EXPECT_TRUE(NothingHappened(victim));
}

TEST_P(Planted, ReadersTakeItForAMissingFileAndDoNotWait) {
  MakeHome();
  const std::string number = std::to_string(getpid());
  const std::string victim = mFolder + "/victim";
  Write(victim, number);
  for (const char* path : {kPIDFile, kSIPFile, kSoundFile}) Plant(path, victim);
  EXPECT_EQ(TMBIPC_GetServerPid(), -1);
  EXPECT_EQ(TMBIPC_IsSoundAllowed(), 0);
  EXPECT_EQ(TMBIPC_IsSIPEnabled(), 1);
}

// Puts links in the files' places as fast as it can, until it is killed.
int PlantForever(const std::string& inVictim) {
  for (;;) {
    for (const char* path : {kSIPFile, kPIDFile, kSoundFile}) {
      unlink(path);
      (void)!symlink(inVictim.c_str(), path);
    }
  }
}

TEST_F(InitRuntime, ARaceForTheNamesOfItsFilesHarmsNoOther) {
  if (!IsReallyRoot()) GTEST_SKIP() << "needs a second user";
  constexpr int kRounds = 150;
  ProvideCsrutil("status: disabled");
  MakeHome();
  ASSERT_EQ(chmod(kHome, 0777), 0);
  const std::string victim = MakeVictim();
  // The stranger must be able to name it.
  ASSERT_EQ(chmod(mFolder.c_str(), 0755), 0);

  const pid_t planter = fork();
  if (planter == 0) {
    if (!BecomeUser(kStranger)) _exit(1);
    PlantForever(victim);
  }
  ASSERT_TRUE(WaitUntil([] { return fs::is_symlink(fs::symlink_status(kSoundFile)); }));
  for (int round = 0; round < kRounds; ++round) {
    EXPECT_EQ(TMBIPC_InitRuntime(), 1);
    TMBIPC_SetServerPid(4711);
    TMBIPC_SetSoundAllowed(1);
  }
  kill(planter, SIGKILL);
  waitpid(planter, nullptr, 0);
  EXPECT_TRUE(IsVictimUnharmed(victim)) << ReadFile(victim);
}

}  // namespace
}  // namespace tembra::test
