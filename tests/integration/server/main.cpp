#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "FakeClient.h"
#include "ServerFixture.h"
#include "client/TMBAudioServer.h"
#include "support/PrivateMounts.h"

namespace tembra::test {

namespace {

PrivateRuntime* sRuntime = nullptr;

void WaitForever() {
  for (;;) pause();
}

// Says on standard output how far it has come; the test reads that.
void Say(const char* inText) {
  std::printf("%s\n", inText);
  std::fflush(stdout);
}

// stream BLOCKS VALUE: connects, sends so many blocks of that value, says good-bye.
int Stream(int inBlocks, float inValue) {
  FakeClient client;
  if (!client.Connect()) return 3;
  const std::vector<float> samples(1024, inValue);
  for (int block = 0; block < inBlocks; ++block) {
    if (!WaitUntil([&] { return client.SendBlock(512.0 * block, samples); })) return 4;
  }
  client.SendDispose();
  return 0;
}

// connect: connects and stays.
int Connect() {
  FakeClient client;
  if (!client.Connect()) return 3;
  Say("connected");
  WaitForever();
  return 0;
}

// intrude PID: speaks on the data port of another process.
int Intrude(pid_t inOwner) {
  FakeClient client;
  if (!client.OpenData(inOwner)) return 3;
  client.SendBlock(0.0, std::vector<float>(1024, 1.0f));
  return WaitUntil([&] { return !client.IsDataOpen(); }) ? 0 : 4;
}

}  // namespace

PrivateRuntime& Runtime() {
  return *sRuntime;
}

int RunRole(int argc, char** argv) {
  const std::string role = argv[2];
  if (role == "stream" && argc == 5)
    return Stream(std::atoi(argv[3]), std::strtof(argv[4], nullptr));
  if (role == "connect") return Connect();
  if (role == "intrude" && argc == 4) return Intrude(std::atoi(argv[3]));
  return 2;
}

}  // namespace tembra::test

int main(int argc, char** argv) {
  if (argc > 2 && std::string(argv[1]) == "--role") return tembra::test::RunRole(argc, argv);
  testing::InitGoogleTest(&argc, argv);
  tembra::test::PrivateRuntime runtime;
  tembra::test::sRuntime = &runtime;
  testing::AddGlobalTestEnvironment(new tembra::test::PrivateMounts);
  return RUN_ALL_TESTS();
}
