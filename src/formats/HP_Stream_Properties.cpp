// The property surface of a stream.

#include <cstdio>
#include <cstring>

#include "device/HP_Device.h"
#include "formats/HP_Stream.h"
#include "support/CAException.h"
#include "support/CAMutex.h"

HP_Stream::CopyNameFunction HP_Stream::FindCopyNameFunction(
    AudioObjectPropertySelector inSelector) {
  switch (inSelector) {
    case kAudioObjectPropertyName:
      return [](const HP_Stream& inStream, const AudioObjectPropertyAddress&) {
        return inStream.CopyStreamName();
      };
    case kAudioObjectPropertyManufacturer:
      return [](const HP_Stream& inStream, const AudioObjectPropertyAddress&) {
        return inStream.CopyStreamManufacturerName();
      };
    case kAudioObjectPropertyElementName:
      return [](const HP_Stream& inStream, const AudioObjectPropertyAddress& inAddress) {
        return inStream.CopyElementFullName(inAddress);
      };
    case kAudioObjectPropertyElementCategoryName:
      return [](const HP_Stream& inStream, const AudioObjectPropertyAddress& inAddress) {
        return inStream.CopyElementCategoryName(inAddress);
      };
    case kAudioObjectPropertyElementNumberName:
      return [](const HP_Stream& inStream, const AudioObjectPropertyAddress& inAddress) {
        return inStream.CopyElementNumberName(inAddress);
      };
    default:
      return nullptr;
  }
}

namespace {

bool IsNumberSelector(AudioObjectPropertySelector inSelector) noexcept {
  switch (inSelector) {
    case kAudioStreamPropertyLatency:
    case kAudioStreamPropertyStartingChannel:
    case kAudioStreamPropertyDirection:
    case kAudioStreamPropertyTerminalType:
      return true;
    default:
      return false;
  }
}

}  // namespace

bool HP_Stream::HasProperty(const AudioObjectPropertyAddress& inAddress) const {
  CAMutex::Locker theStateMutex(mOwningDevice->GetDeviceStateMutex());

  if (const CopyNameFunction copyName = FindCopyNameFunction(inAddress.mSelector)) {
    const CFStringRef theName = copyName(*this, inAddress);
    if (theName == nullptr) return false;
    CFRelease(theName);
    return true;
  }
  return IsNumberSelector(inAddress.mSelector) || HP_Object::HasProperty(inAddress);
}

bool HP_Stream::IsPropertySettable(const AudioObjectPropertyAddress& inAddress) const {
  CAMutex::Locker theStateMutex(mOwningDevice->GetDeviceStateMutex());

  if (FindCopyNameFunction(inAddress.mSelector) != nullptr ||
      IsNumberSelector(inAddress.mSelector)) {
    return false;
  }
  return HP_Object::IsPropertySettable(inAddress);
}

UInt32 HP_Stream::GetPropertyDataSize(const AudioObjectPropertyAddress& inAddress,
                                      UInt32 inQualifierDataSize,
                                      const void* inQualifierData) const {
  CAMutex::Locker theStateMutex(mOwningDevice->GetDeviceStateMutex());

  if (FindCopyNameFunction(inAddress.mSelector) != nullptr) return sizeof(CFStringRef);
  if (IsNumberSelector(inAddress.mSelector)) return sizeof(UInt32);
  return HP_Object::GetPropertyDataSize(inAddress, inQualifierDataSize, inQualifierData);
}

void HP_Stream::GetPropertyData(const AudioObjectPropertyAddress& inAddress,
                                UInt32 inQualifierDataSize, const void* inQualifierData,
                                UInt32& ioDataSize, void* outData) const {
  CAMutex::Locker theStateMutex(mOwningDevice->GetDeviceStateMutex());

  const CopyNameFunction copyName = FindCopyNameFunction(inAddress.mSelector);
  if (copyName == nullptr && !IsNumberSelector(inAddress.mSelector)) {
    HP_Object::GetPropertyData(inAddress, inQualifierDataSize, inQualifierData, ioDataSize,
                               outData);
    return;
  }
  if (ioDataSize != GetPropertyDataSize(inAddress, inQualifierDataSize, inQualifierData)) {
    throw CAException(kAudioHardwareBadPropertySizeError);
  }
  if (copyName != nullptr) {
    const CFStringRef theName = copyName(*this, inAddress);
    std::memcpy(outData, &theName, sizeof(theName));
    return;
  }

  UInt32 theValue = 0;
  switch (inAddress.mSelector) {
    case kAudioStreamPropertyLatency:
      theValue = GetLatency();
      break;
    case kAudioStreamPropertyStartingChannel:
      theValue = GetStartingDeviceChannelNumber();
      break;
    case kAudioStreamPropertyDirection:
      theValue = IsInput() ? 1 : 0;
      break;
    case kAudioStreamPropertyTerminalType:
      theValue = GetTerminalType();
      break;
    default:
      break;
  }
  std::memcpy(outData, &theValue, sizeof(theValue));
}

void HP_Stream::SetPropertyData(const AudioObjectPropertyAddress& inAddress,
                                UInt32 inQualifierDataSize, const void* inQualifierData,
                                UInt32 inDataSize, const void* inData,
                                const AudioTimeStamp* inWhen) {
  CAMutex::Locker theStateMutex(mOwningDevice->GetDeviceStateMutex());

  HP_Object::SetPropertyData(inAddress, inQualifierDataSize, inQualifierData, inDataSize, inData,
                             inWhen);
}

void HP_Stream::Show() const {
  char theName[256];
  GetNameText(theName, sizeof(theName));
  std::printf(
      "AudioObjectID:\t0x%lX\n\tClass:\t\t%s\n\tName:\t\t%s\n\tDirection:\t%s\n\tChannels:\t%lu\n",
      static_cast<unsigned long>(GetObjectID()), "Audio Stream", theName,
      IsInput() ? "Input" : "Output", static_cast<unsigned long>(GetCurrentNumberChannels()));
}
