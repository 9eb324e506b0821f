#include "client/TMBACLN_Stream.h"

#include <cstring>

#include "client/TMBACLN_Device.h"
#include "client/TMBACLN_PlugIn.h"
#include "formats/CAStreamBasicDescription.h"
#include "formats/HP_FormatList.h"
#include "objects/CAPropertyAddress.h"
#include "support/CAException.h"
#include "support/CAGuard.h"
#include "support/CAMutex.h"

namespace {

constexpr Float64 kSampleRate = 44100.0;

constexpr AudioStreamRangedDescription kTheFormat = {
    .mFormat = {.mSampleRate = kSampleRate,
                .mFormatID = kAudioFormatLinearPCM,
                .mFormatFlags = kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked,
                .mBytesPerPacket = 8,
                .mFramesPerPacket = 1,
                .mBytesPerFrame = 8,
                .mChannelsPerFrame = 2,
                .mBitsPerChannel = 32,
                .mReserved = 0},
    .mSampleRateRange = {kSampleRate, kSampleRate}};

// The caller's memory need not be aligned.
template <class T>
T ReadValue(UInt32 inDataSize, const void* inData) {
  if (inDataSize != sizeof(T)) throw CAException(kAudioHardwareBadPropertySizeError);
  T value;
  std::memcpy(&value, inData, sizeof(value));
  return value;
}

}  // namespace

TMBACLN_Stream::TMBACLN_Stream(AudioStreamID inAudioStreamID, TMBACLN_PlugIn* inPlugIn,
                               TMBACLN_Device* inOwningDevice, bool inIsInput,
                               UInt32 inStartingDeviceChannelNumber)
    : HP_Stream(inAudioStreamID, inPlugIn, inOwningDevice, inIsInput,
                inStartingDeviceChannelNumber),
      mPlugIn(inPlugIn),
      mOwningDevice(inOwningDevice),
      mNonMixable(false) {}

TMBACLN_Stream::~TMBACLN_Stream() = default;

void TMBACLN_Stream::Initialize() {
  HP_Stream::Initialize();
  AddAvailablePhysicalFormats();
  AudioStreamRangedDescription format{};
  GetFormatList()->GetAvailablePhysicalFormatByIndex(0, format);
  GetFormatList()->SetCurrentPhysicalFormat(format.mFormat, false);
}

void TMBACLN_Stream::AddAvailablePhysicalFormats() {
  GetFormatList()->AddPhysicalFormat(kTheFormat);
}

void TMBACLN_Stream::Teardown() {
  RestoreMixableFormat();
  HP_Stream::Teardown();
}

void TMBACLN_Stream::Finalize() {
  RestoreMixableFormat();
}

void TMBACLN_Stream::RestoreMixableFormat() {
  if (!mNonMixable) return;
  HP_FormatList* list = GetFormatList();
  AudioStreamBasicDescription format{};
  list->GetCurrentPhysicalFormat(format);
  if (format.mFormatID != kAudioFormatLinearPCM) {
    // Zeroes are wildcards: any linear format will do.
    format.mFormatID = kAudioFormatLinearPCM;
    format.mFormatFlags = 0;
    format.mBytesPerPacket = 0;
    format.mFramesPerPacket = 1;
    format.mBytesPerFrame = 0;
    format.mChannelsPerFrame = 0;
    format.mBitsPerChannel = 0;
    list->BestMatchForPhysicalFormat(format);
  } else {
    format.mFormatFlags &= ~static_cast<UInt32>(kAudioFormatFlagIsNonMixable);
  }
  list->BestMatchForPhysicalFormat(format);
  TellHardwareToSetPhysicalFormat(format);
}

bool TMBACLN_Stream::HasProperty(const AudioObjectPropertyAddress& inAddress) const {
  CAMutex::Locker locker(mOwningDevice->GetDeviceStateMutex());
  return HP_Stream::HasProperty(inAddress);
}

bool TMBACLN_Stream::IsPropertySettable(const AudioObjectPropertyAddress& inAddress) const {
  CAMutex::Locker locker(mOwningDevice->GetDeviceStateMutex());
  return HP_Stream::IsPropertySettable(inAddress);
}

