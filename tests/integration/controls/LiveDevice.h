#pragma once

#include <CoreAudio/AudioHardware.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace tembra::test {

// The device as a program meets it: loaded by the HAL of this process, reached by the published
// calls alone.
class LiveDevice : public testing::Test {
 protected:
  LiveDevice() {
    mDevice =
        GetNumber(kAudioObjectSystemObject, Global(kAudioHardwarePropertyDefaultOutputDevice));
    EXPECT_NE(mDevice, kAudioObjectUnknown);
  }
  ~LiveDevice() override { EXPECT_EQ(AudioHardwareUnload(), 0); }

  static AudioObjectPropertyAddress Global(UInt32 inSelector) {
    return {inSelector, kAudioObjectPropertyScopeGlobal, 0};
  }
  static AudioObjectPropertyAddress Output(UInt32 inSelector, UInt32 inElement = 0) {
    return {inSelector, kAudioObjectPropertyScopeOutput, inElement};
  }

  template <class T>
  static OSStatus Get(AudioObjectID inID, const AudioObjectPropertyAddress& inAddress,
                      T& outValue) {
    UInt32 size = sizeof outValue;
    return AudioObjectGetPropertyData(inID, &inAddress, 0, nullptr, &size, &outValue);
  }
  template <class T>
  static OSStatus Set(AudioObjectID inID, const AudioObjectPropertyAddress& inAddress,
                      const T& inValue) {
    return AudioObjectSetPropertyData(inID, &inAddress, 0, nullptr, sizeof inValue, &inValue);
  }
  static UInt32 GetNumber(AudioObjectID inID, const AudioObjectPropertyAddress& inAddress) {
    UInt32 value = 0;
    EXPECT_EQ(Get(inID, inAddress, value), 0) << TextOf(inAddress.mSelector);
    return value;
  }
  static Float32 GetFloat(AudioObjectID inID, const AudioObjectPropertyAddress& inAddress) {
    Float32 value = -1;
    EXPECT_EQ(Get(inID, inAddress, value), 0) << TextOf(inAddress.mSelector);
    return value;
  }
  static std::vector<AudioObjectID> GetObjects(AudioObjectID inID,
                                               const AudioObjectPropertyAddress& inAddress,
                                               std::vector<AudioClassID> inClasses = {}) {
    const auto qualifierSize = static_cast<UInt32>(inClasses.size() * sizeof(AudioClassID));
    UInt32 size = 0;
    EXPECT_EQ(
        AudioObjectGetPropertyDataSize(inID, &inAddress, qualifierSize, inClasses.data(), &size),
        0);
    std::vector<AudioObjectID> objects(size / sizeof(AudioObjectID) + 1);
    EXPECT_EQ(AudioObjectGetPropertyData(inID, &inAddress, qualifierSize, inClasses.data(), &size,
                                         objects.data()),
              0);
    objects.resize(size / sizeof(AudioObjectID));
    return objects;
  }

  static std::string TextOf(UInt32 inCode) {
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8) text += static_cast<char>(inCode >> shift);
    return text;
  }

  AudioObjectID mDevice = kAudioObjectUnknown;
};

}  // namespace tembra::test
