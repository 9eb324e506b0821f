#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <memory>

#include "client/TMBACLN_Stream.h"
#include "formats/HP_FormatList.h"
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

// Tells what the hardware was told, and whether that was with the device's mutex.
class ToldStream : public TMBACLN_Stream {
 public:
  using TMBACLN_Stream::TMBACLN_Stream;
  bool TellHardwareToSetPhysicalFormat(const AudioStreamBasicDescription& inFormat) override {
    mTold.push_back(inFormat);
    mHadMutex.push_back(GetOwningDevice()->GetDeviceStateMutex()->IsOwnedByCurrentThread());
    return TMBACLN_Stream::TellHardwareToSetPhysicalFormat(inFormat);
  }
  std::vector<AudioStreamBasicDescription> mTold;
  std::vector<bool> mHadMutex;
};

class LockedOutDevice : public TMBACLN_Device {
 public:
  using TMBACLN_Device::TMBACLN_Device;
  bool HogModeIsOwnedBySelfOrIsFree() const override { return false; }
};

class Stream : public testing::Test {
 protected:
  Stream() : mHAL(FakeHAL::Get()) {
    FakeServer::Get().Reset();
    mHAL.Reset();
    mDevice = std::make_unique<ClientDevice>();
    mStream = std::make_unique<ToldStream>(80, mDevice->GetPlugIn(), &**mDevice, false, 1);
    mStream->Initialize();
    mHAL.Reset();
  }
  ~Stream() override {
    if (mStream != nullptr && mStream->GetFormatList() != nullptr) mStream->Teardown();
    mStream.reset();
    mDevice.reset();
  }

  template <class Operation>
  static OSStatus StatusOf(Operation inOperation) {
    try {
      inOperation();
      return 0;
    } catch (const CAException& exception) {
      return exception.GetError();
    }
  }
  OSStatus Set(UInt32 inSelector, UInt32 inSize, const void* inData) {
    return StatusOf([&] {
      mStream->SetPropertyData(CAPropertyAddress(inSelector), 0, nullptr, inSize, inData, nullptr);
    });
  }
  AudioStreamBasicDescription Current() {
    AudioStreamBasicDescription format{};
    mStream->GetCurrentPhysicalFormat(format);
    return format;
  }

  FakeHAL& mHAL;
  std::unique_ptr<ClientDevice> mDevice;
  std::unique_ptr<ToldStream> mStream;
};

TEST_F(Stream, HasTheOneFormat) {
  ASSERT_EQ(mStream->GetFormatList()->GetNumberAvailablePhysicalFormats(), 1u);
  AudioStreamRangedDescription format{};
  mStream->GetFormatList()->GetAvailablePhysicalFormatByIndex(0, format);
  for (const AudioStreamBasicDescription& description : {format.mFormat, Current()}) {
    EXPECT_EQ(description.mSampleRate, 44100.0);
    EXPECT_EQ(description.mFormatID, 1819304813u);
    EXPECT_EQ(description.mFormatFlags, 9u);
    EXPECT_EQ(description.mBytesPerPacket, 8u);
    EXPECT_EQ(description.mFramesPerPacket, 1u);
    EXPECT_EQ(description.mBytesPerFrame, 8u);
    EXPECT_EQ(description.mChannelsPerFrame, 2u);
    EXPECT_EQ(description.mBitsPerChannel, 32u);
  }
  EXPECT_EQ(format.mSampleRateRange.mMinimum, 44100.0);
  EXPECT_EQ(format.mSampleRateRange.mMaximum, 44100.0);
}

TEST_F(Stream, InitializingTellsNobody) {
  EXPECT_THAT(mStream->mTold, IsEmpty());
  EXPECT_THAT(mHAL.mChanges, IsEmpty());
}

TEST_F(Stream, TheTerminalIsADigitalInterface) {
  EXPECT_EQ(mStream->GetTerminalType(), 1936745574u);
  for (const bool isInput : {true, false}) {
    HP_Stream* stream = (*mDevice)->GetStreamByIndex(isInput, 0);
    UInt32 terminal = 0;
    UInt32 size = sizeof(terminal);
    stream->GetPropertyData(CAPropertyAddress('term'), 0, nullptr, size, &terminal);
    EXPECT_EQ(terminal, UInt32{'spdf'});
  }
}

TEST_F(Stream, PropertiesComeFromTheBase) {
  EXPECT_TRUE(mStream->HasProperty(CAPropertyAddress('sdir')));
  EXPECT_FALSE(mStream->IsPropertySettable(CAPropertyAddress('sdir')));
  EXPECT_EQ(mStream->GetPropertyDataSize(CAPropertyAddress('sdir'), 0, nullptr), 4u);
  UInt32 direction = 7;
  UInt32 size = sizeof(direction);
  mStream->GetPropertyData(CAPropertyAddress('sdir'), 0, nullptr, size, &direction);
  EXPECT_EQ(direction, 0u);
  EXPECT_EQ(Set('zzzz', 4, &direction), 'who?');
  EXPECT_TRUE((*mDevice)->GetDeviceStateMutex()->IsFree());
}

