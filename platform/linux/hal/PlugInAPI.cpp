#include "hal/ObjectAPI.h"

// What plug-ins call, from any thread, also from inside their loading and the end of it.

using namespace tembra::hal;

OSStatus AudioObjectCreate(AudioHardwarePlugInRef inOwningPlugIn, AudioObjectID inOwningObjectID,
                           AudioClassID inClassID, AudioObjectID* outAudioObjectID) {
  return Guarded([&]() -> OSStatus {
    Host& host = Host::Get();
    if (!host.IsUsable()) {
      return kAudioHardwareNotRunningError;
    }
    PlugIn* const plugIn = host.FindPlugIn(inOwningPlugIn);
    if (!plugIn || !outAudioObjectID) {
      return kAudioHardwareIllegalOperationError;
    }
    if (inOwningObjectID != kAudioObjectSystemObject && !host.FindObject(inOwningObjectID)) {
      return kAudioHardwareBadObjectError;
    }
    const AudioObjectID id = host.Objects().Create(plugIn, inOwningObjectID, inClassID);
    if (id == kAudioObjectUnknown) {
      return kAudioHardwareUnspecifiedError;
    }
    *outAudioObjectID = id;
    return kAudioHardwareNoError;
  });
}

OSStatus AudioObjectPropertiesChanged(AudioHardwarePlugInRef inOwningPlugIn,
                                      AudioObjectID inObjectID, UInt32 inNumberAddresses,
                                      const AudioObjectPropertyAddress* inAddresses) {
  return Guarded([&]() -> OSStatus {
    Host& host = Host::Get();
    if (!host.IsUsable()) {
      return kAudioHardwareNotRunningError;
    }
    if (inNumberAddresses > 0 && !inAddresses) {
      return kAudioHardwareIllegalOperationError;
    }
    // The I/O thread tells of its changes too: no lock for the lookup.
    const ObjectRecord* const record = host.FindObject(inObjectID);
    if (!record || record->mPlugIn->GetInterface() != inOwningPlugIn) {
      return kAudioHardwareBadObjectError;
    }
    if (inNumberAddresses > 0) {
      host.Listeners().PostChanges(inObjectID, {inAddresses, inNumberAddresses});
    }
    return kAudioHardwareNoError;
  });
}

OSStatus AudioObjectsPublishedAndDied(AudioHardwarePlugInRef inOwningPlugIn,
                                      AudioObjectID inOwningObjectID,
                                      UInt32 inNumberPublishedAudioObjects,
                                      const AudioObjectID* inPublishedAudioObjects,
                                      UInt32 inNumberDeadAudioObjects,
                                      const AudioObjectID* inDeadAudioObjects) {
  return Guarded([&]() -> OSStatus {
    Host& host = Host::Get();
    if (!host.IsUsable()) {
      return kAudioHardwareNotRunningError;
    }
    PlugIn* const plugIn = host.FindPlugIn(inOwningPlugIn);
    if (!plugIn || (inNumberPublishedAudioObjects > 0 && !inPublishedAudioObjects) ||
        (inNumberDeadAudioObjects > 0 && !inDeadAudioObjects)) {
      return kAudioHardwareIllegalOperationError;
    }
    return host.PublishAndBury(plugIn, inOwningObjectID,
                               {inPublishedAudioObjects, inNumberPublishedAudioObjects},
                               {inDeadAudioObjects, inNumberDeadAudioObjects});
  });
}

OSStatus AudioHardwareUnload(void) {
  return Guarded([&]() -> OSStatus {
    Host& host = Host::Get();
    return host.IsUsable() ? host.Unload() : OSStatus{kAudioHardwareNotRunningError};
  });
}
