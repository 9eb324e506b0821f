// Building the device and taking it apart.

#include "client/TMBACLN_Device.h"

#include <unistd.h>

#include <memory>
#include <vector>

#include "client/TMBACLN_PlugIn.h"
#include "client/TMBACLN_Stream.h"
#include "client/TMBAudioServer.h"
#include "client/TMBCLN_Thread.h"
#include "controls/HP_DeviceControlProperty.h"
#include "device/HP_IOThread.h"
#include "objects/CAPropertyAddress.h"
#include "persistence/HP_HogMode.h"
#include "runtime/TMBACLNO.h"
#include "support/CAException.h"
#include "support/CAGuard.h"

namespace {

constexpr UInt32 kIOBufferSetID = 1;
constexpr UInt32 kInitialIOBufferFrameSize = 512;
// How long a new device waits for its run-loop thread, and how often it looks.
constexpr CFTimeInterval kRunLoopSeconds = 0.5;
constexpr useconds_t kRunLoopPollMicroseconds = 20000;

// False if the host cannot tell.
bool IsProcessMaster() {
  const CAPropertyAddress address(kAudioHardwarePropertyProcessIsMaster);
  UInt32 isMaster = 0;
  UInt32 size = sizeof(isMaster);
  AudioObjectGetPropertyData(kAudioObjectSystemObject, &address, 0, nullptr, &size, &isMaster);
  return isMaster != 0;
}

}  // namespace

TMBACLN_Device::TMBACLN_Device(AudioObjectID inObjectID, TMBACLN_PlugIn* inPlugIn)
    : HP_Device(inObjectID, kAudioDeviceClassID, inPlugIn, kIOBufferSetID, false),
      mPlugIn(inPlugIn),
      mHogMode(nullptr),
      mIOThread(nullptr),
      mNumberEngineStops(0),
      mAnchorHostTime(0),
      mControlsCreated(false),
      mDeviceControlProperty(nullptr),
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
  {
    // From the hog mode's making on, a notification may ask for the streams and the I/O thread.
    CAMutex::Locker stateLocker(GetDeviceStateMutex());
    mHogMode = new HP_HogMode(this);
    mHogMode->Initialize();
    mIOThread = new HP_IOThread(this);
    CreateStreams();
  }
  SetIOBufferFrameSize(kInitialIOBufferFrameSize, false);
  SetIOBufferFrameSize(DetermineIOBufferFrameSize(), false);
  mDeviceControlProperty = new HP_DeviceControlProperty(this);
  AddProperty(mDeviceControlProperty);
  if (IsProcessMaster()) CreateControls();

  // A late callback for a device that stood at this address before finds this one in the pool.
  ConnectionLocker locker(sConnectionMutex);
  if (mListenerID != nullptr) CFRelease(mListenerID);
  mListenerID = CFTmbSndCopyListenerID();
  if (mPortID != nullptr) CFRelease(mPortID);
  mPortID = CFTmbSndCopyPortID(getpid());

  // From now on a read of the default output may be answered with this device.
  TMBACLNO_Initialize(GetObjectID());
}

void TMBACLN_Device::Teardown() {
  // A device whose building failed early has nothing that could be stopped.
  if (mIOThread != nullptr) Do_StopAllIOProcs();
  if (mHogMode != nullptr) {
    if (mHogMode->CurrentProcessIsOwner()) mHogMode->Release();
    // Waits for a notification that is at work on this device; none comes after.
    delete mHogMode;
    mHogMode = nullptr;
  }
  if (mDeviceControlProperty != nullptr) {
    RemoveProperty(mDeviceControlProperty);
    delete mDeviceControlProperty;
    mDeviceControlProperty = nullptr;
  }
  ReleaseControls();
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
  if (mHogMode->CurrentProcessIsOwner()) mHogMode->Release();
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
  PublishObjects(ids);
}

void TMBACLN_Device::PublishObjects(const std::vector<AudioObjectID>& inIDs) {
  for (const AudioObjectID id : inIDs) {
    if (HP_Object* object = HP_Object::GetObjectByID(id)) {
      HP_Object::SetObjectStateMutexForID(id, object->GetObjectStateMutex());
    }
  }
  const OSStatus status =
      AudioObjectsPublishedAndDied(mPlugIn->GetInterface(), GetObjectID(),
                                   static_cast<UInt32>(inIDs.size()), inIDs.data(), 0, nullptr);
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

bool TMBACLN_Device::HogModeIsOwnedBySelf() const {
  return mHogMode != nullptr && mHogMode->CurrentProcessIsOwner();
}

bool TMBACLN_Device::HogModeIsOwnedBySelfOrIsFree() const {
  return mHogMode == nullptr || mHogMode->CurrentProcessIsOwnerOrIsFree();
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
