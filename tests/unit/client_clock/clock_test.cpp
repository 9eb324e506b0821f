#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <mach/mach_time.h>

#include <cmath>
#include <limits>
#include <memory>
#include <vector>

#include "device/HP_IOProcList.h"
#include "support/CAException.h"
#include "support/client/ClientDevice.h"
#include "support/client/FakeHAL.h"
#include "support/client/FakeServer.h"

namespace {

// Host time that moves only when told, at 10 ticks for each frame of 44100 Hz.
uint64_t sHostTime = 0;
constexpr double kTicksPerFrame = 10.0;

}  // namespace

uint64_t mach_absolute_time(void) {
  return sHostTime;
}

kern_return_t mach_timebase_info(mach_timebase_info_t outInfo) {
  outInfo->numer = 1000000;
  outInfo->denom = 441;
  return 0;
}

namespace tembra::test {
namespace {

constexpr UInt64 kAnchor = 1000000;
constexpr double kSize = 512.0;

OSStatus Silence(AudioDeviceID, const AudioTimeStamp*, const AudioBufferList*,
                 const AudioTimeStamp*, AudioBufferList*, const AudioTimeStamp*, void*) {
  return 0;
}

// Has safety offsets, and notes the times that it translates.
class OffsetDevice : public TMBACLN_Device {
 public:
  using TMBACLN_Device::TMBACLN_Device;
  UInt32 GetSafetyOffset(bool inIsInput) const override { return inIsInput ? 10 : 20; }
  void TranslateTime(const AudioTimeStamp& inTime, AudioTimeStamp& outTime) override {
    mTranslated.push_back(inTime.mSampleTime);
    TMBACLN_Device::TranslateTime(inTime, outTime);
  }
  std::vector<Float64> mTranslated;
};

template <class DeviceClass>
class ClockOf : public testing::Test {
 protected:
  ClockOf() {
    FakeServer::Get().Reset();
    FakeHAL::Get().Reset();
    mDevice = std::make_unique<ClientDeviceOf<DeviceClass>>();
    sHostTime = kAnchor;
    Device().StartIOCycleTimingServices();
    Device().IOEngineStarted();
  }
  ~ClockOf() override {
    Device().IOEngineStopped();
    Device().GetIOProcList()->StopAllIOProcs();
  }

  DeviceClass& Device() { return **mDevice; }

  template <class Operation>
  OSStatus StatusOf(Operation inOperation) {
    try {
      inOperation();
      return 0;
    } catch (const CAException& exception) {
      return exception.GetError();
    }
  }
  AudioTimeStamp Translate(const AudioTimeStamp& inTime, UInt32 inWanted) {
    AudioTimeStamp out{};
    out.mFlags = inWanted;
    Device().TranslateTime(inTime, out);
    return out;
  }
  double NearestStart(double inSampleTime, UInt32 inFlags) {
    AudioTimeStamp time{.mSampleTime = inSampleTime, .mFlags = 1};
    Device().GetNearestStartTime(time, inFlags);
    return time.mSampleTime;
  }
  void StartProcedure() {
    HP_IOProcList& list = *Device().GetIOProcList();
    list.StartIOProc(list.AddIOProc(Silence, nullptr, true));
  }

