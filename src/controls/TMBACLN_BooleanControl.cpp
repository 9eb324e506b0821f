#include "controls/TMBACLN_BooleanControl.h"

#include "client/TMBACLN_Device.h"
#include "client/TMBACLN_PlugIn.h"

TMBACLN_BooleanControl::TMBACLN_BooleanControl(AudioObjectID inObjectID, AudioClassID inClassID,
                                               AudioObjectPropertyScope inScope,
                                               AudioObjectPropertyElement inElement,
                                               TMBACLN_PlugIn* inPlugIn,
                                               TMBACLN_Device* inOwningDevice)
    : HP_BooleanControl(inObjectID, inClassID, inPlugIn, inOwningDevice),
      mPropertyScope(inScope),
      mPropertyElement(inElement),
      mValue(false) {}

TMBACLN_BooleanControl::~TMBACLN_BooleanControl() = default;

void TMBACLN_BooleanControl::Initialize() {
  CacheValue();
}

void TMBACLN_BooleanControl::Teardown() {}

AudioObjectPropertyScope TMBACLN_BooleanControl::GetPropertyScope() const {
  return mPropertyScope;
}

AudioObjectPropertyElement TMBACLN_BooleanControl::GetPropertyElement() const {
  return mPropertyElement;
}

bool TMBACLN_BooleanControl::GetValue() const {
  return mValue;
}

void TMBACLN_BooleanControl::SetValue(bool inValue) {
  if (inValue == mValue) return;
  mValue = inValue;
  ValueChanged();
}

void TMBACLN_BooleanControl::CacheValue() {}
