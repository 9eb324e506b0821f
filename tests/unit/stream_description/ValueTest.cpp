#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <new>

#include "unit/stream_description/Values.h"

using namespace tembra;

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

AudioStreamBasicDescription EachFieldDifferent() {
  AudioStreamBasicDescription theFormat;
  theFormat.mSampleRate = 1.5;
  theFormat.mFormatID = 2;
  theFormat.mFormatFlags = 3;
  theFormat.mBytesPerPacket = 4;
  theFormat.mFramesPerPacket = 5;
  theFormat.mBytesPerFrame = 6;
  theFormat.mChannelsPerFrame = 7;
  theFormat.mBitsPerChannel = 8;
  theFormat.mReserved = 9;
  return theFormat;
}

bool SameBytes(const AudioStreamBasicDescription& inX, const AudioStreamBasicDescription& inY) {
  return std::memcmp(&inX, &inY, sizeof(inX)) == 0;
}

// Equality must not depend on which side a format stands.
void ExpectEqual(const CAStreamBasicDescription& inX, const CAStreamBasicDescription& inY) {
  EXPECT_TRUE(inX == inY);
  EXPECT_TRUE(inY == inX);
  EXPECT_FALSE(inX != inY);
}

void ExpectDifferent(const CAStreamBasicDescription& inX, const CAStreamBasicDescription& inY) {
  EXPECT_FALSE(inX == inY);
  EXPECT_FALSE(inY == inX);
  EXPECT_TRUE(inX != inY);
}

void ExpectOrdered(const CAStreamBasicDescription& inLess, const CAStreamBasicDescription& inMore) {
  EXPECT_TRUE(inLess < inMore);
  EXPECT_FALSE(inMore < inLess);
}

void ExpectUnordered(const CAStreamBasicDescription& inX, const CAStreamBasicDescription& inY) {
  EXPECT_FALSE(inX < inY);
  EXPECT_FALSE(inY < inX);
}

}  // namespace

TEST(StreamDescription, AddsNoFieldToThePlatformsRecord) {
  EXPECT_EQ(sizeof(CAStreamBasicDescription), 40u);
  EXPECT_EQ(sizeof(CAStreamBasicDescription), sizeof(AudioStreamBasicDescription));
}

TEST(StreamDescription, DefaultConstructorZeroesAllBytes) {
  alignas(CAStreamBasicDescription) unsigned char theStorage[sizeof(CAStreamBasicDescription)];
  std::memset(theStorage, 0xA5, sizeof(theStorage));
  auto* theFormat = new (theStorage) CAStreamBasicDescription();
  EXPECT_TRUE(SameBytes(*theFormat, CAStreamBasicDescription::sEmpty));
  for (const unsigned char theByte : theStorage) EXPECT_EQ(theByte, 0);
}

TEST(StreamDescription, CopiesAllBytes) {
  const AudioStreamBasicDescription theSource = EachFieldDifferent();
  EXPECT_TRUE(SameBytes(CAStreamBasicDescription(theSource), theSource));
  CAStreamBasicDescription theSet;
  theSet.SetFrom(theSource);
  EXPECT_TRUE(SameBytes(theSet, theSource));
  CAStreamBasicDescription theAssigned;
  theAssigned = theSource;
  EXPECT_TRUE(SameBytes(theAssigned, theSource));
}

TEST(StreamDescription, FieldConstructorSetsEachFieldAndClearsTheReservedOne) {
  const CAStreamBasicDescription theFormat(1.5, 2, 3, 4, 5, 6, 7, 8);
  EXPECT_EQ(theFormat.mSampleRate, 1.5);
  EXPECT_EQ(theFormat.mFormatID, 2u);
  EXPECT_EQ(theFormat.mBytesPerPacket, 3u);
  EXPECT_EQ(theFormat.mFramesPerPacket, 4u);
  EXPECT_EQ(theFormat.mBytesPerFrame, 5u);
  EXPECT_EQ(theFormat.mChannelsPerFrame, 6u);
  EXPECT_EQ(theFormat.mBitsPerChannel, 7u);
  EXPECT_EQ(theFormat.mFormatFlags, 8u);
  EXPECT_EQ(theFormat.mReserved, 0u);
}

