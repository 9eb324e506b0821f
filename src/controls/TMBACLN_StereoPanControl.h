#pragma once

#include "controls/HP_StereoPanControl.h"

class TMBACLN_Device;
class TMBACLN_PlugIn;

// A position between two channels of a device. This device makes none.
//
// Purpose: keeps the raw position and tells of its changes.
// Thread, failure: as HP_StereoPanControl.
// Ownership: owned by its device.
// Units and range: raw positions from 0 to 1024 with the centre at 512. Values are not clamped, but
//   a raw position never leaves its 32 bits. What is not a number changes nothing.
class TMBACLN_StereoPanControl : public HP_StereoPanControl {
 public:
  TMBACLN_StereoPanControl(AudioObjectID inObjectID, AudioClassID inClassID,
                           AudioObjectPropertyScope inScope, AudioObjectPropertyElement inElement,
                           UInt32 inLeftChannel, UInt32 inRightChannel, TMBACLN_PlugIn* inPlugIn,
                           TMBACLN_Device* inOwningDevice);
  ~TMBACLN_StereoPanControl() override;

  void Initialize() override;
  void Teardown() override;

  AudioObjectPropertyScope GetPropertyScope() const override;
  AudioObjectPropertyElement GetPropertyElement() const override;

  Float32 GetValue() const override;
  void SetValue(Float32 inValue) override;
  void GetChannels(UInt32& outLeftChannel, UInt32& outRightChannel) const override;

  virtual SInt32 GetRawValue() const;
  virtual void SetRawValue(SInt32 inRawValue);
  // There is no hardware whose value could be fetched.
  virtual void CacheRawValue();

 private:
  AudioObjectPropertyScope mPropertyScope;
  AudioObjectPropertyElement mPropertyElement;
  UInt32 mLeftChannel;
  UInt32 mRightChannel;
  SInt32 mFullLeftRawValue;
  SInt32 mCenterRawValue;
  SInt32 mFullRightRawValue;
  SInt32 mCurrentRawValue;
};
