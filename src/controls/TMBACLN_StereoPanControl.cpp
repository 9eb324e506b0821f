#include "controls/TMBACLN_StereoPanControl.h"

#include <algorithm>
#include <limits>

#include "client/TMBACLN_Device.h"
#include "client/TMBACLN_PlugIn.h"

namespace {

constexpr Float32 kCenterValue = 0.5F;

// Twice the whole part of the product, held in 32 bits.
SInt32 GetDoubledWholePart(SInt32 inRange, Float32 inShare) {
  constexpr Float64 kLimit = std::numeric_limits<SInt32>::max();
  const Float64 theProduct = static_cast<Float32>(inRange) * inShare;
  const auto theWhole = static_cast<SInt64>(std::clamp(theProduct, -kLimit, kLimit));
  return static_cast<SInt32>(std::clamp<SInt64>(theWhole * 2, std::numeric_limits<SInt32>::min(),
                                                std::numeric_limits<SInt32>::max()));
}

SInt32 AddWithinRange(SInt32 inLeft, SInt32 inRight) {
  return static_cast<SInt32>(std::clamp<SInt64>(SInt64{inLeft} + inRight,
                                                std::numeric_limits<SInt32>::min(),
                                                std::numeric_limits<SInt32>::max()));
}

}  // namespace

TMBACLN_StereoPanControl::TMBACLN_StereoPanControl(AudioObjectID inObjectID, AudioClassID inClassID,
                                                   AudioObjectPropertyScope inScope,
                                                   AudioObjectPropertyElement inElement,
                                                   UInt32 inLeftChannel, UInt32 inRightChannel,
                                                   TMBACLN_PlugIn* inPlugIn,
                                                   TMBACLN_Device* inOwningDevice)
    : HP_StereoPanControl(inObjectID, inClassID, inPlugIn, inOwningDevice),
      mPropertyScope(inScope),
      mPropertyElement(inElement),
      mLeftChannel(inLeftChannel),
      mRightChannel(inRightChannel),
      mFullLeftRawValue(0),
      mCenterRawValue(0),
      mFullRightRawValue(0),
      mCurrentRawValue(0) {}

TMBACLN_StereoPanControl::~TMBACLN_StereoPanControl() = default;

void TMBACLN_StereoPanControl::Initialize() {
  mFullLeftRawValue = 0;
  mCenterRawValue = 512;
  mFullRightRawValue = 1024;
  mCurrentRawValue = mCenterRawValue;
  CacheRawValue();
}

void TMBACLN_StereoPanControl::Teardown() {}

AudioObjectPropertyScope TMBACLN_StereoPanControl::GetPropertyScope() const {
  return mPropertyScope;
}

AudioObjectPropertyElement TMBACLN_StereoPanControl::GetPropertyElement() const {
  return mPropertyElement;
}

Float32 TMBACLN_StereoPanControl::GetValue() const {
  const SInt64 theRawValue = GetRawValue();
  if (theRawValue == mCenterRawValue) return kCenterValue;
  if (theRawValue > mCenterRawValue) {
    return static_cast<Float32>(theRawValue - mCenterRawValue) * 0.5F /
               static_cast<Float32>(mFullRightRawValue - mCenterRawValue) +
           0.5F;
  }
  return static_cast<Float32>(theRawValue - mFullLeftRawValue) * 0.5F /
         static_cast<Float32>(mCenterRawValue - mFullLeftRawValue);
}

void TMBACLN_StereoPanControl::SetValue(Float32 inValue) {
  SInt32 theRawValue = GetRawValue();
  if (inValue == kCenterValue) {
    theRawValue = mCenterRawValue;
  } else if (inValue < kCenterValue) {
    // Where full left stands is left out, as it stands at 0.
    theRawValue = GetDoubledWholePart(mCenterRawValue - mFullLeftRawValue, inValue);
  } else if (inValue > kCenterValue) {
    theRawValue = AddWithinRange(
        mCenterRawValue,
        GetDoubledWholePart(mFullRightRawValue - mCenterRawValue, inValue - kCenterValue));
  }
  SetRawValue(theRawValue);
}

void TMBACLN_StereoPanControl::GetChannels(UInt32& outLeftChannel, UInt32& outRightChannel) const {
  outLeftChannel = mLeftChannel;
  outRightChannel = mRightChannel;
}

SInt32 TMBACLN_StereoPanControl::GetRawValue() const {
  return mCurrentRawValue;
}

void TMBACLN_StereoPanControl::SetRawValue(SInt32 inRawValue) {
  if (inRawValue == mCurrentRawValue) return;
  mCurrentRawValue = inRawValue;
  ValueChanged();
}

void TMBACLN_StereoPanControl::CacheRawValue() {}
