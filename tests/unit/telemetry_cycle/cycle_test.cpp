// What the I/O thread, the records of procedures and a device's changes record, and when.

#include <dispatch/dispatch.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "device/HP_IOProc.h"
#include "support/telemetry/Telemetry.h"
#include "unit/io_thread/IOThreadTest.h"

namespace tembra::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr UInt64 kOrigin = 1000000000;  // of the clock

// The events of one kind.
std::vector<Event> OfKind(const std::vector<Event>& inEvents, UInt32 inKind) {
  std::vector<Event> found;
  for (const Event& event : inEvents) {
    if (event.mKind == inKind) found.push_back(event);
  }
  return found;
}

class TelemetryCycle : public testing::Test {
 protected:
  HP_IOCycleTelemetry& Telemetry(const SimulatedDevice& inDevice) {
    return *inDevice.GetIOCycleTelemetry();
  }
  std::vector<Event> Record(ThreadedDevice& ioDevice, std::deque<ThreadedDevice::Step> inSteps) {
    StartCapture(Telemetry(ioDevice));
    ioDevice.Run(std::move(inSteps));
    return TakeAll(Telemetry(ioDevice));
  }

  TelemetryIsAllowed mAllowed;
};

TEST_F(TelemetryCycle, ARunIsRecordedFromInitializingToTeardown) {
  ThreadedDevice device;
  const std::vector<Event> events = Record(device, {kWhole, kWhole});
  EXPECT_THAT(TextsOf(events), ElementsAre("inib 0", "inie 0", "wrkb 0", "wrke 0", "wrkb 1",
                                           "wrke 1", "wrkb 2", "wrke 2", "trdb 3", "trde 3"));
}

TEST_F(TelemetryCycle, TheAnchorTheTimeOfWakingAndTheTimeToWakeAtAreCarried) {
  ThreadedDevice device;
  const std::vector<Event> events = Record(device, {ThreadedDevice::Late(100)});
  ASSERT_EQ(events.size(), 8u);
  EXPECT_EQ(events[1].mValues[2], 0.0) << "anchor";
  EXPECT_EQ(events[1].mWideValues[0], kOrigin);
  EXPECT_EQ(events[1].mValues[0], 1.0);
  EXPECT_EQ(events[2].mWideValues[0], kOrigin) << "now";
  const Event& end = events[3];
  EXPECT_EQ(end.mWideValues[0], kOrigin) << "now";
  EXPECT_EQ(end.mValues[3], 512.0) << "to wake at";
  EXPECT_EQ(end.mWideValues[1], kOrigin + 512000);
  EXPECT_EQ(events[4].mValues[2], 612.0) << "woken at";
  EXPECT_EQ(events[4].mWideValues[0], kOrigin + 612000);
}

TEST_F(TelemetryCycle, AnOverloadIsRecordedWithTheTimeTheLimitAndTheNewAnchor) {
  ThreadedDevice device;
  const std::vector<Event> events = Record(device, {ThreadedDevice::Late(600), kWhole});
  EXPECT_THAT(TextsOf(events),
              ElementsAre("inib 0", "inie 0", "wrkb 0", "wrke 0", "wrkb 1", "ovrb 1", "ovre 1",
                          "wrke 1", "wrkb 2", "wrke 2", "trdb 3", "trde 3"));
  EXPECT_EQ(events[5].mValues[2], 1112.0) << "now";
  EXPECT_EQ(events[5].mValues[3], 1024.0) << "limit";
  EXPECT_EQ(events[5].mWideValues[0], kOrigin + 1112000);
  EXPECT_EQ(events[5].mWideValues[1], kOrigin + 1024000);
  EXPECT_EQ(events[6].mValues[2], 1112.0) << "anchor";
  EXPECT_EQ(events[7].mValues[3], 1112.0 + 512.0) << "to wake at";
}

