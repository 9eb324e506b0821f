#include "client/TMBACLN_PlugIn.h"

#include <libproc.h>
#include <unistd.h>

#include <cstring>
#include <memory>

#include "client/TMBACLN_Device.h"
#include "objects/CAPropertyAddress.h"
#include "persistence/HP_DeviceSettings.h"
#include "support/CAException.h"

namespace {

// The name of the plug-in, which is its bundle's identifier.
CFStringRef GetPlugInName() {
  return CFSTR("com.tembra.audio.TMBAudioClient");
}

// 0 if the host cannot tell.
UInt32 GetSystemValue(AudioObjectPropertySelector inSelector) {
  const CAPropertyAddress address(inSelector);
  UInt32 value = 0;
  UInt32 size = sizeof(value);
  AudioObjectGetPropertyData(kAudioObjectSystemObject, &address, 0, nullptr, &size, &value);
  return value;
}

}  // namespace

extern "C" void* TMBACLN_New_Instance(CFAllocatorRef /*inAllocator*/, CFUUIDRef inTypeUUID) {
  try {
    CFUUIDRef plugInType =
        CFUUIDGetConstantUUIDWithBytes(kCFAllocatorDefault, 0xF8, 0xBB, 0x1C, 0x28, 0xBA, 0xE8,
                                       0x11, 0xD6, 0x9C, 0x31, 0x00, 0x03, 0x93, 0x15, 0xCD, 0x46);
    if (inTypeUUID == nullptr || !CFEqual(inTypeUUID, plugInType)) return nullptr;
    TMBACLN_PlugIn* plugIn = new TMBACLN_PlugIn(inTypeUUID);
    plugIn->Retain();
    return plugIn->GetInterface();
  } catch (...) {
    return nullptr;
  }
}

TMBACLN_PlugIn::TMBACLN_PlugIn(CFUUIDRef inFactoryUUID)
    : HP_HardwarePlugIn(inFactoryUUID), mDevice(nullptr) {}

TMBACLN_PlugIn::~TMBACLN_PlugIn() = default;

OSStatus TMBACLN_PlugIn::InitializeWithObjectID(AudioObjectID inObjectID) {
  HP_HardwarePlugIn::InitializeWithObjectID(inObjectID);
  AudioObjectID deviceID = kAudioObjectUnknown;
  const OSStatus status =
      AudioObjectCreate(GetInterface(), kAudioObjectSystemObject, kAudioDeviceClassID, &deviceID);
  if (status != 0) throw CAException(status);

  mDevice = new TMBACLN_Device(deviceID, this);
  try {
    mDevice->Initialize();
  } catch (...) {
    mDevice->Teardown();
    delete mDevice;
    mDevice = nullptr;
    throw;
  }
  HP_Object::SetObjectStateMutexForID(deviceID, mDevice->GetObjectStateMutex());
  return AudioObjectsPublishedAndDied(GetInterface(), kAudioObjectSystemObject, 1, &deviceID, 0,
                                      nullptr);
}

void TMBACLN_PlugIn::Teardown() {
  const UInt32 isInitingOrExiting = GetSystemValue(kAudioHardwarePropertyIsInitingOrExiting);
  const UInt32 isMaster = GetSystemValue(kAudioHardwarePropertyProcessIsMaster);
  if (isInitingOrExiting != 0 && isMaster == 0) {
    // The process goes away; what it leaves behind is all that matters.
    if (mDevice != nullptr) {
      mDevice->Do_StopAllIOProcs();
      mDevice->Finalize();
    }
    return;
  }

  if (mDevice != nullptr) {
    mDevice->Do_StopAllIOProcs();
    const CAPropertyAddress isAlive(kAudioDevicePropertyDeviceIsAlive);
    mDevice->PropertiesChanged(1, &isAlive);
    // One process is enough to remember what all would.
    if (isMaster != 0) SaveSettings();
    const AudioObjectID deviceID = mDevice->GetObjectID();
    AudioObjectsPublishedAndDied(GetInterface(), kAudioObjectSystemObject, 0, nullptr, 1,
                                 &deviceID);
    HP_Object::SetObjectStateMutexForID(deviceID, nullptr);
    mDevice->Teardown();
    delete mDevice;
    mDevice = nullptr;
  }
  HP_HardwarePlugIn::Teardown();
}

void TMBACLN_PlugIn::SaveSettings() const {
  try {
    HP_DeviceSettings::SaveToPrefs(*mDevice, HP_DeviceSettings::sStandardControlsToSave,
                                   HP_DeviceSettings::kNumberStandardControlsToSave);
  } catch (...) {
    // The device goes in any case: one that stayed would outlive its plug-in.
  }
}

bool TMBACLN_PlugIn::HasProperty(const AudioObjectPropertyAddress& inAddress) const {
  if (inAddress.mSelector == kAudioObjectPropertyName) return true;
  return HP_Object::HasProperty(inAddress);
}

bool TMBACLN_PlugIn::IsPropertySettable(const AudioObjectPropertyAddress& inAddress) const {
  if (inAddress.mSelector == kAudioObjectPropertyName) return false;
  return HP_Object::IsPropertySettable(inAddress);
}

UInt32 TMBACLN_PlugIn::GetPropertyDataSize(const AudioObjectPropertyAddress& inAddress,
                                           UInt32 inQualifierDataSize,
                                           const void* inQualifierData) const {
  if (inAddress.mSelector == kAudioObjectPropertyName) return sizeof(CFStringRef);
  return HP_Object::GetPropertyDataSize(inAddress, inQualifierDataSize, inQualifierData);
}

void TMBACLN_PlugIn::GetPropertyData(const AudioObjectPropertyAddress& inAddress,
                                     UInt32 inQualifierDataSize, const void* inQualifierData,
                                     UInt32& ioDataSize, void* outData) const {
  if (inAddress.mSelector == kAudioObjectPropertyName) {
    if (ioDataSize != GetPropertyDataSize(inAddress, inQualifierDataSize, inQualifierData)) {
      throw CAException(kAudioHardwareBadPropertySizeError);
    }
    const CFTypeRef name = CFRetain(GetPlugInName());
    std::memcpy(outData, &name, sizeof(name));
    return;
  }
  HP_Object::GetPropertyData(inAddress, inQualifierDataSize, inQualifierData, ioDataSize, outData);
}

void TMBACLN_PlugIn::SetPropertyData(const AudioObjectPropertyAddress& inAddress,
                                     UInt32 inQualifierDataSize, const void* inQualifierData,
                                     UInt32 inDataSize, const void* inData,
                                     const AudioTimeStamp* inWhen) {
  HP_Object::SetPropertyData(inAddress, inQualifierDataSize, inQualifierData, inDataSize, inData,
                             inWhen);
}

void __tmbcln_LogProcess() {
  char name[32] = {};
  proc_name(getpid(), name, sizeof(name));
  name[sizeof(name) - 1] = 0;
}
