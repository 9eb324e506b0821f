// The properties by which a device answers for its controls.

#include "controls/HP_DeviceControlProperty.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <set>

#include "unit/controls/Controls.h"

namespace tembra::test {
namespace {

// Gives access to what an object keeps for those that derive from it.
class OpenDevice : public SimulatedDevice {
 public:
  using HP_Object::AddProperty;
  using HP_Object::RemoveProperty;
};

const char* const kSelectors[] = {
    "jack", "volm", "vold", "vdb#", "v2db", "db2v", "vctf", "span", "spn#", "mute", "solo",
    "ssrc", "ssc#", "lscn", "sscn", "csrc", "csc#", "lcsn", "cscn", "csck", "thru", "thrs",
    "mvsc", "mvdb", "mvd#", "mv2d", "mv2s", "mvtf", "mspn", "msp#", "mdds", "mdd#", "mddc",
    "mddn", "nlvl", "nlv#", "lcnl", "cnlv", "isub", "svlm", "svld", "svd#", "sv2d", "sd2v",
    "svtf", "smut", "bbvs", "bbvd", "bbd#", "bv2d", "bd2v", "bvtf"};
const std::set<std::string> kTranslations = {"lscn", "sscn", "lcsn", "cscn", "mddc",
                                             "mddn", "lcnl", "cnlv", "csck"};
const std::set<std::string> kFunctions = {"vctf", "mvtf", "svtf", "bvtf"};

UInt32 CodeOf(const char* inText) {
  return (UInt32{static_cast<UInt8>(inText[0])} << 24) |
         (UInt32{static_cast<UInt8>(inText[1])} << 16) |
         (UInt32{static_cast<UInt8>(inText[2])} << 8) | UInt32{static_cast<UInt8>(inText[3])};
}

class DeviceControlProperty : public testing::Test {
 protected:
  DeviceControlProperty() : mProperty(&mDevice) { mDevice.AddProperty(&mProperty); }
  ~DeviceControlProperty() override {
    mDevice.RemoveProperty(&mProperty);
    mDevice.RemoveAllControls();
  }

  // One control of every class in the output's channel 1, and what play through has.
  void AddAllControls() {
    for (const UInt32 theClass : {'vlme', 'subv', 'pram'}) Add<LevelControl>(theClass, 'outp');
    for (const UInt32 theClass : {'mute', 'solo', 'jack', 'subm', 'atch'}) {
      Add<BooleanControl>(theClass, 'outp');
    }
    for (const UInt32 theClass : {'dsrc', 'clck', 'nlvl'}) Add<SelectorControl>(theClass, 'outp');
    Add<StereoPanControl>('span', 'outp');
    Add<LevelControl>('vlme', 'ptru');
    Add<BooleanControl>('mute', 'ptru');
    Add<BooleanControl>('solo', 'ptru');
    Add<StereoPanControl>('span', 'ptru');
    Add<SelectorControl>('dest', 'ptru');
  }

  template <class T>
  T* Add(UInt32 inClass, UInt32 inScope, UInt32 inElement = 1) {
    auto theControl = std::make_unique<T>(inClass, &mDevice, inScope, inElement);
    T* thePointer = theControl.get();
    mDevice.AddControl(thePointer);
    mControls.push_back(std::move(theControl));
    return thePointer;
  }

  OSStatus GetTranslation(const char* inSelector, AudioValueTranslation inTranslation) {
    return StatusOf([&] {
      UInt32 theSize = sizeof(inTranslation);
      mDevice.GetPropertyData(CAPropertyAddress(CodeOf(inSelector), 'outp', 1), 0, nullptr, theSize,
                              &inTranslation);
    });
  }

