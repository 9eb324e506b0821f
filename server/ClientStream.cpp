#include "server/ClientStream.h"

#include <algorithm>
#include <cmath>

#include "client/Snd.h"

namespace tembra {

namespace {

// Times from another process may be anything; what lies further apart than this is cut.
constexpr uint64_t kMaxDelay = 3600ull * 1000000000ull;

int64_t Difference(uint64_t inLater, uint64_t inEarlier) {
  if (inLater >= inEarlier) return static_cast<int64_t>(std::min(inLater - inEarlier, kMaxDelay));
  return -static_cast<int64_t>(std::min(inEarlier - inLater, kMaxDelay));
}

}  // namespace

ClientStream::ClientStream(uint64_t inSession, const TMBAudioClientInfo& inInfo, Outputs& inOutputs,
                           bool inWantsLevels, double inMaxGapSeconds)
    : mSession(inSession),
      mInfo(inInfo),
      mFormat(inInfo.GetStreamDescription()),
      mOutputs(inOutputs),
      mWantsLevels(inWantsLevels),
      mValidator(mFormat.mChannelsPerFrame),
      mTimeline(static_cast<uint64_t>(inMaxGapSeconds * mFormat.mSampleRate)) {
  mOutputs.BeginClient(mSession, mInfo.GetClientPID(), mFormat.mSampleRate,
                       mFormat.mChannelsPerFrame, mRecording);
}

ClientStream::~ClientStream() {
  Finish(0);
}

void ClientStream::Finish(uint64_t inNow) {
  if (mFinished) return;
  mFinished = true;
  mOutputs.EndClient(mSession, inNow);
}

BlockVerdict ClientStream::Accept(CFDataRef inBlock, uint64_t inNow) {
  BlockShape shape;
  const auto size = static_cast<size_t>(CFDataGetLength(inBlock));
  const BlockVerdict verdict = mValidator.Check(CFDataGetBytePtr(inBlock), size, shape);
  if (verdict != BlockVerdict::kOk) {
    CountRejected(verdict);
    return verdict;
  }
  const TimelineStep step = mTimeline.Accept(shape.mSampleTime, shape.mFrames);
  ++mBlocks;
  mFrameCount += shape.mFrames;
  mBytes += size;
  if (shape.mHostTime != 0) {
    const int64_t delay = Difference(inNow, shape.mHostTime);
    if (delay > 0) ++mLate;
    mDelays.Add(delay);
    mSinceCycle.Add(delay + std::llround(shape.mFrames * 1e9 / mFormat.mSampleRate));
  }
  mOutputs.Log(mInfo.GetClientPID(), shape.mSampleTime, shape.mHostTime, inNow, shape.mFrames);
  if (mWantsLevels || mOutputs.WantsSamples()) HandOn(inBlock, shape, step, inNow);
  return verdict;
}

void ClientStream::HandOn(CFDataRef inBlock, const BlockShape& inShape, const TimelineStep& inStep,
                          uint64_t inNow) {
  AudioTimeStamp time;
  AudioBufferList* list = CFDataCopyABL(inBlock, &time, false);
  if (list == nullptr) return;
  const UInt32 channels = mFormat.mChannelsPerFrame;
  mFrames.resize(size_t{inShape.mFrames} * channels);
  InterleaveList(*list, channels, inShape.mFrames, mFrames.data());
  SndFreeABLPointer(list, false);

  if (mWantsLevels) {
    mLevels.AddSilence(inStep.mSilence * channels);
    mLevels.Add(mFrames.data(), mFrames.size());
  }
  const uint64_t hostTime = inShape.mHostTime != 0 ? inShape.mHostTime : inNow;
  if (inStep.mStart) mOutputs.Place(mSession, hostTime, inNow);
  if (!mOutputs.Put(mSession, inStep.mSilence, mFrames.data(), channels, inShape.mFrames, hostTime,
                    inNow)) {
    ++mLost;
  }
}

void ClientStream::Report(ClientReport& outReport) {
  outReport.mSession = mSession;
  outReport.mPID = mInfo.GetClientPID();
  outReport.mRecording = mRecording;
  outReport.mRate = mFormat.mSampleRate;
  outReport.mChannels = mFormat.mChannelsPerFrame;
  outReport.mBlocks = mBlocks;
  outReport.mFrames = mFrameCount;
  outReport.mBytes = mBytes;
  outReport.mGaps = mTimeline.GetGaps();
  outReport.mSilenceFrames = mTimeline.GetSilenceFrames();
  outReport.mResets = mTimeline.GetResets();
  outReport.mSurplusFrames = mTimeline.GetSurplusFrames();
  outReport.mLate = mLate;
  outReport.mLost = mLost;
  outReport.mRejected = mRejected;
  outReport.mDelays = mDelays.GetCount();
  outReport.mDelayMedian = mDelays.GetQuantile(0.5);
  outReport.mDelayP99 = mDelays.GetQuantile(0.99);
  outReport.mDelayMax = mDelays.GetLargest();
  outReport.mSinceCycleMedian = mSinceCycle.GetQuantile(0.5);
  outReport.mSinceCycleP99 = mSinceCycle.GetQuantile(0.99);
  outReport.mHasLevels = mWantsLevels;
  outReport.mPeak = mLevels.GetPeak();
  outReport.mRecentPeak = mLevels.TakeRecentPeak();
  outReport.mRootMeanSquare = mLevels.GetRootMeanSquare();
}

}  // namespace tembra
