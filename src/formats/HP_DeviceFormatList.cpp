#include "formats/HP_DeviceFormatList.h"

#include <algorithm>
#include <cstring>

#include "device/HP_Device.h"
#include "formats/HP_FormatList.h"
#include "formats/HP_Stream.h"
#include "objects/CAPropertyAddress.h"
#include "support/CAException.h"

namespace {

// The stream that an address of the device means, and the address as that stream knows it.
class StreamOfAddress {
 public:
  StreamOfAddress(const HP_Device& inDevice, const AudioObjectPropertyAddress& inAddress)
      : mAddress(inAddress), mStream(inDevice.GetStreamByPropertyAddress(inAddress, false)) {
    if (mStream == nullptr) throw CAException(kAudioHardwareUnknownPropertyError);
    mStream->ChangeDevicePropertyAddressIntoStreamPropertyAddress(mAddress);
  }

  const AudioObjectPropertyAddress& Address() const noexcept { return mAddress; }
  HP_Stream* operator->() const noexcept { return mStream; }

 private:
  CAPropertyAddress mAddress;
  HP_Stream* mStream;
};

// Calls inOperation with each stream of a direction until it answers false.
template <class Operation>
bool WalkStreams(const HP_Device& inDevice, bool inIsInput, Operation inOperation) {
  const UInt32 theNumberStreams = inDevice.GetNumberStreams(inIsInput);
  for (UInt32 theIndex = 0; theIndex < theNumberStreams; ++theIndex) {
    if (!inOperation(*inDevice.GetStreamByIndex(inIsInput, theIndex))) return false;
  }
  return true;
}

void CheckSize(UInt32 inDataSize, size_t inNeededSize) {
  if (inDataSize != inNeededSize) throw CAException(kAudioHardwareBadPropertySizeError);
}

bool IsMaster(const AudioObjectPropertyAddress& inAddress) noexcept {
  return inAddress.mElement == kAudioObjectPropertyElementMaster;
}

}  // namespace

HP_DeviceFormatList::HP_DeviceFormatList(HP_Device* inDevice) : mDevice(inDevice) {}

HP_DeviceFormatList::~HP_DeviceFormatList() = default;

bool HP_DeviceFormatList::IsActive(const AudioObjectPropertyAddress& inAddress) const {
  switch (inAddress.mSelector) {
    case kAudioDevicePropertySupportsMixing:
    case kAudioDevicePropertyAvailableNominalSampleRates:
    case kAudioDevicePropertyNominalSampleRate:
      return true;
    default:
      break;
  }
  switch (inAddress.mScope) {
    case kAudioDevicePropertyScopeInput:
      return mDevice->HasAnyStreams(true);
    case kAudioDevicePropertyScopeOutput:
      return mDevice->HasAnyStreams(false);
    default:
      return false;
  }
}

bool HP_DeviceFormatList::IsPropertySettable(const AudioObjectPropertyAddress& inAddress) const {
  switch (inAddress.mSelector) {
    case kAudioDevicePropertySupportsMixing:
      if (IsMaster(inAddress))
        return mDevice->CanSetIsMixable(true) || mDevice->CanSetIsMixable(false);
      break;
    case kAudioDevicePropertyAvailableNominalSampleRates:
      return false;
    case kAudioDevicePropertyNominalSampleRate:
      return true;
    default:
      break;
  }
  const StreamOfAddress theStream(*mDevice, inAddress);
  return theStream->IsPropertySettable(theStream.Address());
}

