#pragma once

#include <pthread.h>

namespace tembra::test {

// What the next calls of the platform answer; 0 makes the real call.
struct Calls {
  int mMutexInit = 0;
  int mLock = 0;
  int mUnlock = 0;
  int mTryLock = 0;
  int mConditionInit = 0;
  int mWait = 0;
  int mSignal = 0;
  int mBroadcast = 0;
  int mAttributesInit = 0;
  int mCreate = 0;
  bool mCreateGivesNoHandle = false;
};
extern Calls gCalls;

int MutexInit(pthread_mutex_t* outMutex, const pthread_mutexattr_t* inAttributes);
int MutexLock(pthread_mutex_t* inMutex);
int MutexUnlock(pthread_mutex_t* inMutex);
int MutexTryLock(pthread_mutex_t* inMutex);
int ConditionInit(pthread_cond_t* outCondition, const pthread_condattr_t* inAttributes);
int ConditionWait(pthread_cond_t* inCondition, pthread_mutex_t* inMutex);
int ConditionSignal(pthread_cond_t* inCondition);
int ConditionBroadcast(pthread_cond_t* inCondition);
int AttributesInit(pthread_attr_t* outAttributes);
int CreateThread(pthread_t* outThread, const pthread_attr_t* inAttributes,
                 void* (*inRoutine)(void*), void* inParameter);

}  // namespace tembra::test
