// When the device makes its controls, which they are, and how they go.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

#include "controls/HP_Control.h"
#include "controls/TMBACLN_BooleanControl.h"
#include "controls/TMBACLN_LevelControl.h"
#include "controls/TMBACLN_SelectorControl.h"
#include "objects/CAPropertyAddress.h"
#include "support/CAException.h"
#include "support/CAMutex.h"
#include "support/client/ClientDevice.h"
#include "support/client/FakeHAL.h"
#include "support/client/FakeServer.h"

namespace tembra::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const char* const kControlRelated[] = {
    "bbd#", "bbvd", "bbvs", "bd2v", "bv2d", "cnlv", "csc#", "csck", "cscn", "csrc",
    "db2v", "isub", "jack", "lcnl", "lcsn", "lscn", "mdd#", "mddc", "mddn", "mdds",
    "msp#", "mspn", "mute", "mv2d", "mv2s", "mvd#", "mvdb", "mvsc", "nlv#", "nlvl",
    "ownd", "sd2v", "smut", "solo", "span", "spn#", "ssc#", "sscn", "ssrc", "sv2d",
    "svd#", "svld", "svlm", "thrs", "thru", "v2db", "vdb#", "vold", "volm"};

UInt32 CodeOf(const char* inText) {
  return (UInt32{static_cast<UInt8>(inText[0])} << 24) |
         (UInt32{static_cast<UInt8>(inText[1])} << 16) |
         (UInt32{static_cast<UInt8>(inText[2])} << 8) | UInt32{static_cast<UInt8>(inText[3])};
}

template <class Operation>
OSStatus StatusOf(Operation inOperation) {
  try {
    inOperation();
    return 0;
  } catch (const CAException& exception) {
    return exception.GetError();
  }
}

class DeviceBuilding : public testing::Test {
 protected:
  DeviceBuilding() : mHAL(FakeHAL::Get()) {
    FakeServer::Get().Reset();
    mHAL.Reset();
  }
  ~DeviceBuilding() override {
    mDevice.reset();
    FakeServer::Get().Reset();
  }

  TMBACLN_Device& Make(bool inIsMaster) {
    mHAL.mSystemValues['mast'] = inIsMaster ? 1 : 0;
    mDevice = std::make_unique<ClientDevice>();
    return **mDevice;
  }

  FakeHAL& mHAL;
  std::unique_ptr<ClientDevice> mDevice;
};

TEST_F(DeviceBuilding, TheMasterMakesEighteenControlsAtOnce) {
  TMBACLN_Device& device = Make(true);
  EXPECT_EQ(device.GetNumberStreams(true) + device.GetNumberStreams(false), 2U);
  ASSERT_EQ(device.GetNumberControls(), 18U);
  UInt32 index = 0;
  for (const UInt32 scope : {UInt32{'inpt'}, UInt32{'outp'}}) {
    for (UInt32 element = 0; element <= 2; ++element) {
      for (const UInt32 classID : {UInt32{'vlme'}, UInt32{'mute'}, UInt32{'dsrc'}}) {
        const HP_Control* control = device.GetControlByIndex(index++);
        EXPECT_EQ(control->GetClassID(), classID);
        EXPECT_EQ(control->GetPropertyScope(), scope);
        EXPECT_EQ(control->GetPropertyElement(), element);
        EXPECT_EQ(dynamic_cast<const TMBACLN_LevelControl*>(control) != nullptr, classID == 'vlme');
        EXPECT_EQ(dynamic_cast<const TMBACLN_BooleanControl*>(control) != nullptr,
                  classID == 'mute');
        EXPECT_EQ(dynamic_cast<const TMBACLN_SelectorControl*>(control) != nullptr,
                  classID == 'dsrc');
      }
    }
  }
}

TEST_F(DeviceBuilding, ControlsStartAtTheirStartValues) {
  TMBACLN_Device& device = Make(true);
  for (UInt32 index = 0; index < device.GetNumberControls(); index += 3) {
    const auto* volume = static_cast<TMBACLN_LevelControl*>(device.GetControlByIndex(index));
    EXPECT_EQ(volume->GetRawValue(), 0);
    EXPECT_EQ(volume->GetMinimumDBValue(), -90.0F);
    EXPECT_EQ(volume->GetMaximumDBValue(), 0.0F);
    EXPECT_FALSE(
        static_cast<TMBACLN_BooleanControl*>(device.GetControlByIndex(index + 1))->GetValue());
    const auto* source = static_cast<TMBACLN_SelectorControl*>(device.GetControlByIndex(index + 2));
    EXPECT_EQ(source->GetNumberItems(), 0U);
    EXPECT_EQ(source->GetCurrentItemID(), 0U);
  }
}

