#include "notifications/Center.h"

#include <CoreFoundation/CFPropertyList.h>
#include <poll.h>
#include <sys/auxv.h>
#include <sys/socket.h>

#include <algorithm>

#include "base/ExitLock.h"
#include "base/ForkHandlers.h"
#include "base/ServiceThread.h"
#include "notifications/Counters.h"
#include "notifications/NotificationWire.h"
#include "notifications/Poster.h"

using tembra::MutexLock;
using tembra::cf::Owned;
using namespace tembra::notifications;

namespace tembra::notifications {

Mutex gNotificationLock;
Counters gCounters{};

}  // namespace tembra::notifications

namespace {

// The only one, once somebody asked for it.
std::atomic<CFNotificationCenterRef> sCenter{nullptr};

void LockForFork() TEMBRA_NO_THREAD_SAFETY_ANALYSIS {
  gNotificationLock.lock();
}

void UnlockInParent() TEMBRA_NO_THREAD_SAFETY_ANALYSIS {
  gNotificationLock.unlock();
}

void UnlockInChild() TEMBRA_NO_THREAD_SAFETY_ANALYSIS {
  sCenter.load(std::memory_order_acquire)->ForgetParent();
  gNotificationLock.unlock();
}

__attribute__((destructor)) void CleanUpAtExit() TEMBRA_NO_THREAD_SAFETY_ANALYSIS {
  CFNotificationCenterRef center = sCenter.load(std::memory_order_acquire);
  // A thread that was stopped in the middle keeps its lock; then the names stay as leftovers.
  if (!center || !tembra::LockWithin(gNotificationLock, tembra::kExitPatience)) return;
  center->RemoveNames();
  gNotificationLock.unlock();
}

bool GetText(CFStringRef inString, std::string& outText) {
  UInt8 bytes[kMaxText];
  CFIndex used = 0;
  const CFIndex length = CFStringGetLength(inString);
  if (CFStringGetBytes(inString, CFRangeMake(0, length), kCFStringEncodingUTF8, 0, false, bytes,
                       sizeof bytes, &used) != length) {
    return false;
  }
  outText.assign(reinterpret_cast<char*>(bytes), static_cast<size_t>(used));
  return true;
}

Owned<CFStringRef> MakeString(std::string_view inText) {
  return Owned<CFStringRef>(
      CFStringCreateWithBytes(nullptr, reinterpret_cast<const UInt8*>(inText.data()),
                              static_cast<CFIndex>(inText.size()), kCFStringEncodingUTF8, false));
}

Owned<CFDictionaryRef> MakeDictionary(std::string_view inInfo) {
  Owned<CFDataRef> data(CFDataCreate(nullptr, reinterpret_cast<const UInt8*>(inInfo.data()),
                                     static_cast<CFIndex>(inInfo.size())));
  CFPropertyListRef list =
      data ? CFPropertyListCreateWithData(nullptr, data, kCFPropertyListImmutable, nullptr, nullptr)
           : nullptr;
  if (list && CFGetTypeID(list) != CFDictionaryGetTypeID()) {
    CFRelease(list);
    list = nullptr;
  }
  return Owned<CFDictionaryRef>(static_cast<CFDictionaryRef>(list));
}

Owned<CFStringRef> CopyString(CFStringRef inString) {
  return Owned<CFStringRef>(inString ? CFStringCreateCopy(nullptr, inString) : nullptr);
}

}  // namespace

__CFNotificationCenter::__CFNotificationCenter() {
  MakeImmortal();
}

CFNotificationCenterRef __CFNotificationCenter::Get() {
  static CFNotificationCenterRef sOnly = [] {
    auto* center = new __CFNotificationCenter;
    sCenter.store(center, std::memory_order_release);
    tembra::RegisterForkHooks(tembra::ForkOrder::kNotifications,
                              {LockForFork, UnlockInParent, UnlockInChild});
    return center;
  }();
  return getauxval(AT_SECURE) ? nullptr : sOnly;
}

void __CFNotificationCenter::ForgetParent() {
  // Not destroyed: this is inside fork, and a last release may do anything.
  new std::vector<Observer>(std::move(mObservers));
  mObservers.clear();
  mStarted = false;
  mUser = {};
  mShared = {};
  mQueue.clear();
  mForeignQueued = mQueuedBytes = 0;
}

void __CFNotificationCenter::RemoveNames() {
  for (Receiver* receiver : {&mUser, &mShared}) {
    // The socket itself stays open: the receive thread still waits on it.
    if (receiver->socket) unlinkat(receiver->directory.Get(), receiver->name.c_str(), 0);
  }
}

// Observers

