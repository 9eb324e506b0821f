// The connection to the audio server: ports, events, retries and the states between them.

#include <unistd.h>

#include <algorithm>

#include "client/TMBACLN_Device.h"
#include "client/TMBAudioServer.h"
#include "formats/HP_Stream.h"

namespace {

constexpr UInt32 kMaximumPortRetries = 10;
constexpr double kPortRetrySeconds = 0.1f;

// Clients render interleaved audio; it is split on its way out, and the server is told so.
void __fixInterleaving(AudioStreamBasicDescription& ioFormat) {
  if ((ioFormat.mFormatFlags & kAudioFormatFlagIsNonInterleaved) != 0) return;
  ioFormat.mFormatFlags |= kAudioFormatFlagIsNonInterleaved;
  const UInt32 channels = std::max<UInt32>(ioFormat.mChannelsPerFrame, 1);
  ioFormat.mBytesPerPacket /= channels;
  ioFormat.mBytesPerFrame /= channels;
}

bool ReadInt(CFDictionaryRef inDictionary, CFStringRef inKey, int& outValue) {
  if (inDictionary == nullptr) return false;
  const void* value = CFDictionaryGetValue(inDictionary, inKey);
  if (value == nullptr) return false;
  if (CFGetTypeID(value) == CFNumberGetTypeID()) {
    CFNumberGetValue(static_cast<CFNumberRef>(value), kCFNumberIntType, &outValue);
  }
  return true;
}

}  // namespace

void TMBACLN_Device::StartHardware() {
  {
    ConnectionLocker locker(sConnectionMutex);
    TakeClientFormat();
    mListenerPortRetries = 0;
    mDataPortRetries = 0;
    SetClientState(kClientStateIdle);
  }
  RegisterForAudioNotifications();
  RegisterAudioClient();
}

void TMBACLN_Device::StopHardware() {
  UnregisterForAudioNotifications();
  ConnectionLocker locker(sConnectionMutex);
  SendAudioListenerDispose();
  UnregisterAudioClient();
  DisposeTimer(mDataPortTimer);
  DisposeTimer(mListenerPortTimer);
  SetClientState(kClientStateStopped);
  mListenerPortRetries = 0;
  mDataPortRetries = 0;
}

void TMBACLN_Device::TakeClientFormat() {
  HP_Stream* stream = GetStreamByIndex(false, 0);
  if (stream == nullptr) return;
  AudioStreamBasicDescription format{};
  stream->GetCurrentVirtualFormat(format);
  __fixInterleaving(format);
  mClientInfo = format;
  mBlockSender.Reserve(std::max(GetIOBufferFrameSize(), GetMaximumIOBufferFrameSize()), format);
}

// Neither of these two holds the connection mutex while it talks to the center: a callback that
// waits for the mutex must not be able to hold up its center.
void TMBACLN_Device::RegisterForAudioNotifications() {
  CFNotificationCenterRef center = CFNotificationCenterGetDistributedCenter();
  if (center == nullptr) return;
  CFNotificationCenterAddObserver(center, this, __tmbAudioNotificationCallBack,
                                  kTMBAudioServerNotification, mListenerID,
                                  CFNotificationSuspensionBehaviorDeliverImmediately);
}

void TMBACLN_Device::UnregisterForAudioNotifications() {
  CFNotificationCenterRef center = CFNotificationCenterGetDistributedCenter();
  if (center == nullptr) return;
  CFNotificationCenterRemoveObserver(center, this, kTMBAudioServerNotification, mListenerID);
}

UInt32 TMBACLN_Device::GetListenerPortRetries() const {
  ConnectionLocker locker(sConnectionMutex);
  return mListenerPortRetries;
}

UInt32 TMBACLN_Device::GetDataPortRetries() const {
  ConnectionLocker locker(sConnectionMutex);
  return mDataPortRetries;
}

