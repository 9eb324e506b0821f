#pragma once

#include <sys/types.h>

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

#include "tools/TelemetryReader.h"
#include "tools/TelemetrySummary.h"

namespace tembra::tools {

// "0x" and the address in hexadecimal.
std::string AddressText(std::uint64_t inAddress);

// Time, kind and cycle always; of the values those that the record's kind carries and its mask
// names. One line, without its end.
std::string RecordLine(const TelemetryRecord& inRecord);

nlohmann::ordered_json SummaryJson(pid_t inProcess, const TelemetrySummary& inSummary);

}  // namespace tembra::tools
