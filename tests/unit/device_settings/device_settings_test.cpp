#include "persistence/HP_DeviceSettings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/CACFDictionary.h"
#include "support/CACFString.h"
#include "support/persistence/ControlledDevice.h"
#include "support/persistence/FakePreferences.h"

namespace tembra::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using ControlInfo = HP_DeviceSettings::ControlInfo;

constexpr ControlInfo kControls[] = {{'volm', 1}, {'mute', 0}, {'ssrc', 2}};
constexpr UInt32 kCount = 3;

std::string TextOf(CFStringRef inString) {
  char text[256] = "";
  if (inString != nullptr) CFStringGetCString(inString, text, sizeof(text), kCFStringEncodingUTF8);
  return text;
}

std::string TakeText(CFStringRef inString) {
  return TextOf(CACFString(inString).GetCFString());
}

std::vector<std::string> KeysOf(const CACFDictionary& inDictionary) {
  std::vector<const void*> keys(inDictionary.Size());
  inDictionary.GetKeys(keys.data());
  std::vector<std::string> texts;
  for (const void* key : keys) texts.push_back(TextOf(static_cast<CFStringRef>(key)));
  return texts;
}

CFNumberRef Number(const CACFDictionary& inDictionary, const char* inKey) {
  CFTypeRef value = nullptr;
  EXPECT_TRUE(inDictionary.GetCFType(CACFString(inKey).GetCFString(), value)) << inKey;
  EXPECT_TRUE(value != nullptr && CFGetTypeID(value) == CFNumberGetTypeID()) << inKey;
  return static_cast<CFNumberRef>(value);
}

CACFDictionary Save(const HP_Device& inDevice, const ControlInfo* inInfo = kControls,
                    UInt32 inCount = kCount) {
  return CACFDictionary(HP_DeviceSettings::SaveToDictionary(inDevice, inInfo, inCount), true);
}

class DeviceSettings : public testing::Test {
 protected:
  DeviceSettings() { FakePreferences::Get().Reset(); }
};

TEST(StandardControls, AreTheseInThisOrder) {
  const ControlInfo expected[] = {{'volm', 1}, {'span', 1}, {'mute', 0}, {'solo', 0}, {'ssrc', 2},
                                  {'csrc', 2}, {'thru', 0}, {'thrs', 0}, {'mvsc', 1}, {'mspn', 1},
                                  {'mdds', 2}, {'nlvl', 2}, {'isub', 0}, {'svld', 1}, {'smut', 0}};
  ASSERT_EQ(HP_DeviceSettings::kNumberStandardControlsToSave, 15u);
  for (UInt32 i = 0; i < 15; ++i) {
    EXPECT_EQ(HP_DeviceSettings::sStandardControlsToSave[i].mSelector, expected[i].mSelector) << i;
    EXPECT_EQ(HP_DeviceSettings::sStandardControlsToSave[i].mKind, expected[i].mKind) << i;
  }
  static_assert(sizeof(ControlInfo) == 8);
}

TEST(SettingsKeys, NameObjectSelectorDirectionAndChannel) {
  EXPECT_EQ(TakeText(HP_DeviceSettings_ConstructControlKey(false, 'volm', true, 0)),
            "device 'volm' control on input channel 0");
  EXPECT_EQ(TakeText(HP_DeviceSettings_ConstructControlKey(true, 'mute', false, 12)),
            "stream 'mute' control on output channel 12");
  EXPECT_EQ(TakeText(HP_DeviceSettings_ConstructFormatKey(true, 0)),
            "physical format for input stream 0");
  EXPECT_EQ(TakeText(HP_DeviceSettings_ConstructFormatKey(false, 3)),
            "physical format for output stream 3");
}

// Formats.