void TMBACLN_Device::RegisterAudioClient() {
  ConnectionLocker locker(sConnectionMutex);
  if (GetClientState() != kClientStateIdle) return;
  SetClientState(kClientStateRegistering);
  CreateAudioListenerPort();
}

void TMBACLN_Device::UnregisterAudioClient() {
  ConnectionLocker locker(sConnectionMutex);
  switch (GetClientState()) {
    case kClientStateRegistering:
      DisposeTimer(mListenerPortTimer);
      DisposeAudioListenerPort();
      SetClientState(kClientStateIdle);
      break;
    case kClientStateRegistered:
      DisposeAudioListenerPort();
      SetClientState(kClientStateIdle);
      break;
    case kClientStateStarting:
      DisposeTimer(mDataPortTimer);
      SetClientState(kClientStateIdle);
      StopAudioClient();
      break;
    case kClientStateStreaming:
      SetClientState(kClientStateIdle);
      StopAudioClient();
      break;
    default:
      break;
  }
}

void TMBACLN_Device::StartAudioClient() {
  ConnectionLocker locker(sConnectionMutex);
  switch (GetClientState()) {
    case kClientStateIdle:
      SetClientState(kClientStateStarting);
      CreateAudioListenerPort();
      break;
    case kClientStateRegistering:
      // The retry that is under way goes on to the data port.
      SetClientState(kClientStateStarting);
      break;
    case kClientStateRegistered:
      SetClientState(kClientStateStarting);
      CreateAudioDataPort();
      break;
    default:
      break;
  }
}

void TMBACLN_Device::StopAudioClient() {
  ConnectionLocker locker(sConnectionMutex);
  switch (GetClientState()) {
    case kClientStateStopped:
    case kClientStateIdle:
    case kClientStateRegistered:
      DisposeAudioDataPort();
      break;
    case kClientStateStarting:
      DisposeTimer(mDataPortTimer);
      DisposeAudioDataPort();
      SetClientState(kClientStateRegistered);
      break;
    case kClientStateStreaming:
      DisposeAudioDataPort();
      SetClientState(kClientStateRegistered);
      break;
    default:
      break;
  }
}

void TMBACLN_Device::CreateAudioListenerPort() {
  if (mListenerPortRetries == 0 && __doCreateAudioListenerPort()) return;
  if (mListenerPortRetries >= kMaximumPortRetries) {
    if (mAudioListenerPort == nullptr && GetClientState() > kClientStateIdle) {
      SetClientState(kClientStateIdle);
    }
    return;
  }
  ++mListenerPortRetries;
  DisposeTimer(mListenerPortTimer);
  mListenerPortTimer = CreateTimer(kPortRetrySeconds, __tmbPortTimerCallBack);
  if (mListenerPortTimer != nullptr) {
    CFRunLoopAddTimer(GetRunLoop(), mListenerPortTimer, kCFRunLoopCommonModes);
  }
}

void TMBACLN_Device::CreateAudioDataPort() {
  if (mDataPortRetries == 0 && __doCreateAudioDataPort()) return;
  if (mDataPortRetries >= kMaximumPortRetries) {
    if (mAudioDataPort.load() == nullptr && GetClientState() > kClientStateRegistered) {
      SetClientState(kClientStateRegistered);
    }
    return;
  }
  ++mDataPortRetries;
  DisposeTimer(mDataPortTimer);
  mDataPortTimer = CreateTimer(kPortRetrySeconds, __tmbPortTimerCallBack);
  if (mDataPortTimer != nullptr) {
    CFRunLoopAddTimer(GetRunLoop(), mDataPortTimer, kCFRunLoopCommonModes);
  }
}

bool TMBACLN_Device::__doCreateAudioListenerPort() {
  if (mAudioListenerPort == nullptr) {
    mAudioListenerPort = CFMessagePortCreateRemote(kCFAllocatorDefault, mListenerID);
    if (mAudioListenerPort != nullptr) {
      if (GetClientState() == kClientStateRegistering) SetClientState(kClientStateRegistered);
      SendAudioListenerAdd();
      if (GetClientState() == kClientStateStarting) CreateAudioDataPort();
    }
  }
  return mAudioListenerPort != nullptr;
}

