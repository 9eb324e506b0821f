#pragma once

#include <CoreAudio/AudioHardware.h>

// Purpose: a helper that implements one or more property addresses for an HP_Object.
// Thread: called under the object's state mutex, as the object's own property operations are.
// Ownership: owned by whoever made it; an object that it was added to only points at it.
// Units and range: sizes in bytes.
// Failure: CAException.
class HP_Property {
 public:
  HP_Property() = default;
  virtual ~HP_Property() = default;
  HP_Property(const HP_Property&) = delete;
  HP_Property& operator=(const HP_Property&) = delete;

  virtual void Initialize();
  virtual void Teardown();

  virtual bool IsActive(const AudioObjectPropertyAddress& inAddress) const;
  virtual bool IsPropertySettable(const AudioObjectPropertyAddress& inAddress) const;
  virtual UInt32 GetPropertyDataSize(const AudioObjectPropertyAddress& inAddress,
                                     UInt32 inQualifierDataSize, const void* inQualifierData) const;
  virtual void GetPropertyData(const AudioObjectPropertyAddress& inAddress,
                               UInt32 inQualifierDataSize, const void* inQualifierData,
                               UInt32& ioDataSize, void* outData) const;
  virtual void SetPropertyData(const AudioObjectPropertyAddress& inAddress,
                               UInt32 inQualifierDataSize, const void* inQualifierData,
                               UInt32 inDataSize, const void* inData, const AudioTimeStamp* inWhen);

  virtual UInt32 GetNumberAddressesImplemented() const;
  virtual void GetImplementedAddressByIndex(UInt32 inIndex,
                                            AudioObjectPropertyAddress& outAddress) const;
};
