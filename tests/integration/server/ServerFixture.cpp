#include "ServerFixture.h"

#include <signal.h>
#include <sndfile.h>
#include <unistd.h>

#include <atomic>

namespace tembra::test {

namespace {

std::atomic<int> sPrograms{0};

std::string NextPrefix(const std::string& inName) {
  return Runtime().File(inName + std::to_string(++sPrograms));
}

}  // namespace

std::vector<float> ReadSound(const std::string& inPath) {
  SF_INFO info = {};
  SNDFILE* file = sf_open(inPath.c_str(), SFM_READ, &info);
  if (file == nullptr) return {};
  std::vector<float> samples(static_cast<size_t>(info.frames * info.channels));
  EXPECT_EQ(sf_readf_float(file, samples.data(), info.frames), info.frames);
  sf_close(file);
  return samples;
}

std::unique_ptr<Program> ServerFixture::StartServer(std::vector<std::string> inArguments) {
  unlink(File("stats.json").c_str());
  inArguments.insert(inArguments.end(),
                     {"--private", "--stats", File("stats.json"), "--json", "--interval", "0.1"});
  auto server = std::make_unique<Program>("tmbasrv", inArguments, NextPrefix("server"));
  const bool ready = WaitUntil([&] {
    return server->Errors().find("tmbasrv: ready") != std::string::npos || !server->Running();
  });
  EXPECT_TRUE(ready && server->Running()) << server->Errors();
  return server;
}

std::unique_ptr<Program> ServerFixture::StartRole(std::vector<std::string> inArguments) {
  inArguments.insert(inArguments.begin(), "--role");
  return std::make_unique<Program>("/proc/self/exe", inArguments, NextPrefix("role"));
}

int ServerFixture::End(Program& ioServer, int inSignal) {
  ioServer.Signal(inSignal);
  return ioServer.Wait(std::chrono::seconds(20));
}

nlohmann::json ServerFixture::Statistics() const {
  return nlohmann::json::parse(ReadFile(File("stats.json")), nullptr, false);
}

bool ServerFixture::WaitForStatistics(
    const std::function<bool(const nlohmann::json&)>& inCondition) const {
  return WaitUntil([&] {
    const nlohmann::json json = Statistics();
    return json.is_object() && inCondition(json);
  });
}

}  // namespace tembra::test
