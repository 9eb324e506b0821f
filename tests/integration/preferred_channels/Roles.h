#pragma once

#include <CoreAudio/CoreAudio.h>

#include <cstdint>
#include <string>
#include <vector>

#include "support/CAAudioChannelLayout.h"
#include "support/CAAutoDisposer.h"

namespace tembra::test {

// The device as this process's HAL has it; 0 if there is none.
AudioObjectID FindDevice();

// On the clock that all processes share, in nanoseconds.
std::uint64_t Now();

bool GetPair(AudioObjectID inDevice, UInt32 inScope, UInt32& outLeft, UInt32& outRight);
OSStatus SetPair(AudioObjectID inDevice, UInt32 inScope, UInt32 inLeft, UInt32 inRight);

using Layout = CAAutoFree<AudioChannelLayout>;
// Of two channels.
bool GetLayout(AudioObjectID inDevice, UInt32 inSelector, UInt32 inScope,
               AudioChannelLayout& outLayout);
OSStatus SetLayout(AudioObjectID inDevice, UInt32 inScope, const AudioChannelLayout& inLayout);

// What this program does as another process:
//   listen               says "ready" and then, for each change of the stereo pair or layout that a
//                        listener hears, the time, the selector, the scope and the first two
//                        values; runs until it is killed
//   listen-as-another    the same as another user
//   pair LEFT RIGHT      sets the output pair and says when
//   read                 says the pairs and the first labels of the layouts
constexpr int kThereIsNoOther = 77;  // what it answers where it cannot become another user
int RunRole(const std::vector<std::string>& inArguments);

}  // namespace tembra::test
