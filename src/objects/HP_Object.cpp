#include "objects/HP_Object.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "objects/HP_HardwarePlugIn.h"
#include "objects/HP_Property.h"
#include "support/CACFString.h"
#include "support/CAException.h"

namespace {

constexpr UInt32 kAddressSize = sizeof(AudioObjectPropertyAddress);
static_assert(kAddressSize == 12);

bool IsListenerSelector(AudioObjectPropertySelector inSelector) {
  return inSelector == kAudioObjectPropertyListenerAdded ||
         inSelector == kAudioObjectPropertyListenerRemoved;
}

}  // namespace

HP_Object::HP_Object(AudioObjectID inObjectID, AudioClassID inClassID, HP_HardwarePlugIn* inPlugIn)
    : mObjectID(0), mClassID(inClassID), mPlugIn(inPlugIn) {
  SetObjectID(inObjectID);
}

HP_Object::~HP_Object() {
  SetObjectID(0);
}

void HP_Object::Initialize() {}

void HP_Object::Teardown() {}

CAMutex* HP_Object::GetObjectStateMutex() {
  return nullptr;
}

void HP_Object::Show() const {
  char theName[256];
  GetNameText(theName, sizeof(theName));
  const char theClass[5] = {static_cast<char>(mClassID >> 24), static_cast<char>(mClassID >> 16),
                            static_cast<char>(mClassID >> 8), static_cast<char>(mClassID), 0};
  std::printf("AudioObjectID:\t\t0x%lX\n\tAudioClassID:\t'%s'\n\tName:\t\t\t%s\n",
              static_cast<unsigned long>(mObjectID), theClass, theName);
}

void HP_Object::GetNameText(char* outText, UInt32 inSize) const noexcept {
  outText[0] = 0;
  try {
    CFStringRef theName = nullptr;
    UInt32 theSize = sizeof(theName);
    GetPropertyData(CAPropertyAddress(kAudioObjectPropertyName), 0, nullptr, theSize, &theName);
    CACFString(theName).GetCString(outText, inSize, kCFStringEncodingUTF8);
  } catch (...) {
    // It goes without its name.
  }
}

bool HP_Object::HasProperty(const AudioObjectPropertyAddress& inAddress) const {
  return IsListenerSelector(inAddress.mSelector) ||
         FindActivePropertyByAddress(inAddress) != nullptr;
}

bool HP_Object::IsPropertySettable(const AudioObjectPropertyAddress& inAddress) const {
  if (IsListenerSelector(inAddress.mSelector)) return true;
  return GetActiveProperty(inAddress).IsPropertySettable(inAddress);
}

UInt32 HP_Object::GetPropertyDataSize(const AudioObjectPropertyAddress& inAddress,
                                      UInt32 inQualifierDataSize,
                                      const void* inQualifierData) const {
  if (IsListenerSelector(inAddress.mSelector)) return kAddressSize;
  return GetActiveProperty(inAddress).GetPropertyDataSize(inAddress, inQualifierDataSize,
                                                          inQualifierData);
}

void HP_Object::GetPropertyData(const AudioObjectPropertyAddress& inAddress,
                                UInt32 inQualifierDataSize, const void* inQualifierData,
                                UInt32& ioDataSize, void* outData) const {
  if (IsListenerSelector(inAddress.mSelector)) {
    if (ioDataSize != kAddressSize) throw CAException(kAudioHardwareBadPropertySizeError);
    if (outData == nullptr) throw CAException(kAudioHardwareIllegalOperationError);
    std::memset(outData, 0, kAddressSize);
    return;
  }
  GetActiveProperty(inAddress).GetPropertyData(inAddress, inQualifierDataSize, inQualifierData,
                                               ioDataSize, outData);
}

