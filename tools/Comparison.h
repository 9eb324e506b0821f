#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/RenderLog.h"

namespace tembra::tools {

// What a server says of one block that it received.
struct ReceivedBlock {
  double sampleTime;          // the block's own time stamp, frames
  std::uint64_t receiptTime;  // host time of its receipt, nanoseconds
};

// How what a server received compares with what an I/O procedure rendered.
struct Comparison {
  std::uint64_t blocksSent = 0;  // cycles that rendered sound; silent ones are not sent
  std::uint64_t framesSent = 0;
  std::uint64_t blocksReceived = 0;
  std::uint64_t framesReceived = 0;
  std::uint64_t blocksLost = 0;
  std::uint64_t blocksLate = 0;  // received later than one buffer after the procedure's return
  double delayMedian = 0;        // milliseconds, procedure's return to receipt
  double delayP99 = 0;
  bool equal = false;             // the recording is what was rendered, sample for sample
  std::string difference;         // where it is not, for people
  std::uint64_t lateSilence = 0;  // frames; see CompareRecording
};

// Holds a recording against what was rendered from the first sounding cycle to the last, bit for
// bit, the silent cycles between them included. Where the I/O thread overslept, the device's clock
// ran on while nothing was rendered, and a recording by time stamps may show that time as silence:
// that much, in whole buffers and no longer than the time stamps say, is no difference but is
// counted in lateSilence.
void CompareRecording(const RenderLog& inLog, const std::vector<float>& inRecording,
                      Comparison& ioResult);

// Holds both against each other. inRecording is interleaved in the log's number of channels.
Comparison Compare(const RenderLog& inLog, double inRate,
                   const std::vector<ReceivedBlock>& inReceived,
                   const std::vector<float>& inRecording);

// Reads a server's block log: lines of pid, sample time, stamped host time, receipt host time and
// frames, of which those of inPid are taken. Throws Failure.
std::vector<ReceivedBlock> ReadBlockLog(const std::string& inPath, long inPid);

// Reads a sound file whole, interleaved; throws Failure.
std::vector<float> ReadSound(const std::string& inPath, std::uint32_t inChannels);

}  // namespace tembra::tools
