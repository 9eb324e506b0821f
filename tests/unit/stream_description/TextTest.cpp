#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "unit/stream_description/Values.h"

using namespace tembra;

namespace {

std::string Text(const CAStreamBasicDescription& inFormat, bool inBrief = false) {
  char theBuffer[256];
  EXPECT_EQ(inFormat.AsString(theBuffer, sizeof(theBuffer), inBrief), theBuffer);
  return theBuffer;
}

std::string Name(const AudioStreamBasicDescription& inFormat, bool inAbbreviate,
                 bool inIncludeSampleRate = false) {
  char theBuffer[256];
  CAStreamBasicDescription::GetSimpleName(inFormat, theBuffer, sizeof(theBuffer), inAbbreviate,
                                          inIncludeSampleRate);
  return theBuffer;
}

std::string Code(UInt32 inCode) {
  char theBuffer[24];
  EXPECT_EQ(CAStringForOSType(inCode, theBuffer, sizeof(theBuffer)), theBuffer);
  return theBuffer;
}

CAStreamBasicDescription Unpacked24(UInt32 inFlags) {
  CAStreamBasicDescription theFormat = LinearPCM(24, inFlags, 2, 48000.0);
  theFormat.mBytesPerPacket = theFormat.mBytesPerFrame = 8;
  return theFormat;
}

}  // namespace

TEST(CodeText, PrintableCodesStandInQuotes) {
  EXPECT_EQ(Code('lpcm'), "'lpcm'");
  EXPECT_EQ(Code('aac '), "'aac '");
  EXPECT_EQ(Code('~~~~'), "'~~~~'");
}

TEST(CodeText, OtherCodesAreHexadecimal) {
  EXPECT_EQ(Code(0), "0x00000000");
  EXPECT_EQ(Code(0x6C70630A), "0x6C70630A");
  EXPECT_EQ(Code(0x6C70637F), "0x6C70637F");
  EXPECT_EQ(Code(0xFF616161), "0xFF616161");
  // A backslash is printable but begins an escape where codes are read.
  EXPECT_EQ(Code(0x6162635C), "0x6162635C");
}

TEST(CodeText, IsCutToFit) {
  char theBuffer[8] = "xxxxxxx";
  EXPECT_EQ(CAStringForOSType('lpcm', theBuffer, 4), theBuffer);
  EXPECT_STREQ(theBuffer, "'lp");
  EXPECT_EQ(theBuffer[4], 'x');
  CAStringForOSType('lpcm', theBuffer, 1);
  EXPECT_STREQ(theBuffer, "");
  theBuffer[0] = 'y';
  EXPECT_EQ(CAStringForOSType('lpcm', theBuffer, 0), theBuffer);
  EXPECT_EQ(theBuffer[0], 'y');
}

TEST(BriefText, NamesCommonFormats) {
  EXPECT_EQ(Text(LinearPCM(32, kFloat | kPacked, 2), true), " 2 ch,  44100 Hz, Float32, inter");
  EXPECT_EQ(Text(LinearPCM(64, kFloat | kPacked, 1), true), " 1 ch,  44100 Hz, Float64");
  EXPECT_EQ(Text(LinearPCM(16, kSigned | kPacked, 12, 192000), true),
            "12 ch, 192000 Hz, Int16, inter");
  EXPECT_EQ(Text(LinearPCM(32, kSigned | 0xC00, 2, 8000), true),
            " 2 ch,   8000 Hz, Int8.24, inter");
  CAStreamBasicDescription theSplit = LinearPCM(32, kFloat | kPacked | kNonInterleaved, 1);
  theSplit.mChannelsPerFrame = 2;
  EXPECT_EQ(Text(theSplit, true), " 2 ch,  44100 Hz, Float32, non-inter");
}

TEST(BriefText, OfAnEmptyFormatHasNoName) {
  EXPECT_EQ(Text(CAStreamBasicDescription(), true), " 0 ch,      0 Hz");
}

TEST(BriefText, OfOtherFormatsIsTheLongOne) {
  CAStreamBasicDescription theCodeAlone;
  theCodeAlone.mFormatID = 'aac ';
  CAStreamBasicDescription theRateAlone;
  theRateAlone.mSampleRate = 8000;
  for (const CAStreamBasicDescription& theFormat :
       {LinearPCM(24, kSigned, 2), Encoded('aac '), Encoded('alac'), theCodeAlone, theRateAlone}) {
    EXPECT_EQ(Text(theFormat, true), Text(theFormat, false));
  }
}

TEST(LongText, OfAnEmptyFormat) {
  EXPECT_EQ(Text(CAStreamBasicDescription()),
            " 0 ch,      0 Hz, 0x00000000 (0x00000000) "
            "0 bits/channel, 0 bytes/packet, 0 frames/packet, 0 bytes/frame");
}

