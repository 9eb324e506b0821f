#include "hal/ObjectProperties.h"

#include <algorithm>
#include <cstring>

#include "hal/Host.h"

namespace tembra::hal {

AudioClassID BaseClassOf(AudioClassID inClassID) {
  switch (inClassID) {
    case kAudioAggregateDeviceClassID:
    case kAudioSubDeviceClassID:
    case kAudioEndPointDeviceClassID:
      return kAudioDeviceClassID;
    case kAudioTransportManagerClassID:
      return kAudioPlugInClassID;
    case kAudioLevelControlClassID:
    case kAudioBooleanControlClassID:
    case kAudioSelectorControlClassID:
    case kAudioStereoPanControlClassID:
    case kAudioSliderControlClassID:
      return kAudioControlClassID;
    case kAudioVolumeControlClassID:
    case kAudioLFEVolumeControlClassID:
    case kAudioBootChimeVolumeControlClassID:
      return kAudioLevelControlClassID;
    case kAudioMuteControlClassID:
    case kAudioSoloControlClassID:
    case kAudioJackControlClassID:
    case kAudioLFEMuteControlClassID:
    case kAudioISubOwnerControlClassID:
    case kAudioPhantomPowerControlClassID:
    case kAudioPhaseInvertControlClassID:
    case kAudioClipLightControlClassID:
    case kAudioTalkbackControlClassID:
    case kAudioListenbackControlClassID:
      return kAudioBooleanControlClassID;
    case kAudioDataSourceControlClassID:
    case kAudioDataDestinationControlClassID:
    case kAudioClockSourceControlClassID:
    case kAudioLineLevelControlClassID:
    case kAudioHighPassFilterControlClassID:
      return kAudioSelectorControlClassID;
    default:
      return kAudioObjectClassID;
  }
}

bool IsKindOf(AudioClassID inClassID, AudioClassID inBaseID) {
  if (inBaseID == kAudioObjectClassIDWildcard) {
    return true;
  }
  while (inClassID != inBaseID) {
    if (inClassID == kAudioObjectClassID) {
      return false;
    }
    inClassID = BaseClassOf(inClassID);
  }
  return true;
}

OSStatus AnswerValue(const void* inValue, UInt32 inSize, UInt32& ioSize, void* outData) {
  if (ioSize < inSize) {
    return kAudioHardwareBadPropertySizeError;
  }
  memcpy(outData, inValue, inSize);
  ioSize = inSize;
  return kAudioHardwareNoError;
}

OSStatus AnswerString(CFStringRef inString, UInt32& ioSize, void* outData) {
  const OSStatus status = AnswerValue(&inString, sizeof inString, ioSize, outData);
  if (status == kAudioHardwareNoError && inString) {
    CFRetain(inString);
  }
  return status;
}

OSStatus AnswerList(std::span<const AudioObjectID> inIDs, UInt32& ioSize, void* outData) {
  const size_t count = std::min(inIDs.size(), ioSize / sizeof(AudioObjectID));
  ioSize = static_cast<UInt32>(count * sizeof(AudioObjectID));
  if (count > 0) {
    memcpy(outData, inIDs.data(), ioSize);
  }
  return kAudioHardwareNoError;
}

std::vector<AudioObjectID> GetOwnedObjects(AudioObjectID inOwnerID, UInt32 inQualifierSize,
                                           const void* inQualifier) {
  std::vector<AudioClassID> classes(inQualifier ? inQualifierSize / sizeof(AudioClassID) : 0);
  if (inQualifier && !classes.empty()) {
    memcpy(classes.data(), inQualifier, classes.size() * sizeof(AudioClassID));
  }
  const Host& host = Host::Get();
  std::vector<AudioObjectID> owned = Host::Get().Objects().GetPublished(inOwnerID);
  std::erase_if(owned, [&](AudioObjectID id) {
    const ObjectRecord* const record = host.FindObject(id);
    return !record || (!classes.empty() &&
                       std::none_of(classes.begin(), classes.end(), [&](AudioClassID base) {
                         return IsKindOf(record->mClassID, base);
                       }));
  });
  return owned;
}

namespace {

// A device may make some of its objects only when it is asked what it owns, so it is asked first.
std::vector<AudioObjectID> AskOwnedObjects(AudioObjectID inOwnerID, const ObjectRecord& inRecord,
                                           UInt32 inQualifierSize, const void* inQualifier) {
  if (IsKindOf(inRecord.mClassID, kAudioDeviceClassID)) {
    const AudioObjectPropertyAddress address = GlobalAddress(kAudioObjectPropertyOwnedObjects);
    inRecord.mPlugIn->HasProperty(inOwnerID, &address);
  }
  return GetOwnedObjects(inOwnerID, inQualifierSize, inQualifier);
}

std::vector<AudioObjectID> AskControls(AudioObjectID inOwnerID, const ObjectRecord& inRecord) {
  const AudioClassID control = kAudioControlClassID;
  return AskOwnedObjects(inOwnerID, inRecord, sizeof control, &control);
}

UInt32 SizeOf(const std::vector<AudioObjectID>& inIDs) {
  return static_cast<UInt32>(inIDs.size() * sizeof(AudioObjectID));
}

}  // namespace

bool IsHostProperty(const ObjectRecord& inRecord, AudioObjectPropertySelector inSelector) {
  switch (inSelector) {
    case kAudioObjectPropertyBaseClass:
    case kAudioObjectPropertyClass:
    case kAudioObjectPropertyOwner:
    case kAudioObjectPropertyOwnedObjects:
      return true;
    case kAudioObjectPropertyControlList:
      return IsKindOf(inRecord.mClassID, kAudioDeviceClassID);
    case kAudioPlugInPropertyBundleID:
      return inRecord.mClassID == kAudioPlugInClassID;
    default:
      return false;
  }
}

OSStatus GetHostPropertySize(AudioObjectID inObjectID, const ObjectRecord& inRecord,
                             const AudioObjectPropertyAddress& inAddress, UInt32 inQualifierSize,
                             const void* inQualifier, UInt32& outSize) {
  switch (inAddress.mSelector) {
    case kAudioObjectPropertyOwnedObjects:
      outSize = SizeOf(AskOwnedObjects(inObjectID, inRecord, inQualifierSize, inQualifier));
      return kAudioHardwareNoError;
    case kAudioObjectPropertyControlList:
      outSize = SizeOf(AskControls(inObjectID, inRecord));
      return kAudioHardwareNoError;
    case kAudioPlugInPropertyBundleID:
      outSize = sizeof(CFStringRef);
      return kAudioHardwareNoError;
    default:
      outSize = sizeof(UInt32);
      return kAudioHardwareNoError;
  }
}

OSStatus GetHostProperty(AudioObjectID inObjectID, const ObjectRecord& inRecord,
                         const AudioObjectPropertyAddress& inAddress, UInt32 inQualifierSize,
                         const void* inQualifier, UInt32& ioSize, void* outData) {
  switch (inAddress.mSelector) {
    case kAudioObjectPropertyBaseClass:
      return AnswerNumber(BaseClassOf(inRecord.mClassID), ioSize, outData);
    case kAudioObjectPropertyClass:
      return AnswerNumber(inRecord.mClassID, ioSize, outData);
    case kAudioObjectPropertyOwner:
      return AnswerNumber(inRecord.mOwnerID, ioSize, outData);
    case kAudioObjectPropertyOwnedObjects:
      return AnswerList(AskOwnedObjects(inObjectID, inRecord, inQualifierSize, inQualifier), ioSize,
                        outData);
    case kAudioObjectPropertyControlList:
      return AnswerList(AskControls(inObjectID, inRecord), ioSize, outData);
    case kAudioPlugInPropertyBundleID: {
      const CFStringRef bundleID = CFStringCreateWithCString(
          kCFAllocatorDefault, inRecord.mPlugIn->GetBundleID().c_str(), kCFStringEncodingUTF8);
      const OSStatus status = AnswerString(bundleID, ioSize, outData);
      CFRelease(bundleID);
      return status;
    }
    default:
      return kAudioHardwareUnknownPropertyError;
  }
}

}  // namespace tembra::hal