UInt32 HP_DeviceFormatList::GetPropertyDataSize(const AudioObjectPropertyAddress& inAddress,
                                                UInt32 inQualifierDataSize,
                                                const void* inQualifierData) const {
  switch (inAddress.mSelector) {
    case kAudioDevicePropertySupportsMixing:
      return sizeof(UInt32);
    case kAudioDevicePropertyAvailableNominalSampleRates:
      if (IsMaster(inAddress)) {
        return GetNumberAvailableMasterNominalSampleRateRanges() *
               static_cast<UInt32>(sizeof(AudioValueRange));
      }
      break;
    case kAudioDevicePropertyNominalSampleRate:
      return sizeof(Float64);
    default:
      break;
  }
  const StreamOfAddress theStream(*mDevice, inAddress);
  return theStream->GetPropertyDataSize(theStream.Address(), inQualifierDataSize, inQualifierData);
}

void HP_DeviceFormatList::GetPropertyData(const AudioObjectPropertyAddress& inAddress,
                                          UInt32 inQualifierDataSize, const void* inQualifierData,
                                          UInt32& ioDataSize, void* outData) const {
  switch (inAddress.mSelector) {
    case kAudioDevicePropertySupportsMixing:
      if (IsMaster(inAddress)) {
        CheckSize(ioDataSize, sizeof(UInt32));
        const UInt32 theValue = AllStreamsAreMixable() ? 1 : 0;
        std::memcpy(outData, &theValue, sizeof(theValue));
        return;
      }
      break;

    case kAudioDevicePropertyAvailableNominalSampleRates:
      if (IsMaster(inAddress)) {
        CAAudioValueRangeList theRanges;
        GatherAvailableNominalSampleRateRanges(theRanges);
        std::sort(theRanges.begin(), theRanges.end(), CAAudioValueRange::LessThan());
        const size_t theNumberRanges =
            std::min(ioDataSize / sizeof(AudioValueRange), theRanges.size());
        ioDataSize = static_cast<UInt32>(theNumberRanges * sizeof(AudioValueRange));
        if (theNumberRanges != 0) std::memcpy(outData, theRanges.data(), ioDataSize);
        return;
      }
      break;

    case kAudioDevicePropertyNominalSampleRate: {
      CheckSize(ioDataSize, sizeof(Float64));
      const Float64 theRate = mDevice->GetCurrentNominalSampleRate();
      std::memcpy(outData, &theRate, sizeof(theRate));
      return;
    }

    default:
      break;
  }
  const StreamOfAddress theStream(*mDevice, inAddress);
  theStream->GetPropertyData(theStream.Address(), inQualifierDataSize, inQualifierData, ioDataSize,
                             outData);
}

void HP_DeviceFormatList::SetPropertyData(const AudioObjectPropertyAddress& inAddress,
                                          UInt32 inQualifierDataSize, const void* inQualifierData,
                                          UInt32 inDataSize, const void* inData,
                                          const AudioTimeStamp* inWhen) {
  if (IsMaster(inAddress) && inAddress.mSelector == kAudioDevicePropertySupportsMixing) {
    UInt32 theValue;
    CheckSize(inDataSize, sizeof(theValue));
    std::memcpy(&theValue, inData, sizeof(theValue));
    SetIsMixableOfAllStreams(theValue != 0);
    return;
  }
  if (IsMaster(inAddress) && inAddress.mSelector == kAudioDevicePropertyNominalSampleRate) {
    Float64 theRate;
    CheckSize(inDataSize, sizeof(theRate));
    std::memcpy(&theRate, inData, sizeof(theRate));
    SetNominalSampleRateOfFirstStream(theRate);
    return;
  }
  const StreamOfAddress theStream(*mDevice, inAddress);
  theStream->SetPropertyData(theStream.Address(), inQualifierDataSize, inQualifierData, inDataSize,
                             inData, inWhen);
}

UInt32 HP_DeviceFormatList::GetNumberAddressesImplemented() const {
  return HP_FormatList::kNumberSelectors;
}

void HP_DeviceFormatList::GetImplementedAddressByIndex(
    UInt32 inIndex, AudioObjectPropertyAddress& outAddress) const {
  if (inIndex >= HP_FormatList::kNumberSelectors) return;
  outAddress.mSelector = HP_FormatList::sSelectors[inIndex];
  outAddress.mScope = kAudioObjectPropertyScopeWildcard;
  outAddress.mElement = kAudioObjectPropertyElementWildcard;
}

