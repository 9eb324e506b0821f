#pragma once

#include <string>
#include <vector>

#include "telemetry/CAHALIOCycleRawTelemetryEvent.h"

namespace tembra::test {

// Processes that the tests start from this executable. Each prints "ready" and runs until it is
// ended by a signal, but for the stranger.

// Plays a tone on the default output device.
int Play();

// Writes events with a check into a telemetry of its own, once capture is on; prints "done" after
// that. The device's UID is kWriterUID.
constexpr const char* kWriterUID = "Telemetry writer";
constexpr unsigned kWrittenEvents = 200000;
int WriteEvents();
bool IsWhole(const CAHALIOCycleRawTelemetryEvent& inEvent);

// As another user: asks for the telemetry at the socket. Prints the bytes that came back.
int AskAsStranger(const std::string& inSocket);

int RunRole(const std::vector<std::string>& inArguments);

}  // namespace tembra::test
