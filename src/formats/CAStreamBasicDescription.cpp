#include "formats/CAStreamBasicDescription.h"

#include <cstddef>
#include <cstring>

namespace {

// All but mReserved.
constexpr size_t kComparedByteSize = offsetof(AudioStreamBasicDescription, mReserved);
static_assert(kComparedByteSize == 36 && sizeof(AudioStreamBasicDescription) == 40);

// No tolerance: a rate is what it says. Comparisons are IEEE's, so a NaN equals nothing.
bool fequal(double inX, double inY) noexcept {
  return inX == inY;
}

template <class T>
bool MatchesWithWildcard(T inX, T inY) noexcept {
  return inX == 0 || inY == 0 || inX == inY;
}

// Whether the order of the formats can be told by this field.
template <class T>
bool FieldDecides(T inX, T inY) noexcept {
  return inX != 0 && inY != 0 && inX != inY;
}

template <class T>
void FillOutField(T& ioField, T inFrom) noexcept {
  if (ioField == 0) ioField = inFrom;
}

bool MatchFormatFlags(const AudioStreamBasicDescription& inX,
                      const AudioStreamBasicDescription& inY, bool inConverterOnly) noexcept {
  UInt32 theXFlags = inX.mFormatFlags;
  UInt32 theYFlags = inY.mFormatFlags;
  CAStreamBasicDescription::ModifyFormatFlagsForMatching(inX, inY, theXFlags, theYFlags,
                                                         inConverterOnly);
  return theXFlags == theYFlags;
}

bool BothHave(UInt32 inXFlags, UInt32 inYFlags, UInt32 inFlag) noexcept {
  return (inXFlags & inYFlags & inFlag) != 0;
}

// The order of a byte within its sample says nothing about samples of one byte.
void ClearByteOrderOfBytes(const AudioStreamBasicDescription& inFormat, UInt32& ioFlags) noexcept {
  if (inFormat.mBitsPerChannel <= 8 && (ioFlags & kAudioFormatFlagIsPacked) != 0) {
    ioFlags &= ~static_cast<UInt32>(kAudioFormatFlagIsBigEndian);
  }
}

}  // namespace

constinit const AudioStreamBasicDescription CAStreamBasicDescription::sEmpty = {};

CAStreamBasicDescription::CAStreamBasicDescription(double inSampleRate, UInt32 inFormatID,
                                                   UInt32 inBytesPerPacket,
                                                   UInt32 inFramesPerPacket, UInt32 inBytesPerFrame,
                                                   UInt32 inChannelsPerFrame,
                                                   UInt32 inBitsPerChannel,
                                                   UInt32 inFormatFlags) noexcept
    : AudioStreamBasicDescription() {
  mSampleRate = inSampleRate;
  mFormatID = inFormatID;
  mFormatFlags = inFormatFlags;
  mBytesPerPacket = inBytesPerPacket;
  mFramesPerPacket = inFramesPerPacket;
  mBytesPerFrame = inBytesPerFrame;
  mChannelsPerFrame = inChannelsPerFrame;
  mBitsPerChannel = inBitsPerChannel;
}

UInt32 CAStreamBasicDescription::SampleWordSize() const noexcept {
  const UInt32 theChannels = NumberInterleavedChannels();
  return theChannels == 0 ? 0 : mBytesPerFrame / theChannels;
}

bool CAStreamBasicDescription::IsEqual(const AudioStreamBasicDescription& inFormat,
                                       bool inInterpretingWildcards) const noexcept {
  if (inInterpretingWildcards) return *this == inFormat;
  const AudioStreamBasicDescription& theFormat = *this;
  return std::memcmp(&theFormat, &inFormat, kComparedByteSize) == 0;
}

