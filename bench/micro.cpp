// Small things that run often, each beside the least that it could cost. bench/ratios.py turns a
// run into ratios.

#include <CoreAudio/AudioHardware.h>
#include <CoreAudio/AudioHardwarePlugIn.h>
#include <CoreAudio/HostTime.h>
#include <benchmark/benchmark.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "client/Snd.h"
#include "client/TMBACLN_PlugIn.h"
#include "device/HP_Device.h"
#include "telemetry/HP_IOCycleTelemetry.h"

// The benchmark plays the HAL's part towards the plug-in object that it makes.
extern "C" OSStatus AudioObjectCreate(AudioHardwarePlugInRef, AudioObjectID, AudioClassID,
                                      AudioObjectID* outObject) {
  static AudioObjectID sNext = 2;
  *outObject = ++sNext;
  return 0;
}

extern "C" OSStatus AudioObjectsPublishedAndDied(AudioHardwarePlugInRef, AudioObjectID, UInt32,
                                                 const AudioObjectID*, UInt32,
                                                 const AudioObjectID*) {
  return 0;
}

namespace {

constexpr std::size_t kFrames = 512;

struct StereoBuffer {
  std::array<float, kFrames * 2> samples;
  AudioBufferList list{1, {{2, sizeof samples, samples.data()}}};
  AudioTimeStamp time{};
  AudioStreamBasicDescription format{44100.0, kAudioFormatLinearPCM, 9, 8, 1, 8, 2, 32, 0};

  StereoBuffer() {
    for (std::size_t index = 0; index < samples.size(); ++index) {
      samples[index] = static_cast<float>(index) / static_cast<float>(samples.size());
    }
  }
};

void SerialiseStereo512(benchmark::State& ioState) {
  StereoBuffer buffer;
  std::vector<char> block(SndGetABLSerializedSize(buffer.list, true) + sizeof(float));
  for (auto unused : ioState) {
    benchmark::DoNotOptimize(
        SndSerializeABL(buffer.time, buffer.format, buffer.list, true, block.data(), block.size()));
    benchmark::ClobberMemory();
  }
}
BENCHMARK(SerialiseStereo512)->Name("SerialiseStereo512/of");

void Copy4096(benchmark::State& ioState) {
  StereoBuffer buffer;
  std::vector<char> block(sizeof buffer.samples);
  for (auto unused : ioState) {
    std::memcpy(block.data(), buffer.samples.data(), sizeof buffer.samples);
    benchmark::DoNotOptimize(block.data());
    benchmark::ClobberMemory();
  }
}
BENCHMARK(Copy4096)->Name("SerialiseStereo512/floor");

// The device of a plug-in object made as the HAL makes it, asked through the vector of entries.
struct LoadedPlugIn {
  AudioHardwarePlugInRef reference;
  AudioObjectID device = kAudioObjectUnknown;

