#include "hal/SystemObject.h"

#include <CoreFoundation/CoreFoundation.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "hal/Host.h"
#include "hal/ObjectProperties.h"

namespace tembra::hal::system_object {

namespace {

// What this process says of itself; nothing here changes the sound.
std::atomic<UInt32> sProcessIsAudible{1};
std::atomic<UInt32> sMixStereoToMono{0};

// A read of a property with its qualifier.
struct Request {
  AudioObjectPropertySelector mSelector;
  UInt32 mQualifierSize;
  const void* mQualifier;
};

// One property. A size of 0 means a list, whose size is asked for. No setter: read only.
struct Property {
  AudioObjectPropertySelector mSelector;
  bool mNeedsPlugIns;
  UInt32 mSize;
  OSStatus (*mGet)(const Request& inRequest, UInt32& ioSize, void* outData);
  OSStatus (*mSet)(const void* inData);
};

std::vector<AudioObjectID> ListOf(const Request& inRequest) {
  switch (inRequest.mSelector) {
    case kAudioHardwarePropertyDevices:
      return Host::Get().GetDevices();
    case kAudioHardwarePropertyPlugInList: {
      const AudioClassID classID = kAudioPlugInClassID;
      return GetOwnedObjects(kAudioObjectSystemObject, sizeof classID, &classID);
    }
    default:
      return GetOwnedObjects(kAudioObjectSystemObject, inRequest.mQualifierSize,
                             inRequest.mQualifier);
  }
}

OSStatus GetList(const Request& inRequest, UInt32& ioSize, void* outData) {
  return AnswerList(ListOf(inRequest), ioSize, outData);
}

OSStatus GetClass(const Request& inRequest, UInt32& ioSize, void* outData) {
  return AnswerNumber(inRequest.mSelector == kAudioObjectPropertyClass
                          ? AudioClassID{kAudioSystemObjectClassID}
                          : AudioClassID{kAudioObjectClassID},
                      ioSize, outData);
}

OSStatus GetOwner(const Request&, UInt32& ioSize, void* outData) {
  return AnswerNumber(kAudioObjectUnknown, ioSize, outData);
}

OSStatus GetName(const Request&, UInt32& ioSize, void* outData) {
  return AnswerString(CFSTR("Audio System"), ioSize, outData);
}

template <DefaultKind kKind>
OSStatus GetDefault(const Request&, UInt32& ioSize, void* outData) {
  return AnswerNumber(Host::Get().GetDefaultDevice(kKind), ioSize, outData);
}

template <DefaultKind kKind>
OSStatus SetDefault(const void* inData) {
  AudioObjectID device = kAudioObjectUnknown;
  memcpy(&device, inData, sizeof device);
  return Host::Get().SetDefaultDevice(kKind, device);
}

AudioObjectID FindPlugInByBundleID(CFStringRef inBundleID) {
  char bundleID[256];
  if (!CFStringGetCString(inBundleID, bundleID, sizeof bundleID, kCFStringEncodingUTF8)) {
    return kAudioObjectUnknown;
  }
  for (const AudioObjectID id : ListOf({kAudioHardwarePropertyPlugInList, 0, nullptr})) {
    const ObjectRecord* const record = Host::Get().FindObject(id);
    if (record && record->mPlugIn->GetBundleID() == bundleID) {
      return id;
    }
  }
  return kAudioObjectUnknown;
}

AudioObjectID Translate(AudioObjectPropertySelector inSelector, CFStringRef inText) {
  return inSelector == kAudioHardwarePropertyTranslateUIDToDevice ||
                 inSelector == kAudioHardwarePropertyDeviceForUID
             ? Host::Get().FindDeviceByUID(inText)
             : FindPlugInByBundleID(inText);
}

// The text stands in the qualifier.
OSStatus GetTranslation(const Request& inRequest, UInt32& ioSize, void* outData) {
  CFStringRef text = nullptr;
  if (inRequest.mQualifierSize != sizeof text || !inRequest.mQualifier) {
    return kAudioHardwareBadPropertySizeError;
  }
  memcpy(&text, inRequest.mQualifier, sizeof text);
  if (!text) {
    return kAudioHardwareIllegalOperationError;
  }
  return AnswerNumber(Translate(inRequest.mSelector, text), ioSize, outData);
}

// The text and the place for the ID stand in the data.
OSStatus GetTranslationInPlace(const Request& inRequest, UInt32& ioSize, void* outData) {
  AudioValueTranslation translation;
  if (ioSize < sizeof translation) {
    return kAudioHardwareBadPropertySizeError;
  }
  memcpy(&translation, outData, sizeof translation);
  CFStringRef text = nullptr;
  if (!translation.mInputData || translation.mInputDataSize != sizeof text ||
      !translation.mOutputData || translation.mOutputDataSize < sizeof(AudioObjectID)) {
    return kAudioHardwareBadPropertySizeError;
  }
  memcpy(&text, translation.mInputData, sizeof text);
  if (!text) {
    return kAudioHardwareIllegalOperationError;
  }
  ioSize = sizeof translation;
  return AnswerNumber(Translate(inRequest.mSelector, text), translation.mOutputDataSize,
                      translation.mOutputData);
}

OSStatus GetIsMaster(const Request&, UInt32& ioSize, void* outData) {
  return AnswerNumber(Host::Get().IsMaster(), ioSize, outData);
}

OSStatus GetIsInitingOrExiting(const Request&, UInt32& ioSize, void* outData) {
  return AnswerNumber(Host::Get().IsInitingOrExiting(), ioSize, outData);
}

// There is no session to leave here.
OSStatus GetSessionIsActive(const Request&, UInt32& ioSize, void* outData) {
  return AnswerNumber(1, ioSize, outData);
}

OSStatus SetFlag(std::atomic<UInt32>& ioFlag, AudioObjectPropertySelector inSelector,
                 const void* inData) {
  UInt32 value = 0;
  memcpy(&value, inData, sizeof value);
  value = value != 0;
  if (ioFlag.exchange(value) != value) {
    Host::Get().PostChange(kAudioObjectSystemObject, inSelector);
  }
  return kAudioHardwareNoError;
}

OSStatus GetIsAudible(const Request&, UInt32& ioSize, void* outData) {
  return AnswerNumber(sProcessIsAudible, ioSize, outData);
}
OSStatus SetIsAudible(const void* inData) {
  return SetFlag(sProcessIsAudible, kAudioHardwarePropertyProcessIsAudible, inData);
}

OSStatus GetMixStereoToMono(const Request&, UInt32& ioSize, void* outData) {
  return AnswerNumber(sMixStereoToMono, ioSize, outData);
}
OSStatus SetMixStereoToMono(const void* inData) {
  return SetFlag(sMixStereoToMono, kAudioHardwarePropertyMixStereoToMono, inData);
}

OSStatus GetRunLoop(const Request&, UInt32& ioSize, void* outData) {
  const CFRunLoopRef none = nullptr;
  return AnswerValue(&none, sizeof none, ioSize, outData);
}
// Clients say null to have notifications off their own run loop, and so they are. A run loop to
// deliver on is not offered.
OSStatus SetRunLoop(const void* inData) {
  CFRunLoopRef runLoop = nullptr;
  memcpy(&runLoop, inData, sizeof runLoop);
  return runLoop ? kAudioHardwareUnsupportedOperationError : kAudioHardwareNoError;
}

constexpr UInt32 kNumber = sizeof(UInt32);
constexpr UInt32 kPointer = sizeof(void*);

constexpr Property kProperties[] = {
    {kAudioObjectPropertyBaseClass, false, kNumber, GetClass, nullptr},
    {kAudioObjectPropertyClass, false, kNumber, GetClass, nullptr},
    {kAudioObjectPropertyOwner, false, kNumber, GetOwner, nullptr},
    {kAudioObjectPropertyName, false, kPointer, GetName, nullptr},
    {kAudioObjectPropertyOwnedObjects, true, 0, GetList, nullptr},
    {kAudioHardwarePropertyDevices, true, 0, GetList, nullptr},
    {kAudioHardwarePropertyPlugInList, true, 0, GetList, nullptr},
    {kAudioHardwarePropertyDefaultInputDevice, true, kNumber, GetDefault<DefaultKind::kInput>,
     SetDefault<DefaultKind::kInput>},
    {kAudioHardwarePropertyDefaultOutputDevice, true, kNumber, GetDefault<DefaultKind::kOutput>,
     SetDefault<DefaultKind::kOutput>},
    {kAudioHardwarePropertyDefaultSystemOutputDevice, true, kNumber,
     GetDefault<DefaultKind::kSystemOutput>, SetDefault<DefaultKind::kSystemOutput>},
    {kAudioHardwarePropertyTranslateUIDToDevice, true, kNumber, GetTranslation, nullptr},
    {kAudioHardwarePropertyTranslateBundleIDToPlugIn, true, kNumber, GetTranslation, nullptr},
    {kAudioHardwarePropertyDeviceForUID, true, sizeof(AudioValueTranslation), GetTranslationInPlace,
     nullptr},
    {kAudioHardwarePropertyPlugInForBundleID, true, sizeof(AudioValueTranslation),
     GetTranslationInPlace, nullptr},
    {kAudioHardwarePropertyProcessIsMaster, false, kNumber, GetIsMaster, nullptr},
    {kAudioHardwarePropertyIsInitingOrExiting, false, kNumber, GetIsInitingOrExiting, nullptr},
    {kAudioHardwarePropertyUserSessionIsActiveOrHeadless, false, kNumber, GetSessionIsActive,
     nullptr},
    {kAudioHardwarePropertyProcessIsAudible, false, kNumber, GetIsAudible, SetIsAudible},
    {kAudioHardwarePropertyMixStereoToMono, false, kNumber, GetMixStereoToMono, SetMixStereoToMono},
    {kAudioHardwarePropertyRunLoop, false, kPointer, GetRunLoop, SetRunLoop},
};

const Property* Find(AudioObjectPropertySelector inSelector) {
  const auto* const found =
      std::find_if(std::begin(kProperties), std::end(kProperties),
                   [&](const Property& property) { return property.mSelector == inSelector; });
  return found == std::end(kProperties) ? nullptr : found;
}

// Any use of the HAL loads the plug-ins; what tells of them also waits for it. False in a process
// that is past it.
bool Prepare(const Property& inProperty) {
  Host& host = Host::Get();
  if (inProperty.mNeedsPlugIns) {
    host.EnsureLoaded();
  } else {
    host.EnsureStarted();
  }
  return host.IsUsable();
}

}  // namespace

bool HasProperty(const AudioObjectPropertyAddress& inAddress) {
  return Find(inAddress.mSelector) != nullptr;
}

OSStatus IsPropertySettable(const AudioObjectPropertyAddress& inAddress, Boolean* outIsSettable) {
  const Property* const property = Find(inAddress.mSelector);
  if (!property) {
    return kAudioHardwareUnknownPropertyError;
  }
  *outIsSettable = property->mSet != nullptr;
  return kAudioHardwareNoError;
}

OSStatus GetPropertyDataSize(const AudioObjectPropertyAddress& inAddress, UInt32 inQualifierSize,
                             const void* inQualifier, UInt32* outSize) {
  const Property* const property = Find(inAddress.mSelector);
  if (!property) {
    return kAudioHardwareUnknownPropertyError;
  }
  if (property->mSize != 0) {
    *outSize = property->mSize;
    return kAudioHardwareNoError;
  }
  if (!Prepare(*property)) {
    return kAudioHardwareNotRunningError;
  }
  const Request request = {inAddress.mSelector, inQualifierSize, inQualifier};
  *outSize = static_cast<UInt32>(ListOf(request).size() * sizeof(AudioObjectID));
  return kAudioHardwareNoError;
}

OSStatus GetPropertyData(const AudioObjectPropertyAddress& inAddress, UInt32 inQualifierSize,
                         const void* inQualifier, UInt32* ioSize, void* outData) {
  const Property* const property = Find(inAddress.mSelector);
  if (!property) {
    return kAudioHardwareUnknownPropertyError;
  }
  if (!ioSize || !outData) {
    return kAudioHardwareIllegalOperationError;
  }
  if (!Prepare(*property)) {
    return kAudioHardwareNotRunningError;
  }
  return property->mGet({inAddress.mSelector, inQualifierSize, inQualifier}, *ioSize, outData);
}

OSStatus SetPropertyData(const AudioObjectPropertyAddress& inAddress, UInt32 inSize,
                         const void* inData) {
  const Property* const property = Find(inAddress.mSelector);
  if (!property) {
    return kAudioHardwareUnknownPropertyError;
  }
  if (!property->mSet || !inData) {
    return kAudioHardwareIllegalOperationError;
  }
  if (inSize != property->mSize) {
    return kAudioHardwareBadPropertySizeError;
  }
  if (!Prepare(*property)) {
    return kAudioHardwareNotRunningError;
  }
  return property->mSet(inData);
}

void Show() {
  printf("AudioObjectID:\t\t0x%X\n\tAudioClassID:\t'%s'\n\tName:\t\t\t%s\n",
         static_cast<unsigned>(kAudioObjectSystemObject), "asys", "Audio System");
}

}  // namespace tembra::hal::system_object
