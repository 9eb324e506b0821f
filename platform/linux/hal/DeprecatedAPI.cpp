#include "hal/ObjectAPI.h"
#include "hal/ObjectProperties.h"

// The older forms by system, device and stream. What the host keeps the book of is answered as in
// the newer form; all else goes to the older entries, which build the address themselves.

using namespace tembra::hal;
using Interface = AudioHardwarePlugInInterface;

namespace {

AudioObjectPropertyAddress DeviceAddress(UInt32 inChannel, Boolean inIsInput,
                                         AudioDevicePropertyID inPropertyID) {
  return {inPropertyID,
          inIsInput ? kAudioObjectPropertyScopeInput : kAudioObjectPropertyScopeOutput, inChannel};
}

AudioObjectPropertyAddress StreamAddress(UInt32 inChannel, AudioDevicePropertyID inPropertyID) {
  return {inPropertyID, kAudioObjectPropertyScopeGlobal, inChannel};
}

bool IsAnsweredByHost(AudioObjectID inObjectID, AudioObjectPropertySelector inSelector) {
  const ObjectRecord* const record = Host::Get().FindObject(inObjectID);
  return record && IsHostProperty(*record, inSelector);
}

OSStatus GetInfo(AudioObjectID inObjectID, const AudioObjectPropertyAddress& inAddress,
                 UInt32* outSize, Boolean* outWritable) {
  return Guarded([&]() -> OSStatus {
    if (!Host::Get().IsUsable()) {
      return kAudioHardwareNotRunningError;
    }
    if (!HasProperty(inObjectID, &inAddress)) {
      return kAudioHardwareUnknownPropertyError;
    }
    OSStatus status = kAudioHardwareNoError;
    if (outSize) {
      status = GetPropertyDataSize(inObjectID, &inAddress, 0, nullptr, outSize);
    }
    if (status == kAudioHardwareNoError && outWritable) {
      status = IsPropertySettable(inObjectID, &inAddress, outWritable);
    }
    return status;
  });
}

OSStatus Add(AudioObjectID inObjectID, const AudioObjectPropertyAddress& inAddress,
             ListenerKind inKind, void* inProc, void* inClientData, OSStatus inUnknown) {
  return Guarded([&] {
    return AddListener(inObjectID, &inAddress, {inKind, inProc, inClientData, nullptr}, inUnknown);
  });
}

OSStatus Remove(AudioObjectID inObjectID, const AudioObjectPropertyAddress& inAddress,
                ListenerKind inKind, void* inProc, OSStatus inUnknown) {
  return Guarded([&] {
    return RemoveListener(inObjectID, &inAddress, {inKind, inProc, nullptr, nullptr}, true,
                          inUnknown);
  });
}

}  // namespace

OSStatus AudioHardwareGetPropertyInfo(AudioHardwarePropertyID inPropertyID, UInt32* outSize,
                                      Boolean* outWritable) {
  return GetInfo(kAudioObjectSystemObject, GlobalAddress(inPropertyID), outSize, outWritable);
}

OSStatus AudioHardwareGetProperty(AudioHardwarePropertyID inPropertyID, UInt32* ioPropertyDataSize,
                                  void* outPropertyData) {
  const AudioObjectPropertyAddress address = GlobalAddress(inPropertyID);
  return AudioObjectGetPropertyData(kAudioObjectSystemObject, &address, 0, nullptr,
                                    ioPropertyDataSize, outPropertyData);
}

OSStatus AudioHardwareSetProperty(AudioHardwarePropertyID inPropertyID, UInt32 inPropertyDataSize,
                                  const void* inPropertyData) {
  const AudioObjectPropertyAddress address = GlobalAddress(inPropertyID);
  return AudioObjectSetPropertyData(kAudioObjectSystemObject, &address, 0, nullptr,
                                    inPropertyDataSize, inPropertyData);
}

OSStatus AudioHardwareAddPropertyListener(AudioHardwarePropertyID inPropertyID,
                                          AudioHardwarePropertyListenerProc inProc,
                                          void* inClientData) {
  return Add(kAudioObjectSystemObject, GlobalAddress(inPropertyID), ListenerKind::kHardwareProc,
             reinterpret_cast<void*>(inProc), inClientData, kAudioHardwareBadObjectError);
}

OSStatus AudioHardwareRemovePropertyListener(AudioHardwarePropertyID inPropertyID,
                                             AudioHardwarePropertyListenerProc inProc) {
  return Remove(kAudioObjectSystemObject, GlobalAddress(inPropertyID), ListenerKind::kHardwareProc,
                reinterpret_cast<void*>(inProc), kAudioHardwareBadObjectError);
}

OSStatus AudioDeviceGetPropertyInfo(AudioDeviceID inDevice, UInt32 inChannel, Boolean isInput,
                                    AudioDevicePropertyID inPropertyID, UInt32* outSize,
                                    Boolean* outWritable) {
  if (IsAnsweredByHost(inDevice, inPropertyID)) {
    return GetInfo(inDevice, DeviceAddress(inChannel, isInput, inPropertyID), outSize, outWritable);
  }
  return ForwardToDevice(inDevice, kFirstVersion, &Interface::DeviceGetPropertyInfo, inChannel,
                         isInput, inPropertyID, outSize, outWritable);
}