void __CFNotificationCenter::Add(const void* inObserver, CFNotificationCallback inCallBack,
                                 CFStringRef inName, CFStringRef inObject) {
  Owned<CFStringRef> name = CopyString(inName);
  Owned<CFStringRef> object = CopyString(inObject);
  MutexLock lock(gNotificationLock);
  mObservers.push_back({mNextNumber++, inObserver, inCallBack, std::move(name), std::move(object)});
  Start();
}

void __CFNotificationCenter::Remove(const void* inObserver, CFStringRef inName,
                                    CFStringRef inObject) {
  std::vector<Observer> removed;
  MutexLock lock(gNotificationLock);
  auto keep =
      std::stable_partition(mObservers.begin(), mObservers.end(), [&](const Observer& observer) {
        if (observer.observer != inObserver) return true;
        if (inName && !(observer.name && CFEqual(observer.name, inName))) return true;
        return inObject && !(observer.object && CFEqual(observer.object, inObject));
      });
  std::move(keep, mObservers.end(), std::back_inserter(removed));
  mObservers.erase(keep, mObservers.end());
}

std::vector<uint64_t> __CFNotificationCenter::Matching(CFStringRef inName, CFStringRef inObject,
                                                       bool inForeign) {
  std::vector<uint64_t> numbers;
  MutexLock lock(gNotificationLock);
  for (const Observer& observer : mObservers) {
    if (observer.name && !CFEqual(observer.name, inName)) continue;
    if (observer.object) {
      // Only its own user and root may speak to an observer that named whom it listens to.
      if (inForeign || !inObject || !CFEqual(observer.object, inObject)) continue;
    }
    numbers.push_back(observer.number);
  }
  return numbers;
}

// Receiving

bool __CFNotificationCenter::OpenReceiver(Receiver& outReceiver, Scope inScope,
                                          const std::string& inName) {
  Receiver receiver;
  receiver.directory = OpenPlace(inScope);
  if (!receiver.directory) return false;
  receiver.name = inName;
  receiver.socket = BindReceiver(receiver.directory.Get(), receiver.name, inScope);
  if (!receiver.socket) return false;
  outReceiver = std::move(receiver);
  return true;
}

bool __CFNotificationCenter::Start() {
  if (mStarted) return true;
  if (!mUser.socket && !OpenReceiver(mUser, Scope::kUser, NewReceiverName())) return false;
  // Posts to all users are worth less than this user's: without a shared place those still come.
  // The same name in both tells a poster that they are one process.
  if (!mShared.socket) OpenReceiver(mShared, Scope::kAllUsers, mUser.name);
  mStarted = tembra::StartServiceThread("tembra.nrecv", ReceiveThread, this) &&
             tembra::StartServiceThread("tembra.notify", DeliveryThread, this);
  return mStarted;
}

void __CFNotificationCenter::ReceiveThread(void* inCenter) {
  auto* center = static_cast<__CFNotificationCenter*>(inCenter);
  pollfd polls[2] = {};
  {
    MutexLock lock(gNotificationLock);
    polls[0] = {center->mUser.socket.Get(), POLLIN, 0};
    polls[1] = {center->mShared.socket.Get(), POLLIN, 0};
  }
  SweepShared();
  while (true) {
    poll(polls, 2, -1);
    // What was closed from under the thread is not looked at again: it would never let it sleep.
    if (polls[0].revents && !center->Receive(polls[0].fd, Scope::kUser)) polls[0].fd = -1;
    if (polls[1].revents && !center->Receive(polls[1].fd, Scope::kAllUsers)) polls[1].fd = -1;
  }
}

bool __CFNotificationCenter::Receive(int inSocket, Scope inScope) {
  static char sBuffer[kMaxDatagram + 1];  // the receive thread's alone
  // No more in one go than the kernel's queue can hold, so that a flood on one socket does not keep
  // the other waiting.
  for (int i = 0; i < 16; ++i) {
    iovec part{sBuffer, sizeof sBuffer};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(ucred))];
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    const ssize_t size = recvmsg(inSocket, &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
    if (size < 0) return errno != EBADF && errno != ENOTSOCK;
    Count(gCounters.received);

    const ucred* sender = nullptr;
    for (cmsghdr* c = CMSG_FIRSTHDR(&message); c; c = CMSG_NXTHDR(&message, c)) {
      if (c->cmsg_level != SOL_SOCKET) continue;
      if (c->cmsg_type == SCM_CREDENTIALS && c->cmsg_len == CMSG_LEN(sizeof(ucred))) {
        sender = reinterpret_cast<const ucred*>(CMSG_DATA(c));
      } else if (c->cmsg_type == SCM_RIGHTS) {
        // Descriptors are not asked for; those that found room are given back.
        const auto* rights = reinterpret_cast<const int*>(CMSG_DATA(c));
        const size_t count = (c->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        for (size_t r = 0; r < count; ++r) ::close(rights[r]);
      }
    }
    const bool foreign = !sender || (sender->uid != 0 && sender->uid != geteuid());
    if (!sender || (foreign && inScope == Scope::kUser)) {
      Count(gCounters.unauthorized);
      continue;
    }
    Notification notification;
    if ((message.msg_flags & (MSG_TRUNC | MSG_CTRUNC)) ||
        !DecodeNotification(reinterpret_cast<uint8_t*>(sBuffer), static_cast<size_t>(size),
                            notification)) {
      Count(gCounters.malformed);
      continue;
    }
    Enqueue(std::string(sBuffer, static_cast<size_t>(size)), foreign);
  }
  return true;
}

