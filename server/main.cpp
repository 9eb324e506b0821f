#include <pthread.h>
#include <signal.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <thread>

#include "server/RecordingFile.h"
#include "server/Server.h"
#include "server/Threads.h"

namespace {

using tembra::Options;

constexpr const char* kFooter =
    "Exit status: 0 ended by a signal or --duration; 1 something failed, told on standard error;\n"
    "2 wrong usage; 5 another audio server of this user is running.\n"
    "SIGINT and SIGTERM end the server: clients are told, what is on its way is taken in, files\n"
    "are completed.\n"
    "A server of root's tells the programs of all users, in /var/run/tmbipc, that sound is "
    "allowed,\n"
    "and takes that back at its end; see `tmbaudio default`.\n"
    "\n"
    "Examples:\n"
    "  tmbasrv --record take.wav            record the mix of all that plays\n"
    "  tmbasrv --record-dir takes --meter   a file for each client, with level meters\n"
    "  tmbasrv --play                       hear it through the default ALSA device\n"
    "  tmbasrv --stdout | aplay -t raw -f FLOAT_LE -r 44100 -c 2\n"
    "  tmbasrv --stats - --json             statistics for a program, one object a line";

void Describe(CLI::App& ioApp, Options& outOptions, std::string& outPlay) {
  ioApp.footer(kFooter);
  ioApp.set_version_flag("--version", "tmbasrv 0.1.0");
  ioApp
      .add_option("--record", outOptions.mRecord,
                  "Record the mix to FILE: .wav holds 32-bit float, .flac 24 bits")
      ->type_name("FILE");
  ioApp
      .add_option("--record-dir", outOptions.mRecordDir,
                  "Record each client to a file of its own in DIR, client-PID-N.wav")
      ->type_name("DIR");
  ioApp
      .add_option("--record-format", outOptions.mRecordFormat, "Kind of the files in --record-dir")
      ->check(CLI::IsMember({"wav", "flac"}))
      ->capture_default_str();
  ioApp
      .add_option("--play", outPlay,
                  "Play the mix through an ALSA device ('default' if none is named)")
      ->type_name("PCM")
      ->expected(0, 1)
      ->default_str("default");
  ioApp.add_flag("--stdout", outOptions.mToStandardOutput,
                 "Write the mix to standard output: raw interleaved 32-bit float, little-endian");
  ioApp.add_option("--rate", outOptions.mRate, "Sample rate of the mix in Hz")
      ->check(CLI::Range(8000.0, 192000.0))
      ->capture_default_str();
  ioApp.add_option("--channels", outOptions.mChannels, "Channels of the mix")
      ->check(CLI::Range(1, 8))
      ->capture_default_str();
  ioApp
      .add_option("--latency", outOptions.mLatency,
                  "Seconds of sound that playback and standard output may hold; older sound is "
                  "left out")
      ->check(CLI::Range(0.02, 5.0))
      ->capture_default_str();
  ioApp
      .add_option("--mix-delay", outOptions.mMixDelay,
                  "Seconds that a recorded mix waits for a client that sends nothing")
      ->check(CLI::Range(0.0, 10.0))
      ->capture_default_str();
  ioApp
      .add_option("--max-gap", outOptions.mMaxGap,
                  "Longest silence in seconds put where a client sent nothing; after a longer one "
                  "its sound goes on at once")
      ->check(CLI::Range(0.0, 86400.0))
      ->capture_default_str();
  ioApp
      .add_option("--stats", outOptions.mStatistics,
                  "Write statistics to FILE, replaced whole each time, or to standard output for "
                  "'-'")
      ->type_name("FILE");
  ioApp.add_flag("--json", outOptions.mJSON,
                 "Statistics as JSON; without --stats they go to standard output");
  ioApp.add_option("--interval", outOptions.mInterval, "Seconds between statistics")
      ->check(CLI::Range(0.1, 3600.0))
      ->capture_default_str();
  ioApp.add_flag("--meter", outOptions.mMeter, "Show level meters on standard error");
  ioApp
      .add_option("--block-log", outOptions.mBlockLog,
                  "Write a line to FILE for each block received: pid, sample time, host time in "
                  "the block, host time of receipt (ns), frames")
      ->type_name("FILE");
  ioApp
      .add_option("--check-interval", outOptions.mCheckInterval,
                  "Seconds after which a client that sends nothing is asked whether it lives; "
                  "three times as long without an answer and it is dropped")
      ->check(CLI::Range(0.1, 3600.0))
      ->capture_default_str();
  ioApp.add_option("--duration", outOptions.mDuration, "End after so many seconds")
      ->check(CLI::PositiveNumber);
  ioApp
      .add_option("--ready-fd", outOptions.mReadyDescriptor,
                  "Write 'ready' and a newline to this descriptor when clients can come, and "
                  "close it")
      ->check(CLI::Range(0, 65535))
      ->type_name("N");
  ioApp.add_flag("--private", outOptions.mPrivate,
                 "Leave /var/run/tmbipc alone: do not tell the machine's programs of this server, "
                 "which a server of root's does");
  ioApp.add_flag("-q,--quiet", outOptions.mQuiet, "No messages but errors");
}

// What the options' own checks cannot see; empty if all is well.
std::string FindContradiction(const Options& inOptions) {
  if (inOptions.mToStandardOutput && inOptions.mStatistics == "-") {
    return "--stdout and statistics on standard output cannot both be; give --stats a file";
  }
  if (!inOptions.mRecord.empty() && !tembra::IsRecordingName(inOptions.mRecord)) {
    return "--record: '" + inOptions.mRecord + "' must end in .wav or .flac";
  }
  return {};
}

int Serve(int argc, char** argv) {
  Options options;
  std::string play;
  CLI::App app{
      "The audio server of one user: receives what programs play on the device "
      "\"Tembra Audio\", records it, plays it, measures it.",
      "tmbasrv"};
  Describe(app, options, play);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? tembra::kExitOk : tembra::kExitUsage;
  }
  if (app.count("--play") > 0) options.mPlay = play.empty() ? "default" : play;
  if (options.mJSON && options.mStatistics.empty()) options.mStatistics = "-";
  const std::string contradiction = FindContradiction(options);
  if (!contradiction.empty()) {
    std::fprintf(stderr, "tmbasrv: %s\nRun with --help for more information.\n",
                 contradiction.c_str());
    return tembra::kExitUsage;
  }

  // Before any other thread is there, so that all of them leave these signals to the waiting one.
  sigset_t ends;
  sigemptyset(&ends);
  sigaddset(&ends, SIGINT);
  sigaddset(&ends, SIGTERM);
  sigaddset(&ends, SIGHUP);
  pthread_sigmask(SIG_BLOCK, &ends, nullptr);
  signal(SIGPIPE, SIG_IGN);
  // Asks a server to read its configuration again; this one has none.
  signal(SIGUSR2, SIG_IGN);

  tembra::Server server(options);
  std::thread waiter = tembra::StartThread("tembra.signals", [&server, ends] {
    int signal = 0;
    if (sigwait(&ends, &signal) == 0) server.Stop();
  });
  const int status = server.Run();
  // Ends the wait if no signal did.
  pthread_kill(waiter.native_handle(), SIGHUP);
  waiter.join();
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Serve(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "tmbasrv: %s\n", error.what());
    return tembra::kExitFailed;
  }
}
