#include "formats/HP_Stream.h"

#include "device/HP_Device.h"
#include "formats/HP_FormatList.h"
#include "objects/CAPropertyAddress.h"

HP_Stream::HP_Stream(AudioStreamID inAudioStreamID, HP_HardwarePlugIn* inPlugIn,
                     HP_Device* inOwningDevice, bool inIsInput,
                     UInt32 inStartingDeviceChannelNumber)
    : HP_Stream(inAudioStreamID, inPlugIn, inOwningDevice, inIsInput, inStartingDeviceChannelNumber,
                0) {}

HP_Stream::HP_Stream(AudioStreamID inAudioStreamID, HP_HardwarePlugIn* inPlugIn,
                     HP_Device* inOwningDevice, bool inIsInput,
                     UInt32 inStartingDeviceChannelNumber,
                     UInt32 inStartingDeviceChannelNumberOffset)
    : HP_Object(inAudioStreamID, kAudioStreamClassID, inPlugIn),
      mOwningDevice(inOwningDevice),
      mIsInput(inIsInput),
      mStartingDeviceChannelNumber(inStartingDeviceChannelNumber),
      mStartingDeviceChannelNumberOffset(inStartingDeviceChannelNumberOffset),
      mFormatList(nullptr) {}

HP_Stream::~HP_Stream() {
  delete mFormatList;
}

void HP_Stream::Initialize() {
  HP_Object::Initialize();
  // Kept before it is added: addresses that were added stay even if a later one is refused.
  mFormatList = new HP_FormatList(this);
  AddProperty(mFormatList);
}

void HP_Stream::Teardown() {
  if (mFormatList != nullptr) {
    RemoveProperty(mFormatList);
    delete mFormatList;
    mFormatList = nullptr;
  }
  HP_Object::Teardown();
}

CAMutex* HP_Stream::GetObjectStateMutex() {
  return mOwningDevice->GetObjectStateMutex();
}

CFStringRef HP_Stream::CopyStreamName() const {
  return nullptr;
}

CFStringRef HP_Stream::CopyStreamManufacturerName() const {
  return mOwningDevice->CopyDeviceManufacturerName();
}

CFStringRef HP_Stream::CopyElementFullName(const AudioObjectPropertyAddress& inAddress) const {
  CAPropertyAddress theAddress(inAddress);
  ChangeStreamPropertyAddressIntoDevicePropertyAddress(theAddress);
  return mOwningDevice->CopyElementFullName(theAddress);
}

CFStringRef HP_Stream::CopyElementCategoryName(const AudioObjectPropertyAddress& inAddress) const {
  CAPropertyAddress theAddress(inAddress);
  ChangeStreamPropertyAddressIntoDevicePropertyAddress(theAddress);
  return mOwningDevice->CopyElementCategoryName(theAddress);
}

CFStringRef HP_Stream::CopyElementNumberName(const AudioObjectPropertyAddress& inAddress) const {
  CAPropertyAddress theAddress(inAddress);
  ChangeStreamPropertyAddressIntoDevicePropertyAddress(theAddress);
  return mOwningDevice->CopyElementNumberName(theAddress);
}

UInt32 HP_Stream::GetTerminalType() const {
  return 0;
}

UInt32 HP_Stream::GetLatency() const {
  return 0;
}

void HP_Stream::RegisterIOBuffer(UInt32, UInt32, void*) {}

void HP_Stream::UnregisterIOBuffer(UInt32, UInt32, void*) {}

bool HP_Stream::TellHardwareToSetPhysicalFormat(const AudioStreamBasicDescription&) {
  return true;
}

void HP_Stream::ChangeStreamPropertyAddressIntoDevicePropertyAddress(
    AudioObjectPropertyAddress& ioAddress) const noexcept {
  ioAddress.mScope = GetDevicePropertyScope();
  if (ioAddress.mElement != 0) {
    ioAddress.mElement = ioAddress.mElement + mStartingDeviceChannelNumber - 1;
  }
}

void HP_Stream::ChangeDevicePropertyAddressIntoStreamPropertyAddress(
    AudioObjectPropertyAddress& ioAddress) const noexcept {
  ioAddress.mScope = kAudioObjectPropertyScopeGlobal;
  if (ioAddress.mElement != 0) {
    ioAddress.mElement = ioAddress.mElement - mStartingDeviceChannelNumber + 1;
  }
}

UInt32 HP_Stream::GetCurrentNumberChannels() const noexcept {
  return mFormatList->GetCurrentNumberChannels();
}

double HP_Stream::GetCurrentNominalSampleRate() const noexcept {
  return mFormatList->GetCurrentNominalSampleRate();
}

void HP_Stream::GetCurrentPhysicalFormat(AudioStreamBasicDescription& outFormat) const noexcept {
  mFormatList->GetCurrentPhysicalFormat(outFormat);
}

void HP_Stream::GetCurrentVirtualFormat(AudioStreamBasicDescription& outFormat) const noexcept {
  mFormatList->GetCurrentVirtualFormat(outFormat);
}

UInt32 HP_Stream::CalculateIOBufferByteSize(UInt32 inFrameSize) const noexcept {
  return mFormatList->CalculateIOBufferByteSize(inFrameSize);
}

UInt32 HP_Stream::CalculateIOBufferFrameSize(UInt32 inByteSize) const noexcept {
  return mFormatList->CalculateIOBufferFrameSize(inByteSize);
}

bool HP_Stream::IsLinearPCM() const noexcept {
  return mFormatList->IsLinearPCM();
}

bool HP_Stream::IsMixable() const noexcept {
  return mFormatList->IsMixable();
}

bool HP_Stream::CanSetIsMixable() const {
  return mFormatList->CanSetIsMixable();
}

void HP_Stream::SetIsMixable(bool inIsMixable, bool inTellHardware) {
  mFormatList->SetIsMixable(inIsMixable, inTellHardware);
}

bool HP_Stream::SupportsNominalSampleRate(double inSampleRate) const {
  return mFormatList->SupportsNominalSampleRate(inSampleRate);
}

void HP_Stream::SetCurrentNominalSampleRate(double inSampleRate, bool inTellHardware) {
  mFormatList->SetCurrentNominalSampleRate(inSampleRate, inTellHardware);
}

UInt32 HP_Stream::GetNumberAvailableNominalSampleRateRanges() const {
  return mFormatList->GetNumberAvailableNominalSampleRateRanges();
}

void HP_Stream::GetAvailableNominalSampleRateRangeByIndex(UInt32 inIndex,
                                                          AudioValueRange& outRange) const {
  mFormatList->GetAvailableNominalSampleRateRangeByIndex(inIndex, outRange);
}
