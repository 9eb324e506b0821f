// The property surface of a device. A table holds what each selector is; the few that are neither a
// number nor a name have their own lines below it.

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <vector>

#include "device/HP_Device.h"
#include "device/HP_IOProcList.h"
#include "formats/HP_Stream.h"
#include "objects/HP_SelectorIndex.h"
#include "support/CAAudioBufferList.h"
#include "support/CACFString.h"
#include "support/CAException.h"

namespace {

using Address = AudioObjectPropertyAddress;

enum class Kind { kNumber, kReference, kText, kOther };

struct Property {
  AudioObjectPropertySelector mSelector;
  Kind mKind;
  // Null where each device has it; a name's is whether there is one.
  bool (*mHas)(const HP_Device&, const Address&) = nullptr;
  UInt32 (*mGetNumber)(const HP_Device&, const Address&) = nullptr;
  CFTypeRef (*mCopy)(const HP_Device&, const Address&) = nullptr;
};

bool IsInput(const Address& inAddress) {
  return inAddress.mScope == kAudioObjectPropertyScopeInput;
}

bool IsOutput(const Address& inAddress) {
  return inAddress.mScope == kAudioObjectPropertyScopeOutput;
}

bool IsDirection(const HP_Device&, const Address& inAddress) {
  return IsInput(inAddress) || IsOutput(inAddress);
}

bool IsDirectionWithStreams(const HP_Device& inDevice, const Address& inAddress) {
  return IsDirection(inDevice, inAddress) && inDevice.HasAnyStreams(IsInput(inAddress));
}

bool IsScopeWithStreams(const HP_Device& inDevice, const Address& inAddress) {
  if (inAddress.mScope == kAudioObjectPropertyScopeGlobal) {
    return inDevice.HasInputStreams() || inDevice.HasOutputStreams();
  }
  return IsDirectionWithStreams(inDevice, inAddress);
}

const HP_Stream& GetAddressedStream(const HP_Device& inDevice, const Address& inAddress) {
  const HP_Stream* theStream = inDevice.GetStreamByPropertyAddress(inAddress, false);
  if (theStream == nullptr) throw CAException(kAudioHardwareIllegalOperationError);
  return *theStream;
}

UInt32 Zero(const HP_Device&, const Address&) {
  return 0;
}

CFTypeRef CopyCategoryName(const HP_Device& inDevice, const Address& inAddress) {
  return inDevice.CopyElementCategoryName(inAddress);
}

CFTypeRef CopyFullName(const HP_Device& inDevice, const Address& inAddress) {
  return inDevice.CopyElementFullName(inAddress);
}

CFTypeRef CopyNumberName(const HP_Device& inDevice, const Address& inAddress) {
  return inDevice.CopyElementNumberName(inAddress);
}

CFTypeRef CopyManufacturer(const HP_Device& inDevice, const Address&) {
  return inDevice.CopyDeviceManufacturerName();
}

CFTypeRef CopyName(const HP_Device& inDevice, const Address&) {
  return inDevice.CopyDeviceName();
}

constexpr Property Number(AudioObjectPropertySelector inSelector,
                          UInt32 (*inGetNumber)(const HP_Device&, const Address&),
                          bool (*inHas)(const HP_Device&, const Address&) = nullptr) {
  return {inSelector, Kind::kNumber, inHas, inGetNumber, nullptr};
}

constexpr Property Name(AudioObjectPropertySelector inSelector, Kind inKind,
                        CFTypeRef (*inCopy)(const HP_Device&, const Address&)) {
  return {inSelector, inKind, nullptr, nullptr, inCopy};
}

constexpr Property Other(AudioObjectPropertySelector inSelector,
                         bool (*inHas)(const HP_Device&, const Address&) = nullptr) {
  return {inSelector, Kind::kOther, inHas, nullptr, nullptr};
}

constexpr Property kProperties[] = {
    Other(kAudioDevicePropertyRelatedDevices),
    Other(kAudioDevicePropertyActualSampleRate),
    Number(kAudioDevicePropertyBufferSize,
           [](const HP_Device& d, const Address& a) {
             return GetAddressedStream(d, a).CalculateIOBufferByteSize(d.GetIOBufferFrameSize());
           }),
    Other(kAudioDevicePropertyBufferSizeRange),
    Name(kAudioDevicePropertyConfigurationApplication, Kind::kReference,
         [](const HP_Device& d, const Address&) -> CFTypeRef {
           return d.CopyConfigurationApplicationBundleID();
         }),
    Name(kAudioDevicePropertyChannelCategoryName, Kind::kText, CopyCategoryName),
    Name(kAudioDevicePropertyChannelName, Kind::kText, CopyFullName),
    Number(kAudioDevicePropertyClockDomain, Zero),
    Name(kAudioDevicePropertyChannelNumberName, Kind::kText, CopyNumberName),
    Number(
        kAudioDevicePropertyDeviceCanBeDefaultDevice,
        [](const HP_Device& d, const Address& a) -> UInt32 {
          return d.CanBeDefaultDevice(IsInput(a), false);
        },
        IsDirection),
    Number(kAudioDevicePropertyDeviceHasChanged, Zero,
           [](const HP_Device&, const Address&) { return false; }),
    Number(kAudioDevicePropertyBufferFrameSize,
           [](const HP_Device& d, const Address&) { return d.GetIOBufferFrameSize(); }),
    Other(kAudioDevicePropertyBufferFrameSizeRange),
    Number(kAudioDevicePropertyDeviceIsRunning,
           [](const HP_Device& d, const Address&) -> UInt32 { return d.IsIOEngineRunning(); }),
    Number(kAudioDevicePropertyDeviceIsRunningSomewhere,
           [](const HP_Device& d, const Address&) -> UInt32 {
             return d.IsIOEngineRunningSomewhere();
           }),
    Number(kAudioDevicePropertyIsHidden,
           [](const HP_Device& d, const Address&) -> UInt32 { return d.IsHidden(); }),
    Name(kAudioDevicePropertyIcon, Kind::kReference,
         [](const HP_Device& d, const Address&) -> CFTypeRef { return d.CopyDeviceIcon(); }),
    Name(kAudioObjectPropertyElementCategoryName, Kind::kReference, CopyCategoryName),
    Name(kAudioObjectPropertyElementName, Kind::kReference, CopyFullName),
    Name(kAudioObjectPropertyElementNumberName, Kind::kReference, CopyNumberName),
    Number(kAudioDevicePropertyDeviceIsAlive,
           [](const HP_Device& d, const Address&) -> UInt32 { return d.IsAlive(); }),
    Name(kAudioObjectPropertyManufacturer, Kind::kReference, CopyManufacturer),
    Name(kAudioObjectPropertyName, Kind::kReference, CopyName),
    Number(
        kAudioDevicePropertyLatency,
        [](const HP_Device& d, const Address& a) { return d.GetLatency(IsInput(a)); },
        IsDirectionWithStreams),
    Name(kAudioDevicePropertyDeviceManufacturer, Kind::kText, CopyManufacturer),
    Name(kAudioDevicePropertyModelUID, Kind::kReference,
         [](const HP_Device& d, const Address&) -> CFTypeRef { return d.CopyModelUID(); }),
    Name(kAudioDevicePropertyDeviceName, Kind::kText, CopyName),
    // No process ever owns a device of this base.
    Number(kAudioDevicePropertyHogMode,
           [](const HP_Device&, const Address&) { return static_cast<UInt32>(-1); }),
    Number(kAudioDeviceProcessorOverload, Zero),
    Number(
        kAudioDevicePropertySafetyOffset,
        [](const HP_Device& d, const Address& a) { return d.GetSafetyOffset(IsInput(a)); },
        IsDirectionWithStreams),
    Number(
        kAudioDevicePropertyDeviceCanBeDefaultSystemDevice,
        [](const HP_Device& d, const Address& a) -> UInt32 {
          return d.CanBeDefaultDevice(IsInput(a), true);
        },
        [](const HP_Device&, const Address& a) { return IsOutput(a); }),
    Other(kAudioDevicePropertyStreamConfiguration, IsDirection),
    Other(kAudioDevicePropertyStreams, IsScopeWithStreams),
    Other(kAudioDevicePropertyIOProcStreamUsage, IsScopeWithStreams),
    Number(kAudioDevicePropertyTransportType,
           [](const HP_Device& d, const Address&) { return d.GetTransportType(); }),
    Name(kAudioDevicePropertyDeviceUID, Kind::kReference,
         [](const HP_Device& d, const Address&) -> CFTypeRef { return d.CopyDeviceUID(); }),
};

constexpr HP_SelectorIndex kPropertyIndex(kProperties, [](const Property& inProperty) {
  return inProperty.mSelector;
});

const Property* FindProperty(AudioObjectPropertySelector inSelector) {
  const UInt32 theIndex = kPropertyIndex.Find(inSelector);
  return theIndex != HP_SelectorIndex::kNone ? &kProperties[theIndex] : nullptr;
}

CACFString CopyText(const Property& inProperty, const HP_Device& inDevice,
                    const Address& inAddress) {
  return CACFString(static_cast<CFStringRef>(inProperty.mCopy(inDevice, inAddress)));
}

// A procedure's stream usage as clients lay it out, which need not be aligned.
constexpr UInt32 kUsageIOProcOffset = offsetof(AudioHardwareIOProcStreamUsage, mIOProc);
constexpr UInt32 kUsageCountOffset = offsetof(AudioHardwareIOProcStreamUsage, mNumberStreams);
constexpr UInt32 kUsageFlagsOffset = offsetof(AudioHardwareIOProcStreamUsage, mStreamIsOn);
static_assert(kUsageIOProcOffset == 0 && kUsageCountOffset == 8 && kUsageFlagsOffset == 12);

// The procedure of a usage whose count of streams is the one that its size has room for.
AudioDeviceIOProcID GetUsageIOProcID(const void* inData, UInt32 inNumberStreams) {
  const UInt8* theData = static_cast<const UInt8*>(inData);
  UInt32 theNumberStreams = 0;
  std::memcpy(&theNumberStreams, theData + kUsageCountOffset, sizeof(theNumberStreams));
  if (theNumberStreams != inNumberStreams) throw CAException(kAudioHardwareBadPropertySizeError);
  AudioDeviceIOProcID theIOProcID = nullptr;
  std::memcpy(&theIOProcID, theData + kUsageIOProcOffset, sizeof(theIOProcID));
  return theIOProcID;
}

UInt32 GetOtherSize(const HP_Device& inDevice, const Address& inAddress) {
  const UInt32 theNumberStreams = inDevice.GetNumberStreams(IsInput(inAddress));
  switch (inAddress.mSelector) {
    case kAudioDevicePropertyRelatedDevices:
      return sizeof(AudioObjectID);
    case kAudioDevicePropertyActualSampleRate:
      return sizeof(Float64);
    case kAudioDevicePropertyStreamConfiguration:
      return CAAudioBufferList::CalculateByteSize(theNumberStreams);
    case kAudioDevicePropertyStreams:
      return theNumberStreams * sizeof(AudioObjectID);
    case kAudioDevicePropertyIOProcStreamUsage:
      return kUsageFlagsOffset + theNumberStreams * sizeof(UInt32);
    default:
      return sizeof(AudioValueRange);
  }
}

UInt32 GetSize(const Property& inProperty, const HP_Device& inDevice, const Address& inAddress) {
  switch (inProperty.mKind) {
    case Kind::kNumber:
      return sizeof(UInt32);
    case Kind::kReference:
      return sizeof(CFTypeRef);
    case Kind::kText:
      return CopyText(inProperty, inDevice, inAddress).GetStringByteLength() + 1;
    case Kind::kOther:
      break;
  }
  return GetOtherSize(inDevice, inAddress);
}

void CheckSize(UInt32 inSize, UInt32 inNeededSize) {
  if (inSize != inNeededSize) throw CAException(kAudioHardwareBadPropertySizeError);
}

template <class T>
void Store(const T& inValue, void* outData) {
  std::memcpy(outData, &inValue, sizeof(T));
}

UInt32 LoadUInt32(const void* inData) {
  UInt32 theValue = 0;
  std::memcpy(&theValue, inData, sizeof(theValue));
  return theValue;
}

void GetRelatedDevices(const HP_Device& inDevice, UInt32& ioDataSize, void* outData) {
  if (ioDataSize < sizeof(AudioObjectID)) {
    std::memset(outData, 0, ioDataSize);
    return;
  }
  Store(inDevice.GetObjectID(), outData);
  ioDataSize = sizeof(AudioObjectID);
}

void GetStreamConfiguration(const HP_Device& inDevice, bool inIsInput, UInt32& ioDataSize,
                            void* outData) {
  const UInt32 theNumberStreams = inDevice.GetNumberStreams(inIsInput);
  const UInt32 theSize = CAAudioBufferList::CalculateByteSize(theNumberStreams);
  if (ioDataSize < theSize) throw CAException(kAudioHardwareBadPropertySizeError);
  ioDataSize = theSize;

  UInt8* theData = static_cast<UInt8*>(outData);
  std::memset(theData, 0, theSize);
  Store(theNumberStreams, theData + offsetof(AudioBufferList, mNumberBuffers));
  for (UInt32 i = 0; i < theNumberStreams; ++i) {
    const HP_Stream* theStream = inDevice.GetStreamByIndex(inIsInput, i);
    AudioBuffer theBuffer = {};
    theBuffer.mNumberChannels = theStream->GetCurrentNumberChannels();
    theBuffer.mDataByteSize = theStream->CalculateIOBufferByteSize(inDevice.GetIOBufferFrameSize());
    Store(theBuffer, theData + offsetof(AudioBufferList, mBuffers) + i * sizeof(AudioBuffer));
  }
}

void GetStreams(const HP_Device& inDevice, bool inIsInput, UInt32& ioDataSize, void* outData) {
  const UInt32 theCount =
      std::min<UInt32>(inDevice.GetNumberStreams(inIsInput), ioDataSize / sizeof(AudioObjectID));
  UInt8* theData = static_cast<UInt8*>(outData);
  for (UInt32 i = 0; i < theCount; ++i) {
    Store(inDevice.GetStreamByIndex(inIsInput, i)->GetObjectID(),
          theData + i * sizeof(AudioObjectID));
  }
  ioDataSize = theCount * sizeof(AudioObjectID);
}

void GetStreamUsage(const HP_Device& inDevice, bool inIsInput, void* outData) {
  const UInt32 theNumberStreams = inDevice.GetNumberStreams(inIsInput);
  const AudioDeviceIOProcID theIOProcID = GetUsageIOProcID(outData, theNumberStreams);
  const auto theUsage = std::make_unique<bool[]>(theNumberStreams);
  inDevice.GetIOProcList()->GetIOProcStreamUsage(theIOProcID, inIsInput, theNumberStreams,
                                                 theUsage.get());
  UInt8* theFlags = static_cast<UInt8*>(outData) + kUsageFlagsOffset;
  for (UInt32 i = 0; i < theNumberStreams; ++i) {
    const UInt32 theStreamIsOn = theUsage[i] ? 1 : 0;
    Store(theStreamIsOn, theFlags + i * sizeof(UInt32));
  }
}

AudioValueRange GetFrameSizeRange(const HP_Device& inDevice) {
  return {static_cast<Float64>(inDevice.GetMinimumIOBufferFrameSize()),
          static_cast<Float64>(inDevice.GetMaximumIOBufferFrameSize())};
}

AudioValueRange GetByteSizeRange(const HP_Device& inDevice, const Address& inAddress) {
  const HP_Stream& theStream = GetAddressedStream(inDevice, inAddress);
  return {static_cast<Float64>(
              theStream.CalculateIOBufferByteSize(inDevice.GetMinimumIOBufferFrameSize())),
          static_cast<Float64>(
              theStream.CalculateIOBufferByteSize(inDevice.GetMaximumIOBufferFrameSize()))};
}

void GetOther(const HP_Device& inDevice, const Address& inAddress, UInt32& ioDataSize,
              void* outData) {
  const bool theIsInput = IsInput(inAddress);
  // These take what size they get.
  switch (inAddress.mSelector) {
    case kAudioDevicePropertyRelatedDevices:
      return GetRelatedDevices(inDevice, ioDataSize, outData);
    case kAudioDevicePropertyStreamConfiguration:
      return GetStreamConfiguration(inDevice, theIsInput, ioDataSize, outData);
    case kAudioDevicePropertyStreams:
      return GetStreams(inDevice, theIsInput, ioDataSize, outData);
    default:
      break;
  }
  CheckSize(ioDataSize, GetOtherSize(inDevice, inAddress));
  switch (inAddress.mSelector) {
    case kAudioDevicePropertyActualSampleRate:
      return Store(inDevice.GetCurrentActualSampleRate(), outData);
    case kAudioDevicePropertyBufferFrameSizeRange:
      return Store(GetFrameSizeRange(inDevice), outData);
    case kAudioDevicePropertyBufferSizeRange:
      return Store(GetByteSizeRange(inDevice, inAddress), outData);
    case kAudioDevicePropertyIOProcStreamUsage:
      return GetStreamUsage(inDevice, theIsInput, outData);
    default:
      break;
  }
}

void SetStreamUsage(HP_Device& inDevice, bool inIsInput, const void* inData) {
  const UInt32 theNumberStreams = inDevice.GetNumberStreams(inIsInput);
  const AudioDeviceIOProcID theIOProcID = GetUsageIOProcID(inData, theNumberStreams);
  std::vector<UInt32> theUsage(theNumberStreams);
  if (theNumberStreams > 0) {
    std::memcpy(theUsage.data(), static_cast<const UInt8*>(inData) + kUsageFlagsOffset,
                theNumberStreams * sizeof(UInt32));
  }
  inDevice.Do_SetIOProcStreamUsage(theIOProcID, inIsInput, theNumberStreams, theUsage.data());
}

}  // namespace

