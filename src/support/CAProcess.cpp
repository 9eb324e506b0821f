#include "support/CAProcess.h"

#include <errno.h>
#include <signal.h>
#include <unistd.h>

pid_t CAProcess::GetPID() {
  return getpid();
}

bool CAProcess::ProcessExists(pid_t inPID) {
  return inPID > 0 && (kill(inPID, 0) == 0 || errno != ESRCH);
}
