#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "persistence/CACFPreferences.h"
#include "persistence/HP_PreferredChannels.h"
#include "support/CAAudioChannelLayout.h"
#include "support/CAAutoDisposer.h"
#include "support/CACFArray.h"
#include "support/CACFDictionary.h"
#include "support/device/SimulatedDevice.h"
#include "support/persistence/FakeNotifications.h"
#include "support/persistence/FakePreferences.h"

namespace tembra::test {

using testing::ElementsAre;
using testing::IsEmpty;

const std::string kInputStereo =
    "com.apple.audio.CoreAudio.PreferredStereoChannels.Input.The Device";
const std::string kOutputStereo =
    "com.apple.audio.CoreAudio.PreferredStereoChannels.Output.The Device";
const std::string kInputLayout =
    "com.apple.audio.CoreAudio.PreferredChannelLayout.Input.The Device";
const std::string kOutputLayout =
    "com.apple.audio.CoreAudio.PreferredChannelLayout.Output.The Device";

constexpr AudioObjectPropertyAddress At(UInt32 inSelector, UInt32 inScope, UInt32 inElement = 0) {
  return {inSelector, inScope, inElement};
}

inline CFMutableArrayRef CreatePair(UInt32 inLeft, UInt32 inRight) {
  CACFArray array(false);
  array.AppendUInt32(inLeft);
  array.AppendUInt32(inRight);
  return array.GetCFMutableArray();
}

using Layout = CAAutoFree<AudioChannelLayout>;

// A device of the given channels, with preferred channels that the test makes when it wants.
class PreferredChannels : public testing::Test {
 protected:
  PreferredChannels() {
    mDevice.mUID = "The Device";
    mDevice.AddSimulatedStream(true, FloatFormat(3));
    mDevice.AddSimulatedStream(false, FloatFormat(2));
    Forget();
  }
  ~PreferredChannels() override {
    if (mChannels) mChannels->Teardown();
  }

  // What the device's own building did.
  void Forget() {
    mPreferences.Reset();
    mNotifications.Reset();
    mDevice.mNotifications.clear();
    CACFPreferences::MarkPrefsClean(false, true);
  }

  HP_PreferredChannels& Make() {
    mChannels = std::make_unique<HP_PreferredChannels>(&mDevice);
    mChannels->Initialize();
    mPreferences.TakeCalls();
    return *mChannels;
  }

  std::vector<UInt32> GetPair(UInt32 inScope) {
    UInt32 pair[2] = {77, 77};
    UInt32 size = sizeof(pair);
    mChannels->GetPropertyData(At('dch2', inScope), 0, nullptr, size, pair);
    return {pair[0], pair[1]};
  }
  std::vector<UInt32> GetOutputChannels() {
    UInt32 left = 0;
    UInt32 right = 0;
    mChannels->GetOutputStereoChannels(left, right);
    return {left, right};
  }
  void SetPair(UInt32 inScope, UInt32 inLeft, UInt32 inRight) {
    const UInt32 pair[2] = {inLeft, inRight};
    mChannels->SetPropertyData(At('dch2', inScope), 0, nullptr, sizeof(pair), pair, nullptr);
  }
  AudioChannelLayout* CopyLayout(UInt32 inSelector, UInt32 inScope) {
    const UInt32 channels = mDevice.GetTotalNumberChannels(inScope == 'inpt');
    AudioChannelLayout* layout = CAAudioChannelLayout::Create(channels);
    UInt32 size = CAAudioChannelLayout::CalculateByteSize(channels);
    mChannels->GetPropertyData(At(inSelector, inScope), 0, nullptr, size, layout);
    return layout;
  }
  void SetLayout(UInt32 inScope, const AudioChannelLayout& inLayout, UInt32 inChannels) {
    mChannels->SetPropertyData(At('srnd', inScope), 0, nullptr,
                               CAAudioChannelLayout::CalculateByteSize(inChannels), &inLayout,
                               nullptr);
  }

  // The addresses that listeners were told of, as "selector/scope/element".
  std::vector<std::string> TakeTold() {
    const auto text = [](UInt32 inCode) {
      return std::string{static_cast<char>(inCode >> 24), static_cast<char>(inCode >> 16),
                         static_cast<char>(inCode >> 8), static_cast<char>(inCode)};
    };
    std::vector<std::string> told;
    for (const AudioObjectPropertyAddress& address : mDevice.mNotifications) {
      told.push_back(text(address.mSelector) + "/" + text(address.mScope) + "/" +
                     std::to_string(address.mElement));
    }
    mDevice.mNotifications.clear();
    return told;
  }

  FakePreferences& mPreferences = FakePreferences::Get();
  FakeNotifications& mNotifications = FakeNotifications::Get();
  SimulatedDevice mDevice;
  std::unique_ptr<HP_PreferredChannels> mChannels;
};

}  // namespace tembra::test
