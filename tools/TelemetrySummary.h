#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "tools/TelemetryReader.h"

namespace tembra::tools {

// Durations of one kind, in host ticks until they are described in nanoseconds.
class Durations {
 public:
  void Add(std::uint64_t inTicks) { mTicks.push_back(inTicks); }
  std::size_t Count() const { return mTicks.size(); }

  struct Description {
    std::size_t count = 0;
    std::uint64_t shortest = 0;
    std::uint64_t median = 0;
    std::uint64_t percentile99 = 0;
    std::uint64_t longest = 0;
    std::uint64_t sum = 0;
  };
  // All 0 if there are none.
  Description InNanos() const;

 private:
  std::vector<std::uint64_t> mTicks;
};

// What records tell of the I/O cycles in which they were taken.
//
// A wake-up is late by what lies between the time for which the I/O thread slept and the time that
// it read when it woke; a cycle lasts from there to its next sleep. Where records are missing,
// because the ring was written over or capture began in the middle, nothing is made up.
struct TelemetrySummary {
  std::uint64_t records = 0;
  std::uint64_t nanos = 0;  // from the first record to the last
  std::uint64_t runs = 0;   // of the engine that began
  std::uint64_t cycles = 0;
  std::uint64_t overloads = 0;
  std::uint64_t outputs = 0;  // procedures that rendered something
  std::uint64_t bufferSizeChanges = 0;
  Durations lateness;
  Durations cycleTime;
  Durations procedureTime;                        // of all procedures of a cycle
  std::map<std::uint64_t, Durations> procedures;  // by address, 0 for blocks
};

TelemetrySummary Summarize(const std::vector<TelemetryRecord>& inRecords);

}  // namespace tembra::tools
