#include "formats/HP_FormatList.h"

#include <algorithm>

#include "formats/AvailableFormatList.h"
#include "formats/HP_Stream.h"
#include "support/CAException.h"

namespace {

CAStreamBasicDescription Normalized(const AudioStreamBasicDescription& inFormat) noexcept {
  CAStreamBasicDescription theFormat(inFormat);
  CAStreamBasicDescription::NormalizeLinearPCMFormat(theFormat);
  return theFormat;
}

// A description with nothing but what the checks ask for; the rest are wildcards.
CAStreamBasicDescription FormatWithID(UInt32 inFormatID) noexcept {
  CAStreamBasicDescription theFormat;
  theFormat.mFormatID = inFormatID;
  return theFormat;
}

CAStreamBasicDescription FormatWithChannels(UInt32 inNumberChannels) noexcept {
  CAStreamBasicDescription theFormat;
  theFormat.mChannelsPerFrame = inNumberChannels;
  return theFormat;
}

}  // namespace

HP_FormatList::HP_FormatList(HP_Stream* inStream) : mStream(inStream) {}

HP_FormatList::~HP_FormatList() = default;

void HP_FormatList::GetCurrentPhysicalFormat(
    AudioStreamBasicDescription& outFormat) const noexcept {
  outFormat = mCurrentPhysicalFormat.Load();
}

void HP_FormatList::SetCurrentPhysicalFormat(const AudioStreamBasicDescription& inFormat,
                                             bool inTellHardware) {
  if (inTellHardware && !mStream->TellHardwareToSetPhysicalFormat(inFormat)) return;
  mCurrentPhysicalFormat.Store(inFormat);
}

void HP_FormatList::GetCurrentVirtualFormat(AudioStreamBasicDescription& outFormat) const noexcept {
  outFormat = Normalized(mCurrentPhysicalFormat.Load());
}

void HP_FormatList::SetCurrentVirtualFormat(const AudioStreamBasicDescription& inFormat,
                                            bool inTellHardware) {
  CAStreamBasicDescription theFormat(inFormat);
  if (!ConvertVirtualFormatToPhysicalFormat(theFormat)) {
    throw CAException(kAudioDeviceUnsupportedFormatError);
  }
  SetCurrentPhysicalFormat(theFormat, inTellHardware);
}

double HP_FormatList::GetCurrentNominalSampleRate() const noexcept {
  return mCurrentPhysicalFormat.Load().mSampleRate;
}

UInt32 HP_FormatList::GetCurrentNumberChannels() const noexcept {
  return mCurrentPhysicalFormat.Load().mChannelsPerFrame;
}

bool HP_FormatList::IsLinearPCM() const noexcept {
  return mCurrentPhysicalFormat.Load().mFormatID == kAudioFormatLinearPCM;
}

bool HP_FormatList::IsMixable() const noexcept {
  return CAStreamBasicDescription::IsMixable(mCurrentPhysicalFormat.Load());
}

bool HP_FormatList::CanSetIsMixable() const {
  AudioStreamBasicDescription theFormat = mCurrentPhysicalFormat.Load();
  if (theFormat.mFormatID != kAudioFormatLinearPCM) return false;
  theFormat.mFormatFlags ^= kAudioFormatFlagIsNonMixable;
  return SupportsPhysicalFormat(theFormat);
}

void HP_FormatList::SetIsMixable(bool inIsMixable, bool inTellHardware) {
  AudioStreamBasicDescription theFormat = mCurrentPhysicalFormat.Load();
  if (CAStreamBasicDescription::IsMixable(theFormat) == inIsMixable) return;
  if (inIsMixable) {
    theFormat.mFormatFlags &= ~static_cast<UInt32>(kAudioFormatFlagIsNonMixable);
  } else {
    theFormat.mFormatFlags |= kAudioFormatFlagIsNonMixable;
  }
  SetCurrentPhysicalFormat(theFormat, inTellHardware);
}

UInt32 HP_FormatList::GetNumberAvailablePhysicalFormats() const {
  return AFL_GetNumberFormats(mAvailablePhysicalFormats);
}

void HP_FormatList::GetAvailablePhysicalFormatByIndex(
    UInt32 inIndex, AudioStreamRangedDescription& outFormat) const {
  AFL_GetFormatByIndex(mAvailablePhysicalFormats, inIndex, outFormat);
}

bool HP_FormatList::SupportsPhysicalFormat(const AudioStreamBasicDescription& inFormat) const {
  return AFL_SupportsFormat(mAvailablePhysicalFormats, inFormat);
}

