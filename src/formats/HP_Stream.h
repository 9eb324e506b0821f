#pragma once

#include <CoreAudio/AudioHardware.h>
#include <CoreFoundation/CoreFoundation.h>

#include "objects/HP_Object.h"

class HP_Device;
class HP_FormatList;
class HP_HardwarePlugIn;

// The base of every audio stream.
//
// Purpose: a stream is a run of one direction of a device's channels and has one format. It
//   answers its own properties and has a format list for those of formats and rates.
// Thread: each property operation takes the device's state mutex. The format that the stream has,
//   and the sizes computed from it, may be read on any thread between Initialize and Teardown.
// Ownership: owned by its device, which it does not own; owns its format list.
// Units and range: channels are counted from 1; element 0 is the whole stream or device.
// Failure: CAException with '!siz' for a wrong size, 'who?' for an unknown property. No format may
//   be asked for outside Initialize...Teardown.
class HP_Stream : public HP_Object {
 public:
  HP_Stream(AudioStreamID inAudioStreamID, HP_HardwarePlugIn* inPlugIn, HP_Device* inOwningDevice,
            bool inIsInput, UInt32 inStartingDeviceChannelNumber);
  HP_Stream(AudioStreamID inAudioStreamID, HP_HardwarePlugIn* inPlugIn, HP_Device* inOwningDevice,
            bool inIsInput, UInt32 inStartingDeviceChannelNumber,
            UInt32 inStartingDeviceChannelNumberOffset);
  ~HP_Stream() override;
  HP_Stream(const HP_Stream&) = delete;
  HP_Stream& operator=(const HP_Stream&) = delete;

  void Initialize() override;
  void Teardown() override;
  // The device's, so that one mutex guards a device and its streams.
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

  // Names; the caller owns what it gets, which may be null.
  virtual CFStringRef CopyStreamName() const;
  virtual CFStringRef CopyStreamManufacturerName() const;
  virtual CFStringRef CopyElementFullName(const AudioObjectPropertyAddress& inAddress) const;
  virtual CFStringRef CopyElementCategoryName(const AudioObjectPropertyAddress& inAddress) const;
  virtual CFStringRef CopyElementNumberName(const AudioObjectPropertyAddress& inAddress) const;

  virtual UInt32 GetTerminalType() const;
  // In frames, beyond the device's own.
  virtual UInt32 GetLatency() const;

  // Told when a buffer of this stream comes into use in an I/O procedure's list and goes out of it.
  virtual void RegisterIOBuffer(UInt32 inIOBufferSetID, UInt32 inIOBufferByteSize,
                                void* inIOBuffer);
  virtual void UnregisterIOBuffer(UInt32 inIOBufferSetID, UInt32 inIOBufferByteSize,
                                  void* inIOBuffer);

  // False if the hardware refuses; the format then stays as it was.
  virtual bool TellHardwareToSetPhysicalFormat(const AudioStreamBasicDescription& inFormat);

  HP_Device* GetOwningDevice() const noexcept { return mOwningDevice; }
  bool IsInput() const noexcept { return mIsInput; }
  AudioObjectPropertyScope GetDevicePropertyScope() const noexcept {
    return mIsInput ? kAudioDevicePropertyScopeInput : kAudioDevicePropertyScopeOutput;
  }
  UInt32 GetStartingDeviceChannelNumber() const noexcept {
    return mStartingDeviceChannelNumber + mStartingDeviceChannelNumberOffset;
  }

  // Between the stream's elements and the device's channels. The offset of the starting channel is
  // deliberately left out here: elements are counted from the channel as it was given.
  void ChangeStreamPropertyAddressIntoDevicePropertyAddress(
      AudioObjectPropertyAddress& ioAddress) const noexcept;
  void ChangeDevicePropertyAddressIntoStreamPropertyAddress(
      AudioObjectPropertyAddress& ioAddress) const noexcept;

  HP_FormatList* GetFormatList() const noexcept { return mFormatList; }

  // The format list's operations, for those who have a stream. Those that cannot throw are safe on
  // the I/O thread.
  UInt32 GetCurrentNumberChannels() const noexcept;
  double GetCurrentNominalSampleRate() const noexcept;
  void GetCurrentPhysicalFormat(AudioStreamBasicDescription& outFormat) const noexcept;
  void GetCurrentVirtualFormat(AudioStreamBasicDescription& outFormat) const noexcept;
  UInt32 CalculateIOBufferByteSize(UInt32 inFrameSize) const noexcept;
  UInt32 CalculateIOBufferFrameSize(UInt32 inByteSize) const noexcept;
  bool IsLinearPCM() const noexcept;
  bool IsMixable() const noexcept;
  bool CanSetIsMixable() const;
  void SetIsMixable(bool inIsMixable, bool inTellHardware);
  bool SupportsNominalSampleRate(double inSampleRate) const;
  void SetCurrentNominalSampleRate(double inSampleRate, bool inTellHardware);
  UInt32 GetNumberAvailableNominalSampleRateRanges() const;
  void GetAvailableNominalSampleRateRangeByIndex(UInt32 inIndex, AudioValueRange& outRange) const;

 protected:
  HP_Device* mOwningDevice;
  bool mIsInput;
  UInt32 mStartingDeviceChannelNumber;
  UInt32 mStartingDeviceChannelNumberOffset;
  HP_FormatList* mFormatList;

 private:
  using CopyNameFunction = CFStringRef (*)(const HP_Stream&, const AudioObjectPropertyAddress&);
  static CopyNameFunction FindCopyNameFunction(AudioObjectPropertySelector inSelector);
};
