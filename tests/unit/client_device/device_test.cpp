#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <set>

#include "client/TMBACLN_Stream.h"
#include "device/HP_IOThread.h"
#include "objects/CAPropertyAddress.h"
#include "runtime/TMBACLNO.h"
#include "support/CAException.h"
#include "support/CAGuard.h"
#include "support/CAMutex.h"
#include "support/client/ClientDevice.h"
#include "support/client/FakeHAL.h"
#include "support/client/FakeServer.h"

namespace tembra::test {
namespace {

using testing::ElementsAre;

class Device : public testing::Test {
 protected:
  Device() : mHAL(FakeHAL::Get()) {
    FakeServer::Get().Reset();
    mHAL.Reset();
    mDevice = std::make_unique<ClientDevice>();
  }
  ~Device() override {
    mDevice.reset();
    FakeServer::Get().Reset();
  }

  TMBACLN_Device& Get() { return **mDevice; }

  template <class Operation>
  static OSStatus StatusOf(Operation inOperation) {
    try {
      inOperation();
      return 0;
    } catch (const CAException& exception) {
      return exception.GetError();
    }
  }
  // The text of what a Copy operation handed out; releases it.
  static std::string TextOf(CFStringRef inString) {
    if (inString == nullptr) return "(null)";
    char buffer[100] = "";
    CFStringGetCString(inString, buffer, sizeof(buffer), kCFStringEncodingUTF8);
    CFRelease(inString);
    return buffer;
  }