void __CFNotificationCenter::Enqueue(std::string inDatagram, bool inForeign) {
  {
    MutexLock lock(gNotificationLock);
    if (mQueue.size() >= kMaxQueued || mQueuedBytes + inDatagram.size() > kMaxQueuedBytes ||
        (inForeign && mForeignQueued >= kMaxForeign)) {
      Count(gCounters.overflowed);
      return;
    }
    if (inForeign) ++mForeignQueued;
    mQueuedBytes += inDatagram.size();
    mQueue.push_back({std::move(inDatagram), inForeign});
  }
  mArrivals.fetch_add(1, std::memory_order_release);
  mArrivals.notify_one();
}

// Delivery

void __CFNotificationCenter::DeliveryThread(void* inCenter) {
  auto* center = static_cast<__CFNotificationCenter*>(inCenter);
  while (true) {
    const uint32_t arrivals = center->mArrivals.load(std::memory_order_acquire);
    Queued next;
    bool found = false;
    {
      MutexLock lock(gNotificationLock);
      if (!center->mQueue.empty()) {
        next = std::move(center->mQueue.front());
        center->mQueue.pop_front();
        if (next.foreign) --center->mForeignQueued;
        center->mQueuedBytes -= next.datagram.size();
        found = true;
      }
    }
    if (found) {
      center->Deliver(next);
    } else {
      center->mArrivals.wait(arrivals, std::memory_order_acquire);
    }
  }
}

void __CFNotificationCenter::Deliver(const Queued& inQueued) {
  Notification notification;
  if (!DecodeNotification(reinterpret_cast<const uint8_t*>(inQueued.datagram.data()),
                          inQueued.datagram.size(), notification)) {
    return;
  }
  Owned<CFStringRef> name = MakeString(notification.name);
  Owned<CFStringRef> object;
  if (notification.hasObject) object = MakeString(notification.object);
  if (!name || (notification.hasObject && !object)) {
    Count(gCounters.malformed);
    return;
  }
  const std::vector<uint64_t> numbers = Matching(name, object, inQueued.foreign);
  if (numbers.empty()) return;
  Owned<CFDictionaryRef> info;
  if (notification.hasInfo) {
    info = MakeDictionary(notification.info);
    if (!info) {
      Count(gCounters.malformed);
      return;
    }
  }
  for (uint64_t number : numbers) {
    const void* observer = nullptr;
    CFNotificationCallback callBack = nullptr;
    {
      // It may have been removed since, by another thread or the callback before it.
      MutexLock lock(gNotificationLock);
      for (const Observer& candidate : mObservers) {
        if (candidate.number != number) continue;
        observer = candidate.observer;
        callBack = candidate.callBack;
      }
    }
    if (!callBack) continue;
    Count(gCounters.delivered);
    callBack(this, const_cast<void*>(observer), name, object.Get(), info);
  }
}

// Posting

void __CFNotificationCenter::Post(CFStringRef inName, CFStringRef inObject, CFDictionaryRef inInfo,
                                  bool inToAllUsers) {
  Notification notification;
  std::string name, object;
  bool good = inName && GetText(inName, name) && (!inObject || GetText(inObject, object));
  Owned<CFDataRef> info;
  if (good && inInfo) {
    info.Reset(
        CFPropertyListCreateData(nullptr, inInfo, kCFPropertyListBinaryFormat_v1_0, 0, nullptr));
    good = info.Get() != nullptr;
  }
  std::string datagram;
  if (good) {
    notification.name = name;
    notification.object = object;
    notification.hasObject = inObject != nullptr;
    notification.hasInfo = inInfo != nullptr;
    if (info) {
      notification.info = {reinterpret_cast<const char*>(CFDataGetBytePtr(info)),
                           static_cast<size_t>(CFDataGetLength(info))};
    }
    datagram = EncodeNotification(notification);
  }
  if (datagram.empty()) {
    Count(gCounters.refused);
    return;
  }
  PostDatagram(datagram, inToAllUsers);
}
