#include "device/HP_Device.h"

#include <algorithm>
#include <cstdio>

#include "device/HP_Command.h"
#include "device/HP_IOProcList.h"
#include "formats/HP_DeviceFormatList.h"
#include "formats/HP_Stream.h"
#include "persistence/HP_PreferredChannels.h"
#include "support/CACFString.h"
#include "support/CAException.h"
#include "support/CAHostTimeBase.h"
#include "telemetry/HP_IOCycleTelemetry.h"

namespace {

constexpr UInt32 kIOBufferFrameSizeAtConstruction = 512;

}  // namespace

HP_Device::HP_Device(AudioObjectID inObjectID, AudioClassID inClassID, HP_HardwarePlugIn* inPlugIn,
                     UInt32 inIOBufferSetID, bool inIOBufferSetIncludesHeader)
    : HP_Object(inObjectID, inClassID, inPlugIn),
      mDeviceStateMutex(nullptr),
      mPreferredChannels(nullptr),
      mDeviceFormatList(nullptr),
      mIOProcList(nullptr),
      mIOBufferSetID(inIOBufferSetID),
      mIOBufferSetIncludesHeader(inIOBufferSetIncludesHeader),
      mIOBufferFrameSize(kIOBufferFrameSizeAtConstruction),
      mIOEngineIsRunning(false),
      mIOCycleTelemetry(nullptr),
      mDebugDeviceName() {}

HP_Device::~HP_Device() {
  HP_Device::ClearAllCommands();
}

void HP_Device::Initialize() {
  CreateDeviceStateMutex();
  HP_Object::Initialize();
  CreateIOProcList();
  mIOCycleTelemetry = new HP_IOCycleTelemetry(this);
  mIOCycleTelemetry->Initialize(nullptr);
  mPreferredChannels = new HP_PreferredChannels(this);
  mPreferredChannels->Initialize();
  AddProperty(mPreferredChannels);
  mDeviceFormatList = new HP_DeviceFormatList(this);
  mDeviceFormatList->Initialize();
  AddProperty(mDeviceFormatList);
  TakeDebugDeviceName();
}

void HP_Device::Teardown() {
  if (mIOCycleTelemetry != nullptr) mIOCycleTelemetry->SetIsCapturing(false);
  if (mDeviceFormatList != nullptr) {
    RemoveProperty(mDeviceFormatList);
    mDeviceFormatList->Teardown();
    delete mDeviceFormatList;
    mDeviceFormatList = nullptr;
  }
  if (mPreferredChannels != nullptr) {
    RemoveProperty(mPreferredChannels);
    mPreferredChannels->Teardown();
    delete mPreferredChannels;
    mPreferredChannels = nullptr;
  }
  if (mIOCycleTelemetry != nullptr) {
    mIOCycleTelemetry->Teardown();
    delete mIOCycleTelemetry;
    mIOCycleTelemetry = nullptr;
  }
  DestroyIOProcList();
  HP_Object::Teardown();
  DestroyDeviceStateMutex();
}

void HP_Device::TakeDebugDeviceName() {
  const CACFString theName(CopyDeviceName());
  if (theName.IsValid()) {
    UInt32 theSize = sizeof(mDebugDeviceName);
    theName.GetCString(mDebugDeviceName, theSize, kCFStringEncodingUTF8);
  } else {
    std::snprintf(mDebugDeviceName, sizeof(mDebugDeviceName), "Unknown");
  }
}

CAMutex* HP_Device::GetObjectStateMutex() {
  return mDeviceStateMutex;
}

void HP_Device::CreateDeviceStateMutex() {
  if (mDeviceStateMutex == nullptr) mDeviceStateMutex = new CAMutex("DeviceStateMutex");
}

void HP_Device::DestroyDeviceStateMutex() {
  delete mDeviceStateMutex;
  mDeviceStateMutex = nullptr;
}

void HP_Device::Show() const {
  std::printf(
      "AudioObjectID:\t\t0x%lX\n\tClass:\t\t\tAudio Device\n\tName:\t\t\t%s\n"
      "\tInput Channels:\t\t%lu\n\tOutput Channels:\t%lu\n\tI/O Buffer Frames:\t%lu\n",
      static_cast<unsigned long>(GetObjectID()), mDebugDeviceName,
      static_cast<unsigned long>(GetTotalNumberChannels(true)),
      static_cast<unsigned long>(GetTotalNumberChannels(false)),
      static_cast<unsigned long>(GetIOBufferFrameSize()));
}

