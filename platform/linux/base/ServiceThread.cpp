#include "base/ServiceThread.h"

#include <pthread.h>
#include <signal.h>
#include <string.h>
#include <sys/prctl.h>

#include <new>

namespace tembra {
namespace {

struct Start {
  char name[16];
  void (*body)(void*);
  void* context;
};

void* Run(void* inStart) {
  Start start = *static_cast<Start*>(inStart);
  delete static_cast<Start*>(inStart);
  prctl(PR_SET_NAME, start.name);
  start.body(start.context);
  return nullptr;
}

}  // namespace

bool StartServiceThread(const char* inName, void (*inBody)(void*), void* inContext) {
  auto* start = new (std::nothrow) Start{};
  if (!start) return false;
  strncpy(start->name, inName, sizeof start->name - 1);
  start->body = inBody;
  start->context = inContext;

  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  // A time-constraint caller must not pass its policy on.
  pthread_attr_setinheritsched(&attributes, PTHREAD_EXPLICIT_SCHED);
  // A new thread inherits the mask of its creator.
  sigset_t all, before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  pthread_t thread;
  bool started = pthread_create(&thread, &attributes, Run, start) == 0;
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  pthread_attr_destroy(&attributes);
  if (!started) delete start;
  return started;
}

}  // namespace tembra
