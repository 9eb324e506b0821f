#include "server/Timeline.h"

#include <gtest/gtest.h>

#include <random>

#include "server/DelayReservoir.h"

namespace tembra {

TEST(Timeline, FirstBlockStartsIt) {
  Timeline timeline(44100);
  const TimelineStep step = timeline.Accept(-300.0, 512);
  EXPECT_TRUE(step.mStart);
  EXPECT_FALSE(step.mReset);
  EXPECT_EQ(step.mSilence, 0u);
}

TEST(Timeline, BlocksThatFollowEachOtherHaveNoGap) {
  Timeline timeline(44100);
  timeline.Accept(0.0, 512);
  for (int block = 1; block < 100; ++block) {
    const TimelineStep step = timeline.Accept(512.0 * block, 512);
    EXPECT_FALSE(step.mStart);
    EXPECT_EQ(step.mSilence, 0u);
  }
  EXPECT_EQ(timeline.GetGaps(), 0u);
  EXPECT_EQ(timeline.GetSurplusFrames(), 0.0);
}

TEST(Timeline, BlocksLeftOutAreSilenceOfTheirLength) {
  Timeline timeline(44100);
  timeline.Accept(0.0, 512);
  EXPECT_EQ(timeline.Accept(512.0 * 4, 512).mSilence, 3u * 512);
  EXPECT_EQ(timeline.Accept(512.0 * 6, 512).mSilence, 512u);
  EXPECT_EQ(timeline.GetGaps(), 2u);
  EXPECT_EQ(timeline.GetSilenceFrames(), 4u * 512);
}

TEST(Timeline, LateWakeUpIsNoGap) {
  for (double late : {1.0, 20.0, 200.0, 383.0}) {
    Timeline timeline(44100);
    timeline.Accept(0.0, 512);
    EXPECT_EQ(timeline.Accept(512.0 + late, 512).mSilence, 0u) << late;
    EXPECT_EQ(timeline.GetSurplusFrames(), late);
  }
}

TEST(Timeline, StepOfAlmostTwoBuffersLeftOneOut) {
  Timeline timeline(44100);
  timeline.Accept(0.0, 512);
  EXPECT_EQ(timeline.Accept(512.0 + 384.0, 512).mSilence, 512u);
}

TEST(Timeline, EarlyBlockIsTheNextOne) {
  Timeline timeline(44100);
  timeline.Accept(0.0, 512);
  const TimelineStep step = timeline.Accept(300.0, 512);
  EXPECT_EQ(step.mSilence, 0u);
  EXPECT_FALSE(step.mReset);
}

// A clock read anew at each wake-up runs ahead of the frames by the lateness of each; a silence of
// many buffers must still come out as that many.
TEST(Timeline, LatenessOfEachWakeUpDoesNotStretchLongSilences) {
  const unsigned seed = std::random_device()();
  RecordProperty("seed", std::to_string(seed));
  std::mt19937 random(seed);
  std::uniform_real_distribution<double> lateness(2.0, 8.0);
  Timeline timeline(44100 * 60);
  double now = 0.0;
  timeline.Accept(now, 512);
  for (int round = 0; round < 50; ++round) {
    for (int block = 0; block < 40; ++block) {
      now += 512.0 + std::floor(lateness(random));
      ASSERT_EQ(timeline.Accept(now, 512).mSilence, 0u) << "seed " << seed;
    }
    const int missing = 1 + static_cast<int>(random() % 50);
    for (int block = 0; block <= missing; ++block) now += 512.0 + std::floor(lateness(random));
    ASSERT_EQ(timeline.Accept(now, 512).mSilence, static_cast<uint64_t>(missing) * 512)
        << "seed " << seed;
  }
}

TEST(Timeline, BackwardsStartsAnew) {
  Timeline timeline(44100);
  timeline.Accept(5120.0, 512);
  for (double time : {5120.0, 0.0}) {
    const TimelineStep step = timeline.Accept(time, 512);
    EXPECT_TRUE(step.mStart);
    EXPECT_TRUE(step.mReset);
    EXPECT_EQ(step.mSilence, 0u);
  }
  EXPECT_EQ(timeline.GetResets(), 2u);
  EXPECT_EQ(timeline.Accept(512.0, 512).mSilence, 0u);
}

TEST(Timeline, LongestGapIsFilledAndALongerOneStartsAnew) {
  Timeline timeline(5120);
  timeline.Accept(0.0, 512);
  EXPECT_EQ(timeline.Accept(512.0 + 5120.0, 512).mSilence, 5120u);
  const TimelineStep step = timeline.Accept(512.0 + 5120.0 + 512.0 + 5121.0, 512);
  EXPECT_TRUE(step.mReset);
  EXPECT_EQ(step.mSilence, 0u);
  EXPECT_EQ(timeline.GetResets(), 1u);
  EXPECT_EQ(timeline.GetGaps(), 1u);
}

TEST(Timeline, LargestTimesDoNotOverflow) {
  Timeline timeline(UINT64_MAX);
  timeline.Accept(-9007199254740991.0, 1);
  const TimelineStep step = timeline.Accept(9007199254740991.0, 1);
  EXPECT_NEAR(static_cast<double>(step.mSilence), 18014398509481981.0, 4.0);
}

TEST(Timeline, ChangeOfBufferSizeIsNoGap) {
  Timeline timeline(44100);
  timeline.Accept(0.0, 512);
  EXPECT_EQ(timeline.Accept(512.0, 64).mSilence, 0u);
  EXPECT_EQ(timeline.Accept(576.0, 64).mSilence, 0u);
  EXPECT_EQ(timeline.Accept(640.0, 4096).mSilence, 0u);
  EXPECT_EQ(timeline.Accept(640.0 + 4096.0 * 2, 4096).mSilence, 4096u);
}

TEST(DelayReservoir, IsExactWhileItHoldsAll) {
  DelayReservoir delays;
  EXPECT_EQ(delays.GetQuantile(0.5), 0);
  for (int64_t value = 100; value >= 1; --value) delays.Add(value - 50);
  EXPECT_EQ(delays.GetCount(), 100u);
  EXPECT_EQ(delays.GetQuantile(0.5), 0);
  EXPECT_EQ(delays.GetQuantile(0.99), 49);
  EXPECT_EQ(delays.GetQuantile(0.0), -49);
  EXPECT_EQ(delays.GetQuantile(1.0), 50);
  EXPECT_EQ(delays.GetLargest(), 50);
}

TEST(DelayReservoir, LargestOfNegativesIsNegative) {
  DelayReservoir delays;
  delays.Add(-7);
  delays.Add(-9);
  EXPECT_EQ(delays.GetLargest(), -7);
}

TEST(DelayReservoir, KeepsAFairChoiceOfMany) {
  DelayReservoir delays;
  for (int64_t value = 0; value < 200000; ++value) delays.Add(value);
  EXPECT_EQ(delays.GetCount(), 200000u);
  EXPECT_NEAR(static_cast<double>(delays.GetQuantile(0.5)), 100000.0, 10000.0);
  EXPECT_NEAR(static_cast<double>(delays.GetQuantile(0.9)), 180000.0, 10000.0);
  EXPECT_EQ(delays.GetLargest(), 199999);
}

}  // namespace tembra
