#include "device/HP_Device.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <memory>

#include "support/CAHostTimeBase.h"
#include "support/device/SimulatedDevice.h"

namespace tembra::test {
namespace {

class PlainDevice : public HP_Device {
 public:
  PlainDevice() : HP_Device(4600, kAudioDeviceClassID, nullptr, 3, true) {}
};

TEST(PlainDevice, HasItsValuesFromTheConstructor) {
  PlainDevice theDevice;
  EXPECT_EQ(theDevice.GetIOBufferFrameSize(), 512u);
  EXPECT_EQ(theDevice.GetIOBufferSetID(), 3u);
  EXPECT_FALSE(theDevice.IsIOEngineRunning());
  EXPECT_EQ(theDevice.GetDeviceStateMutex(), nullptr);
  EXPECT_EQ(theDevice.GetIOProcList(), nullptr);
  EXPECT_EQ(HP_Object::GetDeviceByID(4600), &theDevice);
}

TEST(PlainDevice, AnswersForItselfWhatNoOneOverrides) {
  PlainDevice theDevice;
  const AudioObjectPropertyAddress theAddress = {};
  EXPECT_TRUE(theDevice.IsAlive());
  EXPECT_FALSE(theDevice.IsHidden());
  EXPECT_EQ(theDevice.CopyDeviceName(), nullptr);
  EXPECT_EQ(theDevice.CopyDeviceManufacturerName(), nullptr);
  EXPECT_EQ(theDevice.CopyDeviceIcon(), nullptr);
  EXPECT_EQ(theDevice.CopyElementFullName(theAddress), nullptr);
  EXPECT_EQ(theDevice.CopyElementCategoryName(theAddress), nullptr);
  EXPECT_EQ(theDevice.CopyElementNumberName(theAddress), nullptr);
  EXPECT_EQ(theDevice.CopyConfigurationApplicationBundleID(), nullptr);
  EXPECT_EQ(theDevice.CopyDeviceUID(), nullptr);
  EXPECT_EQ(theDevice.CopyModelUID(), nullptr);
  EXPECT_EQ(theDevice.GetTransportType(), 0u);
  EXPECT_FALSE(theDevice.HogModeIsOwnedBySelf());
  EXPECT_TRUE(theDevice.HogModeIsOwnedBySelfOrIsFree());
  EXPECT_EQ(theDevice.GetLatency(true), 0u);
  EXPECT_EQ(theDevice.GetSafetyOffset(false), 0u);
  EXPECT_EQ(theDevice.GetIOBufferFrameSizePadding(), 0u);
  EXPECT_EQ(theDevice.GetIOCycleNumber(), 0u);
  EXPECT_EQ(theDevice.GetIOGuard(), nullptr);
  EXPECT_EQ(theDevice.GetCurrentNominalSampleRate(), 0.0);
  EXPECT_EQ(theDevice.GetCurrentActualSampleRate(), 0.0);
  EXPECT_FALSE(theDevice.UpdateIOCycleTimingServices());
}

TEST(PlainDevice, HasNoClockAndCannotBeRead) {
  PlainDevice theDevice;
  AudioTimeStamp theTime = {};
  EXPECT_EQ(StatusOf([&] { theDevice.Read(theTime, nullptr); }), 'unop');
  EXPECT_EQ(StatusOf([&] { theDevice.GetCurrentTime(theTime); }), 'unop');
  EXPECT_EQ(StatusOf([&] { theDevice.SafeGetCurrentTime(theTime); }), 'unop');
  EXPECT_EQ(StatusOf([&] { theDevice.TranslateTime(theTime, theTime); }), 'unop');
  EXPECT_EQ(StatusOf([&] { theDevice.GetNearestStartTime(theTime, 0); }), 'unop');
}

TEST(PlainDevice, AnchorWithASampleTimeIsKept) {
  PlainDevice theDevice;
  AudioTimeStamp theTime = {};
  theTime.mSampleTime = 5;
  EXPECT_TRUE(theDevice.EstablishIOCycleAnchorTime(theTime));
  EXPECT_EQ(theTime.mSampleTime, 5.0);
}

TEST(Device, AnchorWithoutASampleTimeIsThePresent) {
  class Device : public SimulatedDevice {
    void GetCurrentTime(AudioTimeStamp& outTime) override { outTime.mSampleTime = 77; }
  } theDevice;
  AudioTimeStamp theTime = {};
  EXPECT_TRUE(theDevice.EstablishIOCycleAnchorTime(theTime));
  EXPECT_EQ(theTime.mSampleTime, 77.0);
}

TEST(PlainDevice, EngineOperationsSetAndClearTheRunningFlag) {
  PlainDevice theDevice;
  theDevice.StartIOEngine();
  EXPECT_TRUE(theDevice.IsIOEngineRunning());
  EXPECT_TRUE(theDevice.IsIOEngineRunningSomewhere());
  theDevice.StopIOEngine();
  EXPECT_FALSE(theDevice.IsIOEngineRunning());
  EXPECT_FALSE(theDevice.IsIOEngineRunningSomewhere());
  theDevice.StartIOEngineAtTime(AudioTimeStamp(), 0);
  EXPECT_TRUE(theDevice.IsIOEngineRunning());
}

TEST(Device, InitializeMakesMutexListFormatsAndDebugName) {
  SimulatedDevice theDevice(false, false);
  const AudioObjectPropertyAddress theRates = {kAudioDevicePropertyAvailableNominalSampleRates,
                                               kAudioObjectPropertyScopeGlobal, 0};
  theDevice.Initialize();
  ASSERT_NE(theDevice.GetDeviceStateMutex(), nullptr);
  EXPECT_STREQ(theDevice.GetDeviceStateMutex()->GetName(), "DeviceStateMutex");
  EXPECT_EQ(theDevice.GetObjectStateMutex(), theDevice.GetDeviceStateMutex());
  EXPECT_NE(theDevice.GetIOProcList(), nullptr);
  EXPECT_TRUE(theDevice.HasProperty(theRates));
  EXPECT_STREQ(theDevice.GetDebugDeviceName(), "Simulated");

  theDevice.Teardown();
  EXPECT_EQ(theDevice.GetDeviceStateMutex(), nullptr);
  EXPECT_EQ(theDevice.GetIOProcList(), nullptr);
  EXPECT_FALSE(theDevice.HasProperty(theRates));
}

TEST(Device, TeardownWithoutInitializeDoesNothing) {
  PlainDevice theDevice;
  theDevice.Teardown();
  EXPECT_EQ(theDevice.GetIOProcList(), nullptr);
}

TEST(Device, MutexIsMadeOnce) {
  SimulatedDevice theDevice;
  CAMutex* theMutex = theDevice.GetDeviceStateMutex();
  theDevice.CreateDeviceStateMutex();
  EXPECT_EQ(theDevice.GetDeviceStateMutex(), theMutex);
}

TEST(Device, WithoutANameIsUnknown) {
  SimulatedDevice theDevice(false, false);
  theDevice.mName = nullptr;
  theDevice.Initialize();
  EXPECT_STREQ(theDevice.GetDebugDeviceName(), "Unknown");
}

TEST(Device, DebugNameIsCutToItsBuffer) {
  const std::string theName(400, 'x');
  SimulatedDevice theDevice(false, false);
  theDevice.mName = theName.c_str();
  theDevice.Initialize();
  EXPECT_EQ(std::string(theDevice.GetDebugDeviceName()), std::string(255, 'x'));
}

TEST(Device, ShowPrintsTheNameAndClearPrefsChangesNoIOState) {
  SimulatedDevice theDevice;
  testing::internal::CaptureStdout();
  theDevice.Show();
  theDevice.ClearPrefs();
  theDevice.HogModeStateChanged();
  EXPECT_THAT(testing::internal::GetCapturedStdout(), testing::HasSubstr("Simulated"));
  EXPECT_THAT(theDevice.TakeEvents(), testing::IsEmpty());
}

TEST(DeviceStreams, AreKeptByDirectionInOrder) {
  SimulatedDevice theDevice;
  EXPECT_FALSE(theDevice.HasInputStreams());
  EXPECT_FALSE(theDevice.HasOutputStreams());
  SimulatedStream* theA = theDevice.AddSimulatedStream(false, FloatFormat(2));
  SimulatedStream* theB = theDevice.AddSimulatedStream(false, FloatFormat(3));
  SimulatedStream* theC = theDevice.AddSimulatedStream(true, FloatFormat(1));
  EXPECT_EQ(theDevice.GetNumberStreams(true), 1u);
  EXPECT_EQ(theDevice.GetNumberStreams(false), 2u);
  EXPECT_EQ(theDevice.GetStreamByIndex(false, 0), theA);
  EXPECT_EQ(theDevice.GetStreamByIndex(false, 1), theB);
  EXPECT_EQ(theDevice.GetStreamByIndex(false, 2), nullptr);
  EXPECT_EQ(theDevice.GetStreamByIndex(true, 0), theC);
  EXPECT_EQ(theDevice.GetTotalNumberChannels(false), 5u);
  EXPECT_EQ(theDevice.GetTotalNumberChannels(true), 1u);
  EXPECT_TRUE(theDevice.HasInputStreams());
  EXPECT_TRUE(theDevice.HasAnyStreams(false));
  theDevice.RemoveStream(theA);
  EXPECT_EQ(theDevice.GetStreamByIndex(false, 0), theB);
}

TEST(DeviceStreams, AreFoundByTheChannelOfAnAddress) {
  SimulatedDevice theDevice;
  const auto theFind = [&](UInt32 inScope, UInt32 inElement) {
    return theDevice.GetStreamByPropertyAddress({'chnm', inScope, inElement}, false);
  };
  EXPECT_EQ(theFind('outp', 0), nullptr);
  SimulatedStream* theA = theDevice.AddSimulatedStream(false, FloatFormat(2));
  SimulatedStream* theB = theDevice.AddSimulatedStream(false, FloatFormat(3));
  SimulatedStream* theC = theDevice.AddSimulatedStream(true, FloatFormat(1));
  EXPECT_EQ(theFind('outp', 0), theA);
  EXPECT_EQ(theFind('outp', 1), theA);
  EXPECT_EQ(theFind('outp', 2), theA);
  EXPECT_EQ(theFind('outp', 3), theB);
  EXPECT_EQ(theFind('outp', 5), theB);
  EXPECT_EQ(theFind('outp', 6), nullptr);
  EXPECT_EQ(theFind('outp', 0xFFFFFFFF), nullptr);
  EXPECT_EQ(theFind('inpt', 0), theC);
  EXPECT_EQ(theFind('inpt', 1), theC);
  EXPECT_EQ(theFind('inpt', 2), nullptr);
  EXPECT_EQ(theFind('glob', 0), theA) << "any other scope means output";
  EXPECT_EQ(theFind('ptru', 3), theB);
}

TEST(DeviceStreams, NominalRateIsTheInputStreamsElseTheOutputStreams) {
  SimulatedDevice theDevice;
  theDevice.AddSimulatedStream(false, FloatFormat(2, 48000.0));
  EXPECT_EQ(theDevice.GetCurrentNominalSampleRate(), 48000.0);
  theDevice.AddSimulatedStream(true, FloatFormat(2, 96000.0));
  EXPECT_EQ(theDevice.GetCurrentNominalSampleRate(), 96000.0);
  EXPECT_EQ(theDevice.GetCurrentActualSampleRate(), 96000.0);
}

TEST(DeviceStreams, FormatsOfAllStreamsAreAskedForMixability) {
  SimulatedDevice theDevice;
  SimulatedStream* theStream = theDevice.AddSimulatedStream(false, FloatFormat(2));
  EXPECT_FALSE(theDevice.HasAnyNonMixableStreams(false));
  EXPECT_FALSE(theDevice.HasAnyNonLinearPCMStreams());
  EXPECT_FALSE(theDevice.CanSetIsMixable(false));
  AudioStreamBasicDescription theFormat = FloatFormat(2);
  theFormat.mFormatFlags |= kAudioFormatFlagIsNonMixable;
  theStream->AddFormat(theFormat);
  EXPECT_TRUE(theDevice.CanSetIsMixable(false));
  EXPECT_FALSE(theDevice.CanSetIsMixable(true));
  theStream->SetFormat(theFormat);
  EXPECT_TRUE(theDevice.HasAnyNonMixableStreams(false));
  EXPECT_FALSE(theDevice.HasAnyNonMixableStreams(true));
  EXPECT_FALSE(theDevice.HasAnyNonLinearPCMStreams());
  theDevice.AddSimulatedStream(true, CompressedFormat(1536));
  EXPECT_TRUE(theDevice.HasAnyNonLinearPCMStreams());
}

TEST(DeviceLayout, NamesOneAndTwoChannelsAndNoOthers) {
  const auto theLabels = [](UInt32 inChannels) {
    SimulatedDevice theDevice;
    if (inChannels > 0) theDevice.AddSimulatedStream(false, FloatFormat(inChannels));
    const size_t theSize =
        sizeof(AudioChannelLayout) + inChannels * sizeof(AudioChannelDescription);
    std::unique_ptr<void, decltype(&std::free)> theMemory(std::malloc(theSize), std::free);
    std::memset(theMemory.get(), 0xFF, theSize);
    auto& theLayout = *static_cast<AudioChannelLayout*>(theMemory.get());
    theDevice.GetDefaultChannelLayout(false, theLayout);
    EXPECT_EQ(theLayout.mChannelLayoutTag, 0u);
    EXPECT_EQ(theLayout.mChannelBitmap, 0u);
    EXPECT_EQ(theLayout.mNumberChannelDescriptions, inChannels);
    std::vector<UInt32> theResult;
    for (UInt32 i = 0; i < inChannels; ++i) {
      const AudioChannelDescription* theDescription = &theLayout.mChannelDescriptions[0] + i;
      EXPECT_EQ(theDescription->mChannelFlags, 0u);
      EXPECT_THAT(theDescription->mCoordinates, testing::ElementsAre(0.0f, 0.0f, 0.0f));
      theResult.push_back(theDescription->mChannelLabel);
    }
    return theResult;
  };
  EXPECT_THAT(theLabels(0), testing::IsEmpty());
  EXPECT_THAT(theLabels(1), testing::ElementsAre(42u));
  EXPECT_THAT(theLabels(2), testing::ElementsAre(1u, 2u));
  EXPECT_THAT(theLabels(3), testing::ElementsAre(0xFFFFFFFFu, 0xFFFFFFFFu, 0xFFFFFFFFu));
}

struct Constraints {
  UInt64 mPeriod = 0;
  UInt32 mQuantum = 0;
};

Constraints ConstraintsOf(UInt32 inFrames, Float64 inRate) {
  SimulatedDevice theDevice;
  theDevice.AddSimulatedStream(false, FloatFormat(2, inRate));
  theDevice.SetIOBufferFrameSize(inFrames, false);
  Constraints theConstraints;
  theDevice.CalculateIOThreadTimeConstraints(theConstraints.mPeriod, theConstraints.mQuantum);
  return theConstraints;
}

UInt64 Ticks(UInt64 inNanos) {
  return CAHostTimeBase::ConvertFromNanos(inNanos);
}

TEST(TimeConstraints, PeriodIsTheBuffersAndTheQuantumFallsAsItGrows) {
  EXPECT_EQ(ConstraintsOf(512, 1000000.0).mPeriod,
            static_cast<UInt64>((512 / 1000000.0) * CAHostTimeBase::GetFrequency()));
  EXPECT_EQ(ConstraintsOf(513, 44100.0).mPeriod,
            static_cast<UInt64>((513 / 44100.0) * CAHostTimeBase::GetFrequency()));
  // At a million frames a second a frame is a microsecond.
  EXPECT_EQ(ConstraintsOf(1499, 1e6).mQuantum, Ticks(500000));
  EXPECT_EQ(ConstraintsOf(1500, 1e6).mQuantum, Ticks(300000));
  EXPECT_EQ(ConstraintsOf(4443, 1e6).mQuantum, Ticks(300000));
  EXPECT_EQ(ConstraintsOf(4444, 1e6).mQuantum, Ticks(100000));
  EXPECT_EQ(ConstraintsOf(11025, 44100.0).mQuantum, Ticks(100000));
}

TEST(TimeConstraints, QuantumIsNotLongerThanThePeriod) {
  const Constraints theConstraints = ConstraintsOf(100, 1e6);
  EXPECT_EQ(theConstraints.mQuantum, theConstraints.mPeriod);
  EXPECT_EQ(ConstraintsOf(500, 1e6).mQuantum, Ticks(500000));
}

TEST(TimeConstraints, DeviceWithoutARateHasNoPeriod) {
  PlainDevice theDevice;
  UInt64 thePeriod = 1;
  UInt32 theQuantum = 1;
  theDevice.CalculateIOThreadTimeConstraints(thePeriod, theQuantum);
  EXPECT_EQ(thePeriod, 0u);
  EXPECT_EQ(theQuantum, 0u);
}

}  // namespace
}  // namespace tembra::test