void HP_FormatList::BestMatchForPhysicalFormat(AudioStreamBasicDescription& ioFormat) const {
  AFL_BestMatchForFormat(mAvailablePhysicalFormats, mCurrentPhysicalFormat.Load(), ioFormat);
}

bool HP_FormatList::SanityCheckPhysicalFormat(const AudioStreamBasicDescription& inFormat) const {
  // A NaN is a rate too, and one that is not supported.
  if (inFormat.mSampleRate != 0.0 && !SupportsNominalSampleRate(inFormat.mSampleRate)) return false;
  if (inFormat.mFormatID != 0 && !SupportsPhysicalFormat(FormatWithID(inFormat.mFormatID))) {
    return false;
  }
  if (inFormat.mChannelsPerFrame != 0 &&
      !SupportsPhysicalFormat(FormatWithChannels(inFormat.mChannelsPerFrame))) {
    return false;
  }
  if (inFormat.mFormatID == kAudioFormatLinearPCM) {
    CAStreamBasicDescription theFormat = FormatWithID(kAudioFormatLinearPCM);
    theFormat.mFormatFlags = inFormat.mFormatFlags;
    theFormat.mBitsPerChannel = inFormat.mBitsPerChannel;
    return SupportsPhysicalFormat(theFormat);
  }
  return true;
}

UInt32 HP_FormatList::GetNumberAvailableVirtualFormats() const {
  return AFL_GetNumberFormats(mAvailableVirtualFormats);
}

void HP_FormatList::GetAvailableVirtualFormatByIndex(
    UInt32 inIndex, AudioStreamRangedDescription& outFormat) const {
  AFL_GetFormatByIndex(mAvailableVirtualFormats, inIndex, outFormat);
}

bool HP_FormatList::SupportsVirtualFormat(const AudioStreamBasicDescription& inFormat) const {
  return AFL_SupportsFormat(mAvailableVirtualFormats, inFormat);
}

void HP_FormatList::BestMatchForVirtualFormat(AudioStreamBasicDescription& ioFormat) const {
  AFL_BestMatchForFormat(mAvailableVirtualFormats, Normalized(mCurrentPhysicalFormat.Load()),
                         ioFormat);
}

bool HP_FormatList::SanityCheckVirtualFormat(const AudioStreamBasicDescription& inFormat) const {
  if (inFormat.mSampleRate != 0.0 && !SupportsNominalSampleRate(inFormat.mSampleRate)) return false;
  if (inFormat.mFormatID != 0 && !SupportsVirtualFormat(FormatWithID(inFormat.mFormatID))) {
    return false;
  }
  if (inFormat.mChannelsPerFrame != 0 &&
      !SupportsVirtualFormat(FormatWithChannels(inFormat.mChannelsPerFrame))) {
    return false;
  }
  if (inFormat.mFormatID == kAudioFormatLinearPCM) {
    constexpr UInt32 kVirtualFlags = kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked;
    if (inFormat.mFormatFlags != 0 && inFormat.mFormatFlags != kVirtualFlags) return false;
    if (inFormat.mBitsPerChannel != 0 && inFormat.mBitsPerChannel != 32) return false;
  }
  return true;
}

bool HP_FormatList::ConvertVirtualFormatToPhysicalFormat(
    AudioStreamBasicDescription& ioFormat) const {
  constexpr UInt32 kFloatAndPacked = kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked;
  if (ioFormat.mFormatID != kAudioFormatLinearPCM ||
      (ioFormat.mFormatFlags & kFloatAndPacked) != kFloatAndPacked) {
    return true;
  }
  ioFormat.mBitsPerChannel = 32;

  CAStreamBasicDescription theFormat(ioFormat);
  theFormat.mFormatFlags = 0;
  theFormat.mBytesPerPacket = 0;
  theFormat.mFramesPerPacket = 1;
  theFormat.mBytesPerFrame = 0;
  theFormat.mBitsPerChannel = 0;
  BestMatchForPhysicalFormat(theFormat);

  if (theFormat.mFormatID != ioFormat.mFormatID || theFormat.mSampleRate != ioFormat.mSampleRate ||
      theFormat.mChannelsPerFrame != ioFormat.mChannelsPerFrame) {
    return false;
  }
  ioFormat = theFormat;
  return true;
}

bool HP_FormatList::SupportsNominalSampleRate(double inSampleRate) const {
  CAAudioValueRangeList theRanges;
  GatherAvailableNominalSampleRateRanges(theRanges);
  return std::any_of(theRanges.begin(), theRanges.end(), [=](const CAAudioValueRange& inRange) {
    return CAAudioValueRange::ContainsValue(inRange, inSampleRate);
  });
}

