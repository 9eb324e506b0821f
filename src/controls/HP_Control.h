#pragma once

#include <CoreAudio/AudioHardware.h>
#include <CoreFoundation/CoreFoundation.h>

#include "objects/HP_Object.h"

class CAPropertyAddressList;
class HP_Device;
class HP_HardwarePlugIn;

// The base of every control: an object of a device with a place on it and a value.
//
// Purpose: answers where the control stands and what it is called, and turns a change of its value
//   or range into the notifications of the device and of the stream that carries its channel. Its
//   own listeners are not told.
// Thread: under the device's state mutex, which the entry table takes. ValueChanged and
//   RangeChanged let go of it while they call out.
// Ownership: owned by its device once it was added; owns nothing and points at the device.
// Units and range: the class ID says which control it is. Elements are the device's channels,
//   counted from 1, with 0 for the whole device.
// Failure: CAException with '!siz' for a size that is not exactly right, 'who?' for an unknown
//   property. What listeners throw passes out.
class HP_Control : public HP_Object {
 public:
  HP_Control(AudioObjectID inObjectID, AudioClassID inClassID, HP_HardwarePlugIn* inPlugIn,
             HP_Device* inOwningDevice);
  ~HP_Control() override;
  HP_Control(const HP_Control&) = delete;
  HP_Control& operator=(const HP_Control&) = delete;

  void Initialize() override;
  void Teardown() override;
  // The device's.
  CAMutex* GetObjectStateMutex() override;
  void Show() const override;

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

  virtual AudioClassID GetBaseClassID() const;
  // The caller owns what it gets, which may be null.
  virtual CFStringRef CopyName() const;
  virtual CFStringRef CopyManufacturerName() const;
  virtual AudioObjectPropertyScope GetPropertyScope() const = 0;
  virtual AudioObjectPropertyElement GetPropertyElement() const = 0;
  virtual UInt32 GetImplementationObject() const;
  virtual UInt32 GetVariant() const;
  virtual bool IsReadOnly() const;

  virtual void ValueChanged() const;
  virtual void RangeChanged() const;
  // What of the device a change of this control changes.
  virtual void GetValueChangedDeviceNotifications(CAPropertyAddressList& outNotifications) const;
  virtual void GetRangeChangedDeviceNotifications(CAPropertyAddressList& outNotifications) const;
  // The first address chooses the stream.
  virtual void SendNotifications(CAPropertyAddressList& inNotifications) const;

  HP_Device* GetOwningDevice() const noexcept { return mOwningDevice; }

  // For a device that makes its list of controls anew.
  bool IsMarked() const noexcept { return mMark; }
  void SetMark(bool inMark) noexcept { mMark = inMark; }

 protected:
  // Throws '!siz' unless the size is the property's.
  void CheckPropertyDataSize(const AudioObjectPropertyAddress& inAddress,
                             UInt32 inQualifierDataSize, const void* inQualifierData,
                             UInt32 inDataSize) const;

 private:
  HP_Device* const mOwningDevice;
  bool mMark;
};
