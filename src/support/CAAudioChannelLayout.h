#pragma once

#include <CoreAudio/CoreAudioTypes.h>

// Purpose: operations on the platform's AudioChannelLayout.
// Thread: any.
// Ownership: Create hands out a layout that Destroy takes back.
// Units and range: sizes in bytes.
// Failure: Create throws std::bad_alloc.
class CAAudioChannelLayout {
 public:
  static constexpr UInt32 CalculateByteSize(UInt32 inNumberChannelDescriptions) {
    return 20 * inNumberChannelDescriptions + 12;
  }

  // All channels unknown.
  static AudioChannelLayout* Create(UInt32 inNumberChannelDescriptions);
  static void Destroy(AudioChannelLayout* inLayout);
  static void SetAllToUnknown(AudioChannelLayout& outLayout, UInt32 inNumberChannelDescriptions);

  // Counted in the descriptions or the bitmap, where the tag says so, else told by the tag.
  static UInt32 NumberChannels(const AudioChannelLayout& inLayout);
};
