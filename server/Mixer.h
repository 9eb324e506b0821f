#pragma once

#include <CoreAudio/CoreAudioTypes.h>

#include <cstdint>
#include <functional>
#include <map>
#include <vector>

namespace tembra {

struct MixerSettings {
  double mRate = 44100.0;
  UInt32 mChannels = 2;
  // How long the mix waits for a stream that has sent before and now does not.
  uint64_t mHoldback = 2000000000;
  // For what plays as it comes: silence in which nothing played is left out, since it has passed
  // at the listener already.
  bool mSkipIdle = false;
  // The longest silence put between streams.
  uint64_t mMaxGapFrames = uint64_t{60} * 44100;
};

// Sums streams into one of interleaved float frames. A stream that begins is placed by its host
// time against what plays then; from there on its frames follow each other. The mix gives out
// frames as soon as every stream that is sending has passed them.
//
// No frame is dropped: one that comes too late for its place moves to the first place still open,
// and the stream with it. One stream alone comes out as it went in, bit for bit; where streams
// meet, a sample that is not finite counts as 0.
//
// Thread: one; the output is called on it. Units: frames, nanoseconds of the host clock.
class Mixer {
 public:
  using Output = std::function<void(const float* inFrames, UInt32 inCount)>;
  using StreamID = uint64_t;

  Mixer(const MixerSettings& inSettings, Output inOutput);

  // Places a stream, also one that is there already and starts anew.
  void Begin(StreamID inStream, uint64_t inHostTime, uint64_t inNow);
  // inSilence frames, then inCount frames of inChannels channels each. A mono stream goes to all
  // channels; channels beyond the mix's are left out.
  void Add(StreamID inStream, uint64_t inSilence, const float* inFrames, UInt32 inChannels,
           UInt32 inCount, uint64_t inHostTime, uint64_t inNow);
  void End(StreamID inStream, uint64_t inNow);
  // Gives out what no longer waits for anybody.
  void Advance(uint64_t inNow);
  // Gives out everything.
  void Finish();

  uint64_t GetFrames() const { return mEmitted; }
  uint64_t GetMoved() const { return mMoved; }

 private:
  struct Stream {
    uint64_t mNext = 0;  // place of its next frame
    uint64_t mLastArrival = 0;
  };

  uint64_t GetEnd() const { return mEmitted + mPending.size() / mSettings.mChannels; }
  void EmitUntil(uint64_t inPosition);
  void EmitSilence(uint64_t inFrames);
  void Sum(uint64_t inPosition, const float* inFrames, UInt32 inChannels, UInt32 inCount);

  MixerSettings mSettings;
  Output mOutput;
  std::map<StreamID, Stream> mStreams;
  std::vector<float> mPending;  // the frames from mEmitted on
  uint64_t mEmitted = 0;
  uint64_t mMoved = 0;
  // The place of the latest block and its host time: where "now" is in the mix.
  bool mHasReference = false;
  uint64_t mReferenceHost = 0;
  uint64_t mReferencePosition = 0;
};

}  // namespace tembra