  std::unique_ptr<ClientDeviceOf<DeviceClass>> mDevice;
};
using Clock = ClockOf<TMBACLN_Device>;
using ClockWithOffsets = ClockOf<OffsetDevice>;

TEST_F(Clock, TheRateIsTheStreamsAndActualEqualsNominal) {
  EXPECT_EQ(Device().GetCurrentNominalSampleRate(), 44100.0);
  EXPECT_EQ(Device().GetCurrentActualSampleRate(), 44100.0);
}

TEST_F(Clock, AtTheAnchorTheSampleTimeIsZero) {
  AudioTimeStamp time{};
  time.mWordClockTime = 5;
  time.mReserved = 6;
  Device().GetCurrentTime(time);
  EXPECT_EQ(time.mSampleTime, 0.0);
  EXPECT_EQ(time.mHostTime, kAnchor);
  EXPECT_EQ(time.mRateScalar, 1.0);
  EXPECT_EQ(time.mFlags, 7u);
  EXPECT_EQ(time.mWordClockTime, 0u);
  EXPECT_EQ(time.mReserved, 0u);
}

TEST_F(Clock, TimeRunsByTheNominalRate) {
  AudioTimeStamp time{};
  sHostTime = kAnchor + 441000;
  Device().SafeGetCurrentTime(time);
  EXPECT_EQ(time.mSampleTime, 44100.0);
  sHostTime = kAnchor + 9;
  Device().GetCurrentTime(time);
  EXPECT_EQ(time.mSampleTime, 0.0);
  sHostTime = kAnchor + 10;
  Device().GetCurrentTime(time);
  EXPECT_EQ(time.mSampleTime, 1.0);
}

TEST_F(Clock, AStoppedEngineHasNoTime) {
  Device().IOEngineStopped();
  AudioTimeStamp time{.mSampleTime = 1.0, .mFlags = 1};
  AudioTimeStamp out{};
  EXPECT_EQ(StatusOf([&] { Device().GetCurrentTime(time); }), 0x73746F70);
  EXPECT_EQ(StatusOf([&] { Device().SafeGetCurrentTime(time); }), 0x73746F70);
  EXPECT_EQ(StatusOf([&] { Device().TranslateTime(time, out); }), 0x73746F70);
  EXPECT_EQ(StatusOf([&] { Device().GetNearestStartTime(time, 0); }), 0x73746F70);
}

TEST_F(Clock, TheEnginesFlagDecidesNotTheAnchor) {
  Device().StopIOCycleTimingServices();
  AudioTimeStamp time{};
  Device().GetCurrentTime(time);
  EXPECT_EQ(time.mSampleTime, kAnchor / kTicksPerFrame);
}

TEST_F(Clock, AnUpdateAlwaysAsksForANewAnchor) {
  EXPECT_TRUE(Device().UpdateIOCycleTimingServices());
  AudioTimeStamp time{};
  sHostTime += 100;
  Device().GetCurrentTime(time);
  EXPECT_EQ(time.mSampleTime, 10.0);
}

TEST_F(Clock, AHostTimeBeforeTheAnchorIsNegative) {
  const AudioTimeStamp before{.mHostTime = kAnchor - 1, .mFlags = 2};
  EXPECT_EQ(Translate(before, 1).mSampleTime, -1.0);
  const AudioTimeStamp wellBefore{.mHostTime = kAnchor - 100, .mFlags = 2};
  EXPECT_EQ(Translate(wellBefore, 1).mSampleTime, -10.0);
}

TEST_F(Clock, SampleTimeZeroIsTheAnchor) {
  const AudioTimeStamp zero{.mSampleTime = 0.0, .mFlags = 1};
  EXPECT_EQ(Translate(zero, 2).mHostTime, kAnchor);
}

TEST_F(Clock, ANegativeSampleTimeLiesBeforeTheAnchor) {
  const AudioTimeStamp time{.mSampleTime = -10.0, .mFlags = 1};
  EXPECT_EQ(Translate(time, 2).mHostTime, kAnchor - 100);
  const AudioTimeStamp half{.mSampleTime = 1.55, .mFlags = 1};
  EXPECT_EQ(Translate(half, 2).mHostTime, kAnchor + 15);
}

TEST_F(Clock, WhatIsGivenIsCopied) {
  const AudioTimeStamp both{.mSampleTime = 3.25, .mHostTime = 77, .mFlags = 3};
  const AudioTimeStamp out = Translate(both, 7);
  EXPECT_EQ(out.mSampleTime, 3.25);
  EXPECT_EQ(out.mHostTime, 77u);
  EXPECT_EQ(out.mRateScalar, 1.0);
  EXPECT_EQ(out.mFlags, 7u);
}

TEST_F(Clock, WhatIsNotWantedStays) {
  const AudioTimeStamp both{.mSampleTime = 3.25, .mHostTime = 77, .mFlags = 3};
  AudioTimeStamp out{.mSampleTime = 1, .mHostTime = 2, .mRateScalar = 3, .mFlags = 0};
  Device().TranslateTime(both, out);
  EXPECT_EQ(out.mSampleTime, 1);
  EXPECT_EQ(out.mHostTime, 2u);
  EXPECT_EQ(out.mRateScalar, 3);
  EXPECT_EQ(out.mFlags, 0u);
}

TEST_F(Clock, AnInputWithoutATimeIsRefusedFirst) {
  const AudioTimeStamp none{.mFlags = 4};
  AudioTimeStamp out{.mFlags = 7};
  EXPECT_EQ(StatusOf([&] { Device().TranslateTime(none, out); }), 0x6E6F7065);
  Device().IOEngineStopped();
  EXPECT_EQ(StatusOf([&] { Device().TranslateTime(none, out); }), 0x6E6F7065);
}

TEST_F(Clock, TimesThatNoNumberHoldsGiveSomeHostTime) {
  for (const double time : {1e300, -1e300, std::numeric_limits<double>::quiet_NaN(),
                            std::numeric_limits<double>::infinity()}) {
    const AudioTimeStamp in{.mSampleTime = time, .mFlags = 1};
    EXPECT_EQ(Translate(in, 2).mFlags, 2u);
  }
  const AudioTimeStamp notANumber{.mSampleTime = std::nan(""), .mFlags = 1};
  EXPECT_EQ(Translate(notANumber, 2).mHostTime, kAnchor);
}

// As each is without a rate.
TEST_F(Clock, ATimeTooFarAheadIsTheLastOne) {
  for (const double time : {1e300, std::numeric_limits<double>::infinity()}) {
    const AudioTimeStamp in{.mSampleTime = time, .mFlags = 1};
    EXPECT_EQ(Translate(in, 2).mHostTime, std::numeric_limits<UInt64>::max());
  }
}

// Nearest start.

TEST_F(Clock, AskingNobodyIsRefused) {
  AudioTimeStamp time{.mSampleTime = 1.0, .mFlags = 1};
  EXPECT_EQ(StatusOf([&] { Device().GetNearestStartTime(time, 6); }), 0x73746F70);
  EXPECT_EQ(StatusOf([&] { Device().GetNearestStartTime(time, 7); }), 0x73746F70);
}

TEST_F(Clock, WithoutTheHALTheRequestComesBackTranslated) {
  StartProcedure();
  AudioTimeStamp time{.mSampleTime = -5.0, .mFlags = 1};
  Device().GetNearestStartTime(time, 4);
  EXPECT_EQ(time.mSampleTime, -5.0);
  EXPECT_EQ(time.mHostTime, kAnchor - 50);
  EXPECT_EQ(time.mFlags, 3u);
}

TEST_F(Clock, WithNothingEnabledTheAnswerIsTheRequest) {
  for (const UInt32 flags : {0u, 1u, 2u, 3u}) {
    EXPECT_EQ(NearestStart(-7.5, flags), -7.5);
    EXPECT_EQ(NearestStart(100000.0, flags), 100000.0);
  }
  AudioTimeStamp time{.mSampleTime = 10.0, .mRateScalar = 4.0, .mWordClockTime = 9, .mFlags = 1};
  Device().GetNearestStartTime(time, 0);
  EXPECT_EQ(time.mHostTime, kAnchor + 100);
  EXPECT_EQ(time.mFlags, 3u);
  // Members that nobody asked for stay.
  EXPECT_EQ(time.mRateScalar, 4.0);
  EXPECT_EQ(time.mWordClockTime, 9u);
}

TEST_F(Clock, ARequestInHostTimeIsTakenToo) {
  AudioTimeStamp time{.mHostTime = kAnchor + 1000, .mFlags = 2};
  Device().GetNearestStartTime(time, 0);
  EXPECT_EQ(time.mSampleTime, 100.0);
  EXPECT_EQ(time.mHostTime, kAnchor + 1000);
  EXPECT_EQ(time.mFlags, 3u);
}

TEST_F(Clock, WithNullStartsAloneAStartIsTwoBuffersFromNow) {
  Device().GetIOProcList()->StartIOProc(nullptr);
  sHostTime = kAnchor + 1000;  // sample time 100
  // In the engine's view: 100 + 2 * 512; an output time lies one buffer after that.
  EXPECT_EQ(NearestStart(0.0, 0), 100.0 + 3 * kSize);
  EXPECT_EQ(NearestStart(0.0, 1), 100.0 + kSize);
  // What lies later stays.
  EXPECT_EQ(NearestStart(5000.0, 0), 5000.0);
}

TEST_F(Clock, WithProceduresAStartLandsOnTheEnginesGrid) {
  StartProcedure();
  // The engine's position is 0; two buffers ahead is 1024 in its view, 1536 for an output time.
  EXPECT_EQ(NearestStart(0.0, 0), 3 * kSize);
  EXPECT_EQ(NearestStart(0.0, 1), kSize);
  EXPECT_EQ(NearestStart(3 * kSize, 0), 3 * kSize);
  // Past it, whole buffers: the distance divided by the size, plus 2.
  EXPECT_EQ(NearestStart(3 * kSize + 1, 0), 3 * kSize + 2 * kSize);
  EXPECT_EQ(NearestStart(3 * kSize + 511, 0), 3 * kSize + 2 * kSize);
  EXPECT_EQ(NearestStart(3 * kSize + 512, 0), 3 * kSize + 3 * kSize);
  EXPECT_EQ(NearestStart(kSize + 1000, 1), kSize + 3 * kSize);
}

TEST_F(Clock, AStartFarAheadWrapsAsThirtyTwoBits) {
  StartProcedure();
  // 2^32 + 512 frames ahead are 512 in 32 bits.
  EXPECT_EQ(NearestStart(3 * kSize + 0x1p32 + 512, 0), 3 * kSize + 3 * kSize);
}

TEST_F(Clock, AMovedStartHasItsHostTime) {
  StartProcedure();
  AudioTimeStamp time{.mSampleTime = 0.0, .mFlags = 1};
  Device().GetNearestStartTime(time, 0);
  EXPECT_EQ(time.mHostTime, kAnchor + static_cast<UInt64>(3 * kSize * kTicksPerFrame));
}

TEST_F(Clock, ATimeThatIsNoNumberIsTranslatedAgain) {
  AudioTimeStamp time{.mSampleTime = std::nan(""), .mFlags = 1};
  Device().GetNearestStartTime(time, 0);
  EXPECT_TRUE(std::isnan(time.mSampleTime));
  EXPECT_EQ(time.mHostTime, kAnchor);
}

// Between the client's view and the engine's lie a buffer and the direction's safety offset.

TEST_F(ClockWithOffsets, WithNothingEnabledTheAnswerIsTheRequest) {
  EXPECT_EQ(NearestStart(100.0, 0), 100.0);
  EXPECT_EQ(NearestStart(100.0, 1), 100.0);
}

TEST_F(ClockWithOffsets, WithNullStartsAloneTheOffsetIsAheadOfNowToo) {
  Device().GetIOProcList()->StartIOProc(nullptr);
  sHostTime = kAnchor + 1000;  // sample time 100
  EXPECT_EQ(NearestStart(0.0, 0), (100.0 + 20 + 2 * kSize) + kSize + 20);
  EXPECT_EQ(NearestStart(0.0, 1), (100.0 + 10 + 2 * kSize) - kSize - 10);
}

TEST_F(ClockWithOffsets, WithProceduresAStartLandsOnTheEnginesGrid) {
  StartProcedure();
  EXPECT_EQ(NearestStart(0.0, 0), 2 * kSize + kSize + 20);
  EXPECT_EQ(NearestStart(0.0, 1), 2 * kSize - kSize - 10);
  EXPECT_EQ(NearestStart(3 * kSize + 20, 0), 3 * kSize + 20) << "is two buffers ahead";
  EXPECT_EQ(NearestStart(3 * kSize + 21, 0), 5 * kSize + 20);
  EXPECT_EQ(NearestStart(kSize - 10, 1), kSize - 10);
  EXPECT_EQ(NearestStart(kSize - 9, 1), 3 * kSize - 10);
}

TEST_F(ClockWithOffsets, AMovedEngineMeetsTheTime) {
  const AudioTimeStamp start{.mSampleTime = 10000.0, .mFlags = 1};
  for (const UInt32 flags : {0u, 1u}) Device().StartIOEngineAtTime(start, flags);
  EXPECT_THAT(Device().mTranslated,
              testing::ElementsAre(10000.0 - kSize - 20 - kSize, 10000.0 + kSize + 10 - kSize));
}

}  // namespace
}  // namespace tembra::test
