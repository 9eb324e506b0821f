#pragma once

#include <stdexcept>
#include <string>

namespace tembra::tools {

// What the command's exit status says; stable, scripts rely on it.
enum class Exit : int { kOk = 0, kFailed = 1, kUsage = 2, kNoServer = 3, kHeldByAnother = 4 };

// A failure that the user is told of: the cause, what mends it, and the exit status.
class Failure : public std::runtime_error {
 public:
  explicit Failure(const std::string& inText, Exit inExit = Exit::kFailed)
      : std::runtime_error(inText), mExit(inExit) {}
  Exit Code() const { return mExit; }

 private:
  Exit mExit;
};

}  // namespace tembra::tools
