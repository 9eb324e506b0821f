#include "tools/TelemetrySummary.h"

#include <CoreAudio/HostTime.h>

#include <algorithm>
#include <optional>

namespace tembra::tools {

namespace {

std::uint64_t Difference(std::uint64_t inFrom, std::uint64_t inTo) {
  return inTo > inFrom ? inTo - inFrom : 0;
}

// What has begun and not ended yet, as the records are read in their order.
class Reading {
 public:
  explicit Reading(TelemetrySummary& outSummary) : mSummary(outSummary) {}

  void Take(const TelemetryRecord& inRecord) {
    switch (inRecord.kind) {
      case 'inib':
        ++mSummary.runs;
        Forget();
        break;
      case 'wrkb':
        BeginCycle(inRecord);
        break;
      case 'wrke':
        EndCycle(inRecord);
        break;
      case 'ovrb':
        ++mSummary.overloads;
        break;
      case 'iiob':
        mCall = inRecord;
        break;
      case 'iioe':
        EndCall(inRecord);
        break;
      case 'outp':
        ++mSummary.outputs;
        break;
      case 'bufb':
        ++mSummary.bufferSizeChanges;
        break;
      case 'trdb':
        Forget();
        break;
      default:
        break;
    }
  }

 private:
  void Forget() {
    mSleep.reset();
    mCycle.reset();
    mCall.reset();
  }

  void BeginCycle(const TelemetryRecord& inRecord) {
    ++mSummary.cycles;
    // A buffer that was due at once was not slept for, and has no time to wake at.
    if (mSleep && mSleep->cycle + 1 == inRecord.cycle && mSleep->wideValues[1] != 0) {
      mSummary.lateness.Add(Difference(mSleep->wideValues[1], inRecord.wideValues[0]));
    }
    mSleep.reset();
    mCycle = inRecord;
    mTicksInProcedures = 0;
    mCalls = 0;
  }

  void EndCycle(const TelemetryRecord& inRecord) {
    if (mCycle && mCycle->cycle == inRecord.cycle) {
      mSummary.cycleTime.Add(Difference(mCycle->time, inRecord.time));
      if (mCalls > 0) mSummary.procedureTime.Add(mTicksInProcedures);
    }
    mCycle.reset();
    mSleep = inRecord;
  }

  void EndCall(const TelemetryRecord& inRecord) {
    if (mCall && mCall->cycle == inRecord.cycle) {
      const std::uint64_t ticks = Difference(mCall->time, inRecord.time);
      mSummary.procedures[mCall->wideValues[0]].Add(ticks);
      mTicksInProcedures += ticks;
      ++mCalls;
    }
    mCall.reset();
  }

  TelemetrySummary& mSummary;
  std::optional<TelemetryRecord> mSleep;
  std::optional<TelemetryRecord> mCycle;
  std::optional<TelemetryRecord> mCall;
  std::uint64_t mTicksInProcedures = 0;
  std::uint64_t mCalls = 0;
};

}  // namespace

Durations::Description Durations::InNanos() const {
  if (mTicks.empty()) return {};
  std::vector<std::uint64_t> sorted = mTicks;
  std::sort(sorted.begin(), sorted.end());
  std::uint64_t sum = 0;
  for (const std::uint64_t ticks : sorted) sum += ticks;
  const auto at = [&](std::size_t inIndex) { return AudioConvertHostTimeToNanos(sorted[inIndex]); };
  return {sorted.size(),         at(0),
          at(sorted.size() / 2), at(std::min(sorted.size() - 1, sorted.size() * 99 / 100)),
          at(sorted.size() - 1), AudioConvertHostTimeToNanos(sum)};
}

TelemetrySummary Summarize(const std::vector<TelemetryRecord>& inRecords) {
  TelemetrySummary summary;
  summary.records = inRecords.size();
  if (inRecords.empty()) return summary;
  summary.nanos =
      AudioConvertHostTimeToNanos(Difference(inRecords.front().time, inRecords.back().time));
  Reading reading(summary);
  for (const TelemetryRecord& record : inRecords) reading.Take(record);
  return summary;
}

}  // namespace tembra::tools
