#include <gtest/gtest.h>

#include <cmath>

#include "unit/format_list/FormatDevice.h"

using namespace tembra;

namespace {

using Format = AudioStreamBasicDescription;
using Ranged = AudioStreamRangedDescription;

constexpr UInt32 kAllSelectors[] = {'nsrt', 'nsr#', 'sfmt', 'sfma', 'pft ', 'pfta', 'sfm#',
                                    'sfm?', 'sfmm', 'pft#', 'pft?', 'pftm', 'mix?'};

// Int16 at 44100 to 48000 and at 96000, Float32 at 88200; Int16 at 44100 is the current one.
class FormatProperties : public testing::Test {
 protected:
  FormatProperties() : mStream(mDevice.AddFormatStream(false)), mFormats(mStream.Formats()) {
    mStream.Add(Int16Format(0), 44100, 48000);
    mStream.Add(Int16Format(0), 96000, 96000);
    mStream.Add(Float32Format(0), 88200, 88200);
    mFormats.SetCurrentPhysicalFormat(Int16Format(44100), false);
  }

  UInt32 Size(UInt32 inSelector) const {
    return mFormats.GetPropertyDataSize(CAPropertyAddress(inSelector), 0, nullptr);
  }

  OSStatus StatusOfRead(UInt32 inSelector, UInt32 inSize) const {
    unsigned char theBuffer[256] = {};
    return StatusOf([&] {
      mFormats.GetPropertyData(CAPropertyAddress(inSelector), 0, nullptr, inSize, theBuffer);
    });
  }

  OSStatus StatusOfWrite(UInt32 inSelector, UInt32 inSize) {
    const unsigned char theBuffer[256] = {};
    return StatusOf([&] {
      mFormats.SetPropertyData(CAPropertyAddress(inSelector), 0, nullptr, inSize, theBuffer,
                               nullptr);
    });
  }

  template <class Value>
  OSStatus StatusOfWriting(UInt32 inSelector, const Value& inValue) {
    return StatusOf([&] { WriteValue(mFormats, CAPropertyAddress(inSelector), inValue); });
  }

  template <class Value>
  Value Read(UInt32 inSelector, const Value& inQuestion = Value()) const {
    return ReadValue<Value>(mFormats, CAPropertyAddress(inSelector), inQuestion);
  }

  FormatDevice mDevice;
  FormatStream& mStream;
  HP_FormatList& mFormats;
};

}  // namespace

TEST_F(FormatProperties, AddressesInThisOrder) {
  ASSERT_EQ(mFormats.GetNumberAddressesImplemented(), 13u);
  for (UInt32 theIndex = 0; theIndex < 13; ++theIndex) {
    CAPropertyAddress theAddress(1, 2, 3);
    mFormats.GetImplementedAddressByIndex(theIndex, theAddress);
    EXPECT_EQ(theAddress.mSelector, kAllSelectors[theIndex]);
    EXPECT_EQ(theAddress.mScope, '****');
    EXPECT_EQ(theAddress.mElement, 0xFFFFFFFF);
    EXPECT_TRUE(mFormats.IsActive(theAddress));
  }
  CAPropertyAddress theAddress(1, 2, 3);
  mFormats.GetImplementedAddressByIndex(13, theAddress);
  EXPECT_EQ(theAddress.mSelector, 1u);
}

TEST_F(FormatProperties, SizesAreThoseOfThePlatformsRecords) {
  EXPECT_EQ(sizeof(Format), 40u);
  EXPECT_EQ(sizeof(Ranged), 56u);
  EXPECT_EQ(sizeof(AudioValueRange), 16u);
}

TEST_F(FormatProperties, SettableOnes) {
  mStream.Add(Int16Format(0, 2, kNonMixable), 44100, 44100);
  for (const UInt32 theSelector : kAllSelectors) {
    const bool isSettable = theSelector == 'nsrt' || theSelector == 'sfmt' ||
                            theSelector == 'pft ' || theSelector == 'mix?';
    EXPECT_EQ(mFormats.IsPropertySettable(CAPropertyAddress(theSelector)), isSettable);
  }
  mFormats.RemoveAllFormats();
  mStream.Add(Int16Format(0), 44100, 44100);
  EXPECT_FALSE(mFormats.IsPropertySettable(CAPropertyAddress('mix?')));
}

