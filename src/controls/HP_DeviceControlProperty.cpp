#include "controls/HP_DeviceControlProperty.h"

#include <CoreFoundation/CoreFoundation.h>

#include <cstring>
#include <iterator>

#include "controls/HP_Control.h"
#include "device/HP_Device.h"
#include "objects/CAPropertyAddress.h"
#include "support/CAException.h"

namespace {

constexpr AudioObjectPropertySelector kSelectors[] = {
    'jack', 'volm', 'vold', 'vdb#', 'v2db', 'db2v', 'vctf', 'span', 'spn#', 'mute', 'solo',
    'ssrc', 'ssc#', 'lscn', 'sscn', 'csrc', 'csc#', 'lcsn', 'cscn', 'csck', 'thru', 'thrs',
    'mvsc', 'mvdb', 'mvd#', 'mv2d', 'mv2s', 'mvtf', 'mspn', 'msp#', 'mdds', 'mdd#', 'mddc',
    'mddn', 'nlvl', 'nlv#', 'lcnl', 'cnlv', 'isub', 'svlm', 'svld', 'svd#', 'sv2d', 'sd2v',
    'svtf', 'smut', 'bbvs', 'bbvd', 'bbd#', 'bv2d', 'bd2v', 'bvtf'};
static_assert(std::size(kSelectors) == 52);

// The size of what a translation puts out; 0 for a selector whose data is no translation.
UInt32 GetTranslationOutputSize(AudioObjectPropertySelector inSelector) {
  switch (inSelector) {
    case kAudioDevicePropertyDataSourceNameForIDCFString:
    case kAudioDevicePropertyDataSourceNameForID:
    case kAudioDevicePropertyClockSourceNameForIDCFString:
    case kAudioDevicePropertyClockSourceNameForID:
    case kAudioDevicePropertyPlayThruDestinationNameForIDCFString:
    case kAudioDevicePropertyPlayThruDestinationNameForID:
    case kAudioDevicePropertyChannelNominalLineLevelNameForIDCFString:
    case kAudioDevicePropertyChannelNominalLineLevelNameForID:
      return sizeof(CFStringRef);
    case kAudioDevicePropertyClockSourceKindForID:
      return sizeof(UInt32);
    default:
      return 0;
  }
}

bool IsTranslation(AudioObjectPropertySelector inSelector) {
  return GetTranslationOutputSize(inSelector) != 0;
}

void Require(bool inIsRight) {
  if (!inIsRight) throw CAException(kAudioHardwareBadPropertySizeError);
}

}  // namespace

HP_DeviceControlProperty::HP_DeviceControlProperty(HP_Device* inOwningDevice)
    : mOwningDevice(inOwningDevice) {}

HP_DeviceControlProperty::~HP_DeviceControlProperty() = default;

HP_Control* HP_DeviceControlProperty::FindControl(
    const AudioObjectPropertyAddress& inAddress) const {
  return mOwningDevice->GetControlByAddress(inAddress);
}

AudioObjectPropertyAddress HP_DeviceControlProperty::MakeControlAddress(
    const AudioObjectPropertyAddress& inAddress) const {
  return CAPropertyAddress(
      mOwningDevice->ConvertDeviceSelectorToControlSelector(inAddress.mSelector));
}

bool HP_DeviceControlProperty::IsActive(const AudioObjectPropertyAddress& inAddress) const {
  return FindControl(inAddress) != nullptr;
}

bool HP_DeviceControlProperty::IsPropertySettable(
    const AudioObjectPropertyAddress& inAddress) const {
  const HP_Control* theControl = FindControl(inAddress);
  if (theControl == nullptr || IsTranslation(inAddress.mSelector)) return false;
  return theControl->IsPropertySettable(MakeControlAddress(inAddress));
}

UInt32 HP_DeviceControlProperty::GetPropertyDataSize(const AudioObjectPropertyAddress& inAddress,
                                                     UInt32 inQualifierDataSize,
                                                     const void* inQualifierData) const {
  const HP_Control* theControl = FindControl(inAddress);
  if (theControl == nullptr) return 0;
  if (IsTranslation(inAddress.mSelector)) return sizeof(AudioValueTranslation);
  return theControl->GetPropertyDataSize(MakeControlAddress(inAddress), inQualifierDataSize,
                                         inQualifierData);
}

void HP_DeviceControlProperty::GetPropertyData(const AudioObjectPropertyAddress& inAddress,
                                               UInt32 inQualifierDataSize,
                                               const void* inQualifierData, UInt32& ioDataSize,
                                               void* outData) const {
  const HP_Control* theControl = FindControl(inAddress);
  if (theControl == nullptr) return;
  const AudioObjectPropertyAddress theControlAddress = MakeControlAddress(inAddress);
  if (!IsTranslation(inAddress.mSelector)) {
    theControl->GetPropertyData(theControlAddress, inQualifierDataSize, inQualifierData, ioDataSize,
                                outData);
    return;
  }

  Require(ioDataSize == GetPropertyDataSize(inAddress, inQualifierDataSize, inQualifierData));
  AudioValueTranslation theTranslation;
  std::memcpy(&theTranslation, outData, sizeof(theTranslation));
  Require(theTranslation.mInputDataSize == sizeof(UInt32));
  Require(theTranslation.mInputData != nullptr);
  UInt32 theOutputSize = GetTranslationOutputSize(inAddress.mSelector);
  Require(theTranslation.mOutputDataSize == theOutputSize);
  Require(theTranslation.mOutputData != nullptr);
  theControl->GetPropertyData(theControlAddress, sizeof(UInt32), theTranslation.mInputData,
                              theOutputSize, theTranslation.mOutputData);
}

void HP_DeviceControlProperty::SetPropertyData(const AudioObjectPropertyAddress& inAddress,
                                               UInt32 inQualifierDataSize,
                                               const void* inQualifierData, UInt32 inDataSize,
                                               const void* inData, const AudioTimeStamp* inWhen) {
  HP_Control* theControl = FindControl(inAddress);
  if (theControl == nullptr) return;
  theControl->SetPropertyData(MakeControlAddress(inAddress), inQualifierDataSize, inQualifierData,
                              inDataSize, inData, inWhen);
}

UInt32 HP_DeviceControlProperty::GetNumberAddressesImplemented() const {
  return static_cast<UInt32>(std::size(kSelectors));
}

void HP_DeviceControlProperty::GetImplementedAddressByIndex(
    UInt32 inIndex, AudioObjectPropertyAddress& outAddress) const {
  if (inIndex >= std::size(kSelectors)) return;
  outAddress.mSelector = kSelectors[inIndex];
  outAddress.mScope = kAudioObjectPropertyScopeWildcard;
  outAddress.mElement = kAudioObjectPropertyElementWildcard;
}