TEST(LongText, OfLinearPCM) {
  EXPECT_EQ(Text(LinearPCM(32, kFloat | kPacked, 2)),
            " 2 ch,  44100 Hz, 'lpcm' (0x00000009) 32-bit little-endian float");
  EXPECT_EQ(Text(LinearPCM(16, kSigned | kPacked | kBigEndian, 2)),
            " 2 ch,  44100 Hz, 'lpcm' (0x0000000E) 16-bit big-endian signed integer");
  EXPECT_EQ(Text(LinearPCM(8, kPacked, 1)),
            " 1 ch,  44100 Hz, 'lpcm' (0x00000008) 8-bit unsigned integer");
}

TEST(LongText, TellsPackingAndAlignmentWhereSignificant) {
  EXPECT_EQ(Text(Unpacked24(kSigned)),
            " 2 ch,  48000 Hz, 'lpcm' (0x00000004) 24-bit little-endian signed integer, "
            "unpacked in 4 bytes low-aligned");
  EXPECT_EQ(Text(Unpacked24(kSigned | kPacked | kHighAligned)),
            " 2 ch,  48000 Hz, 'lpcm' (0x0000001C) 24-bit little-endian signed integer, "
            "packed in 4 bytes high-aligned");
}

TEST(LongText, WithoutAWordTellsNeither) {
  CAStreamBasicDescription theFormat = LinearPCM(20, kSigned, 2);
  theFormat.mBytesPerFrame = 0;
  EXPECT_EQ(Text(theFormat), " 2 ch,  44100 Hz, 'lpcm' (0x00000004) 20-bit signed integer");
}

TEST(LongText, TellsFractionAndInterleaving) {
  EXPECT_EQ(Text(LinearPCM(32, kSigned | kPacked | 0xC00, 1)),
            " 1 ch,  44100 Hz, 'lpcm' (0x00000C0C) 8.24-bit little-endian signed integer");
  CAStreamBasicDescription theSplit = LinearPCM(32, kFloat | kPacked | kNonInterleaved, 1);
  theSplit.mChannelsPerFrame = 2;
  EXPECT_EQ(Text(theSplit),
            " 2 ch,  44100 Hz, 'lpcm' (0x00000029) 32-bit little-endian float, deinterleaved");
}

TEST(LongText, OfAppleLosslessTellsTheSource) {
  CAStreamBasicDescription theFormat = Encoded('alac');
  theFormat.mFramesPerPacket = 4096;
  const UInt32 theBits[] = {16, 20, 24, 32};
  for (UInt32 theFlags = 1; theFlags <= 4; ++theFlags) {
    theFormat.mFormatFlags = theFlags;
    EXPECT_EQ(Text(theFormat), " 2 ch,  48000 Hz, 'alac' (0x0000000" + std::to_string(theFlags) +
                                   ") from " + std::to_string(theBits[theFlags - 1]) +
                                   "-bit source, 4096 frames/packet");
  }
  for (const UInt32 theFlags : {0u, 5u}) {
    theFormat.mFormatFlags = theFlags;
    EXPECT_EQ(Text(theFormat), " 2 ch,  48000 Hz, 'alac' (0x0000000" + std::to_string(theFlags) +
                                   ") from UNKNOWN source bit depth, 4096 frames/packet");
  }
}

TEST(LongText, OfOtherFormatsTellsSizes) {
  EXPECT_EQ(Text(CAStreamBasicDescription(32000, 'ima4', 34, 64, 3, 1, 4, 0x20)),
            " 1 ch,  32000 Hz, 'ima4' (0x00000020) "
            "4 bits/channel, 34 bytes/packet, 64 frames/packet, 3 bytes/frame");
}

TEST(LongText, IsCutToFitAtAnySize) {
  for (const CAStreamBasicDescription& theFormat :
       {Unpacked24(kSigned), Encoded('alac'), Encoded('aac '), LinearPCM(32, kFloat, 2)}) {
    for (const bool isBrief : {false, true}) {
      const std::string theWhole = Text(theFormat, isBrief);
      for (size_t theSize = 1; theSize <= theWhole.size() + 1; ++theSize) {
        std::string theBuffer(theWhole.size() + 2, '#');
        theFormat.AsString(theBuffer.data(), theSize, isBrief);
        EXPECT_EQ(theBuffer.substr(0, theSize - 1), theWhole.substr(0, theSize - 1));
        EXPECT_EQ(theBuffer[theSize - 1], '\0');
        EXPECT_EQ(theBuffer.find_first_not_of('#', theSize), std::string::npos);
      }
    }
  }
  char theCharacter = '#';
  LinearPCM(32, kFloat, 2).AsString(&theCharacter, 0, true);
  Encoded('aac ').AsString(&theCharacter, 0, false);
  EXPECT_EQ(theCharacter, '#');
}

