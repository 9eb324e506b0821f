#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <mach/mach_time.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <future>
#include <thread>

#include "support/device/SimulatedDevice.h"
#include "support/telemetry/Telemetry.h"
#include "unit/telemetry/Platform.h"

namespace tembra::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr UInt32 kChunk = 256;
constexpr UInt32 kRing = 512 * kChunk;

class TelemetryRing : public testing::Test {
 protected:
  TelemetryRing() {
    SimulatedPlatform::Get().Reset();
    SimulatedPlatform::Get().mPortFails = true;
    mDevice = std::make_unique<SimulatedDevice>();
    mTelemetry = std::make_unique<HP_IOCycleTelemetry>(mDevice.get());
  }

  // Events whose cycles count on.
  void Record(UInt32 inNumber) {
    for (UInt32 i = 0; i < inNumber; ++i) mTelemetry->IOCycleIOProcsBegin(mNext++);
  }
  // "first..last" of one answer, "none" for no data.
  std::string TakeText() {
    const std::vector<Event> events = Take(*mTelemetry);
    if (events.empty()) return "none";
    for (size_t i = 1; i < events.size(); ++i) {
      if (events[i].mIOCycle != events[i - 1].mIOCycle + 1) return "a gap within a chunk";
    }
    return std::to_string(events.front().mIOCycle) + ".." + std::to_string(events.back().mIOCycle);
  }
  void SetIsRunning(bool inIsRunning) {
    inIsRunning ? mDevice->IOEngineStarted() : mDevice->IOEngineStopped();
  }

  TelemetryIsAllowed mAllowed;
  std::unique_ptr<SimulatedDevice> mDevice;
  std::unique_ptr<HP_IOCycleTelemetry> mTelemetry;
  UInt32 mNext = 0;
};

OSStatus SomeProc(AudioObjectID, const AudioTimeStamp*, const AudioBufferList*,
                  const AudioTimeStamp*, AudioBufferList*, const AudioTimeStamp*, void*) {
  return 0;
}

AudioTimeStamp Time(Float64 inSampleTime, UInt64 inHostTime, Float64 inRateScalar) {
  AudioTimeStamp time = {};
  time.mSampleTime = inSampleTime;
  time.mHostTime = inHostTime;
  time.mRateScalar = inRateScalar;
  time.mWordClockTime = 99;
  time.mFlags = 7;
  return time;
}

// The recorders, in a row each.

struct Row {
  const char* mName;
  std::function<void(HP_IOCycleTelemetry&)> mRecord;
  UInt32 mKind;
  UInt32 mMask;
  std::array<Float64, 4> mValues;
  std::array<UInt64, 2> mWideValues;
};

const AudioTimeStamp kTime1 = Time(1000.5, 0x123456789ABCDEF0, 1.25);
const AudioTimeStamp kTime2 = Time(-3.75, 42, 0.5);

