// The whole way with real processes: players, the device in each, ports, the server.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <chrono>
#include <cmath>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "support/PrivateRuntime.h"
#include "support/Program.h"
#include "support/tools/RenderedFiles.h"
#include "tools/Comparison.h"
#include "tools/RenderLog.h"
#include "tools/ServerLink.h"

namespace tembra::test {
namespace {

using std::chrono::seconds;
using tools::RenderLog;
using tools::ServerLink;

constexpr std::uint32_t kChannels = 2;
constexpr int kRate = 44100;
// Whole multiples of this add up without rounding.
constexpr float kStep = 1.0F / (1 << 20);

// A sound in which every frame tells where it belongs: its left channel counts in steps of the
// player's own, its right channel holds the player's bit.
void WriteMarkedSound(const std::string& inPath, unsigned inPlayer, unsigned inFrames) {
  std::vector<float> samples;
  samples.reserve(std::size_t{inFrames} * kChannels);
  for (unsigned frame = 0; frame < inFrames; ++frame) {
    samples.push_back(static_cast<float>((frame * (2 * inPlayer + 3)) % 4093 + 1) * kStep);
    samples.push_back(static_cast<float>(1U << inPlayer) * kStep);
  }
  WriteFloatSound(inPath, kRate, kChannels, samples);
}

class EndToEnd : public testing::Test {
 protected:
  Program StartServer(const std::string& inName) {
    Program server(
        "tmbasrv",
        {"--private", "--quiet", "--record", mRuntime.File(inName + ".wav"), "--record-dir",
         mRuntime.File(inName), "--stats", mRuntime.File(inName + ".json"), "--json"},
        mRuntime.File(inName));
    EXPECT_TRUE(WaitUntil(ServerLink::ServerLives)) << server.Errors();
    return server;
  }

  static void EndServer(Program& ioServer) {
    ioServer.Signal(SIGTERM);
    EXPECT_EQ(ioServer.Wait(), 0) << ioServer.Errors();
  }

  // Player n plays sound n and leaves what it rendered.
  Program StartPlayer(unsigned inNumber, unsigned inFrames) {
    const std::string name = "player" + std::to_string(inNumber);
    WriteMarkedSound(mRuntime.File(name + "-sound.wav"), inNumber, inFrames);
    return Program("tmbaudio",
                   {"play", mRuntime.File(name + "-sound.wav"), "--quiet", "--rendered",
                    mRuntime.File(name + ".wav"), "--cycles", mRuntime.File(name + ".csv")},
                   mRuntime.File(name));
  }

  nlohmann::json Statistics(const std::string& inServer) const {
    return nlohmann::json::parse(ReadFile(mRuntime.File(inServer + ".json")));
  }

  // The session in which the client was heard: one that the server's start interrupts before a
  // block came is followed by another.
  static nlohmann::json Client(const nlohmann::json& inStatistics, pid_t inPid) {
    nlohmann::json found;
    for (const nlohmann::json& client : inStatistics["ended"]) {
      if (client["pid"] != inPid) continue;
      if (found.is_null() || client["blocks"].get<int>() > 0) found = client;
    }
    EXPECT_FALSE(found.is_null()) << "no client " << inPid << " in " << inStatistics.dump();
    return found;
  }

  void PlayTogether(unsigned inPlayers, unsigned inFrames);

