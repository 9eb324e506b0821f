// The base of all controls: its properties, and what a change of value or range tells.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Controls.h"
#include "support/client/FakeHAL.h"

namespace tembra::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Control : public testing::Test {
 protected:
  Control() : mHAL(FakeHAL::Get()), mControl('vlme', &mDevice, kAudioObjectPropertyScopeOutput, 2) {
    mHAL.Reset();
  }

  FakeHAL& mHAL;
  SimulatedDevice mDevice;
  PlainControl mControl;
};

TEST_F(Control, BelongsToItsDevice) {
  EXPECT_EQ(mControl.GetOwningDevice(), &mDevice);
  EXPECT_EQ(mControl.GetObjectStateMutex(), mDevice.GetDeviceStateMutex());
  EXPECT_EQ(mControl.GetObjectID(), kControlID);
  EXPECT_EQ(HP_Object::GetObjectByID(kControlID), &mControl);
  EXPECT_EQ(mControl.GetClassID(), AudioClassID{'vlme'});
}

TEST_F(Control, Defaults) {
  mDevice.mManufacturer = "Maker";
  EXPECT_EQ(mControl.GetBaseClassID(), 1633907820U);
  EXPECT_EQ(mControl.GetImplementationObject(), 0U);
  EXPECT_EQ(mControl.GetVariant(), UInt32{'vlme'});
  EXPECT_FALSE(mControl.HP_Control::IsReadOnly());
  EXPECT_EQ(mControl.CopyName(), nullptr);
  EXPECT_EQ(TextOf(mControl.CopyManufacturerName()), "Maker");
}

TEST_F(Control, IsUnmarkedUntilMarkedAndItsDeviceClearsAllMarks) {
  PlainControl theOther('mute', &mDevice);
  EXPECT_FALSE(mControl.IsMarked());
  mDevice.AddControl(&mControl);
  mDevice.AddControl(&theOther);
  mControl.SetMark(true);
  theOther.SetMark(true);
  EXPECT_TRUE(mControl.IsMarked());
  mDevice.ClearControlMarks();
  EXPECT_FALSE(mControl.IsMarked());
  EXPECT_FALSE(theOther.IsMarked());
  mDevice.RemoveAllControls();
}

// Properties.

TEST_F(Control, PlaceAndVariant) {
  for (const UInt32 theSelector : {1668506480U, 1667591277U, 1668702578U}) {
    // Scope and element are not looked at.
    for (const CAPropertyAddress theAddress :
         {CAPropertyAddress(theSelector), CAPropertyAddress(theSelector, 'inpt', 77)}) {
      EXPECT_TRUE(mControl.HasProperty(theAddress));
      EXPECT_FALSE(mControl.IsPropertySettable(theAddress));
      EXPECT_EQ(mControl.GetPropertyDataSize(theAddress, 0, nullptr), 4U);
      EXPECT_EQ(StatusOf([&] { Set<UInt32>(mControl, theAddress, 1); }), 'nope');
    }
  }
  EXPECT_EQ(Get<UInt32>(mControl, CAPropertyAddress('cscp')), UInt32{'outp'});
  EXPECT_EQ(Get<UInt32>(mControl, CAPropertyAddress('celm')), 2U);
  EXPECT_EQ(Get<UInt32>(mControl, CAPropertyAddress('cvar')), UInt32{'vlme'});
}

TEST_F(Control, SizesMustBeExact) {
  EXPECT_EQ(StatusOf([&] { Get<UInt64>(mControl, CAPropertyAddress('cscp')); }), 561211770);
  EXPECT_EQ(StatusOf([&] { Get<UInt16>(mControl, CAPropertyAddress('celm')); }), '!siz');
  EXPECT_EQ(StatusOf([&] { Get<UInt32>(mControl, CAPropertyAddress('lnam')); }), '!siz');
}

TEST_F(Control, NamesAreThereWhenThereIsText) {
  const CAPropertyAddress theName(1819173229U);
  const CAPropertyAddress theMaker(1819107691U);
  EXPECT_FALSE(mControl.HasProperty(theName));
  EXPECT_FALSE(mControl.HasProperty(theMaker));
  mControl.mName = "Volume";
  mDevice.mManufacturer = "Maker";
  for (const CAPropertyAddress& theAddress : {theName, theMaker}) {
    EXPECT_TRUE(mControl.HasProperty(theAddress));
    EXPECT_FALSE(mControl.IsPropertySettable(theAddress));
    EXPECT_EQ(mControl.GetPropertyDataSize(theAddress, 0, nullptr), 8U);
  }
  EXPECT_EQ(TextOf(Get<CFStringRef>(mControl, theName)), "Volume");
  EXPECT_EQ(TextOf(Get<CFStringRef>(mControl, theMaker)), "Maker");
}

