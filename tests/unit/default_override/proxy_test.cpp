// What the proxies answer themselves, what they record, and what they pass on.

#include <array>
#include <cstring>

#include "OverrideFixture.h"
#include "runtime/TMBACLNO.h"

namespace tembra::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kOutputOn[] = "<dict><key>isDefaultOutput</key><true/></dict>";
constexpr char kSystemOn[] = "<dict><key>isSystemOutput</key><true/></dict>";
constexpr char kBothOff[] =
    "<dict><key>isDefaultOutput</key><false/><key>isSystemOutput</key><false/></dict>";

class Read : public OverrideFixture {
 protected:
  // Calls the proxy with all six arguments marked, so that passing them on shows.
  OSStatus Get(AudioObjectPropertySelector inSelector, UInt32 inSize = 4,
               AudioObjectID inObject = kAudioObjectSystemObject) {
    mAddress = {inSelector, 'outp', 3};
    mSize = inSize;
    mValue = 0;
    return tmbclno_aogpd_proxy(inObject, &mAddress, sizeof mQualifier, &mQualifier, &mSize,
                               &mValue);
  }
  NativeCall Passed(AudioObjectID inObject, UInt32 inSize) const {
    return {inObject, &mAddress, sizeof mQualifier, &mQualifier, &mSize, inSize, &mValue};
  }
  AudioObjectPropertyAddress mAddress{};
  UInt32 mQualifier = 9;
  UInt32 mSize = 0;
  AudioObjectID mValue = 0;
};

TEST_F(Read, IsAnsweredHereWhileTheKeySaysSo) {
  WritePreference(kOutputOn);
  EXPECT_EQ(Get('dOut'), 0);
  EXPECT_EQ(mValue, kDevice);
  EXPECT_EQ(mSize, 4U);
  EXPECT_THAT(gPlatform.mReads, IsEmpty());
}

TEST_F(Read, EachSelectorHasItsKey) {
  WritePreference(kOutputOn);
  EXPECT_EQ(Get('sOut'), 0);
  EXPECT_EQ(mValue, 777U);
  WritePreference(kSystemOn);
  EXPECT_EQ(Get('sOut'), 0);
  EXPECT_EQ(mValue, kDevice);
  EXPECT_EQ(Get('dOut'), 0);
  EXPECT_EQ(mValue, 777U);
}

TEST_F(Read, SaysHowManyBytesItStoredAndLeavesTheRest) {
  WritePreference(kOutputOn);
  const AudioObjectPropertyAddress address{'dOut', 'glob', 0};
  std::array<AudioObjectID, 3> values{1, 2, 3};
  UInt32 size = sizeof values;
  EXPECT_EQ(tmbclno_aogpd_proxy(1, &address, 0, nullptr, &size, values.data()), 0);
  EXPECT_EQ(size, 4U);
  EXPECT_THAT(values, ElementsAre(kDevice, 2, 3));
}

TEST_F(Read, ABufferNeedNotBeAligned) {
  WritePreference(kOutputOn);
  const AudioObjectPropertyAddress address{'dOut', 'glob', 0};
  char bytes[5] = {};
  UInt32 size = 4;
  EXPECT_EQ(tmbclno_aogpd_proxy(1, &address, 0, nullptr, &size, bytes + 1), 0);
  AudioObjectID value = 0;
  memcpy(&value, bytes + 1, 4);
  EXPECT_EQ(value, kDevice);
}

TEST_F(Read, GoesToThePlatformWithoutAFileOrKey) {
  gPlatform.mStatus = 'stop';
  EXPECT_EQ(Get('dOut'), OSStatus{'stop'});
  WritePreference(kBothOff);
  EXPECT_EQ(Get('dOut'), OSStatus{'stop'});
  EXPECT_EQ(Get('sOut'), OSStatus{'stop'});
  WritePreference("<dict/>");
  EXPECT_EQ(Get('dOut'), OSStatus{'stop'});
  EXPECT_EQ(mValue, 777U);
  EXPECT_THAT(gPlatform.mReads,
              ElementsAre(Passed(1, 4), Passed(1, 4), Passed(1, 4), Passed(1, 4)));
}

TEST_F(Read, IntoTooSmallABufferGoesToThePlatform) {
  WritePreference(kOutputOn);
  for (const UInt32 size : {0U, 2U, 3U}) {
    EXPECT_EQ(Get('dOut', size), 0);
    EXPECT_EQ(mSize, size);
    EXPECT_EQ(gPlatform.mReads.back(), Passed(1, size));
  }
  EXPECT_EQ(gPlatform.mReads.size(), 3U);
}

