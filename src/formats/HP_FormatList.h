#pragma once

#include <CoreAudio/AudioHardware.h>

#include <vector>

#include "formats/CAAudioValueRange.h"
#include "formats/CAStreamBasicDescription.h"
#include "objects/HP_Property.h"
#include "support/CASequenceLocked.h"

class CAPropertyAddressList;
class HP_Device;
class HP_Stream;

// What formats a stream can have and which one it has.
//
// Purpose: answers every format and rate property of a stream, chooses the best format for a
//   request and tells which properties a change of format changes. The physical format is the
//   hardware's; the virtual one is what clients see: a mixable physical format as 32-bit float,
//   any other as it is.
// Thread: callers hold the state mutex of the stream's device. Reading the current format, and all
//   that is computed from it alone, is also safe without it, on the I/O thread too.
// Ownership: owned by its stream, which it does not own.
// Units and range: rates in frames per second, sizes in bytes. A list index past the end leaves
//   the output as it was.
// Failure: CAException with '!siz' for a wrong size, '!dat' for a rate or format that cannot be
//   had.
class HP_FormatList : public HP_Property {
 public:
  // A format and the rates at which it can be had.
  struct AvailableFormat {
    AvailableFormat(const AudioStreamBasicDescription& inFormat, const AudioValueRange& inRange)
        : mFormat(inFormat), mSampleRateRanges(1, CAAudioValueRange(inRange)) {}

    CAStreamBasicDescription mFormat;         // its rate is always 0
    CAAudioValueRangeList mSampleRateRanges;  // highest first
  };
  // Rising by the order of formats.
  using AvailableFormatList = std::vector<AvailableFormat>;

  explicit HP_FormatList(HP_Stream* inStream);
  ~HP_FormatList() override;
  HP_FormatList(const HP_FormatList&) = delete;
  HP_FormatList& operator=(const HP_FormatList&) = delete;

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

  // The current format. With inTellHardware the stream is asked first; if it refuses, nothing
  // changes.
  void GetCurrentPhysicalFormat(AudioStreamBasicDescription& outFormat) const noexcept;
  void SetCurrentPhysicalFormat(const AudioStreamBasicDescription& inFormat, bool inTellHardware);
  void GetCurrentVirtualFormat(AudioStreamBasicDescription& outFormat) const noexcept;
  void SetCurrentVirtualFormat(const AudioStreamBasicDescription& inFormat, bool inTellHardware);
  double GetCurrentNominalSampleRate() const noexcept;
  UInt32 GetCurrentNumberChannels() const noexcept;

  bool IsLinearPCM() const noexcept;
  bool IsMixable() const noexcept;
  bool CanSetIsMixable() const;
  void SetIsMixable(bool inIsMixable, bool inTellHardware);

  // The available formats; each format with each of its ranges counts as one.
  UInt32 GetNumberAvailablePhysicalFormats() const;
  void GetAvailablePhysicalFormatByIndex(UInt32 inIndex,
                                         AudioStreamRangedDescription& outFormat) const;
  bool SupportsPhysicalFormat(const AudioStreamBasicDescription& inFormat) const;
  void BestMatchForPhysicalFormat(AudioStreamBasicDescription& ioFormat) const;
  bool SanityCheckPhysicalFormat(const AudioStreamBasicDescription& inFormat) const;

  UInt32 GetNumberAvailableVirtualFormats() const;
  void GetAvailableVirtualFormatByIndex(UInt32 inIndex,
                                        AudioStreamRangedDescription& outFormat) const;
  bool SupportsVirtualFormat(const AudioStreamBasicDescription& inFormat) const;
  void BestMatchForVirtualFormat(AudioStreamBasicDescription& ioFormat) const;
  bool SanityCheckVirtualFormat(const AudioStreamBasicDescription& inFormat) const;

  // Whether a physical format stands behind a virtual one; ioFormat becomes it if so.
  bool ConvertVirtualFormatToPhysicalFormat(AudioStreamBasicDescription& ioFormat) const;

  // The rates of all physical formats, rising and merged. A rate that is not among them changes
  // nothing.
  bool SupportsNominalSampleRate(double inSampleRate) const;
  void SetCurrentNominalSampleRate(double inSampleRate, bool inTellHardware);
  UInt32 GetNumberAvailableNominalSampleRateRanges() const;
  void GetAvailableNominalSampleRateRangeByIndex(UInt32 inIndex, AudioValueRange& outRange) const;
  void GatherAvailableNominalSampleRateRanges(CAAudioValueRangeList& outRanges) const;

  void AddPhysicalFormat(const AudioStreamRangedDescription& inFormat);
  void RemoveAllFormats();

  // What a buffer of the current virtual format, or of the one given, takes. Safe on the I/O
  // thread.
  UInt32 CalculateIOBufferByteSize(UInt32 inFrameSize) const noexcept;
  static UInt32 CalculateIOBufferByteSize(const AudioStreamBasicDescription& inFormat,
                                          UInt32 inFrameSize) noexcept;
  UInt32 CalculateIOBufferFrameSize(UInt32 inByteSize) const noexcept;
  static UInt32 CalculateIOBufferFrameSize(const AudioStreamBasicDescription& inFormat,
                                           UInt32 inByteSize) noexcept;

  // Appends the addresses that a change of inStream's physical format changes; sends nothing.
  static void DetermineNotifications(const HP_Device& inDevice, const HP_Stream& inStream,
                                     const AudioStreamBasicDescription& inOldFormat,
                                     const AudioStreamBasicDescription& inNewFormat,
                                     CAPropertyAddressList& outDeviceNotifications,
                                     CAPropertyAddressList& outStreamNotifications);

  // The selectors of the addresses that are implemented, in their order.
  static constexpr UInt32 kNumberSelectors = 13;
  static const AudioObjectPropertySelector sSelectors[kNumberSelectors];

 private:
  HP_Stream* mStream;
  // Written under the device's state mutex; the I/O thread reads it without.
  CASequenceLocked<AudioStreamBasicDescription> mCurrentPhysicalFormat;
  AvailableFormatList mAvailablePhysicalFormats;
  AvailableFormatList mAvailableVirtualFormats;
};
