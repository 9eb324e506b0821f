#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "support/CAAudioBufferList.h"
#include "support/CAAudioChannelLayout.h"
#include "support/CAAudioTimeStamp.h"
#include "support/CAAutoDisposer.h"

namespace {

// A list with memory of its own for each buffer.
class List {
 public:
  struct Spec {
    UInt32 mNumberChannels;
    std::vector<Float32> mSamples;
  };
  explicit List(std::vector<Spec> inSpecs) : mSpecs(std::move(inSpecs)) {
    mList = CAAudioBufferList::Create(static_cast<UInt32>(mSpecs.size()));
    AudioBuffer* theBuffers = mList->mBuffers;
    for (size_t i = 0; i < mSpecs.size(); ++i) {
      theBuffers[i].mNumberChannels = mSpecs[i].mNumberChannels;
      theBuffers[i].mDataByteSize =
          static_cast<UInt32>(mSpecs[i].mSamples.size() * sizeof(Float32));
      theBuffers[i].mData = mSpecs[i].mSamples.data();
    }
  }
  ~List() { CAAudioBufferList::Destroy(mList); }
  List(const List&) = delete;
  List& operator=(const List&) = delete;

  AudioBufferList& operator*() { return *mList; }
  AudioBufferList* get() { return mList; }
  const std::vector<Float32>& Samples(size_t inIndex) const { return mSpecs[inIndex].mSamples; }

 private:
  std::vector<Spec> mSpecs;
  AudioBufferList* mList;
};

using Samples = std::vector<Float32>;

TEST(BufferList, ByteSizeIsSixteenABufferPlusEight) {
  EXPECT_EQ(8u, CAAudioBufferList::CalculateByteSize(0));
  EXPECT_EQ(24u, CAAudioBufferList::CalculateByteSize(1));
  EXPECT_EQ(40u, CAAudioBufferList::CalculateByteSize(2));
}

TEST(BufferList, CreateSetsTheCountAndZeroesTheRest) {
  AudioBufferList* theList = CAAudioBufferList::Create(3);
  ASSERT_NE(nullptr, theList);
  EXPECT_EQ(3u, theList->mNumberBuffers);
  const AudioBuffer* theBuffers = theList->mBuffers;
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(0u, theBuffers[i].mNumberChannels);
    EXPECT_EQ(0u, theBuffers[i].mDataByteSize);
    EXPECT_EQ(nullptr, theBuffers[i].mData);
  }
  CAAudioBufferList::Destroy(theList);
}

TEST(BufferList, OfNoBuffersHasEightBytes) {
  AudioBufferList* theList = CAAudioBufferList::Create(0);
  ASSERT_NE(nullptr, theList);
  // An address checker sees a block that is shorter.
  UInt8 theBytes[8];
  std::memcpy(theBytes, theList, 8);
  EXPECT_EQ(0u, theList->mNumberBuffers);
  CAAudioBufferList::Destroy(theList);
}

TEST(BufferList, EmptyListIsAlwaysTheSame24ZeroBytes) {
  const AudioBufferList* theList = CAAudioBufferList::GetEmptyBufferList();
  EXPECT_EQ(theList, CAAudioBufferList::GetEmptyBufferList());
  const UInt8 theZeroes[24] = {};
  EXPECT_EQ(0, std::memcmp(theZeroes, theList, 24));
  EXPECT_FALSE(CAAudioBufferList::HasData(theList));
}

TEST(BufferList, HasDataFindsOneWordAnywhere) {
  for (size_t theLength : {1u, 7u, 16u, 17u, 31u, 32u, 1024u}) {
    for (size_t thePlace = 0; thePlace < theLength; ++thePlace) {
      List theList({{2, Samples(8, 0)}, {1, Samples(theLength, 0)}});
      EXPECT_FALSE(CAAudioBufferList::HasData(theList.get()));
      static_cast<Float32*>(theList.get()->mBuffers[1].mData)[thePlace] = 1e-38f;
      ASSERT_TRUE(CAAudioBufferList::HasData(theList.get())) << thePlace << " of " << theLength;
    }
  }
}

TEST(BufferList, NegativeZeroIsData) {
  List theList({{1, {0, -0.0f}}});
  EXPECT_TRUE(CAAudioBufferList::HasData(theList.get()));
}

TEST(BufferList, HasDataIgnoresARestShorterThanAWord) {
  UInt8 theBytes[7] = {0, 0, 0, 0, 1, 1, 1};
  AudioBufferList theList = {1, {{1, 7, theBytes}}};
  EXPECT_FALSE(CAAudioBufferList::HasData(&theList));
  theBytes[3] = 1;
  EXPECT_TRUE(CAAudioBufferList::HasData(&theList));
}

TEST(BufferList, HasDataPassesOverABufferWithoutMemory) {
  AudioBufferList theList = {1, {{2, 4096, nullptr}}};
  EXPECT_FALSE(CAAudioBufferList::HasData(&theList));
}

