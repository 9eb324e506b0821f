#pragma once

#include "objects/HP_Property.h"

class HP_Control;
class HP_Device;

// Purpose: the older properties by which a device answers for its controls: finds the control that
//   an address means and asks it. An item's name or kind travels in a translation record, whose
//   input is the control property's qualifier.
// Thread: callers hold the device's state mutex.
// Ownership: owned by whoever made it; the device is not.
// Units and range: sizes in bytes.
// Failure: CAException with '!siz' for a wrong size in or of a translation record, and what the
//   control throws. An address without a control has no property: its size is 0, and nothing is got
//   or set.
class HP_DeviceControlProperty : public HP_Property {
 public:
  explicit HP_DeviceControlProperty(HP_Device* inOwningDevice);
  ~HP_DeviceControlProperty() override;

  bool IsActive(const AudioObjectPropertyAddress& inAddress) const override;
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

  UInt32 GetNumberAddressesImplemented() const override;
  // An index past the end leaves outAddress as it was.
  void GetImplementedAddressByIndex(UInt32 inIndex,
                                    AudioObjectPropertyAddress& outAddress) const override;

 private:
  HP_Control* FindControl(const AudioObjectPropertyAddress& inAddress) const;
  // The control's own address for the same thing.
  AudioObjectPropertyAddress MakeControlAddress(const AudioObjectPropertyAddress& inAddress) const;

  HP_Device* mOwningDevice;
};
