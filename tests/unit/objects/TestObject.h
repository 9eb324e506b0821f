#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "objects/HP_Object.h"
#include "objects/HP_Property.h"
#include "support/CAException.h"

namespace tembra::test {

template <class Call>
OSStatus StatusOf(Call inCall) {
  try {
    inCall();
    return 0;
  } catch (const CAException& inException) {
    return inException.GetError();
  }
}

// A helper with the addresses that it is given; its value is one byte.
class Helper : public HP_Property {
 public:
  explicit Helper(std::vector<AudioObjectPropertyAddress> inAddresses)
      : mAddresses(std::move(inAddresses)) {}

  bool IsActive(const AudioObjectPropertyAddress& inAddress) const override {
    mAsked.push_back(inAddress.mSelector);
    mAskedScope = inAddress.mScope;
    return mActive;
  }
  bool IsPropertySettable(const AudioObjectPropertyAddress&) const override { return mSettable; }
  UInt32 GetPropertyDataSize(const AudioObjectPropertyAddress&, UInt32 inQualifierSize,
                             const void*) const override {
    return 1 + inQualifierSize;
  }
  void GetPropertyData(const AudioObjectPropertyAddress&, UInt32, const void*, UInt32& ioSize,
                       void* outData) const override {
    ioSize = 1;
    std::memcpy(outData, &mValue, 1);
  }
  void SetPropertyData(const AudioObjectPropertyAddress&, UInt32, const void*, UInt32 inSize,
                       const void* inData, const AudioTimeStamp* inWhen) override {
    EXPECT_EQ(1u, inSize);
    std::memcpy(&mValue, inData, 1);
    mWhen = inWhen;
  }
  UInt32 GetNumberAddressesImplemented() const override {
    return static_cast<UInt32>(mAddresses.size());
  }
  void GetImplementedAddressByIndex(UInt32 inIndex,
                                    AudioObjectPropertyAddress& outAddress) const override {
    // The address comes in as a default one.
    EXPECT_EQ(0u, outAddress.mSelector);
    EXPECT_EQ(UInt32{'glob'}, outAddress.mScope);
    outAddress = mAddresses[inIndex];
  }

  std::vector<AudioObjectPropertyAddress> mAddresses;
  mutable AudioObjectPropertyScope mAskedScope = 0;
  bool mActive = true;
  bool mSettable = true;
  UInt8 mValue = 0;
  const AudioTimeStamp* mWhen = nullptr;
  mutable std::vector<UInt32> mAsked;
};

class TestObject : public HP_Object {
 public:
  explicit TestObject(AudioObjectID inID = 0, AudioClassID inClass = 'aobj',
                      HP_HardwarePlugIn* inPlugIn = nullptr)
      : HP_Object(inID, inClass, inPlugIn) {}

  using HP_Object::AddProperty;
  using HP_Object::FindActivePropertyByAddress;
  using HP_Object::RemoveProperty;

  CAMutex* GetObjectStateMutex() override { return mMutex; }
  void PropertyListenerAdded(const AudioObjectPropertyAddress& inAddress) override {
    mAdded.push_back(inAddress.mSelector);
  }
  void PropertyListenerRemoved(const AudioObjectPropertyAddress& inAddress) override {
    mRemoved.push_back(inAddress.mSelector);
  }

  CAMutex* mMutex = nullptr;
  std::vector<UInt32> mAdded;
  std::vector<UInt32> mRemoved;
};

inline AudioObjectPropertyAddress Address(UInt32 inSelector, UInt32 inScope = 'glob',
                                          UInt32 inElement = 0) {
  return {inSelector, inScope, inElement};
}

}  // namespace tembra::test