  OpenDevice mDevice;
  HP_DeviceControlProperty mProperty;
  std::vector<std::unique_ptr<HP_Control>> mControls;
};

TEST_F(DeviceControlProperty, ImplementsFiftyTwoSelectorsEverywhere) {
  ASSERT_EQ(std::size(kSelectors), 52U);
  ASSERT_EQ(mProperty.GetNumberAddressesImplemented(), 52U);
  for (UInt32 i = 0; i < 52; ++i) {
    AudioObjectPropertyAddress theAddress{};
    mProperty.GetImplementedAddressByIndex(i, theAddress);
    EXPECT_EQ(theAddress.mSelector, CodeOf(kSelectors[i])) << kSelectors[i];
    EXPECT_EQ(theAddress.mScope, 707406378U);
    EXPECT_EQ(theAddress.mElement, 0xFFFFFFFFU);
  }
}

TEST_F(DeviceControlProperty, ThereIsNoneBehindTheLast) {
  AudioObjectPropertyAddress theAddress{1, 2, 3};
  mProperty.GetImplementedAddressByIndex(52, theAddress);
  mProperty.GetImplementedAddressByIndex(0xFFFFFFFF, theAddress);
  EXPECT_EQ(theAddress.mSelector, 1U);
  EXPECT_EQ(theAddress.mScope, 2U);
  EXPECT_EQ(theAddress.mElement, 3U);
}

TEST_F(DeviceControlProperty, WithoutAControlNothingIsThere) {
  Add<BooleanControl>('mute', 'outp');
  const CAPropertyAddress theAddress('volm', 'outp', 1);
  EXPECT_FALSE(mProperty.IsActive(theAddress));
  EXPECT_FALSE(mProperty.IsPropertySettable(theAddress));
  EXPECT_EQ(mProperty.GetPropertyDataSize(theAddress, 0, nullptr), 0U);
  Float32 theValue = 0.25F;
  UInt32 theSize = 3;
  mProperty.GetPropertyData(theAddress, 0, nullptr, theSize, &theValue);
  EXPECT_EQ(theSize, 3U);
  EXPECT_EQ(theValue, 0.25F);
  mProperty.SetPropertyData(theAddress, 0, nullptr, 3, &theValue, nullptr);
  // So that the device has no such property.
  EXPECT_FALSE(mDevice.HasProperty(theAddress));
  EXPECT_EQ(StatusOf([&] { Get<Float32>(mDevice, theAddress); }), 'who?');
}

TEST_F(DeviceControlProperty, TheDeviceHasThemWhereItsControlsStand) {
  AddAllControls();
  for (const char* theSelector : kSelectors) {
    SCOPED_TRACE(theSelector);
    EXPECT_TRUE(mDevice.HasProperty(CAPropertyAddress(CodeOf(theSelector), 'outp', 1)));
    EXPECT_FALSE(mDevice.HasProperty(CAPropertyAddress(CodeOf(theSelector), 'outp', 0)));
    EXPECT_FALSE(mDevice.HasProperty(CAPropertyAddress(CodeOf(theSelector), 'outp', 2)));
  }
}

TEST_F(DeviceControlProperty, SettableAndSizeAreTheControls) {
  AddAllControls();
  for (const char* theSelector : kSelectors) {
    SCOPED_TRACE(theSelector);
    const CAPropertyAddress theAddress(CodeOf(theSelector), 'outp', 1);
    const CAPropertyAddress theControlAddress(
        mDevice.ConvertDeviceSelectorToControlSelector(theAddress.mSelector));
    const HP_Control* theControl = mDevice.GetControlByAddress(theAddress);
    ASSERT_NE(theControl, nullptr);
    if (kTranslations.count(theSelector) != 0) {
      EXPECT_FALSE(mDevice.IsPropertySettable(theAddress));
      EXPECT_EQ(mDevice.GetPropertyDataSize(theAddress, 0, nullptr), 32U);
    } else if (kFunctions.count(theSelector) != 0) {
      EXPECT_EQ(StatusOf([&] { mDevice.IsPropertySettable(theAddress); }), 'who?');
      EXPECT_EQ(StatusOf([&] { mDevice.GetPropertyDataSize(theAddress, 0, nullptr); }), 'who?');
      EXPECT_EQ(StatusOf([&] { Get<UInt32>(mDevice, theAddress); }), 'who?');
      EXPECT_EQ(StatusOf([&] { Set<UInt32>(mDevice, theAddress, 0); }), 'who?');
    } else {
      EXPECT_EQ(mDevice.IsPropertySettable(theAddress),
                theControl->IsPropertySettable(theControlAddress));
      EXPECT_EQ(mDevice.GetPropertyDataSize(theAddress, 0, nullptr),
                theControl->GetPropertyDataSize(theControlAddress, 0, nullptr));
      EXPECT_NE(mDevice.GetPropertyDataSize(theAddress, 0, nullptr), 0U);
    }
  }
}

TEST_F(DeviceControlProperty, ValuesGoThrough) {
  auto* theLevel = Add<LevelControl>('vlme', 'outp');
  auto* theMute = Add<BooleanControl>('mute', 'outp');
  auto* thePlayThrough = Add<BooleanControl>('mute', 'ptru');
  auto* theSource = Add<SelectorControl>('dsrc', 'outp');
  auto* thePan = Add<StereoPanControl>('span', 'outp');
  const auto theAddress = [](UInt32 inSelector) {
    return CAPropertyAddress(inSelector, 'outp', 1);
  };
  Set(mDevice, theAddress('volm'), 0.5F);
  EXPECT_EQ(theLevel->mScalar, 0.5F);
  EXPECT_EQ(Get<Float32>(mDevice, theAddress('volm')), 0.5F);
  Set(mDevice, theAddress('vold'), -3.0F);
  EXPECT_EQ(Get<Float32>(mDevice, theAddress('vold')), -3.0F);
  EXPECT_EQ(Get<AudioValueRange>(mDevice, theAddress('vdb#')).mMinimum, -70.5);
  Float32 theValue = 0.5F;
  UInt32 theSize = sizeof(theValue);
  mDevice.GetPropertyData(theAddress('v2db'), 0, nullptr, theSize, &theValue);
  EXPECT_EQ(theValue, 5.0F);
  mDevice.GetPropertyData(theAddress('db2v'), 0, nullptr, theSize, &theValue);
  EXPECT_EQ(theValue, 0.5F);

  Set<UInt32>(mDevice, theAddress('mute'), 1);
  EXPECT_TRUE(theMute->mValue);
  EXPECT_FALSE(thePlayThrough->mValue);
  Set<UInt32>(mDevice, theAddress('thru'), 1);
  EXPECT_TRUE(thePlayThrough->mValue);

  Set<UInt32>(mDevice, theAddress('ssrc'), 40);
  EXPECT_EQ(theSource->mCurrent, 40U);
  UInt32 theItems[3] = {};
  theSize = 8;
  mDevice.GetPropertyData(theAddress('ssc#'), 0, nullptr, theSize, theItems);
  EXPECT_EQ(theSize, 8U);
  EXPECT_EQ(theItems[1], 20U);
  EXPECT_EQ(theItems[2], 0U);

  Set(mDevice, theAddress('span'), 0.25F);
  EXPECT_EQ(thePan->mValue, 0.25F);
  EXPECT_EQ((Get<std::array<UInt32, 2>>(mDevice, theAddress('spn#'))[1]), 4U);
}

TEST_F(DeviceControlProperty, TheControlChecksTheSize) {
  Add<LevelControl>('vlme', 'outp');
  const CAPropertyAddress theAddress('volm', 'outp', 1);
  EXPECT_EQ(StatusOf([&] { Get<Float64>(mDevice, theAddress); }), '!siz');
  EXPECT_EQ(StatusOf([&] { Set<Float64>(mDevice, theAddress, 0.5); }), '!siz');
  EXPECT_EQ(
      StatusOf([&] { Set<AudioValueRange>(mDevice, CAPropertyAddress('vdb#', 'outp', 1), {}); }),
      'nope');
}

// Translations.

TEST_F(DeviceControlProperty, ATranslationsInputIsTheQualifier) {
  AddAllControls();
  for (const std::string& theSelector : kTranslations) {
    if (theSelector == "csck") continue;
    SCOPED_TRACE(theSelector);
    UInt32 theID = 30;
    CFStringRef theName = nullptr;
    EXPECT_EQ(
        GetTranslation(theSelector.c_str(), {&theID, sizeof(theID), &theName, sizeof(theName)}), 0);
    EXPECT_EQ(TextOf(theName), "item 30");
  }
}

TEST_F(DeviceControlProperty, ATranslationsFieldsAreChecked) {
  AddAllControls();
  for (const std::string& theSelector : kTranslations) {
    SCOPED_TRACE(theSelector);
    const char* theText = theSelector.c_str();
    const UInt32 theRight = theSelector == "csck" ? 4 : 8;
    UInt32 theID = 30;
    std::array<UInt8, 16> theOutput{};
    for (const UInt32 theSize : {0U, 4U, 7U, 8U, 9U}) {
      if (theSize == theRight) continue;
      EXPECT_EQ(GetTranslation(theText, {&theID, 4, theOutput.data(), theSize}), 561211770);
    }
    for (const UInt32 theSize : {0U, 3U, 8U}) {
      EXPECT_EQ(GetTranslation(theText, {&theID, theSize, theOutput.data(), theRight}), '!siz');
    }
    EXPECT_EQ(GetTranslation(theText, {nullptr, 4, theOutput.data(), theRight}), '!siz');
    EXPECT_EQ(GetTranslation(theText, {&theID, 4, nullptr, theRight}), '!siz');
    EXPECT_EQ(theOutput, (std::array<UInt8, 16>{}));
    EXPECT_EQ(StatusOf([&] {
                Get<std::array<UInt8, 31>>(mDevice, CAPropertyAddress(CodeOf(theText), 'outp', 1));
              }),
              '!siz');
  }
}

TEST_F(DeviceControlProperty, AClockSourcesKindEndsAtTheObject) {
  Add<SelectorControl>('clck', 'outp');
  UInt32 theID = 30;
  UInt32 theKind = 0;
  EXPECT_EQ(GetTranslation("csck", {&theID, sizeof(theID), &theKind, sizeof(theKind)}), 'who?');
  UInt64 theWide = 0;
  EXPECT_EQ(GetTranslation("csck", {&theID, sizeof(theID), &theWide, sizeof(theWide)}), '!siz');
}

TEST_F(DeviceControlProperty, SettingATranslationEndsAtTheObject) {
  AddAllControls();
  AudioValueTranslation theTranslation{};
  const auto theStatus = [&](HP_Property& inProperty, UInt32 inSelector) {
    return StatusOf([&] {
      inProperty.SetPropertyData(CAPropertyAddress(inSelector, 'outp', 1), 0, nullptr,
                                 sizeof(theTranslation), &theTranslation, nullptr);
    });
  };
  // The control's name of an item is not settable.
  EXPECT_EQ(theStatus(mProperty, 'mddc'), 'nope');
  EXPECT_EQ(theStatus(mProperty, 'csck'), 'who?');
  // The device does not let it come so far.
  EXPECT_EQ(StatusOf([&] { Set(mDevice, CAPropertyAddress('mddc', 'outp', 1), theTranslation); }),
            'nope');
}

}  // namespace
}  // namespace tembra::test
