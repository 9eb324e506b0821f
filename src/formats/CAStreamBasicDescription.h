#pragma once

#include <CoreAudio/CoreAudioTypes.h>

#include <cstddef>

// One audio format.
//
// Purpose: the rules by which formats are compared, ordered, printed and parsed. A zero field is a
//   wildcard: it matches any value.
// Thread: a plain value; nothing here is shared but constants.
// Ownership: none.
// Units and range: rates in frames per second, sizes in bytes, products in 32 bits, unsigned.
// Failure: told by the result; nothing throws. A division by zero gives zero.
class CAStreamBasicDescription : public AudioStreamBasicDescription {
 public:
  enum CommonPCMFormat {
    kPCMFormatOther = 0,
    kPCMFormatFloat32 = 1,
    kPCMFormatInt16 = 2,
    kPCMFormatFixed824 = 3,
    kPCMFormatFloat64 = 4
  };

  // The format that is empty in each field.
  static const AudioStreamBasicDescription sEmpty;

  // What FromText reads, for people.
  static const char* const sTextParsingUsageString;

  CAStreamBasicDescription() noexcept : AudioStreamBasicDescription() {}
  CAStreamBasicDescription(const AudioStreamBasicDescription& inFormat) noexcept
      : AudioStreamBasicDescription(inFormat) {}
  CAStreamBasicDescription(double inSampleRate, UInt32 inFormatID, UInt32 inBytesPerPacket,
                           UInt32 inFramesPerPacket, UInt32 inBytesPerFrame,
                           UInt32 inChannelsPerFrame, UInt32 inBitsPerChannel,
                           UInt32 inFormatFlags) noexcept;

  CAStreamBasicDescription& operator=(const AudioStreamBasicDescription& inFormat) noexcept {
    SetFrom(inFormat);
    return *this;
  }
  void SetFrom(const AudioStreamBasicDescription& inFormat) noexcept {
    static_cast<AudioStreamBasicDescription&>(*this) = inFormat;
  }

  bool IsPCM() const noexcept { return mFormatID == kAudioFormatLinearPCM; }
  static bool IsMixable(const AudioStreamBasicDescription& inFormat) noexcept {
    return inFormat.mFormatID == kAudioFormatLinearPCM &&
           (inFormat.mFormatFlags & kAudioFormatFlagIsNonMixable) == 0;
  }

  UInt32 NumberChannels() const noexcept { return mChannelsPerFrame; }
  bool IsInterleaved() const noexcept {
    return (mFormatFlags & kAudioFormatFlagIsNonInterleaved) == 0;
  }
  UInt32 NumberInterleavedChannels() const noexcept {
    return IsInterleaved() ? mChannelsPerFrame : 1;
  }
  // The bytes of one sample.
  UInt32 SampleWordSize() const noexcept;
  bool PackednessIsSignificant() const noexcept { return SampleWordSize() * 8 != mBitsPerChannel; }
  bool AlignmentIsSignificant() const noexcept {
    return PackednessIsSignificant() || mBitsPerChannel % 8 != 0;
  }

  // With wildcards as operator==; without, byte by byte. mReserved never counts.
  bool IsEqual(const AudioStreamBasicDescription& inFormat,
               bool inInterpretingWildcards) const noexcept;

  // False if this is no plain linear PCM. True with kPCMFormatOther if it is a plain one without a
  // name. outIsInterleaved may be null; it is stored once the format is known to be plain.
  bool IdentifyCommonPCMFormat(CommonPCMFormat& outFormat,
                               bool* outIsInterleaved = nullptr) const noexcept;

  // Writes a text for people into outBuffer, cut to inSize bytes with its terminator.
  char* AsString(char* outBuffer, size_t inSize, bool inBrief = false) const;

  static void ResetFormat(AudioStreamBasicDescription& outFormat) noexcept {
    outFormat = AudioStreamBasicDescription();
  }
  // Gives each wildcard of ioFormat the value that inFrom has.
  static void FillOutFormat(AudioStreamBasicDescription& ioFormat,
                            const AudioStreamBasicDescription& inFrom) noexcept;

  // Makes a mixable format what clients see: interleaved 32-bit float. Others stay as they are.
  static void NormalizeLinearPCMFormat(AudioStreamBasicDescription& ioFormat) noexcept;
  static void NormalizeLinearPCMFormat(bool inNativeEndian,
                                       AudioStreamBasicDescription& ioFormat) noexcept;

  // Equality in all that a converter could notice.
  static bool IsFunctionallyEquivalent(const AudioStreamBasicDescription& inX,
                                       const AudioStreamBasicDescription& inY) noexcept;
  // Clears in ioXFlags and ioYFlags what makes no difference between the two formats.
  static void ModifyFormatFlagsForMatching(const AudioStreamBasicDescription& inX,
                                           const AudioStreamBasicDescription& inY, UInt32& ioXFlags,
                                           UInt32& ioYFlags, bool inConverterOnly) noexcept;
  static bool FlagIndependentEquivalence(const AudioStreamBasicDescription& inX,
                                         const AudioStreamBasicDescription& inY) noexcept;

  // Writes a name for menus into outBuffer, cut to inSize bytes with its terminator.
  static void GetSimpleName(const AudioStreamBasicDescription& inFormat, char* outBuffer,
                            UInt32 inSize, bool inAbbreviate, bool inIncludeSampleRate);

  // Reads one format string, which must not be null. When it answers false, outFormat holds what
  // had been read so far, and most failures have told their cause on standard error.
  static bool FromText(const char* inText, AudioStreamBasicDescription& outFormat);
};

bool operator<(const AudioStreamBasicDescription& inX,
               const AudioStreamBasicDescription& inY) noexcept;
bool operator==(const AudioStreamBasicDescription& inX,
                const AudioStreamBasicDescription& inY) noexcept;
inline bool operator!=(const AudioStreamBasicDescription& inX,
                       const AudioStreamBasicDescription& inY) noexcept {
  return !(inX == inY);
}

// Whether a format that came from outside is within reason.
bool SanityCheck(const AudioStreamBasicDescription& inFormat) noexcept;

// A four-character code as text: 'abcd', or 0x and its digits. Answers outBuffer, which gets at
// most inSize bytes with the terminator.
char* CAStringForOSType(UInt32 inCode, char* outBuffer, size_t inSize);
