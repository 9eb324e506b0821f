#include "controls/HP_BooleanControl.h"

#include <cstring>

HP_BooleanControl::HP_BooleanControl(AudioObjectID inObjectID, AudioClassID inClassID,
                                     HP_HardwarePlugIn* inPlugIn, HP_Device* inOwningDevice)
    : HP_Control(inObjectID, inClassID, inPlugIn, inOwningDevice) {}

HP_BooleanControl::~HP_BooleanControl() = default;

AudioClassID HP_BooleanControl::GetBaseClassID() const {
  return kAudioBooleanControlClassID;
}

bool HP_BooleanControl::HasProperty(const AudioObjectPropertyAddress& inAddress) const {
  return inAddress.mSelector == kAudioBooleanControlPropertyValue ||
         HP_Control::HasProperty(inAddress);
}

bool HP_BooleanControl::IsPropertySettable(const AudioObjectPropertyAddress& inAddress) const {
  if (inAddress.mSelector == kAudioBooleanControlPropertyValue) return !IsReadOnly();
  return HP_Control::IsPropertySettable(inAddress);
}

UInt32 HP_BooleanControl::GetPropertyDataSize(const AudioObjectPropertyAddress& inAddress,
                                              UInt32 inQualifierDataSize,
                                              const void* inQualifierData) const {
  if (inAddress.mSelector == kAudioBooleanControlPropertyValue) return sizeof(UInt32);
  return HP_Control::GetPropertyDataSize(inAddress, inQualifierDataSize, inQualifierData);
}

void HP_BooleanControl::GetPropertyData(const AudioObjectPropertyAddress& inAddress,
                                        UInt32 inQualifierDataSize, const void* inQualifierData,
                                        UInt32& ioDataSize, void* outData) const {
  if (inAddress.mSelector != kAudioBooleanControlPropertyValue) {
    HP_Control::GetPropertyData(inAddress, inQualifierDataSize, inQualifierData, ioDataSize,
                                outData);
    return;
  }
  CheckPropertyDataSize(inAddress, inQualifierDataSize, inQualifierData, ioDataSize);
  const UInt32 theValue = GetValue() ? 1 : 0;
  std::memcpy(outData, &theValue, sizeof(theValue));
}

void HP_BooleanControl::SetPropertyData(const AudioObjectPropertyAddress& inAddress,
                                        UInt32 inQualifierDataSize, const void* inQualifierData,
                                        UInt32 inDataSize, const void* inData,
                                        const AudioTimeStamp* inWhen) {
  if (inAddress.mSelector != kAudioBooleanControlPropertyValue) {
    HP_Control::SetPropertyData(inAddress, inQualifierDataSize, inQualifierData, inDataSize, inData,
                                inWhen);
    return;
  }
  CheckPropertyDataSize(inAddress, inQualifierDataSize, inQualifierData, inDataSize);
  UInt32 theValue = 0;
  std::memcpy(&theValue, inData, sizeof(theValue));
  SetValue(theValue != 0);
}