TEST(StreamDescription, ResetZeroesEveryField) {
  AudioStreamBasicDescription theFormat = EachFieldDifferent();
  CAStreamBasicDescription::ResetFormat(theFormat);
  EXPECT_TRUE(SameBytes(theFormat, CAStreamBasicDescription::sEmpty));
}

TEST(StreamDescription, KnowsLinearPCM) {
  EXPECT_TRUE(LinearPCM(16, kSigned, 2).IsPCM());
  EXPECT_FALSE(Encoded('aac ').IsPCM());
  EXPECT_FALSE(CAStreamBasicDescription().IsPCM());
}

TEST(StreamDescription, MixableIsLinearPCMWithTheNonMixableFlagClear) {
  EXPECT_TRUE(CAStreamBasicDescription::IsMixable(LinearPCM(16, kSigned, 2)));
  EXPECT_FALSE(CAStreamBasicDescription::IsMixable(LinearPCM(16, kSigned | kNonMixable, 2)));
  EXPECT_FALSE(CAStreamBasicDescription::IsMixable(Encoded('ac-3')));
}

TEST(StreamDescription, CountsInterleavedChannels) {
  const CAStreamBasicDescription theInterleaved = LinearPCM(16, kSigned, 6);
  EXPECT_EQ(theInterleaved.NumberChannels(), 6u);
  EXPECT_TRUE(theInterleaved.IsInterleaved());
  EXPECT_EQ(theInterleaved.NumberInterleavedChannels(), 6u);
  const CAStreamBasicDescription theOther = LinearPCM(16, kSigned | kNonInterleaved, 6);
  EXPECT_FALSE(theOther.IsInterleaved());
  EXPECT_EQ(theOther.NumberInterleavedChannels(), 1u);
}

TEST(StreamDescription, SampleWordIsTheShareOfAChannelInAFrame) {
  CAStreamBasicDescription theFormat = LinearPCM(16, kSigned, 2);
  EXPECT_EQ(theFormat.SampleWordSize(), 2u);
  theFormat.mFormatFlags |= kNonInterleaved;
  EXPECT_EQ(theFormat.SampleWordSize(), 4u);
  theFormat.mBytesPerFrame = 0;
  EXPECT_EQ(theFormat.SampleWordSize(), 0u);
  theFormat = LinearPCM(16, kSigned, 2);
  theFormat.mChannelsPerFrame = 0;
  EXPECT_EQ(theFormat.SampleWordSize(), 0u);
}

TEST(StreamDescription, PackednessMattersWhereBitsDoNotFillTheWord) {
  EXPECT_FALSE(LinearPCM(16, kSigned, 2).PackednessIsSignificant());
  CAStreamBasicDescription theFormat = LinearPCM(24, kSigned, 2);
  EXPECT_FALSE(theFormat.PackednessIsSignificant());
  theFormat.mBytesPerFrame = 8;
  EXPECT_TRUE(theFormat.PackednessIsSignificant());
}

TEST(StreamDescription, AlignmentMattersWherePackednessDoesOrBitsAreNoWholeBytes) {
  EXPECT_FALSE(LinearPCM(16, kSigned, 2).AlignmentIsSignificant());
  CAStreamBasicDescription theFormat = LinearPCM(24, kSigned, 2);
  theFormat.mBytesPerFrame = 8;
  EXPECT_TRUE(theFormat.AlignmentIsSignificant());
  EXPECT_TRUE(LinearPCM(20, kSigned, 1).AlignmentIsSignificant());
}

TEST(StreamDescription, AlignmentNeverMattersAloneSinceWordsAreWholeBytes) {
  for (const UInt32 theFlags : {kSigned, kSigned | kNonInterleaved}) {
    for (UInt32 theBytes = 0; theBytes <= 12; ++theBytes) {
      for (UInt32 theChannels = 0; theChannels <= 3; ++theChannels) {
        for (UInt32 theBits = 0; theBits <= 97; ++theBits) {
          const CAStreamBasicDescription theFormat(44100, kAudioFormatLinearPCM, theBytes, 1,
                                                   theBytes, theChannels, theBits, theFlags);
          EXPECT_EQ(theFormat.AlignmentIsSignificant(), theFormat.PackednessIsSignificant())
              << theBytes << " bytes, " << theChannels << " channels, " << theBits << " bits";
        }
      }
    }
  }
}

