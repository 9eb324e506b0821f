#include "tools/Player.h"

#include <CoreAudio/HostTime.h>
#include <mach/thread_policy_priv.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cstring>

#include "tools/Devices.h"
#include "tools/Exit.h"

namespace tembra::tools {

namespace {

// The device's buffer may grow up to a quarter of a second while it runs.
constexpr double kLargestBufferSeconds = 0.25;

}  // namespace

Player::Player(AudioObjectID inDevice, SoundStream& ioStream, RenderLog* ioLog)
    : mDevice(inDevice), mStream(ioStream), mLog(ioLog) {
  mScratch.resize(static_cast<std::size_t>(ioStream.Rate() * kLargestBufferSeconds + 1) *
                  ioStream.Channels());
  Check(AudioDeviceCreateIOProcID(mDevice, IOProc, this, &mProcID),
        "the device takes no I/O procedure");
}

Player::~Player() {
  if (mStarted) AudioDeviceStop(mDevice, mProcID);
  AudioDeviceDestroyIOProcID(mDevice, mProcID);
}

void Player::Start() {
  Check(AudioDeviceStart(mDevice, mProcID), "the device does not start");
  mStarted = true;
}

void Player::Stop() {
  if (!mStarted) return;
  mStarted = false;
  Check(AudioDeviceStop(mDevice, mProcID), "the device does not stop");
}

OSStatus Player::IOProc(AudioObjectID, const AudioTimeStamp*, const AudioBufferList*,
                        const AudioTimeStamp*, AudioBufferList* outOutput,
                        const AudioTimeStamp* inOutputTime, void* inClientData) {
  static_cast<Player*>(inClientData)->Render(*outOutput, *inOutputTime);
  return 0;
}

const char* Player::SchedulingMode() const {
  const pid_t thread = mIOThread.load(std::memory_order_acquire);
  return TembraThreadSchedulingModeName(thread != 0 ? TembraThreadGetSchedulingMode(thread)
                                                    : kTembraThreadSchedulingUnknown);
}

void Player::Render(AudioBufferList& outOutput, const AudioTimeStamp& inOutputTime) noexcept {
  if (mIOThread.load(std::memory_order_relaxed) == 0) {
    mIOThread.store(gettid(), std::memory_order_release);
  }
  const std::uint32_t channels = mStream.Channels();
  if (outOutput.mNumberBuffers == 0 || outOutput.mBuffers[0].mNumberChannels == 0) return;
  const AudioBuffer& first = outOutput.mBuffers[0];
  const std::size_t frames = std::min<std::size_t>(
      first.mDataByteSize / (sizeof(float) * first.mNumberChannels), mScratch.size() / channels);

  std::size_t got = 0;
  if (mPlaying.load(std::memory_order_acquire) && !mDone.load(std::memory_order_relaxed)) {
    got = mStream.Read(mScratch.data(), frames);
    if (mStream.AtEnd()) {
      mDone.store(true, std::memory_order_release);
    } else if (got < frames) {
      mUnderruns.fetch_add(1, std::memory_order_relaxed);
    }
  }
  std::fill(mScratch.begin() + static_cast<std::ptrdiff_t>(got * channels),
            mScratch.begin() + static_cast<std::ptrdiff_t>(frames * channels), 0.0F);

  // Buffers carry runs of the device's channels, one or more each.
  std::uint32_t channel = 0;
  for (std::uint32_t index = 0; index < outOutput.mNumberBuffers; ++index) {
    AudioBuffer& buffer = outOutput.mBuffers[index];
    auto* samples = static_cast<float*>(buffer.mData);
    if (samples != nullptr && channel + buffer.mNumberChannels <= channels) {
      for (std::size_t frame = 0; frame < frames; ++frame) {
        std::memcpy(&samples[frame * buffer.mNumberChannels], &mScratch[frame * channels + channel],
                    buffer.mNumberChannels * sizeof(float));
      }
    }
    channel += buffer.mNumberChannels;
  }
  mFramesPlayed.fetch_add(got, std::memory_order_relaxed);
  mCycles.fetch_add(1, std::memory_order_relaxed);
  if (mLog != nullptr) {
    const float* begin = mScratch.data();
    // By its bits: a negative zero is sent like any sound.
    const bool silent = std::all_of(begin, begin + frames * channels, [](float sample) {
      return std::bit_cast<std::uint32_t>(sample) == 0;
    });
    mLog->Append(inOutputTime.mSampleTime, AudioGetCurrentHostTime(), mScratch.data(),
                 static_cast<std::uint32_t>(frames), silent);
  }
}

}  // namespace tembra::tools
