#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace tembra::tools {

// One event of a device's I/O cycle, byte for byte as its telemetry port hands it out: host byte
// order, times in host ticks. The mask tells which values are meant.
struct TelemetryRecord {
  std::uint64_t time;  // when it was recorded
  std::uint32_t kind;
  std::uint32_t cycle;
  double values[4];
  std::uint64_t wideValues[2];
  std::uint32_t error;
  std::uint32_t mask;
};
static_assert(sizeof(TelemetryRecord) == 72);

// The reading end of the telemetry port that each device has in each process that allows it.
//
// Thread: one, whose run loop runs while an answer is awaited.
// Failure: Failure, which names the process and what mends it. A process that does not answer is
//   given up after some seconds.
class TelemetryReader {
 public:
  // Of the device with that UID in that process.
  TelemetryReader(pid_t inProcess, CFStringRef inDeviceUID);
  ~TelemetryReader();
  TelemetryReader(const TelemetryReader&) = delete;
  TelemetryReader& operator=(const TelemetryReader&) = delete;

  // The processes of this user with such a port, but not this one.
  static std::vector<pid_t> FindProcesses(CFStringRef inDeviceUID);
  // "1234 (name)".
  static std::string DescribeProcess(pid_t inProcess);

  pid_t Process() const { return mProcess; }
  bool IsCapturing();
  void SetCapturing(bool inIsCapturing);
  // Everything that there is now, in the order of recording. What is handed out is gone from the
  // process.
  std::vector<TelemetryRecord> Drain();

 private:
  CFDataRef Request(std::uint32_t inMessage, CFDataRef inData);
  // The property's value, after it was set if a value is given; 0 where the reply has none.
  std::uint32_t RequestProperty(std::uint32_t inMessage, const std::uint32_t* inValue);

  const pid_t mProcess;
  CFMessagePortRef mPort;
};

}  // namespace tembra::tools
