#include "tools/RenderLog.h"

#include <sndfile.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "tools/Exit.h"

namespace tembra::tools {

RenderLog::RenderLog(std::uint64_t inMaxFrames, std::uint32_t inMinCycleFrames,
                     std::uint32_t inChannels)
    : mChannels(inChannels) {
  mSamples.reserve(inMaxFrames * inChannels);
  mCycles.reserve(inMaxFrames / inMinCycleFrames + 1);
}

void RenderLog::Append(double inSampleTime, std::uint64_t inReturnTime, const float* inSamples,
                       std::uint32_t inFrames, bool inSilent) noexcept {
  const std::size_t samples = std::size_t{inFrames} * mChannels;
  if (mCycles.size() == mCycles.capacity() || mSamples.capacity() - mSamples.size() < samples) {
    ++mDropped;
    return;
  }
  mCycles.push_back({inSampleTime, inReturnTime, inFrames, inSilent, mSamples.size()});
  mSamples.insert(mSamples.end(), inSamples, inSamples + samples);
}

void RenderLog::WriteSound(const std::string& inPath, double inRate) const {
  SF_INFO info{};
  info.samplerate = static_cast<int>(inRate);
  info.channels = static_cast<int>(mChannels);
  info.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
  SNDFILE* file = sf_open(inPath.c_str(), SFM_WRITE, &info);
  if (file == nullptr) throw Failure("cannot write " + inPath + ": " + sf_strerror(nullptr));
  const auto frames = static_cast<sf_count_t>(mSamples.size() / mChannels);
  const bool whole = sf_writef_float(file, mSamples.data(), frames) == frames;
  if (sf_close(file) != 0 || !whole) throw Failure("cannot write all of " + inPath);
}

void RenderLog::WriteCycles(const std::string& inPath) const {
  std::FILE* file = std::fopen(inPath.c_str(), "we");
  if (file == nullptr) {
    throw Failure("cannot write " + inPath + ": " + std::string(strerrordesc_np(errno)));
  }
  std::fprintf(file, "sample_time,return_time,frames,silent\n");
  for (const Cycle& cycle : mCycles) {
    std::fprintf(file, "%.17g,%llu,%u,%d\n", cycle.sampleTime,
                 static_cast<unsigned long long>(cycle.returnTime), cycle.frames,
                 cycle.silent ? 1 : 0);
  }
  const bool failed = std::ferror(file) != 0;
  if (std::fclose(file) != 0 || failed) throw Failure("cannot write all of " + inPath);
}

}  // namespace tembra::tools
