#include "server/ClientFormat.h"

#include <cmath>

namespace tembra {

std::string WhyFormatIsRefused(const AudioStreamBasicDescription& inFormat) {
  constexpr UInt32 kWanted = kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked;
  if (inFormat.mFormatID != kAudioFormatLinearPCM) return "it is not linear PCM";
  if ((inFormat.mFormatFlags & kWanted) != kWanted || inFormat.mBitsPerChannel != 32 ||
      (inFormat.mFormatFlags & kAudioFormatFlagIsBigEndian) != 0) {
    return "its samples are not packed 32-bit little-endian float";
  }
  if (!std::isfinite(inFormat.mSampleRate) || inFormat.mSampleRate < 1000.0 ||
      inFormat.mSampleRate > 768000.0) {
    return "its sample rate is outside 1000 to 768000 Hz";
  }
  if (inFormat.mChannelsPerFrame == 0 || inFormat.mChannelsPerFrame > kMaxClientChannels) {
    return "it has no channel or more than 64";
  }
  const bool separate = (inFormat.mFormatFlags & kAudioFormatFlagIsNonInterleaved) != 0;
  const UInt32 frameSize = 4 * (separate ? 1 : inFormat.mChannelsPerFrame);
  if (inFormat.mFramesPerPacket != 1 || inFormat.mBytesPerFrame != frameSize ||
      inFormat.mBytesPerPacket != frameSize) {
    return "its frame size does not fit its channels";
  }
  return {};
}

}  // namespace tembra
