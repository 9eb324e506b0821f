#pragma once

#include "controls/HP_Control.h"

// A control that places a channel between two others.
//
// Purpose: answers the position and the two channels.
// Thread, ownership, failure: as HP_Control.
// Units and range: 0 is the left channel, 0.5 the centre, 1 the right.
class HP_StereoPanControl : public HP_Control {
 public:
  HP_StereoPanControl(AudioObjectID inObjectID, AudioClassID inClassID, HP_HardwarePlugIn* inPlugIn,
                      HP_Device* inOwningDevice);
  ~HP_StereoPanControl() override;

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

  virtual Float32 GetValue() const = 0;
  virtual void SetValue(Float32 inValue) = 0;
  virtual void GetChannels(UInt32& outLeftChannel, UInt32& outRightChannel) const = 0;
};