void HP_DeviceFormatList::GatherAvailableNominalSampleRateRanges(
    CAAudioValueRangeList& outRanges) const {
  outRanges.clear();
  CAAudioValueRangeList theScratch;
  bool isFirstStream = true;

  const auto gatherStream = [&](const HP_Stream& inStream) {
    const UInt32 theNumberRanges = inStream.GetNumberAvailableNominalSampleRateRanges();
    if (mUseIntersection) theScratch.clear();
    for (UInt32 theIndex = 0; theIndex < theNumberRanges; ++theIndex) {
      CAAudioValueRange theRange;
      inStream.GetAvailableNominalSampleRateRangeByIndex(theIndex, theRange);
      if (!mUseIntersection) {
        theScratch.clear();
        AFL_ComputeUnion(theRange, outRanges, theScratch);
        outRanges.swap(theScratch);
      } else if (isFirstStream) {
        theScratch.push_back(theRange);
      } else {
        AFL_ComputeIntersection(theRange, outRanges, theScratch);
      }
    }
    if (mUseIntersection) outRanges.swap(theScratch);
    isFirstStream = false;
    return true;
  };
  WalkStreams(*mDevice, true, gatherStream);
  WalkStreams(*mDevice, false, gatherStream);
}

UInt32 HP_DeviceFormatList::GetNumberAvailableMasterNominalSampleRateRanges() const {
  CAAudioValueRangeList theRanges;
  GatherAvailableNominalSampleRateRanges(theRanges);
  return static_cast<UInt32>(theRanges.size());
}

void HP_DeviceFormatList::GetAvailableMasterNominalSampleRateRangeByIndex(
    UInt32 inIndex, AudioValueRange& outRange) const {
  CAAudioValueRangeList theRanges;
  GatherAvailableNominalSampleRateRanges(theRanges);
  if (inIndex < theRanges.size()) outRange = theRanges[inIndex];
}

bool HP_DeviceFormatList::SupportsMasterNominalSampleRate(double inSampleRate) const {
  CAAudioValueRangeList theRanges;
  GatherAvailableNominalSampleRateRanges(theRanges);
  return std::any_of(theRanges.begin(), theRanges.end(), [=](const CAAudioValueRange& inRange) {
    return CAAudioValueRange::ContainsValue(inRange, inSampleRate);
  });
}

bool HP_DeviceFormatList::AllStreamsAreMixable() const {
  const auto isMixable = [](const HP_Stream& inStream) { return inStream.IsMixable(); };
  return WalkStreams(*mDevice, true, isMixable) && WalkStreams(*mDevice, false, isMixable);
}

void HP_DeviceFormatList::SetIsMixableOfAllStreams(bool inIsMixable) {
  // Every stream is told, whatever becomes of the others.
  const auto setIsMixable = [=](HP_Stream& inStream) {
    try {
      inStream.SetIsMixable(inIsMixable, true);
    } catch (...) {
    }
    return true;
  };
  WalkStreams(*mDevice, true, setIsMixable);
  WalkStreams(*mDevice, false, setIsMixable);
}

void HP_DeviceFormatList::SetNominalSampleRateOfFirstStream(double inSampleRate) {
  bool hasFoundStream = false;
  const auto setRate = [&](HP_Stream& inStream) {
    try {
      if (inStream.SupportsNominalSampleRate(inSampleRate)) {
        hasFoundStream = true;
        inStream.SetCurrentNominalSampleRate(inSampleRate, true);
      }
    } catch (...) {
    }
    return !hasFoundStream;
  };
  // Here output goes first, unlike everywhere else.
  if (WalkStreams(*mDevice, false, setRate)) WalkStreams(*mDevice, true, setRate);
  if (!hasFoundStream) throw CAException(kAudioDeviceUnsupportedFormatError);
}