bool CAStreamBasicDescription::IdentifyCommonPCMFormat(CommonPCMFormat& outFormat,
                                                       bool* outIsInterleaved) const noexcept {
  outFormat = kPCMFormatOther;
  if (!IsPCM() || mFramesPerPacket != 1 || mBytesPerPacket != mBytesPerFrame ||
      mBitsPerChannel / 8 > mBytesPerFrame || mChannelsPerFrame == 0) {
    return false;
  }

  const bool isInterleaved = IsInterleaved();
  if (outIsInterleaved != nullptr) *outIsInterleaved = isInterleaved;

  UInt32 theWordSize = mBytesPerFrame;
  if (isInterleaved) {
    if (theWordSize % mChannelsPerFrame != 0) return false;
    theWordSize /= mChannelsPerFrame;
  }
  if ((mFormatFlags & kAudioFormatFlagIsBigEndian) != 0 || theWordSize * 8 != mBitsPerChannel) {
    return true;
  }

  const UInt32 theFraction = mFormatFlags & kLinearPCMFormatFlagsSampleFractionMask;
  if ((mFormatFlags & kAudioFormatFlagIsFloat) != 0) {
    if (theFraction != 0 || (mFormatFlags & kAudioFormatFlagIsSignedInteger) != 0) return false;
    if (theWordSize == 4) outFormat = kPCMFormatFloat32;
    if (theWordSize == 8) outFormat = kPCMFormatFloat64;
  } else if ((mFormatFlags & kAudioFormatFlagIsSignedInteger) != 0) {
    constexpr UInt32 k24BitFraction = 24U << kLinearPCMFormatFlagsSampleFractionShift;
    if (theWordSize == 4 && theFraction == k24BitFraction) outFormat = kPCMFormatFixed824;
    if (theWordSize == 2 && theFraction == 0) outFormat = kPCMFormatInt16;
  }
  return true;
}

void CAStreamBasicDescription::FillOutFormat(AudioStreamBasicDescription& ioFormat,
                                             const AudioStreamBasicDescription& inFrom) noexcept {
  FillOutField(ioFormat.mSampleRate, inFrom.mSampleRate);
  FillOutField(ioFormat.mFormatID, inFrom.mFormatID);
  FillOutField(ioFormat.mFormatFlags, inFrom.mFormatFlags);
  FillOutField(ioFormat.mBytesPerPacket, inFrom.mBytesPerPacket);
  FillOutField(ioFormat.mFramesPerPacket, inFrom.mFramesPerPacket);
  FillOutField(ioFormat.mBytesPerFrame, inFrom.mBytesPerFrame);
  FillOutField(ioFormat.mChannelsPerFrame, inFrom.mChannelsPerFrame);
  FillOutField(ioFormat.mBitsPerChannel, inFrom.mBitsPerChannel);
}

void CAStreamBasicDescription::NormalizeLinearPCMFormat(
    AudioStreamBasicDescription& ioFormat) noexcept {
  if (!IsMixable(ioFormat)) return;
  ioFormat.mFormatFlags = kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked;
  ioFormat.mBytesPerPacket = 4 * ioFormat.mChannelsPerFrame;
  ioFormat.mFramesPerPacket = 1;
  ioFormat.mBytesPerFrame = 4 * ioFormat.mChannelsPerFrame;
  ioFormat.mBitsPerChannel = 32;
}

void CAStreamBasicDescription::NormalizeLinearPCMFormat(
    bool inNativeEndian, AudioStreamBasicDescription& ioFormat) noexcept {
  if (!IsMixable(ioFormat)) return;
  NormalizeLinearPCMFormat(ioFormat);
  if (!inNativeEndian) ioFormat.mFormatFlags |= kAudioFormatFlagIsBigEndian;
}

bool CAStreamBasicDescription::IsFunctionallyEquivalent(
    const AudioStreamBasicDescription& inX, const AudioStreamBasicDescription& inY) noexcept {
  return FlagIndependentEquivalence(inX, inY) && MatchFormatFlags(inX, inY, true);
}

void CAStreamBasicDescription::ModifyFormatFlagsForMatching(const AudioStreamBasicDescription& inX,
                                                            const AudioStreamBasicDescription& inY,
                                                            UInt32& ioXFlags, UInt32& ioYFlags,
                                                            bool inConverterOnly) noexcept {
  const auto clearInBoth = [&](UInt32 inFlag) {
    ioXFlags &= ~inFlag;
    ioYFlags &= ~inFlag;
  };

  if (inX.mFormatID == 0 || inY.mFormatID == 0 || ioXFlags == 0 || ioYFlags == 0) {
    ioXFlags = 0;
    ioYFlags = 0;
    return;
  }
  if (inX.mFormatID != kAudioFormatLinearPCM) return;

  clearInBoth(kAudioFormatFlagsAreAllClear);
  if (BothHave(ioXFlags, ioYFlags, kAudioFormatFlagIsPacked)) {
    clearInBoth(kAudioFormatFlagIsAlignedHigh);
  }
  if (BothHave(ioXFlags, ioYFlags, kAudioFormatFlagIsFloat)) {
    clearInBoth(kAudioFormatFlagIsSignedInteger);
  }
  ClearByteOrderOfBytes(inX, ioXFlags);
  ClearByteOrderOfBytes(inY, ioYFlags);
  if (inX.mChannelsPerFrame == 1 && inY.mChannelsPerFrame == 1) {
    clearInBoth(kAudioFormatFlagIsNonInterleaved);
  }
  if (!inConverterOnly) return;

  const CAStreamBasicDescription theX(inX);
  const CAStreamBasicDescription theY(inY);
  if (!theX.PackednessIsSignificant() && !theY.PackednessIsSignificant()) {
    clearInBoth(kAudioFormatFlagIsPacked);
  }
  if (!theX.AlignmentIsSignificant() && !theY.AlignmentIsSignificant()) {
    clearInBoth(kAudioFormatFlagIsAlignedHigh);
  }
  clearInBoth(kAudioFormatFlagIsNonMixable);
}