TEST(SettingsFormat, HasEightFieldsAndComesBack) {
  AudioStreamBasicDescription format = FloatFormat(2, 48000.0);
  format.mFormatFlags |= 0x80000000;  // above what a signed number holds
  const CACFDictionary dictionary(HP_DeviceSettings_ConstructDictionaryFromFormat(format), true);
  EXPECT_THAT(KeysOf(dictionary),
              ElementsAre("sample rate", "format id", "format flags", "bytes per packet",
                          "frames per packet", "bytes per frame", "channels per frame",
                          "bits per channel"));
  EXPECT_EQ(CFNumberGetType(Number(dictionary, "sample rate")), kCFNumberFloat64Type);
  for (const char* key : {"format id", "format flags", "bytes per packet", "frames per packet",
                          "bytes per frame", "channels per frame", "bits per channel"}) {
    EXPECT_EQ(CFNumberGetType(Number(dictionary, key)), kCFNumberSInt32Type) << key;
  }
  UInt32 bits = 0;
  EXPECT_TRUE(dictionary.GetUInt32(CFSTR("bits per channel"), bits));
  EXPECT_EQ(bits, 32u);
  AudioStreamBasicDescription read;
  std::memset(&read, 0xAB, sizeof(read));
  EXPECT_TRUE(HP_DeviceSettings_ConstructFormatFromDictionary(dictionary.GetCFDictionary(), read));
  EXPECT_EQ(std::memcmp(&read, &format, sizeof(read)), 0);
}

TEST(SettingsFormat, StopsAtTheFirstMissingKeyWithTheOnesBeforeFilledIn) {
  const AudioStreamBasicDescription format = FloatFormat(2, 48000.0);
  const char* const keys[] = {"sample rate",        "format id",         "format flags",
                              "bytes per packet",   "frames per packet", "bytes per frame",
                              "channels per frame", "bits per channel"};
  for (size_t missing = 0; missing < 8; ++missing) {
    CACFDictionary dictionary(HP_DeviceSettings_ConstructDictionaryFromFormat(format), true);
    dictionary.RemoveKey(CACFString(keys[missing]).GetCFString());
    AudioStreamBasicDescription read;
    std::memset(&read, 0xAB, sizeof(read));
    EXPECT_FALSE(
        HP_DeviceSettings_ConstructFormatFromDictionary(dictionary.GetCFDictionary(), read));
    AudioStreamBasicDescription expected = {};
    if (missing > 0) expected.mSampleRate = format.mSampleRate;
    if (missing > 1) expected.mFormatID = format.mFormatID;
    if (missing > 2) expected.mFormatFlags = format.mFormatFlags;
    if (missing > 3) expected.mBytesPerPacket = format.mBytesPerPacket;
    if (missing > 4) expected.mFramesPerPacket = format.mFramesPerPacket;
    if (missing > 5) expected.mBytesPerFrame = format.mBytesPerFrame;
    if (missing > 6) expected.mChannelsPerFrame = format.mChannelsPerFrame;
    EXPECT_EQ(std::memcmp(&read, &expected, sizeof(read)), 0) << keys[missing];
  }
}

TEST(SettingsFormat, AValueOfTheWrongKindIsMissing) {
  CACFDictionary dictionary(HP_DeviceSettings_ConstructDictionaryFromFormat(FloatFormat(2)), true);
  dictionary.AddString(CFSTR("format id"), CFSTR("lpcm"));
  AudioStreamBasicDescription read = {};
  EXPECT_FALSE(HP_DeviceSettings_ConstructFormatFromDictionary(dictionary.GetCFDictionary(), read));
  EXPECT_EQ(read.mSampleRate, 44100.0);
  EXPECT_EQ(read.mFormatID, 0u);
}

// Saving.

TEST_F(DeviceSettings, AskForEachSelectorOnEachChannelInTheFixedOrder) {
  ControlledDevice device;
  ControlledStream& input = device.AddControlledStream(true, FloatFormat(1));
  ControlledStream& output = device.AddControlledStream(false, FloatFormat(2));
  const ControlInfo controls[] = {{'volm', 1}, {'mute', 0}};
  Save(device, controls, 2);
  EXPECT_THAT(
      device.mControls.TakeAsked(),
      ElementsAre("has volm/inpt/0", "has volm/inpt/1", "has mute/inpt/0", "has mute/inpt/1",
                  "has volm/outp/0", "has volm/outp/1", "has volm/outp/2", "has mute/outp/0",
                  "has mute/outp/1", "has mute/outp/2"));
  EXPECT_THAT(input.mControls.TakeAsked(), ElementsAre("has volm/inpt/0", "has mute/inpt/0"));
  EXPECT_THAT(output.mControls.TakeAsked(), ElementsAre("has volm/outp/0", "has mute/outp/0"));
  EXPECT_FALSE(device.mMutexWasHeld) << "saving holds no lock";
}

