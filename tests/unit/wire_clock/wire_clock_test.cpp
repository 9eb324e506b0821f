// The clocks under the wave time stamps are this file's own, so that time stands still and fails on
// demand.
#include <CoreFoundation/CoreFoundation.h>
#include <gtest/gtest.h>
#include <mach/mach_time.h>
#include <sys/sysctl.h>
#include <sys/time.h>

#include <climits>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>

#include "client/Snd.h"

namespace {

uint64_t sTicks = 0;
mach_timebase_info_data_t sRatio = {1, 1};
int sRatioCalls = 0;
bool sRatioFails = false;
double sAbsoluteTime = 0.0;
bool sBootTimeFails = false;
std::string sBootTimeName;
size_t sBootTimeSize = 0;

}  // namespace

extern "C" {

uint64_t mach_absolute_time(void) {
  return sTicks;
}

kern_return_t mach_timebase_info(mach_timebase_info_t outInfo) {
  ++sRatioCalls;
  if (sRatioFails) return 5;
  *outInfo = sRatio;
  return 0;
}

CFAbsoluteTime CFAbsoluteTimeGetCurrent(void) {
  return sAbsoluteTime;
}

int sysctlbyname(const char* inName, void* outOld, size_t* ioOldSize, void* inNew,
                 size_t inNewSize) {
  EXPECT_EQ(inNew, nullptr);
  EXPECT_EQ(inNewSize, 0u);
  sBootTimeName = inName;
  sBootTimeSize = *ioOldSize;
  if (sBootTimeFails) return -1;
  timeval boot = {};
  boot.tv_sec = 1000;
  boot.tv_usec = 250000;
  std::memcpy(outOld, &boot, sizeof(boot));
  *ioOldSize = sizeof(boot);
  return 0;
}
}

// The cached factors are filled by the first call that succeeds, so their life is one test.
TEST(WireClock, FactorIsAskedForUntilItIsKnownAndThenKept) {
  sTicks = 3000000001;
  sRatio = {125, 3};
  sRatioFails = true;
  EXPECT_EQ(SndGetHostTime(), 0u);
  EXPECT_EQ(SndGetWaveTimeStamp(), 0.0);
  EXPECT_EQ(SndGetWinWaveTimeStamp(), 0u);
  EXPECT_EQ(sRatioCalls, 3);
  EXPECT_EQ(SndGetHostTime(), 0u);
  EXPECT_EQ(sRatioCalls, 4);

  sRatioFails = false;
  EXPECT_EQ(SndGetHostTime(), 125000000041u);
  EXPECT_NEAR(SndGetWaveTimeStamp(), 125.000000041, 1e-9);
  EXPECT_EQ(sRatioCalls, 6);

  sRatio = {1, 1};
  sTicks = 6;
  EXPECT_EQ(SndGetHostTime(), 250u);
  EXPECT_NEAR(SndGetWaveTimeStamp(), 250e-9, 1e-18);
  EXPECT_EQ(sRatioCalls, 6);

  sTicks = 24 * 65 * 1000000ull + 24 * 736 * 1000ull;  // 65.736 s at 41.66 ns a tick
  EXPECT_EQ(SndGetWinWaveTimeStamp(), 65736 - 65536);
}

TEST(WireClock, UptimeIsWallTimeLessBootTime) {
  sBootTimeFails = false;
  sAbsoluteTime = 500.0;
  EXPECT_DOUBLE_EQ(SndGetUptime(), 500.0 + 978307200.0 - 1000.25);
  EXPECT_EQ(sBootTimeName, "kern.boottime");
  EXPECT_EQ(sBootTimeSize, 16u);
}

TEST(WireClock, UptimeWithoutBootTimeSaysSoAndCountsFromZero) {
  sBootTimeFails = true;
  sAbsoluteTime = 500.0;
  testing::internal::CaptureStdout();
  const double uptime = SndGetUptime();
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "error: sysctlbyname failed!");
  EXPECT_DOUBLE_EQ(uptime, 500.0 + 978307200.0);
}

TEST(WaveTimeStamp, FromNanosec) {
  EXPECT_DOUBLE_EQ(SndWaveTimeStampFromNanosec(0), 0.0);
  EXPECT_DOUBLE_EQ(SndWaveTimeStampFromNanosec(1500000000), 1.5);
}

TEST(WaveTimeStamp, ToNanosecTruncates) {
  EXPECT_EQ(SndWaveTimeStampToNanosec(1.5), 1500000000u);
  EXPECT_EQ(SndWaveTimeStampToNanosec(1.9e-9), 1u);
  EXPECT_EQ(SndWaveTimeStampToNanosec(0.9e-9), 0u);
}

TEST(WaveTimeStamp, ToNanosecOutsideTheRange) {
  EXPECT_EQ(SndWaveTimeStampToNanosec(-1.0), 0u);
  EXPECT_EQ(SndWaveTimeStampToNanosec(std::nan("")), 0u);
  EXPECT_EQ(SndWaveTimeStampToNanosec(1e30), ULLONG_MAX);
  EXPECT_EQ(SndWaveTimeStampToNanosec(std::numeric_limits<double>::infinity()), ULLONG_MAX);
}

TEST(WaveTimeStamp, FromWin) {
  EXPECT_DOUBLE_EQ(SndWaveTimeStampFromWin(0), 0.0);
  EXPECT_DOUBLE_EQ(SndWaveTimeStampFromWin(1500), 1.5);
  EXPECT_DOUBLE_EQ(SndWaveTimeStampFromWin(65535), 65.535);
}

TEST(WaveTimeStamp, ToWinWrapsAtSixteenBits) {
  EXPECT_EQ(SndWaveTimeStampToWin(65.535), 65535);
  EXPECT_EQ(SndWaveTimeStampToWin(65.536), 0);
  EXPECT_EQ(SndWaveTimeStampToWin(65.6369), 100);
  EXPECT_EQ(SndWaveTimeStampToWin(0.0019), 1);
}

TEST(WaveTimeStamp, ToWinOfOddTimes) {
  EXPECT_EQ(SndWaveTimeStampToWin(-0.001), 65535);
  EXPECT_EQ(SndWaveTimeStampToWin(std::nan("")), 0);
  EXPECT_EQ(SndWaveTimeStampToWin(1e300), 0);
  EXPECT_EQ(SndWaveTimeStampToWin(-1e300), 0);
}
