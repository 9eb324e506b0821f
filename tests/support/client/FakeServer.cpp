#include "support/client/FakeServer.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

namespace tembra::test {

namespace {

std::string ToText(int inCode) {
  const auto code = static_cast<unsigned int>(inCode);
  return {static_cast<char>(code >> 24), static_cast<char>(code >> 16),
          static_cast<char>(code >> 8), static_cast<char>(code)};
}

std::string ToString(CFStringRef inString) {
  char buffer[256] = "";
  CFStringGetCString(inString, buffer, sizeof(buffer), kCFStringEncodingUTF8);
  return buffer;
}

// The device observes other names too; what becomes of those is not this server's business.
bool IsServerEvent(CFStringRef inName) {
  return ToString(inName) == "TMBAudioServerNotification";
}

}  // namespace

FakeServer& FakeServer::Get() {
  static FakeServer& sServer = *new FakeServer;
  return sServer;
}

void FakeServer::Reset() {
  std::lock_guard<std::recursive_mutex> locker(mMutex);
  Sweep();
  EXPECT_EQ(mPorts.size(), 0u) << "a port was left open";
  EXPECT_EQ(mTimers.size(), 0u) << "a timer was left";
  EXPECT_EQ(mObservations.size(), 0u) << "an observation was left";
  EXPECT_EQ(mSystemLogLines.exchange(0), 0u) << "something was logged";
  for (Port& port : mPorts) CFRelease(port.mHandle);
  for (Timer& timer : mTimers) CFRelease(timer.mHandle);
  mPorts.clear();
  mTimers.clear();
  mObservations.clear();
  mLog.clear();
  mMessages.clear();
  mSendResults.clear();
  mHasListener = mHasDataPort = mPortsAreDead = mDiscardsAudio = mKeepsData = false;
  mAudioSends = 0;
  mKeepsLog = true;
  mHasCenter = mHasTimers = true;
  mOnUnobserve = nullptr;
  mOnOpen = nullptr;
  mListenerOpenings = mOpeningsWhileDead = mAdds = 0;
  mNow = 1000.0;
  mListenerName = "com.tembra.tmbasrv." + std::to_string(getuid());
  mDataName = mListenerName + "." + std::to_string(getpid());
}

// Drops what nobody but this holds any more.
void FakeServer::Sweep() {
  std::erase_if(mPorts, [](Port& port) {
    if (CFGetRetainCount(port.mHandle) > 1) return false;
    EXPECT_TRUE(port.mIsInvalidated) << "released, but not closed: " << port.mName;
    CFRelease(port.mHandle);
    return true;
  });
  std::erase_if(mTimers, [](Timer& timer) {
    if (CFGetRetainCount(timer.mHandle) > 1) return false;
    EXPECT_FALSE(timer.mIsValid) << "a timer was released, but it still runs";
    CFRelease(timer.mHandle);
    return true;
  });
}

FakeServer::Port* FakeServer::FindPort(CFTypeRef inHandle) {
  for (Port& port : mPorts) {
    if (port.mHandle == inHandle) return &port;
  }
  ADD_FAILURE() << "no such port";
  return nullptr;
}

FakeServer::Timer* FakeServer::FindTimer(CFTypeRef inHandle) {
  for (Timer& timer : mTimers) {
    if (timer.mHandle == inHandle) return &timer;
  }
  ADD_FAILURE() << "no such timer";
  return nullptr;
}

void FakeServer::Note(const std::string& inText) {
  mLog.push_back(inText);
}

bool FakeServer::FireNextTimer() {
  Timer timer{};
  {
    std::lock_guard<std::recursive_mutex> locker(mMutex);
    Timer* next = nullptr;
    for (Timer& candidate : mTimers) {
      if (!candidate.mIsValid || candidate.mLoop == nullptr) continue;
      if (next == nullptr || candidate.mFireDate < next->mFireDate) next = &candidate;
    }
    if (next == nullptr) return false;
    next->mIsValid = false;
    mNow = std::max(mNow, next->mFireDate);
    timer = *next;
    CFRetain(timer.mHandle);
  }
  timer.mCallBack((CFRunLoopTimerRef)timer.mHandle, timer.mInfo);
  CFRelease(timer.mHandle);
  return true;
}

void FakeServer::Advance(double inSeconds) {
  const double end = mNow + inSeconds;
  for (;;) {
    bool isDue = false;
    for (const Timer& timer : mTimers) {
      isDue = isDue || (timer.mIsValid && timer.mLoop != nullptr && timer.mFireDate <= end);
    }
    if (!isDue) break;
    FireNextTimer();
  }
  mNow = end;
}

void FakeServer::PostDictionary(CFStringRef inName, const void* inObject,
                                CFDictionaryRef inUserInfo) {
  const std::vector<Observation> observations = mObservations;
  for (const Observation& observation : observations) {
    observation.mCallBack(CFNotificationCenterGetDistributedCenter(),
                          const_cast<void*>(observation.mObserver), inName, inObject, inUserInfo);
  }
}

void FakeServer::PostEvent(int inEvent, std::optional<int> inPID) {
  CFMutableDictionaryRef info = CFDictionaryCreateMutable(
      nullptr, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
  CFNumberRef event = CFNumberCreate(nullptr, kCFNumberIntType, &inEvent);
  CFDictionarySetValue(info, CFSTR("Event"), event);
  CFRelease(event);
  if (inPID.has_value()) {
    const int value = *inPID;
    CFNumberRef pid = CFNumberCreate(nullptr, kCFNumberIntType, &value);
    CFDictionarySetValue(info, CFSTR("ClnPID"), pid);
    CFRelease(pid);
  }
  CFStringRef object =
      CFStringCreateWithCString(nullptr, mListenerName.c_str(), kCFStringEncodingUTF8);
  PostDictionary(CFSTR("TMBAudioServerNotification"), object, info);
  CFRelease(object);
  CFRelease(info);
}

int FakeServer::GetOpenPorts(const std::string& inPort) const {
  std::lock_guard<std::recursive_mutex> locker(mMutex);
  const std::string& name = inPort == "listener" ? mListenerName : mDataName;
  return static_cast<int>(std::count_if(mPorts.begin(), mPorts.end(), [&](const Port& port) {
    return port.mName == name && !port.mIsInvalidated;
  }));
}

int FakeServer::GetPendingTimers() const {
  std::lock_guard<std::recursive_mutex> locker(mMutex);
  return static_cast<int>(std::count_if(mTimers.begin(), mTimers.end(), [](const Timer& timer) {
    return timer.mIsValid && timer.mLoop != nullptr;
  }));
}

size_t FakeServer::GetObservations() const {
  return mObservations.size();
}

int FakeServer::CountMessages(const std::string& inPort, SInt32 inID) const {
  return static_cast<int>(std::count_if(
      mMessages.begin(), mMessages.end(),
      [&](const Message& message) { return message.mPort == inPort && message.mID == inID; }));
}

std::vector<std::string> FakeServer::TakeLog() {
  std::lock_guard<std::recursive_mutex> locker(mMutex);
  return std::move(mLog);
}

std::vector<FakeServer::Message> FakeServer::TakeMessages() {
  std::lock_guard<std::recursive_mutex> locker(mMutex);
  return std::move(mMessages);
}

}  // namespace tembra::test

using tembra::test::FakeServer;
using Locker = std::lock_guard<std::recursive_mutex>;

// The clock.

CFAbsoluteTime CFAbsoluteTimeGetCurrent(void) {
  return FakeServer::Get().mNow;
}

// Waiting gives other threads a turn and takes no time.
extern "C" int usleep(useconds_t) {
  sched_yield();
  return 0;
}

extern "C" void syslog(int, const char*, ...) {
  ++FakeServer::Get().mSystemLogLines;
}

// Ports.

// Nobody is to reach a test's device: where its telemetry is allowed, it has no port.
CFMessagePortRef CFMessagePortCreateLocal(CFAllocatorRef, CFStringRef, CFMessagePortCallBack,
                                          CFMessagePortContext*, Boolean*) {
  return nullptr;
}

CFMessagePortRef CFMessagePortCreateRemote(CFAllocatorRef inAllocator, CFStringRef inName) {
  FakeServer& server = FakeServer::Get();
  Locker locker(server.mMutex);
  server.Sweep();
  EXPECT_EQ(inAllocator, kCFAllocatorDefault);
  const std::string name = tembra::test::ToString(inName);
  EXPECT_TRUE(name == server.mListenerName || name == server.mDataName) << name;
  if (const std::function<void()> onOpen = std::exchange(server.mOnOpen, nullptr)) onOpen();
  const bool isListener = name == server.mListenerName;
  if (!(isListener ? server.mHasListener : server.mHasDataPort)) {
    server.Note(isListener ? "no listener" : "no data");
    return nullptr;
  }
  server.Note(isListener ? "open listener" : "open data");
  EXPECT_EQ(server.GetOpenPorts(isListener ? "listener" : "data"), 0) << "opened twice: " << name;
  if (isListener) {
    ++server.mListenerOpenings;
    if (server.mPortsAreDead) ++server.mOpeningsWhileDead;
  }
  CFTypeRef handle = CFDataCreateMutable(nullptr, 0);
  CFRetain(handle);
  server.mPorts.push_back({handle, name, false});
  return (CFMessagePortRef)handle;
}

Boolean CFMessagePortIsValid(CFMessagePortRef inPort) {
  FakeServer& server = FakeServer::Get();
  Locker locker(server.mMutex);
  FakeServer::Port* port = server.FindPort(inPort);
  return port != nullptr && !port->mIsInvalidated && !server.mPortsAreDead;
}

void CFMessagePortInvalidate(CFMessagePortRef inPort) {
  FakeServer& server = FakeServer::Get();
  Locker locker(server.mMutex);
  FakeServer::Port* port = server.FindPort(inPort);
  if (port == nullptr) return;
  EXPECT_FALSE(port->mIsInvalidated) << "closed twice: " << port->mName;
  port->mIsInvalidated = true;
  server.Note(port->mName == server.mListenerName ? "close listener" : "close data");
}

SInt32 CFMessagePortSendRequest(CFMessagePortRef inPort, SInt32 inID, CFDataRef inData,
                                CFTimeInterval inSendTimeout, CFTimeInterval inReceiveTimeout,
                                CFStringRef inReplyMode, CFDataRef* outData) {
  FakeServer& server = FakeServer::Get();
  Locker locker(server.mMutex);
  FakeServer::Port* port = server.FindPort(inPort);
  if (port == nullptr) return kCFMessagePortIsInvalid;
  EXPECT_FALSE(port->mIsInvalidated) << "sent on a closed port";
  EXPECT_FALSE(server.mPortsAreDead) << "sent on a dead port";
  EXPECT_EQ(inSendTimeout, 0.0);
  EXPECT_EQ(inReceiveTimeout, 0.0);
  EXPECT_EQ(inReplyMode, nullptr);
  EXPECT_EQ(outData, nullptr);
  const bool isListener = port->mName == server.mListenerName;
  if (!isListener) {
    EXPECT_EQ(inID, 0);
    ++server.mAudioSends;
    if (server.mKeepsData) server.mKeptData.push_back(static_cast<CFDataRef>(CFRetain(inData)));
  }
  if (isListener && inID == 'cadd') ++server.mAdds;
  if (server.mKeepsLog && (isListener || !server.mDiscardsAudio)) {
    const UInt8* bytes = CFDataGetBytePtr(inData);
    server.mMessages.push_back(
        {isListener ? "listener" : "data", inID, {bytes, bytes + CFDataGetLength(inData)}});
    server.Note(isListener ? "send " + tembra::test::ToText(inID) : "send audio");
  }
  if (server.mSendResults.empty()) return kCFMessagePortSuccess;
  const SInt32 result = server.mSendResults.front();
  server.mSendResults.erase(server.mSendResults.begin());
  return result;
}

// Notifications.

CFNotificationCenterRef CFNotificationCenterGetDistributedCenter(void) {
  static int sCenter = 0;
  return FakeServer::Get().mHasCenter ? (CFNotificationCenterRef)&sCenter : nullptr;
}

void CFNotificationCenterAddObserver(CFNotificationCenterRef inCenter, const void* inObserver,
                                     CFNotificationCallback inCallBack, CFStringRef inName,
                                     const void* inObject,
                                     CFNotificationSuspensionBehavior inBehavior) {
  FakeServer& server = FakeServer::Get();
  Locker locker(server.mMutex);
  EXPECT_EQ(inCenter, CFNotificationCenterGetDistributedCenter());
  if (!tembra::test::IsServerEvent(inName)) return;
  EXPECT_EQ(tembra::test::ToString((CFStringRef)inObject), server.mListenerName);
  EXPECT_EQ(inBehavior, 4);
  server.mObservations.push_back({inObserver, inCallBack});
  server.Note("observe");
}

void CFNotificationCenterRemoveObserver(CFNotificationCenterRef inCenter, const void* inObserver,
                                        CFNotificationName inName, const void* inObject) {
  FakeServer& server = FakeServer::Get();
  Locker locker(server.mMutex);
  EXPECT_EQ(inCenter, CFNotificationCenterGetDistributedCenter());
  if (server.mOnUnobserve) server.mOnUnobserve(tembra::test::ToString(inName));
  if (!tembra::test::IsServerEvent(inName)) return;
  EXPECT_EQ(tembra::test::ToString((CFStringRef)inObject), server.mListenerName);
  std::erase_if(server.mObservations, [&](const FakeServer::Observation& observation) {
    return observation.mObserver == inObserver;
  });
  server.Note("unobserve");
}

// By these a device's processes keep each other in step; here is only one.
void CFNotificationCenterPostNotificationWithOptions(CFNotificationCenterRef,
                                                     CFNotificationName inName, const void*,
                                                     CFDictionaryRef, CFOptionFlags) {
  EXPECT_FALSE(tembra::test::IsServerEvent(inName));
}

// Timers.

CFRunLoopTimerRef CFRunLoopTimerCreate(CFAllocatorRef inAllocator, CFAbsoluteTime inFireDate,
                                       CFTimeInterval inInterval, CFOptionFlags inFlags,
                                       CFIndex inOrder, CFRunLoopTimerCallBack inCallBack,
                                       CFRunLoopTimerContext* inContext) {
  FakeServer& server = FakeServer::Get();
  Locker locker(server.mMutex);
  server.Sweep();
  EXPECT_EQ(inAllocator, kCFAllocatorDefault);
  EXPECT_EQ(inFireDate, server.mNow + 0.10000000149011612);
  EXPECT_EQ(inInterval, 0.0);
  EXPECT_EQ(inFlags, 0u);
  EXPECT_EQ(inOrder, 0);
  EXPECT_EQ(inContext->version, 0);
  EXPECT_EQ(inContext->retain, nullptr);
  EXPECT_EQ(inContext->release, nullptr);
  EXPECT_EQ(inContext->copyDescription, nullptr);
  if (!server.mHasTimers) {
    server.Note("no timer");
    return nullptr;
  }
  CFTypeRef handle = CFDataCreateMutable(nullptr, 0);
  CFRetain(handle);
  server.mTimers.push_back({handle, inFireDate, inCallBack, inContext->info, nullptr, true});
  server.Note("timer");
  return (CFRunLoopTimerRef)handle;
}

void CFRunLoopAddTimer(CFRunLoopRef inLoop, CFRunLoopTimerRef inTimer, CFRunLoopMode inMode) {
  FakeServer& server = FakeServer::Get();
  Locker locker(server.mMutex);
  FakeServer::Timer* timer = server.FindTimer(inTimer);
  if (timer == nullptr) return;
  EXPECT_TRUE(timer->mIsValid);
  EXPECT_EQ(timer->mLoop, nullptr) << "added twice";
  EXPECT_TRUE(CFEqual(inMode, kCFRunLoopCommonModes));
  EXPECT_NE(inLoop, nullptr);
  timer->mLoop = inLoop;
}

Boolean CFRunLoopTimerIsValid(CFRunLoopTimerRef inTimer) {
  FakeServer& server = FakeServer::Get();
  Locker locker(server.mMutex);
  FakeServer::Timer* timer = server.FindTimer(inTimer);
  return timer != nullptr && timer->mIsValid;
}

void CFRunLoopTimerInvalidate(CFRunLoopTimerRef inTimer) {
  FakeServer& server = FakeServer::Get();
  Locker locker(server.mMutex);
  FakeServer::Timer* timer = server.FindTimer(inTimer);
  if (timer == nullptr) return;
  EXPECT_TRUE(timer->mIsValid) << "a timer was ended twice";
  timer->mIsValid = false;
  server.Note("drop timer");
}
