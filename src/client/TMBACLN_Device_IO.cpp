// The I/O cycle, and how the engine starts and stops.

#include <syslog.h>

#include "client/TMBACLN_Device.h"
#include "device/HP_IOProc.h"
#include "device/HP_IOProcList.h"
#include "device/HP_IOThread.h"
#include "persistence/HP_HogMode.h"
#include "support/CAAudioBufferList.h"
#include "support/CAException.h"
#include "support/CAGuard.h"
#include "telemetry/HP_IOCycleTelemetry.h"

namespace {

bool HasMemory(const AudioBufferList& inBufferList) {
  for (UInt32 index = 0; index < inBufferList.mNumberBuffers; ++index) {
    if (inBufferList.mBuffers[index].mData != nullptr) return true;
  }
  return false;
}

}  // namespace

bool TMBACLN_Device::IsSafeToExecuteCommand() {
  return mIOThread == nullptr || !mIOThread->IsCurrentThread();
}

bool TMBACLN_Device::StartCommandExecution(void** outToken) {
  *outToken = nullptr;
  // The token says whether this call took the guard.
  if (mIOThread != nullptr && mIOThread->GetIOGuard()->Lock()) *outToken = this;
  return true;
}

void TMBACLN_Device::FinishCommandExecution(void* inToken) {
  if (mIOThread != nullptr && inToken != nullptr) mIOThread->GetIOGuard()->Unlock();
}

CAGuard* TMBACLN_Device::GetIOGuard() {
  return mIOThread != nullptr ? mIOThread->GetIOGuard() : nullptr;
}

UInt32 TMBACLN_Device::GetIOCycleNumber() const {
  return mIOThread != nullptr ? mIOThread->GetIOCycleNumber() : 0;
}

// A device whose output is not mixable is started by its owner alone.
void TMBACLN_Device::CheckHogModeForStart() {
  if (!HogModeIsOwnedBySelfOrIsFree()) throw CAException(kAudioDevicePermissionsError);
  if (HasAnyNonMixableStreams(false) && !HogModeIsOwnedBySelf()) mHogMode->Take();
}

void TMBACLN_Device::Do_StartIOProc(AudioDeviceIOProcID inIOProcID) {
  CheckHogModeForStart();
  HP_Device::Do_StartIOProc(inIOProcID);
}

void TMBACLN_Device::Do_StartIOProcAtTime(AudioDeviceIOProcID inIOProcID,
                                          AudioTimeStamp& ioRequestedStartTime, UInt32 inFlags) {
  CheckHogModeForStart();
  HP_Device::Do_StartIOProcAtTime(inIOProcID, ioRequestedStartTime, inFlags);
}

// An engine that is still coming up counts: its hardware has been started.
bool TMBACLN_Device::IsIOEngineUp() const {
  return IsIOEngineRunning() || mIOThread->GetWorkLoopPhase() == HP_IOThread::kInitializingPhase;
}

// A stop lets go of the guard until the thread has ended. Whoever starts meanwhile comes after it,
// or the stop would take down the hardware of the new run. False if by then nobody wants the
// engine. The I/O thread itself is what is being waited for.
bool TMBACLN_Device::WaitForEngineStops() {
  if (mNumberEngineStops == 0 || mIOThread->IsCurrentThread()) return true;
  while (mNumberEngineStops != 0) GetIOGuard()->Wait();
  return GetIOProcList()->IsAnythingEnabled();
}

void TMBACLN_Device::StartIOEngine() {
  if (!WaitForEngineStops() || IsIOEngineUp()) return;
  StartHardware();
  mIOThread->Start();
}

void TMBACLN_Device::StartIOEngineAtTime(const AudioTimeStamp& inStartTime, UInt32 inFlags) {
  if (!WaitForEngineStops()) return;
  if (!IsIOEngineUp()) {
    StartHardware();
    mIOThread->Start();
    return;
  }
  // The engine moves, so that its next cycle meets the time.
  AudioTimeStamp time = inStartTime;
  time.mFlags = kAudioTimeStampSampleTimeValid;
  const Float64 frameSize = GetIOBufferFrameSize();
  if ((inFlags & kAudioDeviceStartTimeIsInputFlag) != 0) {
    time.mSampleTime += frameSize;
    time.mSampleTime += GetSafetyOffset(true);
  } else {
    time.mSampleTime -= frameSize;
    time.mSampleTime -= GetSafetyOffset(false);
  }
  time.mSampleTime -= frameSize;
  AudioTimeStamp anchor{};
  anchor.mFlags = kAudioTimeStampSampleTimeValid | kAudioTimeStampHostTimeValid;
  TranslateTime(time, anchor);
  mIOThread->Resynch(&anchor, true);
  GetIOCycleTelemetry()->Resynch(GetIOCycleNumber(), anchor);
}

void TMBACLN_Device::StopIOEngine() {
  ++mNumberEngineStops;
  try {
    mIOThread->Stop();
    StopHardware();
  } catch (...) {
    EngineStopEnded();
    throw;
  }
  EngineStopEnded();
}