std::vector<Row> Recorders() {
  using T = HP_IOCycleTelemetry;
  const auto proc = reinterpret_cast<UInt64>(&SomeProc);
  const std::array<Float64, 4> none{};
  const std::array<Float64, 4> one{1.25, 0, 1000.5, 0};
  const std::array<Float64, 4> two{1.25, 0.5, 1000.5, -3.75};
  const std::array<UInt64, 2> oneWide{0x123456789ABCDEF0, 0};
  const std::array<UInt64, 2> twoWide{0x123456789ABCDEF0, 42};
  return {
      {"inib", [](T& t) { t.IOCycleInitializeBegin(7); }, 0x696E6962, 0, none, {}},
      {"inie", [](T& t) { t.IOCycleInitializeEnd(7, kTime1); }, 0x696E6965, 0x15, one, oneWide},
      {"wrkb", [](T& t) { t.IOCycleWorkLoopBegin(7, kTime1); }, 0x77726B62, 0x15, one, oneWide},
      {"wrke", [](T& t) { t.IOCycleWorkLoopEnd(7, kTime1, kTime2); }, 0x77726B65, 0x3F, two,
       twoWide},
      {"sync", [](T& t) { t.Resynch(7, kTime1); }, 0x73796E63, 0x15, one, oneWide},
      {"ovrb", [](T& t) { t.IOCycleWorkLoopOverloadBegin(7, kTime1, kTime2); }, 0x6F767262, 0x3F,
       two, twoWide},
      {"ovre", [](T& t) { t.IOCycleWorkLoopOverloadEnd(7, kTime1); }, 0x6F767265, 0x15, one,
       oneWide},
      {"trdb", [](T& t) { t.IOCycleTeardownBegin(7); }, 0x74726462, 0, none, {}},
      {"trde", [](T& t) { t.IOCycleTeardownEnd(7); }, 0x74726465, 0, none, {}},
      {"iopb", [](T& t) { t.IOCycleIOProcsBegin(7); }, 0x696F7062, 0, none, {}},
      {"iope", [](T& t) { t.IOCycleIOProcsEnd(7); }, 0x696F7065, 0, none, {}},
      {"iiob",
       [](T& t) { t.IOCycleIOProcCallBegin(7, SomeProc); },
       0x69696F62,
       0x10,
       none,
       {proc, 0}},
      {"iioe", [](T& t) { t.IOCycleIOProcCallEnd(7); }, 0x69696F65, 0, none, {}},
      {"inpt", [](T& t) { t.InputDataPresent(7); }, 0x696E7074, 0, none, {}},
      {"outp", [](T& t) { t.OutputDataPresent(7); }, 0x6F757470, 0, none, {}},
      {"bufb",
       [](T& t) { t.IOBufferSizeChangeBegin(7, 333.0); },
       0x62756662,
       4,
       {0, 0, 333.0, 0},
       {}},
      {"bufe", [](T& t) { t.IOBufferSizeChangeEnd(7); }, 0x62756665, 0, none, {}},
  };
}

TEST_F(TelemetryRing, EachOfThe17RecordersHasItsKindItsMaskAndItsValues) {
  const std::vector<Row> rows = Recorders();
  ASSERT_EQ(rows.size(), 17u);
  StartCapture(*mTelemetry);
  for (const Row& row : rows) row.mRecord(*mTelemetry);
  const std::vector<Event> events = Take(*mTelemetry);
  ASSERT_EQ(events.size(), rows.size());
  for (size_t i = 0; i < rows.size(); ++i) {
    const Event& event = events[i];
    const Row& row = rows[i];
    EXPECT_EQ(event.mKind, row.mKind) << row.mName;
    EXPECT_EQ(KindText(event.mKind), row.mName);
    EXPECT_EQ(event.mFlags, row.mMask) << row.mName;
    EXPECT_EQ(event.mIOCycle, 7u) << row.mName;
    for (size_t v = 0; v < 4; ++v) EXPECT_EQ(event.mValues[v], row.mValues[v]) << row.mName << v;
    for (size_t v = 0; v < 2; ++v) {
      EXPECT_EQ(event.mWideValues[v], row.mWideValues[v]) << row.mName << v;
    }
    EXPECT_EQ(event.mError, 0u) << row.mName;
    if (i > 0) EXPECT_EQ(event.mTime, events[i - 1].mTime + 1) << "one reading of the clock each";
  }
}

TEST_F(TelemetryRing, ABlockIsRecordedWithoutAProcedure) {
  StartCapture(*mTelemetry);
  mTelemetry->IOCycleIOProcCallBegin(1, nullptr);
  const std::vector<Event> events = Take(*mTelemetry);
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(events[0].mWideValues[0], 0u);
  EXPECT_EQ(events[0].mFlags, 0x10u);
}

