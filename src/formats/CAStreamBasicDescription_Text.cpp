// How formats are written for people.

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "formats/CAStreamBasicDescription.h"

namespace {

std::array<unsigned char, 4> BytesOfCode(UInt32 inCode) noexcept {
  return {static_cast<unsigned char>(inCode >> 24), static_cast<unsigned char>(inCode >> 16),
          static_cast<unsigned char>(inCode >> 8), static_cast<unsigned char>(inCode)};
}

// Printable in the C locale, whatever locale the host runs in.
bool IsPrintable(unsigned char inByte) noexcept {
  return inByte >= 0x20 && inByte < 0x7F;
}

// Texts print counts as signed numbers.
int AsInt(UInt32 inValue) noexcept {
  return static_cast<int>(inValue);
}

bool HasFlag(const AudioStreamBasicDescription& inFormat, UInt32 inFlag) noexcept {
  return (inFormat.mFormatFlags & inFlag) != 0;
}

// The part of a buffer that has not been written yet.
struct Room {
  char* mStart;
  size_t mSize;

  // Takes away what snprintf said it wrote. No room is left where the text was cut, nor where it
  // failed: a negative length counts as a huge one.
  void Advance(int inLength) noexcept {
    const size_t theLength = std::min(static_cast<size_t>(inLength), mSize);
    mStart += theLength;
    mSize -= theLength;
  }
};

void PrintRestOfLinearPCM(const CAStreamBasicDescription& inFormat, Room inRoom) {
  char theDepth[32];
  const UInt32 theFraction = (inFormat.mFormatFlags & kLinearPCMFormatFlagsSampleFractionMask) >>
                             kLinearPCMFormatFlagsSampleFractionShift;
  if (theFraction != 0) {
    std::snprintf(theDepth, sizeof(theDepth), "%d.%d",
                  AsInt(inFormat.mBitsPerChannel - theFraction), AsInt(theFraction));
  } else {
    std::snprintf(theDepth, sizeof(theDepth), "%d", AsInt(inFormat.mBitsPerChannel));
  }

  const UInt32 theWordSize = inFormat.SampleWordSize();
  const bool isInteger = !HasFlag(inFormat, kAudioFormatFlagIsFloat);
  const char* theEndian = "";
  if (theWordSize >= 2) {
    theEndian = HasFlag(inFormat, kAudioFormatFlagIsBigEndian) ? " big-endian" : " little-endian";
  }
  const char* theSign = "";
  if (isInteger) {
    theSign = HasFlag(inFormat, kAudioFormatFlagIsSignedInteger) ? " signed" : " unsigned";
  }
  char thePackedness[32] = "";
  if (theWordSize > 0 && inFormat.PackednessIsSignificant()) {
    std::snprintf(thePackedness, sizeof(thePackedness), "%s in %d bytes",
                  HasFlag(inFormat, kAudioFormatFlagIsPacked) ? "packed" : "unpacked",
                  AsInt(theWordSize));
  }
  const char* theAlignment = "";
  if (theWordSize > 0 && inFormat.AlignmentIsSignificant()) {
    theAlignment =
        HasFlag(inFormat, kAudioFormatFlagIsAlignedHigh) ? " high-aligned" : " low-aligned";
  }
  const char* theComma = thePackedness[0] != '\0' || theAlignment[0] != '\0' ? ", " : "";

  std::snprintf(inRoom.mStart, inRoom.mSize, "%s-bit%s%s %s%s%s%s%s", theDepth, theEndian, theSign,
                isInteger ? "integer" : "float", theComma, thePackedness, theAlignment,
                inFormat.IsInterleaved() ? "" : ", deinterleaved");
}

void PrintRestOfAppleLossless(const CAStreamBasicDescription& inFormat, Room inRoom) {
  int theSourceBits = 0;
  switch (inFormat.mFormatFlags) {
    case kAppleLosslessFormatFlag_16BitSourceData:
      theSourceBits = 16;
      break;
    case kAppleLosslessFormatFlag_20BitSourceData:
      theSourceBits = 20;
      break;
    case kAppleLosslessFormatFlag_24BitSourceData:
      theSourceBits = 24;
      break;
    case kAppleLosslessFormatFlag_32BitSourceData:
      theSourceBits = 32;
      break;
    default:
      break;
  }
  if (theSourceBits != 0) {
    inRoom.Advance(
        std::snprintf(inRoom.mStart, inRoom.mSize, "from %d-bit source, ", theSourceBits));
  } else {
    inRoom.Advance(std::snprintf(inRoom.mStart, inRoom.mSize, "from UNKNOWN source bit depth, "));
  }
  if (inRoom.mSize == 0) return;
  std::snprintf(inRoom.mStart, inRoom.mSize, "%d frames/packet", AsInt(inFormat.mFramesPerPacket));
}

// Copies as much of a text as fits, always with a terminator. There must be room for that.
void CopyText(Room inRoom, std::string_view inText) noexcept {
  const size_t theLength = std::min(inText.size(), inRoom.mSize - 1);
  std::memcpy(inRoom.mStart, inText.data(), theLength);
  inRoom.mStart[theLength] = '\0';
}

void PrintSimpleNameOfLinearPCM(const AudioStreamBasicDescription& inFormat, Room inRoom,
                                bool inAbbreviate) {
  const char* theMix = CAStreamBasicDescription::IsMixable(inFormat) ? "Mixable" : "Unmixable";
  const bool isBigEndian = HasFlag(inFormat, kAudioFormatFlagIsBigEndian);
  const char* theEndian = "Big Endian";
  const bool isUnpacked = !HasFlag(inFormat, kAudioFormatFlagIsPacked);
  const char* theAlignment = HasFlag(inFormat, kAudioFormatFlagIsAlignedHigh) ? "High" : "Low";
  const char* theKind = inAbbreviate ? "UInt" : "Unsigned Integer";
  if (HasFlag(inFormat, kAudioFormatFlagIsFloat)) {
    theKind = inAbbreviate ? "Float" : "Floating Point";
  } else if (HasFlag(inFormat, kAudioFormatFlagIsSignedInteger)) {
    theKind = inAbbreviate ? "SInt" : "Signed Integer";
  }

  char* const theText = inRoom.mStart;
  const size_t theSize = inRoom.mSize;
  const int theChannels = AsInt(inFormat.mChannelsPerFrame);
  const int theBits = AsInt(inFormat.mBitsPerChannel);
  const int theWordSize = inFormat.mChannelsPerFrame == 0
                              ? 0
                              : AsInt(inFormat.mBytesPerFrame / inFormat.mChannelsPerFrame * 8);

  if (!inAbbreviate) {
    if (isBigEndian && isUnpacked) {
      std::snprintf(theText, theSize, "%s %d Channel %d Bit %s %s Aligned %s in %d Bits", theMix,
                    theChannels, theBits, theEndian, theKind, theAlignment, theWordSize);
    } else if (isBigEndian) {
      std::snprintf(theText, theSize, "%s %d Channel %d Bit %s %s", theMix, theChannels, theBits,
                    theEndian, theKind);
    } else if (isUnpacked) {
      std::snprintf(theText, theSize, "%s %d Channel %d Bit %s Aligned %s in %d Bits", theMix,
                    theChannels, theBits, theKind, theAlignment, theWordSize);
    } else {
      std::snprintf(theText, theSize, "%s %d Channel %d Bit %s", theMix, theChannels, theBits,
                    theKind);
    }
  } else {
    if (isBigEndian && isUnpacked) {
      std::snprintf(theText, theSize, "%s %d Ch %s %s %s%d/%s%d", theMix, theChannels, theEndian,
                    theAlignment, theKind, theBits, theKind, theWordSize);
    } else if (isBigEndian) {
      std::snprintf(theText, theSize, "%s %d Ch %s %s%d", theMix, theChannels, theEndian, theKind,
                    theBits);
    } else if (isUnpacked) {
      std::snprintf(theText, theSize, "%s %d Ch %s %s%d/%s%d", theMix, theChannels, theAlignment,
                    theKind, theBits, theKind, theWordSize);
    } else {
      std::snprintf(theText, theSize, "%s %d Ch %s%d", theMix, theChannels, theKind, theBits);
    }
  }
}

}  // namespace

