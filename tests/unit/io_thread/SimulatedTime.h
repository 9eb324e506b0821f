#pragma once

#include <mach/mach.h>
#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

// Time and scheduling that this executable supplies in place of the platform's: the host clock
// stands still until a test moves it, and a timed wait ends as the test says.
namespace tembra::test {

struct PolicyCall {
  unsigned int mFlavor;
  std::vector<integer_t> mValues;
  bool operator==(const PolicyCall&) const = default;
};

struct SimulatedTime {
  static SimulatedTime& Get();

  void Reset();
  void NotePolicy(unsigned int inFlavor, const integer_t* inValues, unsigned int inCount);
  std::vector<PolicyCall> GetPolicies();
  void NoteThreadName(const char* inName);
  // The name that the last thread gave itself.
  std::string GetThreadName();

  // In nanoseconds, which are the ticks here.
  std::atomic<uint64_t> mNow{0};
  // Stands for a timed wait of the given length; called with the mutex released, answers what the
  // wait answers.
  std::function<int(uint64_t inNanos)> mTimedWait;
  // The mutex is then kept: no other thread can come in between.
  std::atomic<bool> mTimedWaitKeepsMutex{false};

 private:
  std::mutex mMutex;
  std::vector<PolicyCall> mPolicies;
  std::string mThreadName;
};

}  // namespace tembra::test
