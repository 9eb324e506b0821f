#include "bench/PeriodicThread.h"

#include <mach/mach.h>
#include <pthread.h>
#include <time.h>

#include <algorithm>
#include <cmath>
#include <thread>

namespace tembra::bench {

std::uint64_t NowNanos() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * 1'000'000'000 +
         static_cast<std::uint64_t>(now.tv_nsec);
}

std::vector<double> RunPeriodic(unsigned inPeriods, const std::function<void()>& inWork) {
  std::vector<double> lateness;
  lateness.reserve(inPeriods);
  std::thread thread([&] {
    thread_time_constraint_policy_data_t policy{};
    policy.period = static_cast<std::uint32_t>(kPeriodNanos);
    policy.computation = 100'000;
    policy.constraint = static_cast<std::uint32_t>(kPeriodNanos);
    policy.preemptible = 1;
    thread_policy_set(pthread_mach_thread_np(pthread_self()), THREAD_TIME_CONSTRAINT_POLICY,
                      reinterpret_cast<thread_policy_t>(&policy),
                      THREAD_TIME_CONSTRAINT_POLICY_COUNT);
    std::uint64_t wake = NowNanos() + kPeriodNanos;
    for (unsigned period = 0; period < inPeriods; ++period) {
      const timespec until{static_cast<time_t>(wake / 1'000'000'000),
                           static_cast<long>(wake % 1'000'000'000)};
      while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) != 0) {
      }
      const std::uint64_t now = NowNanos();
      lateness.push_back(static_cast<double>(now) - static_cast<double>(wake));
      inWork();
      wake = now + kPeriodNanos;
    }
  });
  thread.join();
  return lateness;
}

Lateness Summarise(std::vector<double> inValues) {
  if (inValues.empty()) return {};
  std::sort(inValues.begin(), inValues.end());
  const auto at = [&](double share) {
    const double rank = std::ceil(share * static_cast<double>(inValues.size()));
    return inValues[static_cast<std::size_t>(std::max(rank, 1.0)) - 1];
  };
  return {at(0.5), at(0.99), inValues.back()};
}

}  // namespace tembra::bench