TEST(StreamDescription, ReservedFieldNeverCounts) {
  CAStreamBasicDescription theX = LinearPCM(16, kSigned | kPacked, 2);
  CAStreamBasicDescription theY = theX;
  theY.mReserved = 77;
  EXPECT_TRUE(theX.IsEqual(theY, true));
  EXPECT_TRUE(theX.IsEqual(theY, false));
}

TEST(StreamDescription, IsEqualWithoutWildcardsTakesZeroForAValue) {
  const CAStreamBasicDescription theX = LinearPCM(16, kSigned | kPacked, 2);
  CAStreamBasicDescription theY = theX;
  EXPECT_TRUE(theX.IsEqual(theY, false));
  theY.mSampleRate = 0.0;
  EXPECT_TRUE(theX.IsEqual(theY, true));
  EXPECT_FALSE(theX.IsEqual(theY, false));
  // The last of the compared bytes.
  theY = theX;
  theY.mBitsPerChannel = 0;
  EXPECT_TRUE(theX.IsEqual(theY, true));
  EXPECT_FALSE(theX.IsEqual(theY, false));
}

TEST(StreamDescription, FillOutGivesOnlyWildcardsAValue) {
  const AudioStreamBasicDescription theSource = EachFieldDifferent();
  AudioStreamBasicDescription theFormat = {};
  CAStreamBasicDescription::FillOutFormat(theFormat, theSource);
  AudioStreamBasicDescription theExpected = theSource;
  theExpected.mReserved = 0;
  EXPECT_TRUE(SameBytes(theFormat, theExpected));

  theFormat = LinearPCM(16, kSigned | kPacked, 2);
  const AudioStreamBasicDescription theOld = theFormat;
  CAStreamBasicDescription::FillOutFormat(theFormat, theSource);
  EXPECT_TRUE(SameBytes(theFormat, theOld));
}

TEST(Normalize, MakesAMixableFormatInterleavedFloat) {
  CAStreamBasicDescription theFormat =
      LinearPCM(16, kSigned | kPacked | kBigEndian | kNonInterleaved, 6, 96000.0);
  theFormat.mFramesPerPacket = 7;
  theFormat.mReserved = 5;
  CAStreamBasicDescription::NormalizeLinearPCMFormat(theFormat);
  EXPECT_EQ(theFormat.mSampleRate, 96000.0);
  EXPECT_EQ(theFormat.mFormatID, 'lpcm');
  EXPECT_EQ(theFormat.mFormatFlags, 0x9u);
  EXPECT_EQ(theFormat.mBytesPerPacket, 24u);
  EXPECT_EQ(theFormat.mFramesPerPacket, 1u);
  EXPECT_EQ(theFormat.mBytesPerFrame, 24u);
  EXPECT_EQ(theFormat.mChannelsPerFrame, 6u);
  EXPECT_EQ(theFormat.mBitsPerChannel, 32u);
  EXPECT_EQ(theFormat.mReserved, 5u);
}

TEST(Normalize, LeavesOtherFormatsAlone) {
  for (const CAStreamBasicDescription& theSource :
       {LinearPCM(16, kSigned | kNonMixable, 2), Encoded('ac-3'), CAStreamBasicDescription()}) {
    CAStreamBasicDescription theFormat = theSource;
    CAStreamBasicDescription::NormalizeLinearPCMFormat(theFormat);
    EXPECT_TRUE(SameBytes(theFormat, theSource));
    CAStreamBasicDescription::NormalizeLinearPCMFormat(false, theFormat);
    EXPECT_TRUE(SameBytes(theFormat, theSource));
  }
}

TEST(Normalize, SetsBigEndianWhereNotNative) {
  CAStreamBasicDescription theFormat = LinearPCM(16, kSigned, 2);
  CAStreamBasicDescription::NormalizeLinearPCMFormat(true, theFormat);
  EXPECT_EQ(theFormat.mFormatFlags, 0x9u);
  theFormat = LinearPCM(16, kSigned, 2);
  CAStreamBasicDescription::NormalizeLinearPCMFormat(false, theFormat);
  EXPECT_EQ(theFormat.mFormatFlags, 0xBu);
  EXPECT_EQ(theFormat.mBytesPerFrame, 8u);
  EXPECT_EQ(theFormat.mBitsPerChannel, 32u);
}

