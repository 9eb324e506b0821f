#pragma once

#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "support/Program.h"

namespace tembra::test {

// A server, and a well-behaved client that plays a sound to it while others misbehave.
//
// Thread: the test's. Ownership: both processes end with the object.
// Failure: told to the test.
class Playing {
 public:
  Playing();

  // Starts the client; returns when the server hears it.
  void StartPlayer();
  // The player ended well and the server recorded exactly what it rendered. Call it once, after
  // the flood: it also ends the server, in order, so that its statistics are final.
  void ExpectUndisturbed();

  Program& Server() { return *mServer; }
  Program& Player() { return *mPlayer; }
  // The server's statistics as they stand, or null.
  nlohmann::json Statistics() const;
  bool WaitForStatistics(const std::function<bool(const nlohmann::json&)>& inCondition) const;
  // A client in the statistics, there or gone, or null.
  static nlohmann::json FindClient(const nlohmann::json& inStatistics, pid_t inProcess);

 private:
  const std::string mName;  // of the files of this pair
  std::unique_ptr<Program> mServer;
  std::unique_ptr<Program> mPlayer;
};

// Watches one process: what it holds before a flood it holds after it.
class Footprint {
 public:
  explicit Footprint(pid_t inProcess);
  void ExpectSame() const;

 private:
  pid_t mProcess;
  int mDescriptors;
  long mResident = 0;
};

}  // namespace tembra::test
