#include "tools/TelemetrySummary.cpp"