TEST_F(DeviceSettings, ADeviceWithTwoOutputChannelsHasKeysForZeroOneAndTwo) {
  ControlledDevice device;
  device.AddControlledStream(false, CompressedFormat(1536));
  for (UInt32 element = 0; element < 4; ++element) {
    device.mControls.Add('volm', 'outp', element, 0.25f * static_cast<float>(element));
  }
  const CACFDictionary saved = Save(device);
  EXPECT_THAT(KeysOf(saved),
              testing::UnorderedElementsAre("device 'volm' control on output channel 0",
                                            "device 'volm' control on output channel 1",
                                            "device 'volm' control on output channel 2"));
  const CFNumberRef number = Number(saved, "device 'volm' control on output channel 2");
  EXPECT_EQ(CFNumberGetType(number), kCFNumberFloat32Type);
  Float32 value = 0;
  EXPECT_TRUE(CFNumberGetValue(number, kCFNumberFloat32Type, &value));
  EXPECT_EQ(value, 0.5f);
}

TEST_F(DeviceSettings, BooleansAndSelectorsAreNumbersAndOtherKindsAreSkipped) {
  ControlledDevice device;
  device.mControls.Add('mute', 'inpt', 0, 1u);
  device.mControls.Add('ssrc', 'inpt', 0, 0xFFFFFFFEu);
  device.mControls.Add('odd ', 'inpt', 0, 5u);
  const ControlInfo controls[] = {{'mute', 0}, {'ssrc', 2}, {'odd ', 3}, {'odd ', 0xFFFFFFFF}};
  const CACFDictionary saved = Save(device, controls, 4);
  EXPECT_EQ(saved.Size(), 2u);
  EXPECT_EQ(CFNumberGetType(Number(saved, "device 'mute' control on input channel 0")),
            kCFNumberSInt32Type);
  UInt32 source = 0;
  EXPECT_TRUE(saved.GetUInt32(CFSTR("device 'ssrc' control on input channel 0"), source));
  EXPECT_EQ(source, 0xFFFFFFFEu);
}

TEST_F(DeviceSettings, AStreamSavesItsElementZeroAndItsFormat) {
  ControlledDevice device;
  ControlledStream& first = device.AddControlledStream(false, FloatFormat(2));
  ControlledStream& second = device.AddControlledStream(false, FloatFormat(1, 96000.0));
  first.mControls.Add('mute', 'outp', 0, 1u);
  first.mControls.Add('mute', 'outp', 1, 1u);
  second.mControls.Add('volm', 'outp', 0, 0.5f);
  const CACFDictionary saved = Save(device);
  EXPECT_THAT(KeysOf(saved),
              testing::UnorderedElementsAre("stream 'mute' control on output channel 0",
                                            "stream 'volm' control on output channel 0",
                                            "physical format for output stream 0",
                                            "physical format for output stream 1"));
  CFDictionaryRef format = nullptr;
  ASSERT_TRUE(saved.GetDictionary(CFSTR("physical format for output stream 1"), format));
  AudioStreamBasicDescription read = {};
  EXPECT_TRUE(HP_DeviceSettings_ConstructFormatFromDictionary(format, read));
  EXPECT_EQ(read.mSampleRate, 96000.0);
}

TEST_F(DeviceSettings, AFormatThatIsNotMixableIsNotSaved) {
  ControlledDevice device;
  device.AddControlledStream(true, CompressedFormat(1536));
  AudioStreamBasicDescription nonMixable = FloatFormat(2);
  nonMixable.mFormatFlags |= kAudioFormatFlagIsNonMixable;
  device.AddControlledStream(true, nonMixable);
  device.AddControlledStream(true, FloatFormat(2));
  EXPECT_THAT(KeysOf(Save(device)), ElementsAre("physical format for input stream 2"));
}

TEST_F(DeviceSettings, WhatAnObjectThrowsIsPassedOn) {
  class Device : public ControlledDevice {
    void GetPropertyData(const AudioObjectPropertyAddress&, UInt32, const void*, UInt32&,
                         void*) const override {
      throw CAException('oops');
    }
  } device;
  device.mControls.Add('volm', 'inpt', 0, 1.0f);
  EXPECT_EQ(StatusOf([&] { Save(device); }), 'oops');
}

// Restoring.