bool TMBACLN_Device::__doCreateAudioDataPort() {
  if (mAudioDataPort.load() == nullptr) {
    CFMessagePortRef port = CFMessagePortCreateRemote(kCFAllocatorDefault, mPortID);
    mAudioDataPort.store(port);
    if (port != nullptr && GetClientState() == kClientStateStarting) {
      SetClientState(kClientStateStreaming);
    }
  }
  return mAudioDataPort.load() != nullptr;
}

void TMBACLN_Device::DisposeAudioListenerPort() {
  if (mAudioListenerPort == nullptr) return;
  CFMessagePortInvalidate(mAudioListenerPort);
  CFRelease(mAudioListenerPort);
  mAudioListenerPort = nullptr;
  if (GetClientState() >= kClientStateRegistering) SetClientState(kClientStateIdle);
}

void TMBACLN_Device::DisposeAudioDataPort() {
  CFMessagePortRef port = mAudioDataPort.exchange(nullptr);
  if (port == nullptr) return;
  // The I/O thread may be sending on it just now.
  mDataPortBracket.WaitForReader();
  CFMessagePortInvalidate(port);
  CFRelease(port);
  if (GetClientState() > kClientStateRegistered) SetClientState(kClientStateRegistered);
  if (GetClientState() < kClientStateRegistered) DisposeAudioListenerPort();
}

CFRunLoopRef TMBACLN_Device::GetRunLoop() const {
  return mRunLoop != nullptr ? mRunLoop : CFRunLoopGetCurrent();
}

CFRunLoopTimerRef TMBACLN_Device::CreateTimer(double inSeconds, CFRunLoopTimerCallBack inCallBack) {
  CFRunLoopTimerContext context{};
  context.info = this;
  return CFRunLoopTimerCreate(kCFAllocatorDefault, CFAbsoluteTimeGetCurrent() + inSeconds, 0.0, 0,
                              0, inCallBack, &context);
}

void TMBACLN_Device::DisposeTimer(CFRunLoopTimerRef inTimer) {
  if (inTimer == nullptr) return;
  if (inTimer == mListenerPortTimer) mListenerPortTimer = nullptr;
  if (inTimer == mDataPortTimer) mDataPortTimer = nullptr;
  if (CFRunLoopTimerIsValid(inTimer)) CFRunLoopTimerInvalidate(inTimer);
  CFRelease(inTimer);
}

void TMBACLN_Device::__tmbPortTimerCallBack(CFRunLoopTimerRef inTimer, void* inInfo) {
  ConnectionLocker locker(sConnectionMutex);
  TMBACLN_Device* device = static_cast<TMBACLN_Device*>(inInfo);
  if (getHandleFromPool(device) == 0) return;
  device->__processPortTimerCallBack(inTimer);
}

void TMBACLN_Device::__processPortTimerCallBack(CFRunLoopTimerRef inTimer) {
  if (inTimer == mListenerPortTimer) {
    if (GetClientState() > kClientStateIdle && !__doCreateAudioListenerPort()) {
      CreateAudioListenerPort();
    }
  } else if (inTimer == mDataPortTimer) {
    if (GetClientState() > kClientStateRegistered && !__doCreateAudioDataPort()) {
      CreateAudioDataPort();
    }
  }
}

void TMBACLN_Device::__tmbAudioNotificationCallBack(CFNotificationCenterRef /*inCenter*/,
                                                    void* inObserver, CFStringRef inName,
                                                    const void* inObject,
                                                    CFDictionaryRef inUserInfo) {
  ConnectionLocker locker(sConnectionMutex);
  TMBACLN_Device* device = static_cast<TMBACLN_Device*>(inObserver);
  if (getHandleFromPool(device) == 0) return;
  if (inObject == nullptr || CFGetTypeID(inObject) != CFStringGetTypeID()) return;
  if (device->mListenerID == nullptr ||
      CFStringCompare(static_cast<CFStringRef>(inObject), device->mListenerID, 0) !=
          kCFCompareEqualTo) {
    return;
  }
  if (inName == nullptr ||
      CFStringCompare(inName, kTMBAudioServerNotification, 0) != kCFCompareEqualTo) {
    return;
  }
  device->__processNotification(inUserInfo);
}

