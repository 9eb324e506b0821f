// What clients ask of a device's I/O: procedures, buffer sizes, the engine. The Do_ operations
// check on the caller's thread and issue a command; the others do the work when it executes.

#include <algorithm>
#include <cmath>
#include <limits>

#include "device/HP_Command.h"
#include "device/HP_Device.h"
#include "device/HP_IOProcList.h"
#include "formats/HP_Stream.h"
#include "objects/CAPropertyAddress.h"
#include "support/CAException.h"
#include "support/CAGuard.h"
#include "telemetry/HP_IOCycleTelemetry.h"

namespace {

void ThrowIf(bool inCondition, OSStatus inError) {
  if (inCondition) throw CAException(inError);
}

UInt32 RoundUpToFrames(Float64 inFrames) {
  constexpr Float64 kLimit = std::numeric_limits<UInt32>::max();
  const Float64 theFrames = std::ceil(inFrames);
  if (!(theFrames > 0.0)) return 0;
  return theFrames < kLimit ? static_cast<UInt32>(theFrames) : std::numeric_limits<UInt32>::max();
}

// Where there is no rate, as without a stream, limits made of it would allow a size of 0 alone.
bool KeepsIOBufferFrameSize(const HP_Device& inDevice) {
  return inDevice.HasAnyNonLinearPCMStreams() || !(inDevice.GetCurrentNominalSampleRate() > 0.0);
}

}  // namespace

// The caller needs the ID at once, so the work is not put into a command, which could be deferred.
template <class Operation>
AudioDeviceIOProcID HP_Device::CreateIOProcIDNow(Operation inOperation) {
  AudioDeviceIOProcID theIOProcID = nullptr;
  OSStatus theError = kAudioHardwareNoError;
  void* theToken = nullptr;
  if (StartCommandExecution(&theToken)) {
    try {
      theIOProcID = inOperation();
    } catch (const CAException& theException) {
      theError = theException.GetError();
    } catch (...) {
      theError = kAudioHardwareUnspecifiedError;
    }
  }
  FinishCommandExecution(theToken);
  ThrowIf(theError != kAudioHardwareNoError, theError);
  return theIOProcID;
}

AudioDeviceIOProcID HP_Device::Do_CreateIOProcID(AudioDeviceIOProc inProc, void* inClientData) {
  ThrowIf(mIOProcList->HasIOProc(inProc, inClientData, true), kAudioHardwareIllegalOperationError);
  ThrowIf(!IsSafeToExecuteCommand(), kAudioHardwareIllegalOperationError);
  return CreateIOProcIDNow([&] { return mIOProcList->AddIOProc(inProc, inClientData, true); });
}

AudioDeviceIOProcID HP_Device::Do_CreateIOProcIDWithBlock(dispatch_queue_t inDispatchQueue,
                                                          AudioDeviceIOBlock inBlock) {
  ThrowIf(mIOProcList->HasIOBlock(inDispatchQueue, inBlock), kAudioHardwareIllegalOperationError);
  ThrowIf(!IsSafeToExecuteCommand(), kAudioHardwareIllegalOperationError);
  return CreateIOProcIDNow([&] { return mIOProcList->AddIOBlock(inDispatchQueue, inBlock); });
}

void HP_Device::Do_DestroyIOProcID(AudioDeviceIOProcID inIOProcID) {
  if (mIOProcList->HasIOProcID(inIOProcID)) ExecuteCommand(new HP_RemoveIOProcCommand(inIOProcID));
}

void HP_Device::Do_AddIOProc(AudioDeviceIOProc inProc, void* inClientData) {
  ThrowIf(mIOProcList->HasIOProc(inProc, inClientData, false), kAudioHardwareIllegalOperationError);
  ExecuteCommand(new HP_AddIOProcCommand(inProc, inClientData));
}

void HP_Device::AddIOProc(AudioDeviceIOProc inProc, void* inClientData) {
  mIOProcList->AddIOProc(inProc, inClientData, false);
}

void HP_Device::Do_RemoveIOProc(AudioDeviceIOProcID inIOProcID) {
  if (mIOProcList->HasIOProcID(inIOProcID)) ExecuteCommand(new HP_RemoveIOProcCommand(inIOProcID));
}

void HP_Device::RemoveIOProc(AudioDeviceIOProcID inIOProcID) {
  StopIOProc(inIOProcID);
  mIOProcList->RemoveIOProc(inIOProcID);
}

void HP_Device::Do_StartIOProc(AudioDeviceIOProcID inIOProcID) {
  ThrowIf(inIOProcID != nullptr && !mIOProcList->HasIOProcID(inIOProcID),
          kAudioHardwareIllegalOperationError);
  ExecuteCommand(new HP_StartIOProcCommand(inIOProcID));
}

void HP_Device::StartIOProc(AudioDeviceIOProcID inIOProcID) {
  mIOProcList->StartIOProc(inIOProcID);
  if (mIOProcList->IsOnlyOneThingEnabled()) StartIOEngine();
}

