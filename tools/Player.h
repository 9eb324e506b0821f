#pragma once

#include <CoreAudio/AudioHardware.h>

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <vector>

#include "tools/RenderLog.h"
#include "tools/SoundStream.h"

namespace tembra::tools {

// Plays one sound on one device, in an I/O procedure made with the published client interface.
//
// Thread: all operations on the caller's thread; Render on the device's I/O thread. Ownership: the
// stream and the log are the caller's and outlive the player. Failure: Failure with the status.
class Player {
 public:
  // Render is recorded in inLog if that is not null.
  Player(AudioObjectID inDevice, SoundStream& ioStream, RenderLog* ioLog);
  ~Player();
  Player(const Player&) = delete;
  Player& operator=(const Player&) = delete;

  // Starts the device; until Play the procedure renders silence.
  void Start();
  void Play() { mPlaying.store(true, std::memory_order_release); }
  void Stop();

  // True once the last frame of the sound has gone to the device.
  bool Done() const { return mDone.load(std::memory_order_acquire); }

  std::uint64_t FramesPlayed() const { return mFramesPlayed.load(std::memory_order_relaxed); }
  std::uint64_t Cycles() const { return mCycles.load(std::memory_order_relaxed); }
  // How the device's I/O thread is scheduled: "deadline", "fifo", "normal", or "unknown" before its
  // first cycle.
  const char* SchedulingMode() const;
  std::uint64_t Underruns() const { return mUnderruns.load(std::memory_order_relaxed); }

 private:
  static OSStatus IOProc(AudioObjectID inDevice, const AudioTimeStamp* inNow,
                         const AudioBufferList* inInput, const AudioTimeStamp* inInputTime,
                         AudioBufferList* outOutput, const AudioTimeStamp* inOutputTime,
                         void* inClientData);
  void Render(AudioBufferList& outOutput, const AudioTimeStamp& inOutputTime) noexcept;

  AudioObjectID mDevice;
  SoundStream& mStream;
  RenderLog* mLog;
  AudioDeviceIOProcID mProcID = nullptr;
  bool mStarted = false;
  std::vector<float> mScratch;  // one cycle, interleaved
  std::atomic<pid_t> mIOThread{0};
  std::atomic<bool> mPlaying{false};
  std::atomic<bool> mDone{false};
  std::atomic<std::uint64_t> mFramesPlayed{0};
  std::atomic<std::uint64_t> mCycles{0};
  std::atomic<std::uint64_t> mUnderruns{0};
};

}  // namespace tembra::tools
