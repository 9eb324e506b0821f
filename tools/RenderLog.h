#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace tembra::tools {

// What an I/O procedure rendered, cycle by cycle, kept so that it can be held against what a server
// received. All storage is taken at construction: Append neither allocates nor locks.
//
// Thread: Append on the I/O thread only; the rest after the procedure has been stopped.
// Units: sample times in frames, host times in host ticks (nanoseconds on Linux).
// Failure: what does not fit any more is counted in Dropped().
class RenderLog {
 public:
  struct Cycle {
    double sampleTime;         // the output time of the cycle
    std::uint64_t returnTime;  // when the procedure was done
    std::uint32_t frames;
    bool silent;              // every sample was +0.0
    std::size_t firstSample;  // where its samples begin in Samples()
  };

  RenderLog(std::uint64_t inMaxFrames, std::uint32_t inMinCycleFrames, std::uint32_t inChannels);

  void Append(double inSampleTime, std::uint64_t inReturnTime, const float* inSamples,
              std::uint32_t inFrames, bool inSilent) noexcept;

  const std::vector<Cycle>& Cycles() const { return mCycles; }
  const std::vector<float>& Samples() const { return mSamples; }
  std::uint32_t Channels() const { return mChannels; }
  std::uint64_t Dropped() const { return mDropped; }

  // Writes all rendered samples as 32-bit float WAV, and the cycles as CSV lines
  // "sample_time,return_time,frames,silent" under a heading. Both throw Failure.
  void WriteSound(const std::string& inPath, double inRate) const;
  void WriteCycles(const std::string& inPath) const;

 private:
  std::vector<Cycle> mCycles;
  std::vector<float> mSamples;
  std::uint32_t mChannels;
  std::uint64_t mDropped = 0;
};

}  // namespace tembra::tools
