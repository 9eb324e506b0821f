#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace tembra::test {

// A program of the build under test, as a child process. Its standard output and error go to
// files beside each other. Killed with the object if it still runs.
class Program {
 public:
  // inName is a program in the build's bin folder, or a path. inPrefix names its two output files.
  Program(const std::string& inName, const std::vector<std::string>& inArguments,
          const std::string& inPrefix);
  ~Program();
  Program(Program&& inOther) noexcept;
  Program& operator=(Program&&) = delete;

  pid_t Pid() const { return mPid; }
  bool Running();
  void Signal(int inSignal) const;
  // The exit status, 128 plus the signal that ended it, or -1 if it still runs after that time.
  int Wait(std::chrono::milliseconds inLimit = std::chrono::seconds(60));
  std::string Output() const;
  std::string Errors() const;

 private:
  pid_t mPid = -1;
  int mStatus = -1;
  std::string mPrefix;
};

// Looks again and again until the condition holds or the time is over; answers whether it held.
bool WaitUntil(const std::function<bool()>& inCondition,
               std::chrono::milliseconds inLimit = std::chrono::seconds(20));

// To be called before a fork whose child goes on in this program: a thread that holds the allocator
// of a sanitizer meanwhile would leave it held in the child for ever. Waits until all other threads
// of this process sleep.
void LetOtherThreadsSleep();

std::string ReadFile(const std::string& inPath);

}  // namespace tembra::test
