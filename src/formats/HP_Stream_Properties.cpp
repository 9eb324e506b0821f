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

using NumberFunction = UInt32 (*)(const HP_Stream&);

// How a property that is a number is read; null if it is none.
NumberFunction FindNumberFunction(AudioObjectPropertySelector inSelector) noexcept {
  switch (inSelector) {
    case kAudioStreamPropertyLatency:
      return [](const HP_Stream& inStream) { return inStream.GetLatency(); };
    case kAudioStreamPropertyStartingChannel:
      return [](const HP_Stream& inStream) { return inStream.GetStartingDeviceChannelNumber(); };
    case kAudioStreamPropertyDirection:
      return [](const HP_Stream& inStream) { return inStream.IsInput() ? 1U : 0U; };
    case kAudioStreamPropertyTerminalType:
      return [](const HP_Stream& inStream) { return inStream.GetTerminalType(); };
    default:
      return nullptr;
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
  return FindNumberFunction(inAddress.mSelector) != nullptr || HP_Object::HasProperty(inAddress);
}

bool HP_Stream::IsPropertySettable(const AudioObjectPropertyAddress& inAddress) const {
  CAMutex::Locker theStateMutex(mOwningDevice->GetDeviceStateMutex());

  if (FindCopyNameFunction(inAddress.mSelector) != nullptr ||
      FindNumberFunction(inAddress.mSelector) != nullptr) {
    return false;
  }
  return HP_Object::IsPropertySettable(inAddress);
}

UInt32 HP_Stream::GetPropertyDataSize(const AudioObjectPropertyAddress& inAddress,
                                      UInt32 inQualifierDataSize,
                                      const void* inQualifierData) const {
  CAMutex::Locker theStateMutex(mOwningDevice->GetDeviceStateMutex());

  if (FindCopyNameFunction(inAddress.mSelector) != nullptr) return sizeof(CFStringRef);
  if (FindNumberFunction(inAddress.mSelector) != nullptr) return sizeof(UInt32);
  return HP_Object::GetPropertyDataSize(inAddress, inQualifierDataSize, inQualifierData);
}

void HP_Stream::GetPropertyData(const AudioObjectPropertyAddress& inAddress,
                                UInt32 inQualifierDataSize, const void* inQualifierData,
                                UInt32& ioDataSize, void* outData) const {
  CAMutex::Locker theStateMutex(mOwningDevice->GetDeviceStateMutex());

  const CopyNameFunction copyName = FindCopyNameFunction(inAddress.mSelector);
  const NumberFunction getNumber = FindNumberFunction(inAddress.mSelector);
  if (copyName == nullptr && getNumber == nullptr) {
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

  const UInt32 theValue = getNumber(*this);
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
