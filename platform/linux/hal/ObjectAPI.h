#pragma once

#include <CoreAudio/AudioHardwarePlugIn.h>

#include <exception>

#include "hal/Host.h"

namespace tembra::hal {

// The one way from a client's call to the object that it concerns: the system object answers
// itself, the host answers what it keeps the book of, all else goes to the owner's entry.

bool HasProperty(AudioObjectID inObjectID, const AudioObjectPropertyAddress* inAddress);
OSStatus IsPropertySettable(AudioObjectID inObjectID, const AudioObjectPropertyAddress* inAddress,
                            Boolean* outIsSettable);
OSStatus GetPropertyDataSize(AudioObjectID inObjectID, const AudioObjectPropertyAddress* inAddress,
                             UInt32 inQualifierSize, const void* inQualifier, UInt32* outSize);

// A plug-in copies what it is given by its size, so null stands for no bytes and nothing else.
inline bool IsData(UInt32 inSize, const void* inData) {
  return inData || inSize == 0;
}
inline bool IsRoom(const UInt32* inSize, const void* outData) {
  return inSize && IsData(*inSize, outData);
}

// Registers a listener for an object of that must exist; inUnknown is the status if it does not.
OSStatus AddListener(AudioObjectID inObjectID, const AudioObjectPropertyAddress* inAddress,
                     const ListenerTarget& inTarget, OSStatus inUnknown);
// Removing what is not registered is no error, unless there is no such object either.
OSStatus RemoveListener(AudioObjectID inObjectID, const AudioObjectPropertyAddress* inAddress,
                        const ListenerTarget& inTarget, bool inAnyClientData, OSStatus inUnknown);

// Runs a call so that no exception leaves the library; running out of memory is 'what'.
template <typename Body>
OSStatus Guarded(const Body& inBody) noexcept {
  try {
    return inBody();
  } catch (const std::exception&) {
    return kAudioHardwareUnspecifiedError;
  }
}

// Forwards to an entry of the owner of an object, whose ID is the entry's first argument.
template <typename Entry, typename... Args>
OSStatus Forward(AudioObjectID inObjectID, OSStatus inUnknown, int inVersion,
                 Entry AudioHardwarePlugInInterface::*inEntry, Args... inArgs) {
  return Guarded([&] {
    const ObjectCall call(inObjectID, inUnknown);
    return call ? call.Owner().Call(inVersion, inEntry, inObjectID, inArgs...) : call.Status();
  });
}

template <typename Entry, typename... Args>
OSStatus ForwardToDevice(AudioObjectID inDevice, int inVersion,
                         Entry AudioHardwarePlugInInterface::*inEntry, Args... inArgs) {
  return Forward(inDevice, kAudioHardwareBadDeviceError, inVersion, inEntry, inArgs...);
}

template <typename Entry, typename... Args>
OSStatus ForwardToStream(AudioObjectID inStream, Entry AudioHardwarePlugInInterface::*inEntry,
                         Args... inArgs) {
  return Forward(inStream, kAudioHardwareBadStreamError, kFirstVersion, inEntry, inArgs...);
}

}  // namespace tembra::hal

extern "C" {
// The bodies behind the two entries in PatchableEntries.cpp.
OSStatus TembraHALGetPropertyData(AudioObjectID inObjectID,
                                  const AudioObjectPropertyAddress* inAddress,
                                  UInt32 inQualifierDataSize, const void* inQualifierData,
                                  UInt32* ioDataSize, void* outData);
OSStatus TembraHALSetPropertyData(AudioObjectID inObjectID,
                                  const AudioObjectPropertyAddress* inAddress,
                                  UInt32 inQualifierDataSize, const void* inQualifierData,
                                  UInt32 inDataSize, const void* inData);
}
