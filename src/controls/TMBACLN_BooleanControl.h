#pragma once

#include "controls/HP_BooleanControl.h"

class TMBACLN_Device;
class TMBACLN_PlugIn;

// A switch of the device, such as mute. It is a value and no more: the audio is not touched.
//
// Purpose: keeps the value and tells of its changes.
// Thread, failure: as HP_BooleanControl.
// Ownership: owned by its device.
// Units and range: none.
class TMBACLN_BooleanControl : public HP_BooleanControl {
 public:
  TMBACLN_BooleanControl(AudioObjectID inObjectID, AudioClassID inClassID,
                         AudioObjectPropertyScope inScope, AudioObjectPropertyElement inElement,
                         TMBACLN_PlugIn* inPlugIn, TMBACLN_Device* inOwningDevice);
  ~TMBACLN_BooleanControl() override;

  void Initialize() override;
  void Teardown() override;

  AudioObjectPropertyScope GetPropertyScope() const override;
  AudioObjectPropertyElement GetPropertyElement() const override;

  bool GetValue() const override;
  void SetValue(bool inValue) override;

  // There is no hardware whose value could be fetched.
  virtual void CacheValue();

 private:
  AudioObjectPropertyScope mPropertyScope;
  AudioObjectPropertyElement mPropertyElement;
  bool mValue;
};
