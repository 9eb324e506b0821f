#pragma once

#include "formats/CAAudioValueRange.h"
#include "objects/HP_Property.h"

class HP_Device;

// The formats of a device: those of all its streams, seen from above.
//
// Purpose: answers rate, rates and mixability for the device as a whole and hands the older forms,
//   which address a format by direction and channel, to the stream that carries the channel.
// Thread: callers hold the device's state mutex.
// Ownership: owned by its device, which it does not own.
// Units and range: rates in frames per second.
// Failure: CAException with 'who?' where there is no stream to ask, '!siz' for a wrong size, '!dat'
//   for a rate that no stream has.
class HP_DeviceFormatList : public HP_Property {
 public:
  explicit HP_DeviceFormatList(HP_Device* inDevice);
  ~HP_DeviceFormatList() override;
  HP_DeviceFormatList(const HP_DeviceFormatList&) = delete;
  HP_DeviceFormatList& operator=(const HP_DeviceFormatList&) = delete;

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
  void GetImplementedAddressByIndex(UInt32 inIndex,
                                    AudioObjectPropertyAddress& outAddress) const override;

  // The device's rates, rising: those that some stream has, or, with the intersection chosen, those
  // that all streams share.
  void GatherAvailableNominalSampleRateRanges(CAAudioValueRangeList& outRanges) const;
  UInt32 GetNumberAvailableMasterNominalSampleRateRanges() const;
  // An index past the end leaves outRange as it was.
  void GetAvailableMasterNominalSampleRateRangeByIndex(UInt32 inIndex,
                                                       AudioValueRange& outRange) const;
  bool SupportsMasterNominalSampleRate(double inSampleRate) const;

 protected:
  HP_Device* mDevice;
  // For a kind of device whose streams must run at one rate; no device here is of that kind.
  bool mUseIntersection = false;

 private:
  bool AllStreamsAreMixable() const;
  void SetIsMixableOfAllStreams(bool inIsMixable);
  void SetNominalSampleRateOfFirstStream(double inSampleRate);
};