TEST_F(TelemetryCycle, AnOverloadIsRecordedBeforeItsNoticeAndWithTheGuardFree) {
  ThreadedDevice device;
  std::vector<std::string> seen;
  device.mOnNotification = [&](UInt32 inSelector) {
    if (inSelector == 'over') seen = TextsOf(TakeAll(Telemetry(device)));
  };
  Record(device, {ThreadedDevice::Late(600)});
  // The engine runs: the chunk in progress is not handed out.
  EXPECT_THAT(seen, IsEmpty());
  EXPECT_THAT(device.GetLog(), testing::Not(testing::Contains("guard held!")));
}

TEST_F(TelemetryCycle, ALostClockEndsItsOverloadAndRecordsNoEndOfTheCycle) {
  ThreadedDevice device;
  device.Do_AddIOProc(Proc, nullptr);
  device.mOnNotification = [&](UInt32 inSelector) {
    if (inSelector == 'over') device.mHasAnchor = false;
  };
  StartCapture(Telemetry(device));
  device.mSteps = {ThreadedDevice::Late(600)};
  device.Do_StartIOProc(Proc);
  device.AwaitEnd();
  EXPECT_THAT(TextsOf(TakeAll(Telemetry(device))),
              ElementsAre("inib 0", "inie 0", "wrkb 0", "wrke 0", "wrkb 1", "ovrb 1", "ovre 1",
                          "trdb 1", "trde 1"));
}

TEST_F(TelemetryCycle, AShiftedClockIsRecordedWithItsAnchorInTheCycleThatFollowsIt) {
  ThreadedDevice device;
  device.mClockHasShifted = true;
  device.mFramesToAnchor = 30;
  const std::vector<Event> events = Record(device, {ThreadedDevice::Late(100)});
  EXPECT_THAT(TextsOf(events), ElementsAre("inib 0", "inie 0", "wrkb 0", "wrke 0", "wrkb 1",
                                           "sync 1", "wrke 1", "trdb 2", "trde 2"));
  EXPECT_EQ(events[4].mValues[2], 612.0) << "the time of waking";
  EXPECT_EQ(events[5].mValues[2], 612.0) << "the anchor";
  EXPECT_EQ(events[5].mFlags, 0x15u);
}

TEST_F(TelemetryCycle, AnEarlyWakeUpEndsACycleAndBeginsNone) {
  ThreadedDevice device;
  const std::vector<Event> events = Record(device, {ThreadedDevice::WokenAfter(100), kWhole});
  EXPECT_THAT(TextsOf(events), ElementsAre("inib 0", "inie 0", "wrkb 0", "wrke 0", "wrke 1",
                                           "wrkb 2", "wrke 2", "trdb 3", "trde 3"));
}

TEST_F(TelemetryCycle, ABufferOfTheOldSizeIsACycleThatWasNotSleptFor) {
  ThreadedDevice device;
  const std::vector<Event> events =
      Record(device,
             {ThreadedDevice::WholeWith([&] { device.SetIOBufferFrameSize(256, false); }), kWhole});
  EXPECT_THAT(TextsOf(events),
              ElementsAre("inib 0", "inie 0", "wrkb 0", "wrke 0", "bufb 0", "bufe 0", "wrkb 1",
                          "wrke 1", "wrkb 2", "wrke 2", "wrkb 3", "wrke 3", "trdb 4", "trde 4"));
  EXPECT_EQ(events[4].mValues[2], 256.0);
  EXPECT_EQ(events[7].mWideValues[1], 0u) << "there is no time to wake at";
  EXPECT_EQ(events[9].mWideValues[1], kOrigin + 1536000);
}

TEST_F(TelemetryCycle, AStopWhileInitializingLeavesNoCycleBehind) {
  ThreadedDevice device;
  device.mOnNotification = [&](UInt32) { device.mThread->Stop(); };
  const std::vector<Event> events = Record(device, {kWhole});
  EXPECT_THAT(TextsOf(events), ElementsAre("inib 0", "trdb 0", "trde 0"));
}

TEST_F(TelemetryCycle, ARunThatEndsByAnExceptionHasNoTeardownBegin) {
  ThreadedDevice device;
  device.mOnCall = [] { throw CAException('test'); };
  const std::vector<Event> events = Record(device, {kWhole, kWhole});
  EXPECT_THAT(TextsOf(events),
              ElementsAre("inib 0", "inie 0", "wrkb 0", "wrke 0", "wrkb 1", "trde 1"));
}

