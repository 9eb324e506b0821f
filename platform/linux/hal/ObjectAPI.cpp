#include "hal/ObjectAPI.h"

#include "hal/ObjectProperties.h"
#include "hal/SystemObject.h"

namespace tembra::hal {

namespace {

using Interface = AudioHardwarePlugInInterface;

bool IsUsable() {
  return Host::Get().IsUsable();
}

}  // namespace

bool HasProperty(AudioObjectID inObjectID, const AudioObjectPropertyAddress* inAddress) {
  if (!inAddress || !IsUsable()) {
    return false;
  }
  if (inObjectID == kAudioObjectSystemObject) {
    return system_object::HasProperty(*inAddress);
  }
  const ObjectCall call(inObjectID, kAudioHardwareBadObjectError);
  return call && (IsHostProperty(call.Record(), inAddress->mSelector) ||
                  call.Owner().HasProperty(inObjectID, inAddress));
}

OSStatus IsPropertySettable(AudioObjectID inObjectID, const AudioObjectPropertyAddress* inAddress,
                            Boolean* outIsSettable) {
  if (!inAddress || !outIsSettable) {
    return kAudioHardwareIllegalOperationError;
  }
  if (!IsUsable()) {
    return kAudioHardwareNotRunningError;
  }
  if (inObjectID == kAudioObjectSystemObject) {
    return system_object::IsPropertySettable(*inAddress, outIsSettable);
  }
  const ObjectCall call(inObjectID, kAudioHardwareBadObjectError);
  if (!call) {
    return call.Status();
  }
  if (IsHostProperty(call.Record(), inAddress->mSelector)) {
    *outIsSettable = false;
    return kAudioHardwareNoError;
  }
  return call.Owner().Call(kObjectVersion, &Interface::ObjectIsPropertySettable, inObjectID,
                           inAddress, outIsSettable);
}

OSStatus GetPropertyDataSize(AudioObjectID inObjectID, const AudioObjectPropertyAddress* inAddress,
                             UInt32 inQualifierSize, const void* inQualifier, UInt32* outSize) {
  if (!inAddress || !outSize) {
    return kAudioHardwareIllegalOperationError;
  }
  if (!IsUsable()) {
    return kAudioHardwareNotRunningError;
  }
  if (inObjectID == kAudioObjectSystemObject) {
    return system_object::GetPropertyDataSize(*inAddress, inQualifierSize, inQualifier, outSize);
  }
  const ObjectCall call(inObjectID, kAudioHardwareBadObjectError);
  if (!call) {
    return call.Status();
  }
  if (IsHostProperty(call.Record(), inAddress->mSelector)) {
    return GetHostPropertySize(inObjectID, call.Record(), *inAddress, inQualifierSize, inQualifier,
                               *outSize);
  }
  return call.Owner().Call(kObjectVersion, &Interface::ObjectGetPropertyDataSize, inObjectID,
                           inAddress, inQualifierSize, inQualifier, outSize);
}

OSStatus AddListener(AudioObjectID inObjectID, const AudioObjectPropertyAddress* inAddress,
                     const ListenerTarget& inTarget, OSStatus inUnknown) {
  if (!inAddress || !inTarget.mFunction) {
    return kAudioHardwareIllegalOperationError;
  }
  Host& host = Host::Get();
  if (!host.IsUsable()) {
    return kAudioHardwareNotRunningError;
  }
  if (inObjectID == kAudioObjectSystemObject) {
    host.EnsureStarted();
  } else if (const ObjectCall call(inObjectID, inUnknown); !call) {
    return call.Status();
  }
  return host.Listeners().Add(inObjectID, *inAddress, inTarget);
}

OSStatus RemoveListener(AudioObjectID inObjectID, const AudioObjectPropertyAddress* inAddress,
                        const ListenerTarget& inTarget, bool inAnyClientData, OSStatus inUnknown) {
  if (!inAddress || !inTarget.mFunction) {
    return kAudioHardwareIllegalOperationError;
  }
  Host& host = Host::Get();
  if (!host.IsUsable()) {
    return kAudioHardwareNotRunningError;
  }
  if (host.Listeners().Remove(inObjectID, *inAddress, inTarget, inAnyClientData) ||
      inObjectID == kAudioObjectSystemObject) {
    return kAudioHardwareNoError;
  }
  return ObjectCall(inObjectID, inUnknown).Status();
}

}  // namespace tembra::hal

using namespace tembra::hal;

OSStatus TembraHALGetPropertyData(AudioObjectID inObjectID,
                                  const AudioObjectPropertyAddress* inAddress,
                                  UInt32 inQualifierDataSize, const void* inQualifierData,
                                  UInt32* ioDataSize, void* outData) {
  return Guarded([&]() -> OSStatus {
    if (!inAddress || !IsRoom(ioDataSize, outData)) {
      return kAudioHardwareIllegalOperationError;
    }
    if (inObjectID == kAudioObjectSystemObject) {
      return IsUsable() ? system_object::GetPropertyData(*inAddress, inQualifierDataSize,
                                                         inQualifierData, ioDataSize, outData)
                        : OSStatus{kAudioHardwareNotRunningError};
    }
    const ObjectCall call(inObjectID, kAudioHardwareBadObjectError);
    if (!call) {
      return call.Status();
    }
    if (IsHostProperty(call.Record(), inAddress->mSelector)) {
      return outData ? GetHostProperty(inObjectID, call.Record(), *inAddress, inQualifierDataSize,
                                       inQualifierData, *ioDataSize, outData)
                     : OSStatus{kAudioHardwareIllegalOperationError};
    }
    return call.Owner().Call(kObjectVersion, &Interface::ObjectGetPropertyData, inObjectID,
                             inAddress, inQualifierDataSize, inQualifierData, ioDataSize, outData);
  });
}

