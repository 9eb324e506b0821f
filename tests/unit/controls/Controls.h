#pragma once

#include <memory>
#include <string>
#include <vector>

#include "controls/HP_BooleanControl.h"
#include "controls/HP_LevelControl.h"
#include "controls/HP_SelectorControl.h"
#include "controls/HP_StereoPanControl.h"
#include "objects/CAPropertyAddress.h"
#include "support/device/SimulatedDevice.h"

// Controls that stand anywhere and keep what they are given.

namespace tembra::test {

constexpr AudioObjectID kControlID = 4100;

template <class Base>
class PlacedControl : public Base {
 public:
  PlacedControl(AudioClassID inClassID, HP_Device* inDevice,
                AudioObjectPropertyScope inScope = kAudioObjectPropertyScopeOutput,
                AudioObjectPropertyElement inElement = 0)
      : Base(kControlID, inClassID, nullptr, inDevice), mScope(inScope), mElement(inElement) {}

  AudioObjectPropertyScope GetPropertyScope() const override { return mScope; }
  AudioObjectPropertyElement GetPropertyElement() const override { return mElement; }
  CFStringRef CopyName() const override {
    return mName == nullptr ? Base::CopyName()
                            : CFStringCreateWithCString(nullptr, mName, kCFStringEncodingUTF8);
  }
  bool IsReadOnly() const override { return mIsReadOnly; }

  AudioObjectPropertyScope mScope;
  AudioObjectPropertyElement mElement;
  const char* mName = nullptr;
  bool mIsReadOnly = false;
};

using PlainControl = PlacedControl<HP_Control>;

class LevelControl : public PlacedControl<HP_LevelControl> {
 public:
  using PlacedControl::PlacedControl;
  Float32 GetMinimumDBValue() const override { return -70.5F; }
  Float32 GetMaximumDBValue() const override { return 6.25F; }
  Float32 GetDBValue() const override { return mDB; }
  void SetDBValue(Float32 inValue) override { mDB = inValue; }
  Float32 GetScalarValue() const override { return mScalar; }
  void SetScalarValue(Float32 inValue) override { mScalar = inValue; }
  Float32 ConverScalarValueToDBValue(Float32 inValue) const override { return inValue * 10; }
  Float32 ConverDBValueToScalarValue(Float32 inValue) const override { return inValue / 10; }

  Float32 mDB = -12.5F;
  Float32 mScalar = 0.75F;
};

class BooleanControl : public PlacedControl<HP_BooleanControl> {
 public:
  using PlacedControl::PlacedControl;
  bool GetValue() const override { return mValue; }
  void SetValue(bool inValue) override {
    mValue = inValue;
    ++mSets;
  }

  bool mValue = false;
  int mSets = 0;
};

// Items 10, 20, 30...
class SelectorControl : public PlacedControl<HP_SelectorControl> {
 public:
  using PlacedControl::PlacedControl;
  UInt32 GetNumberItems() const override { return mNumberItems; }
  UInt32 GetCurrentItemID() const override { return mCurrent; }
  UInt32 GetCurrentItemIndex() const override { return GetItemIndexForID(mCurrent); }
  void SetCurrentItemByID(UInt32 inID) override { mCurrent = inID; }
  void SetCurrentItemByIndex(UInt32 inIndex) override { mCurrent = GetItemIDForIndex(inIndex); }
  UInt32 GetItemIDForIndex(UInt32 inIndex) const override { return (inIndex + 1) * 10; }
  UInt32 GetItemIndexForID(UInt32 inID) const override { return inID / 10 - 1; }
  CFStringRef CopyItemNameByID(UInt32 inID) const override {
    if (inID % 10 != 0) throw CAException(kAudioHardwareIllegalOperationError);
    return CFStringCreateWithCString(nullptr, ("item " + std::to_string(inID)).c_str(),
                                     kCFStringEncodingUTF8);
  }
  CFStringRef CopyItemNameByIndex(UInt32 inIndex) const override {
    return CopyItemNameByID(GetItemIDForIndex(inIndex));
  }
  CFStringRef CopyItemNameByIDWithoutLocalizing(UInt32 inID) const override {
    return CopyItemNameByID(inID);
  }
  CFStringRef CopyItemNameByIndexWithoutLocalizing(UInt32 inIndex) const override {
    return CopyItemNameByIndex(inIndex);
  }
  UInt32 GetItemKindByID(UInt32 inID) const override { return inID + 1; }
  UInt32 GetItemKindByIndex(UInt32 inIndex) const override {
    return GetItemKindByID(GetItemIDForIndex(inIndex));
  }

  UInt32 mNumberItems = 5;
  UInt32 mCurrent = 20;
};

class StereoPanControl : public PlacedControl<HP_StereoPanControl> {
 public:
  using PlacedControl::PlacedControl;
  Float32 GetValue() const override { return mValue; }
  void SetValue(Float32 inValue) override { mValue = inValue; }
  void GetChannels(UInt32& outLeft, UInt32& outRight) const override {
    outLeft = 3;
    outRight = 4;
  }

  Float32 mValue = 0.5F;
};

template <class T>
T Get(const HP_Object& inObject, const AudioObjectPropertyAddress& inAddress,
      UInt32 inQualifierSize = 0, const void* inQualifier = nullptr) {
  T theValue{};
  UInt32 theSize = sizeof(theValue);
  inObject.GetPropertyData(inAddress, inQualifierSize, inQualifier, theSize, &theValue);
  return theValue;
}

template <class T>
void Set(HP_Object& inObject, const AudioObjectPropertyAddress& inAddress, const T& inValue) {
  inObject.SetPropertyData(inAddress, 0, nullptr, sizeof(inValue), &inValue, nullptr);
}

// The text of what a Copy operation or a property handed out; releases it.
inline std::string TextOf(CFStringRef inString) {
  if (inString == nullptr) return "(null)";
  char theText[100] = "";
  CFStringGetCString(inString, theText, sizeof(theText), kCFStringEncodingUTF8);
  CFRelease(inString);
  return theText;
}

inline std::string TextOf(const AudioObjectPropertyAddress& inAddress) {
  const auto theCode = [](UInt32 inCode) {
    std::string theText;
    for (int theShift = 24; theShift >= 0; theShift -= 8) {
      theText += static_cast<char>(inCode >> theShift);
    }
    return theText;
  };
  return theCode(inAddress.mSelector) + " " + theCode(inAddress.mScope) + " " +
         std::to_string(inAddress.mElement);
}

inline std::vector<std::string> TextsOf(
    const std::vector<AudioObjectPropertyAddress>& inAddresses) {
  std::vector<std::string> theTexts;
  for (const AudioObjectPropertyAddress& theAddress : inAddresses) {
    theTexts.push_back(TextOf(theAddress));
  }
  return theTexts;
}

}  // namespace tembra::test
