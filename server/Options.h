#pragma once

#include <optional>
#include <string>

namespace tembra {

// What the server was told to do. Times are seconds.
struct Options {
  std::string mRecord;     // the mix, .wav or .flac; empty for none
  std::string mRecordDir;  // a file for each client; empty for none
  std::string mRecordFormat = "wav";
  std::optional<std::string> mPlay;  // an ALSA device
  bool mToStandardOutput = false;
  double mRate = 44100.0;   // of the mix
  unsigned mChannels = 2;   // of the mix
  double mLatency = 0.1;    // what live outputs may hold
  double mMixDelay = 2.0;   // how long a recorded mix waits for a client that sends nothing
  double mMaxGap = 60.0;    // the longest silence put for a gap
  std::string mStatistics;  // a file, or "-"; empty for none
  bool mJSON = false;
  bool mMeter = false;
  double mInterval = 1.0;  // between statistics
  std::string mBlockLog;   // a file; empty for none
  bool mQuiet = false;
  double mCheckInterval = 5.0;  // between questions to silent clients
  double mDuration = 0.0;       // 0 for no end
  int mReadyDescriptor = -1;
  bool mPrivate = false;  // the machine's other programs are told nothing
};

// How the server ends.
enum ExitCode {
  kExitOk = 0,
  kExitFailed = 1,
  kExitUsage = 2,
  kExitOtherServer = 5,
};

}  // namespace tembra
