#pragma once

#include "formats/CAStreamBasicDescription.h"

namespace tembra {

inline constexpr UInt32 kFloat = kAudioFormatFlagIsFloat;
inline constexpr UInt32 kBigEndian = kAudioFormatFlagIsBigEndian;
inline constexpr UInt32 kSigned = kAudioFormatFlagIsSignedInteger;
inline constexpr UInt32 kPacked = kAudioFormatFlagIsPacked;
inline constexpr UInt32 kHighAligned = kAudioFormatFlagIsAlignedHigh;
inline constexpr UInt32 kNonInterleaved = kAudioFormatFlagIsNonInterleaved;
inline constexpr UInt32 kNonMixable = kAudioFormatFlagIsNonMixable;

// An interleaved linear PCM format of whole words.
inline CAStreamBasicDescription LinearPCM(UInt32 inBits, UInt32 inFlags, UInt32 inChannels,
                                          double inRate = 44100.0) {
  const UInt32 theBytesPerFrame = (inBits + 7) / 8 * inChannels;
  return CAStreamBasicDescription(inRate, kAudioFormatLinearPCM, theBytesPerFrame, 1,
                                  theBytesPerFrame, inChannels, inBits, inFlags);
}

inline CAStreamBasicDescription Encoded(UInt32 inFormatID) {
  return CAStreamBasicDescription(48000.0, inFormatID, 0, 1024, 0, 2, 0, 0);
}

}  // namespace tembra
