#pragma once

#include <CoreAudio/AudioHardware.h>
#include <CoreFoundation/CoreFoundation.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "device/HP_Command.h"
#include "device/HP_Device.h"
#include "device/HP_IOProcList.h"
#include "formats/HP_FormatList.h"
#include "formats/HP_Stream.h"
#include "support/CAException.h"
#include "support/CAGuard.h"

namespace tembra::test {

inline AudioStreamBasicDescription FloatFormat(UInt32 inChannels, Float64 inRate = 44100.0) {
  AudioStreamBasicDescription theFormat = {};
  theFormat.mSampleRate = inRate;
  theFormat.mFormatID = kAudioFormatLinearPCM;
  theFormat.mFormatFlags = kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked;
  theFormat.mBytesPerPacket = 4 * inChannels;
  theFormat.mFramesPerPacket = 1;
  theFormat.mBytesPerFrame = 4 * inChannels;
  theFormat.mChannelsPerFrame = inChannels;
  theFormat.mBitsPerChannel = 32;
  return theFormat;
}

inline AudioStreamBasicDescription CompressedFormat(UInt32 inFramesPerPacket) {
  AudioStreamBasicDescription theFormat = {};
  theFormat.mSampleRate = 48000.0;
  theFormat.mFormatID = 'ac-3';
  theFormat.mBytesPerPacket = 6144;
  theFormat.mFramesPerPacket = inFramesPerPacket;
  theFormat.mChannelsPerFrame = 2;
  return theFormat;
}

// The status that a call throws; 0 if it throws none.
template <class Call>
OSStatus StatusOf(Call inCall) {
  try {
    inCall();
  } catch (const CAException& theException) {
    return theException.GetError();
  }
  return 0;
}

// A stream of one format that notes what it is told of buffers.
class SimulatedStream : public HP_Stream {
 public:
  struct Registration {
    UInt32 mSetID;
    UInt32 mByteSize;
    void* mBuffer;
    bool operator==(const Registration&) const = default;
  };

  SimulatedStream(AudioObjectID inID, HP_Device* inDevice, bool inIsInput, UInt32 inFirstChannel,
                  const AudioStreamBasicDescription& inFormat)
      : HP_Stream(inID, nullptr, inDevice, inIsInput, inFirstChannel) {
    Initialize();
    AddFormat(inFormat);
    GetFormatList()->SetCurrentPhysicalFormat(inFormat, false);
  }
  ~SimulatedStream() override { Teardown(); }

  void AddFormat(const AudioStreamBasicDescription& inFormat) {
    GetFormatList()->AddPhysicalFormat({inFormat, {inFormat.mSampleRate, inFormat.mSampleRate}});
  }
  void SetFormat(const AudioStreamBasicDescription& inFormat) {
    GetFormatList()->SetCurrentPhysicalFormat(inFormat, false);
  }

  void RegisterIOBuffer(UInt32 inSetID, UInt32 inByteSize, void* inBuffer) override {
    mRegistrations.push_back({inSetID, inByteSize, inBuffer});
  }
  void UnregisterIOBuffer(UInt32 inSetID, UInt32 inByteSize, void* inBuffer) override {
    mUnregistrations.push_back({inSetID, inByteSize, inBuffer});
  }

  std::vector<Registration> mRegistrations;
  std::vector<Registration> mUnregistrations;
};

// A device without a thread. It takes its guard for commands as a real one does, and keeps a list
// of what happens to it.
class SimulatedDevice : public HP_Device {
 public:
  static constexpr UInt32 kIOBufferSetID = 7;

  explicit SimulatedDevice(bool inIncludesHeader = false, bool inIsInitialized = true)
      : HP_Device(kObjectID, kAudioDeviceClassID, nullptr, kIOBufferSetID, inIncludesHeader),
        mGuard("IOGuard") {
    if (inIsInitialized) Initialize();
  }
  ~SimulatedDevice() override {
    if (GetIOProcList() != nullptr) GetIOProcList()->RemoveAllIOProcs();
    for (auto& theStream : mStreams) RemoveStream(theStream.get());
    if (GetDeviceStateMutex() != nullptr) Teardown();
    mStreams.clear();
  }

  SimulatedStream* AddSimulatedStream(bool inIsInput, const AudioStreamBasicDescription& inFormat) {
    const UInt32 theFirstChannel = GetTotalNumberChannels(inIsInput) + 1;
    const AudioObjectID theID = kObjectID + 1 + static_cast<UInt32>(mStreams.size());
    mStreams.push_back(
        std::make_unique<SimulatedStream>(theID, this, inIsInput, theFirstChannel, inFormat));
    AddStream(mStreams.back().get());
    return mStreams.back().get();
  }

