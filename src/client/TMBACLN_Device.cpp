// Building the device and taking it apart.

#include "client/TMBACLN_Device.h"

#include <unistd.h>

#include <memory>
#include <vector>

#include "client/TMBACLN_PlugIn.h"
#include "client/TMBACLN_Stream.h"
#include "client/TMBAudioServer.h"
#include "client/TMBCLN_Thread.h"
#include "device/HP_IOThread.h"
#include "support/CAException.h"
#include "support/CAGuard.h"

namespace {

constexpr UInt32 kIOBufferSetID = 1;
constexpr UInt32 kInitialIOBufferFrameSize = 512;
// How long a new device waits for its run-loop thread, and how often it looks.
constexpr CFTimeInterval kRunLoopSeconds = 0.5;
constexpr useconds_t kRunLoopPollMicroseconds = 20000;

}  // namespace

TMBACLN_Device::TMBACLN_Device(AudioObjectID inObjectID, TMBACLN_PlugIn* inPlugIn)
    : HP_Device(inObjectID, kAudioDeviceClassID, inPlugIn, kIOBufferSetID, false),
      mPlugIn(inPlugIn),
      mIOThread(nullptr),
      mNumberEngineStops(0),
      mAnchorHostTime(0),
      mListenerID(nullptr),
      mPortID(nullptr),
      mAudioDataPort(nullptr),
      mAudioListenerPort(nullptr),
      mRunLoop(nullptr),
      mDataPortTimer(nullptr),
      mListenerPortTimer(nullptr),
      mDataPortRetries(0),
      mListenerPortRetries(0),
      mClientState(kClientStateStopped) {
  addToPool(this);

  // The thread owns itself once it runs.
  __TMBCLN_Thread* thread = new __TMBCLN_Thread;
  thread->create();
  const CFAbsoluteTime deadline = CFAbsoluteTimeGetCurrent() + kRunLoopSeconds;
  while (mRunLoop == nullptr) {
    mRunLoop = thread->runLoop();
    if (CFAbsoluteTimeGetCurrent() > deadline) break;
    usleep(kRunLoopPollMicroseconds);
  }
  if (mRunLoop == nullptr && !thread->Abandon()) mRunLoop = thread->runLoop();
}

TMBACLN_Device::~TMBACLN_Device() {
  {
    // From here on no callback reaches this device; one that is under way has the mutex.
    ConnectionLocker locker(sConnectionMutex);
    removeFromPool(getHandleFromPool(this));
    if (mRunLoop != nullptr) {
      CFRunLoopStop(mRunLoop);
      mRunLoop = nullptr;
    }
    DisposeTimer(mDataPortTimer);
    DisposeTimer(mListenerPortTimer);
    UnregisterAudioClient();
    DisposeTimer(mDataPortTimer);
    DisposeTimer(mListenerPortTimer);
    // A port can outlive its registration; none outlives the device.
    DisposeAudioDataPort();
    DisposeAudioListenerPort();
  }
  if (mListenerID != nullptr) CFRelease(mListenerID);
  mListenerID = nullptr;
  if (mPortID != nullptr) CFRelease(mPortID);
  mPortID = nullptr;
}

void TMBACLN_Device::Initialize() {
  HP_Device::Initialize();
  mIOThread = new HP_IOThread(this);
  CreateStreams();
  SetIOBufferFrameSize(kInitialIOBufferFrameSize, false);
  SetIOBufferFrameSize(DetermineIOBufferFrameSize(), false);

  // A late callback for a device that stood at this address before finds this one in the pool.
  ConnectionLocker locker(sConnectionMutex);
  if (mListenerID != nullptr) CFRelease(mListenerID);
  mListenerID = CFTmbSndCopyListenerID();
  if (mPortID != nullptr) CFRelease(mPortID);
  mPortID = CFTmbSndCopyPortID(getpid());
}

void TMBACLN_Device::Teardown() {
  // A device whose building failed early has nothing that could be stopped.
  if (mIOThread != nullptr) Do_StopAllIOProcs();
  ReleaseStreams();
  delete mIOThread;
  mIOThread = nullptr;
  HP_Device::Teardown();
}

void TMBACLN_Device::Finalize() {
  for (const bool isInput : {true, false}) {
    for (UInt32 index = 0; index < GetNumberStreams(isInput); ++index) {
      static_cast<TMBACLN_Stream*>(GetStreamByIndex(isInput, index))->Finalize();
    }
  }
}

void TMBACLN_Device::CreateStreams() {
  std::vector<AudioObjectID> ids;
  for (const bool isInput : {true, false}) {
    AudioObjectID id = kAudioObjectUnknown;
    if (AudioObjectCreate(mPlugIn->GetInterface(), GetObjectID(), kAudioStreamClassID, &id) != 0) {
      continue;
    }
    auto stream = std::make_unique<TMBACLN_Stream>(id, mPlugIn, this, isInput, 1);
    stream->Initialize();
    AddStream(stream.release());
    ids.push_back(id);
  }
  for (const AudioObjectID id : ids) {
    if (HP_Object* object = HP_Object::GetObjectByID(id)) {
      HP_Object::SetObjectStateMutexForID(id, object->GetObjectStateMutex());
    }
  }
  const OSStatus status =
      AudioObjectsPublishedAndDied(mPlugIn->GetInterface(), GetObjectID(),
                                   static_cast<UInt32>(ids.size()), ids.data(), 0, nullptr);
  if (status != 0) throw CAException(status);
}

void TMBACLN_Device::ReleaseStreams() {
  for (const bool isInput : {true, false}) {
    while (HasAnyStreams(isInput)) {
      HP_Stream* stream = GetStreamByIndex(isInput, 0);
      HP_Object::SetObjectStateMutexForID(stream->GetObjectID(), nullptr);
      RemoveStream(stream);
      stream->Teardown();
      delete stream;
    }
  }
}

void TMBACLN_Device::HogModeStateChanged() {
  HP_Device::HogModeStateChanged();
  CAMutex::Locker stateLocker(GetDeviceStateMutex());
  CAMutex::Locker guardLocker(GetIOGuard());
  RefreshAvailableStreamFormats();
}

void TMBACLN_Device::RefreshAvailableStreamFormats() {
  for (const bool isInput : {true, false}) {
    for (UInt32 index = 0; index < GetNumberStreams(isInput); ++index) {
      static_cast<TMBACLN_Stream*>(GetStreamByIndex(isInput, index))
          ->RefreshAvailablePhysicalFormats();
    }
  }
}
