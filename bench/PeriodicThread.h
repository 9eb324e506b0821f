#pragma once

#include <cstdint>
#include <functional>
#include <vector>

namespace tembra::bench {

// One period of the device at its usual setting, in nanoseconds.
constexpr std::uint64_t kPeriodNanos = 512ULL * 1'000'000'000 / 44'100;

std::uint64_t NowNanos();

// Runs inWork once each period for inPeriods periods on a thread with the scheduling that the
// device's I/O thread asks for, which sleeps with clock_nanosleep to a time one period after its
// last wake-up, and answers how late each wake-up was, in nanoseconds.
std::vector<double> RunPeriodic(unsigned inPeriods, const std::function<void()>& inWork);

struct Lateness {
  double median;
  double p99;
  double max;
};
Lateness Summarise(std::vector<double> inValues);

}  // namespace tembra::bench
