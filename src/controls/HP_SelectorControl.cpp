#include "controls/HP_SelectorControl.h"

#include <algorithm>
#include <cstring>

#include "support/CAException.h"

namespace {

UInt32 GetQualifierItemID(UInt32 inQualifierDataSize, const void* inQualifierData) {
  UInt32 theItemID = 0;
  if (inQualifierDataSize != sizeof(theItemID) || inQualifierData == nullptr) {
    throw CAException(kAudioHardwareBadPropertySizeError);
  }
  std::memcpy(&theItemID, inQualifierData, sizeof(theItemID));
  return theItemID;
}

}  // namespace

HP_SelectorControl::HP_SelectorControl(AudioObjectID inObjectID, AudioClassID inClassID,
                                       HP_HardwarePlugIn* inPlugIn, HP_Device* inOwningDevice)
    : HP_Control(inObjectID, inClassID, inPlugIn, inOwningDevice) {}

HP_SelectorControl::~HP_SelectorControl() = default;

AudioClassID HP_SelectorControl::GetBaseClassID() const {
  return kAudioSelectorControlClassID;
}

bool HP_SelectorControl::HasProperty(const AudioObjectPropertyAddress& inAddress) const {
  switch (inAddress.mSelector) {
    case kAudioSelectorControlPropertyCurrentItem:
    case kAudioSelectorControlPropertyAvailableItems:
    case kAudioSelectorControlPropertyItemName:
      return true;
    case kAudioClockSourceControlPropertyItemKind:
      return IsSubClass(GetClassID(), kAudioClockSourceControlClassID);
    default:
      return HP_Control::HasProperty(inAddress);
  }
}

bool HP_SelectorControl::IsPropertySettable(const AudioObjectPropertyAddress& inAddress) const {
  switch (inAddress.mSelector) {
    case kAudioSelectorControlPropertyCurrentItem:
      return !IsReadOnly();
    case kAudioSelectorControlPropertyAvailableItems:
    case kAudioSelectorControlPropertyItemName:
    case kAudioClockSourceControlPropertyItemKind:
      return false;
    default:
      return HP_Control::IsPropertySettable(inAddress);
  }
}

UInt32 HP_SelectorControl::GetPropertyDataSize(const AudioObjectPropertyAddress& inAddress,
                                               UInt32 inQualifierDataSize,
                                               const void* inQualifierData) const {
  switch (inAddress.mSelector) {
    case kAudioSelectorControlPropertyCurrentItem:
    case kAudioClockSourceControlPropertyItemKind:
      return sizeof(UInt32);
    case kAudioSelectorControlPropertyAvailableItems:
      return GetNumberItems() * static_cast<UInt32>(sizeof(UInt32));
    case kAudioSelectorControlPropertyItemName:
      return sizeof(CFStringRef);
    default:
      return HP_Control::GetPropertyDataSize(inAddress, inQualifierDataSize, inQualifierData);
  }
}

void HP_SelectorControl::GetPropertyData(const AudioObjectPropertyAddress& inAddress,
                                         UInt32 inQualifierDataSize, const void* inQualifierData,
                                         UInt32& ioDataSize, void* outData) const {
  if (inAddress.mSelector == kAudioSelectorControlPropertyAvailableItems) {
    const UInt32 theCount =
        std::min(ioDataSize / static_cast<UInt32>(sizeof(UInt32)), GetNumberItems());
    for (UInt32 i = 0; i < theCount; ++i) {
      const UInt32 theItemID = GetItemIDForIndex(i);
      std::memcpy(static_cast<UInt8*>(outData) + i * sizeof(UInt32), &theItemID, sizeof(theItemID));
    }
    ioDataSize = theCount * static_cast<UInt32>(sizeof(UInt32));
    return;
  }

  CheckPropertyDataSize(inAddress, inQualifierDataSize, inQualifierData, ioDataSize);
  const auto theAnswer = [outData](const auto& inValue) {
    std::memcpy(outData, &inValue, sizeof(inValue));
  };
  switch (inAddress.mSelector) {
    case kAudioSelectorControlPropertyCurrentItem:
      theAnswer(GetCurrentItemID());
      break;
    case kAudioSelectorControlPropertyItemName:
      theAnswer(CopyItemNameByID(GetQualifierItemID(inQualifierDataSize, inQualifierData)));
      break;
    case kAudioClockSourceControlPropertyItemKind:
      theAnswer(GetItemKindByID(GetQualifierItemID(inQualifierDataSize, inQualifierData)));
      break;
    default:
      HP_Control::GetPropertyData(inAddress, inQualifierDataSize, inQualifierData, ioDataSize,
                                  outData);
      break;
  }
}

void HP_SelectorControl::SetPropertyData(const AudioObjectPropertyAddress& inAddress,
                                         UInt32 inQualifierDataSize, const void* inQualifierData,
                                         UInt32 inDataSize, const void* inData,
                                         const AudioTimeStamp* inWhen) {
  if (inAddress.mSelector != kAudioSelectorControlPropertyCurrentItem) {
    HP_Control::SetPropertyData(inAddress, inQualifierDataSize, inQualifierData, inDataSize, inData,
                                inWhen);
    return;
  }
  CheckPropertyDataSize(inAddress, inQualifierDataSize, inQualifierData, inDataSize);
  UInt32 theItemID = 0;
  std::memcpy(&theItemID, inData, sizeof(theItemID));
  SetCurrentItemByID(theItemID);
}