bool HP_Device::HasProperty(const AudioObjectPropertyAddress& inAddress) const {
  CAMutex::Locker theLocker(mDeviceStateMutex);
  const Property* theProperty = FindProperty(inAddress.mSelector);
  if (theProperty == nullptr) return HP_Object::HasProperty(inAddress);
  if (theProperty->mCopy != nullptr) {
    return CACFObject<CFTypeRef>(theProperty->mCopy(*this, inAddress)).IsValid();
  }
  return theProperty->mHas == nullptr || theProperty->mHas(*this, inAddress);
}

bool HP_Device::IsPropertySettable(const AudioObjectPropertyAddress& inAddress) const {
  CAMutex::Locker theLocker(mDeviceStateMutex);
  switch (inAddress.mSelector) {
    case kAudioDevicePropertyBufferSize:
    case kAudioDevicePropertyBufferFrameSize:
    case kAudioDevicePropertyDeviceIsRunning:
    case kAudioDevicePropertyIOProcStreamUsage:
      return true;
    default:
      break;
  }
  if (FindProperty(inAddress.mSelector) != nullptr) return false;
  return HP_Object::IsPropertySettable(inAddress);
}

UInt32 HP_Device::GetPropertyDataSize(const AudioObjectPropertyAddress& inAddress,
                                      UInt32 inQualifierDataSize,
                                      const void* inQualifierData) const {
  CAMutex::Locker theLocker(mDeviceStateMutex);
  const Property* theProperty = FindProperty(inAddress.mSelector);
  if (theProperty == nullptr) {
    return HP_Object::GetPropertyDataSize(inAddress, inQualifierDataSize, inQualifierData);
  }
  return GetSize(*theProperty, *this, inAddress);
}