TEST_F(Read, IntoNoBufferGoesToThePlatform) {
  WritePreference(kOutputOn);
  const AudioObjectPropertyAddress address{'dOut', 'glob', 0};
  UInt32 size = 4;
  UInt32 value = 0;
  tmbclno_aogpd_proxy(1, &address, 0, nullptr, &size, nullptr);
  tmbclno_aogpd_proxy(1, &address, 0, nullptr, nullptr, &value);
  EXPECT_EQ(size, 4U);
  EXPECT_THAT(gPlatform.mReads,
              ElementsAre(NativeCall{1, &address, 0, nullptr, &size, 4, nullptr},
                          NativeCall{1, &address, 0, nullptr, nullptr, 0, &value}));
}

TEST_F(Read, OfAnotherSelectorOrObjectGoesToThePlatform) {
  WritePreference("<dict><key>isDefaultOutput</key><true/><key>isSystemOutput</key><true/></dict>");
  for (const UInt32 selector : {'dIn ', 'dev#', '****'}) {
    Get(selector);
    EXPECT_EQ(gPlatform.mReads.back(), Passed(1, 4));
  }
  for (const AudioObjectID object : {0U, 2U, kDevice, 0xFFFFFFFFU}) {
    Get('dOut', 4, object);
    EXPECT_EQ(gPlatform.mReads.back(), Passed(object, 4));
  }
  EXPECT_EQ(gPlatform.mReads.size(), 7U);
  EXPECT_EQ(mValue, 777U);
}

TEST_F(Read, WithoutAnAddressGoesToThePlatform) {
  WritePreference(kOutputOn);
  UInt32 size = 4;
  UInt32 value = 0;
  tmbclno_aogpd_proxy(1, nullptr, 0, nullptr, &size, &value);
  EXPECT_THAT(gPlatform.mReads, ElementsAre(NativeCall{1, nullptr, 0, nullptr, &size, 4, &value}));
}

TEST_F(Read, BeforeThereIsADeviceGoesToThePlatform) {
  WritePreference(kOutputOn);
  TMBACLNO_Initialize(0);
  EXPECT_EQ(Get('dOut'), 0);
  EXPECT_EQ(mValue, 777U);
}

TEST_F(Read, AnswersTheLastDevice) {
  WritePreference(kOutputOn);
  TMBACLNO_Initialize(43);
  EXPECT_EQ(Get('dOut'), 0);
  EXPECT_EQ(mValue, 43U);
}

TEST_F(Read, SeesAnotherProcesssChangeAtOnce) {
  WritePreference(kOutputOn);
  Get('dOut');
  EXPECT_EQ(mValue, kDevice);
  WritePreference(kBothOff);
  Get('dOut');
  EXPECT_EQ(mValue, 777U);
}

// Reached through the island where there is one, else directly.
OSStatus IslandGet(AudioObjectID, const AudioObjectPropertyAddress*, UInt32, const void*, UInt32*,
                   void*) {
  return 'isle';
}
OSStatus IslandSet(AudioObjectID, const AudioObjectPropertyAddress*, UInt32, const void*, UInt32,
                   const void*) {
  return 'isle';
}

TEST_F(Read, PassesThroughTheIslandOnceThereIsOne) {
  EXPECT_EQ(Get('dev#'), 0);
  EXPECT_EQ(gPlatform.mReads.size(), 1U);
  tmbclno_aogpd_entry = &IslandGet;
  EXPECT_EQ(Get('dev#'), OSStatus{'isle'});
  EXPECT_EQ(Get('dOut'), OSStatus{'isle'});
  EXPECT_EQ(gPlatform.mReads.size(), 1U);
}

class Write : public OverrideFixture {
 protected:
  OSStatus Set(AudioObjectPropertySelector inSelector, AudioObjectID inValue, UInt32 inSize = 4,
               AudioObjectID inObject = kAudioObjectSystemObject) {
    mAddress = {inSelector, 'inpt', 5};
    mValue = inValue;
    return tmbclno_aospd_proxy(inObject, &mAddress, sizeof mQualifier, &mQualifier, inSize,
                               &mValue);
  }
  NativeCall Passed(UInt32 inSize = 4, AudioObjectID inObject = kAudioObjectSystemObject) const {
    return {inObject, &mAddress, sizeof mQualifier, &mQualifier, nullptr, inSize, &mValue};
  }
  AudioObjectPropertyAddress mAddress{};
  UInt32 mQualifier = 9;
  AudioObjectID mValue = 0;
};

