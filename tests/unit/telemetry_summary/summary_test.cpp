#include "tools/TelemetrySummary.h"

#include <gtest/gtest.h>

namespace tembra::tools {
namespace {

TelemetryRecord Record(std::uint32_t inKind, std::uint32_t inCycle, std::uint64_t inTime) {
  TelemetryRecord record{};
  record.kind = inKind;
  record.cycle = inCycle;
  record.time = inTime;
  return record;
}
// Woken at a time.
TelemetryRecord Begin(std::uint32_t inCycle, std::uint64_t inTime) {
  TelemetryRecord record = Record('wrkb', inCycle, inTime);
  record.wideValues[0] = inTime;
  return record;
}
// Going to sleep until a time.
TelemetryRecord End(std::uint32_t inCycle, std::uint64_t inTime, std::uint64_t inWakeUp) {
  TelemetryRecord record = Record('wrke', inCycle, inTime);
  record.wideValues[1] = inWakeUp;
  return record;
}
TelemetryRecord Call(std::uint32_t inCycle, std::uint64_t inTime, std::uint64_t inProcedure) {
  TelemetryRecord record = Record('iiob', inCycle, inTime);
  record.wideValues[0] = inProcedure;
  return record;
}

TEST(TelemetrySummary, OfNoRecordsIsEmpty) {
  const TelemetrySummary summary = Summarize({});
  EXPECT_EQ(summary.records, 0u);
  EXPECT_EQ(summary.nanos, 0u);
  EXPECT_EQ(summary.lateness.InNanos().count, 0u);
  EXPECT_EQ(summary.lateness.InNanos().longest, 0u);
}

TEST(TelemetrySummary, CountsAndMeasuresCycles) {
  const TelemetrySummary summary = Summarize({
      Record('inib', 0, 1000), Record('inie', 0, 1010), Begin(0, 1020),
      End(0, 1030, 2000),      Begin(1, 2005),          Record('iopb', 1, 2010),
      Call(1, 2020, 0xA),      Record('iioe', 1, 2120), Record('outp', 1, 2130),
      Call(1, 2140, 0),        Record('iioe', 1, 2150), Record('iope', 1, 2160),
      End(1, 2205, 3000),      Begin(2, 3100),          Record('ovrb', 2, 3110),
      Record('ovre', 2, 3120), End(2, 3130, 4000),      Record('bufb', 2, 3140),
      Record('bufe', 2, 3150), Record('trdb', 3, 3160), Record('trde', 3, 3170),
  });
  EXPECT_EQ(summary.records, 21u);
  EXPECT_EQ(summary.nanos, 2170u);
  EXPECT_EQ(summary.runs, 1u);
  EXPECT_EQ(summary.cycles, 3u);
  EXPECT_EQ(summary.overloads, 1u);
  EXPECT_EQ(summary.outputs, 1u);
  EXPECT_EQ(summary.bufferSizeChanges, 1u);
  const Durations::Description lateness = summary.lateness.InNanos();
  EXPECT_EQ(lateness.count, 2u) << "the first cycle was not slept for";
  EXPECT_EQ(lateness.shortest, 5u);
  EXPECT_EQ(lateness.longest, 100u);
  const Durations::Description cycle = summary.cycleTime.InNanos();
  EXPECT_EQ(cycle.count, 3u);
  EXPECT_EQ(cycle.shortest, 10u);
  EXPECT_EQ(cycle.median, 30u);
  EXPECT_EQ(cycle.longest, 200u);
  const Durations::Description procedures = summary.procedureTime.InNanos();
  EXPECT_EQ(procedures.count, 1u) << "of the cycle that called some";
  EXPECT_EQ(procedures.sum, 110u);
  ASSERT_EQ(summary.procedures.size(), 2u);
  EXPECT_EQ(summary.procedures.at(0xA).InNanos().sum, 100u);
  EXPECT_EQ(summary.procedures.at(0).InNanos().sum, 10u);
}

TEST(TelemetrySummary, AnEarlyWakeUpIsNotLate) {
  // Woken at 1500 for another reason, asleep again until 2000.
  const TelemetrySummary summary =
      Summarize({End(4, 1000, 2000), End(5, 1500, 2000), Begin(6, 2007)});
  EXPECT_EQ(summary.lateness.InNanos().count, 1u);
  EXPECT_EQ(summary.lateness.InNanos().longest, 7u);
  EXPECT_EQ(Summarize({End(4, 1000, 2000), Begin(5, 1990)}).lateness.InNanos().longest, 0u);
}

TEST(TelemetrySummary, ACycleThatWasDueAtOnceHasNoLateness) {
  EXPECT_EQ(Summarize({End(4, 1000, 0), Begin(5, 1001)}).lateness.InNanos().count, 0u);
}

TEST(TelemetrySummary, WhereRecordsAreMissingNothingIsMadeUp) {
  const TelemetrySummary summary = Summarize({
      Record('iioe', 3, 500),  // its begin was written over
      End(3, 600, 1000),       // so was its begin
      Begin(9, 9000),          // and the cycles between
      Call(9, 9010, 0xA),
      Record('iioe', 12, 20000),
      End(12, 20010, 21000),
  });
  EXPECT_EQ(summary.cycles, 1u);
  EXPECT_EQ(summary.lateness.InNanos().count, 0u);
  EXPECT_EQ(summary.cycleTime.InNanos().count, 0u);
  EXPECT_TRUE(summary.procedures.empty());
}

TEST(TelemetrySummary, ANewRunOwesNothingToTheOneBefore) {
  const TelemetrySummary summary = Summarize(
      {End(0, 1000, 2000), Record('trdb', 1, 1500), Record('trde', 1, 1510), Begin(1, 5000)});
  EXPECT_EQ(summary.lateness.InNanos().count, 0u);
  EXPECT_EQ(Summarize({End(0, 1000, 2000), Record('inib', 0, 4000), Begin(1, 5000)})
                .lateness.InNanos()
                .count,
            0u);
}

TEST(TelemetrySummary, PercentilesAreOfTheSortedDurations) {
  Durations durations;
  for (std::uint64_t ticks = 200; ticks > 0; --ticks) durations.Add(ticks);
  const Durations::Description nanos = durations.InNanos();
  EXPECT_EQ(nanos.count, 200u);
  EXPECT_EQ(nanos.shortest, 1u);
  EXPECT_EQ(nanos.median, 101u);
  EXPECT_EQ(nanos.percentile99, 199u);
  EXPECT_EQ(nanos.longest, 200u);
  EXPECT_EQ(nanos.sum, 20100u);
}

}  // namespace
}  // namespace tembra::tools
