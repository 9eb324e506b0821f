#include <gtest/gtest.h>

#include <string>

#include "unit/stream_description/Values.h"

using namespace tembra;

namespace {

struct Result {
  bool mIsFormat = false;
  CAStreamBasicDescription mFormat;
  std::string mMessages;
};

Result Parse(const std::string& inText) {
  Result theResult;
  theResult.mFormat = CAStreamBasicDescription(1, 2, 3, 4, 5, 6, 7, 8);
  testing::internal::CaptureStderr();
  theResult.mIsFormat = CAStreamBasicDescription::FromText(inText.c_str(), theResult.mFormat);
  theResult.mMessages = testing::internal::GetCapturedStderr();
  return theResult;
}

CAStreamBasicDescription Parsed(const std::string& inText) {
  const Result theResult = Parse(inText);
  EXPECT_TRUE(theResult.mIsFormat) << inText;
  EXPECT_EQ(theResult.mMessages, "") << inText;
  return theResult.mFormat;
}

void ExpectFormat(const std::string& inText, const CAStreamBasicDescription& inExpected) {
  const CAStreamBasicDescription theFormat = Parsed(inText);
  EXPECT_EQ(theFormat.mSampleRate, inExpected.mSampleRate) << inText;
  EXPECT_EQ(theFormat.mFormatID, inExpected.mFormatID) << inText;
  EXPECT_EQ(theFormat.mFormatFlags, inExpected.mFormatFlags) << inText;
  EXPECT_EQ(theFormat.mBytesPerPacket, inExpected.mBytesPerPacket) << inText;
  EXPECT_EQ(theFormat.mFramesPerPacket, inExpected.mFramesPerPacket) << inText;
  EXPECT_EQ(theFormat.mBytesPerFrame, inExpected.mBytesPerFrame) << inText;
  EXPECT_EQ(theFormat.mChannelsPerFrame, inExpected.mChannelsPerFrame) << inText;
  EXPECT_EQ(theFormat.mBitsPerChannel, inExpected.mBitsPerChannel) << inText;
  EXPECT_EQ(theFormat.mReserved, 0u) << inText;
}

void ExpectFailure(const std::string& inText, const std::string& inCause) {
  const Result theResult = Parse(inText);
  EXPECT_FALSE(theResult.mIsFormat) << inText;
  EXPECT_EQ(theResult.mMessages,
            inCause + "Invalid format string: " + inText + "\nSyntax of format strings is: \n");
}

void ExpectSilentFailure(const std::string& inText) {
  const Result theResult = Parse(inText);
  EXPECT_FALSE(theResult.mIsFormat) << inText;
  EXPECT_EQ(theResult.mMessages, "") << inText;
}

CAStreamBasicDescription Mono(UInt32 inBits, UInt32 inBytes, UInt32 inFlags) {
  return CAStreamBasicDescription(0, 'lpcm', inBytes, 1, inBytes, 1, inBits, inFlags);
}

CAStreamBasicDescription OnlyCode(UInt32 inCode) {
  return CAStreamBasicDescription(0, inCode, 0, 0, 0, 0, 0, 0);
}

}  // namespace

TEST(FormatText, UsageIsThisText) {
  EXPECT_STREQ(
      CAStreamBasicDescription::sTextParsingUsageString,
      "format[@sample_rate_hz][/format_flags][#frames_per_packet][:LHbytesPerFrame][,channelsDI]."
      "\nFormat for PCM is [-][BE|LE]{F|I|UI}{bitdepth}; else a 4-char format code (e.g. aac, "
      "alac).\n");
}

TEST(FormatText, WholeLinearPCMFormat) {
  ExpectFormat("LEF32@44100,2", CAStreamBasicDescription(44100, 'lpcm', 8, 1, 8, 2, 32, 0x9));
}

TEST(FormatText, Prefixes) {
  ExpectFormat("BEUI24", Mono(24, 3, 0xA));
  ExpectFormat("I16", Mono(16, 2, 0xC));
  ExpectFormat("LEI16", Mono(16, 2, 0xC));
  ExpectFormat("BEI16", Mono(16, 2, 0xE));
  ExpectFormat("UI8", Mono(8, 1, 0x8));
  ExpectFormat("F64", Mono(64, 8, 0x9));
  ExpectFormat("BEF32", Mono(32, 4, 0xB));
  ExpectFormat("-BEF32", Mono(32, 4, 0xB));
  ExpectFormat("-I16", Mono(16, 2, 0xC));
}

TEST(FormatText, PartDepthsDropPackedAndAlignHigh) {
  ExpectFormat("I20", Mono(20, 3, 0x14));
  ExpectFormat("F33", Mono(33, 5, 0x11));
}

TEST(FormatText, FractionAddsToTheDepth) {
  ExpectFormat("I8.24", Mono(32, 4, 0xC0C));
  ExpectFormat("I8.3", Mono(11, 2, 0x194));
}