  FakeHAL& mHAL;
  std::unique_ptr<ClientDevice> mDevice;
};

TEST_F(Device, IsADeviceWithOneStreamEachWay) {
  EXPECT_EQ(Get().GetClassID(), static_cast<AudioClassID>(0x61646576));
  EXPECT_EQ(Get().GetIOBufferSetID(), 1u);
  ASSERT_EQ(Get().GetNumberStreams(true), 1u);
  ASSERT_EQ(Get().GetNumberStreams(false), 1u);
  for (const bool isInput : {true, false}) {
    HP_Stream* stream = Get().GetStreamByIndex(isInput, 0);
    EXPECT_EQ(stream->IsInput(), isInput);
    EXPECT_EQ(stream->GetStartingDeviceChannelNumber(), 1u);
    EXPECT_EQ(stream->GetClassID(), static_cast<AudioClassID>(0x61737472));
    EXPECT_NE(dynamic_cast<TMBACLN_Stream*>(stream), nullptr);
    EXPECT_EQ(Get().GetTotalNumberChannels(isInput), 2u);
  }
}

TEST_F(Device, IsTheOneThatTheDefaultOutputMayBeSaidToBe) {
  mDevice.reset();
  TMBACLNO_Initialize(kAudioObjectUnknown);
  mDevice = std::make_unique<ClientDevice>();
  EXPECT_EQ(tmbclno_audio_object_id, ClientDevice::kID);
  mDevice.reset();
  EXPECT_EQ(tmbclno_audio_object_id, ClientDevice::kID) << "the value outlives the device";
}

TEST_F(Device, StreamsAreCreatedInputFirstAndPublishedTogether) {
  EXPECT_THAT(mHAL.mCalls, ElementsAre("create astr", "create astr", "publish 2"));
  EXPECT_EQ(mHAL.mCreated[0].first, ClientDevice::kID);
  ASSERT_EQ(mHAL.mPublications.size(), 1u);
  EXPECT_EQ(mHAL.mPublications[0].mOwner, ClientDevice::kID);
  EXPECT_THAT(mHAL.mPublications[0].mPublished,
              ElementsAre(Get().GetStreamByIndex(true, 0)->GetObjectID(),
                          Get().GetStreamByIndex(false, 0)->GetObjectID()));
}

TEST_F(Device, StreamsAnswerWithTheDevicesMutex) {
  for (const bool isInput : {true, false}) {
    const AudioObjectID id = Get().GetStreamByIndex(isInput, 0)->GetObjectID();
    EXPECT_EQ(HP_Object::GetObjectStateMutexByID(id), Get().GetDeviceStateMutex());
  }
}

TEST_F(Device, TheFrameSizeIs512) {
  EXPECT_EQ(Get().GetIOBufferFrameSize(), 512u);
}

TEST_F(Device, AStreamThatCannotBeCreatedIsLeftOut) {
  mDevice.reset();
  mHAL.Reset();
  mHAL.mCreateStatus['astr'] = 'what';
  mDevice = std::make_unique<ClientDevice>();
  EXPECT_EQ(Get().GetNumberStreams(true), 0u);
  EXPECT_EQ(Get().GetNumberStreams(false), 0u);
  EXPECT_EQ(Get().GetCurrentNominalSampleRate(), 0.0);
  // Such a device starts and stops its hardware all the same.
  Get().StartHardware();
  Get().StopHardware();
}

TEST_F(Device, WithoutStreamsTheFrameSizeStaysAndCannotBecomeNothing) {
  mDevice.reset();
  mHAL.Reset();
  mHAL.mCreateStatus['astr'] = 'what';
  mDevice = std::make_unique<ClientDevice>();
  EXPECT_EQ(Get().GetIOBufferFrameSize(), 512u);
  const UInt32 none = 0;
  EXPECT_EQ(StatusOf([&] {
              Get().SetPropertyData(CAPropertyAddress('fsiz'), 0, nullptr, sizeof(none), &none,
                                    nullptr);
            }),
            'nope');
  EXPECT_EQ(Get().GetIOBufferFrameSize(), 512u);
}

// Shorter buffers than a new device has.
class ShortBufferedDevice : public TMBACLN_Device {
 public:
  using TMBACLN_Device::TMBACLN_Device;
  UInt32 GetMaximumIOBufferFrameSize() const override { return 256; }
};

TEST_F(Device, TheFrameSizeComesWithinTheLimitsAtTheStart) {
  const ClientDeviceOf<ShortBufferedDevice> device;
  EXPECT_EQ(device->GetIOBufferFrameSize(), 256u);
}

TEST_F(Device, AFailedPublicationThrowsItsStatus) {
  mHAL.Reset();
  mHAL.mPublishStatus[70] = 'nope';
  TMBACLN_Device device(70, mDevice->GetPlugIn());
  EXPECT_EQ(StatusOf([&] { device.Initialize(); }), 'nope');
  device.Teardown();
}

TEST_F(Device, TeardownReleasesTheStreamsInputFirst) {
  const AudioObjectID input = Get().GetStreamByIndex(true, 0)->GetObjectID();
  const AudioObjectID output = Get().GetStreamByIndex(false, 0)->GetObjectID();
  Get().Teardown();
  EXPECT_EQ(Get().GetNumberStreams(true), 0u);
  EXPECT_EQ(Get().GetNumberStreams(false), 0u);
  for (const AudioObjectID id : {input, output}) {
    EXPECT_EQ(HP_Object::GetObjectByID(id), nullptr);
    EXPECT_EQ(HP_Object::GetObjectStateMutexByID(id), nullptr);
  }
  EXPECT_EQ(Get().GetIOGuard(), nullptr);
}

TEST_F(Device, FinalizeDeletesNothing) {
  Get().Finalize();
  EXPECT_EQ(Get().GetNumberStreams(true), 1u);
  EXPECT_EQ(Get().GetNumberStreams(false), 1u);
  EXPECT_NE(Get().GetIOGuard(), nullptr);
}

// Identity.

TEST_F(Device, Names) {
  EXPECT_EQ(TextOf(Get().CopyDeviceName()), "Tembra Audio");
  EXPECT_EQ(TextOf(Get().CopyManufacturerName()), "Brelin Inc.");
  EXPECT_EQ(TextOf(Get().CopyDeviceManufacturerName()), "Brelin Inc.");
  EXPECT_EQ(TextOf(Get().CopyDeviceUID()), "TMBAudioCln_Plugin");
  EXPECT_EQ(TextOf(Get().CopyModelUID()), "TMBAudioCln_Device");
  EXPECT_STREQ(Get().GetDebugDeviceName(), "Tembra Audio");
}

TEST_F(Device, CopiesBelongToTheCaller) {
  CFStringRef first = Get().CopyDeviceName();
  CFStringRef second = Get().CopyDeviceName();
  EXPECT_EQ(first, second);
  CFRelease(first);
  CFRelease(second);
  EXPECT_EQ(TextOf(Get().CopyDeviceName()), "Tembra Audio");
}

TEST_F(Device, ElementsHaveAnEmptyNameInADirectionAndNoneOtherwise) {
  EXPECT_EQ(TextOf(Get().CopyElementFullName(CAPropertyAddress('lchn', 'inpt'))), "");
  EXPECT_EQ(TextOf(Get().CopyElementFullName(CAPropertyAddress('lchn', 'outp', 2))), "");
  EXPECT_EQ(TextOf(Get().CopyElementFullName(CAPropertyAddress('lchn'))), "(null)");
  EXPECT_EQ(TextOf(Get().CopyElementFullName(CAPropertyAddress('lchn', 'ptru'))), "(null)");
}

TEST_F(Device, IsVirtualVisibleAndNeverTheDefaultInput) {
  EXPECT_EQ(Get().GetTransportType(), 1986622068u);
  EXPECT_FALSE(Get().IsHidden());
  EXPECT_FALSE(Get().CanBeDefaultDevice(true, false));
  EXPECT_FALSE(Get().CanBeDefaultDevice(true, true));
  EXPECT_TRUE(Get().CanBeDefaultDevice(false, false));
  EXPECT_TRUE(Get().CanBeDefaultDevice(false, true));
}

// Properties.

TEST_F(Device, CycleUsage) {
  const CAPropertyAddress address('ncyc');
  EXPECT_TRUE(Get().HasProperty(address));
  EXPECT_TRUE(Get().IsPropertySettable(address));
  ASSERT_EQ(Get().GetPropertyDataSize(address, 0, nullptr), 4u);
  Float32 usage = 0;
  UInt32 size = sizeof(usage);
  Get().GetPropertyData(address, 0, nullptr, size, &usage);
  EXPECT_EQ(usage, 1.0f);
  mHAL.mChanges.clear();
  const Float32 half = 0.5f;
  Get().SetPropertyData(address, 0, nullptr, sizeof(half), &half, nullptr);
  Get().GetPropertyData(address, 0, nullptr, size, &usage);
  EXPECT_EQ(usage, 0.5f);
  ASSERT_EQ(mHAL.mChanges.size(), 1u);
  EXPECT_EQ(mHAL.mChanges[0].mObject, ClientDevice::kID);
  ASSERT_EQ(mHAL.mChanges[0].mAddresses.size(), 1u);
  EXPECT_EQ(mHAL.mChanges[0].mAddresses[0].mSelector, AudioObjectPropertySelector{'ncyc'});
  EXPECT_EQ(mHAL.mChanges[0].mAddresses[0].mScope, AudioObjectPropertyScope{'glob'});
  EXPECT_EQ(mHAL.mChanges[0].mAddresses[0].mElement, 0u);
}

TEST_F(Device, CycleUsageOfTheWrongSizeIsRefusedAndTheMutexReleased) {
  const CAPropertyAddress address('ncyc');
  Float64 usage = 0;
  UInt32 size = sizeof(usage);
  EXPECT_EQ(StatusOf([&] { Get().GetPropertyData(address, 0, nullptr, size, &usage); }), 561211770);
  EXPECT_EQ(StatusOf([&] { Get().SetPropertyData(address, 0, nullptr, size, &usage, nullptr); }),
            561211770);
  EXPECT_TRUE(Get().GetDeviceStateMutex()->IsFree());
}

// The undefined behaviour sanitizer sees what this machine forgives.
TEST_F(Device, DataNeedNotBeAligned) {
  alignas(8) UInt8 bytes[8] = {};
  UInt8* const data = bytes + 1;
  UInt32 size = 4;
  const Float32 half = 0.5f;
  std::memcpy(data, &half, sizeof(half));
  Get().SetPropertyData(CAPropertyAddress('ncyc'), 0, nullptr, size, data, nullptr);
  std::memset(data, 0, size);
  Get().GetPropertyData(CAPropertyAddress('ncyc'), 0, nullptr, size, data);
  EXPECT_EQ(std::memcmp(data, &half, sizeof(half)), 0);

  const SInt32 self = getpid();
  const SInt32 nobody = -1;
  Get().SetPropertyData(CAPropertyAddress('oink'), 0, nullptr, size, data, nullptr);
  EXPECT_EQ(std::memcmp(data, &self, sizeof(self)), 0);
  Get().SetPropertyData(CAPropertyAddress('oink'), 0, nullptr, size, data, nullptr);
  std::memset(data, 0, size);
  Get().GetPropertyData(CAPropertyAddress('oink'), 0, nullptr, size, data);
  EXPECT_EQ(std::memcmp(data, &nobody, sizeof(nobody)), 0);
}

TEST_F(Device, OtherPropertiesAreTheBases) {
  EXPECT_TRUE(Get().HasProperty(CAPropertyAddress('fsiz')));
  EXPECT_TRUE(Get().IsPropertySettable(CAPropertyAddress('fsiz')));
  UInt32 frames = 0;
  UInt32 size = sizeof(frames);
  Get().GetPropertyData(CAPropertyAddress('fsiz'), 0, nullptr, size, &frames);
  EXPECT_EQ(frames, 512u);
  frames = 256;
  Get().SetPropertyData(CAPropertyAddress('fsiz'), 0, nullptr, size, &frames, nullptr);
  EXPECT_EQ(Get().GetIOBufferFrameSize(), 256u);
  EXPECT_FALSE(Get().HasProperty(CAPropertyAddress('zzzz')));
  EXPECT_EQ(StatusOf([&] { Get().GetPropertyDataSize(CAPropertyAddress('zzzz'), 0, nullptr); }),
            'who?');
}

TEST_F(Device, OwnershipWithoutExclusiveModeIsNobodys) {
  EXPECT_TRUE(Get().HasProperty(CAPropertyAddress('oink')));
  UInt32 owner = 0;
  UInt32 size = 8;
  UInt64 large = 0;
  EXPECT_EQ(
      StatusOf([&] { Get().GetPropertyData(CAPropertyAddress('oink'), 0, nullptr, size, &large); }),
      '!siz');
  size = sizeof(owner);
  Get().GetPropertyData(CAPropertyAddress('oink'), 0, nullptr, size, &owner);
  EXPECT_EQ(owner, 0xFFFFFFFFu);
}

TEST_F(Device, FortyNineSelectorsAreControlRelated) {
  const std::set<std::string> expected = {
      "bbd#", "bbvd", "bbvs", "bd2v", "bv2d", "cnlv", "csc#", "csck", "cscn", "csrc",
      "db2v", "isub", "jack", "lcnl", "lcsn", "lscn", "mdd#", "mddc", "mddn", "mdds",
      "msp#", "mspn", "mute", "mv2d", "mv2s", "mvd#", "mvdb", "mvsc", "nlv#", "nlvl",
      "ownd", "sd2v", "smut", "solo", "span", "spn#", "ssc#", "sscn", "ssrc", "sv2d",
      "svd#", "svld", "svlm", "thrs", "thru", "v2db", "vdb#", "vold", "volm"};
  ASSERT_EQ(expected.size(), 49u);
  // Every code of the characters that occur, so that none too many is found either.
  const std::string letters = "#2abcdehijklmnoprstuvw";
  size_t found = 0;
  for (const char a : letters) {
    for (const char b : letters) {
      for (const char c : letters) {
        for (const char d : letters) {
          const UInt32 code = (UInt32(a) << 24) | (UInt32(b) << 16) | (UInt32(c) << 8) | UInt32(d);
          const bool is = TMBACLN_Device::IsControlRelatedProperty(code);
          if (is) ++found;
          if (is != (expected.count({a, b, c, d}) != 0)) {
            ADD_FAILURE() << std::string{a, b, c, d};
          }
        }
      }
    }
  }
  EXPECT_EQ(found, 49u);
  for (const UInt32 code : {0u, 0xFFFFFFFFu, UInt32{'****'}, UInt32{'ncyc'}, UInt32{'oink'}}) {
    EXPECT_FALSE(TMBACLN_Device::IsControlRelatedProperty(code));
  }
}

TEST_F(Device, AChangeOfOwnershipRenewsTheFormats) {
  mHAL.mChanges.clear();
  Get().HogModeStateChanged();
  std::vector<AudioObjectID> told;
  for (const FakeHAL::Change& change : mHAL.mChanges) {
    if (change.mAddresses.size() == 4) told.push_back(change.mObject);
  }
  EXPECT_THAT(told, ElementsAre(Get().GetStreamByIndex(true, 0)->GetObjectID(),
                                Get().GetStreamByIndex(false, 0)->GetObjectID()));
  EXPECT_TRUE(Get().GetDeviceStateMutex()->IsFree());
  EXPECT_TRUE(Get().GetIOGuard()->IsFree());
}

TEST_F(Device, AChangeOfOwnershipLeavesLocksThatWereHeld) {
  CAMutex::Locker state(Get().GetDeviceStateMutex());
  Get().HogModeStateChanged();
  EXPECT_TRUE(Get().GetDeviceStateMutex()->IsOwnedByCurrentThread());
  EXPECT_TRUE(Get().GetIOGuard()->IsFree());
}

}  // namespace
}  // namespace tembra::test
