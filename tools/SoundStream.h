#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace tembra::tools {

// One sound file, decoded, resampled and fitted to a number of channels while it plays.
//
// Thread: made and destroyed by the caller; a thread of its own ("tmbaudio.decode") decodes ahead
// into a ring of two seconds; Read is for one real-time thread and neither locks, blocks nor
// allocates. Units: frames of interleaved 32-bit float at the rate asked for. Failure: the
// constructor throws Failure with the file's name and libsndfile's reason; a file that breaks off
// while it is decoded ends there, and Error() says why.
class SoundStream {
 public:
  SoundStream(const std::string& inPath, double inRate, std::uint32_t inChannels);
  ~SoundStream();
  SoundStream(const SoundStream&) = delete;
  SoundStream& operator=(const SoundStream&) = delete;

  // Copies up to inFrames frames to outSamples and answers how many there were. Fewer than asked
  // for, with AtEnd() still false, is an underrun of the decoder.
  std::size_t Read(float* outSamples, std::size_t inFrames) noexcept;

  // True once every frame of the file has been read.
  bool AtEnd() const noexcept;

  // Blocks until the ring is full or the file is wholly decoded.
  void WaitUntilPrimed();

  double DurationSeconds() const { return mDurationSeconds; }
  std::uint32_t FileChannels() const { return mFileChannels; }
  double FileRate() const { return mFileRate; }
  std::uint32_t Channels() const { return mChannels; }
  double Rate() const { return mRate; }

  // The frames the whole file comes to at Rate(), rounded up; an estimate where the file does not
  // tell its length.
  std::uint64_t ExpectedFrames() const;

  // Why decoding broke off, or empty.
  std::string Error() const;

 private:
  struct Decoder;

  void Decode();
  bool Push(const float* inSamples, std::size_t inFrames);

  std::unique_ptr<Decoder> mDecoder;
  double mRate;
  std::uint32_t mChannels;
  double mFileRate = 0;
  std::uint32_t mFileChannels = 0;
  double mDurationSeconds = 0;

  // A ring for one writer and one reader: the positions only grow, in frames.
  std::vector<float> mRing;
  std::size_t mCapacity;
  std::atomic<std::uint64_t> mWritten{0};
  std::atomic<std::uint64_t> mRead{0};
  std::atomic<bool> mDecoded{false};
  std::atomic<bool> mStop{false};
  std::atomic<bool> mBroken{false};
  std::string mError;  // set before mBroken, read after it
  std::thread mThread;
};

}  // namespace tembra::tools
