#pragma once

#include "controls/HP_Control.h"

// A control that is on or off.
//
// Purpose: answers the value property with 1 or 0; any value but 0 is on.
// Thread, ownership, failure: as HP_Control.
// Units and range: none.
class HP_BooleanControl : public HP_Control {
 public:
  HP_BooleanControl(AudioObjectID inObjectID, AudioClassID inClassID, HP_HardwarePlugIn* inPlugIn,
                    HP_Device* inOwningDevice);
  ~HP_BooleanControl() override;

  bool HasProperty(const AudioObjectPropertyAddress& inAddress) const override;
  bool IsPropertySettable(const AudioObjectPropertyAddress& inAddress) const override;
  UInt32 GetPropertyDataSize(const AudioObjectPropertyAddress& inAddress,
                             UInt32 inQualifierDataSize,
                             const void* inQualifierData) const override;
  void GetPropertyData(const AudioObjectPropertyAddress& inAddress, UInt32 inQualifierDataSize,
                       const void* inQualifierData, UInt32& ioDataSize,
                       void* outData) const override;
  void SetPropertyData(const AudioObjectPropertyAddress& inAddress, UInt32 inQualifierDataSize,
                       const void* inQualifierData, UInt32 inDataSize, const void* inData,
                       const AudioTimeStamp* inWhen) override;

  AudioClassID GetBaseClassID() const override;

  virtual bool GetValue() const = 0;
  virtual void SetValue(bool inValue) = 0;
};