TEST_F(TelemetryRing, ARecordIs72BytesInAFixedOrder) {
  StartCapture(*mTelemetry);
  mTelemetry->SaveTelemetryItem(0x01020304, 0x05060708, 1.0, 2.0, 4.0, 8.0, 0x1112131415161718,
                                0x2122232425262728, 0x31323334, 0x41424344);
  CFDataRef data = mTelemetry->GetTelemetry();
  ASSERT_NE(data, nullptr);
  ASSERT_EQ(CFDataGetLength(data), 72);
  const UInt8 expected[64] = {
      0x04, 0x03, 0x02, 0x01,                          // 8: kind
      0x08, 0x07, 0x06, 0x05,                          // 12: cycle
      0,    0,    0,    0,    0,    0,    0xF0, 0x3F,  // 16: 1.0
      0,    0,    0,    0,    0,    0,    0x00, 0x40,  // 24: 2.0
      0,    0,    0,    0,    0,    0,    0x10, 0x40,  // 32: 4.0
      0,    0,    0,    0,    0,    0,    0x20, 0x40,  // 40: 8.0
      0x18, 0x17, 0x16, 0x15, 0x14, 0x13, 0x12, 0x11,  // 48: first wide value
      0x28, 0x27, 0x26, 0x25, 0x24, 0x23, 0x22, 0x21,  // 56: second wide value
      0x34, 0x33, 0x32, 0x31,                          // 64: error
      0x44, 0x43, 0x42, 0x41,                          // 68: mask
  };
  EXPECT_EQ(std::memcmp(CFDataGetBytePtr(data) + 8, expected, sizeof expected), 0);
  UInt64 time = 0;
  std::memcpy(&time, CFDataGetBytePtr(data), sizeof time);
  EXPECT_GT(time, 0u);
  CFRelease(data);
}

// Capture.

TEST_F(TelemetryRing, WithCaptureOffNoChunkExistsAndNoEventIsKept) {
  EXPECT_EQ(SimulatedPlatform::GetLiveChunks(), 0);
  for (const Row& row : Recorders()) row.mRecord(*mTelemetry);
  EXPECT_EQ(SimulatedPlatform::GetLiveChunks(), 0);
  EXPECT_EQ(SimulatedPlatform::GetMadeChunks(), 0);
  EXPECT_THAT(TakeAll(*mTelemetry), IsEmpty());
  StartCapture(*mTelemetry);
  EXPECT_THAT(TakeAll(*mTelemetry), IsEmpty());
}

TEST_F(TelemetryRing, ARecorderThatRunsJustAsCaptureStartsOrStopsKeepsNothing) {
  mTelemetry->SetIsCapturing(true);  // the flag without the ring
  Record(3);
  EXPECT_THAT(TakeAll(*mTelemetry), IsEmpty());
  EXPECT_EQ(SimulatedPlatform::GetLiveChunks(), 0);
}

TEST_F(TelemetryRing, CaptureTakesAllItsMemoryAtTheStartAndGivesItBackAtTheStop) {
  StartCapture(*mTelemetry);
  EXPECT_EQ(SimulatedPlatform::GetLiveChunks(), 512);
  Record(kRing + 5);
  EXPECT_EQ(SimulatedPlatform::GetMadeChunks(), 512);
  StopCapture(*mTelemetry);
  EXPECT_EQ(SimulatedPlatform::GetLiveChunks(), 0);
  EXPECT_THAT(TakeAll(*mTelemetry), IsEmpty());
}

TEST_F(TelemetryRing, StartingWhileCapturingAndStoppingWhileNotChangeNothing) {
  mTelemetry->StopCapturing();
  StartCapture(*mTelemetry);
  Record(3);
  mTelemetry->StartCapturing();
  EXPECT_EQ(SimulatedPlatform::GetMadeChunks(), 512);
  EXPECT_EQ(TakeText(), "0..2");
}

TEST_F(TelemetryRing, ANewCaptureBeginsEmptyAtTheFirstChunk) {
  StartCapture(*mTelemetry);
  Record(3 * kChunk + 9);
  StopCapture(*mTelemetry);
  StartCapture(*mTelemetry);
  SetIsRunning(true);
  EXPECT_EQ(TakeText(), "none");
  Record(kChunk);
  EXPECT_EQ(TakeText(), "777..1032");
}

