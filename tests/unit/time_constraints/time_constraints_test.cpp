// The time constraints where a host tick is not a nanosecond: this executable has its own time
// base, of a microsecond for each tick.

#include <gtest/gtest.h>
#include <mach/mach_time.h>

#include "support/device/SimulatedDevice.h"

extern "C" __attribute__((visibility("default"))) kern_return_t mach_timebase_info(
    mach_timebase_info_t outInfo) {
  outInfo->numer = 1000;
  outInfo->denom = 1;
  return KERN_SUCCESS;
}

namespace tembra::test {
namespace {

struct Constraints {
  UInt64 mPeriod = 0;
  UInt32 mQuantum = 0;
};

// At a million frames a second a frame is a microsecond, and so a tick.
Constraints ConstraintsOf(UInt32 inFrames) {
  SimulatedDevice theDevice;
  theDevice.AddSimulatedStream(false, FloatFormat(2, 1e6));
  theDevice.SetIOBufferFrameSize(inFrames, false);
  Constraints theConstraints;
  theDevice.CalculateIOThreadTimeConstraints(theConstraints.mPeriod, theConstraints.mQuantum);
  return theConstraints;
}

TEST(TimeConstraintsInTicks, PeriodAndQuantumAreTicksAndTheLimitsNanoseconds) {
  EXPECT_EQ(ConstraintsOf(1499).mPeriod, 1499u);
  EXPECT_EQ(ConstraintsOf(1499).mQuantum, 500u);
  EXPECT_EQ(ConstraintsOf(1500).mQuantum, 300u);
  EXPECT_EQ(ConstraintsOf(4443).mQuantum, 300u);
  EXPECT_EQ(ConstraintsOf(4444).mQuantum, 100u);
}

TEST(TimeConstraintsInTicks, TheQuantumIsHeldAgainstThePeriodInNanoseconds) {
  EXPECT_EQ(ConstraintsOf(100).mPeriod, 100u);
  EXPECT_EQ(ConstraintsOf(100).mQuantum, 500u) << "100000 is not below 500";
  EXPECT_EQ(ConstraintsOf(1).mQuantum, 500u);
}

}  // namespace
}  // namespace tembra::test