char* CAStringForOSType(UInt32 inCode, char* outBuffer, size_t inSize) {
  if (inSize == 0) return outBuffer;
  const auto theBytes = BytesOfCode(inCode);
  const bool isText = std::all_of(theBytes.begin(), theBytes.end(), [](unsigned char inByte) {
    return IsPrintable(inByte) && inByte != '\\';
  });
  std::snprintf(outBuffer, inSize, isText ? "'%c%c%c%c'" : "0x%02X%02X%02X%02X", theBytes[0],
                theBytes[1], theBytes[2], theBytes[3]);
  return outBuffer;
}

char* CAStreamBasicDescription::AsString(char* outBuffer, size_t inSize, bool inBrief) const {
  if (inSize == 0) return outBuffer;
  char theFormatID[24];
  CAStringForOSType(mFormatID, theFormatID, sizeof(theFormatID));

  if (inBrief) {
    CommonPCMFormat theCommonFormat;
    bool isInterleaved = false;
    if (IdentifyCommonPCMFormat(theCommonFormat, &isInterleaved) &&
        theCommonFormat != kPCMFormatOther) {
      static constexpr std::array<const char*, 5> kNames = {"", "Float32", "Int16", "Int8.24",
                                                            "Float64"};
      const char* theInterleaving = "";
      if (mChannelsPerFrame > 1) theInterleaving = isInterleaved ? ", inter" : ", non-inter";
      std::snprintf(outBuffer, inSize, "%2d ch, %6.0f Hz, %s%s", AsInt(mChannelsPerFrame),
                    mSampleRate, kNames[theCommonFormat], theInterleaving);
      return outBuffer;
    }
    if (mChannelsPerFrame == 0 && mSampleRate == 0.0 && mFormatID == 0) {
      std::snprintf(outBuffer, inSize, "%2d ch, %6.0f Hz", AsInt(mChannelsPerFrame), mSampleRate);
      return outBuffer;
    }
  }

  Room theRoom{outBuffer, inSize};
  theRoom.Advance(std::snprintf(outBuffer, inSize, "%2d ch, %6.0f Hz, %s (0x%08X) ",
                                AsInt(mChannelsPerFrame), mSampleRate, theFormatID, mFormatFlags));
  if (theRoom.mSize == 0) return outBuffer;
  if (mFormatID == kAudioFormatLinearPCM) {
    PrintRestOfLinearPCM(*this, theRoom);
  } else if (mFormatID == kAudioFormatAppleLossless) {
    PrintRestOfAppleLossless(*this, theRoom);
  } else {
    std::snprintf(theRoom.mStart, theRoom.mSize,
                  "%d bits/channel, %d bytes/packet, %d frames/packet, %d bytes/frame",
                  AsInt(mBitsPerChannel), AsInt(mBytesPerPacket), AsInt(mFramesPerPacket),
                  AsInt(mBytesPerFrame));
  }
  return outBuffer;
}

