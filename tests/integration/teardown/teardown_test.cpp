// The end of the plug-in, in the master process and in another, in each state that it can be in.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "support/Program.h"
#include "tools/ServerLink.h"

namespace tembra::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;

constexpr char kProgram[] = TEMBRA_BINARY_DIR "/tests/integration_teardown";

struct State {
  bool mIsMaster;
  const char* mWhen;
};

std::vector<State> AllStates() {
  std::vector<State> states;
  for (const bool isMaster : {true, false}) {
    for (const char* when : {"idle", "sounding", "pending", "inside", "owning"}) {
      states.push_back({isMaster, when});
    }
  }
  return states;
}

std::string NameOf(const testing::TestParamInfo<State>& inInfo) {
  return std::string(inInfo.param.mIsMaster ? "Master" : "Other") + "_" + inInfo.param.mWhen;
}

class TakeDown : public testing::TestWithParam<State> {
 protected:
  TakeDown() {
    fs::create_directories(mFolder);
    if (!GetParam().mIsMaster) {
      // Whoever comes first is the master.
      mMaster = std::make_unique<Program>(Start({"hold"}, "master"));
      EXPECT_TRUE(WaitUntil([this] { return mMaster->Output() == "ready\n"; }))
          << mMaster->Errors();
    }
    if (std::string(GetParam().mWhen) == "sounding") StartServer();
  }
  ~TakeDown() override {
    std::error_code ignored;
    fs::remove_all("/Library/Preferences", ignored);
  }

  static std::string Path(const std::string& inName) {
    return std::string(getenv("HOME")) + "/" + inName;
  }

  static Program Start(std::vector<std::string> inRole, const char* inName) {
    inRole.insert(inRole.begin(), "--role");
    return Program(kProgram, inRole, Path(inName));
  }
  void StartServer() {
    mServer = std::make_unique<Program>(
        "tmbasrv",
        std::vector<std::string>{"--private", "--quiet", "--stats", Path("stats.json"), "--json"},
        Path("server"));
    EXPECT_TRUE(WaitUntil(tools::ServerLink::ServerLives)) << mServer->Errors();
  }
  // Sees the process under test to its end.
  void Await(Program& ioProgram) {
    EXPECT_EQ(ioProgram.Wait(), 0) << ioProgram.Output() << ioProgram.Errors();
    mPid = ioProgram.Pid();
    EXPECT_THAT(ioProgram.Output(), Not(HasSubstr("FAIL")));
    EXPECT_THAT(ioProgram.Output(), HasSubstr(mMasterLine));
  }
  void RunRole(const std::vector<std::string>& inRole) {
    Program program = Start(inRole, "role");
    Await(program);
  }

  void ExpectSettings(bool inAreThere) const {
    ASSERT_EQ(fs::exists(mFile), inAreThere);
    EXPECT_EQ(std::distance(fs::directory_iterator(mFolder), {}), inAreThere ? 1 : 0);
    if (!inAreThere) return;
    const std::string script = Path("settings.py");
    std::ofstream(script) << "import plistlib\n"
                             "d = plistlib.load(open('"
                          << mFile.string()
                          << "', 'rb'))['com.apple.audio.CoreAudio.DeviceSettings."
                             "TMBAudioCln_Plugin']\n"
                             "print(len(d), d[\"device 'volm' control on output channel 1\"],"
                             "d['physical format for output stream 0']['sample rate'])\n";
    Program python("/usr/bin/python3", {script}, Path("settings"));
    EXPECT_EQ(python.Wait(), 0) << python.Errors();
    // 18 controls and two formats.
    EXPECT_EQ(python.Output(), "20 0.25 44100.0\n");
  }