  LoadedPlugIn() {
    CFUUIDRef type =
        CFUUIDGetConstantUUIDWithBytes(nullptr, 0xF8, 0xBB, 0x1C, 0x28, 0xBA, 0xE8, 0x11, 0xD6,
                                       0x9C, 0x31, 0x00, 0x03, 0x93, 0x15, 0xCD, 0x46);
    reference = static_cast<AudioHardwarePlugInRef>(TMBACLN_New_Instance(nullptr, type));
    // No other plug-in shall load beside it.
    setenv("TEMBRA_HAL_PLUGIN_PATH", "/nonexistent", 1);
    (*reference)->InitializeWithObjectID(reference, 2);
    device = 3;
  }
};

void ReadFrameSize(benchmark::State& ioState) {
  static LoadedPlugIn sPlugIn;
  const AudioObjectPropertyAddress address{kAudioDevicePropertyBufferFrameSize,
                                           kAudioObjectPropertyScopeGlobal, 0};
  UInt32 frames = 0;
  for (auto unused : ioState) {
    UInt32 size = sizeof frames;
    const OSStatus status = (*sPlugIn.reference)
                                ->ObjectGetPropertyData(sPlugIn.reference, sPlugIn.device, &address,
                                                        0, nullptr, &size, &frames);
    if (status != 0) ioState.SkipWithError("the device does not answer");
    benchmark::DoNotOptimize(frames);
  }
  if (frames != 512) ioState.SkipWithError("the frame size is not 512");
}
BENCHMARK(ReadFrameSize)->Name("ReadFrameSize/of");

struct Answering {
  virtual ~Answering() = default;
  virtual std::uint32_t Answer() const = 0;
};
struct FrameSize : Answering {
  std::uint32_t Answer() const override { return 512; }
};

void MutexMapVirtual(benchmark::State& ioState) {
  std::mutex mutex;
  std::map<std::uint32_t, std::unique_ptr<Answering>> objects;
  for (std::uint32_t id = 2; id < 6; ++id) objects[id] = std::make_unique<FrameSize>();
  std::uint32_t id = 3;
  for (auto unused : ioState) {
    benchmark::DoNotOptimize(id);
    const std::lock_guard<std::mutex> lock(mutex);
    benchmark::DoNotOptimize(objects.find(id)->second->Answer());
  }
}
BENCHMARK(MutexMapVirtual)->Name("ReadFrameSize/floor");

// The seven events of a cycle that plays, with capture off, against as many tests of a flag.
struct BareDevice : HP_Device {
  BareDevice() : HP_Device(99, kAudioDeviceClassID, nullptr, 1, false) {}
};

void RecordWithCaptureOff(benchmark::State& ioState) {
  BareDevice device;
  HP_IOCycleTelemetry telemetry(&device);
  AudioTimeStamp time{};
  UInt32 cycle = 0;
  for (auto unused : ioState) {
    benchmark::DoNotOptimize(&telemetry);
    telemetry.IOCycleWorkLoopBegin(++cycle, time);
    telemetry.IOCycleIOProcsBegin(cycle);
    telemetry.IOCycleIOProcCallBegin(cycle, nullptr);
    telemetry.IOCycleIOProcCallEnd(cycle);
    telemetry.OutputDataPresent(cycle);
    telemetry.IOCycleIOProcsEnd(cycle);
    telemetry.IOCycleWorkLoopEnd(cycle, time, time);
    benchmark::DoNotOptimize(cycle);
  }
}
BENCHMARK(RecordWithCaptureOff)->Name("RecordWithCaptureOff/of");

[[gnu::noinline]] void Keep(UInt32 inCycle) {
  benchmark::DoNotOptimize(inCycle);
}

void TestFlags(benchmark::State& ioState) {
  std::atomic<bool> flag{false};
  UInt32 cycle = 0;
  for (auto unused : ioState) {
    benchmark::DoNotOptimize(&flag);
    ++cycle;
    if (flag.load(std::memory_order_relaxed)) Keep(cycle);
    if (flag.load(std::memory_order_relaxed)) Keep(cycle);
    if (flag.load(std::memory_order_relaxed)) Keep(cycle);
    if (flag.load(std::memory_order_relaxed)) Keep(cycle);
    if (flag.load(std::memory_order_relaxed)) Keep(cycle);
    if (flag.load(std::memory_order_relaxed)) Keep(cycle);
    if (flag.load(std::memory_order_relaxed)) Keep(cycle);
    benchmark::DoNotOptimize(cycle);
  }
}
BENCHMARK(TestFlags)->Name("RecordWithCaptureOff/floor");

// One event with capture on, against a lock, a reading of the clock and the record's stores.
void RecordWithCaptureOn(benchmark::State& ioState) {
  setenv("CoreAudio_HAL_Enable_Telemetry", "1", 1);
  BareDevice device;
  HP_IOCycleTelemetry telemetry(&device);
  unsetenv("CoreAudio_HAL_Enable_Telemetry");
  telemetry.StartCapturing();
  telemetry.SetIsCapturing(true);
  AudioTimeStamp time{};
  UInt32 cycle = 0;
  for (auto unused : ioState) telemetry.IOCycleWorkLoopEnd(++cycle, time, time);
}
BENCHMARK(RecordWithCaptureOn)->Name("RecordWithCaptureOn/of");

void LockClockAndStores(benchmark::State& ioState) {
  std::vector<CAHALIOCycleRawTelemetryEvent> events(std::size_t{512} * 256);
  std::mutex mutex;
  std::size_t next = 0;
  UInt32 cycle = 0;
  for (auto unused : ioState) {
    const std::lock_guard<std::mutex> lock(mutex);
    events[next] = {AudioGetCurrentHostTime(), 'wrke', ++cycle, {}, {}, 0, 0x3F};
    benchmark::ClobberMemory();
    if (++next == events.size()) next = 0;
  }
}
BENCHMARK(LockClockAndStores)->Name("RecordWithCaptureOn/floor");

}  // namespace

BENCHMARK_MAIN();
