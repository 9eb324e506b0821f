#include "controls/HP_LevelControl.h"

#include <cstring>

namespace {

Float32 LoadFloat32(const void* inData) {
  Float32 theValue = 0;
  std::memcpy(&theValue, inData, sizeof(theValue));
  return theValue;
}

void StoreFloat32(Float32 inValue, void* outData) {
  std::memcpy(outData, &inValue, sizeof(inValue));
}

}  // namespace

HP_LevelControl::HP_LevelControl(AudioObjectID inObjectID, AudioClassID inClassID,
                                 HP_HardwarePlugIn* inPlugIn, HP_Device* inOwningDevice)
    : HP_Control(inObjectID, inClassID, inPlugIn, inOwningDevice) {}

HP_LevelControl::~HP_LevelControl() = default;

AudioClassID HP_LevelControl::GetBaseClassID() const {
  return kAudioLevelControlClassID;
}

bool HP_LevelControl::HasProperty(const AudioObjectPropertyAddress& inAddress) const {
  switch (inAddress.mSelector) {
    case kAudioLevelControlPropertyScalarValue:
    case kAudioLevelControlPropertyDecibelValue:
    case kAudioLevelControlPropertyDecibelRange:
    case kAudioLevelControlPropertyConvertScalarToDecibels:
    case kAudioLevelControlPropertyConvertDecibelsToScalar:
      return true;
    default:
      return HP_Control::HasProperty(inAddress);
  }
}

bool HP_LevelControl::IsPropertySettable(const AudioObjectPropertyAddress& inAddress) const {
  switch (inAddress.mSelector) {
    case kAudioLevelControlPropertyScalarValue:
    case kAudioLevelControlPropertyDecibelValue:
      return !IsReadOnly();
    case kAudioLevelControlPropertyDecibelRange:
    case kAudioLevelControlPropertyConvertScalarToDecibels:
    case kAudioLevelControlPropertyConvertDecibelsToScalar:
      return false;
    default:
      return HP_Control::IsPropertySettable(inAddress);
  }
}

UInt32 HP_LevelControl::GetPropertyDataSize(const AudioObjectPropertyAddress& inAddress,
                                            UInt32 inQualifierDataSize,
                                            const void* inQualifierData) const {
  switch (inAddress.mSelector) {
    case kAudioLevelControlPropertyScalarValue:
    case kAudioLevelControlPropertyDecibelValue:
    case kAudioLevelControlPropertyConvertScalarToDecibels:
    case kAudioLevelControlPropertyConvertDecibelsToScalar:
      return sizeof(Float32);
    case kAudioLevelControlPropertyDecibelRange:
      return sizeof(AudioValueRange);
    default:
      return HP_Control::GetPropertyDataSize(inAddress, inQualifierDataSize, inQualifierData);
  }
}

void HP_LevelControl::GetPropertyData(const AudioObjectPropertyAddress& inAddress,
                                      UInt32 inQualifierDataSize, const void* inQualifierData,
                                      UInt32& ioDataSize, void* outData) const {
  CheckPropertyDataSize(inAddress, inQualifierDataSize, inQualifierData, ioDataSize);
  switch (inAddress.mSelector) {
    case kAudioLevelControlPropertyScalarValue:
      StoreFloat32(GetScalarValue(), outData);
      break;
    case kAudioLevelControlPropertyDecibelValue:
      StoreFloat32(GetDBValue(), outData);
      break;
    case kAudioLevelControlPropertyDecibelRange: {
      const AudioValueRange theRange = {GetMinimumDBValue(), GetMaximumDBValue()};
      std::memcpy(outData, &theRange, sizeof(theRange));
      break;
    }
    case kAudioLevelControlPropertyConvertScalarToDecibels:
      StoreFloat32(ConverScalarValueToDBValue(LoadFloat32(outData)), outData);
      break;
    case kAudioLevelControlPropertyConvertDecibelsToScalar:
      StoreFloat32(ConverDBValueToScalarValue(LoadFloat32(outData)), outData);
      break;
    default:
      HP_Control::GetPropertyData(inAddress, inQualifierDataSize, inQualifierData, ioDataSize,
                                  outData);
      break;
  }
}

void HP_LevelControl::SetPropertyData(const AudioObjectPropertyAddress& inAddress,
                                      UInt32 inQualifierDataSize, const void* inQualifierData,
                                      UInt32 inDataSize, const void* inData,
                                      const AudioTimeStamp* inWhen) {
  switch (inAddress.mSelector) {
    case kAudioLevelControlPropertyScalarValue:
      CheckPropertyDataSize(inAddress, inQualifierDataSize, inQualifierData, inDataSize);
      SetScalarValue(LoadFloat32(inData));
      break;
    case kAudioLevelControlPropertyDecibelValue:
      CheckPropertyDataSize(inAddress, inQualifierDataSize, inQualifierData, inDataSize);
      SetDBValue(LoadFloat32(inData));
      break;
    default:
      HP_Control::SetPropertyData(inAddress, inQualifierDataSize, inQualifierData, inDataSize,
                                  inData, inWhen);
      break;
  }
}
