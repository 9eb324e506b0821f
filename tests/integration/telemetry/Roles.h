#pragma once

#include <string>
#include <vector>

#include "telemetry/CAHALIOCycleRawTelemetryEvent.h"

namespace tembra::test {

// Processes that the tests start from this executable. Each prints "ready" and runs until it is
// ended by a signal, but for the last two.

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

// Records as many events without a system call, and then, if so ordered, makes one, which ends it
// by SIGSYS. Ends with kNotConfined where system calls cannot be forbidden.
constexpr int kNotConfined = 5;
int RecordConfined(bool inCallsAtTheEnd);

int RunRole(const std::vector<std::string>& inArguments);

}  // namespace tembra::test
