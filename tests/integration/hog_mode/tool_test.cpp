// tmbaudio hog.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>

#include "Worker.h"
#include "support/Program.h"

namespace tembra::test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

constexpr char kUID[] = "TMBAudioCln_Plugin";

std::string Prefix() {
  static int sNumber = 0;
  return std::string(getenv("HOME")) + "/tool" + std::to_string(sNumber++);
}

struct Result {
  int status;
  std::string output;
  std::string errors;
};

Result Hog(std::vector<std::string> inArguments) {
  inArguments.insert(inArguments.begin(), "hog");
  Program program("tmbaudio", inArguments, Prefix());
  const int status = program.Wait();
  return {status, program.Output(), program.Errors()};
}

class Tool : public testing::Test {
 protected:
  Tool() { std::filesystem::remove(kHogFile); }
  ~Tool() override { std::filesystem::remove(kHogFile); }

  // A `take` that has the device. It is the master of its user, whom later ones find.
  static std::unique_ptr<Program> Take(std::vector<std::string> inArguments = {}) {
    inArguments.insert(inArguments.begin(), {"hog", "take"});
    auto program = std::make_unique<Program>("tmbaudio", inArguments, Prefix());
    EXPECT_TRUE(WaitUntil([&] {
      return (program->Output() + program->Errors()).find("is held by this process") !=
             std::string::npos;
    })) << program->Output()
        << program->Errors();
    EXPECT_EQ(OwnerInFile(kUID), program->Pid());
    return program;
  }
  static std::string Named(pid_t inProcess) {
    return "held by process " + std::to_string(inProcess) + " (tmbaudio) of user ";
  }
};

TEST_F(Tool, AFreeDeviceIsFree) {
  const Result run = Hog({"status"});
  EXPECT_EQ(run.status, 0) << run.errors;
  EXPECT_EQ(run.output, "free\n");
  EXPECT_EQ(nlohmann::json::parse(Hog({"status", "--json"}).output),
            nlohmann::json({{"device", kUID}, {"held", false}, {"owner", nullptr}}));
  EXPECT_EQ(Hog({"release"}).output, "free\n");
}

TEST_F(Tool, TakeHoldsTheDeviceUntilItIsInterrupted) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    const auto take = Take();
    EXPECT_EQ(take->Output(), "\"Tembra Audio\" is held by this process, " +
                                  std::to_string(take->Pid()) + ", until it is interrupted\n");
    EXPECT_TRUE(take->Running());
    take->Signal(signal);
    EXPECT_EQ(take->Wait(), 0) << take->Errors();
    EXPECT_THAT(take->Errors(), IsEmpty());
    EXPECT_EQ(OwnerInFile(kUID), -1);
  }
}

TEST_F(Tool, WhoHoldsItIsNamed) {
  const auto take = Take({"--device", kUID});
  const Result status = Hog({"status"});
  EXPECT_EQ(status.status, 0) << status.errors;
  EXPECT_THAT(status.output, testing::StartsWith(Named(take->Pid())));
  const nlohmann::json record = nlohmann::json::parse(Hog({"status", "--json"}).output);
  EXPECT_EQ(record["device"], kUID);
  EXPECT_EQ(record["held"], true);
  EXPECT_EQ(record["owner"], take->Pid());
  EXPECT_EQ(record["program"], "tmbaudio");
  EXPECT_THAT(record["user"], testing::Not(""));
  const Result second = Hog({"take"});
  EXPECT_EQ(second.status, 4);
  EXPECT_THAT(second.output, IsEmpty());
  EXPECT_THAT(second.errors, HasSubstr("tmbaudio: \"Tembra Audio\" is " + Named(take->Pid())));
  EXPECT_EQ(OwnerInFile(kUID), take->Pid());
  EXPECT_TRUE(take->Running());
}

TEST_F(Tool, ReleaseEndsTheOneThatHolds) {
  const auto take = Take();
  const Result run = Hog({"release"});
  EXPECT_EQ(run.status, 0) << run.errors;
  EXPECT_EQ(run.output, "released by process " + std::to_string(take->Pid()) + "\n");
  EXPECT_EQ(take->Wait(), 0);
  EXPECT_EQ(OwnerInFile(kUID), -1);
}

TEST_F(Tool, ReleaseLeavesAnotherProgramAlone) {
  Worker master(getuid(), [] { return StartDevice(); });
  Worker program(getuid(), [] { return StartDevice(); });
  ASSERT_EQ(program.Ask('s').isOwner, 1);
  const Result run = Hog({"release"});
  EXPECT_EQ(run.status, 4);
  EXPECT_THAT(run.errors, HasSubstr("process " + std::to_string(program.Pid())));
  EXPECT_THAT(run.errors, HasSubstr("which alone can release it"));
  EXPECT_EQ(program.Ask('o').isOwner, 1);
  EXPECT_EQ(Hog({"take"}).status, 4);
}

