#include "FakeClient.h"

#include <mach/mach_time.h>
#include <unistd.h>

#include "client/Snd.h"
#include "client/TMBAudioClientInfo.h"
#include "client/TMBAudioServer.h"
#include "support/Program.h"

namespace tembra::test {

namespace {

SInt32 Number(CFDictionaryRef inInfo, CFStringRef inKey) {
  SInt32 value = -1;
  auto number = static_cast<CFNumberRef>(CFDictionaryGetValue(inInfo, inKey));
  if (number != nullptr) CFNumberGetValue(number, kCFNumberSInt32Type, &value);
  return value;
}

bool Send(CFMessagePortRef inPort, SInt32 inID, CFDataRef inData) {
  return inPort != nullptr && CFMessagePortSendRequest(inPort, inID, inData, 0.0, 0.0, nullptr,
                                                       nullptr) == kCFMessagePortSuccess;
}

void Close(CFMessagePortRef& ioPort) {
  if (ioPort == nullptr) return;
  CFMessagePortInvalidate(ioPort);
  CFRelease(ioPort);
  ioPort = nullptr;
}

AudioStreamBasicDescription Format(double inRate, UInt32 inChannels) {
  AudioStreamBasicDescription format = {};
  FillOutASBDForLPCM(format, inRate, inChannels, 32, 32, true, false, true);
  return format;
}

}  // namespace

FakeClient::FakeClient() : mListenerID(CFTmbSndCopyListenerID()) {
  CFNotificationCenterAddObserver(CFNotificationCenterGetDistributedCenter(), this, Receive,
                                  kTMBAudioServerNotification, mListenerID,
                                  CFNotificationSuspensionBehaviorDeliverImmediately);
}

FakeClient::~FakeClient() {
  CFNotificationCenterRemoveObserver(CFNotificationCenterGetDistributedCenter(), this,
                                     kTMBAudioServerNotification, mListenerID);
  CloseData();
  CloseListener();
  CFRelease(mListenerID);
}

void FakeClient::Receive(CFNotificationCenterRef, void* inSelf, CFStringRef, const void*,
                         CFDictionaryRef inInfo) {
  Event event;
  event.mCode = Number(inInfo, kTMBAudioServerConnectionEventKey);
  event.mClientPID = Number(inInfo, kTMBAudioServerNotificationClientPIDKey);
  event.mServerUID = Number(inInfo, kTMBAudioServerNotificationSrvUIDKey);
  event.mServerPID = Number(inInfo, kTMBAudioServerNotificationSrvPIDKey);
  if (event.mCode == kTMBAudioServerEventClientAdded && event.mClientPID == getpid()) {
    CFStringRef name = CFTmbSndCopyPortID(getpid());
    CFMessagePortRef port = CFMessagePortCreateRemote(kCFAllocatorDefault, name);
    CFRelease(name);
    event.mDataPortExisted = port != nullptr;
    if (port != nullptr) CFRelease(port);
  }
  auto* self = static_cast<FakeClient*>(inSelf);
  std::lock_guard<std::mutex> lock(self->mMutex);
  self->mEvents.push_back(event);
}

bool FakeClient::OpenListener() {
  CloseListener();
  return WaitUntil([this] {
    mListener = CFMessagePortCreateRemote(kCFAllocatorDefault, mListenerID);
    return mListener != nullptr;
  });
}

void FakeClient::CloseListener() {
  Close(mListener);
}

bool FakeClient::SendAdd(double inRate, UInt32 inChannels) {
  CFDataRef data =
      TMBAudioClientInfo(getuid(), getpid(), Format(inRate, inChannels)).CopyMessageData(true);
  const bool sent = SendMessage(kTMBAudioMessageAddID, data);
  CFRelease(data);
  return sent;
}

bool FakeClient::SendEcho() {
  CFDataRef data = TMBAudioClientInfo(getuid(), getpid(), Format(44100.0, 2)).CopyMessageData(true);
  const bool sent = SendMessage(kTMBAudioMessageEchoID, data);
  CFRelease(data);
  return sent;
}

bool FakeClient::SendDispose() {
  CFDataRef data =
      TMBAudioClientInfo(getuid(), getpid(), Format(44100.0, 2)).CopyMessageData(false);
  const bool sent = SendMessage(kTMBAudioMessageDisposeID, data);
  CFRelease(data);
  return sent;
}

bool FakeClient::SendMessage(SInt32 inID, const std::vector<UInt8>& inBytes) {
  CFDataRef data =
      CFDataCreate(kCFAllocatorDefault, inBytes.data(), static_cast<CFIndex>(inBytes.size()));
  const bool sent = SendMessage(inID, data);
  CFRelease(data);
  return sent;
}

bool FakeClient::SendMessage(SInt32 inID, CFDataRef inData) {
  return Send(mListener, inID, inData);
}

bool FakeClient::OpenData(pid_t inOwner) {
  CloseData();
  CFStringRef name = CFTmbSndCopyPortID(inOwner);
  const bool open = WaitUntil([&] {
    mData = CFMessagePortCreateRemote(kCFAllocatorDefault, name);
    return mData != nullptr;
  });
  CFRelease(name);
  return open;
}

bool FakeClient::IsDataOpen() const {
  return mData != nullptr && CFMessagePortIsValid(mData);
}

void FakeClient::CloseData() {
  Close(mData);
}

bool FakeClient::SendBlock(double inSampleTime, const std::vector<float>& inSamples) {
  AudioTimeStamp time = {};
  time.mSampleTime = inSampleTime;
  time.mHostTime = mach_absolute_time();
  time.mFlags = kAudioTimeStampSampleTimeValid | kAudioTimeStampHostTimeValid;
  AudioBufferList list;
  list.mNumberBuffers = 1;
  list.mBuffers[0] = {2, static_cast<UInt32>(inSamples.size() * sizeof(float)),
                      const_cast<float*>(inSamples.data())};
  CFDataRef data = CFDataCreateWithABL(time, Format(44100.0, 2), list, true);
  const bool sent = Send(mData, kTMBAudioMessageDataID, data);
  CFRelease(data);
  return sent;
}

bool FakeClient::SendBytes(SInt32 inID, const std::vector<UInt8>& inBytes) {
  CFDataRef data =
      CFDataCreate(kCFAllocatorDefault, inBytes.data(), static_cast<CFIndex>(inBytes.size()));
  const bool sent = Send(mData, inID, data);
  CFRelease(data);
  return sent;
}

bool FakeClient::Connect() {
  const size_t before = Count(kTMBAudioServerEventClientAdded);
  return OpenListener() && SendAdd() && WaitFor(kTMBAudioServerEventClientAdded, before + 1) &&
         OpenData(getpid());
}

std::vector<Event> FakeClient::Events() {
  std::lock_guard<std::mutex> lock(mMutex);
  return mEvents;
}

size_t FakeClient::Count(int inCode) {
  size_t count = 0;
  for (const Event& event : Events()) {
    const bool mine = event.mClientPID == -1 || event.mClientPID == getpid();
    if (event.mCode == inCode && mine) ++count;
  }
  return count;
}

bool FakeClient::WaitFor(int inCode, size_t inTimes) {
  return WaitUntil([&] { return Count(inCode) >= inTimes; });
}

}  // namespace tembra::test