void HP_Device::Do_StartIOProcAtTime(AudioDeviceIOProcID inIOProcID,
                                     AudioTimeStamp& ioRequestedStartTime, UInt32 inFlags) {
  if (inIOProcID == nullptr) {
    Do_StartIOProc(nullptr);
    return;
  }
  const bool theTimeIsInput = (inFlags & kAudioDeviceStartTimeIsInputFlag) != 0;
  ThrowIf(!mIOProcList->HasIOProcID(inIOProcID), kAudioHardwareIllegalOperationError);
  ThrowIf(mIOProcList->IsNothingEnabled(), kAudioHardwareNotRunningError);
  ThrowIf(!HasAnyStreams(theTimeIsInput), kAudioHardwareIllegalOperationError);

  AudioTimeStamp theStartTime = {};
  theStartTime.mFlags = ioRequestedStartTime.mFlags | kAudioTimeStampSampleHostTimeValid;
  TranslateTime(ioRequestedStartTime, theStartTime);
  GetNearestStartTime(theStartTime, inFlags);
  ioRequestedStartTime = theStartTime;
  ExecuteCommand(new HP_StartIOProcCommand(inIOProcID, theStartTime, inFlags));
}

void HP_Device::StartIOProcAtTime(AudioDeviceIOProcID inIOProcID, const AudioTimeStamp& inStartTime,
                                  UInt32 inFlags) {
  mIOProcList->StartIOProcAtTime(inIOProcID, inStartTime, inFlags);
  // Null starts do not count here, so that a timed start beside them still moves the engine.
  if (mIOProcList->IsOnlyOneIOProcEnabled()) StartIOEngineAtTime(inStartTime, inFlags);
}

void HP_Device::Do_StopIOProc(AudioDeviceIOProcID inIOProcID) {
  ThrowIf(inIOProcID != nullptr && !mIOProcList->HasIOProcID(inIOProcID),
          kAudioHardwareIllegalOperationError);
  ExecuteCommand(new HP_StopIOProcCommand(inIOProcID));
}

void HP_Device::StopIOProc(AudioDeviceIOProcID inIOProcID) {
  mIOProcList->StopIOProc(inIOProcID);
  if (mIOProcList->IsNothingEnabled()) StopIOEngine();
}

void HP_Device::Do_StopAllIOProcs() {
  ExecuteCommand(new HP_StopAllIOProcsCommand());
}

void HP_Device::StopAllIOProcs() {
  if (mIOProcList->IsNothingEnabled()) return;
  mIOProcList->StopAllIOProcs();
  StopIOEngine();
}

void HP_Device::Do_SetIOProcStreamUsage(AudioDeviceIOProcID inIOProcID, bool inIsInput,
                                        UInt32 inNumberStreams, const UInt32* inStreamUsage) {
  ThrowIf(!mIOProcList->HasIOProcID(inIOProcID), kAudioHardwareIllegalOperationError);
  ExecuteCommand(
      new HP_ChangeIOProcStreamUsageCommand(inIOProcID, inIsInput, inNumberStreams, inStreamUsage));
}

void HP_Device::SetIOProcStreamUsage(AudioDeviceIOProcID inIOProcID, bool inIsInput,
                                     UInt32 inNumberStreams, const bool* inStreamUsage) {
  mIOProcList->SetIOProcStreamUsage(inIOProcID, inIsInput, inNumberStreams, inStreamUsage);
}

void HP_Device::CreateIOProcList() {
  if (mIOProcList == nullptr) {
    mIOProcList = new HP_IOProcList(this, mIOBufferSetID, mIOBufferSetIncludesHeader);
  }
}

void HP_Device::DestroyIOProcList() {
  delete mIOProcList;
  mIOProcList = nullptr;
}

// Buffer sizes.

UInt32 HP_Device::GetLatency(bool /*inIsInput*/) const {
  return 0;
}

UInt32 HP_Device::GetSafetyOffset(bool /*inIsInput*/) const {
  return 0;
}

bool HP_Device::IsValidIOBufferFrameSize(UInt32 inIOBufferFrameSize) const {
  return inIOBufferFrameSize >= GetMinimumIOBufferFrameSize() &&
         inIOBufferFrameSize <= GetMaximumIOBufferFrameSize();
}

UInt32 HP_Device::GetMinimumIOBufferFrameSize() const {
  if (KeepsIOBufferFrameSize(*this)) return GetIOBufferFrameSize();
  return RoundUpToFrames(GetCurrentNominalSampleRate() * 0.0003);
}

UInt32 HP_Device::GetMaximumIOBufferFrameSize() const {
  if (KeepsIOBufferFrameSize(*this)) return GetIOBufferFrameSize();
  return RoundUpToFrames(GetCurrentNominalSampleRate() * 0.25);
}