TEST_F(Stream, MixableOfTheWrongSizeIsRefused) {
  const UInt64 value = 1;
  EXPECT_EQ(Set('mix?', 8, &value), 561211770);
  EXPECT_EQ(Set('mix?', 3, &value), 561211770);
  EXPECT_TRUE((*mDevice)->GetDeviceStateMutex()->IsFree());
}

TEST_F(Stream, NotMixableIsPutRightByTeardown) {
  const UInt32 no = 0;
  EXPECT_EQ(Set('mix?', 4, &no), 0);
  mStream->mTold.clear();
  mStream->Teardown();
  ASSERT_EQ(mStream->mTold.size(), 1u);
  EXPECT_EQ(mStream->mTold[0].mFormatID, UInt32{'lpcm'});
  EXPECT_EQ(mStream->mTold[0].mFormatFlags & 64u, 0u);
  EXPECT_EQ(mStream->mTold[0].mChannelsPerFrame, 2u);
  EXPECT_EQ(mStream->GetFormatList(), nullptr);
}

TEST_F(Stream, NotMixableIsPutRightByFinalizeEachTime) {
  const UInt32 no = 0;
  EXPECT_EQ(Set('mix?', 4, &no), 0);
  mStream->mTold.clear();
  mStream->Finalize();
  mStream->Finalize();
  EXPECT_EQ(mStream->mTold.size(), 2u);
  EXPECT_NE(mStream->GetFormatList(), nullptr);
}

TEST_F(Stream, MixableAgainNeedsNothingPutRight) {
  const UInt32 no = 0;
  const UInt32 yes = 7;
  EXPECT_EQ(Set('mix?', 4, &no), 0);
  EXPECT_EQ(Set('mix?', 4, &yes), 0);
  mStream->mTold.clear();
  mStream->Finalize();
  EXPECT_THAT(mStream->mTold, IsEmpty());
}

TEST_F(Stream, AMixablePhysicalFormatNeedsNothingPutRight) {
  const AudioStreamBasicDescription format = Current();
  const UInt32 no = 0;
  EXPECT_EQ(Set('mix?', 4, &no), 0);
  EXPECT_EQ(Set('pft ', 40, &format), 0);
  mStream->mTold.clear();
  mStream->Finalize();
  EXPECT_THAT(mStream->mTold, IsEmpty());
}

TEST_F(Stream, AMixableVirtualFormatNeedsNothingPutRight) {
  const AudioStreamBasicDescription format = Current();
  const UInt32 no = 0;
  EXPECT_EQ(Set('mix?', 4, &no), 0);
  EXPECT_EQ(Set('sfmt', 40, &format), 0);
  mStream->mTold.clear();
  mStream->Finalize();
  EXPECT_THAT(mStream->mTold, IsEmpty());
}

TEST_F(Stream, AFormatThatIsNotLinearIsPutRightByALinearOneOfItsRate) {
  const AudioStreamBasicDescription linear = Current();
  AudioStreamBasicDescription coded = linear;
  coded.mFormatID = 'ac-3';
  coded.mFormatFlags = kAudioFormatFlagIsNonMixable;
  coded.mBytesPerPacket = 6144;
  coded.mFramesPerPacket = 1536;
  coded.mBytesPerFrame = 4;
  coded.mChannelsPerFrame = 6;
  coded.mBitsPerChannel = 16;
  HP_FormatList& list = *mStream->GetFormatList();
  list.AddPhysicalFormat({coded, {44100.0, 44100.0}});
  // What is found in vain ends at the highest rate.
  list.AddPhysicalFormat({linear, {48000.0, 48000.0}});
  const UInt32 no = 0;
  EXPECT_EQ(Set('mix?', 4, &no), 0);
  list.SetCurrentPhysicalFormat(coded, false);
  mStream->mTold.clear();
  mStream->Finalize();
  ASSERT_EQ(mStream->mTold.size(), 1u);
  EXPECT_EQ(std::memcmp(&mStream->mTold[0], &linear, sizeof(linear)), 0);
}

TEST_F(Stream, TeardownOfAMixableStreamChangesNoFormat) {
  mStream->Teardown();
  EXPECT_THAT(mStream->mTold, IsEmpty());
}

// The undefined behaviour sanitizer sees what this machine forgives.
TEST_F(Stream, DataNeedNotBeAligned) {
  alignas(8) UInt8 bytes[48] = {};
  UInt8* const data = bytes + 1;
  const UInt32 mixable = 1;
  std::memcpy(data, &mixable, sizeof(mixable));
  EXPECT_EQ(Set('mix?', sizeof(mixable), data), 0);
  const AudioStreamBasicDescription format = Current();
  std::memcpy(data, &format, sizeof(format));
  EXPECT_EQ(Set('pft ', sizeof(format), data), 0);
  EXPECT_EQ(Set('sfmt', sizeof(format), data), 0);
  ASSERT_EQ(mStream->mTold.size(), 2u);
  for (const AudioStreamBasicDescription& told : mStream->mTold) {
    EXPECT_EQ(std::memcmp(&told, &format, sizeof(format)), 0);
  }
}

