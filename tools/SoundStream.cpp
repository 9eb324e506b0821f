#include "tools/SoundStream.h"

#include <pthread.h>
#include <samplerate.h>
#include <sndfile.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstring>

#include "tools/Exit.h"

namespace tembra::tools {

namespace {

constexpr std::size_t kDecodeFrames = 4096;

// Fits one frame of inFrom channels to inTo: mono goes to every channel, spare channels are folded
// onto the ones there are, so that nothing of the file goes unheard.
void FitChannels(const float* inFrame, std::uint32_t inFrom, float* outFrame, std::uint32_t inTo) {
  if (inFrom == inTo) {
    std::copy_n(inFrame, inTo, outFrame);
    return;
  }
  if (inFrom == 1) {
    std::fill_n(outFrame, inTo, inFrame[0]);
    return;
  }
  std::fill_n(outFrame, inTo, 0.0F);
  const std::uint32_t folds = (inFrom + inTo - 1) / inTo;
  const float gain = 1.0F / static_cast<float>(folds);
  for (std::uint32_t channel = 0; channel < inFrom; ++channel) {
    outFrame[channel % inTo] += gain * inFrame[channel];
  }
}

}  // namespace

struct SoundStream::Decoder {
  SNDFILE* file = nullptr;
  SRC_STATE* resampler = nullptr;

