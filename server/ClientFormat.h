#pragma once

#include <CoreAudio/CoreAudioTypes.h>

#include <string>

namespace tembra {

constexpr UInt32 kMaxClientChannels = 64;

// Why the server cannot take audio of this format, as a text for people; empty if it can. It takes
// packed 32-bit native float, interleaved or not, at a finite rate of 1,000 to 768,000 Hz. The
// format comes from another process, so nothing about it is taken on trust. Any thread.
std::string WhyFormatIsRefused(const AudioStreamBasicDescription& inFormat);

}  // namespace tembra