TEST_F(TelemetryCycle, WithCaptureOffARunRecordsNothing) {
  ThreadedDevice device;
  device.mClockHasShifted = true;
  device.Run({kWhole, ThreadedDevice::Late(600)});
  EXPECT_THAT(TakeAll(Telemetry(device)), IsEmpty());
}

TEST_F(TelemetryCycle, EventsAreInTheOrderOfTheirTimes) {
  ThreadedDevice device;
  const std::vector<Event> events = Record(device, {kWhole, ThreadedDevice::Late(600), kWhole});
  for (size_t i = 1; i < events.size(); ++i) EXPECT_GE(events[i].mTime, events[i - 1].mTime);
  EXPECT_EQ(OfKind(events, 'wrkb').back().mTime, kOrigin + (1024 + 600 + 512) * 1000);
}

// Where among a run's steps the events stand: each step takes the clock a little further, so that
// the times tell what came before and what after it.

class Steps {
 public:
  void Note(const std::string& inStep) {
    mSteps.emplace_back(SimulatedTime::Get().mNow += kNanos, "[" + inStep + "]");
    SimulatedTime::Get().mNow += kNanos;
  }
  // The events with the steps between them.
  std::vector<std::string> With(const std::vector<Event>& inEvents) const {
    std::vector<std::string> texts;
    size_t next = 0;
    for (const Event& event : inEvents) {
      while (next < mSteps.size() && mSteps[next].first <= event.mTime) {
        texts.push_back(mSteps[next++].second);
      }
      texts.push_back(KindText(event.mKind));
    }
    while (next < mSteps.size()) texts.push_back(mSteps[next++].second);
    return texts;
  }

 private:
  static constexpr UInt64 kNanos = ThreadedDevice::kNanosPerFrame;
  std::vector<std::pair<UInt64, std::string>> mSteps;
};

class SteppedDevice : public ThreadedDevice {
 public:
  void StartIOCycleTimingServices() override {
    ThreadedDevice::StartIOCycleTimingServices();
    mRun.Note("clock on");
  }
  void StopIOCycleTimingServices() override {
    mRun.Note("clock off");
    ThreadedDevice::StopIOCycleTimingServices();
  }
  bool EstablishIOCycleAnchorTime(AudioTimeStamp& ioTime) override {
    mRun.Note("anchor");
    return ThreadedDevice::EstablishIOCycleAnchorTime(ioTime);
  }
  bool UpdateIOCycleTimingServices() override {
    mRun.Note("clock");
    return ThreadedDevice::UpdateIOCycleTimingServices();
  }
  bool CallIOProcs(const AudioTimeStamp& inNow, const AudioTimeStamp& inInput,
                   const AudioTimeStamp& inOutput) override {
    mRun.Note("procedures");
    return ThreadedDevice::CallIOProcs(inNow, inInput, inOutput);
  }
  void PropertiesChanged(UInt32 inNumber,
                         const AudioObjectPropertyAddress* inAddress) const override {
    mRun.Note("notice");
    ThreadedDevice::PropertiesChanged(inNumber, inAddress);
  }

  mutable Steps mRun;
};

TEST_F(TelemetryCycle, TheEventsStandAtTheirPlacesAmongTheStepsOfARun) {
  SteppedDevice device;
  device.mClockHasShifted = true;
  const std::vector<Event> events = Record(device, {ThreadedDevice::Late(100)});
  EXPECT_THAT(device.mRun.With(events),
              ElementsAre("inib", "[clock on]", "[notice]", "[anchor]", "inie", "wrkb", "wrke",
                          "wrkb", "[clock]", "[anchor]", "sync", "[procedures]", "wrke", "trdb",
                          "[clock off]", "[notice]", "trde"));
}