TEST_F(DeviceSettings, ComeBackAsTheyWereSaved) {
  ControlledDevice device;
  ControlledStream& stream = device.AddControlledStream(false, FloatFormat(2, 48000.0));
  device.mControls.Add('volm', 'outp', 0, 0.5f);
  device.mControls.Add('volm', 'outp', 2, 0.75f);
  device.mControls.Add('mute', 'outp', 1, 1u);
  device.mControls.Add('ssrc', 'inpt', 0, UInt32{'mic '});
  stream.mControls.Add('mute', 'outp', 0, 1u);
  const CACFDictionary saved = Save(device);

  device.mControls.Add('volm', 'outp', 0, 0.0f);
  device.mControls.Add('volm', 'outp', 2, 0.0f);
  device.mControls.Add('mute', 'outp', 1, 0u);
  device.mControls.Add('ssrc', 'inpt', 0, 0u);
  stream.mControls.Add('mute', 'outp', 0, 0u);
  HP_DeviceSettings::RestoreFromDictionary(device, saved.GetCFDictionary(), kControls, kCount);
  EXPECT_EQ(device.mControls.Float('volm', 'outp', 0), 0.5f);
  EXPECT_EQ(device.mControls.Float('volm', 'outp', 2), 0.75f);
  EXPECT_EQ(device.mControls.Number('mute', 'outp', 1), 1u);
  EXPECT_EQ(device.mControls.Number('ssrc', 'inpt', 0), UInt32{'mic '});
  EXPECT_EQ(stream.mControls.Number('mute', 'outp', 0), 1u);
  ASSERT_EQ(stream.mFormats.size(), 1u);
  EXPECT_EQ(stream.mFormats[0].mSampleRate, 48000.0);
  EXPECT_THAT(device.mControls.TakeSets(), ElementsAre("set ssrc/inpt/0", "set volm/outp/0",
                                                       "set volm/outp/2", "set mute/outp/1"));
  EXPECT_TRUE(device.mMutexWasHeld);
  EXPECT_FALSE(device.GetDeviceStateMutex()->IsOwnedByCurrentThread());
}

TEST_F(DeviceSettings, OfTheDeviceComeBeforeThoseOfItsStreamsAndInputBeforeOutput) {
  ControlledDevice device;
  ControlledStream& output = device.AddControlledStream(false, FloatFormat(1));
  ControlledStream& input = device.AddControlledStream(true, FloatFormat(1));
  for (const UInt32 scope : {'inpt', 'outp'}) {
    device.mControls.Add('mute', scope, 0, 1u);
    (scope == 'inpt' ? input : output).mControls.Add('mute', scope, 0, 1u);
  }
  std::vector<std::string> log;
  device.mControls.LogTo(log, "device");
  input.mControls.LogTo(log, "input stream");
  output.mControls.LogTo(log, "output stream");
  const ControlInfo controls[] = {{'mute', 0}};
  const CACFDictionary saved = Save(device, controls, 1);
  EXPECT_THAT(log, ElementsAre("device has mute/inpt/0", "device has mute/inpt/1",
                               "device has mute/outp/0", "device has mute/outp/1",
                               "input stream has mute/inpt/0", "output stream has mute/outp/0"));
  log.clear();
  HP_DeviceSettings::RestoreFromDictionary(device, saved.GetCFDictionary(), controls, 1);
  EXPECT_THAT(
      log, ElementsAre("device has mute/inpt/0", "device set mute/inpt/0", "device has mute/inpt/1",
                       "device has mute/outp/0", "device set mute/outp/0", "device has mute/outp/1",
                       "input stream has mute/inpt/0", "input stream set mute/inpt/0",
                       "input stream set format", "output stream has mute/outp/0",
                       "output stream set mute/outp/0", "output stream set format"));
}

TEST_F(DeviceSettings, ANullDictionaryRestoresNothing) {
  ControlledDevice device;
  HP_DeviceSettings::RestoreFromDictionary(device, nullptr, kControls, kCount);
  EXPECT_THAT(device.mControls.TakeAsked(), IsEmpty());
}

TEST_F(DeviceSettings, MissingKeysWrongKindsAndChannelsThatAreGoneAreSkipped) {
  ControlledDevice device;
  device.AddControlledStream(false, FloatFormat(1));
  device.mControls.Add('volm', 'outp', 0, 0.5f);
  device.mControls.Add('volm', 'outp', 1, 0.5f);
  device.mControls.Add('mute', 'outp', 0, 0u);
  device.mControls.Add('mute', 'outp', 1, 0u);
  device.mControls.Add('mute', 'outp', 2, 0u);
  CACFDictionary dictionary(true);
  dictionary.AddString(CFSTR("device 'volm' control on output channel 0"), CFSTR("1.0"));
  dictionary.AddBool(CFSTR("device 'mute' control on output channel 0"), true);
  dictionary.AddUInt32(CFSTR("device 'mute' control on output channel 2"), 1);
  dictionary.AddUInt32(CFSTR("device 'ssrc' control on output channel 0"), 1);
  HP_DeviceSettings::RestoreFromDictionary(device, dictionary.GetCFDictionary(), kControls, kCount);
  EXPECT_THAT(device.mControls.TakeSets(), IsEmpty());
}

