#include "server/Mixer.h"

#include <algorithm>
#include <cmath>

namespace tembra {

namespace {

// The most that waits for a slow stream.
constexpr uint64_t kMaxPendingSeconds = 10;

float Finite(float inSample) {
  return std::fabs(inSample) <= 3.4028235e38f ? inSample : 0.0f;
}

}  // namespace

Mixer::Mixer(const MixerSettings& inSettings, Output inOutput)
    : mSettings(inSettings), mOutput(std::move(inOutput)) {}

void Mixer::Begin(StreamID inStream, uint64_t inHostTime, uint64_t inNow) {
  uint64_t position = mEmitted;
  if (mHasReference && inHostTime > mReferenceHost) {
    const double ahead = static_cast<double>(inHostTime - mReferenceHost) * mSettings.mRate * 1e-9;
    const double bound = static_cast<double>(mSettings.mMaxGapFrames);
    position = mReferencePosition + static_cast<uint64_t>(std::llround(std::min(ahead, bound)));
  } else if (mHasReference) {
    const double behind = static_cast<double>(mReferenceHost - inHostTime) * mSettings.mRate * 1e-9;
    const double bound = static_cast<double>(mReferencePosition);
    position = mReferencePosition - static_cast<uint64_t>(std::llround(std::min(behind, bound)));
  }
  mStreams[inStream] = {std::max(position, mEmitted), inNow};
}

void Mixer::Add(StreamID inStream, uint64_t inSilence, const float* inFrames, UInt32 inChannels,
                UInt32 inCount, uint64_t inHostTime, uint64_t inNow) {
  auto found = mStreams.find(inStream);
  if (found == mStreams.end()) return;
  Stream& stream = found->second;
  uint64_t position = stream.mNext + inSilence;
  if (position < mEmitted) {
    position = mEmitted;
    ++mMoved;
  }
  if (mSettings.mSkipIdle && mPending.empty()) position = mEmitted;
  const uint64_t maxPending = kMaxPendingSeconds * static_cast<uint64_t>(mSettings.mRate);
  if (position + inCount > mEmitted + maxPending) EmitUntil(position + inCount - maxPending);

  Sum(position, inFrames, inChannels, inCount);
  stream.mNext = position + inCount;
  stream.mLastArrival = inNow;
  mHasReference = true;
  mReferenceHost = inHostTime;
  mReferencePosition = position;
  Advance(inNow);
}

void Mixer::End(StreamID inStream, uint64_t inNow) {
  mStreams.erase(inStream);
  Advance(inNow);
}

void Mixer::Advance(uint64_t inNow) {
  uint64_t horizon = GetEnd();
  for (const auto& [id, stream] : mStreams) {
    const bool waitedFor =
        inNow < stream.mLastArrival || inNow - stream.mLastArrival < mSettings.mHoldback;
    if (waitedFor) horizon = std::min(horizon, stream.mNext);
  }
  EmitUntil(horizon);
}

void Mixer::Finish() {
  EmitUntil(GetEnd());
}

void Mixer::EmitUntil(uint64_t inPosition) {
  if (inPosition <= mEmitted) return;
  const uint64_t there = std::min(inPosition, GetEnd()) - mEmitted;
  if (there > 0) {
    mOutput(mPending.data(), static_cast<UInt32>(there));
    mEmitted += there;
    mPending.erase(mPending.begin(),
                   mPending.begin() + static_cast<ptrdiff_t>(there * mSettings.mChannels));
  }
  if (mEmitted < inPosition) EmitSilence(inPosition - mEmitted);
}

void Mixer::EmitSilence(uint64_t inFrames) {
  constexpr uint64_t kChunk = 4096;
  const std::vector<float> silence(kChunk * mSettings.mChannels, 0.0f);
  while (inFrames > 0) {
    const uint64_t count = std::min(inFrames, kChunk);
    mOutput(silence.data(), static_cast<UInt32>(count));
    mEmitted += count;
    inFrames -= count;
  }
}

void Mixer::Sum(uint64_t inPosition, const float* inFrames, UInt32 inChannels, UInt32 inCount) {
  const UInt32 channels = mSettings.mChannels;
  const uint64_t start = inPosition - mEmitted;
  const uint64_t occupied = mPending.size() / channels;
  if (start + inCount > occupied) mPending.resize((start + inCount) * channels, 0.0f);

  for (UInt32 frame = 0; frame < inCount; ++frame) {
    float* target = mPending.data() + (start + frame) * channels;
    const float* source = inFrames + size_t{frame} * inChannels;
    const bool alone = start + frame >= occupied;
    for (UInt32 channel = 0; channel < channels; ++channel) {
      float sample = 0.0f;
      if (inChannels == 1) {
        sample = source[0];
      } else if (channel < inChannels) {
        sample = source[channel];
      }
      // Adding to nothing would turn a negative zero into a positive one.
      target[channel] = alone ? sample : Finite(target[channel]) + Finite(sample);
    }
  }
}

}  // namespace tembra