TEST_F(TelemetryCycle, TheEventsOfAnOverloadStandAroundItsNoticeAndTheNewAnchor) {
  SteppedDevice device;
  const std::vector<Event> events = Record(device, {ThreadedDevice::Late(600)});
  EXPECT_THAT(device.mRun.With(events),
              ElementsAre("inib", "[clock on]", "[notice]", "[anchor]", "inie", "wrkb", "wrke",
                          "wrkb", "[clock]", "[procedures]", "ovrb", "[notice]", "[anchor]", "ovre",
                          "wrke", "trdb", "[clock off]", "[notice]", "trde"));
}

TEST_F(TelemetryCycle, ABufferOfTheOldSizeIsRecordedAroundItsProcedures) {
  SteppedDevice device;
  const std::vector<Event> events =
      Record(device, {ThreadedDevice::WholeWith([&] { device.SetIOBufferFrameSize(256, false); })});
  EXPECT_THAT(device.mRun.With(events),
              ElementsAre("inib", "[clock on]", "[notice]", "[anchor]", "inie", "wrkb", "wrke",
                          "bufb", "bufe", "wrkb", "[clock]", "[procedures]", "wrke", "wrkb",
                          "[procedures]", "wrke", "trdb", "[clock off]", "[notice]", "trde"));
}

// The frame size.

TEST_F(TelemetryCycle, AChangeOfTheFrameSizeIsRecordedAroundItsNotice) {
  SimulatedDevice device;
  device.AddSimulatedStream(false, FloatFormat(2));
  StartCapture(Telemetry(device));
  std::vector<std::string> before;
  device.mOnSizeChanged = [&](CAPropertyAddressList&) {
    before = TextsOf(TakeAll(Telemetry(device)));
  };
  device.Do_SetIOBufferFrameSize(1024);
  EXPECT_THAT(before, ElementsAre("bufb 0"));
  EXPECT_THAT(TextsOf(TakeAll(Telemetry(device))), ElementsAre("bufe 0"));
  EXPECT_EQ(device.GetIOBufferFrameSize(), 1024u);
}

class ResizedDevice : public SimulatedDevice {
 public:
  void IOBufferFrameSizeChanged(bool, CAPropertyAddressList*) override { mChange.Note("changed"); }
  void PropertiesChanged(UInt32, const AudioObjectPropertyAddress*) const override {
    mChange.Note("notice");
  }
  // Asked as buffers are made.
  UInt32 GetIOBufferFrameSizePadding() const override {
    if (mIsWatched) mChange.Note("buffer of " + std::to_string(GetIOBufferFrameSize()));
    mIsWatched = false;
    return 0;
  }

  mutable bool mIsWatched = false;
  mutable Steps mChange;
};

TEST_F(TelemetryCycle, TheEventsOfAChangeOfTheFrameSizeStandAroundAllThatItDoes) {
  SimulatedTime::Get().Reset();
  ResizedDevice device;
  device.AddSimulatedStream(false, FloatFormat(2));
  AudioDeviceIOProcID id = device.GetIOProcList()->AddIOProc(Proc, nullptr, true);
  device.GetIOProcList()->StartIOProc(id);
  device.mIsWatched = true;
  StartCapture(Telemetry(device));
  device.Do_SetIOBufferFrameSize(1024);
  EXPECT_THAT(device.mChange.With(TakeAll(Telemetry(device))),
              ElementsAre("bufb", "[buffer of 1024]", "[changed]", "[notice]", "bufe"));
}

TEST_F(TelemetryCycle, AQuietChangeIsRecordedAndAnEqualSizeIsNot) {
  SimulatedDevice device;
  device.AddSimulatedStream(false, FloatFormat(2));
  StartCapture(Telemetry(device));
  device.Do_SetQuietIOBufferFrameSize(300);
  const std::vector<Event> events = TakeAll(Telemetry(device));
  ASSERT_THAT(TextsOf(events), ElementsAre("bufb 0", "bufe 0"));
  EXPECT_EQ(events[0].mValues[2], 300.0);
  device.SetIOBufferFrameSize(300, true);
  EXPECT_THAT(TakeAll(Telemetry(device)), IsEmpty());
}