TEST_F(Control, OtherPropertiesAreThoseOfAnyObject) {
  EXPECT_TRUE(mControl.HasProperty(CAPropertyAddress('lisa')));
  EXPECT_TRUE(mControl.IsPropertySettable(CAPropertyAddress('lisa')));
  EXPECT_EQ(mControl.GetPropertyDataSize(CAPropertyAddress('lisa'), 0, nullptr), 12U);
  const CAPropertyAddress theAddress('volm');
  Set(mControl, CAPropertyAddress('lisa'), static_cast<AudioObjectPropertyAddress>(theAddress));
  EXPECT_EQ(Get<AudioObjectPropertyAddress>(mControl, CAPropertyAddress('lisa')).mSelector, 0U);
  EXPECT_FALSE(mControl.HasProperty(CAPropertyAddress('zzzz')));
  EXPECT_EQ(StatusOf([&] { mControl.IsPropertySettable(CAPropertyAddress('zzzz')); }), 'who?');
  EXPECT_EQ(StatusOf([&] { mControl.GetPropertyDataSize(CAPropertyAddress('zzzz'), 0, nullptr); }),
            'who?');
  EXPECT_EQ(StatusOf([&] { Get<UInt32>(mControl, CAPropertyAddress('zzzz')); }), 'who?');
  EXPECT_EQ(StatusOf([&] { Set<UInt32>(mControl, CAPropertyAddress('zzzz'), 0); }), 'who?');
}

TEST_F(Control, ShowPrintsOneRecord) {
  mControl.mName = "Master";
  const auto theText = [&] {
    testing::internal::CaptureStdout();
    mControl.Show();
    std::fflush(stdout);
    return testing::internal::GetCapturedStdout();
  };
  EXPECT_EQ(theText(),
            "AudioObjectID:\t\t0x1004\n\tAudioClassID:\t'vlme'\n\tName:\t\t\tMaster\n"
            "\tScope:\t\t\tOutput\n\tChannel:\t\t2\n");
  mControl.mName = nullptr;
  mControl.mElement = 0;
  for (const auto& [theScope, theWord] : {std::pair<UInt32, const char*>{'inpt', "Input"},
                                          {'ptru', "Play Through"},
                                          {'glob', "Global"},
                                          {'none', "Global"}}) {
    mControl.mScope = theScope;
    EXPECT_EQ(theText(),
              "AudioObjectID:\t\t0x1004\n\tAudioClassID:\t'vlme'\n\tName:\t\t\t\n\tScope:\t\t\t" +
                  std::string(theWord) + "\n\tChannel:\t\t0\n");
  }
}

// Notifications.

TEST_F(Control, AChangeIsToldOnTheDeviceAndOnTheStreamThatHasTheChannel) {
  mDevice.AddSimulatedStream(true, FloatFormat(2));
  mDevice.AddSimulatedStream(false, FloatFormat(1));
  const AudioObjectID theStreamID =
      mDevice.AddSimulatedStream(false, FloatFormat(4))->GetObjectID();
  mControl.ValueChanged();
  EXPECT_THAT(TextsOf(mDevice.mNotifications), ElementsAre("volm outp 2", "vold outp 2"));
  ASSERT_EQ(mHAL.mChanges.size(), 1U);
  EXPECT_EQ(mHAL.mChanges[0].mObject, theStreamID);
  // The stream counts its channels from its own first.
  EXPECT_THAT(TextsOf(mHAL.mChanges[0].mAddresses), ElementsAre("volm glob 1", "vold glob 1"));
}

TEST_F(Control, ItsOwnListenersAreNotTold) {
  mDevice.AddSimulatedStream(false, FloatFormat(2));
  mControl.ValueChanged();
  for (const FakeHAL::Change& theChange : mHAL.mChanges) EXPECT_NE(theChange.mObject, kControlID);
}

TEST_F(Control, WithoutAStreamTheDeviceAloneIsTold) {
  mControl.ValueChanged();
  EXPECT_THAT(TextsOf(mDevice.mNotifications), ElementsAre("volm outp 2", "vold outp 2"));
  EXPECT_THAT(mHAL.mChanges, IsEmpty());
}

TEST_F(Control, AStreamThatDoesNotReachTheChannelIsNotTold) {
  mDevice.AddSimulatedStream(false, FloatFormat(1));
  mControl.ValueChanged();
  EXPECT_EQ(mDevice.mNotifications.size(), 2U);
  EXPECT_THAT(mHAL.mChanges, IsEmpty());
}

