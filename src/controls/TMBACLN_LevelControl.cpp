#include "controls/TMBACLN_LevelControl.h"

#include "client/TMBACLN_Device.h"
#include "client/TMBACLN_PlugIn.h"

namespace {

constexpr SInt32 kMinimumRaw = 0;
constexpr SInt32 kMaximumRaw = 1024;
constexpr Float32 kMinimumDB = -90.0F;
constexpr Float32 kMaximumDB = 0.0F;

}  // namespace

TMBACLN_LevelControl::TMBACLN_LevelControl(AudioObjectID inObjectID, AudioClassID inClassID,
                                           AudioObjectPropertyScope inScope,
                                           AudioObjectPropertyElement inElement,
                                           TMBACLN_PlugIn* inPlugIn, TMBACLN_Device* inOwningDevice)
    : HP_LevelControl(inObjectID, inClassID, inPlugIn, inOwningDevice),
      mPropertyScope(inScope),
      mPropertyElement(inElement),
      mRawValue(0) {}

TMBACLN_LevelControl::~TMBACLN_LevelControl() = default;

void TMBACLN_LevelControl::Initialize() {
  mVolumeCurve.ResetRange();
  mVolumeCurve.AddRange(kMinimumRaw, kMaximumRaw, kMinimumDB, kMaximumDB);
  CacheRawValue();
}

void TMBACLN_LevelControl::Teardown() {}

AudioObjectPropertyScope TMBACLN_LevelControl::GetPropertyScope() const {
  return mPropertyScope;
}

AudioObjectPropertyElement TMBACLN_LevelControl::GetPropertyElement() const {
  return mPropertyElement;
}

Float32 TMBACLN_LevelControl::GetMinimumDBValue() const {
  return mVolumeCurve.GetMinimumDB();
}

Float32 TMBACLN_LevelControl::GetMaximumDBValue() const {
  return mVolumeCurve.GetMaximumDB();
}

Float32 TMBACLN_LevelControl::GetDBValue() const {
  return mVolumeCurve.ConvertRawToDB(GetRawValue());
}

void TMBACLN_LevelControl::SetDBValue(Float32 inDBValue) {
  SetRawValue(mVolumeCurve.ConvertDBToRaw(inDBValue));
}

Float32 TMBACLN_LevelControl::GetScalarValue() const {
  return mVolumeCurve.ConvertRawToScalar(GetRawValue());
}

void TMBACLN_LevelControl::SetScalarValue(Float32 inScalarValue) {
  SetRawValue(mVolumeCurve.ConvertScalarToRaw(inScalarValue));
}

Float32 TMBACLN_LevelControl::ConverScalarValueToDBValue(Float32 inScalarValue) const {
  return mVolumeCurve.ConvertScalarToDB(inScalarValue);
}

Float32 TMBACLN_LevelControl::ConverDBValueToScalarValue(Float32 inDBValue) const {
  return mVolumeCurve.ConvertDBToScalar(inDBValue);
}

SInt32 TMBACLN_LevelControl::GetRawValue() const {
  return mRawValue;
}

void TMBACLN_LevelControl::SetRawValue(SInt32 inRawValue) {
  if (inRawValue == mRawValue) return;
  mRawValue = inRawValue;
  ValueChanged();
}

void TMBACLN_LevelControl::CacheRawValue() {}
