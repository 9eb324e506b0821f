#include "tools/TelemetryJson.h"

#include <gtest/gtest.h>

#include <limits>
#include <vector>

namespace tembra::tools {
namespace {

// All its fields hold something; the mask tells what is meant.
TelemetryRecord Record(std::uint32_t inKind, std::uint32_t inMask) {
  return {1001, inKind, 7, {1.5, 2.5, 3.5, 4.5}, {0xABCD, 99}, 0, inMask};
}

struct Row {
  std::uint32_t kind;
  std::uint32_t mask;
  const char* line;
};

const std::vector<Row> kRows = {
    {'inib', 0, R"({"time":1001,"kind":"inib","event":"initialize_begin","cycle":7})"},
    {'inie', 0x15,
     R"({"time":1001,"kind":"inie","event":"initialize_end","cycle":7,)"
     R"("anchor":{"sample_time":3.5,"host_time":43981,"rate_scalar":1.5}})"},
    {'wrkb', 0x15,
     R"({"time":1001,"kind":"wrkb","event":"cycle_begin","cycle":7,)"
     R"("now":{"sample_time":3.5,"host_time":43981,"rate_scalar":1.5}})"},
    {'wrke', 0x3F,
     R"({"time":1001,"kind":"wrke","event":"cycle_end","cycle":7,)"
     R"("now":{"sample_time":3.5,"host_time":43981,"rate_scalar":1.5},)"
     R"("wake_up":{"sample_time":4.5,"host_time":99,"rate_scalar":2.5}})"},
    {'sync', 0x15,
     R"({"time":1001,"kind":"sync","event":"resynch","cycle":7,)"
     R"("anchor":{"sample_time":3.5,"host_time":43981,"rate_scalar":1.5}})"},
    {'ovrb', 0x3F,
     R"({"time":1001,"kind":"ovrb","event":"overload_begin","cycle":7,)"
     R"("now":{"sample_time":3.5,"host_time":43981,"rate_scalar":1.5},)"
     R"("limit":{"sample_time":4.5,"host_time":99,"rate_scalar":2.5}})"},
    {'ovre', 0x15,
     R"({"time":1001,"kind":"ovre","event":"overload_end","cycle":7,)"
     R"("anchor":{"sample_time":3.5,"host_time":43981,"rate_scalar":1.5}})"},
    {'trdb', 0, R"({"time":1001,"kind":"trdb","event":"teardown_begin","cycle":7})"},
    {'trde', 0, R"({"time":1001,"kind":"trde","event":"teardown_end","cycle":7})"},
    {'iopb', 0, R"({"time":1001,"kind":"iopb","event":"procedures_begin","cycle":7})"},
    {'iope', 0, R"({"time":1001,"kind":"iope","event":"procedures_end","cycle":7})"},
    {'iiob', 0x10,
     R"({"time":1001,"kind":"iiob","event":"procedure_begin","cycle":7,"procedure":"0xabcd"})"},
    {'iioe', 0, R"({"time":1001,"kind":"iioe","event":"procedure_end","cycle":7})"},
    {'inpt', 0, R"({"time":1001,"kind":"inpt","event":"input_present","cycle":7})"},
    {'outp', 0, R"({"time":1001,"kind":"outp","event":"output_present","cycle":7})"},
    {'bufb', 4,
     R"({"time":1001,"kind":"bufb","event":"buffer_size_begin","cycle":7,"frames":3.5})"},
    {'bufe', 0, R"({"time":1001,"kind":"bufe","event":"buffer_size_end","cycle":7})"},
};

TEST(TelemetryJson, EachOfThe17KindsIsALineWithItsNameItsCycleAndWhatItCarries) {
  ASSERT_EQ(kRows.size(), 17u);
  for (const Row& row : kRows) EXPECT_EQ(RecordLine(Record(row.kind, row.mask)), row.line);
}

TEST(TelemetryJson, WhatTheMaskDoesNotNameIsNotShown) {
  for (const Row& row : kRows) {
    const auto json = nlohmann::json::parse(RecordLine(Record(row.kind, 0)));
    EXPECT_EQ(json.size(), 4u) << row.line;
  }
  // Of two times the first alone.
  const auto json = nlohmann::json::parse(RecordLine(Record('wrke', 0x15)));
  EXPECT_TRUE(json.contains("now"));
  EXPECT_FALSE(json.contains("wake_up"));
}

TEST(TelemetryJson, AKindThatIsNotKnownIsALineAllTheSame) {
  EXPECT_EQ(RecordLine(Record('nono', 0x3F)), R"({"time":1001,"kind":"nono","cycle":7,"mask":63})");
  const auto json = nlohmann::json::parse(RecordLine(Record(0xFF00220A, 1)));
  EXPECT_EQ(json["mask"], 1);
}

TEST(TelemetryJson, WhatIsNoNumberIsNull) {
  TelemetryRecord record = Record('bufb', 4);
  record.values[2] = std::numeric_limits<double>::quiet_NaN();
  EXPECT_TRUE(nlohmann::json::parse(RecordLine(record))["frames"].is_null());
}

TEST(TelemetryJson, ASummaryHasItsCountsItsDurationsAndEachProcedure) {
  TelemetrySummary summary;
  summary.records = 1;
  summary.nanos = 2;
  summary.runs = 3;
  summary.cycles = 4;
  summary.overloads = 5;
  summary.outputs = 6;
  summary.bufferSizeChanges = 7;
  summary.lateness.Add(10);
  summary.lateness.Add(20);
  summary.procedures[0xA].Add(30);
  const nlohmann::json json = SummaryJson(42, summary);
  const nlohmann::json none = {{"count", 0},           {"shortest_ns", 0}, {"median_ns", 0},
                               {"percentile99_ns", 0}, {"longest_ns", 0},  {"sum_ns", 0}};
  const nlohmann::json two = {{"count", 2},       {"shortest_ns", 10},
                              {"median_ns", 20},  {"percentile99_ns", 20},
                              {"longest_ns", 20}, {"sum_ns", 30}};
  const nlohmann::json procedure = {{"procedure", "0xa"},   {"count", 1},       {"shortest_ns", 30},
                                    {"median_ns", 30},      {"longest_ns", 30}, {"sum_ns", 30},
                                    {"percentile99_ns", 30}};
  EXPECT_EQ(json, (nlohmann::json{{"pid", 42},
                                  {"records", 1},
                                  {"span_ns", 2},
                                  {"runs", 3},
                                  {"cycles", 4},
                                  {"overloads", 5},
                                  {"outputs", 6},
                                  {"buffer_size_changes", 7},
                                  {"lateness", two},
                                  {"time_in_cycle", none},
                                  {"time_in_procedures", none},
                                  {"procedures", nlohmann::json::array({procedure})}}));
}

}  // namespace
}  // namespace tembra::tools