UInt32 HP_Device::GetIOBufferFrameSizePadding() const {
  return 0;
}

void HP_Device::Do_SetIOBufferFrameSize(UInt32 inIOBufferFrameSize) {
  ThrowIf(!IsValidIOBufferFrameSize(inIOBufferFrameSize), kAudioHardwareIllegalOperationError);
  if (inIOBufferFrameSize == GetIOBufferFrameSize()) return;
  ExecuteCommand(new HP_ChangeBufferSizeCommand(inIOBufferFrameSize, true));
}

void HP_Device::Do_SetQuietIOBufferFrameSize(UInt32 inIOBufferFrameSize) {
  ThrowIf(!IsValidIOBufferFrameSize(inIOBufferFrameSize), kAudioHardwareIllegalOperationError);
  if (inIOBufferFrameSize == GetIOBufferFrameSize()) return;
  ExecuteCommand(new HP_ChangeBufferSizeCommand(inIOBufferFrameSize, false));
}

void HP_Device::SetIOBufferFrameSize(UInt32 inIOBufferFrameSize, bool inSendNotifications) {
  if (inIOBufferFrameSize == GetIOBufferFrameSize()) return;
  if (mIOCycleTelemetry != nullptr) {
    mIOCycleTelemetry->IOBufferSizeChangeBegin(GetIOCycleNumber(), inIOBufferFrameSize);
  }
  mIOBufferFrameSize.store(inIOBufferFrameSize, std::memory_order_relaxed);
  if (mIOProcList != nullptr) mIOProcList->ReallocateAllIOProcBufferLists();
  if (inSendNotifications) {
    TellIOBufferFrameSize();
  } else {
    IOBufferFrameSizeChanged(false, nullptr);
  }
  if (mIOCycleTelemetry != nullptr) mIOCycleTelemetry->IOBufferSizeChangeEnd(GetIOCycleNumber());
}

void HP_Device::TellIOBufferFrameSize() {
  CAPropertyAddressList theChanges;
  theChanges.AppendItem(CAPropertyAddress(kAudioDevicePropertyBufferSize));
  theChanges.AppendItem(CAPropertyAddress(kAudioDevicePropertyBufferFrameSize));
  IOBufferFrameSizeChanged(true, &theChanges);

  // The guard is never held across a call out to the host.
  CAGuard* theGuard = GetIOGuard();
  const bool theGuardIsHeld = theGuard != nullptr && theGuard->IsOwnedByCurrentThread();
  if (theGuardIsHeld) theGuard->Unlock();
  PropertiesChanged(theChanges.GetNumberItems(), theChanges.GetItems());
  if (theGuardIsHeld) theGuard->Lock();
}

UInt32 HP_Device::DetermineIOBufferFrameSize() const {
  for (const bool theIsInput : {true, false}) {
    for (UInt32 i = 0; i < GetNumberStreams(theIsInput); ++i) {
      AudioStreamBasicDescription theFormat;
      GetStreamByIndex(theIsInput, i)->GetCurrentPhysicalFormat(theFormat);
      if (theFormat.mFormatID != kAudioFormatLinearPCM) return theFormat.mFramesPerPacket;
    }
  }
  return std::max(std::min(GetIOBufferFrameSize(), GetMaximumIOBufferFrameSize()),
                  GetMinimumIOBufferFrameSize());
}

UInt32 HP_Device::GetDefaultIOBufferSizeForSampleRate(Float64 inSampleRate) const {
  if (inSampleRate < 32000.0) return 256;
  if (inSampleRate < 64000.0) return 512;
  if (inSampleRate < 128000.0) return 1024;
  if (inSampleRate < 256000.0) return 2048;
  return 4096;
}

// The engine.

bool HP_Device::IsIOEngineRunningSomewhere() const {
  return IsIOEngineRunning();
}

CAGuard* HP_Device::GetIOGuard() {
  return nullptr;
}

void HP_Device::Read(const AudioTimeStamp& /*inStartTime*/, AudioBufferList* /*outData*/) {
  throw CAException(kAudioHardwareUnsupportedOperationError);
}

bool HP_Device::CallIOProcs(const AudioTimeStamp& /*inCurrentTime*/,
                            const AudioTimeStamp& /*inInputTime*/,
                            const AudioTimeStamp& /*inOutputTime*/) {
  return true;
}

void HP_Device::IOBufferFrameSizeChanged(bool /*inSendNotifications*/,
                                         CAPropertyAddressList* /*ioChanges*/) {}

void HP_Device::StartIOEngine() {
  IOEngineStarted();
}

void HP_Device::StartIOEngineAtTime(const AudioTimeStamp& /*inStartTime*/, UInt32 /*inFlags*/) {
  IOEngineStarted();
}

void HP_Device::StopIOEngine() {
  IOEngineStopped();
}

UInt32 HP_Device::GetIOCycleNumber() const {
  return 0;
}
