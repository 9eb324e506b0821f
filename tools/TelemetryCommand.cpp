#include <CoreAudio/AudioHardware.h>
#include <CoreFoundation/CoreFoundation.h>

#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tools/Commands.h"
#include "tools/Devices.h"
#include "tools/TelemetryJson.h"
#include "tools/TelemetryReader.h"
#include "tools/TelemetrySummary.h"

namespace tembra::tools {

namespace {

double Micros(std::uint64_t inNanos) {
  return static_cast<double>(inNanos) / 1000.0;
}

void PrintDurations(const char* inName, const Durations& inDurations) {
  const Durations::Description nanos = inDurations.InNanos();
  if (nanos.count == 0) {
    std::printf("  %-20s none seen\n", inName);
    return;
  }
  std::printf("  %-20s median %.1f us, 99 %% within %.1f us, longest %.1f us (%zu)\n", inName,
              Micros(nanos.median), Micros(nanos.percentile99), Micros(nanos.longest), nanos.count);
}

void PrintSummary(const TelemetryReader& inReader, const TelemetrySummary& inSummary) {
  const double seconds = static_cast<double>(inSummary.nanos) * 1e-9;
  std::printf("process %s: %llu records of %.2f s\n",
              TelemetryReader::DescribeProcess(inReader.Process()).c_str(),
              static_cast<unsigned long long>(inSummary.records), seconds);
  std::printf("  %-20s %llu, %llu of their procedures with sound\n", "cycles",
              static_cast<unsigned long long>(inSummary.cycles),
              static_cast<unsigned long long>(inSummary.outputs));
  std::printf("  %-20s %llu\n", "overloads", static_cast<unsigned long long>(inSummary.overloads));
  PrintDurations("lateness", inSummary.lateness);
  PrintDurations("time in a cycle", inSummary.cycleTime);
  PrintDurations("time in procedures", inSummary.procedureTime);
  for (const auto& [address, durations] : inSummary.procedures) {
    PrintDurations(address == 0 ? "  blocks" : ("  " + AddressText(address)).c_str(), durations);
  }
}

struct Arguments {
  pid_t process = 0;
  std::string device;
  bool json = false;
};

CFStringRef CopyDeviceUID(const std::string& inName) {
  const AudioObjectPropertyAddress address{kAudioDevicePropertyDeviceUID,
                                           kAudioObjectPropertyScopeGlobal, 0};
  return CFStringCreateWithCString(
      kCFAllocatorDefault, GetText(FindDevice(inName), address).c_str(), kCFStringEncodingUTF8);
}

// The process that was named, or the only one that there is.
pid_t ChooseProcess(const Arguments& inArguments, CFStringRef inDeviceUID) {
  if (inArguments.process != 0) return inArguments.process;
  const std::vector<pid_t> found = TelemetryReader::FindProcesses(inDeviceUID);
  if (found.size() == 1) return found.front();
  if (found.empty()) {
    throw Failure(
        "no process of this user has telemetry enabled; start the one that plays with "
        "CoreAudio_HAL_Enable_Telemetry=1 in its environment, or make the file "
        "/var/db/.com.apple.audio.telemetryenabled before it starts");
  }
  std::string list;
  for (const pid_t process : found) {
    list += (list.empty() ? "" : ", ") + TelemetryReader::DescribeProcess(process);
  }
  throw Failure("several processes have telemetry enabled, choose one with --pid: " + list,
                Exit::kUsage);
}

void WithReader(const Arguments& inArguments, const std::function<void(TelemetryReader&)>& inWork) {
  CFStringRef uid = CopyDeviceUID(inArguments.device);
  const std::unique_ptr<const void, void (*)(const void*)> held(uid, CFRelease);
  TelemetryReader reader(ChooseProcess(inArguments, uid), uid);
  inWork(reader);
}

void RequireCapture(TelemetryReader& ioReader) {
  if (ioReader.IsCapturing()) return;
  const std::string process = std::to_string(ioReader.Process());
  throw Failure("capture is off in process " +
                TelemetryReader::DescribeProcess(ioReader.Process()) +
                "; `tmbaudio telemetry start --pid " + process + "` switches it on");
}

void SwitchCapture(TelemetryReader& ioReader, bool inIsCapturing) {
  ioReader.SetCapturing(inIsCapturing);
  const std::string process = TelemetryReader::DescribeProcess(ioReader.Process());
  if (ioReader.IsCapturing() != inIsCapturing) {
    throw Failure("process " + process + " did not follow");
  }
  std::printf("process %s: capture is %s\n", process.c_str(), inIsCapturing ? "on" : "off");
}

void Drain(TelemetryReader& ioReader) {
  RequireCapture(ioReader);
  for (const TelemetryRecord& record : ioReader.Drain()) {
    std::printf("%s\n", RecordLine(record).c_str());
  }
}

void ShowSummary(TelemetryReader& ioReader, bool inJson) {
  RequireCapture(ioReader);
  const TelemetrySummary summary = Summarize(ioReader.Drain());
  if (inJson) {
    std::printf("%s\n", SummaryJson(ioReader.Process(), summary).dump(2).c_str());
  } else {
    PrintSummary(ioReader, summary);
  }
}

CLI::App* AddVerb(CLI::App* ioTelemetry, const std::shared_ptr<Arguments>& inArguments,
                  const char* inName, const char* inHelp) {
  CLI::App* verb = ioTelemetry->add_subcommand(inName, inHelp);
  verb->add_option("--pid", inArguments->process,
                   "the process; without it the only one that has telemetry enabled")
      ->check(CLI::PositiveNumber);
  verb->add_option("--device", inArguments->device,
                   "a device's number, UID or name; without it the default output device");
  return verb;
}

}  // namespace

void AddTelemetryCommands(CLI::App& ioProgram) {
  auto arguments = std::make_shared<Arguments>();
  CLI::App* telemetry =
      ioProgram.add_subcommand("telemetry", "record what a process's I/O cycle does, and read it");
  telemetry->require_subcommand(1);
  telemetry->footer(
      "The process must have been started with CoreAudio_HAL_Enable_Telemetry in its environment, "
      "or with the file /var/db/.com.apple.audio.telemetryenabled in place.\n"
      "Exit status: 0 ok, 1 failed, 2 usage.");

  AddVerb(telemetry, arguments, "start", "begin to record")->callback([arguments] {
    WithReader(*arguments, [](TelemetryReader& ioReader) { SwitchCapture(ioReader, true); });
  });
  AddVerb(telemetry, arguments, "stop", "end it; what was not drained is lost")
      ->callback([arguments] {
        WithReader(*arguments, [](TelemetryReader& ioReader) { SwitchCapture(ioReader, false); });
      });
  AddVerb(telemetry, arguments, "drain", "print and remove what was recorded, a JSON line each")
      ->callback([arguments] { WithReader(*arguments, Drain); });
  CLI::App* summary = AddVerb(telemetry, arguments, "summary",
                              "remove what was recorded and print cycles, lateness, overloads and "
                              "the time in procedures");
  summary->add_flag("--json", arguments->json, "for programs");
  summary->callback([arguments] {
    WithReader(*arguments,
               [&](TelemetryReader& ioReader) { ShowSummary(ioReader, arguments->json); });
  });
}

}  // namespace tembra::tools