OSStatus TembraHALSetPropertyData(AudioObjectID inObjectID,
                                  const AudioObjectPropertyAddress* inAddress,
                                  UInt32 inQualifierDataSize, const void* inQualifierData,
                                  UInt32 inDataSize, const void* inData) {
  return Guarded([&]() -> OSStatus {
    if (!inAddress || !IsData(inDataSize, inData)) {
      return kAudioHardwareIllegalOperationError;
    }
    if (inObjectID == kAudioObjectSystemObject) {
      return IsUsable() ? system_object::SetPropertyData(*inAddress, inDataSize, inData)
                        : OSStatus{kAudioHardwareNotRunningError};
    }
    const ObjectCall call(inObjectID, kAudioHardwareBadObjectError);
    if (!call) {
      return call.Status();
    }
    if (IsHostProperty(call.Record(), inAddress->mSelector)) {
      return kAudioHardwareIllegalOperationError;
    }
    return call.Owner().Call(kObjectVersion, &Interface::ObjectSetPropertyData, inObjectID,
                             inAddress, inQualifierDataSize, inQualifierData, inDataSize, inData);
  });
}

void AudioObjectShow(AudioObjectID inObjectID) {
  Guarded([&]() -> OSStatus {
    if (inObjectID == kAudioObjectSystemObject) {
      system_object::Show();
    } else if (const ObjectCall call(inObjectID, kAudioHardwareBadObjectError); call) {
      call.Owner().Show(inObjectID);
    }
    return kAudioHardwareNoError;
  });
}

Boolean AudioObjectHasProperty(AudioObjectID inObjectID,
                               const AudioObjectPropertyAddress* inAddress) {
  bool has = false;
  Guarded([&]() -> OSStatus {
    has = HasProperty(inObjectID, inAddress);
    return kAudioHardwareNoError;
  });
  return has;
}

OSStatus AudioObjectIsPropertySettable(AudioObjectID inObjectID,
                                       const AudioObjectPropertyAddress* inAddress,
                                       Boolean* outIsSettable) {
  return Guarded([&] { return IsPropertySettable(inObjectID, inAddress, outIsSettable); });
}

OSStatus AudioObjectGetPropertyDataSize(AudioObjectID inObjectID,
                                        const AudioObjectPropertyAddress* inAddress,
                                        UInt32 inQualifierDataSize, const void* inQualifierData,
                                        UInt32* outDataSize) {
  return Guarded([&] {
    return GetPropertyDataSize(inObjectID, inAddress, inQualifierDataSize, inQualifierData,
                               outDataSize);
  });
}

OSStatus AudioObjectAddPropertyListener(AudioObjectID inObjectID,
                                        const AudioObjectPropertyAddress* inAddress,
                                        AudioObjectPropertyListenerProc inListener,
                                        void* inClientData) {
  return Guarded([&] {
    return AddListener(
        inObjectID, inAddress,
        {ListenerKind::kObjectProc, reinterpret_cast<void*>(inListener), inClientData, nullptr},
        kAudioHardwareBadObjectError);
  });
}

OSStatus AudioObjectRemovePropertyListener(AudioObjectID inObjectID,
                                           const AudioObjectPropertyAddress* inAddress,
                                           AudioObjectPropertyListenerProc inListener,
                                           void* inClientData) {
  return Guarded([&] {
    return RemoveListener(
        inObjectID, inAddress,
        {ListenerKind::kObjectProc, reinterpret_cast<void*>(inListener), inClientData, nullptr},
        false, kAudioHardwareBadObjectError);
  });
}

OSStatus AudioObjectAddPropertyListenerBlock(AudioObjectID inObjectID,
                                             const AudioObjectPropertyAddress* inAddress,
                                             dispatch_queue_t inDispatchQueue,
                                             AudioObjectPropertyListenerBlock inListener) {
  return Guarded([&] {
    return AddListener(
        inObjectID, inAddress,
        {ListenerKind::kObjectBlock, reinterpret_cast<void*>(inListener), nullptr, inDispatchQueue},
        kAudioHardwareBadObjectError);
  });
}

OSStatus AudioObjectRemovePropertyListenerBlock(AudioObjectID inObjectID,
                                                const AudioObjectPropertyAddress* inAddress,
                                                dispatch_queue_t inDispatchQueue,
                                                AudioObjectPropertyListenerBlock inListener) {
  return Guarded([&] {
    return RemoveListener(
        inObjectID, inAddress,
        {ListenerKind::kObjectBlock, reinterpret_cast<void*>(inListener), nullptr, inDispatchQueue},
        false, kAudioHardwareBadObjectError);
  });
}