TEST_F(DeviceBuilding, ControlsAreCreatedForTheDeviceAndPublishedTogether) {
  TMBACLN_Device& device = Make(true);
  ASSERT_EQ(mHAL.mCreated.size(), 20U);
  for (const auto& [owner, classID] : mHAL.mCreated) EXPECT_EQ(owner, ClientDevice::kID);
  ASSERT_EQ(mHAL.mPublications.size(), 2U);
  EXPECT_EQ(mHAL.mPublications[1].mOwner, ClientDevice::kID);
  ASSERT_EQ(mHAL.mPublications[1].mPublished.size(), 18U);
  for (UInt32 index = 0; index < 18; ++index) {
    const AudioObjectID id = device.GetControlByIndex(index)->GetObjectID();
    EXPECT_EQ(mHAL.mPublications[1].mPublished[index], id);
    EXPECT_EQ(HP_Object::GetObjectByID(id), device.GetControlByIndex(index));
    EXPECT_EQ(HP_Object::GetObjectStateMutexByID(id), device.GetDeviceStateMutex());
  }
}

TEST_F(DeviceBuilding, AnotherProcessMakesNoneUntilAsked) {
  TMBACLN_Device& device = Make(false);
  EXPECT_EQ(device.GetNumberControls(), 0U);
  EXPECT_TRUE(device.HasProperty(CAPropertyAddress('ncyc')));
  EXPECT_TRUE(device.HasProperty(CAPropertyAddress('lnam')));
  EXPECT_FALSE(device.HasProperty(CAPropertyAddress('ctrl')));
  EXPECT_EQ(device.GetNumberControls(), 0U);
  EXPECT_TRUE(device.HasProperty(CAPropertyAddress('volm', 'outp')));
  EXPECT_EQ(device.GetNumberControls(), 18U);
  EXPECT_TRUE(device.GetDeviceStateMutex()->IsFree());
}

TEST_F(DeviceBuilding, AHostThatCannotTellIsNoMaster) {
  mDevice = std::make_unique<ClientDevice>();
  EXPECT_EQ((*mDevice)->GetNumberControls(), 0U);
}

// Each of the five property operations, for each selector that needs controls.
class LateControls : public DeviceBuilding, public testing::WithParamInterface<int> {};

TEST_P(LateControls, AreMadeByTheFirstQuestionThatNeedsThemWithTheDevicesMutex) {
  TMBACLN_Device& device = Make(false);
  mHAL.mOnCreate = [&](AudioClassID) {
    EXPECT_TRUE(device.GetDeviceStateMutex()->IsOwnedByCurrentThread());
  };
  for (const char* selector : kControlRelated) {
    SCOPED_TRACE(selector);
    device.ReleaseControls();
    ASSERT_EQ(device.GetNumberControls(), 0U);
    const CAPropertyAddress address(CodeOf(selector), 'glob', 99);
    UInt64 data = 0;
    UInt32 size = sizeof(data);
    StatusOf([&] {
      switch (GetParam()) {
        case 0:
          device.HasProperty(address);
          break;
        case 1:
          device.IsPropertySettable(address);
          break;
        case 2:
          device.GetPropertyDataSize(address, 0, nullptr);
          break;
        case 3:
          device.GetPropertyData(address, 0, nullptr, size, &data);
          break;
        default:
          device.SetPropertyData(address, 0, nullptr, size, &data, nullptr);
          break;
      }
    });
    EXPECT_EQ(device.GetNumberControls(), 18U);
    EXPECT_TRUE(device.GetDeviceStateMutex()->IsFree());
  }
}

INSTANTIATE_TEST_SUITE_P(EachOperation, LateControls, testing::Range(0, 5));

TEST_F(DeviceBuilding, AListenerForAControlRelatedPropertyOrForAllMakesThem) {
  TMBACLN_Device& device = Make(false);
  device.PropertyListenerAdded(CAPropertyAddress('fsiz'));
  EXPECT_EQ(device.GetNumberControls(), 0U);
  device.PropertyListenerAdded(CAPropertyAddress('****'));
  EXPECT_EQ(device.GetNumberControls(), 18U);
  device.ReleaseControls();
  // As the host tells of one.
  const AudioObjectPropertyAddress volume = {'volm', '****', 0xFFFFFFFF};
  device.SetPropertyData(CAPropertyAddress('lisa'), 0, nullptr, sizeof(volume), &volume, nullptr);
  EXPECT_EQ(device.GetNumberControls(), 18U);
}

TEST_F(DeviceBuilding, ASecondCreationDoesNothing) {
  TMBACLN_Device& device = Make(true);
  HP_Control* first = device.GetControlByIndex(0);
  mHAL.mCalls.clear();
  device.CreateControls();
  EXPECT_EQ(device.GetNumberControls(), 18U);
  EXPECT_EQ(device.GetControlByIndex(0), first);
  EXPECT_THAT(mHAL.mCalls, IsEmpty());
}