TEST(Normalize, MultipliesIn32Bits) {
  CAStreamBasicDescription theFormat = LinearPCM(32, kFloat, 1);
  theFormat.mChannelsPerFrame = 0x40000001;
  CAStreamBasicDescription::NormalizeLinearPCMFormat(theFormat);
  EXPECT_EQ(theFormat.mBytesPerFrame, 4u);
}

TEST(FlagIndependentEquivalence, EachFieldIsAWildcardWhenZeroAndMustBeEqualOtherwise) {
  const AudioStreamBasicDescription theX = EachFieldDifferent();
  const auto isEquivalent = [&](auto inChange) {
    AudioStreamBasicDescription theY = theX;
    inChange(theY);
    const bool theAnswer = CAStreamBasicDescription::FlagIndependentEquivalence(theX, theY);
    EXPECT_EQ(CAStreamBasicDescription::FlagIndependentEquivalence(theY, theX), theAnswer);
    return theAnswer;
  };
  using Format = AudioStreamBasicDescription;
  EXPECT_TRUE(isEquivalent([](Format&) {}));
  EXPECT_TRUE(isEquivalent([](Format& io) { io.mSampleRate = 0; }));
  EXPECT_FALSE(isEquivalent([](Format& io) { io.mSampleRate = std::nextafter(1.5, 2.0); }));
  for (UInt32 Format::*theField :
       {&Format::mFormatID, &Format::mBytesPerPacket, &Format::mFramesPerPacket,
        &Format::mBytesPerFrame, &Format::mChannelsPerFrame, &Format::mBitsPerChannel}) {
    EXPECT_TRUE(isEquivalent([=](Format& io) { io.*theField = 0; }));
    EXPECT_FALSE(isEquivalent([=](Format& io) { io.*theField += 1; }));
  }
  for (UInt32 Format::*theField : {&Format::mFormatFlags, &Format::mReserved}) {
    EXPECT_TRUE(isEquivalent([=](Format& io) { io.*theField += 1; }));
  }
}

TEST(Equality, AllZerosEqualsAnyFormat) {
  const CAStreamBasicDescription theEmpty;
  ExpectEqual(theEmpty, LinearPCM(16, kSigned | kPacked, 2));
  ExpectEqual(theEmpty, Encoded('aac '));
  ExpectEqual(theEmpty, theEmpty);
  ExpectEqual(theEmpty, EachFieldDifferent());
}

TEST(Equality, ZeroFlagsOnOneSideMatchAnything) {
  for (const UInt32 theFlags : {kFloat, kBigEndian, kNonMixable, UInt32(0xFFFFFFFF)}) {
    ExpectEqual(LinearPCM(16, 0, 2), LinearPCM(16, theFlags, 2));
  }
}

TEST(Equality, ZeroFormatIDMatchesWhateverTheFlags) {
  CAStreamBasicDescription theX = LinearPCM(16, kSigned, 2);
  theX.mFormatID = 0;
  ExpectEqual(theX, LinearPCM(16, kFloat, 2));
}

TEST(Equality, OtherFormatsCompareAllFlags) {
  CAStreamBasicDescription theX = Encoded('alac');
  CAStreamBasicDescription theY = theX;
  theX.mFormatFlags = 1;
  theY.mFormatFlags = 1 | kAudioFormatFlagsAreAllClear;
  ExpectDifferent(theX, theY);
  theY.mFormatFlags = 1;
  ExpectEqual(theX, theY);
}

TEST(Equality, AllClearMarkerIsIgnored) {
  ExpectEqual(LinearPCM(16, kSigned | kAudioFormatFlagsAreAllClear, 2), LinearPCM(16, kSigned, 2));
}

TEST(Equality, AlignmentIsIgnoredWhereBothArePacked) {
  ExpectEqual(LinearPCM(16, kSigned | kPacked | kHighAligned, 2),
              LinearPCM(16, kSigned | kPacked, 2));
  ExpectDifferent(LinearPCM(16, kSigned | kHighAligned, 2), LinearPCM(16, kSigned, 2));
  ExpectDifferent(LinearPCM(16, kSigned | kPacked | kHighAligned, 2), LinearPCM(16, kSigned, 2));
}

