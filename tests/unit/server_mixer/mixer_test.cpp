#include "server/Mixer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace tembra {
namespace {

using Samples = std::vector<float>;
using testing::ElementsAre;
using testing::IsEmpty;

// 1000 frames a second: a frame is a millisecond.
constexpr uint64_t kMilli = 1000000;

class MixerTest : public testing::Test {
 protected:
  Mixer Make(UInt32 inChannels = 1, bool inSkipIdle = false) {
    MixerSettings settings;
    settings.mRate = 1000.0;
    settings.mChannels = inChannels;
    settings.mHoldback = 100 * kMilli;
    settings.mMaxGapFrames = 50;
    settings.mSkipIdle = inSkipIdle;
    return Mixer(settings, [this, inChannels](const float* inFrames, UInt32 inCount) {
      mOut.insert(mOut.end(), inFrames, inFrames + size_t{inCount} * inChannels);
    });
  }
  Samples Take() { return std::exchange(mOut, {}); }

  Samples mOut;
};

void Add(Mixer& ioMixer, Mixer::StreamID inStream, uint64_t inSilence, const Samples& inFrames,
         uint64_t inAt, UInt32 inChannels = 1) {
  ioMixer.Add(inStream, inSilence, inFrames.data(), inChannels,
              static_cast<UInt32>(inFrames.size() / inChannels), inAt * kMilli, inAt * kMilli);
}

}  // namespace

TEST_F(MixerTest, OneStreamComesOutAtOnceBitForBit) {
  Mixer mixer = Make();
  mixer.Begin(1, 0, 0);
  const float nan = std::nanf("7");
  Add(mixer, 1, 0, {-0.0f, nan, std::numeric_limits<float>::infinity(), 5e-45f}, 0);
  ASSERT_EQ(mOut.size(), 4u);
  EXPECT_TRUE(std::signbit(mOut[0]));
  EXPECT_TRUE(std::isnan(mOut[1]));
  EXPECT_TRUE(std::isinf(mOut[2]));
  EXPECT_EQ(mOut[3], 5e-45f);
}

TEST_F(MixerTest, SilenceOfAStreamHasItsLength) {
  Mixer mixer = Make();
  mixer.Begin(1, 0, 0);
  Add(mixer, 1, 0, {1, 2}, 0);
  Add(mixer, 1, 3, {4, 5}, 5);
  EXPECT_THAT(mOut, ElementsAre(1, 2, 0, 0, 0, 4, 5));
}

TEST_F(MixerTest, StreamsThatPlayTogetherAreSummed) {
  Mixer mixer = Make();
  mixer.Begin(1, 0, 0);
  mixer.Begin(2, 0, 0);
  Add(mixer, 1, 0, {1, 2, 3}, 0);
  EXPECT_THAT(Take(), IsEmpty());
  Add(mixer, 2, 0, {10, 20}, 0);
  EXPECT_THAT(Take(), ElementsAre(11, 22));
  Add(mixer, 2, 0, {30, 40}, 2);
  EXPECT_THAT(Take(), ElementsAre(33));
  Add(mixer, 1, 0, {4}, 3);
  EXPECT_THAT(Take(), ElementsAre(44));
}

TEST_F(MixerTest, SixteenStreamsAreTheirSum) {
  Mixer mixer = Make();
  for (Mixer::StreamID stream = 1; stream <= 16; ++stream) mixer.Begin(stream, 0, 0);
  for (int block = 0; block < 10; ++block) {
    for (Mixer::StreamID stream = 1; stream <= 16; ++stream) {
      Add(mixer, stream, 0, {static_cast<float>(stream), static_cast<float>(stream * 100)}, 0);
    }
  }
  ASSERT_EQ(mOut.size(), 20u);
  for (size_t i = 0; i < 20; i += 2) {
    EXPECT_EQ(mOut[i], 136.0f);
    EXPECT_EQ(mOut[i + 1], 13600.0f);
  }
}

TEST_F(MixerTest, StreamThatBeginsLaterIsPlacedByItsHostTime) {
  Mixer mixer = Make();
  mixer.Begin(1, 0, 0);
  Add(mixer, 1, 0, {1, 1, 1, 1}, 0);
  Add(mixer, 1, 0, {1, 1, 1, 1}, 4);
  EXPECT_EQ(Take().size(), 8u);
  mixer.Begin(2, 10 * kMilli, 10 * kMilli);
  Add(mixer, 2, 0, {5}, 10);
  Add(mixer, 1, 0, {1, 1, 1, 1}, 8);
  EXPECT_THAT(Take(), ElementsAre(1, 1, 6));
  EXPECT_EQ(mixer.GetMoved(), 0u);
}

TEST_F(MixerTest, StreamThatIsLateMovesAndLosesNothing) {
  Mixer mixer = Make();
  mixer.Begin(1, 0, 0);
  Add(mixer, 1, 0, {1, 1, 1, 1}, 0);
  mixer.Begin(2, 1 * kMilli, 5 * kMilli);
  Add(mixer, 2, 0, {5, 6}, 1);
  mixer.Finish();
  EXPECT_THAT(mOut, ElementsAre(1, 1, 1, 1, 5, 6));
}