  // The server ends; what it says of those clients that were the process under test.
  std::vector<nlohmann::json> EndServer() {
    mServer->Signal(SIGTERM);
    EXPECT_EQ(mServer->Wait(), 0) << mServer->Errors();
    const nlohmann::json statistics = nlohmann::json::parse(ReadFile(Path("stats.json")));
    std::vector<nlohmann::json> clients;
    for (const nlohmann::json& client : statistics["ended"]) {
      if (client["pid"] == mPid) clients.push_back(client);
    }
    return clients;
  }
  // The server has heard audio and a farewell from each run of the process.
  void ExpectFarewells(size_t inRuns) {
    if (mServer == nullptr) return;
    const std::vector<nlohmann::json> clients = EndServer();
    EXPECT_EQ(clients.size(), inRuns);
    for (const nlohmann::json& client : clients) {
      EXPECT_EQ(client["state"], "ended") << client.dump();
      EXPECT_GT(client["blocks"], 0) << client.dump();
    }
  }
  // Others may own the device now, and need not find out first that the owner is gone.
  static void ExpectNoOwner() {
    const std::string owners = ReadFile("/tmp/com.apple.audio.hogmode.plist");
    EXPECT_THAT(owners, HasSubstr("<plist"));
    EXPECT_THAT(owners, Not(HasSubstr("HogMode.Owner-")));
  }

  const fs::path mFolder = "/Library/Preferences/Audio";
  const fs::path mFile = mFolder / "com.apple.audio.DeviceSettings.plist";
  const std::string mMasterLine = GetParam().mIsMaster ? "master 1\n" : "master 0\n";
  std::unique_ptr<Program> mMaster;  // where it is another process
  std::unique_ptr<Program> mServer;
  pid_t mPid = 0;
};

INSTANTIATE_TEST_SUITE_P(States, TakeDown, testing::ValuesIn(AllStates()), NameOf);

// Unloaded while the process goes on: the full way, in the master and elsewhere.
TEST_P(TakeDown, ByUnloading) {
  RunRole({"unload", GetParam().mWhen, "4"});
  ExpectSettings(GetParam().mIsMaster);
  ExpectFarewells(4);
  ExpectNoOwner();
}

// At the end of the process: the full way in the master, the short one elsewhere.
TEST_P(TakeDown, ByExit) {
  RunRole({"exit", GetParam().mWhen});
  ExpectSettings(GetParam().mIsMaster);
  ExpectFarewells(1);
  ExpectNoOwner();
}

class TakeDownFromWithin : public TakeDown {};

INSTANTIATE_TEST_SUITE_P(States, TakeDownFromWithin,
                         testing::Values(State{true, "within"}, State{false, "within"}), NameOf);

// On the I/O thread, from a client's procedure.
TEST_P(TakeDownFromWithin, ByExit) {
  RunRole({"exit", "within"});
  ExpectSettings(GetParam().mIsMaster);
}

// While notifications come in from another process without a pause.
TEST_P(TakeDown, UnderAStormOfNotifications) {
  Program program = Start({"unload", GetParam().mWhen, "8"}, "role");
  // The other one comes second, so that it is not the master.
  ASSERT_TRUE(WaitUntil([&] { return program.Output().find(mMasterLine) == 0; }))
      << program.Errors();
  Program disturber = Start({"disturb"}, "disturber");
  Await(program);
  EXPECT_TRUE(disturber.Running()) << disturber.Errors();
}

// A server that comes when the retries of a device are cut short.
class TakeDownBeforeTheServer : public TakeDown {
 protected:
  std::vector<nlohmann::json> GetClients(const std::vector<std::string>& inRole) {
    Program program = Start(inRole, "role");
    EXPECT_TRUE(WaitUntil([&] { return program.Output().ends_with("ready\n"); }))
        << program.Output();
    StartServer();
    EXPECT_EQ(program.Wait(), 0) << program.Output() << program.Errors();
    mPid = program.Pid();
    return EndServer();
  }
};

INSTANTIATE_TEST_SUITE_P(States, TakeDownBeforeTheServer,
                         testing::Values(State{true, "pending"}, State{false, "pending"}), NameOf);

TEST_P(TakeDownBeforeTheServer, ItHearsNothing) {
  EXPECT_EQ(GetClients({"outlive"}).size(), 0u);
}

TEST_P(TakeDownBeforeTheServer, ItWouldHearOfADeviceThatStays) {
  EXPECT_EQ(GetClients({"outlive", "stays"}).size(), 1u);
}

}  // namespace
}  // namespace tembra::test