TEST_F(Tool, TakeHoldsTheDeviceWhileACommandRuns) {
  const auto take = Take({"--", "sh", "-c", "echo it runs; exec sleep 600"});
  EXPECT_TRUE(WaitUntil([&] { return take->Output() == "it runs\n"; })) << take->Output();
  EXPECT_EQ(OwnerInFile(kUID), take->Pid());
  // The command gets the signal, and with it this ends.
  take->Signal(SIGTERM);
  EXPECT_EQ(take->Wait(), 128 + SIGTERM);
  EXPECT_EQ(OwnerInFile(kUID), -1);
}

TEST_F(Tool, TheCommandsStatusIsPassedOn) {
  EXPECT_EQ(Hog({"take", "--", "true"}).status, 0);
  EXPECT_EQ(Hog({"take", "--", "sh", "-c", "exit 7"}).status, 7);
  EXPECT_EQ(Hog({"take", "--", "sh", "-c", "kill -9 $$"}).status, 128 + SIGKILL);
  EXPECT_EQ(OwnerInFile(kUID), -1);
  const Result missing = Hog({"take", "--", "/nowhere/at/all"});
  EXPECT_EQ(missing.status, 1);
  EXPECT_THAT(missing.errors, HasSubstr("cannot start /nowhere/at/all: No such file"));
  EXPECT_EQ(OwnerInFile(kUID), -1);
}

TEST_F(Tool, TheCommandItselfIsKeptOffTheDevice) {
  const Result run = Hog({"take", "--", TEMBRA_BINARY_DIR "/bin/tmbaudio", "hog", "take"});
  EXPECT_EQ(run.status, 4);
  EXPECT_THAT(run.errors, HasSubstr("(tmbaudio)"));
}

TEST_F(Tool, ADeviceThatWasLostIsToldOf) {
  const auto take = Take();
  Worker rival(getuid(), [] { return StartHogMode(kUID); });
  rival.Ask('f');
  EXPECT_EQ(take->Wait(), 4);
  EXPECT_THAT(take->Errors(),
              HasSubstr("\"Tembra Audio\" was lost to process " + std::to_string(rival.Pid())));
  EXPECT_EQ(OwnerInFile(kUID), rival.Pid()) << "it is not this one's to release";
}

TEST_F(Tool, AClaimThatWasClearedIsToldOf) {
  const auto take = Take();
  Worker master(getuid(), [] { return StartHogMode(kUID); });
  master.Ask('c');
  EXPECT_EQ(take->Wait(), 1);
  EXPECT_THAT(take->Errors(),
              HasSubstr("another program has cleared the claim on \"Tembra Audio\""));
}

TEST_F(Tool, ACommandGoesOnWhenTheDeviceIsLost) {
  const std::string go = std::string(getenv("HOME")) + "/go";
  const auto take =
      Take({"--", "sh", "-c", "while ! [ -e \"$0\" ]; do sleep 0.01; done; echo done", go});
  Worker rival(getuid(), [] { return StartHogMode(kUID); });
  rival.Ask('f');
  EXPECT_TRUE(WaitUntil([&] {
    return take->Errors().find("tmbaudio: the device is no longer held\n") != std::string::npos;
  }));
  EXPECT_TRUE(take->Running());
  Program("/usr/bin/touch", {go}, Prefix()).Wait();
  EXPECT_EQ(take->Wait(), 4);
  EXPECT_EQ(take->Output(), "done\n");
  EXPECT_THAT(take->Errors(), HasSubstr("was lost to process " + std::to_string(rival.Pid())));
}

TEST_F(Tool, AHolderThatWasKilledHoldsNothing) {
  {
    const auto take = Take();
    take->Signal(SIGKILL);
    EXPECT_EQ(take->Wait(), 128 + SIGKILL);
    EXPECT_EQ(OwnerInFile(kUID), take->Pid());
  }
  EXPECT_EQ(Hog({"status"}).output, "free\n");
  EXPECT_EQ(OwnerInFile(kUID), -1);
}

TEST_F(Tool, WrongUseIsToldApart) {
  EXPECT_EQ(Hog({}).status, 2);
  EXPECT_EQ(Hog({"keep"}).status, 2);
  EXPECT_EQ(Hog({"status", "extra"}).status, 2);
  EXPECT_EQ(Hog({"release", "--json"}).status, 2);
  const Result unknown = Hog({"take", "--device", "nothing"});
  EXPECT_EQ(unknown.status, 1);
  EXPECT_THAT(unknown.errors, HasSubstr("no device is called nothing"));
  EXPECT_EQ(Hog({"--help"}).status, 0);
  EXPECT_THAT(Hog({"take", "--help"}).output, HasSubstr("the status is the command's"));
}

}  // namespace
}  // namespace tembra::test
