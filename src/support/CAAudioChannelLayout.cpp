#include "support/CAAudioChannelLayout.h"

#include <bit>
#include <cstddef>
#include <cstdlib>

#include "support/CAAutoDisposer.h"

static_assert(offsetof(AudioChannelLayout, mChannelDescriptions) == 12);
static_assert(sizeof(AudioChannelDescription) == 20);

AudioChannelLayout* CAAudioChannelLayout::Create(UInt32 inNumberChannelDescriptions) {
  auto* theLayout = static_cast<AudioChannelLayout*>(
      CA_calloc(1, CalculateByteSize(inNumberChannelDescriptions)));
  SetAllToUnknown(*theLayout, inNumberChannelDescriptions);
  return theLayout;
}

void CAAudioChannelLayout::Destroy(AudioChannelLayout* inLayout) {
  std::free(inLayout);
}

void CAAudioChannelLayout::SetAllToUnknown(AudioChannelLayout& outLayout,
                                           UInt32 inNumberChannelDescriptions) {
  outLayout.mChannelLayoutTag = kAudioChannelLayoutTag_UseChannelDescriptions;
  outLayout.mChannelBitmap = {};
  outLayout.mNumberChannelDescriptions = inNumberChannelDescriptions;
  AudioChannelDescription* theDescriptions = outLayout.mChannelDescriptions;
  for (UInt32 i = 0; i < inNumberChannelDescriptions; ++i) {
    theDescriptions[i] = {};
    theDescriptions[i].mChannelLabel = kAudioChannelLabel_Unknown;
  }
}

UInt32 CAAudioChannelLayout::NumberChannels(const AudioChannelLayout& inLayout) {
  switch (inLayout.mChannelLayoutTag) {
    case kAudioChannelLayoutTag_UseChannelDescriptions:
      return inLayout.mNumberChannelDescriptions;
    case kAudioChannelLayoutTag_UseChannelBitmap:
      return static_cast<UInt32>(std::popcount(static_cast<UInt32>(inLayout.mChannelBitmap)));
    default:
      return inLayout.mChannelLayoutTag & 0xFFFF;
  }
}
