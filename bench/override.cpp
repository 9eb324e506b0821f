// What the default output override adds to a call that it passes on, which is every call but those
// about the default output: the same function once patched and once not, in one process.

#include <CoreAudio/AudioHardware.h>
#include <benchmark/benchmark.h>

#include <cstdio>

#include "runtime/TMBACLNO.h"

// A function like the HAL's, twice: it begins with an instruction of eleven bytes and hands its
// arguments on. Another object's property: no default output.
#define FUNCTION(name)                                                       \
  asm(".text\n.balign 64\n.globl " name "\n.type " name ", @function\n" name \
      ":\n"                                                                  \
      ".byte 0x66, 0x66, 0x2e, 0x0f, 0x1f, 0x84, 0, 0, 0, 0, 0\n"            \
      "pushq %rbp\nmovq %rsp, %rbp\ncall OverrideBody\nleave\nret\n"         \
      ".size " name ", . - " name "\n")
FUNCTION("AudioObjectGetPropertyData");
FUNCTION("UnpatchedGetPropertyData");

extern "C" {
tmbclno_aogpd_function UnpatchedGetPropertyData;

// The installation calls it once without an address, as the HAL's allows.
[[gnu::noinline]] OSStatus OverrideBody(AudioObjectID inObject,
                                        const AudioObjectPropertyAddress* inAddress, UInt32,
                                        const void*, UInt32* ioSize, void*) {
  if (inAddress == nullptr) return kAudioHardwareIllegalOperationError;
  return inObject == *ioSize ? 1 : 0;
}
}

namespace {

template <tmbclno_aogpd_function* kFunction>
void ReadProperty(benchmark::State& ioState) {
  const AudioObjectPropertyAddress address{kAudioDevicePropertyBufferFrameSize,
                                           kAudioObjectPropertyScopeGlobal, 0};
  UInt32 value = 0;
  UInt32 size = sizeof value;
  for (auto unused : ioState) {
    benchmark::DoNotOptimize(kFunction(5, &address, 0, nullptr, &size, &value));
  }
}
BENCHMARK(ReadProperty<&AudioObjectGetPropertyData>)->Name("OverridePassesOn/of");
BENCHMARK(ReadProperty<&UnpatchedGetPropertyData>)->Name("OverridePassesOn/floor");

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  const OSStatus error = tmbclno_override_aogpd();
  if (error != 0) {
    std::fprintf(stderr, "the function cannot be patched: %x\n", static_cast<unsigned>(error));
    return 1;
  }
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