TEST_F(DeviceBuilding, ReleasingBeforeCreationDoesNothingAndCreationAfterItMakesThemAnew) {
  TMBACLN_Device& device = Make(false);
  device.ReleaseControls();
  EXPECT_EQ(device.GetNumberControls(), 0U);
  device.CreateControls();
  const AudioObjectID old = device.GetControlByIndex(0)->GetObjectID();
  device.ReleaseControls();
  EXPECT_EQ(device.GetNumberControls(), 0U);
  EXPECT_EQ(HP_Object::GetObjectByID(old), nullptr);
  EXPECT_EQ(HP_Object::GetObjectStateMutexByID(old), nullptr);
  device.CreateControls();
  ASSERT_EQ(device.GetNumberControls(), 18U);
  EXPECT_NE(device.GetControlByIndex(0)->GetObjectID(), old);
}

TEST_F(DeviceBuilding, AControlThatCannotBeCreatedIsLeftOut) {
  mHAL.mCreateStatus['mute'] = 'what';
  TMBACLN_Device& device = Make(true);
  ASSERT_EQ(device.GetNumberControls(), 12U);
  EXPECT_FALSE(device.HasProperty(CAPropertyAddress('mute', 'outp')));
  EXPECT_TRUE(device.HasProperty(CAPropertyAddress('volm', 'outp')));
  EXPECT_EQ(mHAL.mPublications.back().mPublished.size(), 12U);
}

TEST_F(DeviceBuilding, AFailedPublicationIsThrownAndNotTriedAgain) {
  TMBACLN_Device& device = Make(false);
  mHAL.mPublishStatus[ClientDevice::kID] = 'nope';
  EXPECT_EQ(StatusOf([&] { device.HasProperty(CAPropertyAddress('volm', 'outp')); }), 'nope');
  EXPECT_TRUE(device.GetDeviceStateMutex()->IsFree());
  mHAL.mCalls.clear();
  EXPECT_TRUE(device.HasProperty(CAPropertyAddress('volm', 'outp')));
  EXPECT_THAT(mHAL.mCalls, IsEmpty());
}

TEST_F(DeviceBuilding, AFailedPublicationEndsTheMastersStart) {
  mHAL.mSystemValues['mast'] = 1;
  const ClientDevice bystander(false);
  TMBACLN_Device device(70, bystander.GetPlugIn());
  mHAL.mCreateStatus['astr'] = 'what';
  mHAL.mPublishStatus[70] = 'nope';
  EXPECT_EQ(StatusOf([&] { device.Initialize(); }), 'nope');
  device.Teardown();
}

TEST_F(DeviceBuilding, TeardownReleasesTheControlsBeforeTheStreams) {
  TMBACLN_Device& device = Make(true);
  const AudioObjectID control = device.GetControlByIndex(17)->GetObjectID();
  device.Teardown();
  EXPECT_EQ(device.GetNumberControls(), 0U);
  EXPECT_EQ(HP_Object::GetObjectByID(control), nullptr);
  EXPECT_EQ(HP_Object::GetObjectStateMutexByID(control), nullptr);
  // No control is left that the device could answer for, nor what answered for them.
  EXPECT_EQ(device.GetControlByAddress(CAPropertyAddress('volm', 'outp')), nullptr);
}

// Through the device.

TEST_F(DeviceBuilding, AVolumeSetThroughTheDeviceIsTheControls) {
  TMBACLN_Device& device = Make(false);
  const CAPropertyAddress address('volm', 'outp', 1);
  Float32 value = 0.25F;
  device.SetPropertyData(address, 0, nullptr, sizeof(value), &value, nullptr);
  const HP_Control* control = device.GetControlByAddress(address);
  EXPECT_EQ(static_cast<const TMBACLN_LevelControl*>(control)->GetRawValue(), 512);
  value = 0;
  UInt32 size = sizeof(value);
  control->GetPropertyData(CAPropertyAddress('lcdv'), 0, nullptr, size, &value);
  EXPECT_EQ(value, -45.0F);
  device.GetPropertyData(address, 0, nullptr, size, &value);
  EXPECT_EQ(value, 0.25F);
}

TEST_F(DeviceBuilding, TheMutexIsFreeWhileAChangeIsToldAndTakenAgainAfter) {
  TMBACLN_Device& device = Make(true);
  bool wasFree = true;
  int told = 0;
  mHAL.mOnChange = [&](AudioObjectPropertySelector) {
    ++told;
    wasFree = wasFree && device.GetDeviceStateMutex()->IsFree();
  };
  {
    CAMutex::Locker locker(device.GetDeviceStateMutex());
    const UInt32 on = 1;
    device.SetPropertyData(CAPropertyAddress('mute', 'outp', 2), 0, nullptr, sizeof(on), &on,
                           nullptr);
    EXPECT_TRUE(device.GetDeviceStateMutex()->IsOwnedByCurrentThread());
  }
  EXPECT_EQ(told, 2);
  EXPECT_TRUE(wasFree);
}

TEST_F(DeviceBuilding, ControlsHaveTheDevicesMakerAndNoNameOfTheirOwn) {
  TMBACLN_Device& device = Make(true);
  const HP_Control* control = device.GetControlByIndex(0);
  EXPECT_FALSE(control->HasProperty(CAPropertyAddress('lnam')));
  EXPECT_TRUE(control->HasProperty(CAPropertyAddress('lmak')));
}

}  // namespace
}  // namespace tembra::test
