#include "controls/HP_StereoPanControl.h"

#include <cstring>

HP_StereoPanControl::HP_StereoPanControl(AudioObjectID inObjectID, AudioClassID inClassID,
                                         HP_HardwarePlugIn* inPlugIn, HP_Device* inOwningDevice)
    : HP_Control(inObjectID, inClassID, inPlugIn, inOwningDevice) {}

HP_StereoPanControl::~HP_StereoPanControl() = default;

AudioClassID HP_StereoPanControl::GetBaseClassID() const {
  return kAudioStereoPanControlClassID;
}

bool HP_StereoPanControl::HasProperty(const AudioObjectPropertyAddress& inAddress) const {
  switch (inAddress.mSelector) {
    case kAudioStereoPanControlPropertyValue:
    case kAudioStereoPanControlPropertyPanningChannels:
      return true;
    default:
      return HP_Control::HasProperty(inAddress);
  }
}

bool HP_StereoPanControl::IsPropertySettable(const AudioObjectPropertyAddress& inAddress) const {
  switch (inAddress.mSelector) {
    case kAudioStereoPanControlPropertyValue:
      return !IsReadOnly();
    case kAudioStereoPanControlPropertyPanningChannels:
      return false;
    default:
      return HP_Control::IsPropertySettable(inAddress);
  }
}

UInt32 HP_StereoPanControl::GetPropertyDataSize(const AudioObjectPropertyAddress& inAddress,
                                                UInt32 inQualifierDataSize,
                                                const void* inQualifierData) const {
  switch (inAddress.mSelector) {
    case kAudioStereoPanControlPropertyValue:
      return sizeof(Float32);
    case kAudioStereoPanControlPropertyPanningChannels:
      return 2 * sizeof(UInt32);
    default:
      return HP_Control::GetPropertyDataSize(inAddress, inQualifierDataSize, inQualifierData);
  }
}

void HP_StereoPanControl::GetPropertyData(const AudioObjectPropertyAddress& inAddress,
                                          UInt32 inQualifierDataSize, const void* inQualifierData,
                                          UInt32& ioDataSize, void* outData) const {
  CheckPropertyDataSize(inAddress, inQualifierDataSize, inQualifierData, ioDataSize);
  switch (inAddress.mSelector) {
    case kAudioStereoPanControlPropertyValue: {
      const Float32 theValue = GetValue();
      std::memcpy(outData, &theValue, sizeof(theValue));
      break;
    }
    case kAudioStereoPanControlPropertyPanningChannels: {
      UInt32 theChannels[2] = {};
      GetChannels(theChannels[0], theChannels[1]);
      std::memcpy(outData, theChannels, sizeof(theChannels));
      break;
    }
    default:
      HP_Control::GetPropertyData(inAddress, inQualifierDataSize, inQualifierData, ioDataSize,
                                  outData);
      break;
  }
}

void HP_StereoPanControl::SetPropertyData(const AudioObjectPropertyAddress& inAddress,
                                          UInt32 inQualifierDataSize, const void* inQualifierData,
                                          UInt32 inDataSize, const void* inData,
                                          const AudioTimeStamp* inWhen) {
  if (inAddress.mSelector != kAudioStereoPanControlPropertyValue) {
    HP_Control::SetPropertyData(inAddress, inQualifierDataSize, inQualifierData, inDataSize, inData,
                                inWhen);
    return;
  }
  CheckPropertyDataSize(inAddress, inQualifierDataSize, inQualifierData, inDataSize);
  Float32 theValue = 0;
  std::memcpy(&theValue, inData, sizeof(theValue));
  SetValue(theValue);
}
