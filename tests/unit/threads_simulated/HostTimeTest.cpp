#include <errno.h>
#include <gtest/gtest.h>

#include "support/CAException.h"
#include "support/CAGuard.h"
#include "support/CAHostTimeBase.h"
#include "unit/threads_simulated/Platform.h"

namespace {

class HostTime : public testing::Test {
 protected:
  void SetUp() override { gPlatform = {}; }
};

// The ratio of this clock: 125/3 nanoseconds a tick, 24 million ticks a second.
TEST_F(HostTime, ConvertsWithThePlatformsRatio) {
  EXPECT_EQ(125u, CAHostTimeBase::ConvertToNanos(3));
  EXPECT_EQ(3u, CAHostTimeBase::ConvertFromNanos(125));
  EXPECT_EQ(41u, CAHostTimeBase::ConvertToNanos(1));
  EXPECT_EQ(24000000u, CAHostTimeBase::ConvertFromNanos(1000000000));
  EXPECT_DOUBLE_EQ(24000000.0, CAHostTimeBase::GetFrequency());
}

TEST_F(HostTime, IsThePlatformsClock) {
  gPlatform.mTime = 6;
  EXPECT_EQ(6u, CAHostTimeBase::GetTheCurrentTime());
  EXPECT_EQ(6u, CAHostTimeBase::GetCurrentTime());
  EXPECT_EQ(250u, CAHostTimeBase::GetCurrentTimeInNanos());
}

TEST_F(HostTime, LosesNothingOfALargeTime) {
  EXPECT_EQ(3u << 30, CAHostTimeBase::MultiplyByRatio(1u << 30, 3, 1));
  const UInt64 theLarge = 0x2000000000000000;
  EXPECT_EQ(theLarge / 3, CAHostTimeBase::MultiplyByRatio(theLarge, 125, 375));
  EXPECT_EQ(~UInt64{0}, CAHostTimeBase::MultiplyByRatio(~UInt64{0}, 7, 7));
  EXPECT_EQ(~UInt64{0} / 2, CAHostTimeBase::MultiplyByRatio(~UInt64{0}, 2, 4));
}

TEST_F(HostTime, RatioWithoutADenominatorIsZero) {
  EXPECT_EQ(0u, CAHostTimeBase::MultiplyByRatio(5, 1, 0));
  EXPECT_EQ(0u, CAHostTimeBase::MultiplyByRatio(5, 0, 0));
}

using GuardInSimulatedTime = HostTime;

TEST_F(GuardInSimulatedTime, WaitForOneSecondIsOneSecondAndNoNanoseconds) {
  CAGuard theGuard("test");
  CAGuard::Locker theLocker(theGuard);
  EXPECT_FALSE(theGuard.WaitFor(1000000000));
  EXPECT_FALSE(theGuard.WaitFor(999999999));
  EXPECT_FALSE(theGuard.WaitFor(2500000001));
  EXPECT_FALSE(theGuard.WaitFor(0));
  ASSERT_EQ(4u, gPlatform.mWaits.size());
  EXPECT_EQ(1, gPlatform.mWaits[0].mSeconds);
  EXPECT_EQ(0, gPlatform.mWaits[0].mNanos);
  EXPECT_EQ(0, gPlatform.mWaits[1].mSeconds);
  EXPECT_EQ(999999999, gPlatform.mWaits[1].mNanos);
  EXPECT_EQ(2, gPlatform.mWaits[2].mSeconds);
  EXPECT_EQ(500000001, gPlatform.mWaits[2].mNanos);
  EXPECT_EQ(0, gPlatform.mWaits[3].mSeconds);
  EXPECT_EQ(0, gPlatform.mWaits[3].mNanos);
}

TEST_F(GuardInSimulatedTime, WaitForAnswersTrueIfItTimedOut) {
  CAGuard theGuard("test");
  CAGuard::Locker theLocker(theGuard);
  gPlatform.mWaitResult = ETIMEDOUT;
  EXPECT_TRUE(theGuard.WaitFor(1));
  gPlatform.mWaitResult = 0;
  EXPECT_FALSE(theGuard.WaitFor(1));
}

TEST_F(GuardInSimulatedTime, WaitForThrowsAnyOtherErrorAndKeepsTheLock) {
  CAGuard theGuard("test");
  CAGuard::Locker theLocker(theGuard);
  gPlatform.mWaitResult = EINVAL;
  try {
    theGuard.WaitFor(1);
    FAIL();
  } catch (const CAException& inException) {
    EXPECT_EQ(EINVAL, inException.GetError());
  }
  EXPECT_TRUE(theGuard.IsOwnedByCurrentThread());
}

TEST_F(GuardInSimulatedTime, WaitUntilWaitsForTheDifference) {
  CAGuard theGuard("test");
  CAGuard::Locker theLocker(theGuard);
  gPlatform.mTime = 3;
  gPlatform.mWaitResult = ETIMEDOUT;
  EXPECT_TRUE(theGuard.WaitUntil(2000000130));
  ASSERT_EQ(1u, gPlatform.mWaits.size());
  EXPECT_EQ(2, gPlatform.mWaits[0].mSeconds);
  EXPECT_EQ(5, gPlatform.mWaits[0].mNanos);
}

TEST_F(GuardInSimulatedTime, WaitUntilThePresentTimeDoesNotWait) {
  CAGuard theGuard("test");
  CAGuard::Locker theLocker(theGuard);
  gPlatform.mTime = 3;
  EXPECT_TRUE(theGuard.WaitUntil(125));
  EXPECT_TRUE(theGuard.WaitUntil(124));
  EXPECT_TRUE(gPlatform.mWaits.empty());
  EXPECT_FALSE(theGuard.WaitUntil(126));
  EXPECT_EQ(1u, gPlatform.mWaits.size());
}

}  // namespace
