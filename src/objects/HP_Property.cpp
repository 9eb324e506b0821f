#include "objects/HP_Property.h"

void HP_Property::Initialize() {}

void HP_Property::Teardown() {}

bool HP_Property::IsActive(const AudioObjectPropertyAddress&) const {
  return true;
}

bool HP_Property::IsPropertySettable(const AudioObjectPropertyAddress&) const {
  return true;
}

UInt32 HP_Property::GetPropertyDataSize(const AudioObjectPropertyAddress&, UInt32,
                                        const void*) const {
  return 0;
}

void HP_Property::GetPropertyData(const AudioObjectPropertyAddress&, UInt32, const void*,
                                  UInt32& ioDataSize, void*) const {
  ioDataSize = 0;
}

void HP_Property::SetPropertyData(const AudioObjectPropertyAddress&, UInt32, const void*, UInt32,
                                  const void*, const AudioTimeStamp*) {}

UInt32 HP_Property::GetNumberAddressesImplemented() const {
  return 0;
}

void HP_Property::GetImplementedAddressByIndex(UInt32, AudioObjectPropertyAddress&) const {}
