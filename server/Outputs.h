#pragma once

#include <memory>
#include <string>

#include "server/BlockLog.h"
#include "server/FileWriter.h"
#include "server/LiveOutput.h"
#include "server/Mixer.h"
#include "server/Options.h"

namespace tembra {

// All places where audio goes: a file for each client, the recorded mix, the live mix. Without any
// of them the server receives, checks and counts, and never looks at samples.
//
// Thread: the server's loop; the notices may be called on any thread.
// Units: interleaved frames, nanoseconds of the host clock.
// Failure: Open answers false and says why; later failures go to the notices.
class Outputs {
 public:
  using TellFunction = std::function<void(const std::string&)>;
  struct Notices {
    TellFunction mNote;        // something to know
    TellFunction mError;       // an output failed, the others go on
    TellFunction mReaderGone;  // nobody reads the standard output any more
  };

  explicit Outputs(Notices inNotices) : mNotices(std::move(inNotices)) {}
  // Gives out and writes all that is there.
  ~Outputs();
  Outputs(const Outputs&) = delete;
  Outputs& operator=(const Outputs&) = delete;

  bool Open(const Options& inOptions, std::string& outError);
  bool WantsSamples() const { return mWriter != nullptr || mLiveMix != nullptr; }
  // The live mix waits for slow clients only so long; somebody must look.
  bool NeedsFrequentAdvance() const { return mLiveMix != nullptr; }

  // A client's stream begins; outPath takes the name of its file, if it gets one.
  void BeginClient(uint64_t inSession, SInt32 inPID, double inRate, UInt32 inChannels,
                   std::string& outPath);
  // A stretch of the client's timeline begins.
  void Place(uint64_t inSession, uint64_t inHostTime, uint64_t inNow);
  // A block was taken, whether anybody wants its samples or not.
  void Log(SInt32 inPID, double inSampleTime, uint64_t inHostTime, uint64_t inNow,
           UInt32 inFrames) {
    if (mBlockLog) mBlockLog->Add(inPID, inSampleTime, inHostTime, inNow, inFrames);
  }
  // False if the frames were lost for a file.
  bool Put(uint64_t inSession, uint64_t inSilence, const float* inFrames, UInt32 inChannels,
           UInt32 inCount, uint64_t inHostTime, uint64_t inNow);
  void EndClient(uint64_t inSession, uint64_t inNow);
  void Advance(uint64_t inNow);

  uint64_t GetMixFrames() const;
  uint64_t GetMixMoved() const;
  uint64_t GetWriterLostFrames() const { return mWriter ? mWriter->GetLostFrames() : 0; }
  uint64_t GetLiveDroppedFrames();

 private:
  struct Client {
    FileWriter::FileID mFile = 0;
    bool mIsMixed = false;
  };

  Notices mNotices;
  double mRate = 0.0;
  std::string mRecordDir;
  std::string mRecordFormat;
  std::map<uint64_t, Client> mClients;
  std::unique_ptr<BlockLog> mBlockLog;
  std::unique_ptr<FileWriter> mWriter;
  FileWriter::FileID mMixFile = 0;
  bool mMixLost = false;
  std::vector<std::unique_ptr<LiveOutput>> mLive;
  std::unique_ptr<Mixer> mRecordedMix;
  std::unique_ptr<Mixer> mLiveMix;
};

}  // namespace tembra