void HP_Device::ClearPrefs() {
  if (mPreferredChannels != nullptr) mPreferredChannels->ClearPrefs();
}

// Identity.

bool HP_Device::IsAlive() const {
  return true;
}

bool HP_Device::IsHidden() const {
  return false;
}

CFStringRef HP_Device::CopyDeviceName() const {
  return nullptr;
}

CFStringRef HP_Device::CopyDeviceManufacturerName() const {
  return nullptr;
}

CFURLRef HP_Device::CopyDeviceIcon() const {
  return nullptr;
}

CFStringRef HP_Device::CopyElementFullName(const AudioObjectPropertyAddress&) const {
  return nullptr;
}

CFStringRef HP_Device::CopyElementCategoryName(const AudioObjectPropertyAddress&) const {
  return nullptr;
}

CFStringRef HP_Device::CopyElementNumberName(const AudioObjectPropertyAddress&) const {
  return nullptr;
}

CFStringRef HP_Device::CopyConfigurationApplicationBundleID() const {
  return nullptr;
}

CFStringRef HP_Device::CopyDeviceUID() const {
  return nullptr;
}

CFStringRef HP_Device::CopyModelUID() const {
  return nullptr;
}

UInt32 HP_Device::GetTransportType() const {
  return kAudioDeviceTransportTypeUnknown;
}

bool HP_Device::IsConstantRateClock() const {
  return true;
}

bool HP_Device::CanBeDefaultDevice(bool /*inIsInput*/, bool /*inIsSystem*/) const {
  return true;
}

bool HP_Device::HogModeIsOwnedBySelf() const {
  return false;
}

bool HP_Device::HogModeIsOwnedBySelfOrIsFree() const {
  return true;
}

void HP_Device::HogModeStateChanged() {}

void HP_Device::GetDefaultChannelLayout(bool inIsInput, AudioChannelLayout& outLayout) const {
  const UInt32 theNumberChannels = GetTotalNumberChannels(inIsInput);
  outLayout.mChannelLayoutTag = 0;
  outLayout.mChannelBitmap = 0;
  outLayout.mNumberChannelDescriptions = theNumberChannels;
  for (UInt32 i = 0; i < theNumberChannels; ++i) {
    AudioChannelLabel theLabel = kAudioChannelLabel_Unknown;
    if (theNumberChannels == 1) theLabel = kAudioChannelLabel_Mono;
    if (theNumberChannels == 2) {
      theLabel = i == 0 ? kAudioChannelLabel_Left : kAudioChannelLabel_Right;
    }
    AudioChannelDescription theDescription = {};
    theDescription.mChannelLabel = theLabel;
    outLayout.mChannelDescriptions[i] = theDescription;
  }
}

// Streams.

void HP_Device::AddStream(HP_Stream* inStream) {
  (inStream->IsInput() ? mInputStreams : mOutputStreams).push_back(inStream);
}

void HP_Device::RemoveStream(HP_Stream* inStream) {
  StreamList& theStreams = inStream->IsInput() ? mInputStreams : mOutputStreams;
  theStreams.erase(std::remove(theStreams.begin(), theStreams.end(), inStream), theStreams.end());
}

HP_Stream* HP_Device::GetStreamByIndex(bool inIsInput, UInt32 inIndex) const {
  const StreamList& theStreams = GetStreams(inIsInput);
  return inIndex < theStreams.size() ? theStreams[inIndex] : nullptr;
}

HP_Stream* HP_Device::GetStreamByPropertyAddress(const AudioObjectPropertyAddress& inAddress,
                                                 bool) const {
  const bool theIsInput = inAddress.mScope == kAudioDevicePropertyScopeInput;
  if (inAddress.mElement == 0) return GetStreamByIndex(theIsInput, 0);
  for (HP_Stream* theStream : GetStreams(theIsInput)) {
    const UInt32 theFirstChannel = theStream->GetStartingDeviceChannelNumber();
    if (inAddress.mElement >= theFirstChannel &&
        inAddress.mElement - theFirstChannel < theStream->GetCurrentNumberChannels()) {
      return theStream;
    }
  }
  return nullptr;
}

