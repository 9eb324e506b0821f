#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "support/device/SimulatedDevice.h"

namespace tembra::test {
namespace {

using testing::ElementsAre;

constexpr UInt32 kGlobal = 'glob';
constexpr UInt32 kInput = 'inpt';
constexpr UInt32 kOutput = 'outp';

OSStatus Proc(AudioObjectID, const AudioTimeStamp*, const AudioBufferList*, const AudioTimeStamp*,
              AudioBufferList*, const AudioTimeStamp*, void*) {
  return 0;
}

class NamedDevice : public SimulatedDevice {
 public:
  UInt32 GetTransportType() const override { return 'virt'; }
  bool IsHidden() const override { return mIsHidden; }
  bool IsAlive() const override { return mIsAlive; }
  bool IsIOEngineRunningSomewhere() const override { return mRunsSomewhere; }
  bool CanBeDefaultDevice(bool inIsInput, bool inIsSystem) const override {
    return inIsInput == mDefaultInput && inIsSystem == mDefaultSystem;
  }
  Float64 GetCurrentActualSampleRate() const override { return 44099.5; }
  CFURLRef CopyDeviceIcon() const override {
    return reinterpret_cast<CFURLRef>(
        const_cast<void*>(static_cast<const void*>(mIcon == nullptr ? nullptr : CFRetain(mIcon))));
  }

  bool mIsHidden = false;
  bool mIsAlive = true;
  bool mRunsSomewhere = false;
  bool mDefaultInput = true;
  bool mDefaultSystem = false;
  CFStringRef mIcon = nullptr;  // stands for the URL
};

class DevicePropertiesTest : public testing::Test {
 protected:
  using Bytes = std::vector<UInt8>;

  static AudioObjectPropertyAddress Address(UInt32 inSelector, UInt32 inScope = kGlobal,
                                            UInt32 inElement = 0) {
    return {inSelector, inScope, inElement};
  }
  void AddStreams() {
    mDevice.AddSimulatedStream(true, FloatFormat(1));
    mDevice.AddSimulatedStream(false, FloatFormat(2));
    mDevice.AddSimulatedStream(false, FloatFormat(2));
    mDevice.AddSimulatedStream(false, FloatFormat(2));
  }
  bool Has(UInt32 inSelector, UInt32 inScope = kGlobal) {
    return mDevice.HasProperty(Address(inSelector, inScope));
  }
  UInt32 Size(UInt32 inSelector, UInt32 inScope = kGlobal) {
    return mDevice.GetPropertyDataSize(Address(inSelector, inScope), 0, nullptr);
  }
  // Into a buffer of exactly the size given; what comes back is cut to the size handed back.
  Bytes Get(const AudioObjectPropertyAddress& inAddress, UInt32 inSize) {
    Bytes theData(inSize, 0xEE);
    UInt32 theSize = inSize;
    mDevice.GetPropertyData(inAddress, 0, nullptr, theSize, theData.data());
    EXPECT_LE(theSize, inSize);
    theData.resize(theSize);
    return theData;
  }
  template <class T>
  T Value(UInt32 inSelector, UInt32 inScope = kGlobal, UInt32 inElement = 0) {
    const Bytes theData = Get(Address(inSelector, inScope, inElement), sizeof(T));
    T theValue{};
    EXPECT_EQ(theData.size(), sizeof(T));
    std::memcpy(&theValue, theData.data(), sizeof(T));
    return theValue;
  }
  UInt32 Number(UInt32 inSelector, UInt32 inScope = kGlobal) {
    return Value<UInt32>(inSelector, inScope);
  }
  void Set(const AudioObjectPropertyAddress& inAddress, const void* inData, UInt32 inSize) {
    mDevice.SetPropertyData(inAddress, 0, nullptr, inSize, inData, nullptr);
  }
  void SetNumber(UInt32 inSelector, UInt32 inValue, UInt32 inScope = kGlobal) {
    Set(Address(inSelector, inScope), &inValue, sizeof(inValue));
  }
  HP_IOProcList& List() { return *mDevice.GetIOProcList(); }

