#pragma once

#include <CoreAudio/CoreAudioTypes.h>
#include <CoreFoundation/CFMessagePortPriv.h>

#include <array>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "server/BlockValidator.h"

namespace tembra {

// One client as statistics show it, at one moment.
struct ClientReport {
  UInt64 mSession = 0;
  SInt32 mPID = 0;
  std::string mState;
  std::string mRecording;  // its file, or empty
  double mRate = 0.0;
  UInt32 mChannels = 0;
  UInt64 mBlocks = 0;
  UInt64 mFrames = 0;
  UInt64 mBytes = 0;
  UInt64 mGaps = 0;
  UInt64 mSilenceFrames = 0;
  UInt64 mResets = 0;
  double mSurplusFrames = 0.0;
  UInt64 mLate = 0;
  UInt64 mLost = 0;
  std::array<UInt64, kBlockVerdicts> mRejected{};
  CFMessagePortStatistics mPort{};  // its data port
  // Receipt less the block's host time; below 0 the block came before it was due.
  UInt64 mDelays = 0;
  SInt64 mDelayMedian = 0;
  SInt64 mDelayP99 = 0;
  SInt64 mDelayMax = 0;
  // Receipt less the start of the cycle that rendered the block, a buffer before it was due.
  SInt64 mSinceCycleMedian = 0;
  SInt64 mSinceCycleP99 = 0;
  bool mHasLevels = false;
  float mPeak = 0.0f;
  float mRecentPeak = 0.0f;
  double mRootMeanSquare = 0.0;

  UInt64 GetRejected() const;
};

// The server as statistics show it.
struct ServerReport {
  UInt32 mUID = 0;
  SInt32 mPID = 0;
  double mUptime = 0.0;  // seconds
  bool mFinal = false;
  UInt64 mClientsSeen = 0;
  UInt64 mClientsRefused = 0;
  UInt64 mClientsDropped = 0;  // found dead or silent
  UInt64 mMessages = 0;        // on the listener port
  UInt64 mBadMessages = 0;     // of these, refused
  CFMessagePortStatistics mListener{};
  UInt64 mMixFrames = 0;
  UInt64 mMixMoved = 0;
  UInt64 mWriterLostFrames = 0;
  UInt64 mLiveDroppedFrames = 0;
  std::vector<ClientReport> mClients;  // those that are there
  std::vector<ClientReport> mEnded;    // the latest that have gone
};

nlohmann::json MakeJSON(const ServerReport& inReport);
// Lines for people, each ended.
std::string MakeText(const ServerReport& inReport);
// One line with a bar for each client.
std::string MakeMeterLine(const ServerReport& inReport);
// "-12.3 dB", "-inf dB" for 0. The point is a point in every locale.
std::string MakeDecibels(double inAmplitude);

}  // namespace tembra
