#include "tools/TelemetryJson.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

namespace tembra::tools {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::uint32_t kThirdValue = 0x04;
constexpr std::uint32_t kFirstWideValue = 0x10;
constexpr std::uint32_t kOneTime = 0x15;
constexpr std::uint32_t kTwoTimes = 0x3F;

// What a kind is called, and its times: the first or only one, and the second.
struct KindEntry {
  std::uint32_t kind;
  const char* event;
  const char* firstTime;
  const char* secondTime;
};

constexpr KindEntry kKinds[] = {
    {'inib', "initialize_begin", nullptr, nullptr}, {'inie', "initialize_end", "anchor", nullptr},
    {'wrkb', "cycle_begin", "now", nullptr},        {'wrke', "cycle_end", "now", "wake_up"},
    {'sync', "resynch", "anchor", nullptr},         {'ovrb', "overload_begin", "now", "limit"},
    {'ovre', "overload_end", "anchor", nullptr},    {'trdb', "teardown_begin", nullptr, nullptr},
    {'trde', "teardown_end", nullptr, nullptr},     {'iopb', "procedures_begin", nullptr, nullptr},
    {'iope', "procedures_end", nullptr, nullptr},   {'iiob', "procedure_begin", nullptr, nullptr},
    {'iioe', "procedure_end", nullptr, nullptr},    {'inpt', "input_present", nullptr, nullptr},
    {'outp', "output_present", nullptr, nullptr},   {'bufb', "buffer_size_begin", nullptr, nullptr},
    {'bufe', "buffer_size_end", nullptr, nullptr},
};

bool Has(const TelemetryRecord& inRecord, std::uint32_t inMask) {
  return (inRecord.mask & inMask) == inMask;
}

Json TimeOf(const TelemetryRecord& inRecord, int inWhich) {
  return {{"sample_time", inRecord.values[2 + inWhich]},
          {"host_time", inRecord.wideValues[inWhich]},
          {"rate_scalar", inRecord.values[inWhich]}};
}

Json RecordJson(const TelemetryRecord& inRecord) {
  std::string kind;
  for (const int shift : {24, 16, 8, 0}) kind += static_cast<char>(inRecord.kind >> shift);
  Json json = {{"time", inRecord.time}, {"kind", kind}};
  const auto* entry = std::find_if(std::begin(kKinds), std::end(kKinds),
                                   [&](const KindEntry& in) { return in.kind == inRecord.kind; });
  if (entry == std::end(kKinds)) {
    json["cycle"] = inRecord.cycle;
    json["mask"] = inRecord.mask;
    return json;
  }
  json["event"] = entry->event;
  json["cycle"] = inRecord.cycle;
  if (entry->firstTime != nullptr && Has(inRecord, kOneTime)) {
    json[entry->firstTime] = TimeOf(inRecord, 0);
  }
  if (entry->secondTime != nullptr && Has(inRecord, kTwoTimes)) {
    json[entry->secondTime] = TimeOf(inRecord, 1);
  }
  if (inRecord.kind == 'iiob' && Has(inRecord, kFirstWideValue)) {
    json["procedure"] = AddressText(inRecord.wideValues[0]);
  }
  if (inRecord.kind == 'bufb' && Has(inRecord, kThirdValue)) json["frames"] = inRecord.values[2];
  return json;
}

Json DurationsJson(const Durations& inDurations) {
  const Durations::Description nanos = inDurations.InNanos();
  return {{"count", nanos.count},        {"shortest_ns", nanos.shortest},
          {"median_ns", nanos.median},   {"percentile99_ns", nanos.percentile99},
          {"longest_ns", nanos.longest}, {"sum_ns", nanos.sum}};
}

}  // namespace

std::string AddressText(std::uint64_t inAddress) {
  char text[24];
  std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(inAddress));
  return text;
}

std::string RecordLine(const TelemetryRecord& inRecord) {
  return RecordJson(inRecord).dump(-1, ' ', false, Json::error_handler_t::replace);
}

Json SummaryJson(pid_t inProcess, const TelemetrySummary& inSummary) {
  Json procedures = Json::array();
  for (const auto& [address, durations] : inSummary.procedures) {
    Json procedure = {{"procedure", AddressText(address)}};
    procedure.update(DurationsJson(durations));
    procedures.push_back(procedure);
  }
  return {{"pid", inProcess},
          {"records", inSummary.records},
          {"span_ns", inSummary.nanos},
          {"runs", inSummary.runs},
          {"cycles", inSummary.cycles},
          {"overloads", inSummary.overloads},
          {"outputs", inSummary.outputs},
          {"buffer_size_changes", inSummary.bufferSizeChanges},
          {"lateness", DurationsJson(inSummary.lateness)},
          {"time_in_cycle", DurationsJson(inSummary.cycleTime)},
          {"time_in_procedures", DurationsJson(inSummary.procedureTime)},
          {"procedures", procedures}};
}

}  // namespace tembra::tools