TEST_F(Stream, FormatsOfTheWrongSizeAreRefused) {
  const AudioStreamBasicDescription format = Current();
  for (const UInt32 selector : {UInt32{'pft '}, UInt32{'sfmt'}}) {
    EXPECT_EQ(Set(selector, 39, &format), 561211770);
    EXPECT_EQ(Set(selector, 0, &format), 561211770);
    EXPECT_EQ(Set(selector, 40, &format), 0);
  }
}

TEST_F(Stream, FormatsThatMakeNoSenseAreRefusedAndChangeNothing) {
  const AudioStreamBasicDescription before = Current();
  AudioStreamBasicDescription rate = before;
  rate.mSampleRate = 48000.0;
  AudioStreamBasicDescription coded = before;
  coded.mFormatID = 'ac-3';
  AudioStreamBasicDescription channels = before;
  channels.mChannelsPerFrame = 6;
  AudioStreamBasicDescription samples = before;
  samples.mFormatFlags = 12;
  samples.mBitsPerChannel = 16;
  for (const AudioStreamBasicDescription& format : {rate, coded, channels, samples}) {
    for (const UInt32 selector : {UInt32{'pft '}, UInt32{'sfmt'}}) {
      EXPECT_EQ(Set(selector, 40, &format), 560226676);
      const AudioStreamBasicDescription after = Current();
      EXPECT_EQ(memcmp(&before, &after, sizeof(before)), 0);
    }
  }
  mStream->Finalize();
  EXPECT_THAT(mStream->mTold, IsEmpty());
}

TEST_F(Stream, ASetFormatIsTheBestMatch) {
  AudioStreamBasicDescription format{};
  format.mFormatID = 'lpcm';
  format.mSampleRate = 44100.0;
  format.mChannelsPerFrame = 2;
  for (const UInt32 selector : {UInt32{'pft '}, UInt32{'sfmt'}}) {
    EXPECT_EQ(Set(selector, 40, &format), 0);
    EXPECT_EQ(Current().mBytesPerFrame, 8u);
    EXPECT_EQ(Current().mFormatFlags, 9u);
    EXPECT_EQ(Current().mSampleRate, 44100.0);
  }
}

TEST_F(Stream, ASetHasTheDevicesMutex) {
  const AudioStreamBasicDescription format = Current();
  const UInt32 no = 0;
  EXPECT_EQ(Set('mix?', 4, &no), 0);
  EXPECT_EQ(Set('pft ', 40, &format), 0);
  EXPECT_EQ(Set('sfmt', 40, &format), 0);
  EXPECT_THAT(mStream->mHadMutex, ElementsAre(true, true, true));
}

TEST_F(Stream, AProcessThatIsLockedOutMaySetNothing) {
  LockedOutDevice device(90, mDevice->GetPlugIn());
  device.Initialize();
  HP_Stream* stream = device.GetStreamByIndex(false, 0);
  const UInt32 value = 1;
  for (const UInt32 selector : {UInt32{'sfmt'}, UInt32{'pft '}, UInt32{'mix?'}, UInt32{'zzzz'}}) {
    for (const UInt32 size : {0u, 4u, 39u}) {
      EXPECT_EQ(StatusOf([&] {
                  stream->SetPropertyData(CAPropertyAddress(selector), 0, nullptr, size, &value,
                                          nullptr);
                }),
                560492391);
    }
  }
  device.Teardown();
}

TEST_F(Stream, RefreshingMakesTheListAnewAndTells) {
  mStream->RefreshAvailablePhysicalFormats();
  EXPECT_EQ(mStream->GetFormatList()->GetNumberAvailablePhysicalFormats(), 1u);
  ASSERT_EQ(mHAL.mChanges.size(), 1u);
  EXPECT_EQ(mHAL.mChanges[0].mObject, 80u);
  std::vector<UInt32> selectors;
  for (const AudioObjectPropertyAddress& address : mHAL.mChanges[0].mAddresses) {
    selectors.push_back(address.mSelector);
    EXPECT_EQ(address.mScope, AudioObjectPropertyScope{'glob'});
    EXPECT_EQ(address.mElement, 0u);
  }
  EXPECT_THAT(selectors, ElementsAre('pfta', 'sfma', 'pft#', 'sfm#'));
}

TEST_F(Stream, KnowsItsPlugIn) {
  EXPECT_EQ(mStream->GetOwningPlugIn(), mDevice->GetPlugIn());
}

}  // namespace
}  // namespace tembra::test