TEST_F(TelemetryCycle, ADeviceThatIsNotInitializedTakesAFrameSizeWithoutTelemetry) {
  SimulatedDevice device(false, false);
  EXPECT_EQ(device.GetIOCycleTelemetry(), nullptr);
  device.SetIOBufferFrameSize(300, false);
  EXPECT_EQ(device.GetIOBufferFrameSize(), 300u);
}

// Calls of procedures.

class TelemetryCall : public TelemetryCycle {
 protected:
  TelemetryCall() { StartCapture(Telemetry(mDevice)); }
  std::vector<Event> Call(HP_IOProc& ioProc) {
    const AudioTimeStamp time = {};
    ioProc.Call(time, time, nullptr, time, nullptr);
    return TakeAll(Telemetry(mDevice));
  }

  SimulatedDevice mDevice;
};

OSStatus NotingProc(AudioObjectID, const AudioTimeStamp*, const AudioBufferList*,
                    const AudioTimeStamp*, AudioBufferList*, const AudioTimeStamp*,
                    void* inTelemetry) {
  static_cast<HP_IOCycleTelemetry*>(inTelemetry)->Resynch(1, AudioTimeStamp());
  return 0;
}

TEST_F(TelemetryCall, AFunctionIsRecordedAroundItsCall) {
  HP_IOProc proc(&mDevice, NotingProc, &Telemetry(mDevice), true, 1, true, false);
  proc.Start();
  const std::vector<Event> events = Call(proc);
  ASSERT_THAT(TextsOf(events), ElementsAre("iiob 0", "sync 1", "iioe 0"));
  EXPECT_EQ(events[0].mWideValues[0], reinterpret_cast<UInt64>(&NotingProc));
}

TEST_F(TelemetryCall, ABlockIsRecordedWithoutAnAddressWithAndWithoutAQueue) {
  dispatch_queue_t queue = dispatch_queue_create("test", nullptr);
  for (dispatch_queue_t where : {queue, dispatch_queue_t(nullptr)}) {
    HP_IOCycleTelemetry* telemetry = &Telemetry(mDevice);
    HP_IOProc proc(
        &mDevice, where,
        ^(const AudioTimeStamp*, const AudioBufferList*, const AudioTimeStamp*, AudioBufferList*,
          const AudioTimeStamp*) {
          telemetry->Resynch(1, AudioTimeStamp());
        },
        1, true, false);
    proc.Start();
    const std::vector<Event> events = Call(proc);
    ASSERT_THAT(TextsOf(events), ElementsAre("iiob 0", "sync 1", "iioe 0"));
    EXPECT_EQ(events[0].mWideValues[0], 0u);
    EXPECT_EQ(events[0].mFlags, 0x10u);
  }
  dispatch_release(queue);
}

TEST_F(TelemetryCall, ARecordWithNeitherFunctionNorBlockIsRecordedToo) {
  HP_IOProc proc(&mDevice, nullptr, nullptr, false, 1, true, false);
  proc.Start();
  EXPECT_THAT(TextsOf(Call(proc)), ElementsAre("iiob 0", "iioe 0"));
}

TEST_F(TelemetryCall, AStoppedRecordIsNotRecorded) {
  HP_IOProc proc(&mDevice, NotingProc, &Telemetry(mDevice), true, 1, true, false);
  EXPECT_THAT(Call(proc), IsEmpty());
  proc.StartAtTime(AudioTimeStamp{.mSampleTime = 5.0}, 2);
  EXPECT_THAT(Call(proc), IsEmpty()) << "its time has not come";
}

// The device's telemetry.

TEST_F(TelemetryCycle, ADeviceMakesItsTelemetryAndTakesItDown) {
  SimulatedDevice device;
  ASSERT_NE(device.GetIOCycleTelemetry(), nullptr);
  EXPECT_TRUE(Telemetry(device).IsEnabled());
  EXPECT_FALSE(Telemetry(device).IsCapturing());
  StartCapture(Telemetry(device));
  device.Teardown();
  EXPECT_EQ(device.GetIOCycleTelemetry(), nullptr);
}

}  // namespace
}  // namespace tembra::test