TEST_F(TelemetryRing, TheFlagAloneFreesNothingAndTeardownDoes) {
  StartCapture(*mTelemetry);
  mTelemetry->SetIsCapturing(false);
  EXPECT_EQ(SimulatedPlatform::GetLiveChunks(), 512);
  mTelemetry->StopCapturing();
  EXPECT_EQ(SimulatedPlatform::GetLiveChunks(), 512) << "it is not capturing";
  mTelemetry->Teardown();
  EXPECT_EQ(SimulatedPlatform::GetLiveChunks(), 0);
}

TEST_F(TelemetryRing, DestructionFreesTheRingToo) {
  StartCapture(*mTelemetry);
  mTelemetry->SetIsCapturing(false);
  mTelemetry.reset();
  EXPECT_EQ(SimulatedPlatform::GetLiveChunks(), 0);
}

TEST_F(TelemetryRing, ACaptureAfterOneThatWasOnlySwitchedOffHasOneRing) {
  StartCapture(*mTelemetry);
  Record(5);
  mTelemetry->SetIsCapturing(false);
  StartCapture(*mTelemetry);
  EXPECT_EQ(SimulatedPlatform::GetLiveChunks(), 512);
  EXPECT_THAT(TakeAll(*mTelemetry), IsEmpty());
}

TEST_F(TelemetryRing, WithoutMemoryForTheWholeRingThereIsNone) {
  if (!SimulatedPlatform::OwnsTheAllocator()) GTEST_SKIP() << "a sanitizer has the allocator";
  for (const int most : {0, 1, 511}) {
    SimulatedPlatform::LimitChunks(most);
    EXPECT_THROW(mTelemetry->StartCapturing(), std::bad_alloc);
    EXPECT_EQ(SimulatedPlatform::GetLiveChunks(), 0);
  }
}

TEST_F(TelemetryRing, TelemetryThatIsNotAllowedKeepsNothingAndAnswersNothing) {
  unsetenv("CoreAudio_HAL_Enable_Telemetry");
  HP_IOCycleTelemetry telemetry(mDevice.get());
  StartCapture(telemetry);
  // Each reading of the clock moves it by one, and an event that is kept reads it.
  const UInt64 time = mach_absolute_time();
  telemetry.IOCycleIOProcsBegin(1);
  EXPECT_EQ(mach_absolute_time(), time + 1);
  EXPECT_EQ(telemetry.GetTelemetry(), nullptr);
}

// The ring.

TEST_F(TelemetryRing, WhileTheEngineRunsWholeChunksAreHandedOutAndTheOneInProgressStays) {
  StartCapture(*mTelemetry);
  SetIsRunning(true);
  Record(kChunk - 1);
  EXPECT_EQ(TakeText(), "none");
  Record(1);
  EXPECT_EQ(TakeText(), "0..255");
  EXPECT_EQ(TakeText(), "none");
  Record(2 * kChunk + 7);
  EXPECT_EQ(TakeText(), "256..511");
  EXPECT_EQ(TakeText(), "512..767");
  EXPECT_EQ(TakeText(), "none");
}

TEST_F(TelemetryRing, EventsOfTheFirstChunkComeOnceTheEngineHasStopped) {
  StartCapture(*mTelemetry);
  SetIsRunning(true);
  Record(10);
  EXPECT_EQ(TakeText(), "none");
  SetIsRunning(false);
  EXPECT_EQ(TakeText(), "0..9");
  EXPECT_EQ(TakeText(), "none");
  Record(3);
  EXPECT_EQ(TakeText(), "10..12") << "the chunk is filled from its beginning again";
}

