#include <alsa/asoundlib.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "server/LiveOutput.h"
#include "server/Threads.h"

namespace tembra {

namespace {

constexpr UInt32 kPeriod = 512;
constexpr unsigned int kLatencyMicroseconds = 40000;

}  // namespace

std::unique_ptr<PlaybackOutput> PlaybackOutput::Open(const std::string& inDevice, double inRate,
                                                     UInt32 inChannels, uint64_t inMaxFrames,
                                                     ErrorFunction inOnError,
                                                     std::string& outError) {
  snd_pcm_t* device = nullptr;
  int status = snd_pcm_open(&device, inDevice.c_str(), SND_PCM_STREAM_PLAYBACK, 0);
  if (status >= 0) {
    status = snd_pcm_set_params(device, SND_PCM_FORMAT_FLOAT_LE, SND_PCM_ACCESS_RW_INTERLEAVED,
                                inChannels, static_cast<unsigned int>(std::lround(inRate)), 1,
                                kLatencyMicroseconds);
    if (status < 0) snd_pcm_close(device);
  }
  if (status < 0) {
    outError = "cannot play through the ALSA device '" + inDevice + "': " + snd_strerror(status) +
               ". 'aplay -L' lists the devices there are.";
    return nullptr;
  }
  return std::unique_ptr<PlaybackOutput>(
      new PlaybackOutput(device, inChannels, inMaxFrames, std::move(inOnError)));
}

PlaybackOutput::PlaybackOutput(snd_pcm_t* inDevice, UInt32 inChannels, uint64_t inMaxFrames,
                               ErrorFunction inOnError)
    : LiveOutput(inChannels, inMaxFrames),
      mDevice(inDevice),
      mRestartFrames(inMaxFrames / 2),
      mOnError(std::move(inOnError)) {
  mThread = StartThread("tembra.play", [this] { Run(); });
}

PlaybackOutput::~PlaybackOutput() {
  mQueue.End();
  mThread.join();
  snd_pcm_drop(mDevice);
  snd_pcm_close(mDevice);
}

void PlaybackOutput::Run() {
  const UInt32 channels = mQueue.GetChannels();
  std::vector<float> frames(size_t{kPeriod} * channels);
  bool playing = false;
  while (!mQueue.HasEnded()) {
    UInt32 count = 0;
    if (!playing) playing = mQueue.GetWaitingFrames() >= mRestartFrames;
    if (playing) {
      count = mQueue.Take(frames.data(), kPeriod, 0);
      playing = count == kPeriod;
    }
    std::fill(frames.begin() + static_cast<ptrdiff_t>(size_t{count} * channels), frames.end(),
              0.0f);
    const snd_pcm_sframes_t written = snd_pcm_writei(mDevice, frames.data(), kPeriod);
    if (written < 0) {
      const int status = snd_pcm_recover(mDevice, static_cast<int>(written), 1);
      if (status < 0) {
        mOnError(std::string("playback ended: ") + snd_strerror(status));
        return;
      }
    }
  }
}

}  // namespace tembra
