#include "support/Program.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <utility>

namespace tembra::test {

Program::Program(const std::string& inName, const std::vector<std::string>& inArguments,
                 const std::string& inPrefix)
    : mPrefix(inPrefix) {
  const std::string path =
      inName.find('/') == std::string::npos ? TEMBRA_BINARY_DIR "/bin/" + inName : inName;
  std::vector<char*> arguments{const_cast<char*>(path.c_str())};
  for (const std::string& argument : inArguments) {
    arguments.push_back(const_cast<char*>(argument.c_str()));
  }
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  const std::string output = mPrefix + ".out";
  const std::string errors = mPrefix + ".err";
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output.c_str(),
                                   O_WRONLY | O_CREAT | O_TRUNC, 0600);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, errors.c_str(),
                                   O_WRONLY | O_CREAT | O_TRUNC, 0600);
  const int error = posix_spawn(&mPid, path.c_str(), &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) throw std::runtime_error("cannot start " + path);
}

Program::Program(Program&& inOther) noexcept
    : mPid(std::exchange(inOther.mPid, -1)),
      mStatus(inOther.mStatus),
      mPrefix(std::move(inOther.mPrefix)) {}

Program::~Program() {
  if (mPid <= 0 || mStatus != -1) return;
  kill(mPid, SIGKILL);
  waitpid(mPid, nullptr, 0);
}

bool Program::Running() {
  return Wait(std::chrono::milliseconds(0)) == -1;
}

void Program::Signal(int inSignal) const {
  kill(mPid, inSignal);
}

int Program::Wait(std::chrono::milliseconds inLimit) {
  WaitUntil(
      [this] {
        int status = 0;
        if (mStatus == -1 && waitpid(mPid, &status, WNOHANG) == mPid) {
          mStatus = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        }
        return mStatus != -1;
      },
      inLimit);
  return mStatus;
}

std::string Program::Output() const {
  return ReadFile(mPrefix + ".out");
}
std::string Program::Errors() const {
  return ReadFile(mPrefix + ".err");
}

bool WaitUntil(const std::function<bool()>& inCondition, std::chrono::milliseconds inLimit) {
  const auto deadline = std::chrono::steady_clock::now() + inLimit;
  for (;;) {
    if (inCondition()) return true;
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
}

void LetOtherThreadsSleep() {
  const std::string own = std::to_string(gettid());
  EXPECT_TRUE(WaitUntil([&] {
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
      if (task.path().filename() == own) continue;
      const std::string status = ReadFile(task.path() / "stat");
      // The state follows the name, which is in brackets.
      const size_t name = status.rfind(')');
      if (name != std::string::npos && status.compare(name, 3, ") S") != 0) return false;
    }
    return true;
  }));
}

std::string ReadFile(const std::string& inPath) {
  std::ifstream file(inPath, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

}  // namespace tembra::test
