#pragma once

#include <CoreAudio/AudioHardwarePlugIn.h>
#include <CoreFoundation/CoreFoundation.h>

#include "objects/HP_HardwarePlugIn.h"

class TMBACLN_Device;

// The plug-in object: publishes the one device to the process that loaded the bundle and takes it
// down again.
//
// Thread: the host's; takes no lock of its own.
// Ownership: counted by Retain and Release; owns its device.
// Failure: CAException, which the entry table turns into a status.
class TMBACLN_PlugIn : public HP_HardwarePlugIn {
 public:
  explicit TMBACLN_PlugIn(CFUUIDRef inFactoryUUID);
  ~TMBACLN_PlugIn() override;

  // Answers the status of the publication. If it throws, there is no device.
  OSStatus InitializeWithObjectID(AudioObjectID inObjectID) override;
  void Teardown() override;

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

  // Null before InitializeWithObjectID and after Teardown.
  TMBACLN_Device* GetDevice() const { return mDevice; }

 private:
  void SaveSettings() const;

  TMBACLN_Device* mDevice;
};

// The factory that the bundle names: the interface of a new plug-in object, held once, or null for
// a type that is not the audio hardware plug-in's.
extern "C" __attribute__((visibility("default"))) void* TMBACLN_New_Instance(
    CFAllocatorRef inAllocator, CFUUIDRef inTypeUUID);

// Fetches the name of this process, for use in a debugger.
void __tmbcln_LogProcess();