TEST(Equality, SignIsIgnoredWhereBothAreFloat) {
  ExpectEqual(LinearPCM(32, kFloat | kSigned, 2), LinearPCM(32, kFloat, 2));
  ExpectDifferent(LinearPCM(32, kPacked | kSigned, 2), LinearPCM(32, kPacked, 2));
}

TEST(Equality, ByteOrderIsIgnoredInPackedBytes) {
  ExpectEqual(LinearPCM(8, kSigned | kPacked | kBigEndian, 2), LinearPCM(8, kSigned | kPacked, 2));
  ExpectDifferent(LinearPCM(8, kSigned | kBigEndian, 2), LinearPCM(8, kSigned, 2));
  ExpectDifferent(LinearPCM(16, kSigned | kPacked | kBigEndian, 2),
                  LinearPCM(16, kSigned | kPacked, 2));
}

TEST(Equality, InterleavingIsIgnoredInMono) {
  constexpr UInt32 kFlags = kSigned | kPacked;
  ExpectEqual(LinearPCM(16, kFlags, 1), LinearPCM(16, kFlags | kNonInterleaved, 1));
  ExpectDifferent(LinearPCM(16, kFlags, 2), LinearPCM(16, kFlags | kNonInterleaved, 2));
  // A wildcard is not known to be mono.
  CAStreamBasicDescription theAny = LinearPCM(16, kFlags, 1);
  theAny.mChannelsPerFrame = 0;
  ExpectDifferent(theAny, LinearPCM(16, kFlags | kNonInterleaved, 1));
}

TEST(Equality, MixabilityCounts) {
  ExpectDifferent(LinearPCM(16, kSigned, 2), LinearPCM(16, kSigned | kNonMixable, 2));
}

TEST(Equality, NaNRateEqualsOnlyAWildcard) {
  const CAStreamBasicDescription theNaN = LinearPCM(16, kSigned, 2, kNaN);
  ExpectDifferent(theNaN, theNaN);
  ExpectEqual(theNaN, LinearPCM(16, kSigned, 2, 0.0));
}

TEST(FunctionalEquivalence, IgnoresMixabilityAndInsignificantPacking) {
  const auto isEquivalent = &CAStreamBasicDescription::IsFunctionallyEquivalent;
  EXPECT_TRUE(isEquivalent(LinearPCM(16, kSigned | kNonMixable, 2), LinearPCM(16, kSigned, 2)));
  EXPECT_TRUE(isEquivalent(LinearPCM(16, kSigned | kPacked, 2), LinearPCM(16, kSigned, 2)));
  EXPECT_TRUE(isEquivalent(LinearPCM(16, kSigned | kHighAligned, 2), LinearPCM(16, kSigned, 2)));
  EXPECT_FALSE(isEquivalent(LinearPCM(16, kSigned | kBigEndian, 2), LinearPCM(16, kSigned, 2)));
  EXPECT_FALSE(isEquivalent(LinearPCM(16, kSigned, 2), LinearPCM(24, kSigned, 2)));

  CAStreamBasicDescription theX = LinearPCM(24, kSigned, 2);
  theX.mBytesPerPacket = theX.mBytesPerFrame = 8;
  CAStreamBasicDescription theY = theX;
  theY.mFormatFlags |= kPacked;
  EXPECT_FALSE(isEquivalent(theX, theY));
  theY.mFormatFlags = theX.mFormatFlags | kHighAligned;
  EXPECT_FALSE(isEquivalent(theX, theY));
}

TEST(FunctionalEquivalence, EqualityNoticesWhatConvertersDoNot) {
  EXPECT_FALSE(LinearPCM(16, kSigned | kPacked, 2) == LinearPCM(16, kSigned, 2));
}

TEST(FunctionalEquivalence, PackingCountsIfSignificantInOneOfThem) {
  // A wildcard in one of them leaves its word size unknown.
  CAStreamBasicDescription theX = LinearPCM(24, kSigned | kPacked, 2);
  CAStreamBasicDescription theY = theX;
  theY.mFormatFlags = kSigned;
  EXPECT_TRUE(CAStreamBasicDescription::IsFunctionallyEquivalent(theX, theY));
  theY.mBytesPerFrame = 0;
  EXPECT_FALSE(CAStreamBasicDescription::IsFunctionallyEquivalent(theX, theY));
  EXPECT_FALSE(CAStreamBasicDescription::IsFunctionallyEquivalent(theY, theX));
}