TEST(FormatText, FractionMustHaveDigits) {
  ExpectFailure("I8.", "Expected fractional bits following '.'\n");
  ExpectFailure("I8.x", "Expected fractional bits following '.'\n");
}

TEST(FormatText, WithoutDigitsTheDepthIsZero) {
  ExpectFormat("F", Mono(0, 0, 0x9));
}

TEST(FormatText, FourCharacterCodes) {
  ExpectFormat("alac", OnlyCode('alac'));
  ExpectFormat("aac ", OnlyCode('aac '));
  ExpectFormat("aac", OnlyCode('aac '));
  ExpectFormat("UUUU", OnlyCode('UUUU'));
  ExpectFormat("BExy", OnlyCode('BExy'));
  ExpectFormat("-xyz", OnlyCode('-xyz'));
  ExpectFormat(".mp3", OnlyCode('.mp3'));
}

TEST(FormatText, HalfAByteOrderIsTheStartOfACode) {
  // None of these is linear PCM, also where its kind stands at the third place.
  ExpectFormat("BxI8", OnlyCode('BxI8'));
  ExpectFormat("LxF8", OnlyCode('LxF8'));
  ExpectFormat("BLI8", OnlyCode('BLI8'));
  ExpectFormat("LBF8", OnlyCode('LBF8'));
  ExpectFormat("-BxI", OnlyCode('-BxI'));
  ExpectFormat("-LxI", OnlyCode('-LxI'));
  ExpectFormat("BI16", OnlyCode('BI16'));
  ExpectFormat("LF32", OnlyCode('LF32'));
  ExpectSilentFailure("B");
  ExpectSilentFailure("L");
}

TEST(FormatText, CodesOfThreeEndWhereASuffixBegins) {
  CAStreamBasicDescription theExpected = OnlyCode('aac ');
  theExpected.mSampleRate = 44100;
  ExpectFormat("aac@44100", theExpected);
  theExpected = OnlyCode('aac ');
  theExpected.mFormatFlags = 5;
  ExpectFormat("aac/5", theExpected);
  theExpected = OnlyCode('aac ');
  theExpected.mFramesPerPacket = 1024;
  ExpectFormat("aac#1024", theExpected);
  ExpectFailure("aac-", "extra characters at end of format string: -\n");
}

TEST(FormatText, SuffixCharactersWithinACodeBelongToIt) {
  ExpectFormat("ac-3", OnlyCode('ac-3'));
  ExpectFormat("a@/#", CAStreamBasicDescription(0, 'a@/ ', 0, 0, 0, 0, 0, 0));
  CAStreamBasicDescription theExpected = OnlyCode('ac-3');
  theExpected.mSampleRate = 48000;
  ExpectFormat("ac-3@48000", theExpected);
}

TEST(FormatText, CommaIsPartOfACode) {
  const Result theResult = Parse("aac,2");
  EXPECT_FALSE(theResult.mIsFormat);
  EXPECT_EQ(theResult.mFormat.mFormatID, 'aac,');
  ExpectFailure("aac,2", "extra characters at end of format string: 2\n");
}

TEST(FormatText, ShortCodesFailSilently) {
  ExpectSilentFailure("");
  ExpectSilentFailure("a");
  ExpectSilentFailure("ab");
  ExpectSilentFailure("-");
  ExpectSilentFailure("BE");
  ExpectSilentFailure("U");
}

TEST(FormatText, EscapedBytes) {
  ExpectFormat("\\x61\\x6C\\x61\\x63", OnlyCode('alac'));
  ExpectFormat("ms\\x00\\x11", OnlyCode(0x6D730011));
  ExpectFormat("ms\\xfF\\xAb", OnlyCode(0x6D73FFAB));
  ExpectFormat("ms\\x00\\x11@8000", CAStreamBasicDescription(8000, 0x6D730011, 0, 0, 0, 0, 0, 0));
}

TEST(FormatText, EscapesTakeOneOrTwoDigits) {
  ExpectFormat("ms\\x0\\x1", OnlyCode(0x6D730001));
  ExpectFormat("\\x6acd", OnlyCode(0x6A636420));
  ExpectFormat("\\x6zcd", OnlyCode(0x067A6364));
}

TEST(FormatText, EscapesWithoutDigitsReadAsZero) {
  ExpectFormat("ms\\xz", OnlyCode(0x6D73007A));
}

TEST(FormatText, EscapedSuffixCharactersArePartOfTheCode) {
  ExpectFormat("aac\\x40", OnlyCode('aac@'));
  ExpectFormat("aac\\x40@8000", CAStreamBasicDescription(8000, 'aac@', 0, 0, 0, 0, 0, 0));
}

TEST(FormatText, OtherEscapesFailSilently) {
  ExpectSilentFailure("aac\\n");
  ExpectSilentFailure("aac\\");
  ExpectSilentFailure("\\X61lac");
  ExpectSilentFailure("a\\\\bc");
}