TEST_F(Control, AControlOfTheWholeDeviceIsToldOnTheFirstStream) {
  const AudioObjectID theFirst = mDevice.AddSimulatedStream(true, FloatFormat(2))->GetObjectID();
  mDevice.AddSimulatedStream(true, FloatFormat(2));
  PlainControl theMute('mute', &mDevice, 'inpt', 0);
  theMute.ValueChanged();
  EXPECT_THAT(TextsOf(mDevice.mNotifications), ElementsAre("mute inpt 0"));
  ASSERT_EQ(mHAL.mChanges.size(), 1U);
  EXPECT_EQ(mHAL.mChanges[0].mObject, theFirst);
  EXPECT_THAT(TextsOf(mHAL.mChanges[0].mAddresses), ElementsAre("mute glob 0"));
}

TEST_F(Control, TheFirstAddressAloneChoosesTheStream) {
  const AudioObjectID theInput = mDevice.AddSimulatedStream(true, FloatFormat(2))->GetObjectID();
  mDevice.AddSimulatedStream(false, FloatFormat(2));
  CAPropertyAddressList theList;
  theList.AppendItem(CAPropertyAddress('mute', 'inpt', 1));
  theList.AppendItem(CAPropertyAddress('mute', 'outp', 2));
  mControl.SendNotifications(theList);
  ASSERT_EQ(mHAL.mChanges.size(), 1U);
  EXPECT_EQ(mHAL.mChanges[0].mObject, theInput);
  EXPECT_THAT(TextsOf(mHAL.mChanges[0].mAddresses), ElementsAre("mute glob 1", "mute glob 2"));
  // The list that was given is as it was.
  EXPECT_EQ(TextOf(theList.GetItems()[0]), "mute inpt 1");
}

TEST_F(Control, PlayThroughIsToldInItsOwnScopeAndInTheInput) {
  PlainControl theControl('vlme', &mDevice, 'ptru', 1);
  theControl.ValueChanged();
  EXPECT_THAT(TextsOf(mDevice.mNotifications),
              ElementsAre("volm ptru 1", "vold ptru 1", "mvsc inpt 1", "mvdb inpt 1"));
  mDevice.mNotifications.clear();
  theControl.RangeChanged();
  EXPECT_THAT(TextsOf(mDevice.mNotifications), ElementsAre("vdb# ptru 1", "mvd# inpt 1"));
}

TEST_F(Control, AChangeOfRangeIsToldLikewise) {
  const AudioObjectID theStreamID =
      mDevice.AddSimulatedStream(false, FloatFormat(2))->GetObjectID();
  mControl.RangeChanged();
  EXPECT_THAT(TextsOf(mDevice.mNotifications), ElementsAre("vdb# outp 2"));
  ASSERT_EQ(mHAL.mChanges.size(), 1U);
  EXPECT_EQ(mHAL.mChanges[0].mObject, theStreamID);
  EXPECT_THAT(TextsOf(mHAL.mChanges[0].mAddresses), ElementsAre("vdb# glob 2"));
}

TEST_F(Control, AControlThatTheDeviceDoesNotKnowTellsNobody) {
  mDevice.AddSimulatedStream(false, FloatFormat(2));
  PlainControl theControl('none', &mDevice, 'outp', 1);
  theControl.ValueChanged();
  theControl.RangeChanged();
  EXPECT_THAT(mDevice.mNotifications, IsEmpty());
  EXPECT_THAT(mHAL.mChanges, IsEmpty());
}

TEST_F(Control, AnAddressIsToldOnce) {
  struct Device : SimulatedDevice {
    UInt32 GetSecondaryValueChangedPropertySelectorForControl(const HP_Control*) const override {
      return '****';
    }
    UInt32 GetSecondaryValueChangedPropertyScopeForControl(const HP_Control*) const override {
      return 'outp';
    }
  } theDevice;
  PlainControl theControl('vlme', &theDevice, 'outp', 2);
  theControl.ValueChanged();
  EXPECT_THAT(TextsOf(theDevice.mNotifications), ElementsAre("volm outp 2"));
}

TEST_F(Control, WhatTheDeviceThrowsPassesOut) {
  struct Device : SimulatedDevice {
    void PropertiesChanged(UInt32, const AudioObjectPropertyAddress*) const override {
      throw CAException('oops');
    }
  } theDevice;
  PlainControl theControl('vlme', &theDevice, 'outp', 2);
  EXPECT_EQ(StatusOf([&] { theControl.ValueChanged(); }), 'oops');
  EXPECT_EQ(StatusOf([&] { theControl.RangeChanged(); }), 'oops');
}

}  // namespace
}  // namespace tembra::test
