#include <CoreAudio/AudioHardware.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>

#include "tools/Commands.h"
#include "tools/Comparison.h"
#include "tools/Devices.h"
#include "tools/Player.h"
#include "tools/ServerLink.h"
#include "tools/ServerProcess.h"

namespace tembra::tools {

namespace {

constexpr char kDeviceUID[] = "TMBAudioCln_Plugin";
constexpr double kAdmissionSeconds = 5;

// A line "what ...... verdict  (detail)".
void Report(const std::string& inWhat, bool inGood, const std::string& inDetail) {
  std::string line = "  " + inWhat + " ";
  line.append(line.size() < 40 ? 40 - line.size() : 1, '.');
  std::printf("%s %s  (%s)\n", line.c_str(), inGood ? "ok" : "FAILED", inDetail.c_str());
  std::fflush(stdout);
}

std::string MakeDirectory(const std::string& inWanted) {
  if (!inWanted.empty()) {
    std::filesystem::create_directories(inWanted);
    std::filesystem::remove_all(inWanted + "/runtime");
    return std::filesystem::absolute(inWanted).string();
  }
  const char* temporary = std::getenv("TMPDIR");
  std::string pattern =
      std::string(temporary != nullptr ? temporary : "/tmp") + "/tembra-hello-XXXXXX";
  if (mkdtemp(pattern.data()) == nullptr) throw Failure("cannot make the directory " + pattern);
  return pattern;
}

std::string Decimal(double inValue, int inDigits) {
  char text[64];
  std::snprintf(text, sizeof text, "%.*f", inDigits, inValue);
  return text;
}

std::string LateSilence(const Comparison& inResult) {
  if (inResult.lateSilence == 0) return {};
  return "; with " + std::to_string(inResult.lateSilence) + " frames of silence for late wake-ups";
}

void Hello(const std::string& inFile, const std::string& inDirectory) {
  const std::string directory = MakeDirectory(inDirectory);
  const std::string recording = directory + "/recording.wav";
  const std::string blocks = directory + "/blocks.csv";
  ServerProcess server(directory, {"--record", recording, "--block-log", blocks, "--stats",
                                   directory + "/server.json", "--json"});
  Report("server of its own", true, "pid " + std::to_string(server.Pid()));

  const AudioObjectID device = FindDevice(kDeviceUID);
  const auto global = kAudioObjectPropertyScopeGlobal;
  const auto format = GetValue<AudioStreamBasicDescription>(
      device, {kAudioDevicePropertyStreamFormat, kAudioObjectPropertyScopeOutput, 0});
  const auto frames = GetValue<UInt32>(device, {kAudioDevicePropertyBufferFrameSize, global, 0});
  Report("device \"" + GetText(device, {kAudioObjectPropertyName, global, 0}) + "\"", true,
         "float " + Decimal(format.mSampleRate, 0) + " Hz " +
             std::to_string(format.mChannelsPerFrame) + " ch, " + std::to_string(frames) +
             " frames");

  SoundStream stream(inFile, format.mSampleRate, format.mChannelsPerFrame);
  RenderLog log(stream.ExpectedFrames() + static_cast<std::uint64_t>(format.mSampleRate * 10),
                frames, format.mChannelsPerFrame);
  ServerLink link;
  {
    Player player(device, stream, &log);
    stream.WaitUntilPrimed();
    player.Start();
    const bool admitted = link.WaitUntilAdmitted(kAdmissionSeconds);
    Report("admitted by the server", admitted, "its notification \"cadd\"");
    if (!admitted) throw Failure("the server did not let this process in");
    player.Play();
    while (!player.Done()) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    const std::string scheduling = player.SchedulingMode();
    player.Stop();
    Report("I/O thread", true, "scheduling: " + scheduling);
    Report("playing " + std::filesystem::path(inFile).filename().string(),
           player.Underruns() == 0 && log.Dropped() == 0,
           std::to_string(player.FramesPlayed()) + " frames in " + std::to_string(player.Cycles()) +
               " cycles, " + std::to_string(player.Underruns()) + " underruns");
  }
  if (const std::string error = stream.Error(); !error.empty()) {
    throw Failure(inFile + " broke off: " + error);
  }
  server.Finish();
  log.WriteSound(directory + "/rendered.wav", format.mSampleRate);
  log.WriteCycles(directory + "/rendered.csv");

  const Comparison result = Compare(log, format.mSampleRate, ReadBlockLog(blocks, getpid()),
                                    ReadSound(recording, format.mChannelsPerFrame));
  Report("sent", result.blocksSent > 0,
         std::to_string(result.blocksSent) + " blocks, " + std::to_string(result.framesSent) +
             " frames; silent cycles are not sent");
  Report("received", result.blocksLost == 0,
         std::to_string(result.blocksReceived) + " blocks, " +
             std::to_string(result.framesReceived) + " frames, " +
             std::to_string(result.blocksLost) + " lost, " + std::to_string(result.blocksLate) +
             " late");
  Report("delay, procedure to server", true,
         Decimal(result.delayMedian, 3) + " ms median, " + Decimal(result.delayP99, 3) +
             " ms p99, over one buffer of " + Decimal(frames / format.mSampleRate * 1e3, 1) +
             " ms");
  Report("recording equals what was rendered", result.equal,
         result.equal ? "sample for sample" + LateSilence(result) : result.difference);
  std::printf("  bit-exact: %s\n  recording: %s\n", result.equal ? "yes" : "no", recording.c_str());
  if (!result.equal) throw Failure("what arrived is not what was played");
}

}  // namespace

void AddHelloCommand(CLI::App& ioProgram) {
  struct Arguments {
    std::string file = "/usr/share/sounds/alsa/Front_Center.wav";
    std::string directory;
  };
  auto arguments = std::make_shared<Arguments>();
  CLI::App* hello = ioProgram.add_subcommand(
      "hello",
      "play a sound through the device to a server of its own, and prove that what "
      "arrived is what was played");
  hello->add_option("file", arguments->file, "any sound file that libsndfile reads")
      ->capture_default_str();
  hello->add_option("--dir", arguments->directory,
                    "where the recording and the logs are left; a new one below /tmp without it");
  hello->callback([arguments] { Hello(arguments->file, arguments->directory); });
}

}  // namespace tembra::tools