void HP_Device::GetPropertyData(const AudioObjectPropertyAddress& inAddress,
                                UInt32 inQualifierDataSize, const void* inQualifierData,
                                UInt32& ioDataSize, void* outData) const {
  CAMutex::Locker theLocker(mDeviceStateMutex);
  const Property* theProperty = FindProperty(inAddress.mSelector);
  if (theProperty == nullptr) {
    HP_Object::GetPropertyData(inAddress, inQualifierDataSize, inQualifierData, ioDataSize,
                               outData);
    return;
  }
  if (theProperty->mKind == Kind::kNumber) {
    CheckSize(ioDataSize, sizeof(UInt32));
    Store(theProperty->mGetNumber(*this, inAddress), outData);
    return;
  }
  switch (theProperty->mKind) {
    case Kind::kNumber:
      break;
    case Kind::kReference:
      CheckSize(ioDataSize, sizeof(CFTypeRef));
      Store(theProperty->mCopy(*this, inAddress), outData);
      break;
    case Kind::kText:
      CopyText(*theProperty, *this, inAddress)
          .GetCString(static_cast<char*>(outData), ioDataSize, kCFStringEncodingUTF8);
      break;
    case Kind::kOther:
      GetOther(*this, inAddress, ioDataSize, outData);
      break;
  }
}

