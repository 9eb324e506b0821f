#include "Calls.h"

namespace tembra::test {

Calls gCalls;

int MutexInit(pthread_mutex_t* outMutex, const pthread_mutexattr_t* inAttributes) {
  return gCalls.mMutexInit != 0 ? gCalls.mMutexInit : pthread_mutex_init(outMutex, inAttributes);
}

int MutexLock(pthread_mutex_t* inMutex) {
  return gCalls.mLock != 0 ? gCalls.mLock : pthread_mutex_lock(inMutex);
}

int MutexUnlock(pthread_mutex_t* inMutex) {
  // Unlocked all the same, so that the mutex can be destroyed.
  const int result = pthread_mutex_unlock(inMutex);
  return gCalls.mUnlock != 0 ? gCalls.mUnlock : result;
}

int MutexTryLock(pthread_mutex_t* inMutex) {
  return gCalls.mTryLock != 0 ? gCalls.mTryLock : pthread_mutex_trylock(inMutex);
}

int ConditionInit(pthread_cond_t* outCondition, const pthread_condattr_t* inAttributes) {
  return gCalls.mConditionInit != 0 ? gCalls.mConditionInit
                                    : pthread_cond_init(outCondition, inAttributes);
}

int ConditionWait(pthread_cond_t* inCondition, pthread_mutex_t* inMutex) {
  return gCalls.mWait != 0 ? gCalls.mWait : pthread_cond_wait(inCondition, inMutex);
}

int ConditionSignal(pthread_cond_t* inCondition) {
  return gCalls.mSignal != 0 ? gCalls.mSignal : pthread_cond_signal(inCondition);
}

int ConditionBroadcast(pthread_cond_t* inCondition) {
  return gCalls.mBroadcast != 0 ? gCalls.mBroadcast : pthread_cond_broadcast(inCondition);
}

int AttributesInit(pthread_attr_t* outAttributes) {
  return gCalls.mAttributesInit != 0 ? gCalls.mAttributesInit : pthread_attr_init(outAttributes);
}

int CreateThread(pthread_t* outThread, const pthread_attr_t* inAttributes,
                 void* (*inRoutine)(void*), void* inParameter) {
  if (gCalls.mCreate != 0) return gCalls.mCreate;
  const int result = pthread_create(outThread, inAttributes, inRoutine, inParameter);
  if (gCalls.mCreateGivesNoHandle) *outThread = {};
  return result;
}

}  // namespace tembra::test