TEST_F(FormatProperties, Sizes) {
  EXPECT_EQ(Size('mix?'), 4u);
  EXPECT_EQ(Size('nsrt'), 8u);
  for (const UInt32 theSelector : {'pft ', 'pft?', 'pftm', 'sfmt', 'sfm?', 'sfmm'}) {
    EXPECT_EQ(Size(theSelector), 40u);
  }
  EXPECT_EQ(Size('nsr#'), 3 * 16u);
  EXPECT_EQ(Size('pft#'), 3 * 40u);
  EXPECT_EQ(Size('pfta'), 3 * 56u);
  EXPECT_EQ(Size('sfm#'), 3 * 40u);
  EXPECT_EQ(Size('sfma'), 3 * 56u);
  // The virtual list has its own count.
  mStream.Add(LinearPCM(24, kSigned | kPacked, 2), 88200, 88200);
  EXPECT_EQ(Size('pft#'), 4 * 40u);
  EXPECT_EQ(Size('sfm#'), 3 * 40u);
}

TEST_F(FormatProperties, UnknownSelectorsAreNothing) {
  const CAPropertyAddress theAddress('what');
  EXPECT_FALSE(mFormats.IsPropertySettable(theAddress));
  EXPECT_EQ(mFormats.GetPropertyDataSize(theAddress, 0, nullptr), 0u);
  unsigned char theByte = 0xA5;
  UInt32 theSize = 1;
  mFormats.GetPropertyData(theAddress, 0, nullptr, theSize, &theByte);
  EXPECT_EQ(theSize, 1u);
  EXPECT_EQ(theByte, 0xA5);
  mFormats.SetPropertyData(theAddress, 0, nullptr, 1, &theByte, nullptr);
  ExpectSame(mStream.Physical(), Int16Format(44100));
}

TEST_F(FormatProperties, FixedSizesAreExact) {
  for (const UInt32 theSelector : kAllSelectors) {
    const UInt32 theSize = Size(theSelector);
    const bool isList = theSelector == 'nsr#' || theSelector == 'pft#' || theSelector == 'pfta' ||
                        theSelector == 'sfm#' || theSelector == 'sfma';
    if (isList) continue;
    for (const UInt32 theWrongSize : {0u, theSize - 1, theSize + 1}) {
      EXPECT_EQ(StatusOfRead(theSelector, theWrongSize), '!siz');
    }
    EXPECT_EQ(StatusOfRead(theSelector, theSize), 0);
  }
  for (const UInt32 theSelector : {'nsrt', 'sfmt', 'pft ', 'mix?'}) {
    for (const UInt32 theWrongSize : {0u, Size(theSelector) - 1, Size(theSelector) + 1}) {
      EXPECT_EQ(StatusOfWrite(theSelector, theWrongSize), '!siz');
    }
  }
  EXPECT_TRUE(mStream.mTold.empty());
}

TEST_F(FormatProperties, ListsGiveWhatFitsAndNeverFailOnSize) {
  for (const UInt32 theRoom : {0u, 1u, 39u, 40u, 41u, 79u, 80u, 120u, 200u}) {
    const size_t theCount = std::min(theRoom / 40, 3u);
    EXPECT_EQ(ReadList<Format>(mFormats, CAPropertyAddress('pft#'), theRoom).size(), theCount);
    EXPECT_EQ(ReadList<Format>(mFormats, CAPropertyAddress('sfm#'), theRoom).size(), theCount);
  }
  for (const UInt32 theRoom : {0u, 55u, 56u, 57u, 112u, 168u, 300u}) {
    const size_t theCount = std::min(theRoom / 56, 3u);
    EXPECT_EQ(ReadList<Ranged>(mFormats, CAPropertyAddress('pfta'), theRoom).size(), theCount);
    EXPECT_EQ(ReadList<Ranged>(mFormats, CAPropertyAddress('sfma'), theRoom).size(), theCount);
  }
  for (const UInt32 theRoom : {0u, 15u, 16u, 17u, 32u, 48u, 100u}) {
    EXPECT_EQ(ReadList<AudioValueRange>(mFormats, CAPropertyAddress('nsr#'), theRoom).size(),
              std::min(theRoom / 16, 3u));
  }
}

TEST_F(FormatProperties, RatesAreRising) {
  EXPECT_EQ(Pairs(ReadList<AudioValueRange>(mFormats, CAPropertyAddress('nsr#'), 100)),
            (RatePairs{{44100, 48000}, {88200, 88200}, {96000, 96000}}));
}

