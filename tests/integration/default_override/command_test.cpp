// The server's half in use, and the command that looks at all of it.

#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "UserFixture.h"
#include "runtime/TMBIPC.h"
#include "support/Program.h"

namespace tembra::test {
namespace {

using testing::HasSubstr;
using testing::Not;
namespace fs = std::filesystem;

constexpr char kPIDFile[] = "/var/run/tmbipc/tmbserverd.0.pid";
constexpr char kProtectionFile[] = "/var/run/tmbipc/tmbserverd.0.sip";
constexpr char kSoundFile[] = "/var/run/tmbipc/tmbserverd.0.snd";

class ServersHalf : public UserFixture {
 protected:
  ServersHalf() {
    if (IsRoot()) {
      fs::create_directories("/var/run/root");
      fs::permissions("/var/run/root", fs::perms(0700));
      setenv("XDG_RUNTIME_DIR", "/var/run/root", 1);
    }
  }
  static void WaitUntilReady(Program& ioServer) {
    EXPECT_TRUE(WaitUntil([&] {
      return ioServer.Errors().find("tmbasrv: ready") != std::string::npos || !ioServer.Running();
    }));
    EXPECT_TRUE(ioServer.Running()) << ioServer.Errors();
  }
};

TEST_F(ServersHalf, OfRootsServerIsStoredAndTakenBack) {
  if (!IsRoot()) GTEST_SKIP() << "needs root";
  Program server("tmbasrv", {}, File("server"));
  WaitUntilReady(server);
  EXPECT_EQ(ReadFile(kPIDFile), std::to_string(server.Pid()));
  EXPECT_EQ(ReadFile(kSoundFile), "1");
  struct stat status;
  ASSERT_EQ(stat("/var/run/tmbipc", &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0777U);
  EXPECT_THAT(server.Errors(), HasSubstr("tmbasrv: sound is allowed: "));
  EXPECT_THAT(server.Errors(), Not(HasSubstr("csrutil"))) << "no complaint of the shell's";
  EXPECT_TRUE(fs::exists(kProtectionFile));
  EXPECT_EQ(ReadFile(kProtectionFile), "") << "nor is it in the file";
  // A program of a user's that starts now is patched.
  RunAsUser([] {
    const AudioObjectID device = DeviceUnderTest();
    WritePreference(kOn);
    EXPECT_EQ(Default(), device);
  });
  // Asked to read its configuration, it goes on.
  server.Signal(SIGUSR2);
  server.Signal(SIGTERM);
  EXPECT_EQ(server.Wait(), 0) << server.Errors();
  EXPECT_FALSE(fs::exists(kPIDFile));
  EXPECT_EQ(ReadFile(kSoundFile), "0");
}

TEST_F(ServersHalf, OfAPrivateServerTouchesNothing) {
  RunAsUser([] {
    Program server("tmbasrv", {"--private"}, File("server"));
    WaitUntilReady(server);
    EXPECT_THAT(server.Errors(), Not(HasSubstr("sound")));
    server.Signal(SIGTERM);
    EXPECT_EQ(server.Wait(), 0);
  });
  if (IsRoot()) {
    Program server("tmbasrv", {"--private"}, File("server"));
    WaitUntilReady(server);
    server.Signal(SIGTERM);
    EXPECT_EQ(server.Wait(), 0);
  }
  EXPECT_FALSE(fs::exists("/var/run/tmbipc"));
}

TEST_F(ServersHalf, OfAUsersServerIsSaidToBeImpossible) {
  RunAsUser([] {
    Program server("tmbasrv", {}, File("server"));
    WaitUntilReady(server);
    EXPECT_THAT(server.Errors(),
                HasSubstr("tmbasrv: not root: cannot tell this machine's programs of this server, "
                          "nor that sound is allowed; programs keep their own default output\n"));
    server.Signal(SIGTERM);
    EXPECT_EQ(server.Wait(), 0) << "that is no failure";
  });
  EXPECT_FALSE(fs::exists("/var/run/tmbipc"));
}

TEST_F(ServersHalf, OfAUsersServerIsNotNeededWhereRootHasAllowedSound) {
  AllowSound();
  RunAsUser([] {
    Program server("tmbasrv", {}, File("server"));
    WaitUntilReady(server);
    EXPECT_THAT(server.Errors(),
                HasSubstr("nor that sound is allowed; root has allowed it before\n"));
    server.Signal(SIGTERM);
    EXPECT_EQ(server.Wait(), 0);
  });
  EXPECT_EQ(ReadFile(kSoundFile), "1");
}

TEST_F(ServersHalf, IsSaidToBeImpossibleWhereTheFilesCannotBeWritten) {
  if (!IsRoot()) GTEST_SKIP() << "needs root";
  fs::create_directories(std::string(kPIDFile) + "/inside");
  fs::create_directories(std::string(kSoundFile) + "/inside");
  Program server("tmbasrv", {}, File("server"));
  WaitUntilReady(server);
  EXPECT_THAT(server.Errors(), HasSubstr("tmbasrv: cannot write below /var/run/tmbipc"));
  server.Signal(SIGTERM);
  EXPECT_EQ(server.Wait(), 0) << "that is no failure";
}

TEST_F(ServersHalf, AllowsSoundAlsoWhereItsIdCannotBeStored) {
  if (!IsRoot()) GTEST_SKIP() << "needs root";
  fs::create_directories(std::string(kPIDFile) + "/inside");
  Program server("tmbasrv", {}, File("server"));
  WaitUntilReady(server);
  EXPECT_THAT(server.Errors(), HasSubstr("tmbasrv: sound is allowed: "));
  EXPECT_THAT(server.Errors(), HasSubstr("; this server's process id cannot be stored"));
  EXPECT_EQ(ReadFile(kSoundFile), "1");
  server.Signal(SIGTERM);
  EXPECT_EQ(server.Wait(), 0);
  EXPECT_EQ(ReadFile(kSoundFile), "0");
}

TEST_F(ServersHalf, OfAKilledServerIsPutRightByTheNext) {
  if (!IsRoot()) GTEST_SKIP() << "needs root";
  std::string dead;
  {
    Program server("tmbasrv", {}, File("server"));
    WaitUntilReady(server);
    dead = std::to_string(server.Pid());
    server.Signal(SIGKILL);
    EXPECT_EQ(server.Wait(), 128 + SIGKILL);
  }
  EXPECT_EQ(ReadFile(kPIDFile), dead);
  EXPECT_EQ(TMBIPC_GetServerPid(), -1) << "its id stands for no server";
  EXPECT_EQ(ReadFile(kSoundFile), "1") << "nobody has taken it back";

  Program server("tmbasrv", {}, File("next"));
  WaitUntilReady(server);
  EXPECT_EQ(TMBIPC_GetServerPid(), server.Pid());
  EXPECT_EQ(ReadFile(kSoundFile), "1");
  server.Signal(SIGTERM);
  EXPECT_EQ(server.Wait(), 0) << server.Errors();
  EXPECT_FALSE(fs::exists(kPIDFile));
  EXPECT_EQ(ReadFile(kSoundFile), "0");
}

TEST_F(ServersHalf, IsTakenBackWhereTheIdIsGone) {
  if (!IsRoot()) GTEST_SKIP() << "needs root";
  Program server("tmbasrv", {}, File("server"));
  WaitUntilReady(server);
  // The folder is open to everyone.
  fs::remove(kPIDFile);
  server.Signal(SIGTERM);
  EXPECT_EQ(server.Wait(), 0);
  EXPECT_FALSE(fs::exists(kPIDFile));
  EXPECT_EQ(ReadFile(kSoundFile), "0");
}

TEST_F(ServersHalf, IsNotTakenBackFromALaterServer) {
  if (!IsRoot()) GTEST_SKIP() << "needs root";
  Program server("tmbasrv", {}, File("server"));
  WaitUntilReady(server);
  // As if another had come: this process lives.
  fs::remove(kPIDFile);
  std::ofstream(kPIDFile) << getpid();
  server.Signal(SIGTERM);
  EXPECT_EQ(server.Wait(), 0);
  EXPECT_EQ(ReadFile(kPIDFile), std::to_string(getpid()));
  EXPECT_EQ(ReadFile(kSoundFile), "1");
}

class DefaultCommand : public UserFixture {
 protected:
  struct Result {
    int mStatus;
    std::string mOutput;
    std::string mErrors;
    nlohmann::json JSON() const { return nlohmann::json::parse(mOutput, nullptr, false); }
  };
  static Result Run(std::vector<std::string> inArguments) {
    inArguments.insert(inArguments.begin(), "default");
    Program command("tmbaudio", inArguments, File("command"));
    const int status = command.Wait();
    return {status, command.Output(), command.Errors()};
  }
};

TEST_F(DefaultCommand, TurnsBothOnAndOff) {
  RunAsUser([] {
    EXPECT_EQ(Run({"on"}).mStatus, 0);
    EXPECT_EQ(Witness(), R"({"isDefaultOutput": true, "isSystemOutput": true})");
    EXPECT_EQ(ReadFile(Preference()).substr(0, 8), "bplist00");
    EXPECT_EQ(Run({"off"}).mStatus, 0);
    EXPECT_EQ(Witness(), R"({"isDefaultOutput": false, "isSystemOutput": false})");
  });
}

TEST_F(DefaultCommand, TurnsOneOnAndKeepsAllElse) {
  RunAsUser([] {
    WritePreference("<dict><key>volume</key><real>0.5</real></dict>");
    EXPECT_EQ(Run({"on", "--which", "output"}).mStatus, 0);
    EXPECT_EQ(Witness(), R"({"isDefaultOutput": true, "volume": 0.5})");
    EXPECT_EQ(Run({"on", "--which", "system"}).mStatus, 0);
    EXPECT_EQ(Witness(), R"({"isDefaultOutput": true, "isSystemOutput": true, "volume": 0.5})");
    EXPECT_EQ(Run({"off", "--which", "output"}).mStatus, 0);
    EXPECT_EQ(Witness(), R"({"isDefaultOutput": false, "isSystemOutput": true, "volume": 0.5})");
  });
}

TEST_F(DefaultCommand, MakesTheFoldersThatAreMissing) {
  RunAsUser([] {
    fs::remove_all(Home() + "/Library");
    EXPECT_EQ(Run({"off"}).mStatus, 0);
    EXPECT_FALSE(fs::exists(Home() + "/Library")) << "off is what a missing file means";
    EXPECT_EQ(Run({"on"}).mStatus, 0);
    EXPECT_EQ(Witness(), R"({"isDefaultOutput": true, "isSystemOutput": true})");
  });
}

TEST_F(DefaultCommand, WhatItTurnsOnIsWhatClientsTake) {
  AllowSound();
  RunAsUser([] {
    ASSERT_EQ(Run({"on", "--which", "output"}).mStatus, 0);
    const AudioObjectID device = DeviceUnderTest();
    EXPECT_EQ(Default(), device);
    EXPECT_EQ(Default('sOut'), OtherDevice());
    ASSERT_EQ(Run({"off"}).mStatus, 0);
    EXPECT_EQ(Default(), OtherDevice());
  });
}

TEST_F(DefaultCommand, StatusSaysWhatIsSoAndWhatFollows) {
  RunAsUser([] {
    Result result = Run({"status"});
    EXPECT_EQ(result.mStatus, 0) << result.mErrors;
    EXPECT_THAT(result.mOutput, HasSubstr("default output         off\n"));
    EXPECT_THAT(result.mOutput, HasSubstr(Preference() + " (missing)"));
    EXPECT_THAT(result.mOutput, HasSubstr("sound allowed          no: no server of root's"));
    WritePreference(kOn);
    result = Run({"status"});
    EXPECT_THAT(result.mOutput, HasSubstr("default output         on\n"));
    EXPECT_THAT(result.mOutput, HasSubstr("default system output  off\n"));
    EXPECT_THAT(result.mOutput, Not(HasSubstr("told   Tembra Audio"))) << "nothing is patched";
  });
  AllowSound();
  RunAsUser([] {
    WritePreference(kOn);
    const Result result = Run({"status"});
    EXPECT_THAT(result.mOutput, HasSubstr("sound allowed          yes: HAL clients that start now "
                                          "take \"Tembra Audio\""));
    EXPECT_THAT(result.mOutput, HasSubstr("this program is told   Tembra Audio\n"));
  });
}

TEST_F(DefaultCommand, StatusIsThereForPrograms) {
  AllowSound();
  RunAsUser([] {
    WritePreference(kOn);
    nlohmann::json json = Run({"status", "--json"}).JSON();
    EXPECT_EQ(json["file"], Preference());
    EXPECT_EQ(json["file_state"], "present");
    EXPECT_EQ(json["output"], true);
    EXPECT_EQ(json["system_output"], false);
    EXPECT_EQ(json["sound_allowed"], true);
    EXPECT_EQ(json["why_not"], "");
    EXPECT_EQ(json["told"], "Tembra Audio");
    WriteRaw("junk");
    json = Run({"status", "--json"}).JSON();
    EXPECT_EQ(json["file_state"], "unreadable");
    EXPECT_EQ(json["output"], false);
    json = Run({"on", "--json"}).JSON();
    EXPECT_EQ(json["file_state"], "present");
    EXPECT_EQ(json["system_output"], true);
  });
}

TEST_F(DefaultCommand, TellsRootThatItsProgramsAreLeftAlone) {
  if (!IsRoot()) GTEST_SKIP() << "needs root";
  AllowSound();
  setenv("XDG_RUNTIME_DIR", "/var/run", 1);
  const nlohmann::json json = Run({"status", "--json"}).JSON();
  EXPECT_EQ(json["sound_allowed"], false);
  EXPECT_EQ(json["why_not"], "programs that root runs are never changed");
}

TEST_F(DefaultCommand, FailuresAndUsage) {
  RunAsUser([] {
    EXPECT_EQ(Run({}).mStatus, 2);
    EXPECT_EQ(Run({"maybe"}).mStatus, 2);
    EXPECT_EQ(Run({"on", "--which", "none"}).mStatus, 2);
    // A folder in the file's place cannot be replaced.
    fs::create_directories(Preference() + "/inside");
    const Result result = Run({"on"});
    EXPECT_EQ(result.mStatus, 1);
    EXPECT_THAT(result.mErrors, HasSubstr("cannot write " + Preference()));
    // What is left beside would be a file of ours.
    EXPECT_EQ(std::distance(fs::directory_iterator(Home() + "/Library/Preferences"), {}), 1);
    fs::remove_all(Preference());
    WritePreference(kOff);
    ASSERT_EQ(chmod(Preference().c_str(), 0400), 0);
    EXPECT_EQ(Run({"on"}).mErrors,
              "tmbaudio: cannot write " + Preference() + ": Permission denied\n");
    EXPECT_EQ(Witness(), R"({"isDefaultOutput": false})");
  });
}

}  // namespace
}  // namespace tembra::test
