// What the client device records in its I/O cycle.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "device/HP_IOProcList.h"
#include "support/client/ClientDevice.h"
#include "support/client/FakeHAL.h"
#include "support/client/FakeServer.h"
#include "support/telemetry/Telemetry.h"

namespace tembra::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::Not;

OSStatus Render(AudioDeviceID, const AudioTimeStamp*, const AudioBufferList*, const AudioTimeStamp*,
                AudioBufferList* outOutput, const AudioTimeStamp*, void* inValue) {
  for (UInt32 i = 0; i < outOutput->mNumberBuffers; ++i) {
    auto* samples = static_cast<float*>(outOutput->mBuffers[i].mData);
    if (samples != nullptr) samples[0] = *static_cast<float*>(inValue);
  }
  return 0;
}

class TelemetryClient : public testing::Test {
 protected:
  TelemetryClient() {
    FakeServer::Get().Reset();
    FakeHAL::Get().Reset();
    mDevice = std::make_unique<ClientDevice>();
    StartCapture(Telemetry());
  }
  ~TelemetryClient() override {
    (*mDevice)->StopHardware();
    mDevice.reset();
    FakeServer::Get().Reset();
  }

  HP_IOCycleTelemetry& Telemetry() { return *(*mDevice)->GetIOCycleTelemetry(); }
  HP_IOProcList& List() { return *(*mDevice)->GetIOProcList(); }
  AudioDeviceIOProcID Add(float& inValue) {
    AudioDeviceIOProcID id = List().AddIOProc(Render, &inValue, true);
    List().StartIOProc(id);
    return id;
  }
  std::vector<std::string> Cycle() {
    const AudioTimeStamp time{.mSampleTime = 512.0, .mFlags = 7};
    EXPECT_TRUE((*mDevice)->CallIOProcs(time, time, time));
    return TextsOf(TakeAll(Telemetry()));
  }

  TelemetryIsAllowed mAllowed;
  std::unique_ptr<ClientDevice> mDevice;
  float mSound = 0.5f;
  float mSilence = 0.0f;
};

TEST_F(TelemetryClient, ACycleIsRecordedAroundItsProceduresAndASoundIsPresent) {
  Add(mSound);
  EXPECT_THAT(Cycle(), ElementsAre("iopb 0", "iiob 0", "iioe 0", "outp 0", "iope 0"));
}

TEST_F(TelemetryClient, SilenceIsNotPresent) {
  Add(mSilence);
  EXPECT_THAT(Cycle(), ElementsAre("iopb 0", "iiob 0", "iioe 0", "iope 0"));
}

TEST_F(TelemetryClient, EachProcedureIsRecordedAndOnlyTheOwnListCountsAsOutput) {
  Add(mSilence);
  float other = 0.25f;
  Add(other);
  // The second one renders into the first one's list, after that was looked at.
  EXPECT_THAT(Cycle(), ElementsAre("iopb 0", "iiob 0", "iioe 0", "iiob 0", "iioe 0", "iope 0"));
}

TEST_F(TelemetryClient, ACycleWithoutProceduresIsRecordedToo) {
  EXPECT_THAT(Cycle(), ElementsAre("iopb 0", "iope 0"));
}

TEST_F(TelemetryClient, TheSilentInputIsNotPresent) {
  Add(mSound);
  EXPECT_THAT(Cycle(), Not(Contains("inpt 0")));
}

TEST_F(TelemetryClient, InputThatHoldsDataIsPresentBeforeTheProceduresAreCalled) {
  Add(mSilence);
  AudioBufferList* input = List().GetSharedAudioBufferList(true);
  ASSERT_NE(input, nullptr);
  ASSERT_NE(input->mBuffers[0].mData, nullptr);
  static_cast<float*>(input->mBuffers[0].mData)[100] = 1.0f;
  EXPECT_THAT(Cycle(), ElementsAre("inpt 0", "iopb 0", "iiob 0", "iioe 0", "iope 0"));
}

TEST_F(TelemetryClient, MovingARunningEngineIsRecordedWithTheAnchor) {
  TMBACLN_Device& device = **mDevice;
  device.StartIOCycleTimingServices();
  device.IOEngineStarted();
  const AudioTimeStamp start{.mSampleTime = 10000.0, .mFlags = 1};
  device.StartIOEngineAtTime(start, 0);
  device.StartIOEngineAtTime(start, kAudioDeviceStartTimeIsInputFlag);
  device.IOEngineStopped();
  const std::vector<Event> events = TakeAll(Telemetry());
  ASSERT_THAT(TextsOf(events), ElementsAre("sync 0", "sync 0"));
  EXPECT_EQ(events[0].mValues[2], 10000.0 - 512 - 512) << "an output time lies a buffer ahead";
  EXPECT_EQ(events[1].mValues[2], 10000.0 + 512 - 512) << "and an input time a buffer behind";
  for (const Event& event : events) EXPECT_GT(event.mWideValues[0], 0u);
  device.StopIOCycleTimingServices();
}

TEST_F(TelemetryClient, WithCaptureOffNothingIsRecorded) {
  StopCapture(Telemetry());
  Add(mSound);
  EXPECT_THAT(Cycle(), testing::IsEmpty());
}

TEST_F(TelemetryClient, TeardownSwitchesCaptureOffAndTakesTheTelemetryAway) {
  (*mDevice)->Teardown();
  EXPECT_EQ((*mDevice)->GetIOCycleTelemetry(), nullptr);
  (*mDevice)->Initialize();
  ASSERT_NE((*mDevice)->GetIOCycleTelemetry(), nullptr);
  EXPECT_FALSE(Telemetry().IsCapturing());
}

}  // namespace
}  // namespace tembra::test
