#include "tools/ServerProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "tools/Exit.h"
#include "tools/ServerLink.h"

namespace tembra::tools {

namespace {

constexpr double kStartSeconds = 10;
constexpr double kFinishSeconds = 10;
constexpr int kStillRuns = -1;

// The server stands beside this program, in a build tree as in an installation.
std::string ServerPath() {
  std::error_code error;
  const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", error);
  const std::filesystem::path beside = self.parent_path() / "tmbasrv";
  return std::filesystem::exists(beside, error) ? beside.string() : "tmbasrv";
}

std::string Contents(const std::string& inPath) {
  std::ifstream file(inPath);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

}  // namespace

ServerProcess::ServerProcess(const std::string& inDirectory,
                             const std::vector<std::string>& inArguments)
    : mErrors(inDirectory + "/server.err") {
  const std::string runtime = inDirectory + "/runtime";
  if (mkdir(runtime.c_str(), 0700) != 0) throw Failure("cannot make the directory " + runtime);
  setenv("XDG_RUNTIME_DIR", runtime.c_str(), 1);

  const std::string path = ServerPath();
  // This server is for this command alone.
  std::string isPrivate = "--private";
  std::vector<char*> arguments{const_cast<char*>(path.c_str()), isPrivate.data()};
  for (const std::string& argument : inArguments) {
    arguments.push_back(const_cast<char*>(argument.c_str()));
  }
  arguments.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, mErrors.c_str(),
                                   O_WRONLY | O_CREAT | O_TRUNC, 0600);
  const int error = posix_spawnp(&mPid, path.c_str(), &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) {
    mPid = -1;
    throw Failure("cannot start the server " + path + ": " + strerrordesc_np(error));
  }
  const auto deadline =
      std::chrono::steady_clock::now() + std::chrono::duration<double>(kStartSeconds);
  while (!ServerLink::ServerLives()) {
    if (Wait(0) != kStillRuns) {
      mPid = -1;
      throw Failure("the server ended at once: " + Contents(mErrors));
    }
    if (std::chrono::steady_clock::now() >= deadline) throw Failure("the server does not start");
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

ServerProcess::~ServerProcess() {
  if (mPid <= 0) return;
  kill(mPid, SIGKILL);
  waitpid(mPid, nullptr, 0);
}

// The exit status of the server, or kStillRuns if it has not ended within inSeconds.
int ServerProcess::Wait(double inSeconds) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(inSeconds);
  for (;;) {
    int status = 0;
    if (waitpid(mPid, &status, WNOHANG) == mPid) {
      return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    if (std::chrono::steady_clock::now() >= deadline) return kStillRuns;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
}

void ServerProcess::Finish() {
  kill(mPid, SIGTERM);
  const int status = Wait(kFinishSeconds);
  if (status == kStillRuns) throw Failure("the server does not end");
  mPid = -1;
  if (status != 0) {
    throw Failure("the server ended with status " + std::to_string(status) + ": " +
                  Contents(mErrors));
  }
}

}  // namespace tembra::tools
