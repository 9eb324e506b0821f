// The locks and threads, with calls of the platform that can fail. Only here: all else in the
// program, the sanitizers' runtimes among it, keeps the real ones.

#include <errno.h>
#include <mach/mach.h>
#include <pthread.h>
#include <signal.h>
#include <string.h>
#include <time.h>

#include <memory>
#include <mutex>

#include "Calls.h"

#define pthread_mutex_init tembra::test::MutexInit
#define pthread_mutex_lock tembra::test::MutexLock
#define pthread_mutex_unlock tembra::test::MutexUnlock
#define pthread_mutex_trylock tembra::test::MutexTryLock
#define pthread_cond_init tembra::test::ConditionInit
#define pthread_cond_wait tembra::test::ConditionWait
#define pthread_cond_signal tembra::test::ConditionSignal
#define pthread_cond_broadcast tembra::test::ConditionBroadcast
#define pthread_attr_init tembra::test::AttributesInit
#define pthread_create tembra::test::CreateThread

#include "support/CAGuard.cpp"
#include "support/CAMutex.cpp"
#include "support/CAPThread.cpp"