OSStatus AudioDeviceGetProperty(AudioDeviceID inDevice, UInt32 inChannel, Boolean isInput,
                                AudioDevicePropertyID inPropertyID, UInt32* ioPropertyDataSize,
                                void* outPropertyData) {
  if (!IsRoom(ioPropertyDataSize, outPropertyData)) {
    return kAudioHardwareIllegalOperationError;
  }
  if (IsAnsweredByHost(inDevice, inPropertyID)) {
    const AudioObjectPropertyAddress address = DeviceAddress(inChannel, isInput, inPropertyID);
    return AudioObjectGetPropertyData(inDevice, &address, 0, nullptr, ioPropertyDataSize,
                                      outPropertyData);
  }
  return ForwardToDevice(inDevice, kFirstVersion, &Interface::DeviceGetProperty, inChannel, isInput,
                         inPropertyID, ioPropertyDataSize, outPropertyData);
}

OSStatus AudioDeviceSetProperty(AudioDeviceID inDevice, const AudioTimeStamp* inWhen,
                                UInt32 inChannel, Boolean isInput,
                                AudioDevicePropertyID inPropertyID, UInt32 inPropertyDataSize,
                                const void* inPropertyData) {
  if (!IsData(inPropertyDataSize, inPropertyData) || IsAnsweredByHost(inDevice, inPropertyID)) {
    return kAudioHardwareIllegalOperationError;
  }
  return ForwardToDevice(inDevice, kFirstVersion, &Interface::DeviceSetProperty, inWhen, inChannel,
                         isInput, inPropertyID, inPropertyDataSize, inPropertyData);
}

OSStatus AudioDeviceAddPropertyListener(AudioDeviceID inDevice, UInt32 inChannel, Boolean isInput,
                                        AudioDevicePropertyID inPropertyID,
                                        AudioDevicePropertyListenerProc inProc,
                                        void* inClientData) {
  return Add(inDevice, DeviceAddress(inChannel, isInput, inPropertyID), ListenerKind::kDeviceProc,
             reinterpret_cast<void*>(inProc), inClientData, kAudioHardwareBadDeviceError);
}

OSStatus AudioDeviceRemovePropertyListener(AudioDeviceID inDevice, UInt32 inChannel,
                                           Boolean isInput, AudioDevicePropertyID inPropertyID,
                                           AudioDevicePropertyListenerProc inProc) {
  return Remove(inDevice, DeviceAddress(inChannel, isInput, inPropertyID),
                ListenerKind::kDeviceProc, reinterpret_cast<void*>(inProc),
                kAudioHardwareBadDeviceError);
}

OSStatus AudioStreamGetPropertyInfo(AudioStreamID inStream, UInt32 inChannel,
                                    AudioDevicePropertyID inPropertyID, UInt32* outSize,
                                    Boolean* outWritable) {
  if (IsAnsweredByHost(inStream, inPropertyID)) {
    return GetInfo(inStream, StreamAddress(inChannel, inPropertyID), outSize, outWritable);
  }
  return ForwardToStream(inStream, &Interface::StreamGetPropertyInfo, inChannel, inPropertyID,
                         outSize, outWritable);
}

OSStatus AudioStreamGetProperty(AudioStreamID inStream, UInt32 inChannel,
                                AudioDevicePropertyID inPropertyID, UInt32* ioPropertyDataSize,
                                void* outPropertyData) {
  if (!IsRoom(ioPropertyDataSize, outPropertyData)) {
    return kAudioHardwareIllegalOperationError;
  }
  if (IsAnsweredByHost(inStream, inPropertyID)) {
    const AudioObjectPropertyAddress address = StreamAddress(inChannel, inPropertyID);
    return AudioObjectGetPropertyData(inStream, &address, 0, nullptr, ioPropertyDataSize,
                                      outPropertyData);
  }
  return ForwardToStream(inStream, &Interface::StreamGetProperty, inChannel, inPropertyID,
                         ioPropertyDataSize, outPropertyData);
}

OSStatus AudioStreamSetProperty(AudioStreamID inStream, const AudioTimeStamp* inWhen,
                                UInt32 inChannel, AudioDevicePropertyID inPropertyID,
                                UInt32 inPropertyDataSize, const void* inPropertyData) {
  if (!IsData(inPropertyDataSize, inPropertyData) || IsAnsweredByHost(inStream, inPropertyID)) {
    return kAudioHardwareIllegalOperationError;
  }
  return ForwardToStream(inStream, &Interface::StreamSetProperty, inWhen, inChannel, inPropertyID,
                         inPropertyDataSize, inPropertyData);
}

OSStatus AudioStreamAddPropertyListener(AudioStreamID inStream, UInt32 inChannel,
                                        AudioDevicePropertyID inPropertyID,
                                        AudioStreamPropertyListenerProc inProc,
                                        void* inClientData) {
  return Add(inStream, StreamAddress(inChannel, inPropertyID), ListenerKind::kStreamProc,
             reinterpret_cast<void*>(inProc), inClientData, kAudioHardwareBadStreamError);
}

OSStatus AudioStreamRemovePropertyListener(AudioStreamID inStream, UInt32 inChannel,
                                           AudioDevicePropertyID inPropertyID,
                                           AudioStreamPropertyListenerProc inProc) {
  return Remove(inStream, StreamAddress(inChannel, inPropertyID), ListenerKind::kStreamProc,
                reinterpret_cast<void*>(inProc), kAudioHardwareBadStreamError);
}
