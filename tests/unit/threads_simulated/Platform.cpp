#include "unit/threads_simulated/Platform.h"

#include <dlfcn.h>

#include <mutex>

SimulatedPlatform gPlatform;

namespace {

// Threads of the tests call in at the same time as the tests themselves look.
std::mutex sMutex;

}  // namespace

extern "C" kern_return_t mach_timebase_info(mach_timebase_info_t outInfo) {
  outInfo->numer = 125;
  outInfo->denom = 3;
  return KERN_SUCCESS;
}

extern "C" uint64_t mach_absolute_time() {
  return gPlatform.mTime;
}

extern "C" int pthread_cond_timedwait_relative_np(pthread_cond_t*, pthread_mutex_t*,
                                                  const struct timespec* inTime) {
  gPlatform.mWaits.push_back({inTime->tv_sec, inTime->tv_nsec});
  return gPlatform.mWaitResult;
}

extern "C" kern_return_t thread_policy_set(thread_t, thread_policy_flavor_t inFlavor,
                                           thread_policy_t inInfo, mach_msg_type_number_t inCount) {
  std::lock_guard theLock(sMutex);
  gPlatform.mPolicies.push_back({inFlavor, std::vector<integer_t>(inInfo, inInfo + inCount)});
  return gPlatform.mPolicyResult;
}

extern "C" kern_return_t thread_info(thread_inspect_t inThread, thread_flavor_t inFlavor,
                                     thread_info_t outInfo, mach_msg_type_number_t* ioCount) {
  std::lock_guard theLock(sMutex);
  gPlatform.mInfoFlavors.push_back(inFlavor);
  if (gPlatform.mThreadInfoFails) return KERN_FAILURE;
  switch (inFlavor) {
    case THREAD_BASIC_INFO:
      if (*ioCount != THREAD_BASIC_INFO_COUNT) return KERN_INVALID_ARGUMENT;
      reinterpret_cast<thread_basic_info_t>(outInfo)->policy =
          gPlatform.mOtherPolicies.contains(inThread) ? gPlatform.mOtherPolicies.at(inThread)
                                                      : gPlatform.mThreadPolicy;
      return KERN_SUCCESS;
    case THREAD_SCHED_TIMESHARE_INFO:
      if (*ioCount != POLICY_TIMESHARE_INFO_COUNT) return KERN_INVALID_ARGUMENT;
      *reinterpret_cast<policy_timeshare_info_t>(outInfo) = {63, 30, 31, 0, 0};
      return KERN_SUCCESS;
    case THREAD_SCHED_RR_INFO:
      if (*ioCount != POLICY_RR_INFO_COUNT) return KERN_INVALID_ARGUMENT;
      *reinterpret_cast<policy_rr_info_t>(outInfo) = {63, 47, 0, 0, 0};
      return KERN_SUCCESS;
    case THREAD_SCHED_FIFO_INFO:
      if (*ioCount != POLICY_FIFO_INFO_COUNT) return KERN_INVALID_ARGUMENT;
      *reinterpret_cast<policy_fifo_info_t>(outInfo) = {63, 55, 0, 0};
      return KERN_SUCCESS;
    default:
      return KERN_INVALID_ARGUMENT;
  }
}

int pthread_setname_np(const char* inName) {
  std::lock_guard theLock(sMutex);
  gPlatform.mNames.emplace_back(inName);
  return 0;
}

extern "C" int pthread_attr_setdetachstate(pthread_attr_t* outAttributes, int inState) noexcept {
  static auto* const sPlatforms = reinterpret_cast<int (*)(pthread_attr_t*, int)>(
      dlsym(RTLD_NEXT, "pthread_attr_setdetachstate"));
  gPlatform.mDetachStates.push_back(inState);
  return gPlatform.mDetachResult != 0 ? gPlatform.mDetachResult
                                      : sPlatforms(outAttributes, inState);
}