void TMBACLN_Device::EngineStopEnded() {
  --mNumberEngineStops;
  GetIOGuard()->NotifyAll();
}

bool TMBACLN_Device::CallIOProcs(const AudioTimeStamp& inCurrentTime,
                                 const AudioTimeStamp& inInputTime,
                                 const AudioTimeStamp& inOutputTime) {
  HP_IOProcList& list = *GetIOProcList();
  StartIOCycle();
  bool result = true;
  if (HasInputStreams()) {
    list.RefreshIOProcBufferLists(true);
    PreProcessInputData(inInputTime);
    result = ReadInputData(inInputTime, GetIOBufferSetID());
    if (result) PostProcessInputData(inInputTime);
  }
  if (result) {
    const AudioBufferList* inputList = list.GetSharedAudioBufferList(true);
    AudioBufferList* outputList = list.GetSharedAudioBufferList(false);
    GetIOCycleTelemetry()->IOCycleIOProcsBegin(GetIOCycleNumber());
    const UInt32 numberIOProcs = list.GetNumberIOProcs();
    for (UInt32 index = 0; index < numberIOProcs; ++index) {
      HP_IOProc* ioProc = list.GetIOProcByIndex(index);
      if (ioProc == nullptr) continue;
      // Each record's list starts the cycle silent, so that nothing of an earlier cycle goes out.
      ioProc->RefreshBufferList(false);
      AudioBufferList* renderList = outputList;
      if (renderList == nullptr) {
        renderList = ioProc->GetAudioBufferList(false);
        // The first list serves all later procedures of the cycle, if there is memory in it.
        if (renderList != nullptr && HasMemory(*renderList)) outputList = renderList;
      }
      ioProc->Call(inCurrentTime, inInputTime, inputList, inOutputTime, renderList);
      PreProcessOutputData(inOutputTime, *ioProc);
    }
    GetIOCycleTelemetry()->IOCycleIOProcsEnd(GetIOCycleNumber());
    if (HasOutputStreams()) result = WriteOutputData(inOutputTime, GetIOBufferSetID());
  }
  FinishIOCycle();
  return result;
}

void TMBACLN_Device::StartIOCycle() {}

void TMBACLN_Device::PreProcessInputData(const AudioTimeStamp& /*inTime*/) {}

// Nothing ever arrives: clients read what the shared input list holds.
bool TMBACLN_Device::ReadInputData(const AudioTimeStamp& /*inTime*/, UInt32 /*inIOBufferSetID*/) {
  return true;
}

// The lists are looked through only while someone wants to know.
void TMBACLN_Device::PostProcessInputData(const AudioTimeStamp& /*inTime*/) {
  const AudioBufferList* inputList = GetIOProcList()->GetSharedAudioBufferList(true);
  if (inputList != nullptr && GetIOCycleTelemetry()->IsCapturing() &&
      CAAudioBufferList::HasData(inputList)) {
    GetIOCycleTelemetry()->InputDataPresent(GetIOCycleNumber());
  }
}

// What goes out is the record's own list, whichever list its procedure was given.
void TMBACLN_Device::PreProcessOutputData(const AudioTimeStamp& inTime, HP_IOProc& inIOProc) {
  if (GetIOCycleTelemetry()->IsCapturing() && inIOProc.BufferListHasData(false)) {
    GetIOCycleTelemetry()->OutputDataPresent(GetIOCycleNumber());
  }
  TransferAudioData(inTime, inIOProc.GetAudioBufferList(false));
}

bool TMBACLN_Device::WriteOutputData(const AudioTimeStamp& /*inTime*/, UInt32 /*inIOBufferSetID*/) {
  return true;
}

void TMBACLN_Device::FinishIOCycle() {}

bool TMBACLN_Device::TransferAudioData(const AudioTimeStamp& inTime,
                                       AudioBufferList* inBufferList) {
  // Silence is not sent, and without a word: this is the I/O thread.
  if (inBufferList == nullptr || !CAAudioBufferList::HasData(inBufferList)) return false;
  if (inBufferList == nullptr) {
    syslog(LOG_ERR, "TMBHAL: Device: [%s]: Transfer: Can not get buffers", "TransferAudioData");
    return false;
  }
  if (inBufferList->mNumberBuffers == 0) {
    syslog(LOG_ERR, "TMBHAL: Device: [%s]: Transfer: Zero buffers count", "TransferAudioData");
    return false;
  }
  return SendAudioDataToPort(inTime, *inBufferList);
}

bool TMBACLN_Device::SendAudioDataToPort(const AudioTimeStamp& inTime,
                                         const AudioBufferList& inBufferList) {
  if (GetClientState() != kClientStateStreaming) return false;
  CAReaderBracket::Reader reader(mDataPortBracket);
  CFMessagePortRef port = mAudioDataPort.load();
  if (port == nullptr || !CFMessagePortIsValid(port)) return false;
  return mBlockSender.Send(port, inTime, mClientInfo.GetStreamDescription(), inBufferList);
}