TEST_F(FormatProperties, PhysicalLists) {
  const auto theFormats = ReadList<Format>(mFormats, CAPropertyAddress('pft#'), 120);
  ASSERT_EQ(theFormats.size(), 3u);
  ExpectSame(theFormats[0], Int16Format(96000));
  ExpectSame(theFormats[1], Int16Format(0));
  ExpectSame(theFormats[2], Float32Format(88200));
  const auto theRanged = ReadList<Ranged>(mFormats, CAPropertyAddress('pfta'), 168);
  ASSERT_EQ(theRanged.size(), 3u);
  for (size_t theIndex = 0; theIndex < 3; ++theIndex) {
    ExpectSame(theRanged[theIndex].mFormat, theFormats[theIndex]);
  }
  EXPECT_EQ(theRanged[1].mSampleRateRange.mMinimum, 44100);
  EXPECT_EQ(theRanged[1].mSampleRateRange.mMaximum, 48000);
}

TEST_F(FormatProperties, VirtualLists) {
  const auto theFormats = ReadList<Format>(mFormats, CAPropertyAddress('sfm#'), 120);
  ASSERT_EQ(theFormats.size(), 3u);
  ExpectSame(theFormats[0], Float32Format(96000));
  ExpectSame(theFormats[1], Float32Format(88200));
  ExpectSame(theFormats[2], Float32Format(0));
  const auto theRanged = ReadList<Ranged>(mFormats, CAPropertyAddress('sfma'), 168);
  ASSERT_EQ(theRanged.size(), 3u);
  EXPECT_EQ(theRanged[2].mSampleRateRange.mMaximum, 48000);
}

TEST_F(FormatProperties, ReadsTheCurrentFormat) {
  EXPECT_EQ(Read<Float64>('nsrt'), 44100);
  ExpectSame(Read<Format>('pft '), Int16Format(44100));
  ExpectSame(Read<Format>('sfmt'), Float32Format(44100));
  EXPECT_EQ(Read<UInt32>('mix?'), 1u);
  mFormats.SetIsMixable(false, false);
  EXPECT_EQ(Read<UInt32>('mix?'), 0u);
  ExpectSame(Read<Format>('sfmt'), Int16Format(44100, 2, kNonMixable));
}

TEST_F(FormatProperties, SupportedIsAQuestionInTheBuffer) {
  ExpectSame(Read<Format>('pft?', Int16Format(96000)), Int16Format(96000));
  ExpectSame(Read<Format>('sfm?', Float32Format(96000)), Float32Format(96000));
  for (const auto& [theSelector, theFormat] :
       {std::pair<UInt32, Format>('pft?', Int16Format(88200)),
        {'pft?', AC3(0)},
        {'sfm?', Int16Format(96000)},
        {'sfm?', Float32Format(32000)}}) {
    Format theQuestion = theFormat;
    UInt32 theSize = sizeof(theQuestion);
    EXPECT_EQ(StatusOf([&, theAddress = CAPropertyAddress(theSelector)] {
                mFormats.GetPropertyData(theAddress, 0, nullptr, theSize, &theQuestion);
              }),
              '!dat');
  }
}

TEST_F(FormatProperties, MatchAnswersInTheBuffer) {
  ExpectSame(Read<Format>('pftm', Int16Format(0)), Int16Format(44100));
  ExpectSame(Read<Format>('pftm', Float32Format(1)), Float32Format(88200));
  ExpectSame(Read<Format>('pftm', AC3(1)), Int16Format(96000));
  ExpectSame(Read<Format>('sfmm', Float32Format(48000)), Float32Format(48000));
  ExpectSame(Read<Format>('sfmm', AC3(48000)), Float32Format(96000));
}

TEST_F(FormatProperties, ReadsAndWritesNeedNoAlignment) {
  unsigned char theBuffer[sizeof(Format) + 1];
  UInt32 theSize = sizeof(Format);
  mFormats.GetPropertyData(CAPropertyAddress('pft '), 0, nullptr, theSize, theBuffer + 1);
  mFormats.SetPropertyData(CAPropertyAddress('pft '), 0, nullptr, theSize, theBuffer + 1, nullptr);
  ExpectSame(mStream.Physical(), Int16Format(44100));
}

TEST_F(FormatProperties, WriteOfARate) {
  EXPECT_EQ(StatusOfWriting<Float64>('nsrt', 48000), 0);
  ExpectSame(mStream.Physical(), Int16Format(48000));
  EXPECT_EQ(mStream.mTold.size(), 1u);
  EXPECT_EQ(StatusOfWriting<Float64>('nsrt', 32000), '!dat');
  EXPECT_EQ(StatusOfWriting<Float64>('nsrt', std::nan("")), '!dat');
  EXPECT_EQ(mStream.mTold.size(), 1u);
  ExpectSame(mStream.Physical(), Int16Format(48000));
}

TEST_F(FormatProperties, WriteOfRateZeroPassesAndChangesNothing) {
  EXPECT_EQ(StatusOfWriting<Float64>('nsrt', 0.0), 0);
  EXPECT_TRUE(mStream.mTold.empty());
  ExpectSame(mStream.Physical(), Int16Format(44100));
}