TEST(FormatText, SampleRate) {
  CAStreamBasicDescription theExpected = Mono(16, 2, 0xC);
  theExpected.mSampleRate = 192000;
  ExpectFormat("I16@192000", theExpected);
  ExpectFormat("I16@", Mono(16, 2, 0xC));
  ExpectFailure("I16@44100.5", "extra characters at end of format string: .5\n");
}

TEST(FormatText, FlagsReplaceAllThatWereThere) {
  ExpectFormat("BEI16/29", Mono(16, 2, 0x29));
  ExpectFormat("BEI16/aBcDeF01", Mono(16, 2, 0xABCDEF01));
  ExpectFormat("BEI16/", Mono(16, 2, 0));
}

TEST(FormatText, FramesPerPacketFollowTheValueThatIsThere) {
  CAStreamBasicDescription theExpected = Mono(16, 2, 0xC);
  theExpected.mFramesPerPacket = 14;
  ExpectFormat("I16#4", theExpected);
  theExpected = OnlyCode('alac');
  theExpected.mFramesPerPacket = 4096;
  ExpectFormat("alac#4096", theExpected);
  ExpectFormat("I16#", Mono(16, 2, 0xC));
}

TEST(FormatText, BytesPerFrameClearPackedAndChooseTheAlignment) {
  ExpectFormat("I24:L4", Mono(24, 4, 0x4));
  ExpectFormat("I24:H4", Mono(24, 4, 0x14));
  ExpectFormat("I20:L4", Mono(20, 4, 0x4));
  ExpectFormat("I20:H", Mono(20, 0, 0x14));
}

TEST(FormatText, BytesPerFrameNeedAnAlignment) {
  ExpectFailure("I24:4", "");
  ExpectFailure("I24:", "");
  ExpectFailure("I24:l4", "");
}

TEST(FormatText, ChannelsMultiplyTheBytesOfInterleavedLinearPCM) {
  ExpectFormat("I16,6", CAStreamBasicDescription(0, 'lpcm', 12, 1, 12, 6, 16, 0xC));
  ExpectFormat("I16,6I", CAStreamBasicDescription(0, 'lpcm', 12, 1, 12, 6, 16, 0xC));
  ExpectFormat("I16,6D", CAStreamBasicDescription(0, 'lpcm', 2, 1, 2, 6, 16, 0x2C));
  ExpectFormat("I24:H4,2", CAStreamBasicDescription(0, 'lpcm', 8, 1, 8, 2, 24, 0x14));
  ExpectFormat("I16,", CAStreamBasicDescription(0, 'lpcm', 0, 1, 0, 0, 16, 0xC));
}

TEST(FormatText, ChannelsOfOtherFormatsLeaveTheBytes) {
  CAStreamBasicDescription theExpected = OnlyCode('aac ');
  theExpected.mChannelsPerFrame = 2;
  ExpectFormat("aac ,2", theExpected);
  ExpectFormat("aac ,2I", theExpected);
  theExpected.mBytesPerFrame = theExpected.mBytesPerPacket = 3;
  ExpectFormat("aac :L3,2", theExpected);
}

TEST(FormatText, NonInterleavedIsForLinearPCM) {
  ExpectFailure("aac ,2D", "non-interleaved flag invalid for non-PCM formats\n");
  // Written as a code, even linear PCM is just a code.
  ExpectFailure("lpcm,2D", "non-interleaved flag invalid for non-PCM formats\n");
}

TEST(FormatText, AllPartsInOrder) {
  ExpectFormat("BEI20@96000/16#0:L4,8D",
               CAStreamBasicDescription(96000, 'lpcm', 4, 10, 4, 8, 20, 0x26));
}

TEST(FormatText, PartsOutOfOrderAreExtra) {
  ExpectFailure("I16,2@44100", "extra characters at end of format string: @44100\n");
  ExpectFailure("I16 ", "extra characters at end of format string:  \n");
  ExpectFailure("F32,2DI", "extra characters at end of format string: I\n");
}

TEST(FormatText, NumbersThatAreTooLongWrap) {
  ExpectFormat("aac #4294967297", CAStreamBasicDescription(0, 'aac ', 0, 1, 0, 0, 0, 0));
  ExpectFormat("aac /123456789", CAStreamBasicDescription(0, 'aac ', 0, 0, 0, 0, 0, 0x23456789));
  EXPECT_GT(Parsed("I16@" + std::string(400, '9')).mSampleRate, 1e308);
}

TEST(FormatText, WhatIsReadIsWhatAsStringShows) {
  char theText[128];
  Parsed("BEI24@48000,2").AsString(theText, sizeof(theText), false);
  EXPECT_STREQ(theText, " 2 ch,  48000 Hz, 'lpcm' (0x0000000E) 24-bit big-endian signed integer");
}
