// What a change of format changes.

#include "device/HP_Device.h"
#include "formats/HP_FormatList.h"
#include "formats/HP_Stream.h"
#include "objects/CAPropertyAddress.h"

namespace {

void AppendGlobal(CAPropertyAddressList& outList, AudioObjectPropertySelector inSelector) {
  outList.AppendUniqueItem(CAPropertyAddress(inSelector));
}

// The addresses by which the device knows a property of one of its streams.
void AppendOwnAddresses(CAPropertyAddressList& outList, AudioObjectPropertySelector inSelector,
                        const HP_Stream& inStream) {
  // Its first element; the offset of the starting channel does not count here either.
  CAPropertyAddress theAddress(inSelector, kAudioObjectPropertyScopeGlobal, 1);
  inStream.ChangeStreamPropertyAddressIntoDevicePropertyAddress(theAddress);
  outList.AppendUniqueItem(theAddress);
  if (theAddress.mElement == 1) {
    theAddress.mElement = 0;
    outList.AppendUniqueItem(theAddress);
  }
}

// What a change of rate changes for all streams of a direction.
void AppendRateChange(CAPropertyAddressList& outList, const HP_Device& inDevice, bool inIsInput,
                      AudioObjectPropertyScope inScope) {
  if (!inDevice.HasAnyStreams(inIsInput)) return;
  outList.AppendUniqueItem(CAPropertyAddress(kAudioDevicePropertyLatency, inScope, 0));
  outList.AppendUniqueItem(CAPropertyAddress(kAudioDevicePropertySafetyOffset, inScope, 0));
  const UInt32 theNumberStreams = inDevice.GetNumberStreams(inIsInput);
  for (UInt32 theIndex = 0; theIndex < theNumberStreams; ++theIndex) {
    const HP_Stream& theStream = *inDevice.GetStreamByIndex(inIsInput, theIndex);
    AppendOwnAddresses(outList, kAudioStreamPropertyPhysicalFormat, theStream);
    AppendOwnAddresses(outList, kAudioStreamPropertyVirtualFormat, theStream);
  }
}

}  // namespace

void HP_FormatList::DetermineNotifications(const HP_Device& inDevice, const HP_Stream& inStream,
                                           const AudioStreamBasicDescription& inOldFormat,
                                           const AudioStreamBasicDescription& inNewFormat,
                                           CAPropertyAddressList& outDeviceNotifications,
                                           CAPropertyAddressList& outStreamNotifications) {
  if (inOldFormat == inNewFormat) return;

  AppendOwnAddresses(outDeviceNotifications, kAudioStreamPropertyPhysicalFormat, inStream);
  AppendGlobal(outStreamNotifications, kAudioStreamPropertyPhysicalFormat);

  CAStreamBasicDescription theOldFormat(inOldFormat);
  CAStreamBasicDescription theNewFormat(inNewFormat);
  theOldFormat.mSampleRate = 0.0;
  theNewFormat.mSampleRate = 0.0;
  if (theOldFormat != theNewFormat) {
    AppendGlobal(outDeviceNotifications, kAudioDevicePropertyAvailableNominalSampleRates);
  }

  theOldFormat = inOldFormat;
  theNewFormat = inNewFormat;
  CAStreamBasicDescription::NormalizeLinearPCMFormat(theOldFormat);
  CAStreamBasicDescription::NormalizeLinearPCMFormat(theNewFormat);
  if (theOldFormat != theNewFormat) {
    AppendOwnAddresses(outDeviceNotifications, kAudioStreamPropertyVirtualFormat, inStream);
    AppendGlobal(outStreamNotifications, kAudioStreamPropertyVirtualFormat);
  }

  if (inOldFormat.mSampleRate != inNewFormat.mSampleRate) {
    AppendGlobal(outDeviceNotifications, kAudioDevicePropertyNominalSampleRate);
    // The scope goes with the block, not with the direction: the stream's own comes first, as
    // input, the other second, as output. Listeners rely on it.
    AppendRateChange(outDeviceNotifications, inDevice, inStream.IsInput(),
                     kAudioDevicePropertyScopeInput);
    AppendRateChange(outDeviceNotifications, inDevice, !inStream.IsInput(),
                     kAudioDevicePropertyScopeOutput);
    AppendGlobal(outStreamNotifications, kAudioDevicePropertyNominalSampleRate);
    AppendGlobal(outStreamNotifications, kAudioStreamPropertyLatency);
  }

  if (inOldFormat.mChannelsPerFrame != inNewFormat.mChannelsPerFrame) {
    outDeviceNotifications.AppendUniqueItem(CAPropertyAddress(
        kAudioDevicePropertyStreamConfiguration, inStream.GetDevicePropertyScope(), 0));
  }

  if (CAStreamBasicDescription::IsMixable(inOldFormat) !=
      CAStreamBasicDescription::IsMixable(inNewFormat)) {
    AppendGlobal(outDeviceNotifications, kAudioDevicePropertySupportsMixing);
    AppendGlobal(outStreamNotifications, kAudioDevicePropertySupportsMixing);
  }
}
