#include "tools/Comparison.h"

#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>

#include "tools/Exit.h"

namespace tembra::tools {

namespace {

// The value below which a share of the sorted values lies, by the nearest rank.
double Percentile(const std::vector<double>& inSorted, double inShare) {
  if (inSorted.empty()) return 0;
  const auto rank =
      static_cast<std::size_t>(std::ceil(inShare * static_cast<double>(inSorted.size())));
  return inSorted[std::clamp<std::size_t>(rank, 1, inSorted.size()) - 1];
}

// Compares bits: a negative zero is no zero.
bool HoldsAt(const std::vector<float>& inRecording, std::size_t inAt, const float* inSamples,
             std::size_t inCount) {
  return inRecording.size() >= inAt && inRecording.size() - inAt >= inCount &&
         (inCount == 0 ||
          std::memcmp(inRecording.data() + inAt, inSamples, inCount * sizeof(float)) == 0);
}

bool HoldsZerosAt(const std::vector<float>& inRecording, std::size_t inAt, std::size_t inCount) {
  const std::vector<float> zeros(inCount, 0.0F);
  return HoldsAt(inRecording, inAt, zeros.data(), inCount);
}

}  // namespace

void CompareRecording(const RenderLog& inLog, const std::vector<float>& inRecording,
                      Comparison& ioResult) {
  const std::uint32_t channels = inLog.Channels();
  const RenderLog::Cycle* previous = nullptr;  // the last sounding one
  std::size_t silentFrames = 0;                // rendered since then
  std::size_t at = 0;
  std::uint64_t number = 0;
  ioResult.equal = false;
  for (const RenderLog::Cycle& cycle : inLog.Cycles()) {
    if (cycle.silent) {
      silentFrames += cycle.frames;
      continue;
    }
    // As much silence as was rendered, or, a buffer at a time, as the time stamps leave room for.
    std::size_t silence = previous == nullptr ? 0 : silentFrames;
    std::size_t mostSilence = silence;
    if (previous != nullptr) {
      const double room = cycle.sampleTime - previous->sampleTime - previous->frames;
      mostSilence = std::max(
          silence, static_cast<std::size_t>(std::max(0.0, std::ceil(room / previous->frames))) *
                       previous->frames);
    }
    const float* samples = inLog.Samples().data() + cycle.firstSample;
    const std::size_t count = std::size_t{cycle.frames} * channels;
    while (!(HoldsZerosAt(inRecording, at, silence * channels) &&
             HoldsAt(inRecording, at + silence * channels, samples, count))) {
      silence += previous == nullptr ? 1 : previous->frames;
      if (silence > mostSilence) {
        ioResult.difference = "sounding block " + std::to_string(number) + ", at frame " +
                              std::to_string(at / channels) +
                              " of the recording, is not what was rendered";
        return;
      }
    }
    ioResult.lateSilence += silence - (previous == nullptr ? 0 : silentFrames);
    at += silence * channels + count;
    previous = &cycle;
    silentFrames = 0;
    ++number;
  }
  if (previous == nullptr) {
    ioResult.difference = "nothing but silence was rendered";
  } else if (at != inRecording.size()) {
    ioResult.difference = "the recording has " + std::to_string(inRecording.size() / channels) +
                          " frames, rendered were " + std::to_string(at / channels);
  } else {
    ioResult.equal = true;
  }
}

Comparison Compare(const RenderLog& inLog, double inRate,
                   const std::vector<ReceivedBlock>& inReceived,
                   const std::vector<float>& inRecording) {
  Comparison result;
  std::map<double, std::uint64_t> receipts;
  for (const ReceivedBlock& block : inReceived)
    receipts.emplace(block.sampleTime, block.receiptTime);

  std::vector<double> delays;
  for (const RenderLog::Cycle& cycle : inLog.Cycles()) {
    if (cycle.silent) continue;
    ++result.blocksSent;
    result.framesSent += cycle.frames;
    const auto receipt = receipts.find(cycle.sampleTime);
    if (receipt == receipts.end()) {
      ++result.blocksLost;
      continue;
    }
    ++result.blocksReceived;
    result.framesReceived += cycle.frames;
    const double delay =
        (static_cast<double>(receipt->second) - static_cast<double>(cycle.returnTime)) / 1e6;
    if (delay > cycle.frames / inRate * 1e3) ++result.blocksLate;
    delays.push_back(delay);
  }
  std::sort(delays.begin(), delays.end());
  result.delayMedian = Percentile(delays, 0.5);
  result.delayP99 = Percentile(delays, 0.99);
  CompareRecording(inLog, inRecording, result);
  return result;
}

std::vector<ReceivedBlock> ReadBlockLog(const std::string& inPath, long inPid) {
  std::ifstream file(inPath);
  if (!file) throw Failure("cannot read the server's block log " + inPath);
  std::vector<ReceivedBlock> blocks;
  std::string line;
  while (std::getline(file, line)) {
    std::istringstream fields(line);
    fields.imbue(std::locale::classic());
    long pid = 0;
    char comma = 0;
    double sampleTime = 0;
    std::uint64_t stampedTime = 0;
    std::uint64_t receiptTime = 0;
    if (fields >> pid >> comma >> sampleTime >> comma >> stampedTime >> comma >> receiptTime &&
        pid == inPid) {
      blocks.push_back({sampleTime, receiptTime});
    }
  }
  return blocks;
}

std::vector<float> ReadSound(const std::string& inPath, std::uint32_t inChannels) {
  SF_INFO info{};
  SNDFILE* file = sf_open(inPath.c_str(), SFM_READ, &info);
  if (file == nullptr) throw Failure("cannot read " + inPath + ": " + sf_strerror(nullptr));
  if (info.channels != static_cast<int>(inChannels)) {
    sf_close(file);
    throw Failure(inPath + " has " + std::to_string(info.channels) + " channels, not " +
                  std::to_string(inChannels));
  }
  std::vector<float> samples(static_cast<std::size_t>(info.frames) * inChannels);
  const sf_count_t frames = sf_readf_float(file, samples.data(), info.frames);
  samples.resize(static_cast<std::size_t>(std::max<sf_count_t>(frames, 0)) * inChannels);
  sf_close(file);
  return samples;
}

}  // namespace tembra::tools
