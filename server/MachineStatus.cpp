#include "server/MachineStatus.h"

#include <fcntl.h>
#include <unistd.h>

#include "runtime/TMBIPC.h"

namespace tembra {

namespace {

constexpr char kConsequence[] = "programs keep their own default output";

// Keeps standard error from programs that are started meanwhile: the shell would complain there of
// a command that this system need not have.
class OwnStandardError {
 public:
  OwnStandardError() : mFlags(fcntl(STDERR_FILENO, F_GETFD)) {
    if (mFlags >= 0) fcntl(STDERR_FILENO, F_SETFD, mFlags | FD_CLOEXEC);
  }
  ~OwnStandardError() {
    if (mFlags >= 0) fcntl(STDERR_FILENO, F_SETFD, mFlags);
  }
  OwnStandardError(const OwnStandardError&) = delete;
  OwnStandardError& operator=(const OwnStandardError&) = delete;

 private:
  const int mFlags;
};

}  // namespace

std::string MachineStatus::Publish() {
  if (getuid() != 0) {
    return std::string("not root: cannot tell this machine's programs that sound is allowed; ") +
           kConsequence;
  }
  {
    const OwnStandardError own;
    mHasID = TMBIPC_SetServerPid(getpid()) != 0;
  }
  if (!mHasID) {
    return std::string("cannot write below /var/run/tmbipc (the system log says why); ") +
           kConsequence;
  }
  mHasSound = TMBIPC_SetSoundAllowed(1) != 0;
  if (!mHasSound) {
    return std::string("sound is not allowed by this system, or its file below /var/run/tmbipc ") +
           "cannot be written (the system log says so then); " + kConsequence;
  }
  return "sound is allowed: programs that start now may take the device for their default output "
         "(tmbaudio default)";
}

void MachineStatus::Withdraw() {
  if (!mHasID || TMBIPC_GetServerPid() != getpid()) return;
  if (mHasSound) TMBIPC_SetSoundAllowed(0);
  TMBIPC_SetServerPid(-1);
  mHasID = mHasSound = false;
}

}  // namespace tembra
