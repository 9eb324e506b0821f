// Plays a second of concert pitch through the default output device.
//
// Build: clang++ -std=c++20 -fblocks -Iplatform/include tone.cpp -ltmbhal -ltmbplatform

#include <CoreAudio/CoreAudio.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>

namespace {

struct Tone {
  double mPhase = 0;
  double mStep = 0;
};

OSStatus Render(AudioObjectID, const AudioTimeStamp*, const AudioBufferList*, const AudioTimeStamp*,
                AudioBufferList* outOutput, const AudioTimeStamp*, void* inTone) {
  Tone& tone = *static_cast<Tone*>(inTone);
  AudioBuffer& buffer = outOutput->mBuffers[0];
  auto* sample = static_cast<Float32*>(buffer.mData);
  const UInt32 frames = buffer.mDataByteSize / (buffer.mNumberChannels * sizeof(Float32));
  for (UInt32 frame = 0; frame < frames; ++frame, tone.mPhase += tone.mStep) {
    for (UInt32 channel = 0; channel < buffer.mNumberChannels; ++channel) {
      *sample++ = static_cast<Float32>(0.2 * std::sin(tone.mPhase));
    }
  }
  return 0;
}

template <typename Value>
bool Get(AudioObjectID inObject, AudioObjectPropertySelector inSelector, Value& outValue) {
  const AudioObjectPropertyAddress address = {inSelector, kAudioObjectPropertyScopeGlobal, 0};
  UInt32 size = sizeof outValue;
  return AudioObjectGetPropertyData(inObject, &address, 0, nullptr, &size, &outValue) == 0;
}

}  // namespace

int main() {
  AudioObjectID device = kAudioObjectUnknown;
  Float64 rate = 0;
  AudioDeviceIOProcID procedure = nullptr;
  Tone tone;
  if (!Get(kAudioObjectSystemObject, kAudioHardwarePropertyDefaultOutputDevice, device) ||
      !Get(device, kAudioDevicePropertyNominalSampleRate, rate) ||
      AudioDeviceCreateIOProcID(device, Render, &tone, &procedure) != 0) {
    fprintf(stderr, "There is no device to play on.\n");
    return 1;
  }
  tone.mStep = 2 * M_PI * 440 / rate;
  const OSStatus status = AudioDeviceStart(device, procedure);
  sleep(1);
  AudioDeviceStop(device, procedure);
  AudioDeviceDestroyIOProcID(device, procedure);
  return status == 0 ? 0 : 1;
}
