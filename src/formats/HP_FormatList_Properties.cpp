// The property surface of a stream's format list.

#include <algorithm>
#include <cstring>

#include "formats/HP_FormatList.h"
#include "support/CAException.h"

const AudioObjectPropertySelector HP_FormatList::sSelectors[kNumberSelectors] = {
    kAudioDevicePropertyNominalSampleRate,       kAudioDevicePropertyAvailableNominalSampleRates,
    kAudioStreamPropertyVirtualFormat,           kAudioStreamPropertyAvailableVirtualFormats,
    kAudioStreamPropertyPhysicalFormat,          kAudioStreamPropertyAvailablePhysicalFormats,
    kAudioDevicePropertyStreamFormats,           kAudioDevicePropertyStreamFormatSupported,
    kAudioDevicePropertyStreamFormatMatch,       kAudioStreamPropertyPhysicalFormats,
    kAudioStreamPropertyPhysicalFormatSupported, kAudioStreamPropertyPhysicalFormatMatch,
    kAudioDevicePropertySupportsMixing};

namespace {

// Data comes and goes by copy: the caller's memory need not be aligned.

template <class T>
T ReadValue(UInt32 inDataSize, const void* inData) {
  if (inDataSize != sizeof(T)) throw CAException(kAudioHardwareBadPropertySizeError);
  T theValue;
  std::memcpy(&theValue, inData, sizeof(T));
  return theValue;
}

template <class T>
void WriteValue(const T& inValue, UInt32 inDataSize, void* outData) {
  if (inDataSize != sizeof(T)) throw CAException(kAudioHardwareBadPropertySizeError);
  std::memcpy(outData, &inValue, sizeof(T));
}

// Writes as many items as the caller has room for. inGetItem answers the item at an index.
template <class GetItem>
void WriteItems(UInt32 inNumberItems, UInt32& ioDataSize, void* outData, GetItem inGetItem) {
  using Item = decltype(inGetItem(UInt32()));
  const UInt32 theNumberItems =
      std::min(static_cast<UInt32>(ioDataSize / sizeof(Item)), inNumberItems);
  char* theData = static_cast<char*>(outData);
  for (UInt32 theIndex = 0; theIndex < theNumberItems; ++theIndex, theData += sizeof(Item)) {
    const Item theItem = inGetItem(theIndex);
    std::memcpy(theData, &theItem, sizeof(Item));
  }
  ioDataSize = theNumberItems * static_cast<UInt32>(sizeof(Item));
}

void ThrowUnlessSupported(bool inIsSupported) {
  if (!inIsSupported) throw CAException(kAudioDeviceUnsupportedFormatError);
}

}  // namespace

bool HP_FormatList::IsActive(const AudioObjectPropertyAddress&) const {
  return true;
}

bool HP_FormatList::IsPropertySettable(const AudioObjectPropertyAddress& inAddress) const {
  switch (inAddress.mSelector) {
    case kAudioDevicePropertySupportsMixing:
      return CanSetIsMixable();
    case kAudioDevicePropertyNominalSampleRate:
    case kAudioStreamPropertyPhysicalFormat:
    case kAudioStreamPropertyVirtualFormat:
      return true;
    default:
      return false;
  }
}

UInt32 HP_FormatList::GetPropertyDataSize(const AudioObjectPropertyAddress& inAddress, UInt32,
                                          const void*) const {
  switch (inAddress.mSelector) {
    case kAudioDevicePropertySupportsMixing:
      return sizeof(UInt32);
    case kAudioDevicePropertyAvailableNominalSampleRates:
      return GetNumberAvailableNominalSampleRateRanges() *
             static_cast<UInt32>(sizeof(AudioValueRange));
    case kAudioDevicePropertyNominalSampleRate:
      return sizeof(Float64);
    case kAudioStreamPropertyPhysicalFormat:
    case kAudioStreamPropertyPhysicalFormatSupported:
    case kAudioStreamPropertyPhysicalFormatMatch:
    case kAudioStreamPropertyVirtualFormat:
    case kAudioDevicePropertyStreamFormatSupported:
    case kAudioDevicePropertyStreamFormatMatch:
      return sizeof(AudioStreamBasicDescription);
    case kAudioStreamPropertyPhysicalFormats:
      return GetNumberAvailablePhysicalFormats() *
             static_cast<UInt32>(sizeof(AudioStreamBasicDescription));
    case kAudioStreamPropertyAvailablePhysicalFormats:
      return GetNumberAvailablePhysicalFormats() *
             static_cast<UInt32>(sizeof(AudioStreamRangedDescription));
    case kAudioDevicePropertyStreamFormats:
      return GetNumberAvailableVirtualFormats() *
             static_cast<UInt32>(sizeof(AudioStreamBasicDescription));
    case kAudioStreamPropertyAvailableVirtualFormats:
      return GetNumberAvailableVirtualFormats() *
             static_cast<UInt32>(sizeof(AudioStreamRangedDescription));
    default:
      return 0;
  }
}