TEST(BufferList, HasDataReadsMemoryThatIsNotAligned) {
  alignas(8) UInt8 theBytes[72] = {};
  AudioBufferList theList = {1, {{1, 68, theBytes + 1}}};
  EXPECT_FALSE(CAAudioBufferList::HasData(&theList));
  theBytes[68] = 1;
  EXPECT_TRUE(CAAudioBufferList::HasData(&theList));
}

TEST(BufferList, ClearZeroesEachBuffer) {
  List theList({{2, {1, 2}}, {1, {3}}});
  CAAudioBufferList::Clear(theList.get());
  EXPECT_EQ(Samples({0, 0}), theList.Samples(0));
  EXPECT_EQ(Samples({0}), theList.Samples(1));
  AudioBufferList theEmpty = {1, {{2, 4096, nullptr}}};
  CAAudioBufferList::Clear(&theEmpty);
}

TEST(BufferList, ChannelsAreCountedAcrossBuffers) {
  List theList({{2, {}}, {0, {}}, {3, {}}});
  EXPECT_EQ(5u, CAAudioBufferList::GetTotalNumberChannels(*theList));
  EXPECT_EQ(0u,
            CAAudioBufferList::GetTotalNumberChannels(*CAAudioBufferList::GetEmptyBufferList()));
  const UInt32 theExpected[5][2] = {{0, 0}, {0, 1}, {2, 0}, {2, 1}, {2, 2}};
  for (UInt32 i = 0; i < 5; ++i) {
    UInt32 theBuffer = 99;
    UInt32 theChannel = 99;
    EXPECT_TRUE(CAAudioBufferList::GetBufferForChannel(*theList, i, theBuffer, theChannel));
    EXPECT_EQ(theExpected[i][0], theBuffer);
    EXPECT_EQ(theExpected[i][1], theChannel);
  }
  UInt32 theBuffer = 99;
  UInt32 theChannel = 99;
  EXPECT_FALSE(CAAudioBufferList::GetBufferForChannel(*theList, 5, theBuffer, theChannel));
}

TEST(BufferList, CopyChannelTakesOneChannelToAnother) {
  List theSource({{2, {1, 2, 3, 4, 5, 6}}});
  List theDestination({{3, Samples(9, 9)}});
  CAAudioBufferList::CopyChannel(theSource.get()->mBuffers[0], 1, theDestination.get()->mBuffers[0],
                                 2);
  EXPECT_EQ(Samples({9, 9, 2, 9, 9, 4, 9, 9, 6}), theDestination.Samples(0));
}

TEST(BufferList, CopyChannelStopsWithTheShorterBuffer) {
  List theSource({{1, {1, 2, 3}}});
  List theDestination({{1, {9, 9}}});
  CAAudioBufferList::CopyChannel(theSource.get()->mBuffers[0], 0, theDestination.get()->mBuffers[0],
                                 0);
  EXPECT_EQ(Samples({1, 2}), theDestination.Samples(0));
  CAAudioBufferList::CopyChannel(theSource.get()->mBuffers[0], 1, theDestination.get()->mBuffers[0],
                                 0);
  CAAudioBufferList::CopyChannel(theSource.get()->mBuffers[0], 0, theDestination.get()->mBuffers[0],
                                 1);
  EXPECT_EQ(Samples({1, 2}), theDestination.Samples(0));
}

TEST(BufferList, CopyGoesFromInterleavedToSeparate) {
  List theSource({{2, {1, 2, 3, 4}}});
  List theDestination({{1, {0, 0}}, {1, {0, 0}}});
  CAAudioBufferList::Copy(*theSource, 0, *theDestination, 0);
  EXPECT_EQ(Samples({1, 3}), theDestination.Samples(0));
  EXPECT_EQ(Samples({2, 4}), theDestination.Samples(1));
}

TEST(BufferList, CopyStartsAtTheGivenChannelsAndEndsWithEither) {
  List theSource({{2, {1, 2, 3, 4}}});
  List theDestination({{1, {0, 0}}, {1, {0, 0}}});
  CAAudioBufferList::Copy(*theSource, 1, *theDestination, 0);
  EXPECT_EQ(Samples({2, 4}), theDestination.Samples(0));
  EXPECT_EQ(Samples({0, 0}), theDestination.Samples(1));
  CAAudioBufferList::Copy(*theSource, 0, *theDestination, 1);
  EXPECT_EQ(Samples({1, 3}), theDestination.Samples(1));
}

TEST(BufferList, SumAddsBufferByBuffer) {
  List theSource({{2, {1, 2, 3, 4}}, {1, {5}}});
  List theSum({{2, {10, 20, 30}}, {1, {50, 60}}, {1, {7}}});
  CAAudioBufferList::Sum(*theSource, *theSum);
  EXPECT_EQ(Samples({11, 22, 33}), theSum.Samples(0));
  EXPECT_EQ(Samples({55, 60}), theSum.Samples(1));
  EXPECT_EQ(Samples({7}), theSum.Samples(2));
}

TEST(ChannelLayout, ByteSizeIsTwentyADescriptionPlusTwelve) {
  EXPECT_EQ(12u, CAAudioChannelLayout::CalculateByteSize(0));
  EXPECT_EQ(32u, CAAudioChannelLayout::CalculateByteSize(1));
  EXPECT_EQ(52u, CAAudioChannelLayout::CalculateByteSize(2));
}