TEST(FunctionalEquivalence, AlignmentCountsIfSignificantInOneOfThem) {
  CAStreamBasicDescription theX = LinearPCM(24, kSigned | kHighAligned, 2);
  CAStreamBasicDescription theY = theX;
  theY.mFormatFlags = kSigned;
  EXPECT_TRUE(CAStreamBasicDescription::IsFunctionallyEquivalent(theX, theY));
  theY.mBytesPerFrame = 0;
  EXPECT_FALSE(CAStreamBasicDescription::IsFunctionallyEquivalent(theX, theY));
  EXPECT_FALSE(CAStreamBasicDescription::IsFunctionallyEquivalent(theY, theX));
}

TEST(MatchingFlags, TestsOnlyTheFirstFormatForLinearPCM) {
  CAStreamBasicDescription theX = Encoded('alac');
  const CAStreamBasicDescription theY = LinearPCM(16, kSigned, 1);
  UInt32 theXFlags = kPacked | kHighAligned;
  UInt32 theYFlags = kPacked | kHighAligned;
  CAStreamBasicDescription::ModifyFormatFlagsForMatching(theX, theY, theXFlags, theYFlags, true);
  EXPECT_EQ(theXFlags, kPacked | kHighAligned);
  EXPECT_EQ(theYFlags, kPacked | kHighAligned);
  CAStreamBasicDescription::ModifyFormatFlagsForMatching(theY, theX, theYFlags, theXFlags, false);
  EXPECT_EQ(theXFlags, kPacked);
  EXPECT_EQ(theYFlags, kPacked);
}

TEST(MatchingFlags, AnyZeroClearsBoth) {
  const CAStreamBasicDescription theFormat = LinearPCM(16, kSigned, 2);
  UInt32 theXFlags = 0;
  UInt32 theYFlags = kFloat;
  CAStreamBasicDescription::ModifyFormatFlagsForMatching(theFormat, theFormat, theXFlags, theYFlags,
                                                         false);
  EXPECT_EQ(theXFlags, 0u);
  EXPECT_EQ(theYFlags, 0u);
}

TEST(MatchingFlags, ByteOrderGoesFromTheSideThatIsOfPackedBytes) {
  UInt32 theXFlags = kPacked | kBigEndian;
  UInt32 theYFlags = kPacked | kBigEndian;
  CAStreamBasicDescription::ModifyFormatFlagsForMatching(
      LinearPCM(8, kPacked, 2), LinearPCM(16, kPacked, 2), theXFlags, theYFlags, false);
  EXPECT_EQ(theXFlags, kPacked);
  EXPECT_EQ(theYFlags, kPacked | kBigEndian);
}

TEST(Order, AllZerosIsLessThanNone) {
  const CAStreamBasicDescription theEmpty;
  ExpectUnordered(theEmpty, theEmpty);
  EXPECT_FALSE(theEmpty < LinearPCM(16, kSigned, 2));
  EXPECT_FALSE(theEmpty < Encoded('aac '));
}

TEST(Order, LinearPCMComesBeforeAllOtherFormats) {
  ExpectOrdered(LinearPCM(32, kFloat | kNonMixable, 2), Encoded('AAAA'));
  ExpectOrdered(LinearPCM(32, kFloat, 2), Encoded('zzzz'));
}

TEST(Order, OtherFormatsGoByTheirID) {
  ExpectOrdered(Encoded('ac-3'), Encoded('cac3'));
}

TEST(Order, ZeroFormatIDNeverDecides) {
  CAStreamBasicDescription theX = LinearPCM(16, kSigned, 2);
  theX.mFormatID = 0;
  ExpectUnordered(theX, LinearPCM(16, kSigned | kNonMixable, 2));
  theX.mBitsPerChannel = 8;
  ExpectOrdered(theX, LinearPCM(16, kSigned, 2));
}

