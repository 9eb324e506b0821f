#include <gtest/gtest.h>

#include "unit/stream_description/Values.h"

using namespace tembra;

namespace {

using Format = CAStreamBasicDescription;

constexpr UInt32 k24BitFraction = 0xC00;

void ExpectCommon(const Format& inFormat, Format::CommonPCMFormat inExpected) {
  auto theFormat = static_cast<Format::CommonPCMFormat>(77);
  EXPECT_TRUE(inFormat.IdentifyCommonPCMFormat(theFormat));
  EXPECT_EQ(theFormat, inExpected);
}

void ExpectNotPlain(const Format& inFormat) {
  auto theFormat = static_cast<Format::CommonPCMFormat>(77);
  EXPECT_FALSE(inFormat.IdentifyCommonPCMFormat(theFormat));
  EXPECT_EQ(theFormat, Format::kPCMFormatOther);
}

}  // namespace

TEST(CommonFormat, HasTheseValues) {
  EXPECT_EQ(Format::kPCMFormatOther, 0);
  EXPECT_EQ(Format::kPCMFormatFloat32, 1);
  EXPECT_EQ(Format::kPCMFormatInt16, 2);
  EXPECT_EQ(Format::kPCMFormatFixed824, 3);
  EXPECT_EQ(Format::kPCMFormatFloat64, 4);
}

TEST(CommonFormat, KnowsTheFour) {
  ExpectCommon(LinearPCM(32, kFloat | kPacked, 2), Format::kPCMFormatFloat32);
  ExpectCommon(LinearPCM(64, kFloat | kPacked, 2), Format::kPCMFormatFloat64);
  ExpectCommon(LinearPCM(16, kSigned | kPacked, 2), Format::kPCMFormatInt16);
  ExpectCommon(LinearPCM(32, kSigned | kPacked | k24BitFraction, 2), Format::kPCMFormatFixed824);
}

TEST(CommonFormat, AnswersOtherForPlainFormatsWithoutAName) {
  ExpectCommon(LinearPCM(32, kSigned | kPacked, 2), Format::kPCMFormatOther);
  ExpectCommon(LinearPCM(24, kSigned | kPacked, 2), Format::kPCMFormatOther);
  ExpectCommon(LinearPCM(8, kSigned | kPacked, 2), Format::kPCMFormatOther);
  ExpectCommon(LinearPCM(16, kPacked, 2), Format::kPCMFormatOther);
  ExpectCommon(LinearPCM(16, kFloat, 2), Format::kPCMFormatOther);
  ExpectCommon(LinearPCM(16, kSigned | 0x80, 2), Format::kPCMFormatOther);
  ExpectCommon(LinearPCM(64, kSigned | kPacked | k24BitFraction, 2), Format::kPCMFormatOther);
  ExpectCommon(LinearPCM(32, kFloat | kPacked | kBigEndian, 2), Format::kPCMFormatOther);
  // A big-endian float with flags that no float may have is not looked at closely.
  ExpectCommon(LinearPCM(32, kFloat | kSigned | kBigEndian, 2), Format::kPCMFormatOther);
  Format theFormat = LinearPCM(24, kSigned, 2);
  theFormat.mBytesPerPacket = theFormat.mBytesPerFrame = 8;
  ExpectCommon(theFormat, Format::kPCMFormatOther);
}

TEST(CommonFormat, RefusesWhatIsNotPlain) {
  ExpectNotPlain(Encoded('aac '));
  Format theFormat = LinearPCM(16, kSigned, 2);
  theFormat.mFramesPerPacket = 2;
  ExpectNotPlain(theFormat);
  theFormat = LinearPCM(16, kSigned, 2);
  theFormat.mBytesPerPacket = 2;
  ExpectNotPlain(theFormat);
  theFormat = LinearPCM(16, kSigned, 2);
  theFormat.mBitsPerChannel = 40;
  ExpectNotPlain(theFormat);
  theFormat = LinearPCM(16, kSigned, 2);
  theFormat.mChannelsPerFrame = 0;
  ExpectNotPlain(theFormat);
  theFormat = LinearPCM(16, kSigned, 2);
  theFormat.mChannelsPerFrame = 3;
  ExpectNotPlain(theFormat);
}

TEST(CommonFormat, RefusesFloatsWithSignOrFraction) {
  ExpectNotPlain(LinearPCM(32, kFloat | kSigned, 2));
  ExpectNotPlain(LinearPCM(32, kFloat | 0x80, 2));
  ExpectNotPlain(LinearPCM(32, kFloat | 0x1000, 2));
}

TEST(CommonFormat, BitsUpToTheFrameAreEnough) {
  Format theFormat = LinearPCM(16, kSigned, 2);
  theFormat.mBitsPerChannel = 39;
  ExpectCommon(theFormat, Format::kPCMFormatOther);
}

TEST(CommonFormat, TellsInterleaving) {
  Format::CommonPCMFormat theFormat;
  bool isInterleaved = false;
  EXPECT_TRUE(LinearPCM(16, kSigned, 2).IdentifyCommonPCMFormat(theFormat, &isInterleaved));
  EXPECT_TRUE(isInterleaved);

  Format theSplit = LinearPCM(16, kSigned | kNonInterleaved, 1);
  theSplit.mChannelsPerFrame = 5;
  EXPECT_TRUE(theSplit.IdentifyCommonPCMFormat(theFormat, &isInterleaved));
  EXPECT_FALSE(isInterleaved);
  EXPECT_EQ(theFormat, Format::kPCMFormatInt16);
}

TEST(CommonFormat, TellsInterleavingOnceTheFormatIsPlain) {
  Format::CommonPCMFormat theFormat;
  bool isInterleaved = true;
  EXPECT_FALSE(Encoded('aac ').IdentifyCommonPCMFormat(theFormat, &isInterleaved));
  EXPECT_TRUE(isInterleaved);
  isInterleaved = false;
  Format theUneven = LinearPCM(16, kSigned, 2);
  theUneven.mChannelsPerFrame = 3;
  EXPECT_FALSE(theUneven.IdentifyCommonPCMFormat(theFormat, &isInterleaved));
  EXPECT_TRUE(isInterleaved);
}
