// How formats are read from text.

#include <array>
#include <cstdio>

#include "formats/CAStreamBasicDescription.h"

constinit const char* const CAStreamBasicDescription::sTextParsingUsageString =
    "format[@sample_rate_hz][/format_flags][#frames_per_packet][:LHbytesPerFrame][,channelsDI].\n"
    "Format for PCM is [-][BE|LE]{F|I|UI}{bitdepth}; else a 4-char format code (e.g. aac, alac).\n";

namespace {

bool IsDigit(char inCharacter) noexcept {
  return inCharacter >= '0' && inCharacter <= '9';
}

// The value of a hexadecimal digit, or -1.
int HexDigitValue(char inCharacter) noexcept {
  if (IsDigit(inCharacter)) return inCharacter - '0';
  if (inCharacter >= 'a' && inCharacter <= 'f') return inCharacter - 'a' + 10;
  if (inCharacter >= 'A' && inCharacter <= 'F') return inCharacter - 'A' + 10;
  return -1;
}

// Walks one format string from left to right.
class FormatTextReader {
 public:
  FormatTextReader(const char* inText, AudioStreamBasicDescription& outFormat) noexcept
      : mText(inText), mNext(inText), mFormat(outFormat) {}

  bool Read() {
    mFormat = AudioStreamBasicDescription();
    UInt32 theFlags = kAudioFormatFlagIsSignedInteger | kAudioFormatFlagIsPacked;
    mIsPCM = ReadPCMPrefix(theFlags);
    if (mIsPCM) {
      if (!ReadBitDepth(theFlags)) return Fail();
    } else if (!ReadFormatCode()) {
      return false;
    }
    ReadSampleRate();
    ReadFormatFlags();
    ReadFramesPerPacket();
    if (!ReadBytesPerFrame() || !ReadChannels()) return Fail();
    if (*mNext != '\0') {
      std::fprintf(stderr, "extra characters at end of format string: %s\n", mNext);
      return Fail();
    }
    return true;
  }

 private:
  bool Skip(char inCharacter) noexcept {
    if (*mNext != inCharacter) return false;
    ++mNext;
    return true;
  }

  // Digits that follow ioValue; without any it stays as it is. Too many of them wrap.
  void AccumulateDecimal(UInt32& ioValue) noexcept {
    for (; IsDigit(*mNext); ++mNext) ioValue = 10 * ioValue + static_cast<UInt32>(*mNext - '0');
  }

  UInt32 ReadDecimal() noexcept {
    UInt32 theValue = 0;
    AccumulateDecimal(theValue);
    return theValue;
  }

  // [-][BE|LE]{F|I|UI}; false if this is no linear PCM.
  bool ReadPCMPrefix(UInt32& ioFlags) noexcept {
    Skip('-');
    if (mNext[0] == 'B' && mNext[1] == 'E') {
      ioFlags |= kAudioFormatFlagIsBigEndian;
      mNext += 2;
    } else if (mNext[0] == 'L' && mNext[1] == 'E') {
      mNext += 2;
    }
    if (Skip('F')) {
      ioFlags &= ~static_cast<UInt32>(kAudioFormatFlagIsSignedInteger);
      ioFlags |= kAudioFormatFlagIsFloat;
      return true;
    }
    if (Skip('U')) ioFlags &= ~static_cast<UInt32>(kAudioFormatFlagIsSignedInteger);
    return Skip('I');
  }

  // Four characters from the start of the text; its failures are silent.
  bool ReadFormatCode() noexcept {
    mNext = mText;
    std::array<unsigned char, 4> theCode = {' ', ' ', ' ', ' '};
    for (size_t theIndex = 0; theIndex < theCode.size(); ++theIndex) {
      const bool isLast = theIndex + 1 == theCode.size();
      const char theCharacter = *mNext;
      if (theCharacter == '\0') {
        if (!isLast) return false;
      } else if (theCharacter == '\\') {
        ++mNext;
        if (!Skip('x')) return false;
        theCode[theIndex] = ReadEscapedByte();
      } else if (!isLast || !StartsSuffix(theCharacter)) {
        // A code of three characters lets the suffix begin at the fourth.
        theCode[theIndex] = static_cast<unsigned char>(theCharacter);
        ++mNext;
      }
    }
    for (const unsigned char theByte : theCode)
      mFormat.mFormatID = mFormat.mFormatID << 8 | theByte;
    return true;
  }