void CAStreamBasicDescription::GetSimpleName(const AudioStreamBasicDescription& inFormat,
                                             char* outBuffer, UInt32 inSize, bool inAbbreviate,
                                             bool inIncludeSampleRate) {
  if (inSize == 0) return;
  outBuffer[0] = '\0';
  Room theRoom{outBuffer, inSize};
  if (inIncludeSampleRate) {
    theRoom.Advance(std::snprintf(theRoom.mStart, theRoom.mSize, "%.0f ", inFormat.mSampleRate));
    if (theRoom.mSize == 0) return;
  }

  // These two names have a menu column of 8 bytes, terminator included.
  const Room theColumn{theRoom.mStart, std::min<size_t>(theRoom.mSize, 8)};
  switch (inFormat.mFormatID) {
    case kAudioFormatLinearPCM:
      PrintSimpleNameOfLinearPCM(inFormat, theRoom, inAbbreviate);
      break;
    case kAudioFormatAC3:
      CopyText(theColumn, "AC-3");
      break;
    case kAudioFormat60958AC3:
      CopyText(theColumn, "AC-3 for SPDIF");
      break;
    default: {
      const auto theBytes = BytesOfCode(inFormat.mFormatID);
      std::snprintf(theRoom.mStart, theRoom.mSize, "%c%c%c%c", theBytes[0], theBytes[1],
                    theBytes[2], theBytes[3]);
      break;
    }
  }
}
