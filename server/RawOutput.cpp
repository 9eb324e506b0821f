#include <errno.h>
#include <poll.h>
#include <string.h>
#include <unistd.h>

#include <chrono>
#include <vector>

#include "server/LiveOutput.h"
#include "server/Threads.h"

namespace tembra {

namespace {

constexpr UInt32 kChunk = 1024;
constexpr uint64_t kWakeUp = 100000000;
constexpr int kPollMilliseconds = 100;
constexpr auto kGrace = std::chrono::milliseconds(500);

}  // namespace

RawOutput::RawOutput(int inDescriptor, UInt32 inChannels, uint64_t inMaxFrames,
                     ErrorFunction inOnError)
    : LiveOutput(inChannels, inMaxFrames),
      mDescriptor(inDescriptor),
      mOnError(std::move(inOnError)) {
  mThread = StartThread("tembra.stdout", [this] { Run(); });
}

RawOutput::~RawOutput() {
  mQueue.End();
  mThread.join();
}

void RawOutput::Run() {
  const UInt32 channels = mQueue.GetChannels();
  std::vector<float> frames(size_t{kChunk} * channels);
  for (;;) {
    // One frame is worth writing; more come along when they are there.
    UInt32 count = mQueue.Take(frames.data(), 1, kWakeUp);
    if (count > 0) count += mQueue.Take(frames.data() + channels, kChunk - 1, 0);
    if (count == 0) {
      if (mQueue.HasEnded()) return;
      continue;
    }
    if (!WriteAll(reinterpret_cast<const char*>(frames.data()),
                  size_t{count} * channels * sizeof(float))) {
      return;
    }
  }
}

bool RawOutput::WriteAll(const char* inBytes, size_t inSize) {
  std::chrono::steady_clock::time_point giveUp{};
  while (inSize > 0) {
    // A reader that does not read must not keep the server from ending.
    if (mQueue.HasEnded()) {
      const auto now = std::chrono::steady_clock::now();
      if (giveUp == std::chrono::steady_clock::time_point{}) giveUp = now + kGrace;
      if (now >= giveUp) return false;
    }
    pollfd ready = {mDescriptor, POLLOUT, 0};
    if (poll(&ready, 1, kPollMilliseconds) <= 0) continue;
    // A pipe that is ready takes this much without blocking.
    const size_t part = inSize < 4096 ? inSize : 4096;
    const ssize_t written = write(mDescriptor, inBytes, part);
    if (written < 0) {
      if (errno == EINTR || errno == EAGAIN) continue;
      mOnError(std::string("cannot go on writing to the standard output: ") + strerror(errno));
      return false;
    }
    inBytes += written;
    inSize -= static_cast<size_t>(written);
  }
  return true;
}

}  // namespace tembra