TEST_F(FormatProperties, WriteOfAPhysicalFormat) {
  EXPECT_EQ(StatusOfWriting<Format>('pft ', Float32Format(88200)), 0);
  ExpectSame(mStream.Physical(), Float32Format(88200));
  // What is open is filled in.
  CAStreamBasicDescription theFormat;
  theFormat.mSampleRate = 96000;
  EXPECT_EQ(StatusOfWriting<Format>('pft ', theFormat), 0);
  ExpectSame(mStream.Physical(), Int16Format(96000));
  EXPECT_EQ(mStream.mTold.size(), 2u);
  EXPECT_EQ(StatusOfWriting<Format>('pft ', Int16Format(32000)), '!dat');
  EXPECT_EQ(StatusOfWriting<Format>('pft ', AC3(0)), '!dat');
  EXPECT_EQ(mStream.mTold.size(), 2u);
  ExpectSame(mStream.Physical(), Int16Format(96000));
}

TEST_F(FormatProperties, WriteOfAVirtualFormat) {
  EXPECT_EQ(StatusOfWriting<Format>('sfmt', Float32Format(48000)), 0);
  ExpectSame(mStream.Physical(), Int16Format(48000));
  EXPECT_EQ(mStream.mTold.size(), 1u);
}

TEST_F(FormatProperties, WriteOfAVirtualFormatThatDiffersOnlyInRateChangesTheRate) {
  Format theFormat = Read<Format>('sfmt');
  theFormat.mSampleRate = 96000;
  EXPECT_EQ(StatusOfWriting<Format>('sfmt', theFormat), 0);
  ExpectSame(mStream.Physical(), Int16Format(96000));
}

TEST_F(FormatProperties, WriteOfAVirtualFormatFillsItsWildcards) {
  Format theFormat = {};
  theFormat.mFormatID = 'lpcm';
  theFormat.mSampleRate = 96000;
  EXPECT_EQ(StatusOfWriting<Format>('sfmt', theFormat), 0);
  ExpectSame(mStream.Physical(), Int16Format(96000));
}

TEST_F(FormatProperties, WriteOfABigEndianVirtualFormatIsRefused) {
  Format theFormat = Float32Format(48000);
  theFormat.mFormatFlags = 0xB;
  EXPECT_EQ(StatusOfWriting<Format>('sfmt', theFormat), '!dat');
  EXPECT_TRUE(mStream.mTold.empty());
}

TEST_F(FormatProperties, WriteOfAVirtualFormatWithoutAPhysicalOneIsRefused) {
  // Sane, and the best virtual match, but the first physical match has no such rate.
  EXPECT_EQ(StatusOfWriting<Format>('sfmt', Float32Format(88200)), '!dat');
  EXPECT_TRUE(mStream.mTold.empty());
}

TEST_F(FormatProperties, WriteOfMixability) {
  EXPECT_EQ(StatusOfWriting<UInt32>('mix?', 0), 0);
  ExpectSame(mStream.Physical(), Int16Format(44100, 2, kNonMixable));
  EXPECT_EQ(StatusOfWriting<UInt32>('mix?', 0xFFFFFFFF), 0);
  ExpectSame(mStream.Physical(), Int16Format(44100));
  EXPECT_EQ(mStream.mTold.size(), 2u);
}

TEST_F(FormatProperties, WriteThatTheHardwareRefusesIsNoError) {
  mStream.mHardwareAgrees = false;
  EXPECT_EQ(StatusOfWriting<Float64>('nsrt', 48000), 0);
  EXPECT_EQ(StatusOfWriting<Format>('sfmt', Float32Format(48000)), 0);
  EXPECT_EQ(StatusOfWriting<Format>('pft ', Int16Format(48000)), 0);
  EXPECT_EQ(StatusOfWriting<UInt32>('mix?', 0), 0);
  EXPECT_EQ(mStream.mTold.size(), 4u);
  ExpectSame(mStream.Physical(), Int16Format(44100));
}

TEST_F(FormatProperties, OtherPropertiesTakeNoWrite) {
  for (const UInt32 theSelector :
       {'nsr#', 'sfma', 'pfta', 'sfm#', 'sfm?', 'sfmm', 'pft#', 'pft?', 'pftm'}) {
    EXPECT_EQ(StatusOfWrite(theSelector, 40), 0);
  }
  EXPECT_TRUE(mStream.mTold.empty());
  ExpectSame(mStream.Physical(), Int16Format(44100));
}