TEST(LongText, SurvivesAnyValue) {
  CAStreamBasicDescription theFormat;
  std::memset(static_cast<void*>(&theFormat), 0xFF, sizeof(theFormat));
  EXPECT_FALSE(Text(theFormat).empty());
  theFormat.mSampleRate = 1.7e308;
  theFormat.mFormatID = 'lpcm';
  char theBuffer[512];
  theFormat.AsString(theBuffer, sizeof(theBuffer), false);
  EXPECT_LT(std::strlen(theBuffer), sizeof(theBuffer));
}

TEST(SimpleName, LongFormsOfLinearPCM) {
  EXPECT_EQ(Name(LinearPCM(16, kSigned | kPacked | kBigEndian, 2), false),
            "Mixable 2 Channel 16 Bit Big Endian Signed Integer");
  EXPECT_EQ(Name(Unpacked24(kSigned | kBigEndian | kHighAligned), false),
            "Mixable 2 Channel 24 Bit Big Endian Signed Integer Aligned High in 32 Bits");
  EXPECT_EQ(Name(Unpacked24(kNonMixable), false),
            "Unmixable 2 Channel 24 Bit Unsigned Integer Aligned Low in 32 Bits");
  EXPECT_EQ(Name(LinearPCM(32, kFloat | kPacked, 1), false),
            "Mixable 1 Channel 32 Bit Floating Point");
}

TEST(SimpleName, ShortFormsOfLinearPCM) {
  EXPECT_EQ(Name(Unpacked24(kSigned | kBigEndian), true),
            "Mixable 2 Ch Big Endian Low SInt24/SInt32");
  EXPECT_EQ(Name(LinearPCM(16, kPacked | kBigEndian | kNonMixable, 2), true),
            "Unmixable 2 Ch Big Endian UInt16");
  EXPECT_EQ(Name(Unpacked24(kSigned | kHighAligned), true), "Mixable 2 Ch High SInt24/SInt32");
  EXPECT_EQ(Name(LinearPCM(32, kFloat | kPacked, 2), true), "Mixable 2 Ch Float32");
}

TEST(SimpleName, FloatIsNamedBeforeSign) {
  EXPECT_EQ(Name(LinearPCM(32, kFloat | kSigned | kPacked, 2), true), "Mixable 2 Ch Float32");
}

TEST(SimpleName, WithoutChannelsTheWordIsZero) {
  CAStreamBasicDescription theFormat = LinearPCM(16, kSigned, 2);
  theFormat.mChannelsPerFrame = 0;
  EXPECT_EQ(Name(theFormat, true), "Mixable 0 Ch Low SInt16/SInt0");
}

TEST(SimpleName, BeginsWithTheRateIfAsked) {
  EXPECT_EQ(Name(LinearPCM(32, kFloat | kPacked, 2), true, true), "44100 Mixable 2 Ch Float32");
  EXPECT_EQ(Name(Encoded('aac '), true, true), "48000 aac ");
  EXPECT_EQ(Name(Encoded('ac-3'), false, true), "48000 AC-3");
}

TEST(SimpleName, OfEncodedFormats) {
  EXPECT_EQ(Name(Encoded('ac-3'), false), "AC-3");
  EXPECT_EQ(Name(Encoded('cac3'), false), "AC-3 fo");
  EXPECT_EQ(Name(Encoded('cac3'), true, true), "48000 AC-3 fo");
  EXPECT_EQ(Name(Encoded('alac'), true), "alac");
}

TEST(SimpleName, NeverPassesTheBuffersEnd) {
  for (const CAStreamBasicDescription& theFormat :
       {Encoded('cac3'), Encoded('ac-3'), Encoded('alac'), Unpacked24(kSigned)}) {
    for (const bool includesRate : {false, true}) {
      const std::string theWhole = Name(theFormat, false, includesRate);
      for (UInt32 theSize = 1; theSize <= theWhole.size() + 1; ++theSize) {
        std::string theBuffer(theWhole.size() + 2, '#');
        CAStreamBasicDescription::GetSimpleName(theFormat, theBuffer.data(), theSize, false,
                                                includesRate);
        EXPECT_EQ(theBuffer.substr(0, theSize - 1), theWhole.substr(0, theSize - 1));
        EXPECT_EQ(theBuffer[theSize - 1], '\0');
        EXPECT_EQ(theBuffer.find_first_not_of('#', theSize), std::string::npos);
      }
    }
  }
  char theCharacter = '#';
  CAStreamBasicDescription::GetSimpleName(Encoded('cac3'), &theCharacter, 0, false, true);
  EXPECT_EQ(theCharacter, '#');
}
