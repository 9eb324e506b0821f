#include "Playing.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <vector>

#include "Hostile.h"
#include "support/Sanitizers.h"
#include "support/tools/RenderedFiles.h"
#include "tools/Comparison.h"
#include "tools/RenderLog.h"

namespace tembra::test {
namespace {

using tools::RenderLog;

constexpr std::uint32_t kChannels = 2;
constexpr int kRate = 44100;
// The player sounds longer than any attack lasts, on a busy machine and in a slow build too.
constexpr unsigned kSeconds = kSanitized ? 15 : 10;
constexpr unsigned kFrames = kSeconds * kRate;

// Every frame differs from its neighbours, so that none can go, come or move unseen.
void WriteSound(const std::string& inPath) {
  std::vector<float> samples;
  for (unsigned frame = 0; frame < kFrames; ++frame) {
    samples.push_back(static_cast<float>(frame % 8191 + 1) / (1 << 20));
    samples.push_back(static_cast<float>(frame % 4093 + 1) / (1 << 20));
  }
  WriteFloatSound(inPath, kRate, kChannels, samples);
}

std::string NextName() {
  static std::atomic<int> sCount{0};
  return "pair" + std::to_string(++sCount);
}

}  // namespace

Playing::Playing() : mName(NextName()) {
  mServer = std::make_unique<Program>(
      "tmbasrv",
      std::vector<std::string>{"--private", "--record-dir", Runtime().File(mName), "--stats",
                               Runtime().File(mName + ".json"), "--json", "--interval", "0.1",
                               // Silence between a hostile client's blocks need not fill the disk.
                               "--max-gap", "0.5"},
      Runtime().File(mName + "-server"));
  EXPECT_TRUE(WaitUntil([&] {
    return mServer->Errors().find("tmbasrv: ready") != std::string::npos || !mServer->Running();
  }));
  EXPECT_TRUE(mServer->Running()) << mServer->Errors();
}

void Playing::StartPlayer() {
  WriteSound(Runtime().File(mName + "-sound.wav"));
  const std::string rendered = Runtime().File(mName + "-rendered");
  mPlayer = std::make_unique<Program>(
      "tmbaudio",
      std::vector<std::string>{"play", Runtime().File(mName + "-sound.wav"), "--quiet",
                               "--rendered", rendered + ".wav", "--cycles", rendered + ".csv"},
      Runtime().File(mName + "-player"));
  EXPECT_TRUE(WaitForStatistics([&](const nlohmann::json& inStatistics) {
    const nlohmann::json client = FindClient(inStatistics, mPlayer->Pid());
    return client.is_object() && client["blocks"] > 0;
  })) << mPlayer->Errors();
}

void Playing::ExpectUndisturbed() {
  EXPECT_EQ(mPlayer->Wait(std::chrono::seconds(150)), 0) << mPlayer->Errors();
  ASSERT_TRUE(mServer->Running()) << mServer->Errors();
  mServer->Signal(SIGTERM);
  ASSERT_EQ(mServer->Wait(std::chrono::seconds(60)), 0) << mServer->Errors();

  const nlohmann::json statistics = Statistics();
  const nlohmann::json client = FindClient(statistics, mPlayer->Pid());
  ASSERT_TRUE(client.is_object()) << statistics.dump();
  ASSERT_TRUE(client["recording"].is_string()) << client.dump();
  const std::vector<float> recording = tools::ReadSound(client["recording"], kChannels);
  const RenderLog log = ReadRenderLog(Runtime().File(mName + "-rendered"), kChannels);
  tools::Comparison comparison;
  tools::CompareRecording(log, recording, comparison);
  EXPECT_TRUE(comparison.equal) << comparison.difference << client.dump();
  std::size_t sounding = 0;
  for (std::size_t at = 0; at < recording.size(); at += kChannels) sounding += recording[at] != 0;
  EXPECT_EQ(sounding, kFrames);
  EXPECT_EQ(client["lost"], 0);
  std::printf("blocks of the undisturbed came %s ns late\n", client["delay_ns"].dump().c_str());
}

nlohmann::json Playing::Statistics() const {
  return nlohmann::json::parse(ReadFile(Runtime().File(mName + ".json")), nullptr, false);
}

bool Playing::WaitForStatistics(
    const std::function<bool(const nlohmann::json&)>& inCondition) const {
  return WaitUntil([&] {
    const nlohmann::json statistics = Statistics();
    return statistics.is_object() && inCondition(statistics);
  });
}

nlohmann::json Playing::FindClient(const nlohmann::json& inStatistics, pid_t inProcess) {
  for (const char* list : {"clients", "ended"}) {
    for (const nlohmann::json& client : inStatistics[list]) {
      if (client["pid"] == inProcess) return client;
    }
  }
  return nullptr;
}

Footprint::Footprint(pid_t inProcess)
    : mProcess(inProcess), mDescriptors(CountDescriptors(inProcess)) {
  EXPECT_GT(mDescriptors, 0);
  // Timers and files come and go; what counts is what is there at rest.
  WaitUntil(
      [this] {
        mDescriptors = std::min(mDescriptors, CountDescriptors(mProcess));
        return false;
      },
      std::chrono::milliseconds(600));
  mResident = ResidentKilobytes(inProcess);
  EXPECT_GT(mResident, 0);
}

void Footprint::ExpectSame() const {
  EXPECT_TRUE(WaitUntil([&] { return CountDescriptors(mProcess) <= mDescriptors; }))
      << mDescriptors << " descriptors before, " << CountDescriptors(mProcess) << " after";
  const long grown = ResidentKilobytes(mProcess) - mResident;
  std::printf("process %d: %d descriptors, memory %+ld KiB of %ld\n", mProcess, mDescriptors, grown,
              mResident);
  if (kMemoryIsMeasured) EXPECT_LT(grown, kAllowedGrowth);
}

}  // namespace tembra::test