void TMBACLN_Device::__processNotification(CFDictionaryRef inUserInfo) {
  int event = 0;
  int serverUID = 0;
  int serverPID = 0;
  int serverID = 0;
  int clientPID = 0;
  ReadInt(inUserInfo, kTMBAudioServerConnectionEventKey, event);
  ReadInt(inUserInfo, kTMBAudioServerNotificationSrvUIDKey, serverUID);
  ReadInt(inUserInfo, kTMBAudioServerNotificationSrvPIDKey, serverPID);
  ReadInt(inUserInfo, kTMBAudioServerNotificationSrvIDKey, serverID);
  const bool hasClientPID = ReadInt(inUserInfo, kTMBAudioServerNotificationClientPIDKey, clientPID);
  // A check without a client asks every client.
  if (!hasClientPID && event == kTMBAudioServerEventClientCheck) clientPID = getpid();

  if (GetClientState() == kClientStateStopped) return;
  const bool isForThisClient = clientPID == getpid();
  switch (event) {
    case kTMBAudioServerEventClientAdded:
      if (!isForThisClient) break;
      mDataPortRetries = 0;
      StartAudioClient();
      break;
    case kTMBAudioServerEventClientCheck:
      if (isForThisClient) SendAudioListenerEcho();
      break;
    case kTMBAudioServerEventClientDeleted:
      if (isForThisClient) StopAudioClient();
      break;
    case kTMBAudioServerEventFinish:
      UnregisterAudioClient();
      break;
    case kTMBAudioServerEventStart:
      mListenerPortRetries = 0;
      mDataPortRetries = 0;
      RegisterAudioClient();
      break;
    default:
      break;
  }
}

void TMBACLN_Device::SendAudioListenerAdd() {
  ConnectionLocker locker(sConnectionMutex);
  CFDataRef data = mClientInfo.CopyMessageData(true);
  SendAudioListenerNotification(kTMBAudioMessageAddID, data);
  if (data != nullptr) CFRelease(data);
}

void TMBACLN_Device::SendAudioListenerEcho() {
  ConnectionLocker locker(sConnectionMutex);
  CFDataRef data = mClientInfo.CopyMessageData(true);
  SendAudioListenerNotification(kTMBAudioMessageEchoID, data);
  if (data != nullptr) CFRelease(data);
}

void TMBACLN_Device::SendAudioListenerDispose() {
  ConnectionLocker locker(sConnectionMutex);
  CFDataRef data = mClientInfo.CopyMessageData(false);
  SendAudioListenerNotification(kTMBAudioMessageDisposeID, data);
  if (data != nullptr) CFRelease(data);
}

void TMBACLN_Device::SendAudioListenerNotification(int inMessageID, CFDataRef inData) {
  ConnectionLocker locker(sConnectionMutex);
  if (mAudioListenerPort == nullptr || !CFMessagePortIsValid(mAudioListenerPort)) return;
  if (inData == nullptr) return;
  CFMessagePortSendRequest(mAudioListenerPort, inMessageID, inData, 0.0, 0.0, nullptr, nullptr);
}

void TMBACLN_Device::SendAudioListenerNotification(int inMessageID, CFDictionaryRef inDictionary) {
  CFDataRef data = CFPropertyListCreateData(kCFAllocatorDefault, inDictionary,
                                            kCFPropertyListBinaryFormat_v1_0, 0, nullptr);
  SendAudioListenerNotification(inMessageID, data);
  if (data != nullptr) CFRelease(data);
}
