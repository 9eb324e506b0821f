#pragma once

#include "controls/CAVolumeCurve.h"
#include "controls/HP_LevelControl.h"

class TMBACLN_Device;
class TMBACLN_PlugIn;

// A volume of the device, from -90 dB to 0 dB in 1024 steps. It is a value and no more: the audio
// is not scaled.
//
// Purpose: keeps the raw value and tells of its changes.
// Thread, failure: as HP_LevelControl.
// Ownership: owned by its device.
// Units and range: raw values from 0 to 1024. SetRawValue takes any; the views of it are clamped.
class TMBACLN_LevelControl : public HP_LevelControl {
 public:
  TMBACLN_LevelControl(AudioObjectID inObjectID, AudioClassID inClassID,
                       AudioObjectPropertyScope inScope, AudioObjectPropertyElement inElement,
                       TMBACLN_PlugIn* inPlugIn, TMBACLN_Device* inOwningDevice);
  ~TMBACLN_LevelControl() override;

  void Initialize() override;
  void Teardown() override;

  AudioObjectPropertyScope GetPropertyScope() const override;
  AudioObjectPropertyElement GetPropertyElement() const override;

  Float32 GetMinimumDBValue() const override;
  Float32 GetMaximumDBValue() const override;
  Float32 GetDBValue() const override;
  void SetDBValue(Float32 inDBValue) override;
  Float32 GetScalarValue() const override;
  void SetScalarValue(Float32 inScalarValue) override;
  Float32 ConverScalarValueToDBValue(Float32 inScalarValue) const override;
  Float32 ConverDBValueToScalarValue(Float32 inDBValue) const override;

  SInt32 GetRawValue() const;
  void SetRawValue(SInt32 inRawValue);
  // There is no hardware whose value could be fetched.
  virtual void CacheRawValue();

 private:
  AudioObjectPropertyScope mPropertyScope;
  AudioObjectPropertyElement mPropertyElement;
  CAVolumeCurve mVolumeCurve;
  SInt32 mRawValue;
};