  static bool StartsSuffix(char inCharacter) noexcept {
    return inCharacter == '-' || inCharacter == '@' || inCharacter == '/' || inCharacter == '#';
  }

  // Up to two hexadecimal digits; missing ones read as 0.
  unsigned char ReadEscapedByte() noexcept {
    int theValue = 0;
    for (int theCount = 0; theCount < 2 && HexDigitValue(*mNext) >= 0; ++theCount, ++mNext) {
      theValue = 16 * theValue + HexDigitValue(*mNext);
    }
    return static_cast<unsigned char>(theValue);
  }

  bool ReadBitDepth(UInt32 inFlags) {
    mFormat.mFormatID = kAudioFormatLinearPCM;
    mFormat.mFormatFlags = inFlags;
    mFormat.mFramesPerPacket = 1;
    mFormat.mChannelsPerFrame = 1;
    UInt32 theDepth = ReadDecimal();
    if (Skip('.')) {
      if (!IsDigit(*mNext)) {
        std::fprintf(stderr, "Expected fractional bits following '.'\n");
        return false;
      }
      const UInt32 theFraction = ReadDecimal();
      theDepth += theFraction;
      mFormat.mFormatFlags |= theFraction << kLinearPCMFormatFlagsSampleFractionShift;
    }
    mFormat.mBitsPerChannel = theDepth;
    SetBytesPerFrame((theDepth + 7) / 8);
    if (theDepth % 8 != 0) {
      mFormat.mFormatFlags &= ~static_cast<UInt32>(kAudioFormatFlagIsPacked);
      mFormat.mFormatFlags |= kAudioFormatFlagIsAlignedHigh;
    }
    return true;
  }

  void ReadSampleRate() noexcept {
    if (!Skip('@')) return;
    for (; IsDigit(*mNext); ++mNext)
      mFormat.mSampleRate = 10 * mFormat.mSampleRate + (*mNext - '0');
  }

  void ReadFormatFlags() noexcept {
    if (!Skip('/')) return;
    UInt32 theFlags = 0;
    for (int theDigit; (theDigit = HexDigitValue(*mNext)) >= 0; ++mNext) {
      theFlags = theFlags << 4 | static_cast<UInt32>(theDigit);
    }
    mFormat.mFormatFlags = theFlags;
  }

  // The digits follow the value that is there, which for linear PCM is 1.
  void ReadFramesPerPacket() noexcept {
    if (Skip('#')) AccumulateDecimal(mFormat.mFramesPerPacket);
  }

  bool ReadBytesPerFrame() noexcept {
    if (!Skip(':')) return true;
    mFormat.mFormatFlags &= ~static_cast<UInt32>(kAudioFormatFlagIsPacked);
    if (Skip('L')) {
      mFormat.mFormatFlags &= ~static_cast<UInt32>(kAudioFormatFlagIsAlignedHigh);
    } else if (Skip('H')) {
      mFormat.mFormatFlags |= kAudioFormatFlagIsAlignedHigh;
    } else {
      return false;
    }
    SetBytesPerFrame(ReadDecimal());
    return true;
  }

  bool ReadChannels() {
    if (!Skip(',')) return true;
    mFormat.mChannelsPerFrame = ReadDecimal();
    if (Skip('D')) {
      if (!mIsPCM) {
        std::fprintf(stderr, "non-interleaved flag invalid for non-PCM formats\n");
        return false;
      }
      mFormat.mFormatFlags |= kAudioFormatFlagIsNonInterleaved;
      return true;
    }
    Skip('I');
    if (mIsPCM) SetBytesPerFrame(mFormat.mBytesPerFrame * mFormat.mChannelsPerFrame);
    return true;
  }

  void SetBytesPerFrame(UInt32 inByteSize) noexcept {
    mFormat.mBytesPerFrame = inByteSize;
    mFormat.mBytesPerPacket = inByteSize;
  }

  bool Fail() const {
    std::fprintf(stderr, "Invalid format string: %s\nSyntax of format strings is: \n", mText);
    return false;
  }

  const char* const mText;
  const char* mNext;
  AudioStreamBasicDescription& mFormat;
  // Told by the prefix; a code that happens to be 'lpcm' does not count.
  bool mIsPCM = false;
};

}  // namespace

bool CAStreamBasicDescription::FromText(const char* inText,
                                        AudioStreamBasicDescription& outFormat) {
  return FormatTextReader(inText, outFormat).Read();
}
