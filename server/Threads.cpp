#include "server/Threads.h"

#include <pthread.h>
#include <signal.h>
#include <sys/prctl.h>

#include <utility>

namespace tembra {

std::thread StartThread(const char* inName, std::function<void()> inBody) {
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  std::thread thread([inName, body = std::move(inBody)] {
    prctl(PR_SET_NAME, inName);
    body();
  });
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return thread;
}

}  // namespace tembra
