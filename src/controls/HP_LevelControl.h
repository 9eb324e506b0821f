#pragma once

#include "controls/HP_Control.h"

// A control with a level: its properties, in decibels and as a scalar, on the values that a derived
// class keeps.
//
// Purpose: answers the level properties. The two conversions read their input from the buffer that
//   they answer in.
// Thread, ownership: as HP_Control.
// Units and range: decibels; scalars from 0 to 1.
// Failure: as HP_Control.
class HP_LevelControl : public HP_Control {
 public:
  HP_LevelControl(AudioObjectID inObjectID, AudioClassID inClassID, HP_HardwarePlugIn* inPlugIn,
                  HP_Device* inOwningDevice);
  ~HP_LevelControl() override;

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

  virtual Float32 GetMinimumDBValue() const = 0;
  virtual Float32 GetMaximumDBValue() const = 0;
  virtual Float32 GetDBValue() const = 0;
  virtual void SetDBValue(Float32 inDBValue) = 0;
  virtual Float32 GetScalarValue() const = 0;
  virtual void SetScalarValue(Float32 inScalarValue) = 0;
  virtual Float32 ConverScalarValueToDBValue(Float32 inScalarValue) const = 0;
  virtual Float32 ConverDBValueToScalarValue(Float32 inDBValue) const = 0;
};
