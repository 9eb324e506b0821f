// AudioObjectGetPropertyData and AudioObjectSetPropertyData where machine code is not patched: they
// look for an interposer first. A process has one for good, so nobody can be inside one that goes.

#include <CoreAudio/AudioHardwareInterposition.h>

#include <atomic>

#include "hal/ObjectAPI.h"

namespace {

std::atomic<AudioObjectGetPropertyDataInterposer> sGetInterposer{nullptr};
std::atomic<AudioObjectSetPropertyDataInterposer> sSetInterposer{nullptr};

// The way on is known before the interposer is; a second interposer changes nothing.
template <typename Function>
OSStatus Install(std::atomic<Function>& ioInterposer, Function inInterposer, Function inNative,
                 Function* outNative) {
  if (!inInterposer || !outNative || ioInterposer.load(std::memory_order_relaxed)) {
    return kAudioHardwareIllegalOperationError;
  }
  Function none = nullptr;
  *outNative = inNative;
  return ioInterposer.compare_exchange_strong(none, inInterposer, std::memory_order_release)
             ? OSStatus{kAudioHardwareNoError}
             : OSStatus{kAudioHardwareIllegalOperationError};
}

}  // namespace

OSStatus AudioObjectInterposeGetPropertyData(AudioObjectGetPropertyDataInterposer inInterposer,
                                             AudioObjectGetPropertyDataInterposer* outNative) {
  return Install<AudioObjectGetPropertyDataInterposer>(sGetInterposer, inInterposer,
                                                       &TembraHALGetPropertyData, outNative);
}

OSStatus AudioObjectInterposeSetPropertyData(AudioObjectSetPropertyDataInterposer inInterposer,
                                             AudioObjectSetPropertyDataInterposer* outNative) {
  return Install<AudioObjectSetPropertyDataInterposer>(sSetInterposer, inInterposer,
                                                       &TembraHALSetPropertyData, outNative);
}

OSStatus AudioObjectGetPropertyData(AudioObjectID inObjectID,
                                    const AudioObjectPropertyAddress* inAddress,
                                    UInt32 inQualifierDataSize, const void* inQualifierData,
                                    UInt32* ioDataSize, void* outData) {
  const auto interposer = sGetInterposer.load(std::memory_order_acquire);
  return (interposer ? interposer : &TembraHALGetPropertyData)(
      inObjectID, inAddress, inQualifierDataSize, inQualifierData, ioDataSize, outData);
}

OSStatus AudioObjectSetPropertyData(AudioObjectID inObjectID,
                                    const AudioObjectPropertyAddress* inAddress,
                                    UInt32 inQualifierDataSize, const void* inQualifierData,
                                    UInt32 inDataSize, const void* inData) {
  const auto interposer = sSetInterposer.load(std::memory_order_acquire);
  return (interposer ? interposer : &TembraHALSetPropertyData)(
      inObjectID, inAddress, inQualifierDataSize, inQualifierData, inDataSize, inData);
}
