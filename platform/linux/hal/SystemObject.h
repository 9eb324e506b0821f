#pragma once

#include <CoreAudio/AudioHardware.h>

namespace tembra::hal::system_object {

// The properties of kAudioObjectSystemObject. Scope and element are not looked at. Where devices
// matter, the plug-ins are loaded first.
//
// Any thread. 'who?' for what it does not have, '!siz' for too little room, 'nope' for a null
// pointer or a write to what cannot be written.

bool HasProperty(const AudioObjectPropertyAddress& inAddress);
OSStatus IsPropertySettable(const AudioObjectPropertyAddress& inAddress, Boolean* outIsSettable);
OSStatus GetPropertyDataSize(const AudioObjectPropertyAddress& inAddress, UInt32 inQualifierSize,
                             const void* inQualifier, UInt32* outSize);
OSStatus GetPropertyData(const AudioObjectPropertyAddress& inAddress, UInt32 inQualifierSize,
                         const void* inQualifier, UInt32* ioSize, void* outData);
OSStatus SetPropertyData(const AudioObjectPropertyAddress& inAddress, UInt32 inSize,
                         const void* inData);
void Show();

}  // namespace tembra::hal::system_object
