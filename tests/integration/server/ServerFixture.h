#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "support/PrivateRuntime.h"
#include "support/Program.h"

namespace tembra::test {

// The runtime directory of this process; made by main before anything else.
PrivateRuntime& Runtime();

// A sound file whole, interleaved; empty if it cannot be read.
std::vector<float> ReadSound(const std::string& inPath);

// Starts servers with statistics in a file, and ends those still running.
class ServerFixture : public testing::Test {
 protected:
  // Returns when clients can come.
  std::unique_ptr<Program> StartServer(std::vector<std::string> inArguments = {});
  // This executable in another role, see main.cpp.
  std::unique_ptr<Program> StartRole(std::vector<std::string> inArguments);
  // Ends the server and answers its exit status.
  int End(Program& ioServer, int inSignal = SIGTERM);

  std::string File(const std::string& inName) const { return Runtime().File(inName); }
  // The statistics as they stand now, or null.
  nlohmann::json Statistics() const;
  // Waits until the condition holds for the statistics.
  bool WaitForStatistics(const std::function<bool(const nlohmann::json&)>& inCondition) const;
};

}  // namespace tembra::test
