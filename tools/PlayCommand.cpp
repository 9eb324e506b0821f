#include <CoreAudio/AudioHardware.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "tools/Commands.h"
#include "tools/Devices.h"
#include "tools/Player.h"
#include "tools/ServerLink.h"

namespace tembra::tools {

namespace {

volatile sig_atomic_t sInterrupted = 0;

void Interrupted(int) {
  sInterrupted = 1;
}

struct PlayArguments {
  std::string file;
  std::string device;
  std::string renderedSound;
  std::string renderedCycles;
  std::uint32_t bufferFrames = 0;
  bool quiet = false;
  bool needServer = false;
};

// A server that is there lets a client in within milliseconds; one that does not is not waited for.
constexpr double kAdmissionSeconds = 0.5;

void ShowProgress(const Player& inPlayer, const SoundStream& inStream, bool inLast) {
  const double at = static_cast<double>(inPlayer.FramesPlayed()) / inStream.Rate();
  std::fprintf(stderr, "\r%6.1f s", at);
  if (inStream.DurationSeconds() > 0)
    std::fprintf(stderr, " of %.1f s", inStream.DurationSeconds());
  if (inLast) std::fputc('\n', stderr);
  std::fflush(stderr);
}

void Play(const PlayArguments& inArguments) {
  const AudioObjectID device = FindDevice(inArguments.device);
  const AudioObjectPropertyScope global = kAudioObjectPropertyScopeGlobal;
  if (inArguments.bufferFrames != 0) {
    const AudioObjectPropertyAddress address{kAudioDevicePropertyBufferFrameSize, global, 0};
    const UInt32 frames = inArguments.bufferFrames;
    Check(AudioObjectSetPropertyData(device, &address, 0, nullptr, sizeof frames, &frames),
          "the device takes no buffer of " + std::to_string(frames) + " frames");
  }
  const auto frames = GetValue<UInt32>(device, {kAudioDevicePropertyBufferFrameSize, global, 0});
  const auto format = GetValue<AudioStreamBasicDescription>(
      device, {kAudioDevicePropertyStreamFormat, kAudioObjectPropertyScopeOutput, 0});

  SoundStream stream(inArguments.file, format.mSampleRate, format.mChannelsPerFrame);
  const bool wantsLog = !inArguments.renderedSound.empty() || !inArguments.renderedCycles.empty();
  std::optional<RenderLog> log;
  if (wantsLog) {
    const auto spare = static_cast<std::uint64_t>(format.mSampleRate * 10);
    log.emplace(stream.ExpectedFrames() + spare, frames, format.mChannelsPerFrame);
  }
  if (!inArguments.quiet) {
    std::fprintf(stderr, "%s: %.0f Hz, %u ch, on \"%s\"\n", inArguments.file.c_str(),
                 stream.FileRate(), stream.FileChannels(),
                 GetText(device, {kAudioObjectPropertyName, global, 0}).c_str());
  }

  ServerLink link;
  const bool server = ServerLink::ServerLives();
  if (!server && inArguments.needServer) {
    throw Failure("no audio server of this user runs; start one: tmbasrv", Exit::kNoServer);
  }
  if (!server && !inArguments.quiet) {
    std::fprintf(stderr, "no audio server runs: playing into silence until one starts\n");
  }

  Player player(device, stream, log ? &*log : nullptr);
  stream.WaitUntilPrimed();
  player.Start();
  if (server) link.WaitUntilAdmitted(kAdmissionSeconds);
  player.Play();

  const bool progress = !inArguments.quiet && isatty(STDERR_FILENO) != 0;
  while (!player.Done() && sInterrupted == 0) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    if (progress) ShowProgress(player, stream, false);
  }
  // The cycle that took the last frame also sends it, before the guard lets Stop in.
  player.Stop();
  if (progress) ShowProgress(player, stream, true);

  if (log && !inArguments.renderedSound.empty()) {
    log->WriteSound(inArguments.renderedSound, format.mSampleRate);
  }
  if (log && !inArguments.renderedCycles.empty()) log->WriteCycles(inArguments.renderedCycles);
  if (log && log->Dropped() != 0) {
    throw Failure(std::to_string(log->Dropped()) + " cycles did not fit the log");
  }
  if (const std::string error = stream.Error(); !error.empty()) {
    throw Failure(inArguments.file + " broke off: " + error);
  }
  if (sInterrupted != 0) throw Failure("interrupted");
  if (!inArguments.quiet) {
    std::fprintf(stderr, "%llu frames in %llu cycles, %llu underruns\n",
                 static_cast<unsigned long long>(player.FramesPlayed()),
                 static_cast<unsigned long long>(player.Cycles()),
                 static_cast<unsigned long long>(player.Underruns()));
  }
}

}  // namespace

void AddPlayCommand(CLI::App& ioProgram) {
  auto arguments = std::make_shared<PlayArguments>();
  CLI::App* play = ioProgram.add_subcommand("play", "play a sound file on a device");
  play->add_option("file", arguments->file, "any sound file that libsndfile reads")->required();
  play->add_option("--device", arguments->device,
                   "number, UID or name; without it the default output device");
  play->add_option("--buffer", arguments->bufferFrames, "frames of a buffer of the device");
  play->add_option("--rendered", arguments->renderedSound,
                   "write what was rendered, the silence before the start included, as WAV");
  play->add_option("--cycles", arguments->renderedCycles, "write a CSV line for each cycle");
  play->add_flag("--need-server", arguments->needServer, "end with status 3 if no server runs");
  play->add_flag("-q,--quiet", arguments->quiet, "say nothing unless it fails");
  play->callback([arguments] {
    struct sigaction action = {};
    action.sa_handler = Interrupted;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    Play(*arguments);
  });
}

}  // namespace tembra::tools
