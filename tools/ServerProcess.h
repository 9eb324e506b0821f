#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace tembra::tools {

// An audio server of the command's own, away from the user's: it runs in a runtime directory that
// this process and its server share and nobody else uses.
//
// Thread: one. The constructor sets XDG_RUNTIME_DIR of this process, so it must come before the
// first HAL call. Failure: Failure, with what the server said on its standard error.
class ServerProcess {
 public:
  // inDirectory exists and is this user's; the runtime directory is made in it.
  ServerProcess(const std::string& inDirectory, const std::vector<std::string>& inArguments);
  ~ServerProcess();
  ServerProcess(const ServerProcess&) = delete;
  ServerProcess& operator=(const ServerProcess&) = delete;

  pid_t Pid() const { return mPid; }

  // Asks the server to end and waits for it; throws if it ends in failure.
  void Finish();

 private:
  int Wait(double inSeconds);

  pid_t mPid = -1;
  std::string mErrors;  // the file that takes the server's standard error
};

}  // namespace tembra::tools