UInt32 HP_Device::GetTotalNumberChannels(bool inIsInput) const {
  UInt32 theNumberChannels = 0;
  for (const HP_Stream* theStream : GetStreams(inIsInput)) {
    theNumberChannels += theStream->GetCurrentNumberChannels();
  }
  return theNumberChannels;
}

bool HP_Device::HasAnyNonLinearPCMStreams() const {
  const auto theTest = [](const HP_Stream* inStream) { return !inStream->IsLinearPCM(); };
  return std::any_of(mInputStreams.begin(), mInputStreams.end(), theTest) ||
         std::any_of(mOutputStreams.begin(), mOutputStreams.end(), theTest);
}

bool HP_Device::HasAnyNonMixableStreams(bool inIsInput) const {
  const StreamList& theStreams = GetStreams(inIsInput);
  return std::any_of(theStreams.begin(), theStreams.end(),
                     [](const HP_Stream* inStream) { return !inStream->IsMixable(); });
}

bool HP_Device::CanSetIsMixable(bool inIsInput) const {
  const StreamList& theStreams = GetStreams(inIsInput);
  return std::any_of(theStreams.begin(), theStreams.end(),
                     [](const HP_Stream* inStream) { return inStream->CanSetIsMixable(); });
}

// Clock.

void HP_Device::GetCurrentTime(AudioTimeStamp& /*outTime*/) {
  throw CAException(kAudioHardwareUnsupportedOperationError);
}

void HP_Device::SafeGetCurrentTime(AudioTimeStamp& outTime) {
  GetCurrentTime(outTime);
}

void HP_Device::TranslateTime(const AudioTimeStamp& /*inTime*/, AudioTimeStamp& /*outTime*/) {
  throw CAException(kAudioHardwareUnsupportedOperationError);
}

void HP_Device::GetNearestStartTime(AudioTimeStamp& /*ioRequestedStartTime*/, UInt32 /*inFlags*/) {
  throw CAException(kAudioHardwareUnsupportedOperationError);
}

Float64 HP_Device::GetCurrentNominalSampleRate() const {
  const HP_Stream* theStream = GetStreamByIndex(HasInputStreams(), 0);
  return theStream != nullptr ? theStream->GetCurrentNominalSampleRate() : 0.0;
}

Float64 HP_Device::GetCurrentActualSampleRate() const {
  return GetCurrentNominalSampleRate();
}

void HP_Device::StartIOCycleTimingServices() {}

bool HP_Device::EstablishIOCycleAnchorTime(AudioTimeStamp& ioAnchorTime) {
  if (ioAnchorTime.mSampleTime == 0.0) GetCurrentTime(ioAnchorTime);
  return true;
}

bool HP_Device::UpdateIOCycleTimingServices() {
  return false;
}

void HP_Device::StopIOCycleTimingServices() {}

void HP_Device::CalculateIOThreadTimeConstraints(UInt64& outPeriod, UInt32& outQuantum) {
  // The shorter the buffer, the longer the quantum.
  static const UInt32 kLowLatencyComputeQuantum =
      static_cast<UInt32>(CAHostTimeBase::ConvertFromNanos(500000));
  static const UInt32 kMedLatencyComputeQuantum =
      static_cast<UInt32>(CAHostTimeBase::ConvertFromNanos(300000));
  static const UInt32 kHighLatencyComputeQuantum =
      static_cast<UInt32>(CAHostTimeBase::ConvertFromNanos(100000));

  const Float64 thePeriod =
      (static_cast<Float64>(GetIOBufferFrameSize()) / GetCurrentActualSampleRate()) *
      CAHostTimeBase::GetFrequency();
  constexpr Float64 kPeriodLimit = 18446744073709551616.0;
  outPeriod = thePeriod >= 0.0 && thePeriod < kPeriodLimit ? static_cast<UInt64>(thePeriod) : 0;

  const UInt64 thePeriodInNanos = CAHostTimeBase::ConvertToNanos(outPeriod);
  outQuantum = kHighLatencyComputeQuantum;
  if (thePeriodInNanos < 1500000) {
    outQuantum = kLowLatencyComputeQuantum;
  } else if (thePeriodInNanos < 4444000) {
    outQuantum = kMedLatencyComputeQuantum;
  }
  // Nanoseconds against ticks: kept so, as the quanta are tuned with it.
  if (thePeriodInNanos < outQuantum) outQuantum = static_cast<UInt32>(outPeriod);
}