TEST_F(TelemetryRing, AStoppedEnginesWholeChunksComeBeforeTheOneInProgress) {
  StartCapture(*mTelemetry);
  Record(kChunk + 2);
  EXPECT_EQ(TakeText(), "0..255");
  EXPECT_EQ(TakeText(), "256..257");
  EXPECT_EQ(TakeText(), "none");
}

TEST_F(TelemetryRing, After131072EventsWithoutAReaderTheFirstChunkHoldsNewEvents) {
  StartCapture(*mTelemetry);
  SetIsRunning(true);
  Record(kRing);
  EXPECT_EQ(TakeText(), "none") << "the writer stands where the reader does";
  Record(kChunk);
  EXPECT_EQ(TakeText(), "131072..131327");
  EXPECT_EQ(TakeText(), "none");
}

TEST_F(TelemetryRing, ARunOf200000EventsIsReadFromWhereTheReaderStoodToWhereTheWriterStands) {
  StartCapture(*mTelemetry);
  SetIsRunning(true);
  Record(200000);
  std::vector<Event> events;
  while (true) {
    const std::vector<Event> some = Take(*mTelemetry);
    if (some.empty()) break;
    ASSERT_EQ(some.size(), kChunk);
    events.insert(events.end(), some.begin(), some.end());
  }
  ASSERT_EQ(events.size(), (200000 - kRing) / kChunk * kChunk);
  for (size_t i = 0; i < events.size(); ++i) ASSERT_EQ(events[i].mIOCycle, kRing + i);
  SetIsRunning(false);
  EXPECT_EQ(TakeText(), "199936..199999");
}

TEST_F(TelemetryRing, WhileTheEngineRunsTheReaderGoesFromTheLastChunkToTheFirst) {
  StartCapture(*mTelemetry);
  SetIsRunning(true);
  Record(511 * kChunk);
  for (int chunk = 0; chunk < 511; ++chunk) ASSERT_NE(TakeText(), "none");
  Record(2 * kChunk);
  EXPECT_EQ(TakeText(), "130816..131071");
  EXPECT_EQ(TakeText(), "131072..131327");
  EXPECT_EQ(TakeText(), "none");
}

TEST_F(TelemetryRing, WithTheEngineStoppedThereIsOneAnswerWithoutDataPastTheLastChunk) {
  StartCapture(*mTelemetry);
  Record(511 * kChunk);
  for (int chunk = 0; chunk < 511; ++chunk) ASSERT_NE(TakeText(), "none");
  Record(2 * kChunk + 1);
  EXPECT_EQ(TakeText(), "130816..131071");
  EXPECT_EQ(TakeText(), "none");
  EXPECT_EQ(TakeText(), "131072..131327");
  EXPECT_EQ(TakeText(), "131328..131328");
  EXPECT_EQ(TakeText(), "none");
}

TEST_F(TelemetryRing, AnEngineThatStartsWhileTheReaderStandsPastTheLastChunkIsReadFromTheFirst) {
  StartCapture(*mTelemetry);
  Record(511 * kChunk);
  for (int chunk = 0; chunk < 511; ++chunk) ASSERT_NE(TakeText(), "none");
  Record(2 * kChunk + 1);
  EXPECT_EQ(TakeText(), "130816..131071");
  SetIsRunning(true);
  EXPECT_EQ(TakeText(), "none");
  EXPECT_EQ(TakeText(), "131072..131327");
  EXPECT_EQ(TakeText(), "none");
}

TEST_F(TelemetryRing, ClearingDiscardsWhatWasNotRead) {
  StartCapture(*mTelemetry);
  Record(3 * kChunk + 5);
  EXPECT_EQ(TakeText(), "0..255");
  EXPECT_EQ(mTelemetry->ClearTelemetry(), nullptr);
  EXPECT_EQ(TakeText(), "none");
  Record(2);
  EXPECT_EQ(TakeText(), "773..774");
}

TEST_F(TelemetryRing, ClearingWithoutARingIsNothing) {
  EXPECT_EQ(mTelemetry->ClearTelemetry(), nullptr);
  EXPECT_THAT(TakeAll(*mTelemetry), IsEmpty());
}