  PrivateRuntime mRuntime;
};

void EndToEnd::PlayTogether(unsigned inPlayers, unsigned inFrames) {
  Program server = StartServer("server");
  std::vector<Program> players;
  for (unsigned player = 0; player < inPlayers; ++player) {
    players.push_back(StartPlayer(player, inFrames));
  }
  for (Program& player : players) ASSERT_EQ(player.Wait(seconds(60)), 0) << player.Errors();
  EndServer(server);

  const nlohmann::json statistics = Statistics("server");
  std::vector<std::vector<float>> recordings;
  for (unsigned player = 0; player < inPlayers; ++player) {
    const nlohmann::json client = Client(statistics, players[player].Pid());
    ASSERT_TRUE(client["recording"].is_string()) << client.dump();
    const std::vector<float> recording = tools::ReadSound(client["recording"], kChannels);
    const auto log = ReadRenderLog(mRuntime.File("player" + std::to_string(player)), kChannels);
    tools::Comparison comparison;
    tools::CompareRecording(log, recording, comparison);
    EXPECT_TRUE(comparison.equal) << "player " << player << ": " << comparison.difference;
    // Every frame of the sound itself came, in order.
    unsigned frames = 0;
    for (std::size_t at = 0; at + 1 < recording.size(); at += kChannels) {
      if (recording[at + 1] == 0.0F) continue;
      ASSERT_EQ(recording[at], static_cast<float>((frames * (2 * player + 3)) % 4093 + 1) * kStep)
          << "player " << player << ", frame " << frames;
      ++frames;
    }
    EXPECT_EQ(frames, inFrames) << "player " << player;
    recordings.push_back(recording);
  }

  // The right channel of the mix tells which players a frame holds; their frames follow in order.
  for (auto& recording : recordings) {
    std::vector<float> sounding;
    for (std::size_t at = 0; at + 1 < recording.size(); at += kChannels) {
      if (recording[at + 1] != 0.0F) sounding.push_back(recording[at]);
    }
    recording = sounding;
  }
  const std::vector<float> mix = tools::ReadSound(mRuntime.File("server.wav"), kChannels);
  std::vector<std::size_t> next(inPlayers, 0);
  std::size_t together = 0;
  for (std::size_t at = 0; at + 1 < mix.size(); at += kChannels) {
    const auto present = static_cast<unsigned>(std::lround(mix[at + 1] / kStep));
    ASSERT_LT(present, 1U << inPlayers) << "frame " << at / kChannels;
    float sum = 0.0F;
    unsigned voices = 0;
    for (unsigned player = 0; player < inPlayers; ++player) {
      if ((present & 1U << player) == 0) continue;
      ASSERT_LT(next[player], recordings[player].size());
      sum += recordings[player][next[player]++];
      ++voices;
    }
    ASSERT_EQ(mix[at], sum) << "frame " << at / kChannels;
    if (voices > 1) ++together;
  }
  for (unsigned player = 0; player < inPlayers; ++player) {
    EXPECT_EQ(next[player], recordings[player].size()) << "player " << player;
  }
  EXPECT_GT(together, 0U) << "the players never sounded together";
}

TEST_F(EndToEnd, TwoProcessesAreReceivedWholeAndMixedAsTheirSum) {
  PlayTogether(2, 2 * kRate);
}

TEST_F(EndToEnd, SixteenProcessesAreReceivedWholeAndMixedAsTheirSum) {
  PlayTogether(16, 3 * kRate);
}

TEST_F(EndToEnd, HelloProvesThatASoundArrivesBitExact) {
  WriteMarkedSound(mRuntime.File("sound.wav"), 0, kRate);
  Program hello("tmbaudio", {"hello", mRuntime.File("sound.wav"), "--dir", mRuntime.File("hello")},
                mRuntime.File("hello-run"));
  EXPECT_EQ(hello.Wait(), 0) << hello.Output() << hello.Errors();
  EXPECT_NE(hello.Output().find("bit-exact: yes"), std::string::npos) << hello.Output();
  EXPECT_NE(hello.Output().find(" 0 lost"), std::string::npos) << hello.Output();
}

TEST_F(EndToEnd, WithoutAServerASoundPlaysIntoSilenceAtTheRightSpeed) {
  const auto start = std::chrono::steady_clock::now();
  Program player = StartPlayer(0, kRate);
  ASSERT_EQ(player.Wait(), 0) << player.Errors();
  const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
  const auto log = ReadRenderLog(mRuntime.File("player0"), kChannels);
  ASSERT_GE(log.Cycles().size(), kRate / 512U);
  // The device's clock is the host's: the cycles' sample times span what their host times do.
  const auto& first = log.Cycles().front();
  const auto& last = log.Cycles().back();
  const double byClock = (last.sampleTime - first.sampleTime) / kRate;
  const double byHost = static_cast<double>(last.returnTime - first.returnTime) / 1e9;
  EXPECT_NEAR(byClock, byHost, 0.1);
  EXPECT_GE(taken.count(), 0.95);
}

TEST_F(EndToEnd, ASoundIsHeardFromTheMomentAServerStarts) {
  Program player = StartPlayer(0, 5 * kRate);
  // Long enough for the device to spend its attempts and wait for the server's word.
  ASSERT_FALSE(WaitUntil([&] { return !player.Running(); }, std::chrono::milliseconds(1500)));
  Program server = StartServer("server");
  ASSERT_EQ(player.Wait(), 0) << player.Errors();
  EndServer(server);

  const nlohmann::json client = Client(Statistics("server"), player.Pid());
  const std::vector<float> recording = tools::ReadSound(client["recording"], kChannels);
  ASSERT_GT(recording.size(), 512U * kChannels);
  // From its first block on the recording is what was rendered.
  const auto whole = ReadRenderLog(mRuntime.File("player0"), kChannels);
  unsigned heard = 0;
  for (const RenderLog::Cycle& cycle : whole.Cycles()) {
    const float* samples = whole.Samples().data() + cycle.firstSample;
    if (!cycle.silent &&
        std::equal(samples, samples + std::size_t{cycle.frames} * kChannels, recording.begin())) {
      break;
    }
    ++heard;
  }
  ASSERT_LT(heard, whole.Cycles().size()) << "the recording begins with nothing that was rendered";
  EXPECT_GT(heard, 0U);
  tools::Comparison comparison;
  tools::CompareRecording(ReadRenderLog(mRuntime.File("player0"), kChannels, heard), recording,
                          comparison);
  EXPECT_TRUE(comparison.equal) << comparison.difference;
}

TEST_F(EndToEnd, SoundComesBackWhenAKilledServerIsStartedAgain) {
  Program player = StartPlayer(0, 8 * kRate);
  {
    Program first = StartServer("first");
    ASSERT_TRUE(WaitUntil([&] {
      struct stat status;
      const std::string recording =
          mRuntime.File("first/client-" + std::to_string(player.Pid()) + "-1.wav");
      return stat(recording.c_str(), &status) == 0;
    })) << "the first server hears nothing";
    first.Signal(SIGKILL);
    ASSERT_EQ(first.Wait(), 128 + SIGKILL);
  }
  Program second = StartServer("second");
  ASSERT_EQ(player.Wait(), 0) << player.Errors();
  EndServer(second);
  const nlohmann::json client = Client(Statistics("second"), player.Pid());
  EXPECT_GT(client["blocks"].get<int>(), 0);
  EXPECT_EQ(client["rejected"].get<int>(), 0);
}

TEST_F(EndToEnd, ClientsOfAServerThatEndsInOrderAreHeardByTheNextOne) {
  Program player = StartPlayer(0, 6 * kRate);
  {
    Program first = StartServer("first");
    ASSERT_TRUE(WaitUntil([&] {
      struct stat status;
      const std::string recording =
          mRuntime.File("first/client-" + std::to_string(player.Pid()) + "-1.wav");
      return stat(recording.c_str(), &status) == 0;
    })) << "the first server hears nothing";
    EndServer(first);
  }
  Program second = StartServer("second");
  ASSERT_EQ(player.Wait(), 0) << player.Errors();
  EndServer(second);
  EXPECT_GT(Client(Statistics("second"), player.Pid())["blocks"].get<int>(), 0);
}

}  // namespace
}  // namespace tembra::test