  ~Decoder() {
    if (resampler != nullptr) src_delete(resampler);
    if (file != nullptr) sf_close(file);
  }
};

SoundStream::SoundStream(const std::string& inPath, double inRate, std::uint32_t inChannels)
    : mDecoder(std::make_unique<Decoder>()), mRate(inRate), mChannels(inChannels) {
  if (!(inRate > 0) || inChannels == 0) throw Failure("the device gives no rate or no channels");
  SF_INFO info{};
  mDecoder->file = sf_open(inPath.c_str(), SFM_READ, &info);
  if (mDecoder->file == nullptr) {
    throw Failure("cannot play " + inPath + ": " + sf_strerror(nullptr));
  }
  if (info.samplerate <= 0 || info.channels <= 0) {
    throw Failure("cannot play " + inPath + ": it names no sample rate or no channels");
  }
  mFileRate = info.samplerate;
  mFileChannels = static_cast<std::uint32_t>(info.channels);
  mDurationSeconds = info.frames > 0 ? static_cast<double>(info.frames) / mFileRate : 0;
  if (mFileRate != mRate) {
    int error = 0;
    mDecoder->resampler = src_new(SRC_SINC_MEDIUM_QUALITY, static_cast<int>(mChannels), &error);
    if (mDecoder->resampler == nullptr || src_is_valid_ratio(mRate / mFileRate) == 0) {
      throw Failure("cannot resample " + inPath + " from " + std::to_string(info.samplerate) +
                    " Hz: " + (error != 0 ? src_strerror(error) : "the ratio is out of range"));
    }
  }
  mCapacity = static_cast<std::size_t>(mRate * 2);
  mRing.resize(mCapacity * mChannels);

  // The process's signals are for its main thread.
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  mThread = std::thread([this] { Decode(); });
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

SoundStream::~SoundStream() {
  mStop.store(true, std::memory_order_release);
  mThread.join();
}

std::uint64_t SoundStream::ExpectedFrames() const {
  return static_cast<std::uint64_t>(std::ceil(mDurationSeconds * mRate));
}

std::string SoundStream::Error() const {
  return mBroken.load(std::memory_order_acquire) ? mError : std::string();
}

std::size_t SoundStream::Read(float* outSamples, std::size_t inFrames) noexcept {
  const std::uint64_t read = mRead.load(std::memory_order_relaxed);
  const std::uint64_t written = mWritten.load(std::memory_order_acquire);
  const std::size_t frames = std::min<std::uint64_t>(inFrames, written - read);
  const std::size_t start = read % mCapacity;
  const std::size_t first = std::min(frames, mCapacity - start);
  std::memcpy(outSamples, &mRing[start * mChannels], first * mChannels * sizeof(float));
  std::memcpy(outSamples + first * mChannels, mRing.data(),
              (frames - first) * mChannels * sizeof(float));
  mRead.store(read + frames, std::memory_order_release);
  return frames;
}

bool SoundStream::AtEnd() const noexcept {
  return mDecoded.load(std::memory_order_acquire) &&
         mRead.load(std::memory_order_relaxed) == mWritten.load(std::memory_order_acquire);
}

void SoundStream::WaitUntilPrimed() {
  while (!mDecoded.load(std::memory_order_acquire) &&
         mWritten.load(std::memory_order_acquire) - mRead.load(std::memory_order_acquire) <
             mCapacity / 2) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

// Waits for room by looking again: the reader is a real-time thread and must not be made to wake
// anyone.
bool SoundStream::Push(const float* inSamples, std::size_t inFrames) {
  while (inFrames > 0) {
    if (mStop.load(std::memory_order_acquire)) return false;
    const std::uint64_t written = mWritten.load(std::memory_order_relaxed);
    const std::size_t room = mCapacity - (written - mRead.load(std::memory_order_acquire));
    if (room == 0) {
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
      continue;
    }
    const std::size_t start = written % mCapacity;
    const std::size_t frames = std::min({inFrames, room, mCapacity - start});
    std::memcpy(&mRing[start * mChannels], inSamples, frames * mChannels * sizeof(float));
    mWritten.store(written + frames, std::memory_order_release);
    inSamples += frames * mChannels;
    inFrames -= frames;
  }
  return true;
}

void SoundStream::Decode() {
  pthread_setname_np(pthread_self(), "tmbaudio.decode");
  std::vector<float> raw(kDecodeFrames * mFileChannels);
  std::vector<float> fitted(kDecodeFrames * mChannels);
  const double ratio = mRate / mFileRate;
  std::vector<float> resampled((static_cast<std::size_t>(std::ceil(kDecodeFrames * ratio)) + 64) *
                               mChannels);
  bool ended = false;
  while (!ended && !mStop.load(std::memory_order_acquire)) {
    const sf_count_t got = sf_readf_float(mDecoder->file, raw.data(), kDecodeFrames);
    if (got < static_cast<sf_count_t>(kDecodeFrames)) {
      ended = true;
      if (sf_error(mDecoder->file) != SF_ERR_NO_ERROR) {
        mError = sf_strerror(mDecoder->file);
        mBroken.store(true, std::memory_order_release);
      }
    }
    const std::size_t frames = static_cast<std::size_t>(std::max<sf_count_t>(got, 0));
    for (std::size_t frame = 0; frame < frames; ++frame) {
      FitChannels(&raw[frame * mFileChannels], mFileChannels, &fitted[frame * mChannels],
                  mChannels);
    }
    if (mDecoder->resampler == nullptr) {
      if (!Push(fitted.data(), frames)) break;
      continue;
    }
    SRC_DATA data{};
    data.data_in = fitted.data();
    data.input_frames = static_cast<long>(frames);
    data.src_ratio = ratio;
    data.end_of_input = ended ? 1 : 0;
    data.data_out = resampled.data();
    data.output_frames = static_cast<long>(resampled.size() / mChannels);
    do {
      if (const int error = src_process(mDecoder->resampler, &data); error != 0) {
        mError = src_strerror(error);
        mBroken.store(true, std::memory_order_release);
        ended = true;
        break;
      }
      if (!Push(resampled.data(), static_cast<std::size_t>(data.output_frames_gen))) break;
      data.data_in += data.input_frames_used * mChannels;
      data.input_frames -= data.input_frames_used;
    } while (data.input_frames > 0 || (ended && data.output_frames_gen > 0));
  }
  mDecoded.store(true, std::memory_order_release);
}

}  // namespace tembra::tools
