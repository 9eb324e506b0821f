#include "runtime/TMBACLNO.h"

#include <cstring>

std::atomic<AudioObjectID> tmbclno_audio_object_id{0};
std::atomic<bool> tmbclno_aogpd_overriden{false};
tmbclno_aogpd_function* tmbclno_aogpd_entry = nullptr;
tmbclno_aospd_function* tmbclno_aospd_entry = nullptr;

namespace {

// Whether this is a property that the override is about.
bool IsDefaultOutput(AudioObjectID inObjectID, const AudioObjectPropertyAddress* inAddress) {
  return inObjectID == kAudioObjectSystemObject && inAddress != nullptr &&
         (inAddress->mSelector == kAudioHardwarePropertyDefaultOutputDevice ||
          inAddress->mSelector == kAudioHardwarePropertyDefaultSystemOutputDevice);
}

bool IsSystem(const AudioObjectPropertyAddress& inAddress) {
  return inAddress.mSelector == kAudioHardwarePropertyDefaultSystemOutputDevice;
}

// What follows is kept out of the proxies, so that what they do for every other property is two
// comparisons and a jump.

[[gnu::noinline]] OSStatus ReadDefaultOutput(AudioObjectID inObjectID,
                                             const AudioObjectPropertyAddress* inAddress,
                                             UInt32 inQualifierDataSize,
                                             const void* inQualifierData, UInt32* ioDataSize,
                                             void* outData) {
  const AudioObjectID device = tmbclno_audio_object_id.load(std::memory_order_relaxed);
  if (device == kAudioObjectUnknown || !tmbclno_is_default_output(IsSystem(*inAddress)) ||
      outData == nullptr || ioDataSize == nullptr || *ioDataSize < sizeof device) {
    return tmbclno_aogpd_native(inObjectID, inAddress, inQualifierDataSize, inQualifierData,
                                ioDataSize, outData);
  }
  memcpy(outData, &device, sizeof device);
  *ioDataSize = sizeof device;
  return kAudioHardwareNoError;
}

[[gnu::noinline]] OSStatus WriteDefaultOutput(AudioObjectID inObjectID,
                                              const AudioObjectPropertyAddress* inAddress,
                                              UInt32 inQualifierDataSize,
                                              const void* inQualifierData, UInt32 inDataSize,
                                              const void* inData) {
  const AudioObjectID device = tmbclno_audio_object_id.load(std::memory_order_relaxed);
  AudioObjectID chosen = kAudioObjectUnknown;
  if (device != kAudioObjectUnknown && inData != nullptr && inDataSize >= sizeof chosen) {
    memcpy(&chosen, inData, sizeof chosen);
    tmbclno_set_default_output(chosen == device, IsSystem(*inAddress));
  }
  return tmbclno_aospd_native(inObjectID, inAddress, inQualifierDataSize, inQualifierData,
                              inDataSize, inData);
}

}  // namespace

void TMBACLNO_Initialize(AudioObjectID inObjectID) {
  tmbclno_audio_object_id.store(inObjectID, std::memory_order_relaxed);
}

OSStatus tmbclno_aogpd_native(AudioObjectID inObjectID, const AudioObjectPropertyAddress* inAddress,
                              UInt32 inQualifierDataSize, const void* inQualifierData,
                              UInt32* ioDataSize, void* outData) {
  tmbclno_aogpd_function* const entry = __atomic_load_n(&tmbclno_aogpd_entry, __ATOMIC_RELAXED);
  if (entry != nullptr) {
    return entry(inObjectID, inAddress, inQualifierDataSize, inQualifierData, ioDataSize, outData);
  }
  return AudioObjectGetPropertyData(inObjectID, inAddress, inQualifierDataSize, inQualifierData,
                                    ioDataSize, outData);
}

OSStatus tmbclno_aospd_native(AudioObjectID inObjectID, const AudioObjectPropertyAddress* inAddress,
                              UInt32 inQualifierDataSize, const void* inQualifierData,
                              UInt32 inDataSize, const void* inData) {
  tmbclno_aospd_function* const entry = __atomic_load_n(&tmbclno_aospd_entry, __ATOMIC_RELAXED);
  if (entry != nullptr) {
    return entry(inObjectID, inAddress, inQualifierDataSize, inQualifierData, inDataSize, inData);
  }
  return AudioObjectSetPropertyData(inObjectID, inAddress, inQualifierDataSize, inQualifierData,
                                    inDataSize, inData);
}

OSStatus tmbclno_aogpd_proxy(AudioObjectID inObjectID, const AudioObjectPropertyAddress* inAddress,
                             UInt32 inQualifierDataSize, const void* inQualifierData,
                             UInt32* ioDataSize, void* outData) {
  if (IsDefaultOutput(inObjectID, inAddress)) {
    return ReadDefaultOutput(inObjectID, inAddress, inQualifierDataSize, inQualifierData,
                             ioDataSize, outData);
  }
  return tmbclno_aogpd_native(inObjectID, inAddress, inQualifierDataSize, inQualifierData,
                              ioDataSize, outData);
}

OSStatus tmbclno_aospd_proxy(AudioObjectID inObjectID, const AudioObjectPropertyAddress* inAddress,
                             UInt32 inQualifierDataSize, const void* inQualifierData,
                             UInt32 inDataSize, const void* inData) {
  if (IsDefaultOutput(inObjectID, inAddress)) {
    return WriteDefaultOutput(inObjectID, inAddress, inQualifierDataSize, inQualifierData,
                              inDataSize, inData);
  }
  return tmbclno_aospd_native(inObjectID, inAddress, inQualifierDataSize, inQualifierData,
                              inDataSize, inData);
}