void HP_Object::SetPropertyData(const AudioObjectPropertyAddress& inAddress,
                                UInt32 inQualifierDataSize, const void* inQualifierData,
                                UInt32 inDataSize, const void* inData,
                                const AudioTimeStamp* inWhen) {
  if (!IsPropertySettable(inAddress)) throw CAException(kAudioHardwareIllegalOperationError);
  if (IsListenerSelector(inAddress.mSelector)) {
    if (inDataSize != kAddressSize) throw CAException(kAudioHardwareBadPropertySizeError);
    if (inData == nullptr) throw CAException(kAudioHardwareIllegalOperationError);
    AudioObjectPropertyAddress theAddress;
    std::memcpy(&theAddress, inData, kAddressSize);
    if (inAddress.mSelector == kAudioObjectPropertyListenerAdded) {
      PropertyListenerAdded(theAddress);
    } else {
      PropertyListenerRemoved(theAddress);
    }
    return;
  }
  GetActiveProperty(inAddress).SetPropertyData(inAddress, inQualifierDataSize, inQualifierData,
                                               inDataSize, inData, inWhen);
}

void HP_Object::PropertiesChanged(UInt32 inNumberAddresses,
                                  const AudioObjectPropertyAddress* inAddresses) const {
  CAMutex* theMutex = const_cast<HP_Object*>(this)->GetObjectStateMutex();
  const bool theUnlocked = theMutex != nullptr && theMutex->IsOwnedByCurrentThread();
  if (theUnlocked) theMutex->Unlock();
  AudioObjectPropertiesChanged(mPlugIn != nullptr ? mPlugIn->GetInterface() : nullptr, mObjectID,
                               inNumberAddresses, inAddresses);
  if (theUnlocked) theMutex->Lock();
}

void HP_Object::PropertyListenerAdded(const AudioObjectPropertyAddress&) {}

void HP_Object::PropertyListenerRemoved(const AudioObjectPropertyAddress&) {}

void HP_Object::AddProperty(HP_Property* inProperty) {
  const UInt32 theNumberAddresses = inProperty->GetNumberAddressesImplemented();
  for (UInt32 i = 0; i < theNumberAddresses; ++i) {
    CAPropertyAddress theAddress;
    inProperty->GetImplementedAddressByIndex(i, theAddress);
    if (FindPropertyByAddress(theAddress) != mPropertyList.end()) {
      throw CAException(kAudioHardwareIllegalOperationError);
    }
    mPropertyList.emplace_back(theAddress, inProperty);
  }
}

void HP_Object::RemoveProperty(HP_Property* inProperty) {
  const UInt32 theNumberAddresses = inProperty->GetNumberAddressesImplemented();
  for (UInt32 i = 0; i < theNumberAddresses; ++i) {
    CAPropertyAddress theAddress;
    inProperty->GetImplementedAddressByIndex(i, theAddress);
    auto theIterator = FindPropertyByAddress(theAddress);
    if (theIterator != mPropertyList.end()) mPropertyList.erase(theIterator);
  }
}

HP_Object::PropertyList::iterator HP_Object::FindPropertyByAddress(
    const AudioObjectPropertyAddress& inAddress) {
  return std::find_if(mPropertyList.begin(), mPropertyList.end(), [&](const auto& inPair) {
    return CAPropertyAddress::IsCongruentAddress(inPair.first, inAddress);
  });
}

HP_Property* HP_Object::FindActivePropertyByAddress(
    const AudioObjectPropertyAddress& inAddress) const {
  for (const auto& [theAddress, theProperty] : mPropertyList) {
    if (CAPropertyAddress::IsCongruentAddress(theAddress, inAddress) &&
        theProperty->IsActive(inAddress)) {
      return theProperty;
    }
  }
  return nullptr;
}

HP_Property& HP_Object::GetActiveProperty(const AudioObjectPropertyAddress& inAddress) const {
  HP_Property* theProperty = FindActivePropertyByAddress(inAddress);
  if (theProperty == nullptr) throw CAException(kAudioHardwareUnknownPropertyError);
  return *theProperty;
}