void HP_FormatList::SetCurrentNominalSampleRate(double inSampleRate, bool inTellHardware) {
  if (!SupportsNominalSampleRate(inSampleRate)) return;

  CAStreamBasicDescription theNewFormat(mCurrentPhysicalFormat.Load());
  theNewFormat.mSampleRate = inSampleRate;
  if (!SupportsPhysicalFormat(theNewFormat) && theNewFormat.IsPCM()) {
    // Keep as much as there is at that rate: first the sample's form, then linear PCM at all.
    CAStreamBasicDescription theFormat(theNewFormat);
    theFormat.mBytesPerPacket = 0;
    theFormat.mBytesPerFrame = 0;
    theFormat.mChannelsPerFrame = 0;
    BestMatchForPhysicalFormat(theFormat);
    if (theFormat.mSampleRate != inSampleRate) {
      theFormat = theNewFormat;
      theFormat.mFormatFlags = 0;
      theFormat.mBytesPerPacket = 0;
      theFormat.mFramesPerPacket = 0;
      theFormat.mBytesPerFrame = 0;
      theFormat.mChannelsPerFrame = 0;
      theFormat.mBitsPerChannel = 0;
      BestMatchForPhysicalFormat(theFormat);
    }
    theNewFormat = theFormat;
  }
  SetCurrentPhysicalFormat(theNewFormat, inTellHardware);
}

UInt32 HP_FormatList::GetNumberAvailableNominalSampleRateRanges() const {
  CAAudioValueRangeList theRanges;
  GatherAvailableNominalSampleRateRanges(theRanges);
  return static_cast<UInt32>(theRanges.size());
}

void HP_FormatList::GetAvailableNominalSampleRateRangeByIndex(UInt32 inIndex,
                                                              AudioValueRange& outRange) const {
  CAAudioValueRangeList theRanges;
  GatherAvailableNominalSampleRateRanges(theRanges);
  if (inIndex < theRanges.size()) outRange = theRanges[inIndex];
}

void HP_FormatList::GatherAvailableNominalSampleRateRanges(CAAudioValueRangeList& outRanges) const {
  CAAudioValueRangeList theScratch;
  for (const AvailableFormat& theEntry : mAvailablePhysicalFormats) {
    for (const CAAudioValueRange& theRange : theEntry.mSampleRateRanges) {
      theScratch.clear();
      AFL_ComputeUnion(theRange, outRanges, theScratch);
      outRanges.swap(theScratch);
    }
  }
}

void HP_FormatList::AddPhysicalFormat(const AudioStreamRangedDescription& inFormat) {
  if (inFormat.mFormat.mChannelsPerFrame == 0) return;
  AFL_AddFormat(mAvailablePhysicalFormats, inFormat);

  AudioStreamRangedDescription theVirtualFormat = inFormat;
  CAStreamBasicDescription::NormalizeLinearPCMFormat(theVirtualFormat.mFormat);
  AFL_AddFormat(mAvailableVirtualFormats, theVirtualFormat);
}

void HP_FormatList::RemoveAllFormats() {
  mAvailablePhysicalFormats.clear();
  mAvailableVirtualFormats.clear();
}

UInt32 HP_FormatList::CalculateIOBufferByteSize(UInt32 inFrameSize) const noexcept {
  return CalculateIOBufferByteSize(Normalized(mCurrentPhysicalFormat.Load()), inFrameSize);
}

UInt32 HP_FormatList::CalculateIOBufferByteSize(const AudioStreamBasicDescription& inFormat,
                                                UInt32 inFrameSize) noexcept {
  switch (inFormat.mFormatID) {
    case kAudioFormat60958AC3:
      return inFrameSize * 4;
    case kAudioFormatLinearPCM:
      return inFormat.mBytesPerFrame * inFrameSize;
    default:
      return inFormat.mBytesPerPacket;
  }
}

UInt32 HP_FormatList::CalculateIOBufferFrameSize(UInt32 inByteSize) const noexcept {
  return CalculateIOBufferFrameSize(Normalized(mCurrentPhysicalFormat.Load()), inByteSize);
}

UInt32 HP_FormatList::CalculateIOBufferFrameSize(const AudioStreamBasicDescription& inFormat,
                                                 UInt32 inByteSize) noexcept {
  switch (inFormat.mFormatID) {
    case kAudioFormat60958AC3:
      return inByteSize / 4;
    case kAudioFormatLinearPCM:
      return inFormat.mBytesPerFrame == 0 ? 0 : inByteSize / inFormat.mBytesPerFrame;
    default:
      return inFormat.mFramesPerPacket;
  }
}