void HP_FormatList::GetPropertyData(const AudioObjectPropertyAddress& inAddress, UInt32,
                                    const void*, UInt32& ioDataSize, void* outData) const {
  const auto getPhysicalFormat = [this](UInt32 inIndex) {
    AudioStreamRangedDescription theFormat = {};
    GetAvailablePhysicalFormatByIndex(inIndex, theFormat);
    return theFormat;
  };
  const auto getVirtualFormat = [this](UInt32 inIndex) {
    AudioStreamRangedDescription theFormat = {};
    GetAvailableVirtualFormatByIndex(inIndex, theFormat);
    return theFormat;
  };

  switch (inAddress.mSelector) {
    case kAudioDevicePropertySupportsMixing:
      WriteValue<UInt32>(IsMixable() ? 1 : 0, ioDataSize, outData);
      break;

    case kAudioDevicePropertyAvailableNominalSampleRates: {
      CAAudioValueRangeList theRanges;
      GatherAvailableNominalSampleRateRanges(theRanges);
      std::sort(theRanges.begin(), theRanges.end(), CAAudioValueRange::LessThan());
      WriteItems(static_cast<UInt32>(theRanges.size()), ioDataSize, outData,
                 [&](UInt32 inIndex) -> AudioValueRange { return theRanges[inIndex]; });
      break;
    }

    case kAudioDevicePropertyNominalSampleRate:
      WriteValue<Float64>(GetCurrentNominalSampleRate(), ioDataSize, outData);
      break;

    case kAudioStreamPropertyPhysicalFormat: {
      AudioStreamBasicDescription theFormat;
      GetCurrentPhysicalFormat(theFormat);
      WriteValue(theFormat, ioDataSize, outData);
      break;
    }

    case kAudioStreamPropertyVirtualFormat: {
      AudioStreamBasicDescription theFormat;
      GetCurrentVirtualFormat(theFormat);
      WriteValue(theFormat, ioDataSize, outData);
      break;
    }

    case kAudioStreamPropertyPhysicalFormats:
      WriteItems(GetNumberAvailablePhysicalFormats(), ioDataSize, outData,
                 [&](UInt32 inIndex) { return getPhysicalFormat(inIndex).mFormat; });
      break;

    case kAudioStreamPropertyAvailablePhysicalFormats:
      WriteItems(GetNumberAvailablePhysicalFormats(), ioDataSize, outData, getPhysicalFormat);
      break;

    case kAudioDevicePropertyStreamFormats:
      WriteItems(GetNumberAvailableVirtualFormats(), ioDataSize, outData,
                 [&](UInt32 inIndex) { return getVirtualFormat(inIndex).mFormat; });
      break;

    case kAudioStreamPropertyAvailableVirtualFormats:
      WriteItems(GetNumberAvailableVirtualFormats(), ioDataSize, outData, getVirtualFormat);
      break;

    case kAudioStreamPropertyPhysicalFormatSupported:
      ThrowUnlessSupported(
          SupportsPhysicalFormat(ReadValue<AudioStreamBasicDescription>(ioDataSize, outData)));
      break;

    case kAudioDevicePropertyStreamFormatSupported:
      ThrowUnlessSupported(
          SupportsVirtualFormat(ReadValue<AudioStreamBasicDescription>(ioDataSize, outData)));
      break;

    case kAudioStreamPropertyPhysicalFormatMatch: {
      auto theFormat = ReadValue<AudioStreamBasicDescription>(ioDataSize, outData);
      BestMatchForPhysicalFormat(theFormat);
      WriteValue(theFormat, ioDataSize, outData);
      break;
    }

    case kAudioDevicePropertyStreamFormatMatch: {
      auto theFormat = ReadValue<AudioStreamBasicDescription>(ioDataSize, outData);
      BestMatchForVirtualFormat(theFormat);
      WriteValue(theFormat, ioDataSize, outData);
      break;
    }

    default:
      break;
  }
}

void HP_FormatList::SetPropertyData(const AudioObjectPropertyAddress& inAddress, UInt32,
                                    const void*, UInt32 inDataSize, const void* inData,
                                    const AudioTimeStamp*) {
  switch (inAddress.mSelector) {
    case kAudioDevicePropertySupportsMixing:
      SetIsMixable(ReadValue<UInt32>(inDataSize, inData) != 0, true);
      break;

    case kAudioDevicePropertyNominalSampleRate: {
      const auto theRate = ReadValue<Float64>(inDataSize, inData);
      ThrowUnlessSupported(theRate == 0.0 || SupportsNominalSampleRate(theRate));
      SetCurrentNominalSampleRate(theRate, true);
      break;
    }

    case kAudioStreamPropertyPhysicalFormat: {
      auto theFormat = ReadValue<AudioStreamBasicDescription>(inDataSize, inData);
      ThrowUnlessSupported(SanityCheckPhysicalFormat(theFormat));
      BestMatchForPhysicalFormat(theFormat);
      SetCurrentPhysicalFormat(theFormat, true);
      break;
    }

    case kAudioStreamPropertyVirtualFormat: {
      auto theFormat = ReadValue<AudioStreamBasicDescription>(inDataSize, inData);
      ThrowUnlessSupported(SanityCheckVirtualFormat(theFormat));
      BestMatchForVirtualFormat(theFormat);
      SetCurrentVirtualFormat(theFormat, true);
      break;
    }

    default:
      break;
  }
}

UInt32 HP_FormatList::GetNumberAddressesImplemented() const {
  return kNumberSelectors;
}

void HP_FormatList::GetImplementedAddressByIndex(UInt32 inIndex,
                                                 AudioObjectPropertyAddress& outAddress) const {
  if (inIndex >= kNumberSelectors) return;
  outAddress.mSelector = sSelectors[inIndex];
  outAddress.mScope = kAudioObjectPropertyScopeWildcard;
  outAddress.mElement = kAudioObjectPropertyElementWildcard;
}
