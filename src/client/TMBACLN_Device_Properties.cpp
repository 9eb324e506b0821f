// The device's names and identity, and the properties that it answers in front of its base.

#include <cstring>

#include "client/TMBACLN_Device.h"
#include "device/HP_IOThread.h"
#include "objects/CAPropertyAddress.h"
#include "persistence/HP_HogMode.h"
#include "support/CAException.h"
#include "support/CAMutex.h"

namespace {

CFStringRef CopyLocalizedString(CFStringRef inKey, CFStringRef inDefault) {
  CFBundleRef bundle = CFBundleGetBundleWithIdentifier(CFSTR("com.tembra.audio.TMBAudioClient"));
  return CFBundleCopyLocalizedString(bundle, inKey, inDefault, nullptr);
}

CFStringRef CopyString(CFStringRef inString) {
  return inString != nullptr ? static_cast<CFStringRef>(CFRetain(inString)) : nullptr;
}

}  // namespace

bool TMBACLN_Device::HasProperty(const AudioObjectPropertyAddress& inAddress) const {
  CAMutex::Locker locker(GetDeviceStateMutex());
  CreateControlsFor(inAddress.mSelector);
  if (inAddress.mSelector == kAudioDevicePropertyIOCycleUsage) return true;
  return HP_Device::HasProperty(inAddress);
}

bool TMBACLN_Device::IsPropertySettable(const AudioObjectPropertyAddress& inAddress) const {
  CAMutex::Locker locker(GetDeviceStateMutex());
  CreateControlsFor(inAddress.mSelector);
  if (inAddress.mSelector == kAudioDevicePropertyIOCycleUsage) return true;
  if (inAddress.mSelector == kAudioDevicePropertyHogMode) return true;
  return HP_Device::IsPropertySettable(inAddress);
}

UInt32 TMBACLN_Device::GetPropertyDataSize(const AudioObjectPropertyAddress& inAddress,
                                           UInt32 inQualifierDataSize,
                                           const void* inQualifierData) const {
  CAMutex::Locker locker(GetDeviceStateMutex());
  CreateControlsFor(inAddress.mSelector);
  if (inAddress.mSelector == kAudioDevicePropertyIOCycleUsage) return sizeof(Float32);
  return HP_Device::GetPropertyDataSize(inAddress, inQualifierDataSize, inQualifierData);
}

void TMBACLN_Device::GetPropertyData(const AudioObjectPropertyAddress& inAddress,
                                     UInt32 inQualifierDataSize, const void* inQualifierData,
                                     UInt32& ioDataSize, void* outData) const {
  CAMutex::Locker locker(GetDeviceStateMutex());
  CreateControlsFor(inAddress.mSelector);
  if (inAddress.mSelector == kAudioDevicePropertyIOCycleUsage) {
    if (ioDataSize != GetPropertyDataSize(inAddress, inQualifierDataSize, inQualifierData)) {
      throw CAException(kAudioHardwareBadPropertySizeError);
    }
    const Float32 usage = mIOThread->GetIOCycleUsage();
    std::memcpy(outData, &usage, sizeof(usage));
    return;
  }
  if (inAddress.mSelector == kAudioDevicePropertyHogMode) {
    if (ioDataSize != GetPropertyDataSize(inAddress, inQualifierDataSize, inQualifierData)) {
      throw CAException(kAudioHardwareBadPropertySizeError);
    }
    const SInt32 owner = mHogMode->GetOwner();
    std::memcpy(outData, &owner, sizeof(owner));
    return;
  }
  HP_Device::GetPropertyData(inAddress, inQualifierDataSize, inQualifierData, ioDataSize, outData);
}

void TMBACLN_Device::SetPropertyData(const AudioObjectPropertyAddress& inAddress,
                                     UInt32 inQualifierDataSize, const void* inQualifierData,
                                     UInt32 inDataSize, const void* inData,
                                     const AudioTimeStamp* inWhen) {
  CAMutex::Locker locker(GetDeviceStateMutex());
  CreateControlsFor(inAddress.mSelector);
  if (inAddress.mSelector == kAudioDevicePropertyIOCycleUsage) {
    if (inDataSize != GetPropertyDataSize(inAddress, inQualifierDataSize, inQualifierData)) {
      throw CAException(kAudioHardwareBadPropertySizeError);
    }
    Float32 usage = 0.0f;
    std::memcpy(&usage, inData, sizeof(usage));
    mIOThread->SetIOCycleUsage(usage);
    const CAPropertyAddress changed(kAudioDevicePropertyIOCycleUsage);
    PropertiesChanged(1, &changed);
    return;
  }
  if (inAddress.mSelector == kAudioDevicePropertyHogMode) {
    if (inDataSize != GetPropertyDataSize(inAddress, inQualifierDataSize, inQualifierData)) {
      throw CAException(kAudioHardwareBadPropertySizeError);
    }
    ToggleHogMode();
    // The caller finds the new owner where he left his value, which is not looked at.
    const SInt32 owner = mHogMode->GetOwner();
    std::memcpy(const_cast<void*>(inData), &owner, sizeof(owner));
    return;
  }
  HP_Device::SetPropertyData(inAddress, inQualifierDataSize, inQualifierData, inDataSize, inData,
                             inWhen);
}

void TMBACLN_Device::ToggleHogMode() {
  if (mHogMode->IsFree()) {
    mHogMode->Take();
  } else if (mHogMode->CurrentProcessIsOwner()) {
    mHogMode->Release();
  } else {
    throw CAException(kAudioDevicePermissionsError);
  }
  HogModeStateChanged();
}

bool TMBACLN_Device::IsHidden() const {
  return false;
}

CFStringRef TMBACLN_Device::CopyDeviceName() const {
  static const CFStringRef sName =
      CopyLocalizedString(CFSTR("TMBAudioName"), CFSTR("Tembra Audio"));
  return CopyString(sName);
}

CFStringRef TMBACLN_Device::CopyManufacturerName() const {
  static const CFStringRef sName =
      CopyLocalizedString(CFSTR("ManufacturerName"), CFSTR("Brelin Inc."));
  return CopyString(sName);
}

CFStringRef TMBACLN_Device::CopyDeviceManufacturerName() const {
  return CopyManufacturerName();
}

CFStringRef TMBACLN_Device::CopyElementFullName(const AudioObjectPropertyAddress& inAddress) const {
  if (inAddress.mScope != kAudioDevicePropertyScopeInput &&
      inAddress.mScope != kAudioDevicePropertyScopeOutput) {
    return nullptr;
  }
  return CopyString(CFSTR(""));
}

CFStringRef TMBACLN_Device::CopyDeviceUID() const {
  static const CFStringRef sUID = CFSTR("TMBAudioCln_Plugin");
  return CopyString(sUID);
}

CFStringRef TMBACLN_Device::CopyModelUID() const {
  static const CFStringRef sUID = CFSTR("TMBAudioCln_Device");
  return CopyString(sUID);
}

UInt32 TMBACLN_Device::GetTransportType() const {
  return kAudioDeviceTransportTypeVirtual;
}

bool TMBACLN_Device::CanBeDefaultDevice(bool inIsInput, bool /*inIsSystem*/) const {
  return !inIsInput;
}
