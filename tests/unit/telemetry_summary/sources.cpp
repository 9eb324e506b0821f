#include "tools/TelemetryJson.cpp"
#include "tools/TelemetrySummary.cpp"