  NamedDevice mDevice;
};

TEST_F(DevicePropertiesTest, NumbersAnswerWhatTheDeviceSays) {
  AddStreams();
  EXPECT_EQ(Number('clkd'), 0u);
  EXPECT_EQ(Number('diff'), 0u);
  EXPECT_EQ(Number('fsiz'), 512u);
  EXPECT_EQ(Number('goin'), 0u);
  EXPECT_EQ(Number('gone'), 0u);
  EXPECT_EQ(Number('hidn'), 0u);
  EXPECT_EQ(Number('livn'), 1u);
  EXPECT_EQ(Number('oink'), 0xFFFFFFFFu);
  EXPECT_EQ(Number('over'), 0u);
  EXPECT_EQ(Number('tran'), 0x76697274u);
  EXPECT_EQ(Number('ltnc', kInput), 11u);
  EXPECT_EQ(Number('ltnc', kOutput), 12u);
  EXPECT_EQ(Number('saft', kInput), 21u);
  EXPECT_EQ(Number('saft', kOutput), 22u);
  mDevice.mIsHidden = mDevice.mRunsSomewhere = true;
  mDevice.mIsAlive = false;
  mDevice.IOEngineStarted();
  EXPECT_EQ(Number('hidn'), 1u);
  EXPECT_EQ(Number('gone'), 1u);
  EXPECT_EQ(Number('goin'), 1u);
  EXPECT_EQ(Number('livn'), 0u);
}

TEST_F(DevicePropertiesTest, DefaultDeviceSelectorsAskForDirectionAndSystem) {
  EXPECT_EQ(Number('dflt', kInput), 1u);
  EXPECT_EQ(Number('dflt', kOutput), 0u);
  EXPECT_EQ(Number('sflt', kInput), 0u);
  mDevice.mDefaultSystem = true;
  EXPECT_EQ(Number('sflt', kInput), 1u);
  EXPECT_EQ(Number('dflt', kInput), 0u);
}

TEST_F(DevicePropertiesTest, PresenceByScope) {
  for (const UInt32 theScope : {kGlobal, kInput, kOutput}) {
    for (const UInt32 theSelector : {'akin', 'asrt', 'bsiz', 'bsz#', 'clkd', 'fsiz', 'fsz#', 'goin',
                                     'gone', 'hidn', 'livn', 'oink', 'over', 'tran'}) {
      EXPECT_TRUE(Has(theSelector, theScope)) << theSelector;
    }
    EXPECT_FALSE(Has('diff', theScope));
    EXPECT_EQ(Has('dflt', theScope), theScope != kGlobal);
    EXPECT_EQ(Has('slay', theScope), theScope != kGlobal);
    EXPECT_EQ(Has('sflt', theScope), theScope == kOutput);
  }
}

TEST_F(DevicePropertiesTest, PresenceByStreams) {
  const auto theScopes = [&](UInt32 inSelector) {
    std::string theText;
    if (Has(inSelector, kInput)) theText += "i";
    if (Has(inSelector, kOutput)) theText += "o";
    if (Has(inSelector, kGlobal)) theText += "g";
    EXPECT_FALSE(Has(inSelector, 'ptru'));
    return theText;
  };
  for (const UInt32 theSelector : {'ltnc', 'saft', 'stm#', 'suse'})
    EXPECT_EQ(theScopes(theSelector), "");
  mDevice.AddSimulatedStream(true, FloatFormat(1));
  for (const UInt32 theSelector : {'ltnc', 'saft'}) EXPECT_EQ(theScopes(theSelector), "i");
  for (const UInt32 theSelector : {'stm#', 'suse'}) EXPECT_EQ(theScopes(theSelector), "ig");
  mDevice.AddSimulatedStream(false, FloatFormat(1));
  for (const UInt32 theSelector : {'ltnc', 'saft'}) EXPECT_EQ(theScopes(theSelector), "io");
  for (const UInt32 theSelector : {'stm#', 'suse'}) EXPECT_EQ(theScopes(theSelector), "iog");
}

TEST_F(DevicePropertiesTest, NamesArePresentWhereThereIsOne) {
  struct Row {
    const char* SimulatedDevice::*mField;
    std::vector<UInt32> mReferences;
    std::vector<UInt32> mTexts;
  };
  const Row kRows[] = {{&SimulatedDevice::mName, {'lnam'}, {'name'}},
                       {&SimulatedDevice::mManufacturer, {'lmak'}, {'makr'}},
                       {&SimulatedDevice::mFullName, {'lchn'}, {'chnm'}},
                       {&SimulatedDevice::mCategoryName, {'lccn'}, {'ccnm'}},
                       {&SimulatedDevice::mNumberName, {'lcnn'}, {'cnnm'}},
                       {&SimulatedDevice::mApplication, {'capp'}, {}},
                       {&SimulatedDevice::mUID, {'uid '}, {}},
                       {&SimulatedDevice::mModelUID, {'muid'}, {}}};
  for (const Row& theRow : kRows) {
    mDevice.*theRow.mField = nullptr;
    for (const UInt32 theSelector : theRow.mReferences) {
      EXPECT_FALSE(Has(theSelector)) << theSelector;
      EXPECT_EQ(Value<CFTypeRef>(theSelector), nullptr);
    }
    for (const UInt32 theSelector : theRow.mTexts) {
      EXPECT_FALSE(Has(theSelector)) << theSelector;
      EXPECT_EQ(Size(theSelector), 1u);
      EXPECT_THAT(Get(Address(theSelector), 4), ElementsAre(0));
    }
    mDevice.*theRow.mField = "gr\xC3\xBC";  // three characters, four bytes
    for (const UInt32 theSelector : theRow.mReferences) {
      EXPECT_TRUE(Has(theSelector)) << theSelector;
      EXPECT_EQ(Size(theSelector), 8u);
      const auto theString = static_cast<CFStringRef>(Value<CFTypeRef>(theSelector));
      ASSERT_NE(theString, nullptr);
      EXPECT_EQ(CFStringGetLength(theString), 3);
      CFRelease(theString);
    }
    for (const UInt32 theSelector : theRow.mTexts) {
      EXPECT_TRUE(Has(theSelector)) << theSelector;
      EXPECT_EQ(Size(theSelector), 5u);
      EXPECT_THAT(Get(Address(theSelector), 5), ElementsAre('g', 'r', 0xC3, 0xBC, 0));
      EXPECT_THAT(Get(Address(theSelector), 100), ElementsAre('g', 'r', 0xC3, 0xBC, 0))
          << "more room than needed is no error";
      EXPECT_THAT(Get(Address(theSelector), 3), ElementsAre('g', 'r', 0)) << "less room cuts";
    }
  }
}

TEST_F(DevicePropertiesTest, IconIsHandedOut) {
  EXPECT_FALSE(Has('icon'));
  EXPECT_EQ(Size('icon'), 8u);
  mDevice.mIcon = CFStringCreateWithCString(nullptr, "icon", kCFStringEncodingUTF8);
  EXPECT_TRUE(Has('icon'));
  const auto theIcon = Value<CFTypeRef>('icon');
  EXPECT_EQ(theIcon, mDevice.mIcon);
  CFRelease(theIcon);
  CFRelease(mDevice.mIcon);
}

TEST_F(DevicePropertiesTest, OnlyFourAreSettable) {
  for (const UInt32 theSelector :
       {'akin', 'asrt', 'bsiz', 'bsz#', 'capp', 'ccnm', 'chnm', 'clkd', 'cnnm',
        'dflt', 'diff', 'fsiz', 'fsz#', 'goin', 'gone', 'hidn', 'icon', 'lccn',
        'lchn', 'lcnn', 'livn', 'lmak', 'lnam', 'ltnc', 'makr', 'muid', 'name',
        'oink', 'over', 'saft', 'sflt', 'slay', 'stm#', 'suse', 'tran', 'uid '}) {
    const bool theExpectation = theSelector == 'bsiz' || theSelector == 'fsiz' ||
                                theSelector == 'goin' || theSelector == 'suse';
    EXPECT_EQ(mDevice.IsPropertySettable(Address(theSelector)), theExpectation) << theSelector;
    if (!theExpectation) {
      EXPECT_EQ(StatusOf([&] { SetNumber(theSelector, 1); }), 'nope') << theSelector;
    }
  }
}

TEST_F(DevicePropertiesTest, UnknownSelectorsGoToTheObject) {
  EXPECT_FALSE(Has('xxxx'));
  EXPECT_EQ(StatusOf([&] { Size('xxxx'); }), 'who?');
  EXPECT_EQ(StatusOf([&] { Number('xxxx'); }), 'who?');
  EXPECT_EQ(StatusOf([&] { mDevice.IsPropertySettable(Address('xxxx')); }), 'who?');
  EXPECT_EQ(StatusOf([&] { SetNumber('xxxx', 0); }), 'who?');
  EXPECT_FALSE(Has('ncyc')) << "a concrete device's own";
  EXPECT_TRUE(Has('lisa'));
  EXPECT_TRUE(Has('nsrt')) << "the format list's";
  EXPECT_EQ(Size('nsrt'), 8u);
}

TEST_F(DevicePropertiesTest, FixedSizesMustMatch) {
  AddStreams();
  const std::map<UInt32, UInt32> kSizes = {
      {'asrt', 8}, {'bsiz', 4},  {'bsz#', 16}, {'capp', 8}, {'clkd', 4}, {'dflt', 4}, {'diff', 4},
      {'fsiz', 4}, {'fsz#', 16}, {'goin', 4},  {'gone', 4}, {'hidn', 4}, {'icon', 8}, {'lccn', 8},
      {'lchn', 8}, {'lcnn', 8},  {'livn', 4},  {'lmak', 8}, {'lnam', 8}, {'ltnc', 4}, {'muid', 8},
      {'oink', 4}, {'over', 4},  {'saft', 4},  {'sflt', 4}, {'tran', 4}, {'uid ', 8}, {'suse', 24}};
  for (const auto& theRow : kSizes) {
    const UInt32 theSelector = theRow.first;
    const UInt32 theSize = theRow.second;
    const AudioObjectPropertyAddress theAddress = Address(theSelector, kOutput);
    EXPECT_EQ(Size(theSelector, kOutput), theSize) << theSelector;
    EXPECT_EQ(StatusOf([&] { Get(theAddress, theSize - 1); }), '!siz') << theSelector;
    EXPECT_EQ(StatusOf([&] { Get(theAddress, theSize + 1); }), '!siz') << theSelector;
  }
}

TEST_F(DevicePropertiesTest, RelatedDevicesIsItselfAndAShortBufferIsZeroed) {
  EXPECT_EQ(Size('akin'), 4u);
  EXPECT_EQ(Number('akin'), mDevice.GetObjectID());
  EXPECT_THAT(Get(Address('akin'), 3), ElementsAre(0, 0, 0));
  EXPECT_EQ(Get(Address('akin'), 9).size(), 4u);
}

TEST_F(DevicePropertiesTest, ActualRateIsTheDevices) {
  EXPECT_EQ(Value<Float64>('asrt'), 44099.5);
}

TEST_F(DevicePropertiesTest, FrameSizeRangeIsMinimumAndMaximum) {
  AddStreams();
  const auto theRange = Value<AudioValueRange>('fsz#');
  EXPECT_EQ(theRange.mMinimum, 14.0);
  EXPECT_EQ(theRange.mMaximum, 11025.0);
}

TEST_F(DevicePropertiesTest, ByteSizesAreThoseOfTheAddressedStream) {
  EXPECT_EQ(StatusOf([&] { Number('bsiz'); }), 'nope');
  EXPECT_EQ(StatusOf([&] { Value<AudioValueRange>('bsz#'); }), 'nope');
  AddStreams();
  EXPECT_EQ(Number('bsiz', kInput), 512u * 4);
  EXPECT_EQ(Number('bsiz', kOutput), 512u * 8);
  EXPECT_EQ(Value<UInt32>('bsiz', kOutput, 3), 512u * 8);
  EXPECT_EQ(StatusOf([&] { Value<UInt32>('bsiz', kOutput, 7); }), 'nope');
  const auto theRange = Value<AudioValueRange>('bsz#', kInput);
  EXPECT_EQ(theRange.mMinimum, 14.0 * 4);
  EXPECT_EQ(theRange.mMaximum, 11025.0 * 4);
}

TEST_F(DevicePropertiesTest, AWrongSizeIsToldBeforeAMissingStream) {
  ASSERT_FALSE(mDevice.HasOutputStreams());
  EXPECT_EQ(StatusOf([&] { Get(Address('bsiz'), 5); }), '!siz');
  EXPECT_EQ(StatusOf([&] { Get(Address('bsz#'), 15); }), '!siz');
  const UInt64 theLongValue = 0;
  EXPECT_EQ(StatusOf([&] { Set(Address('bsiz'), &theLongValue, 8); }), '!siz');
}

TEST_F(DevicePropertiesTest, StreamsAreListedAsFarAsThereIsRoom) {
  AddStreams();
  EXPECT_EQ(Size('stm#', kOutput), 12u);
  EXPECT_EQ(Size('stm#', kInput), 4u);
  EXPECT_EQ(Size('stm#', kGlobal), 12u) << "not input means output";
  const auto theIDs = [&](UInt32 inScope, UInt32 inSize) {
    const Bytes theData = Get(Address('stm#', inScope), inSize);
    std::vector<UInt32> theResult(theData.size() / 4);
    if (!theResult.empty()) std::memcpy(theResult.data(), theData.data(), theData.size());
    return theResult;
  };
  const auto theID = [&](bool inIsInput, UInt32 inIndex) {
    return mDevice.GetStreamByIndex(inIsInput, inIndex)->GetObjectID();
  };
  EXPECT_THAT(theIDs(kOutput, 8), ElementsAre(theID(false, 0), theID(false, 1)));
  EXPECT_THAT(theIDs(kOutput, 11), ElementsAre(theID(false, 0), theID(false, 1)));
  EXPECT_EQ(theIDs(kOutput, 100).size(), 3u);
  EXPECT_THAT(theIDs(kInput, 100), ElementsAre(theID(true, 0)));
  EXPECT_THAT(theIDs(kOutput, 0), testing::IsEmpty());
}

TEST_F(DevicePropertiesTest, StreamConfigurationListsChannelsAndSizes) {
  AddStreams();
  EXPECT_EQ(Size('slay', kOutput), 3u * 16 + 8);
  EXPECT_EQ(Size('slay', kInput), 24u);
  EXPECT_EQ(StatusOf([&] { Get(Address('slay', kOutput), 55); }), '!siz');
  const Bytes theData = Get(Address('slay', kOutput), 200);
  ASSERT_EQ(theData.size(), 56u) << "more room is no error, and the needed size is told";
  alignas(AudioBufferList) UInt8 theMemory[56];
  std::memcpy(theMemory, theData.data(), sizeof(theMemory));
  UInt32 theCount = 0;
  std::memcpy(&theCount, theMemory, 4);
  EXPECT_EQ(theCount, 3u);
  for (int i = 0; i < 3; ++i) {
    AudioBuffer theBuffer;
    std::memcpy(&theBuffer, theMemory + 8 + 16 * i, 16);
    EXPECT_EQ(theBuffer.mNumberChannels, 2u);
    EXPECT_EQ(theBuffer.mDataByteSize, 512u * 8);
    EXPECT_EQ(theBuffer.mData, nullptr);
  }
  NamedDevice theEmpty;
  EXPECT_EQ(theEmpty.GetPropertyDataSize(Address('slay', kOutput), 0, nullptr), 8u);
}

TEST_F(DevicePropertiesTest, FrameSizeIsSetThroughTheCommand) {
  AddStreams();
  SetNumber('fsiz', 256);
  EXPECT_EQ(Number('fsiz'), 256u);
  EXPECT_EQ(StatusOf([&] { SetNumber('fsiz', 1); }), 'nope');
  const UInt8 theData[5] = {};
  EXPECT_EQ(StatusOf([&] { Set(Address('fsiz'), theData, 3); }), '!siz');
  EXPECT_EQ(StatusOf([&] { Set(Address('fsiz'), theData, 5); }), '!siz');
  EXPECT_EQ(Number('fsiz'), 256u);
}

TEST_F(DevicePropertiesTest, ByteSizeIsSetInFramesOfTheAddressedStream) {
  EXPECT_EQ(StatusOf([&] { SetNumber('bsiz', 256); }), 'nope');
  AddStreams();
  SetNumber('bsiz', 256 * 8, kOutput);
  EXPECT_EQ(Number('fsiz'), 256u);
  SetNumber('bsiz', 128 * 4, kInput);
  EXPECT_EQ(Number('fsiz'), 128u);
  const UInt64 theLongValue = 0;
  EXPECT_EQ(StatusOf([&] { Set(Address('bsiz'), &theLongValue, 8); }), '!siz');
}

TEST_F(DevicePropertiesTest, RunningIsCountedSoThatTwoSetsAndOneClearLeaveItOn) {
  SetNumber('goin', 1);
  SetNumber('goin', 5);
  SetNumber('goin', 0);
  EXPECT_EQ(Number('goin'), 1u);
  SetNumber('goin', 0);
  EXPECT_EQ(Number('goin'), 0u);
  const UInt8 theData[3] = {};
  EXPECT_EQ(StatusOf([&] { Set(Address('goin'), theData, 3); }), '!siz');
}

class StreamUsageTest : public DevicePropertiesTest {
 protected:
  StreamUsageTest() {
    AddStreams();
    mDevice.Do_AddIOProc(Proc, nullptr);
  }
  static Bytes Usage(AudioDeviceIOProcID inID, UInt32 inCount, std::vector<UInt32> inFlags) {
    Bytes theData(12 + 4 * inFlags.size());
    std::memcpy(theData.data(), &inID, 8);
    std::memcpy(theData.data() + 8, &inCount, 4);
    if (!inFlags.empty()) std::memcpy(theData.data() + 12, inFlags.data(), 4 * inFlags.size());
    return theData;
  }
  std::vector<UInt32> Read(Bytes ioUsage, UInt32 inScope = kOutput) {
    UInt32 theSize = static_cast<UInt32>(ioUsage.size());
    mDevice.GetPropertyData(Address('suse', inScope), 0, nullptr, theSize, ioUsage.data());
    EXPECT_EQ(theSize, ioUsage.size());
    std::vector<UInt32> theFlags((ioUsage.size() - 12) / 4);
    std::memcpy(theFlags.data(), ioUsage.data() + 12, 4 * theFlags.size());
    return theFlags;
  }
  void Write(const Bytes& inUsage, UInt32 inScope = kOutput) {
    Set(Address('suse', inScope), inUsage.data(), static_cast<UInt32>(inUsage.size()));
  }
};

TEST_F(StreamUsageTest, WhatIsSetIsReadBack) {
  EXPECT_EQ(Size('suse', kOutput), 24u);
  EXPECT_EQ(Size('suse', kInput), 16u);
  EXPECT_THAT(Read(Usage(Proc, 3, {9, 9, 9})), ElementsAre(1, 1, 1));
  Write(Usage(Proc, 3, {7, 0, 1}));
  EXPECT_THAT(Read(Usage(Proc, 3, {9, 9, 9})), ElementsAre(1, 0, 1));
  EXPECT_THAT(Read(Usage(Proc, 1, {9}), kInput), ElementsAre(1)) << "the other direction";
  Write(Usage(Proc, 1, {0}), kInput);
  EXPECT_THAT(Read(Usage(Proc, 1, {9}), kInput), ElementsAre(0));
}

TEST_F(StreamUsageTest, ReadOfAnUnknownProcedureGivesZeros) {
  EXPECT_THAT(Read(Usage(nullptr, 3, {9, 9, 9})), ElementsAre(0, 0, 0));
}

TEST_F(StreamUsageTest, WriteForAnUnknownProcedureIsRefused) {
  EXPECT_EQ(StatusOf([&] { Write(Usage(nullptr, 3, {1, 1, 1})); }), 'nope');
}

TEST_F(StreamUsageTest, CountAndSizeMustAgree) {
  for (const UInt32 theCount : {0u, 2u, 4u, 0xFFFFFFFFu}) {
    EXPECT_EQ(StatusOf([&] { Read(Usage(Proc, theCount, {1, 1, 1})); }), '!siz') << theCount;
    EXPECT_EQ(StatusOf([&] { Write(Usage(Proc, theCount, {0, 0, 0})); }), '!siz') << theCount;
  }
  EXPECT_EQ(StatusOf([&] { Write(Usage(Proc, 2, {0, 0})); }), '!siz');
  EXPECT_EQ(StatusOf([&] { Write(Usage(Proc, 4, {0, 0, 0, 0})); }), '!siz');
  EXPECT_THAT(Read(Usage(Proc, 3, {9, 9, 9})), ElementsAre(1, 1, 1)) << "nothing was changed";
}

TEST_F(StreamUsageTest, MisalignedDataIsRead) {
  const Bytes theUsage = Usage(Proc, 3, {0, 1, 0});
  Bytes theData(theUsage.size() + 1);
  std::memcpy(theData.data() + 1, theUsage.data(), theUsage.size());
  Set(Address('suse', kOutput), theData.data() + 1, static_cast<UInt32>(theUsage.size()));
  EXPECT_THAT(Read(Usage(Proc, 3, {9, 9, 9})), ElementsAre(0, 1, 0));
}

TEST_F(DevicePropertiesTest, TheStateMutexIsHeldWhileADeviceAnswersAndFreeAfterwards) {
  class Device : public SimulatedDevice {
   public:
    bool IsHidden() const override {
      mWasHeld = GetDeviceStateMutex()->IsOwnedByCurrentThread();
      throw CAException('test');
    }
    mutable bool mWasHeld = false;
  } theDevice;
  UInt32 theValue = 0;
  UInt32 theSize = 4;
  EXPECT_EQ(
      StatusOf([&] { theDevice.GetPropertyData(Address('hidn'), 0, nullptr, theSize, &theValue); }),
      'test');
  EXPECT_TRUE(theDevice.mWasHeld);
  EXPECT_TRUE(theDevice.GetDeviceStateMutex()->IsFree());
}

}  // namespace
}  // namespace tembra::test
