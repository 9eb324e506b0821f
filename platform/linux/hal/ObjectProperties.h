#pragma once

#include <CoreAudio/AudioHardware.h>

#include <span>

#include "hal/ObjectTable.h"

namespace tembra::hal {

// The class from which a class derives; of kAudioObjectClassID and the unknown,
// kAudioObjectClassID.
AudioClassID BaseClassOf(AudioClassID inClassID);
bool IsKindOf(AudioClassID inClassID, AudioClassID inBaseID);

// What the host answers for any object that it knows, since it keeps the book: base class, class,
// owner, owned objects, of a device its controls, and of a plug-in its bundle's identifier. All are
// read only.
bool IsHostProperty(const ObjectRecord& inRecord, AudioObjectPropertySelector inSelector);
OSStatus GetHostPropertySize(AudioObjectID inObjectID, const ObjectRecord& inRecord,
                             const AudioObjectPropertyAddress& inAddress, UInt32 inQualifierSize,
                             const void* inQualifier, UInt32& outSize);
OSStatus GetHostProperty(AudioObjectID inObjectID, const ObjectRecord& inRecord,
                         const AudioObjectPropertyAddress& inAddress, UInt32 inQualifierSize,
                         const void* inQualifier, UInt32& ioSize, void* outData);

// The published objects of an owner; with a qualifier, those of the classes that it lists.
std::vector<AudioObjectID> GetOwnedObjects(AudioObjectID inOwnerID, UInt32 inQualifierSize,
                                           const void* inQualifier);

// Values of one size: '!siz' if there is not room enough.
OSStatus AnswerValue(const void* inValue, UInt32 inSize, UInt32& ioSize, void* outData);
inline OSStatus AnswerNumber(UInt32 inNumber, UInt32& ioSize, void* outData) {
  return AnswerValue(&inNumber, sizeof inNumber, ioSize, outData);
}
// Retains the string for the caller.
OSStatus AnswerString(CFStringRef inString, UInt32& ioSize, void* outData);
// As many as there is room for.
OSStatus AnswerList(std::span<const AudioObjectID> inIDs, UInt32& ioSize, void* outData);

}  // namespace tembra::hal
