#include "controls/HP_Control.h"

#include <cstdio>
#include <cstring>

#include "device/HP_Device.h"
#include "formats/HP_Stream.h"
#include "objects/CAPropertyAddress.h"
#include "support/CACFObject.h"
#include "support/CAException.h"

HP_Control::HP_Control(AudioObjectID inObjectID, AudioClassID inClassID,
                       HP_HardwarePlugIn* inPlugIn, HP_Device* inOwningDevice)
    : HP_Object(inObjectID, inClassID, inPlugIn), mOwningDevice(inOwningDevice), mMark(false) {}

HP_Control::~HP_Control() = default;

void HP_Control::Initialize() {
  HP_Object::Initialize();
}

void HP_Control::Teardown() {
  HP_Object::Teardown();
}

CAMutex* HP_Control::GetObjectStateMutex() {
  return mOwningDevice->GetObjectStateMutex();
}

AudioClassID HP_Control::GetBaseClassID() const {
  return kAudioControlClassID;
}

CFStringRef HP_Control::CopyName() const {
  return nullptr;
}

CFStringRef HP_Control::CopyManufacturerName() const {
  return mOwningDevice->CopyDeviceManufacturerName();
}

UInt32 HP_Control::GetImplementationObject() const {
  return 0;
}

UInt32 HP_Control::GetVariant() const {
  return GetClassID();
}

bool HP_Control::IsReadOnly() const {
  return false;
}

void HP_Control::Show() const {
  const AudioClassID theClassID = GetClassID();
  const char theClass[5] = {static_cast<char>(theClassID >> 24),
                            static_cast<char>(theClassID >> 16), static_cast<char>(theClassID >> 8),
                            static_cast<char>(theClassID), 0};
  char theName[256];
  GetNameText(theName, sizeof(theName));
  const char* theScope = "Global";
  switch (GetPropertyScope()) {
    case kAudioObjectPropertyScopeInput:
      theScope = "Input";
      break;
    case kAudioObjectPropertyScopeOutput:
      theScope = "Output";
      break;
    case kAudioObjectPropertyScopePlayThrough:
      theScope = "Play Through";
      break;
    default:
      break;
  }
  std::printf(
      "AudioObjectID:\t\t0x%lX\n\tAudioClassID:\t'%s'\n\tName:\t\t\t%s\n\tScope:\t\t\t%s\n"
      "\tChannel:\t\t%lu\n",
      static_cast<unsigned long>(GetObjectID()), theClass, theName, theScope,
      static_cast<unsigned long>(GetPropertyElement()));
}

// Properties.

bool HP_Control::HasProperty(const AudioObjectPropertyAddress& inAddress) const {
  switch (inAddress.mSelector) {
    case kAudioControlPropertyScope:
    case kAudioControlPropertyElement:
    case kAudioControlPropertyVariant:
      return true;
    case kAudioObjectPropertyName:
      return CACFObject<CFStringRef>(CopyName()).IsValid();
    case kAudioObjectPropertyManufacturer:
      return CACFObject<CFStringRef>(CopyManufacturerName()).IsValid();
    default:
      return HP_Object::HasProperty(inAddress);
  }
}

bool HP_Control::IsPropertySettable(const AudioObjectPropertyAddress& inAddress) const {
  switch (inAddress.mSelector) {
    case kAudioControlPropertyScope:
    case kAudioControlPropertyElement:
    case kAudioControlPropertyVariant:
    case kAudioObjectPropertyName:
    case kAudioObjectPropertyManufacturer:
      return false;
    default:
      return HP_Object::IsPropertySettable(inAddress);
  }
}

UInt32 HP_Control::GetPropertyDataSize(const AudioObjectPropertyAddress& inAddress,
                                       UInt32 inQualifierDataSize,
                                       const void* inQualifierData) const {
  switch (inAddress.mSelector) {
    case kAudioControlPropertyScope:
    case kAudioControlPropertyElement:
    case kAudioControlPropertyVariant:
      return sizeof(UInt32);
    case kAudioObjectPropertyName:
    case kAudioObjectPropertyManufacturer:
      return sizeof(CFStringRef);
    default:
      return HP_Object::GetPropertyDataSize(inAddress, inQualifierDataSize, inQualifierData);
  }
}

void HP_Control::CheckPropertyDataSize(const AudioObjectPropertyAddress& inAddress,
                                       UInt32 inQualifierDataSize, const void* inQualifierData,
                                       UInt32 inDataSize) const {
  if (inDataSize != GetPropertyDataSize(inAddress, inQualifierDataSize, inQualifierData)) {
    throw CAException(kAudioHardwareBadPropertySizeError);
  }
}