void HP_Device::SetPropertyData(const AudioObjectPropertyAddress& inAddress,
                                UInt32 inQualifierDataSize, const void* inQualifierData,
                                UInt32 inDataSize, const void* inData,
                                const AudioTimeStamp* inWhen) {
  CAMutex::Locker theLocker(mDeviceStateMutex);
  const bool theIsInput = IsInput(inAddress);
  switch (inAddress.mSelector) {
    case kAudioDevicePropertyBufferSize:
      CheckSize(inDataSize, sizeof(UInt32));
      Do_SetIOBufferFrameSize(
          GetAddressedStream(*this, inAddress).CalculateIOBufferFrameSize(LoadUInt32(inData)));
      break;
    case kAudioDevicePropertyBufferFrameSize:
      CheckSize(inDataSize, sizeof(UInt32));
      Do_SetIOBufferFrameSize(LoadUInt32(inData));
      break;
    case kAudioDevicePropertyDeviceIsRunning:
      CheckSize(inDataSize, sizeof(UInt32));
      if (LoadUInt32(inData) == 0) {
        Do_StopIOProc(nullptr);
      } else {
        Do_StartIOProc(nullptr);
      }
      break;
    case kAudioDevicePropertyIOProcStreamUsage:
      CheckSize(inDataSize, GetOtherSize(*this, inAddress));
      SetStreamUsage(*this, theIsInput, inData);
      break;
    default:
      HP_Object::SetPropertyData(inAddress, inQualifierDataSize, inQualifierData, inDataSize,
                                 inData, inWhen);
      break;
  }
}
