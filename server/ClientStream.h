#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <string>
#include <vector>

#include "client/TMBAudioClientInfo.h"
#include "server/BlockValidator.h"
#include "server/DelayReservoir.h"
#include "server/LevelMeter.h"
#include "server/Outputs.h"
#include "server/Statistics.h"
#include "server/Timeline.h"

namespace tembra {

// The audio of one client: each block is checked, put on the client's timeline, counted and handed
// on. Samples are only looked at if an output or the level meter wants them.
//
// Thread: the server's loop. Ownership: the outputs are not owned and outlive the stream.
// Units: frames; nanoseconds of the host clock. Failure: a block that is refused is counted.
class ClientStream {
 public:
  // The client's format was found good.
  ClientStream(uint64_t inSession, const TMBAudioClientInfo& inInfo, Outputs& inOutputs,
               bool inWantsLevels, double inMaxGapSeconds);
  ~ClientStream();
  ClientStream(const ClientStream&) = delete;
  ClientStream& operator=(const ClientStream&) = delete;

  BlockVerdict Accept(CFDataRef inBlock, uint64_t inNow);
  void CountRejected(BlockVerdict inVerdict) { ++mRejected[static_cast<size_t>(inVerdict)]; }
  // Ends its files and its part in the mix.
  void Finish(uint64_t inNow);

  const TMBAudioClientInfo& GetInfo() const { return mInfo; }
  uint64_t GetBlocks() const { return mBlocks; }
  // Fills in what it knows; the recent peak starts anew.
  void Report(ClientReport& outReport);

 private:
  void HandOn(CFDataRef inBlock, const BlockShape& inShape, const TimelineStep& inStep,
              uint64_t inNow);

  const uint64_t mSession;
  const TMBAudioClientInfo mInfo;
  const AudioStreamBasicDescription mFormat;
  Outputs& mOutputs;
  const bool mWantsLevels;
  bool mFinished = false;
  BlockValidator mValidator;
  Timeline mTimeline;
  DelayReservoir mDelays;
  DelayReservoir mSinceCycle;
  LevelMeter mLevels;
  std::vector<float> mFrames;
  std::string mRecording;
  uint64_t mBlocks = 0;
  uint64_t mFrameCount = 0;
  uint64_t mBytes = 0;
  uint64_t mLate = 0;
  uint64_t mLost = 0;
  std::array<UInt64, kBlockVerdicts> mRejected{};
};

}  // namespace tembra
