#pragma once

#include <cstring>
#include <map>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "support/device/SimulatedDevice.h"

namespace tembra::test {

// The controls of a device or a stream, played by the test: what it has, and what was asked.
class SimulatedControls {
 public:
  using Key = std::tuple<UInt32, UInt32, UInt32>;  // selector, scope, element

  void Add(UInt32 inSelector, UInt32 inScope, UInt32 inElement, UInt32 inValue) {
    mValues[{inSelector, inScope, inElement}] = inValue;
  }
  void Add(UInt32 inSelector, UInt32 inScope, UInt32 inElement, Float32 inValue) {
    UInt32 bits = 0;
    std::memcpy(&bits, &inValue, sizeof(bits));
    Add(inSelector, inScope, inElement, bits);
  }
  bool Has(const AudioObjectPropertyAddress& inAddress) const {
    mAsked.push_back(Name("has", inAddress));
    Log(mAsked.back());
    return mValues.count(KeyOf(inAddress)) != 0;
  }
  void Get(const AudioObjectPropertyAddress& inAddress, UInt32 inSize, void* outData) const {
    if (inSize != 4) throw CAException(kAudioHardwareBadPropertySizeError);
    std::memcpy(outData, &mValues.at(KeyOf(inAddress)), 4);
  }
  void Set(const AudioObjectPropertyAddress& inAddress, UInt32 inQualifierSize,
           const void* inQualifier, UInt32 inSize, const void* inData,
           const AudioTimeStamp* inWhen) {
    if (inSize != 4) throw CAException(kAudioHardwareBadPropertySizeError);
    if (inQualifierSize != 0 || inQualifier != nullptr || inWhen != nullptr) {
      throw CAException(kAudioHardwareIllegalOperationError);
    }
    mSets.push_back(Name("set", inAddress));
    Log(mSets.back());
    std::memcpy(&mValues[KeyOf(inAddress)], inData, 4);
  }

  UInt32 Number(UInt32 inSelector, UInt32 inScope, UInt32 inElement) const {
    return mValues.at({inSelector, inScope, inElement});
  }
  Float32 Float(UInt32 inSelector, UInt32 inScope, UInt32 inElement) const {
    const UInt32 bits = Number(inSelector, inScope, inElement);
    Float32 value = 0;
    std::memcpy(&value, &bits, sizeof(value));
    return value;
  }
  // From now on all that is asked and set is noted there too, under that name.
  void LogTo(std::vector<std::string>& inLog, const std::string& inName) {
    mLog = &inLog;
    mName = inName;
  }
  void Log(const std::string& inWhat) const {
    if (mLog != nullptr) mLog->push_back(mName + " " + inWhat);
  }
  std::vector<std::string> TakeAsked() { return std::exchange(mAsked, {}); }
  std::vector<std::string> TakeSets() { return std::exchange(mSets, {}); }

 private:
  static Key KeyOf(const AudioObjectPropertyAddress& inAddress) {
    return {inAddress.mSelector, inAddress.mScope, inAddress.mElement};
  }
  static std::string Name(const char* inWhat, const AudioObjectPropertyAddress& inAddress) {
    const auto text = [](UInt32 inCode) {
      return std::string{static_cast<char>(inCode >> 24), static_cast<char>(inCode >> 16),
                         static_cast<char>(inCode >> 8), static_cast<char>(inCode)};
    };
    return std::string(inWhat) + " " + text(inAddress.mSelector) + "/" + text(inAddress.mScope) +
           "/" + std::to_string(inAddress.mElement);
  }

  std::map<Key, UInt32> mValues;
  mutable std::vector<std::string> mAsked;
  std::vector<std::string> mSets;
  std::vector<std::string>* mLog = nullptr;
  std::string mName;
};

// A stream with controls, whose physical format is what was last set.
class ControlledStream : public SimulatedStream {
 public:
  using SimulatedStream::SimulatedStream;

  bool HasProperty(const AudioObjectPropertyAddress& inAddress) const override {
    if (inAddress.mSelector == kAudioStreamPropertyPhysicalFormat) return mHasPhysicalFormat;
    return mControls.Has(inAddress);
  }
  void GetPropertyData(const AudioObjectPropertyAddress& inAddress, UInt32, const void*,
                       UInt32& ioDataSize, void* outData) const override {
    mControls.Get(inAddress, ioDataSize, outData);
  }
  void SetPropertyData(const AudioObjectPropertyAddress& inAddress, UInt32 inQualifierSize,
                       const void* inQualifier, UInt32 inDataSize, const void* inData,
                       const AudioTimeStamp* inWhen) override {
    if (inAddress.mSelector != kAudioStreamPropertyPhysicalFormat) {
      mControls.Set(inAddress, inQualifierSize, inQualifier, inDataSize, inData, inWhen);
      return;
    }
    if (inDataSize != 40 || inQualifierSize != 0 || inQualifier != nullptr || inWhen != nullptr) {
      throw CAException(kAudioHardwareBadPropertySizeError);
    }
    mControls.Log("set format");
    mFormats.push_back(*static_cast<const AudioStreamBasicDescription*>(inData));
  }

  SimulatedControls mControls;
  bool mHasPhysicalFormat = true;
  std::vector<AudioStreamBasicDescription> mFormats;
};

// A device with controls.
class ControlledDevice : public SimulatedDevice {
 public:
  explicit ControlledDevice(const char* inUID = "The Device") { mUID = inUID; }
  ~ControlledDevice() override {
    for (auto& stream : mControlledStreams) RemoveStream(stream.get());
  }

  ControlledStream& AddControlledStream(bool inIsInput,
                                        const AudioStreamBasicDescription& inFormat) {
    const auto id = static_cast<AudioObjectID>(4100 + mControlledStreams.size());
    mControlledStreams.push_back(std::make_unique<ControlledStream>(
        id, this, inIsInput, GetTotalNumberChannels(inIsInput) + 1, inFormat));
    AddStream(mControlledStreams.back().get());
    return *mControlledStreams.back();
  }

  bool HasProperty(const AudioObjectPropertyAddress& inAddress) const override {
    mMutexWasHeld = GetDeviceStateMutex()->IsOwnedByCurrentThread();
    return mControls.Has(inAddress);
  }
  void GetPropertyData(const AudioObjectPropertyAddress& inAddress, UInt32, const void*,
                       UInt32& ioDataSize, void* outData) const override {
    mControls.Get(inAddress, ioDataSize, outData);
  }
  void SetPropertyData(const AudioObjectPropertyAddress& inAddress, UInt32 inQualifierSize,
                       const void* inQualifier, UInt32 inDataSize, const void* inData,
                       const AudioTimeStamp* inWhen) override {
    mControls.Set(inAddress, inQualifierSize, inQualifier, inDataSize, inData, inWhen);
  }

  SimulatedControls mControls;
  mutable bool mMutexWasHeld = false;
  std::vector<std::unique_ptr<ControlledStream>> mControlledStreams;
};

}  // namespace tembra::test
