#pragma once

#include <sndfile.h>

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/Comparison.h"
#include "tools/RenderLog.h"

namespace tembra::test {

// Writes interleaved samples as 32-bit float WAV for a player to play. Throws std::runtime_error.
inline void WriteFloatSound(const std::string& inPath, int inRate, int inChannels,
                            const std::vector<float>& inSamples) {
  SF_INFO info{};
  info.samplerate = inRate;
  info.channels = inChannels;
  info.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
  SNDFILE* file = sf_open(inPath.c_str(), SFM_WRITE, &info);
  if (file == nullptr) throw std::runtime_error("cannot make " + inPath);
  const auto count = static_cast<sf_count_t>(inSamples.size());
  const bool whole = sf_write_float(file, inSamples.data(), count) == count;
  if (sf_close(file) != 0 || !whole) throw std::runtime_error("cannot write " + inPath);
}

// What a player rendered from a cycle on, from the two files that it left.
inline tools::RenderLog ReadRenderLog(const std::string& inPrefix, std::uint32_t inChannels,
                                      std::size_t inFirstCycle = 0) {
  const std::vector<float> samples = tools::ReadSound(inPrefix + ".wav", inChannels);
  tools::RenderLog log(samples.size() / inChannels, 1, inChannels);
  std::ifstream lines(inPrefix + ".csv");
  std::string line;
  std::getline(lines, line);
  std::size_t at = 0;
  for (std::size_t cycle = 0; std::getline(lines, line); ++cycle) {
    std::istringstream fields(line);
    double sampleTime = 0;
    std::uint64_t returnTime = 0;
    std::uint32_t frames = 0;
    int silent = 0;
    char comma = 0;
    fields >> sampleTime >> comma >> returnTime >> comma >> frames >> comma >> silent;
    if (cycle >= inFirstCycle) {
      log.Append(sampleTime, returnTime, samples.data() + at, frames, silent != 0);
    }
    at += std::size_t{frames} * inChannels;
  }
  return log;
}

}  // namespace tembra::test