// Two threads.

UInt32 CheckOf(UInt64 inNumber) {
  return static_cast<UInt32>((inNumber * 0x9E3779B97F4A7C15) >> 32);
}

bool IsWhole(const Event& inEvent) {
  const UInt64 number = inEvent.mWideValues[0];
  const auto value = static_cast<Float64>(number);
  return inEvent.mKind == 'test' && inEvent.mIOCycle == static_cast<UInt32>(number) &&
         inEvent.mValues[0] == value && inEvent.mValues[1] == value + 1 &&
         inEvent.mValues[2] == value + 2 && inEvent.mValues[3] == value + 3 &&
         inEvent.mWideValues[1] == ~number && inEvent.mError == CheckOf(number) &&
         inEvent.mFlags == ~CheckOf(number);
}

// What takes long is done without the guard: a cycle that records meanwhile does not wait for it.
TEST_F(TelemetryRing, RecordersNeedNotWaitForTheRingToBeMadeOrFreedNorForAReply) {
  if (!SimulatedPlatform::OwnsTheAllocator()) GTEST_SKIP() << "a sanitizer has the allocator";
  int recorded = 0;
  const auto record = [&] {
    std::promise<void> done;
    std::future<void> end = done.get_future();
    std::thread recorder([&] {
      mTelemetry->SaveTelemetryItem('test', 0, 0, 0, 0, 0, 0, 0, 0, 0);
      done.set_value();
    });
    const bool isFree = end.wait_for(std::chrono::seconds(20)) == std::future_status::ready;
    if (!isFree) std::abort();  // it would wait for ever
    recorder.join();
    ++recorded;
  };
  int chunks = 0;
  SimulatedPlatform::Get().mOnChunk = [&] {
    if (chunks++ % 128 == 0) record();
  };
  StartCapture(*mTelemetry);
  EXPECT_EQ(recorded, 4) << "while the ring was made";
  record();
  SimulatedPlatform::Get().mOnData = record;
  EXPECT_EQ(Take(*mTelemetry).size(), 1u);
  EXPECT_EQ(recorded, 6) << "while the reply was made";
  SimulatedPlatform::Get().mOnData = nullptr;
  StopCapture(*mTelemetry);
  EXPECT_EQ(recorded, 10) << "while the ring was freed";
  SimulatedPlatform::Get().mOnChunk = nullptr;
}

TEST_F(TelemetryRing, NoRecordIsTornWhileAReaderDrainsAndOthersClearAndRestart) {
  StartCapture(*mTelemetry);
  SetIsRunning(true);
  constexpr UInt64 kEvents = 200000;
  std::atomic<bool> written{false};
  std::thread writer([&] {
    for (UInt64 n = 0; n < kEvents; ++n) {
      const auto value = static_cast<Float64>(n);
      mTelemetry->SaveTelemetryItem('test', static_cast<UInt32>(n), value, value + 1, value + 2,
                                    value + 3, n, ~n, CheckOf(n), ~CheckOf(n));
    }
    written = true;
  });
  size_t read = 0;
  size_t torn = 0;
  UInt64 rounds = 0;
  while (!written) {
    for (const Event& event : Take(*mTelemetry)) {
      ++read;
      torn += IsWhole(event) ? 0 : 1;
    }
    if (++rounds % 64 == 0) mTelemetry->ClearTelemetry();
    if (rounds % 512 == 0) {
      StopCapture(*mTelemetry);
      StartCapture(*mTelemetry);
    }
  }
  writer.join();
  SetIsRunning(false);
  for (const Event& event : TakeAll(*mTelemetry)) {
    ++read;
    torn += IsWhole(event) ? 0 : 1;
  }
  EXPECT_EQ(torn, 0u);
  EXPECT_LE(read, kEvents);
  RecordProperty("read", static_cast<int>(read));
}

}  // namespace
}  // namespace tembra::test