TEST_F(DeviceSettings, OtherKindsAreNotRestored) {
  ControlledDevice device;
  device.mControls.Add('odd ', 'inpt', 0, 0u);
  CACFDictionary dictionary(true);
  dictionary.AddUInt32(CFSTR("device 'odd ' control on input channel 0"), 1);
  const ControlInfo controls[] = {{'odd ', 3}};
  HP_DeviceSettings::RestoreFromDictionary(device, dictionary.GetCFDictionary(), controls, 1);
  EXPECT_THAT(device.mControls.TakeSets(), IsEmpty());
}

TEST_F(DeviceSettings, NumbersAreTakenAtTheWidthOfTheControl) {
  ControlledDevice device;
  device.mControls.Add('volm', 'inpt', 0, 0.0f);
  device.mControls.Add('mute', 'inpt', 0, 0u);
  CACFDictionary dictionary(true);
  dictionary.AddUInt32(CFSTR("device 'volm' control on input channel 0"), 1);
  dictionary.AddFloat64(CFSTR("device 'mute' control on input channel 0"), 1.0);
  HP_DeviceSettings::RestoreFromDictionary(device, dictionary.GetCFDictionary(), kControls, kCount);
  EXPECT_EQ(device.mControls.Float('volm', 'inpt', 0), 1.0f);
  EXPECT_EQ(device.mControls.Number('mute', 'inpt', 0), 1u);
}

TEST_F(DeviceSettings, AFormatWithoutItsIDIsNotRestored) {
  ControlledDevice device;
  ControlledStream& stream = device.AddControlledStream(false, FloatFormat(2));
  CACFDictionary format(HP_DeviceSettings_ConstructDictionaryFromFormat(FloatFormat(2)), true);
  format.RemoveKey(CFSTR("format id"));
  CACFDictionary dictionary(true);
  dictionary.AddDictionary(CFSTR("physical format for output stream 0"), format.GetCFDictionary());
  HP_DeviceSettings::RestoreFromDictionary(device, dictionary.GetCFDictionary(), kControls, kCount);
  EXPECT_THAT(stream.mFormats, IsEmpty());
}

TEST_F(DeviceSettings, AStreamWithoutAPhysicalFormatIsNotToldOne) {
  ControlledDevice device;
  ControlledStream& stream = device.AddControlledStream(false, FloatFormat(2));
  stream.mHasPhysicalFormat = false;
  const CACFDictionary saved = Save(device);
  HP_DeviceSettings::RestoreFromDictionary(device, saved.GetCFDictionary(), kControls, kCount);
  EXPECT_THAT(stream.mFormats, IsEmpty());
}

TEST_F(DeviceSettings, SettingsInThePreferencesAreUsedOnceAndMoveOut) {
  const std::string key = "com.apple.audio.CoreAudio.DeviceSettings.The Device";
  CACFDictionary old(false);
  old.AddUInt32(CFSTR("device 'mute' control on input channel 0"), 1);
  FakePreferences& preferences = FakePreferences::Get();
  preferences.Put(key, old.GetCFMutableDictionary());
  ControlledDevice device;
  device.mControls.Add('mute', 'inpt', 0, 0u);
  preferences.TakeCalls();
  HP_DeviceSettings::RestoreFromPrefs(device, kControls, kCount);
  EXPECT_EQ(device.mControls.Number('mute', 'inpt', 0), 1u);
  EXPECT_THAT(preferences.TakeCalls(),
              ElementsAre("copy " + key + " in any user, this host",
                          "remove " + key + " in any user, this host",
                          "synchronize this user, this host", "synchronize any user, this host"));
  EXPECT_TRUE(device.mMutexWasHeld);
  EXPECT_FALSE(device.GetDeviceStateMutex()->IsOwnedByCurrentThread());
}

}  // namespace
}  // namespace tembra::test
