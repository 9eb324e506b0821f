#pragma once

#include "formats/HP_Stream.h"

class TMBACLN_Device;
class TMBACLN_PlugIn;

// A stream of the device: one format, 44100 Hz stereo 32-bit float, and no hardware to tell of a
// change.
//
// Thread: every property operation takes the owning device's state mutex. Initialize, Teardown and
//   Finalize run while nobody else uses the stream.
// Ownership: owned by its device; owns neither device nor plug-in.
// Failure: CAException with '!hog' for any set in a process that is locked out, '!siz', '!dat'.
class TMBACLN_Stream : public HP_Stream {
 public:
  TMBACLN_Stream(AudioStreamID inAudioStreamID, TMBACLN_PlugIn* inPlugIn,
                 TMBACLN_Device* inOwningDevice, bool inIsInput,
                 UInt32 inStartingDeviceChannelNumber);
  ~TMBACLN_Stream() override;

  void Initialize() override;
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

  UInt32 GetTerminalType() const override;
  bool TellHardwareToSetPhysicalFormat(const AudioStreamBasicDescription& inFormat) override;

  // Puts a format that cannot be mixed right when the process goes away; the stream stays.
  virtual void Finalize();

  TMBACLN_PlugIn* GetOwningPlugIn() const { return mPlugIn; }

  void AddAvailablePhysicalFormats();
  // Makes the list of formats anew and tells of it.
  void RefreshAvailablePhysicalFormats();

 private:
  void RestoreMixableFormat();

  TMBACLN_PlugIn* mPlugIn;
  TMBACLN_Device* mOwningDevice;
  bool mNonMixable;
};
