#include "support/OtherUser.h"

#include <grp.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/Program.h"

namespace tembra::test {

bool BecomeUser(uid_t inUser) {
  return setgroups(0, nullptr) == 0 && setresgid(inUser, inUser, inUser) == 0 &&
         setresuid(inUser, inUser, inUser) == 0 && prctl(PR_SET_DUMPABLE, 1) == 0;
}

int RunAsUser(uid_t inUser, const std::function<int()>& inBody) {
  LetOtherThreadsSleep();
  const pid_t child = fork();
  if (child == 0) {
    alarm(60);
    _exit(BecomeUser(inUser) ? inBody() : kNoOtherUser);
  }
  int status = 0;
  if (waitpid(child, &status, 0) != child) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
}

}  // namespace tembra::test
