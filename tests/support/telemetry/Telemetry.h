#pragma once

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "telemetry/HP_IOCycleTelemetry.h"

namespace tembra::test {

// Telemetry is allowed in this process while one of these lives.
class TelemetryIsAllowed {
 public:
  TelemetryIsAllowed() { setenv("CoreAudio_HAL_Enable_Telemetry", "", 1); }
  ~TelemetryIsAllowed() { unsetenv("CoreAudio_HAL_Enable_Telemetry"); }
  TelemetryIsAllowed(const TelemetryIsAllowed&) = delete;
  TelemetryIsAllowed& operator=(const TelemetryIsAllowed&) = delete;
};

using Event = CAHALIOCycleRawTelemetryEvent;

inline void StartCapture(HP_IOCycleTelemetry& ioTelemetry) {
  ioTelemetry.StartCapturing();
  ioTelemetry.SetIsCapturing(true);
}

inline void StopCapture(HP_IOCycleTelemetry& ioTelemetry) {
  ioTelemetry.StopCapturing();
  ioTelemetry.SetIsCapturing(false);
}

// One answer; the telemetry's, or a port's, which is released.
inline std::vector<Event> EventsOf(CFDataRef inData) {
  if (inData == nullptr) return {};
  const size_t size = static_cast<size_t>(CFDataGetLength(inData));
  std::vector<Event> events(size / sizeof(Event));
  std::memcpy(events.data(), CFDataGetBytePtr(inData), events.size() * sizeof(Event));
  CFRelease(inData);
  return events;
}

inline std::vector<Event> Take(HP_IOCycleTelemetry& ioTelemetry) {
  return EventsOf(ioTelemetry.GetTelemetry());
}

// Until there is nothing left, which two empty answers in a row say.
inline std::vector<Event> TakeAll(HP_IOCycleTelemetry& ioTelemetry) {
  std::vector<Event> all;
  for (int empty = 0; empty < 2;) {
    const std::vector<Event> events = Take(ioTelemetry);
    empty = events.empty() ? empty + 1 : 0;
    all.insert(all.end(), events.begin(), events.end());
  }
  return all;
}

inline std::string KindText(UInt32 inKind) {
  return {static_cast<char>(inKind >> 24), static_cast<char>(inKind >> 16),
          static_cast<char>(inKind >> 8), static_cast<char>(inKind)};
}

// "inib 0", "inie 0", ...: kinds and cycles.
inline std::vector<std::string> TextsOf(const std::vector<Event>& inEvents) {
  std::vector<std::string> texts;
  for (const Event& event : inEvents) {
    texts.push_back(KindText(event.mKind) + " " + std::to_string(event.mIOCycle));
  }
  return texts;
}

}  // namespace tembra::test