TEST(ChannelLayout, IsCreatedWithUnknownChannels) {
  AudioChannelLayout* theLayout = CAAudioChannelLayout::Create(3);
  EXPECT_EQ(0u, theLayout->mChannelLayoutTag);
  EXPECT_EQ(0u, static_cast<UInt32>(theLayout->mChannelBitmap));
  EXPECT_EQ(3u, theLayout->mNumberChannelDescriptions);
  const AudioChannelDescription* theDescriptions = theLayout->mChannelDescriptions;
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(0xFFFFFFFFu, theDescriptions[i].mChannelLabel);
    EXPECT_EQ(0u, static_cast<UInt32>(theDescriptions[i].mChannelFlags));
    for (Float32 theCoordinate : theDescriptions[i].mCoordinates) EXPECT_EQ(0, theCoordinate);
  }
  EXPECT_EQ(3u, CAAudioChannelLayout::NumberChannels(*theLayout));
  CAAudioChannelLayout::Destroy(theLayout);
}

TEST(ChannelLayout, SetAllToUnknownClearsWhatWasThere) {
  AudioChannelLayout theLayout;
  std::memset(&theLayout, 0x55, sizeof(theLayout));
  CAAudioChannelLayout::SetAllToUnknown(theLayout, 1);
  EXPECT_EQ(0u, theLayout.mChannelLayoutTag);
  EXPECT_EQ(1u, theLayout.mNumberChannelDescriptions);
  EXPECT_EQ(0.0f, theLayout.mChannelDescriptions[0].mCoordinates[2]);
}

TEST(ChannelLayout, ChannelsAreToldByDescriptionsBitmapOrTag) {
  AudioChannelLayout theLayout = {};
  theLayout.mChannelLayoutTag = kAudioChannelLayoutTag_UseChannelDescriptions;
  theLayout.mNumberChannelDescriptions = 1;
  EXPECT_EQ(1u, CAAudioChannelLayout::NumberChannels(theLayout));
  theLayout.mChannelLayoutTag = kAudioChannelLayoutTag_UseChannelBitmap;
  theLayout.mChannelBitmap = static_cast<AudioChannelBitmap>(0x3F);
  EXPECT_EQ(6u, CAAudioChannelLayout::NumberChannels(theLayout));
  theLayout.mChannelLayoutTag = kAudioChannelLayoutTag_Stereo;
  EXPECT_EQ(2u, CAAudioChannelLayout::NumberChannels(theLayout));
}

AudioTimeStamp Stamp(Float64 inSample, UInt64 inHost, UInt32 inFlags) {
  AudioTimeStamp theTime = CAAudioTimeStamp::kZero;
  theTime.mSampleTime = inSample;
  theTime.mHostTime = inHost;
  theTime.mFlags = inFlags;
  return theTime;
}

TEST(TimeStamp, ZeroIsAllZero) {
  const UInt8 theZeroes[sizeof(AudioTimeStamp)] = {};
  EXPECT_EQ(0, std::memcmp(theZeroes, &CAAudioTimeStamp::kZero, sizeof(AudioTimeStamp)));
  EXPECT_FALSE(CAAudioTimeStamp::HasSampleTime(CAAudioTimeStamp::kZero));
  EXPECT_FALSE(CAAudioTimeStamp::HasHostTime(CAAudioTimeStamp::kZero));
}

TEST(TimeStamp, FlagsTellWhatIsValid) {
  EXPECT_TRUE(CAAudioTimeStamp::HasSampleTime(Stamp(0, 0, 1)));
  EXPECT_FALSE(CAAudioTimeStamp::HasHostTime(Stamp(0, 0, 1)));
  EXPECT_TRUE(CAAudioTimeStamp::HasHostTime(Stamp(0, 0, 2)));
}

TEST(TimeStamp, IsComparedByTheFirstTimeThatBothHave) {
  EXPECT_TRUE(CAAudioTimeStamp::IsLessThan(Stamp(1, 9, 3), Stamp(2, 1, 3)));
  EXPECT_FALSE(CAAudioTimeStamp::IsLessThan(Stamp(2, 1, 3), Stamp(1, 9, 3)));
  EXPECT_TRUE(CAAudioTimeStamp::IsLessThan(Stamp(9, 1, 2), Stamp(1, 2, 3)));
  EXPECT_TRUE(CAAudioTimeStamp::IsEqual(Stamp(1, 5, 3), Stamp(1, 6, 3)));
  EXPECT_FALSE(CAAudioTimeStamp::IsEqual(Stamp(1, 5, 1), Stamp(1, 5, 2)));
  EXPECT_FALSE(CAAudioTimeStamp::IsLessThan(Stamp(1, 5, 1), Stamp(2, 6, 2)));
  EXPECT_FALSE(CAAudioTimeStamp::IsEqual(Stamp(NAN, 5, 1), Stamp(NAN, 5, 1)));
}

}  // namespace
