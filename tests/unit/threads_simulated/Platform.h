#pragma once

#include <mach/mach.h>
#include <mach/mach_time.h>
#include <pthread.h>
#include <stdint.h>

#include <map>
#include <string>
#include <vector>

// This test's own clock, waits and scheduler.
struct SimulatedPlatform {
  uint64_t mTime = 0;

  struct Wait {
    int64_t mSeconds;
    int64_t mNanos;
  };
  std::vector<Wait> mWaits;
  int mWaitResult = 0;

  struct Policy {
    thread_policy_flavor_t mFlavor;
    std::vector<integer_t> mValues;
    bool operator==(const Policy&) const = default;
  };
  std::vector<Policy> mPolicies;
  kern_return_t mPolicyResult = KERN_SUCCESS;

  policy_t mThreadPolicy = POLICY_TIMESHARE;
  std::map<thread_t, policy_t> mOtherPolicies;  // of threads that run under another one
  bool mThreadInfoFails = false;
  std::vector<thread_flavor_t> mInfoFlavors;

  std::vector<std::string> mNames;
  std::vector<int> mDetachStates;
  int mDetachResult = 0;
};

extern SimulatedPlatform gPlatform;