TEST_F(MixerTest, SilentStreamIsWaitedForOnlySoLong) {
  Mixer mixer = Make();
  mixer.Begin(1, 0, 0);
  mixer.Begin(2, 0, 0);
  Add(mixer, 1, 0, {1}, 0);
  Add(mixer, 1, 0, {2}, 50);
  mixer.Advance(99 * kMilli);
  EXPECT_THAT(Take(), IsEmpty());
  mixer.Advance(100 * kMilli);
  EXPECT_THAT(Take(), ElementsAre(1, 2));
  Add(mixer, 2, 0, {7}, 101);
  EXPECT_EQ(mixer.GetMoved(), 1u);
  mixer.Finish();
  EXPECT_THAT(Take(), ElementsAre(7));
}

TEST_F(MixerTest, StreamThatEndedIsNotWaitedFor) {
  Mixer mixer = Make();
  mixer.Begin(1, 0, 0);
  mixer.Begin(2, 0, 0);
  Add(mixer, 1, 0, {1}, 0);
  EXPECT_THAT(Take(), IsEmpty());
  mixer.End(2, 0);
  EXPECT_THAT(Take(), ElementsAre(1));
  mixer.End(2, 0);
  Add(mixer, 2, 0, {9}, 0);
  EXPECT_THAT(Take(), IsEmpty());
}

TEST_F(MixerTest, LongSilenceBetweenStreamsIsBounded) {
  Mixer mixer = Make();
  mixer.Begin(1, 0, 0);
  Add(mixer, 1, 0, {1}, 0);
  mixer.End(1, 0);
  mixer.Begin(2, 3000 * kMilli, 3000 * kMilli);
  Add(mixer, 2, 0, {2}, 3000);
  EXPECT_EQ(mOut.size(), 51u);
  EXPECT_EQ(mOut.back(), 2.0f);
}

TEST_F(MixerTest, WhatWaitsIsBounded) {
  Mixer mixer = Make();
  mixer.Begin(1, 0, 0);
  mixer.Begin(2, 0, 0);
  const Samples second(1000, 1.0f);
  for (int i = 0; i < 15; ++i) Add(mixer, 1, 0, second, 0);
  EXPECT_EQ(mOut.size(), 5000u);
}

TEST_F(MixerTest, LiveMixLeavesOutSilenceInWhichNothingPlayed) {
  Mixer mixer = Make(1, true);
  mixer.Begin(1, 0, 0);
  Add(mixer, 1, 0, {1}, 0);
  Add(mixer, 1, 30, {2}, 31);
  EXPECT_THAT(mOut, ElementsAre(1, 2));
}

TEST_F(MixerTest, LiveMixKeepsAGapUnderAnotherStream) {
  Mixer mixer = Make(1, true);
  mixer.Begin(1, 0, 0);
  mixer.Begin(2, 0, 0);
  Add(mixer, 1, 0, {1}, 0);
  Add(mixer, 2, 0, {1, 1, 1, 1}, 0);
  Add(mixer, 1, 2, {5}, 3);
  mixer.Finish();
  EXPECT_THAT(mOut, ElementsAre(2, 1, 1, 6));
}

TEST_F(MixerTest, ChannelsAreMapped) {
  Mixer mixer = Make(2);
  mixer.Begin(1, 0, 0);
  Add(mixer, 1, 0, {1, 2}, 0);
  EXPECT_THAT(Take(), ElementsAre(1, 1, 2, 2));
  Add(mixer, 1, 0, {1, 2, 3, 4, 5, 6}, 2, 3);
  EXPECT_THAT(Take(), ElementsAre(1, 2, 4, 5));
  Mixer wide = Make(3);
  wide.Begin(1, 0, 0);
  Add(wide, 1, 0, {1, 2}, 0, 2);
  EXPECT_THAT(Take(), ElementsAre(1, 2, 0));
}

TEST_F(MixerTest, WhereStreamsMeetWhatIsNotFiniteCountsAsNothing) {
  Mixer mixer = Make();
  mixer.Begin(1, 0, 0);
  mixer.Begin(2, 0, 0);
  const float nan = std::nanf("");
  Add(mixer, 1, 0, {nan, 1, std::numeric_limits<float>::infinity()}, 0);
  Add(mixer, 2, 0, {2, nan, 3}, 0);
  EXPECT_THAT(mOut, ElementsAre(2, 1, 3));
}

TEST_F(MixerTest, HostileHostTimesAreBounded) {
  Mixer mixer = Make();
  mixer.Begin(1, 0, 0);
  Add(mixer, 1, 0, {1}, 0);
  mixer.Begin(2, UINT64_MAX, 0);
  Add(mixer, 2, 0, {2}, 0);
  mixer.Finish();
  EXPECT_EQ(mOut.size(), 51u);
}

}  // namespace tembra