TEST_F(Write, OfTheDeviceIsRecordedAndPassedOn) {
  gPlatform.mStatus = 'nope';
  EXPECT_EQ(Set('dOut', kDevice), OSStatus{'nope'}) << "the platform's answer";
  EXPECT_THAT(gPlatform.mWrites, ElementsAre(Passed()));
  EXPECT_EQ(Witness(), R"({"isDefaultOutput": true})");
}

TEST_F(Write, OfAnotherDeviceClearsThePreferenceAndIsPassedOn) {
  WritePreference(kOutputOn);
  EXPECT_EQ(Set('dOut', 7), 0);
  EXPECT_THAT(gPlatform.mWrites, ElementsAre(Passed()));
  EXPECT_EQ(Witness(), R"({"isDefaultOutput": false})");
}

TEST_F(Write, EachSelectorHasItsKey) {
  Set('sOut', kDevice);
  EXPECT_EQ(Witness(), R"({"isSystemOutput": true})");
  Set('dOut', kDevice);
  EXPECT_EQ(Witness(), R"({"isDefaultOutput": true, "isSystemOutput": true})");
  Set('sOut', 7);
  EXPECT_EQ(Witness(), R"({"isDefaultOutput": true, "isSystemOutput": false})");
}

TEST_F(Write, OfMoreThanANumberRecordsItsBeginning) {
  Set('dOut', kDevice, 8);
  EXPECT_EQ(Witness(), R"({"isDefaultOutput": true})");
}

TEST_F(Write, OfTwoBytesIsPassedOnAndNotRecorded) {
  EXPECT_EQ(Set('dOut', kDevice, 2), 0);
  EXPECT_THAT(gPlatform.mWrites, ElementsAre(Passed(2)));
  EXPECT_EQ(Witness(), "");
}

TEST_F(Write, OfNothingIsPassedOnAndNotRecorded) {
  const AudioObjectPropertyAddress address{'dOut', 'glob', 0};
  EXPECT_EQ(tmbclno_aospd_proxy(1, &address, 0, nullptr, 4, nullptr), 0);
  EXPECT_THAT(gPlatform.mWrites,
              ElementsAre(NativeCall{1, &address, 0, nullptr, nullptr, 4, nullptr}));
  EXPECT_EQ(Witness(), "");
}

TEST_F(Write, BeforeThereIsADeviceIsPassedOnAndNotRecorded) {
  TMBACLNO_Initialize(0);
  WritePreference(kOutputOn);
  const std::string before = ReadRaw();
  EXPECT_EQ(Set('dOut', 7), 0);
  EXPECT_EQ(Set('dOut', 0), 0);
  EXPECT_EQ(gPlatform.mWrites.size(), 2U);
  EXPECT_EQ(ReadRaw(), before);
}

TEST_F(Write, OfAnotherPropertyOrObjectIsPassedOnAndNotRecorded) {
  Set('dIn ', kDevice);
  EXPECT_EQ(gPlatform.mWrites.back(), Passed());
  Set('dOut', kDevice, 4, 2);
  EXPECT_EQ(gPlatform.mWrites.back(), Passed(4, 2));
  tmbclno_aospd_proxy(1, nullptr, 0, nullptr, 4, &mValue);
  EXPECT_EQ(gPlatform.mWrites.size(), 3U);
  EXPECT_EQ(Witness(), "");
}

TEST_F(Write, OfTheDeviceTwiceWritesTheFileOnce) {
  Set('dOut', kDevice);
  Set('dOut', kDevice);
  EXPECT_EQ(gPlatform.mOpenedForWriting, 1);
  EXPECT_EQ(gPlatform.mWrites.size(), 2U);
}

TEST_F(Write, PassesThroughTheIslandOnceThereIsOne) {
  tmbclno_aospd_entry = &IslandSet;
  EXPECT_EQ(Set('mute', 1), OSStatus{'isle'});
  EXPECT_EQ(Set('dOut', kDevice), OSStatus{'isle'});
  EXPECT_THAT(gPlatform.mWrites, IsEmpty());
  EXPECT_EQ(Witness(), R"({"isDefaultOutput": true})");
}

}  // namespace
}  // namespace tembra::test