bool CAStreamBasicDescription::FlagIndependentEquivalence(
    const AudioStreamBasicDescription& inX, const AudioStreamBasicDescription& inY) noexcept {
  return (inX.mSampleRate == 0.0 || inY.mSampleRate == 0.0 ||
          fequal(inX.mSampleRate, inY.mSampleRate)) &&
         MatchesWithWildcard(inX.mFormatID, inY.mFormatID) &&
         MatchesWithWildcard(inX.mBytesPerPacket, inY.mBytesPerPacket) &&
         MatchesWithWildcard(inX.mFramesPerPacket, inY.mFramesPerPacket) &&
         MatchesWithWildcard(inX.mBytesPerFrame, inY.mBytesPerFrame) &&
         MatchesWithWildcard(inX.mChannelsPerFrame, inY.mChannelsPerFrame) &&
         MatchesWithWildcard(inX.mBitsPerChannel, inY.mBitsPerChannel);
}

bool operator==(const AudioStreamBasicDescription& inX,
                const AudioStreamBasicDescription& inY) noexcept {
  return CAStreamBasicDescription::FlagIndependentEquivalence(inX, inY) &&
         MatchFormatFlags(inX, inY, false);
}

bool operator<(const AudioStreamBasicDescription& inX,
               const AudioStreamBasicDescription& inY) noexcept {
  const bool isXLinearPCM = inX.mFormatID == kAudioFormatLinearPCM;
  const bool isYLinearPCM = inY.mFormatID == kAudioFormatLinearPCM;

  if (FieldDecides(inX.mFormatID, inY.mFormatID)) {
    if (isXLinearPCM || isYLinearPCM) return isXLinearPCM;
    return inX.mFormatID < inY.mFormatID;
  }
  if (isXLinearPCM && isYLinearPCM) {
    const bool isXMixable = CAStreamBasicDescription::IsMixable(inX);
    if (isXMixable != CAStreamBasicDescription::IsMixable(inY)) return isXMixable;
    const bool isYFloat = (inY.mFormatFlags & kAudioFormatFlagIsFloat) != 0;
    if (isYFloat != ((inX.mFormatFlags & kAudioFormatFlagIsFloat) != 0)) return isYFloat;
  }
  if (FieldDecides(inX.mBitsPerChannel, inY.mBitsPerChannel)) {
    return inX.mBitsPerChannel < inY.mBitsPerChannel;
  }
  if (FieldDecides(inX.mSampleRate, inY.mSampleRate)) return inX.mSampleRate < inY.mSampleRate;
  if (FieldDecides(inX.mChannelsPerFrame, inY.mChannelsPerFrame)) {
    return inX.mChannelsPerFrame < inY.mChannelsPerFrame;
  }
  return false;
}

bool SanityCheck(const AudioStreamBasicDescription& inFormat) noexcept {
  // Written so that a NaN fails.
  if (!(inFormat.mSampleRate >= 0.0 && inFormat.mSampleRate < 3e6)) return false;
  if (inFormat.mBytesPerPacket >= 1000000 || inFormat.mFramesPerPacket >= 1000000 ||
      inFormat.mBytesPerFrame >= 1000000) {
    return false;
  }
  if (inFormat.mChannelsPerFrame > 1024 || inFormat.mBitsPerChannel > 1024) return false;
  if (inFormat.mFormatID == 0) return false;
  return inFormat.mFormatID != kAudioFormatLinearPCM ||
         (inFormat.mFramesPerPacket == 1 && inFormat.mBytesPerPacket == inFormat.mBytesPerFrame);
}