  // Names; null where the text is.
  CFStringRef CopyDeviceName() const override { return Copy(mName); }
  CFStringRef CopyDeviceManufacturerName() const override { return Copy(mManufacturer); }
  CFStringRef CopyElementFullName(const AudioObjectPropertyAddress&) const override {
    return Copy(mFullName);
  }
  CFStringRef CopyElementCategoryName(const AudioObjectPropertyAddress&) const override {
    return Copy(mCategoryName);
  }
  CFStringRef CopyElementNumberName(const AudioObjectPropertyAddress&) const override {
    return Copy(mNumberName);
  }
  CFStringRef CopyConfigurationApplicationBundleID() const override { return Copy(mApplication); }
  CFStringRef CopyDeviceUID() const override { return Copy(mUID); }
  CFStringRef CopyModelUID() const override { return Copy(mModelUID); }

  void PropertiesChanged(UInt32 inNumber,
                         const AudioObjectPropertyAddress* inAddresses) const override {
    mEvents.push_back("properties");
    mGuardWasHeldForNotification = mGuard.IsOwnedByCurrentThread();
    mNotifications.insert(mNotifications.end(), inAddresses, inAddresses + inNumber);
  }

  bool IsSafeToExecuteCommand() override { return mIsSafe; }
  bool IsPermittedToExecuteCommand(HP_Command* inCommand) override {
    return mIsPermitted(inCommand);
  }
  bool StartCommandExecution(void** outToken) override {
    mEvents.push_back("begin");
    *outToken = mGuard.Lock() ? this : nullptr;
    return mStartAnswer;
  }
  void FinishCommandExecution(void* inToken) override {
    if (inToken != nullptr) mGuard.Unlock();
    mEvents.push_back("end");
  }
  CAGuard* GetIOGuard() override { return mHasGuard ? &mGuard : nullptr; }

  void StartIOEngine() override {
    mEvents.push_back("start engine");
    HP_Device::StartIOEngine();
  }
  void StartIOEngineAtTime(const AudioTimeStamp& inTime, UInt32 inFlags) override {
    mEvents.push_back("start engine at " + std::to_string(static_cast<int>(inTime.mSampleTime)));
    HP_Device::StartIOEngineAtTime(inTime, inFlags);
  }
  void StopIOEngine() override {
    mEvents.push_back("stop engine");
    HP_Device::StopIOEngine();
  }
  void IOBufferFrameSizeChanged(bool inSendNotifications,
                                CAPropertyAddressList* ioChanges) override {
    mEvents.push_back(inSendNotifications && ioChanges != nullptr    ? "size changed"
                      : !inSendNotifications && ioChanges == nullptr ? "size changed quietly"
                                                                     : "inconsistent");
    if (ioChanges != nullptr && mOnSizeChanged) mOnSizeChanged(*ioChanges);
  }
  UInt32 GetIOBufferFrameSizePadding() const override { return mPadding; }
  UInt32 GetLatency(bool inIsInput) const override { return inIsInput ? 11 : 12; }
  UInt32 GetSafetyOffset(bool inIsInput) const override { return inIsInput ? 21 : 22; }

  void TranslateTime(const AudioTimeStamp& inTime, AudioTimeStamp& outTime) override {
    mTranslateFlags = outTime.mFlags;
    outTime.mSampleTime = inTime.mSampleTime;
    outTime.mHostTime = static_cast<UInt64>(inTime.mSampleTime) * 10;
  }
  void GetNearestStartTime(AudioTimeStamp& ioTime, UInt32) override { ioTime.mSampleTime += 1000; }

  std::vector<std::string> TakeEvents() { return std::exchange(mEvents, {}); }

  const char* mName = "Simulated";
  const char* mManufacturer = nullptr;
  const char* mFullName = nullptr;
  const char* mCategoryName = nullptr;
  const char* mNumberName = nullptr;
  const char* mApplication = nullptr;
  const char* mUID = nullptr;
  const char* mModelUID = nullptr;

  bool mIsSafe = true;
  bool mStartAnswer = true;
  bool mHasGuard = true;
  UInt32 mPadding = 0;
  UInt32 mTranslateFlags = 0;
  std::function<bool(HP_Command*)> mIsPermitted = [](HP_Command*) { return true; };
  std::function<void(CAPropertyAddressList&)> mOnSizeChanged;
  mutable CAGuard mGuard;
  mutable std::vector<std::string> mEvents;
  mutable std::vector<AudioObjectPropertyAddress> mNotifications;
  mutable bool mGuardWasHeldForNotification = false;
  std::vector<std::unique_ptr<SimulatedStream>> mStreams;

 private:
  static constexpr AudioObjectID kObjectID = 4000;

  static CFStringRef Copy(const char* inText) {
    return inText == nullptr ? nullptr
                             : CFStringCreateWithCString(nullptr, inText, kCFStringEncodingUTF8);
  }
};

}  // namespace tembra::test
