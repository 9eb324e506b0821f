#include "SimulatedTime.h"

#include <mach/mach_time.h>
#include <time.h>

namespace tembra::test {

SimulatedTime& SimulatedTime::Get() {
  static SimulatedTime sTime;
  return sTime;
}

void SimulatedTime::Reset() {
  const std::lock_guard<std::mutex> theLock(mMutex);
  mNow = 1000000000;
  mTimedWait = nullptr;
  mTimedWaitKeepsMutex = false;
  mPolicies.clear();
  mThreadName.clear();
}

void SimulatedTime::NotePolicy(unsigned int inFlavor, const integer_t* inValues,
                               unsigned int inCount) {
  const std::lock_guard<std::mutex> theLock(mMutex);
  mPolicies.push_back({inFlavor, std::vector<integer_t>(inValues, inValues + inCount)});
}

std::vector<PolicyCall> SimulatedTime::GetPolicies() {
  const std::lock_guard<std::mutex> theLock(mMutex);
  return mPolicies;
}

void SimulatedTime::NoteThreadName(const char* inName) {
  const std::lock_guard<std::mutex> theLock(mMutex);
  mThreadName = inName;
}

std::string SimulatedTime::GetThreadName() {
  const std::lock_guard<std::mutex> theLock(mMutex);
  return mThreadName;
}

}  // namespace tembra::test

using tembra::test::SimulatedTime;

extern "C" {

__attribute__((visibility("default"))) uint64_t mach_absolute_time(void) {
  return SimulatedTime::Get().mNow;
}

__attribute__((visibility("default"))) int pthread_cond_timedwait_relative_np(
    pthread_cond_t*, pthread_mutex_t* inMutex, const struct timespec* inTime) {
  const bool theMutexIsKept = SimulatedTime::Get().mTimedWaitKeepsMutex;
  if (!theMutexIsKept) pthread_mutex_unlock(inMutex);
  const int theResult = SimulatedTime::Get().mTimedWait(
      static_cast<uint64_t>(inTime->tv_sec) * 1000000000 + static_cast<uint64_t>(inTime->tv_nsec));
  if (!theMutexIsKept) pthread_mutex_lock(inMutex);
  return theResult;
}

__attribute__((visibility("default"))) kern_return_t thread_policy_set(
    thread_t, thread_policy_flavor_t inFlavor, thread_policy_t inValues,
    mach_msg_type_number_t inCount) {
  SimulatedTime::Get().NotePolicy(inFlavor, inValues, inCount);
  return KERN_SUCCESS;
}
}

__attribute__((visibility("default"))) int pthread_setname_np(const char* inName) {
  SimulatedTime::Get().NoteThreadName(inName);
  return 0;
}
