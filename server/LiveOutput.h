#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "server/LiveQueue.h"

typedef struct _snd_pcm snd_pcm_t;

namespace tembra {

// Where the mix goes as it comes. Each output has a thread of its own behind a bounded queue, so
// that a slow one never holds up receiving.
//
// Thread: made and ended by one thread, Put from that thread.
// Failure: told once through the error function, on the output's thread; the output then takes and
// forgets what comes.
class LiveOutput {
 public:
  using ErrorFunction = std::function<void(const std::string&)>;

  virtual ~LiveOutput() = default;
  void Put(const float* inFrames, UInt32 inCount) { mQueue.Put(inFrames, inCount); }
  uint64_t GetDroppedFrames() { return mQueue.GetDroppedFrames(); }
  uint64_t GetWaitingFrames() { return mQueue.GetWaitingFrames(); }

 protected:
  LiveOutput(UInt32 inChannels, uint64_t inMaxFrames) : mQueue(inChannels, inMaxFrames) {}

  LiveQueue mQueue;
};

// Raw little-endian 32-bit float frames to a descriptor. What is in the queue at the end is still
// written, as far as the reader takes it within half a second.
class RawOutput : public LiveOutput {
 public:
  RawOutput(int inDescriptor, UInt32 inChannels, uint64_t inMaxFrames, ErrorFunction inOnError);
  ~RawOutput() override;

 private:
  void Run();
  bool WriteAll(const char* inBytes, size_t inSize);

  const int mDescriptor;
  const ErrorFunction mOnError;
  std::thread mThread;
};

// Playback through ALSA. Where nothing comes it plays silence, and it begins again only when half
// of its queue's bound has come, so that one late block does not tear the sound twice.
class PlaybackOutput : public LiveOutput {
 public:
  // Null if the PCM cannot be opened; outError says what is wrong and what mends it.
  static std::unique_ptr<PlaybackOutput> Open(const std::string& inDevice, double inRate,
                                              UInt32 inChannels, uint64_t inMaxFrames,
                                              ErrorFunction inOnError, std::string& outError);
  ~PlaybackOutput() override;

 private:
  PlaybackOutput(snd_pcm_t* inDevice, UInt32 inChannels, uint64_t inMaxFrames,
                 ErrorFunction inOnError);
  void Run();

  snd_pcm_t* const mDevice;
  const uint64_t mRestartFrames;
  const ErrorFunction mOnError;
  std::thread mThread;
};

}  // namespace tembra
