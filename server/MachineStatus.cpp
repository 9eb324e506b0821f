#include "server/MachineStatus.h"

#include <fcntl.h>
#include <unistd.h>

#include "runtime/TMBIPC.h"

namespace tembra {

namespace {

constexpr char kConsequence[] = "programs keep their own default output";
constexpr char kAllowedAlready[] = "root has allowed it before";

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
    const std::string cannot =
        "not root: cannot tell this machine's programs of this server, nor that sound is allowed; ";
    return cannot + (TMBIPC_IsSoundAllowed() != 0 ? kAllowedAlready : kConsequence);
  }
  {
    const OwnStandardError own;
    mHasID = TMBIPC_SetServerPid(getpid()) != 0;
  }
  mHasSound = TMBIPC_SetSoundAllowed(1) != 0;
  if (mHasSound) {
    return std::string(
               "sound is allowed: programs that start now may take the device for their "
               "default output (tmbaudio default)") +
           (mHasID ? "" : "; this server's process id cannot be stored (the system log says why)");
  }
  if (!mHasID) {
    return std::string("cannot write below /var/run/tmbipc (the system log says why); ") +
           kConsequence;
  }
  return std::string("sound is not allowed by this system, or its file below /var/run/tmbipc ") +
         "cannot be written (the system log says so then); " + kConsequence;
}

void MachineStatus::Withdraw() {
  if (!mHasID && !mHasSound) return;
  const int32_t published = TMBIPC_GetServerPid();
  const bool hasSuccessor = published != -1 && published != getpid();
  if (!hasSuccessor) {
    if (mHasSound) TMBIPC_SetSoundAllowed(0);
    if (published != -1) TMBIPC_SetServerPid(-1);
  }
  mHasID = mHasSound = false;
}

}  // namespace tembra