TEST(Order, MixableComesBeforeNonMixable) {
  ExpectOrdered(LinearPCM(32, kFloat, 8, 96000), LinearPCM(8, kSigned | kNonMixable, 1, 8000));
}

TEST(Order, IntegerComesBeforeFloat) {
  ExpectOrdered(LinearPCM(32, kSigned, 8, 96000), LinearPCM(16, kFloat, 1, 8000));
}

TEST(Order, FewerBitsComeFirst) {
  ExpectOrdered(LinearPCM(16, kSigned, 8, 96000), LinearPCM(24, kSigned, 1, 8000));
}

TEST(Order, LowerRateComesFirst) {
  ExpectOrdered(LinearPCM(16, kSigned, 8, 8000), LinearPCM(16, kSigned, 1, 96000));
}

TEST(Order, FewerChannelsComeFirst) {
  ExpectOrdered(LinearPCM(16, kSigned, 1), LinearPCM(16, kSigned, 2));
}

TEST(Order, ZeroFieldsDecideNothing) {
  CAStreamBasicDescription theX = LinearPCM(16, kSigned, 2);
  theX.mBitsPerChannel = 0;
  ExpectUnordered(theX, LinearPCM(8, kSigned, 2));
  ExpectUnordered(LinearPCM(16, kSigned, 2, 0.0), LinearPCM(16, kSigned, 2, 8000));
  theX = LinearPCM(16, kSigned, 2);
  theX.mChannelsPerFrame = 0;
  ExpectUnordered(theX, LinearPCM(16, kSigned, 8));
}

TEST(Order, NothingElseDecides) {
  ExpectUnordered(LinearPCM(16, kSigned | kBigEndian, 2), LinearPCM(16, kPacked, 2));
  ExpectUnordered(LinearPCM(16, kSigned, 2, kNaN), LinearPCM(16, kSigned, 2));
}

TEST(SanityCheck, BoundsTheRate) {
  EXPECT_TRUE(SanityCheck(LinearPCM(16, kSigned, 2, 0.0)));
  EXPECT_TRUE(SanityCheck(LinearPCM(16, kSigned, 2, 2999999.0)));
  EXPECT_FALSE(SanityCheck(LinearPCM(16, kSigned, 2, 3e6)));
  EXPECT_FALSE(SanityCheck(LinearPCM(16, kSigned, 2, -1.0)));
  EXPECT_FALSE(SanityCheck(LinearPCM(16, kSigned, 2, kNaN)));
}

TEST(SanityCheck, BoundsSizesAndCounts) {
  using Format = AudioStreamBasicDescription;
  CAStreamBasicDescription theFormat = Encoded('aac ');
  for (UInt32 Format::*theField :
       {&Format::mBytesPerPacket, &Format::mFramesPerPacket, &Format::mBytesPerFrame}) {
    CAStreamBasicDescription theCopy = theFormat;
    theCopy.*theField = 999999;
    EXPECT_TRUE(SanityCheck(theCopy));
    theCopy.*theField = 1000000;
    EXPECT_FALSE(SanityCheck(theCopy));
  }
  for (UInt32 Format::*theField : {&Format::mChannelsPerFrame, &Format::mBitsPerChannel}) {
    CAStreamBasicDescription theCopy = theFormat;
    theCopy.*theField = 1024;
    EXPECT_TRUE(SanityCheck(theCopy));
    theCopy.*theField = 1025;
    EXPECT_FALSE(SanityCheck(theCopy));
  }
}

TEST(SanityCheck, WantsAFormatID) {
  EXPECT_FALSE(SanityCheck(CAStreamBasicDescription()));
}

TEST(SanityCheck, WantsLinearPCMToBeOneFrameAPacket) {
  CAStreamBasicDescription theFormat = LinearPCM(16, kSigned, 2);
  EXPECT_TRUE(SanityCheck(theFormat));
  theFormat.mFramesPerPacket = 2;
  EXPECT_FALSE(SanityCheck(theFormat));
  theFormat.mFramesPerPacket = 0;
  EXPECT_FALSE(SanityCheck(theFormat));
  theFormat = LinearPCM(16, kSigned, 2);
  theFormat.mBytesPerPacket = 8;
  EXPECT_FALSE(SanityCheck(theFormat));
}