void HP_Control::GetPropertyData(const AudioObjectPropertyAddress& inAddress,
                                 UInt32 inQualifierDataSize, const void* inQualifierData,
                                 UInt32& ioDataSize, void* outData) const {
  CheckPropertyDataSize(inAddress, inQualifierDataSize, inQualifierData, ioDataSize);
  const auto theAnswer = [outData](const auto& inValue) {
    std::memcpy(outData, &inValue, sizeof(inValue));
  };
  switch (inAddress.mSelector) {
    case kAudioControlPropertyScope:
      theAnswer(GetPropertyScope());
      break;
    case kAudioControlPropertyElement:
      theAnswer(GetPropertyElement());
      break;
    case kAudioControlPropertyVariant:
      theAnswer(GetVariant());
      break;
    case kAudioObjectPropertyName:
      theAnswer(CopyName());
      break;
    case kAudioObjectPropertyManufacturer:
      theAnswer(CopyManufacturerName());
      break;
    default:
      HP_Object::GetPropertyData(inAddress, inQualifierDataSize, inQualifierData, ioDataSize,
                                 outData);
      break;
  }
}

void HP_Control::SetPropertyData(const AudioObjectPropertyAddress& inAddress,
                                 UInt32 inQualifierDataSize, const void* inQualifierData,
                                 UInt32 inDataSize, const void* inData,
                                 const AudioTimeStamp* inWhen) {
  HP_Object::SetPropertyData(inAddress, inQualifierDataSize, inQualifierData, inDataSize, inData,
                             inWhen);
}

// Notifications.

void HP_Control::ValueChanged() const {
  CAPropertyAddressList theNotifications;
  GetValueChangedDeviceNotifications(theNotifications);
  SendNotifications(theNotifications);
}

void HP_Control::RangeChanged() const {
  CAPropertyAddressList theNotifications;
  GetRangeChangedDeviceNotifications(theNotifications);
  SendNotifications(theNotifications);
}

namespace {

// A device's pair of operations for one of the properties that a control stands behind.
struct ChangedProperty {
  AudioObjectPropertySelector (HP_Device::*mGetSelector)(const HP_Control*) const;
  AudioObjectPropertyScope (HP_Device::*mGetScope)(const HP_Control*) const;
};

constexpr ChangedProperty kValueChangedProperties[] = {
    {&HP_Device::GetPrimaryValueChangedPropertySelectorForControl,
     &HP_Device::GetPrimaryValueChangedPropertyScopeForControl},
    {&HP_Device::GetSecondaryValueChangedPropertySelectorForControl,
     &HP_Device::GetSecondaryValueChangedPropertyScopeForControl},
    {&HP_Device::GetThirdValueChangedPropertySelectorForControl,
     &HP_Device::GetThirdValueChangedPropertyScopeForControl},
    {&HP_Device::GetFourthValueChangedPropertySelectorForControl,
     &HP_Device::GetFourthValueChangedPropertyScopeForControl},
};

constexpr ChangedProperty kRangeChangedProperties[] = {
    {&HP_Device::GetPrimaryRangeChangedPropertySelectorForControl,
     &HP_Device::GetPrimaryRangeChangedPropertyScopeForControl},
    {&HP_Device::GetSecondaryRangeChangedPropertySelectorForControl,
     &HP_Device::GetSecondaryRangeChangedPropertyScopeForControl},
};

template <size_t kCount>
void GatherNotifications(const HP_Control& inControl, const ChangedProperty (&inProperties)[kCount],
                         CAPropertyAddressList& outNotifications) {
  const HP_Device& theDevice = *inControl.GetOwningDevice();
  for (const ChangedProperty& theProperty : inProperties) {
    const CAPropertyAddress theAddress((theDevice.*theProperty.mGetSelector)(&inControl),
                                       (theDevice.*theProperty.mGetScope)(&inControl),
                                       inControl.GetPropertyElement());
    if (theAddress.mSelector != 0) outNotifications.AppendUniqueItem(theAddress);
  }
}

}  // namespace

void HP_Control::GetValueChangedDeviceNotifications(CAPropertyAddressList& outNotifications) const {
  GatherNotifications(*this, kValueChangedProperties, outNotifications);
}

void HP_Control::GetRangeChangedDeviceNotifications(CAPropertyAddressList& outNotifications) const {
  GatherNotifications(*this, kRangeChangedProperties, outNotifications);
}

void HP_Control::SendNotifications(CAPropertyAddressList& inNotifications) const {
  if (inNotifications.GetNumberItems() == 0) return;
  mOwningDevice->PropertiesChanged(inNotifications.GetNumberItems(), inNotifications.GetItems());

  CAPropertyAddressList theNotifications(inNotifications);
  const HP_Stream* theStream =
      mOwningDevice->GetStreamByPropertyAddress(theNotifications.GetItems()[0], false);
  if (theStream == nullptr) return;
  for (UInt32 i = 0; i < theNotifications.GetNumberItems(); ++i) {
    theStream->ChangeDevicePropertyAddressIntoStreamPropertyAddress(theNotifications.GetItems()[i]);
  }
  theStream->PropertiesChanged(theNotifications.GetNumberItems(), theNotifications.GetItems());
}