UInt32 TMBACLN_Stream::GetPropertyDataSize(const AudioObjectPropertyAddress& inAddress,
                                           UInt32 inQualifierDataSize,
                                           const void* inQualifierData) const {
  CAMutex::Locker locker(mOwningDevice->GetDeviceStateMutex());
  return HP_Stream::GetPropertyDataSize(inAddress, inQualifierDataSize, inQualifierData);
}

void TMBACLN_Stream::GetPropertyData(const AudioObjectPropertyAddress& inAddress,
                                     UInt32 inQualifierDataSize, const void* inQualifierData,
                                     UInt32& ioDataSize, void* outData) const {
  CAMutex::Locker locker(mOwningDevice->GetDeviceStateMutex());
  HP_Stream::GetPropertyData(inAddress, inQualifierDataSize, inQualifierData, ioDataSize, outData);
}

void TMBACLN_Stream::SetPropertyData(const AudioObjectPropertyAddress& inAddress,
                                     UInt32 inQualifierDataSize, const void* inQualifierData,
                                     UInt32 inDataSize, const void* inData,
                                     const AudioTimeStamp* inWhen) {
  if (!mOwningDevice->HogModeIsOwnedBySelfOrIsFree()) {
    throw CAException(kAudioDevicePermissionsError);
  }
  CAMutex::Locker locker(mOwningDevice->GetDeviceStateMutex());
  HP_FormatList* list = GetFormatList();
  switch (inAddress.mSelector) {
    case kAudioDevicePropertySupportsMixing: {
      const bool isMixable = ReadValue<UInt32>(inDataSize, inData) != 0;
      mNonMixable = !isMixable;
      list->SetIsMixable(isMixable, true);
      break;
    }
    case kAudioStreamPropertyPhysicalFormat: {
      auto format = ReadValue<AudioStreamBasicDescription>(inDataSize, inData);
      if (!list->SanityCheckPhysicalFormat(format)) {
        throw CAException(kAudioDeviceUnsupportedFormatError);
      }
      list->BestMatchForPhysicalFormat(format);
      mNonMixable = !CAStreamBasicDescription::IsMixable(format);
      list->SetCurrentPhysicalFormat(format, true);
      break;
    }
    case kAudioStreamPropertyVirtualFormat: {
      auto format = ReadValue<AudioStreamBasicDescription>(inDataSize, inData);
      if (!list->SanityCheckVirtualFormat(format)) {
        throw CAException(kAudioDeviceUnsupportedFormatError);
      }
      list->BestMatchForVirtualFormat(format);
      mNonMixable = !CAStreamBasicDescription::IsMixable(format);
      list->SetCurrentVirtualFormat(format, true);
      break;
    }
    default:
      HP_Stream::SetPropertyData(inAddress, inQualifierDataSize, inQualifierData, inDataSize,
                                 inData, inWhen);
      break;
  }
}

UInt32 TMBACLN_Stream::GetTerminalType() const {
  return kAudioStreamTerminalTypeDigitalAudioInterface;
}

bool TMBACLN_Stream::TellHardwareToSetPhysicalFormat(const AudioStreamBasicDescription& inFormat) {
  return HP_Stream::TellHardwareToSetPhysicalFormat(inFormat);
}

void TMBACLN_Stream::RefreshAvailablePhysicalFormats() {
  GetFormatList()->RemoveAllFormats();
  AddAvailablePhysicalFormats();
  CAPropertyAddressList changes;
  changes.AppendUniqueItem(CAPropertyAddress(kAudioStreamPropertyAvailablePhysicalFormats));
  changes.AppendUniqueItem(CAPropertyAddress(kAudioStreamPropertyAvailableVirtualFormats));
  changes.AppendUniqueItem(CAPropertyAddress(kAudioStreamPropertyPhysicalFormats));
  changes.AppendUniqueItem(CAPropertyAddress(kAudioDevicePropertyStreamFormats));
  // The notification takes the state mutex anew, which comes before the guard: who has both lets go
  // of the guard meanwhile.
  CAGuard* guard = mOwningDevice->GetIOGuard();
  const bool hadGuard = guard != nullptr && guard->IsOwnedByCurrentThread();
  if (hadGuard) guard->Unlock();
  PropertiesChanged(changes.GetNumberItems(), changes.GetItems());
  if (hadGuard) guard->Lock();
}
