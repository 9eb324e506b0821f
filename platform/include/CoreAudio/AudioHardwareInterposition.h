#pragma once

// Our own extension, on machines whose code is not patched: a way to see the calls of
// AudioObjectGetPropertyData and AudioObjectSetPropertyData of this process before the HAL does.

#include <CoreAudio/AudioHardware.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

typedef OSStatus (*AudioObjectGetPropertyDataInterposer)(
    AudioObjectID inObjectID, const AudioObjectPropertyAddress* inAddress,
    UInt32 inQualifierDataSize, const void* inQualifierData, UInt32* ioDataSize, void* outData);
typedef OSStatus (*AudioObjectSetPropertyDataInterposer)(
    AudioObjectID inObjectID, const AudioObjectPropertyAddress* inAddress,
    UInt32 inQualifierDataSize, const void* inQualifierData, UInt32 inDataSize, const void* inData);

// From now on every call in this process goes to the interposer, also one from within the HAL.
// outNative gets the function as it was before the first call can reach the interposer; that is
// what the interposer calls to pass a call on. Any thread. There is one interposer for the life of
// the process: a second one, and a null pointer, is kAudioHardwareIllegalOperationError.
OSStatus AudioObjectInterposeGetPropertyData(AudioObjectGetPropertyDataInterposer inInterposer,
                                             AudioObjectGetPropertyDataInterposer* outNative);
OSStatus AudioObjectInterposeSetPropertyData(AudioObjectSetPropertyDataInterposer inInterposer,
                                             AudioObjectSetPropertyDataInterposer* outNative);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
