#pragma once

#include <CoreFoundation/CFNotificationCenter.h>

#include <deque>
#include <string>
#include <vector>

#include "base/Descriptor.h"
#include "base/Mutex.h"
#include "corefoundation/Object.h"
#include "notifications/Places.h"

namespace tembra::notifications {

// One lock for the service's bookkeeping, never held while a callback runs or a thread waits: a
// fork finds it free.
extern Mutex gNotificationLock;

// Posts of other users that may wait for the delivery thread, and all posts and their bytes.
constexpr size_t kMaxForeign = 256;
constexpr size_t kMaxQueued = 16384;
constexpr size_t kMaxQueuedBytes = 64 << 20;

}  // namespace tembra::notifications

// The distributed center. "tembra.nrecv" takes datagrams from the kernel's short queues into
// memory, "tembra.notify" calls the observers; both start with the first observer and stay.
struct __CFNotificationCenter final : tembra::cf::Object {
  __CFNotificationCenter();

  CFTypeID GetTypeID() const override { return tembra::cf::kTypeNotificationCenter; }

  // Null in a set-uid process.
  static CFNotificationCenterRef Get();

  void Add(const void* inObserver, CFNotificationCallback inCallBack, CFStringRef inName,
           CFStringRef inObject) TEMBRA_EXCLUDES(tembra::notifications::gNotificationLock);
  // Null name or object: any. inEvery: whatever its name and object.
  void Remove(const void* inObserver, CFStringRef inName, CFStringRef inObject)
      TEMBRA_EXCLUDES(tembra::notifications::gNotificationLock);
  void Post(CFStringRef inName, CFStringRef inObject, CFDictionaryRef inInfo, bool inToAllUsers)
      TEMBRA_EXCLUDES(tembra::notifications::gNotificationLock);

  // Fork hooks and the end of the process.
  void ForgetParent() TEMBRA_REQUIRES(tembra::notifications::gNotificationLock);
  void RemoveNames() TEMBRA_REQUIRES(tembra::notifications::gNotificationLock);

 private:
  struct Observer {
    uint64_t number;  // never used twice
    const void* observer;
    CFNotificationCallback callBack;
    tembra::cf::Owned<CFStringRef> name;
    tembra::cf::Owned<CFStringRef> object;
  };
  struct Receiver {
    tembra::Descriptor directory;
    std::string name;
    tembra::Descriptor socket;
  };
  struct Queued {
    std::string datagram;
    bool foreign;
  };

  bool Start() TEMBRA_REQUIRES(tembra::notifications::gNotificationLock);
  bool OpenReceiver(Receiver& outReceiver, tembra::notifications::Scope inScope,
                    const std::string& inName);
  static void ReceiveThread(void* inCenter);
  static void DeliveryThread(void* inCenter);
  // False if it is no socket any longer.
  bool Receive(int inSocket, tembra::notifications::Scope inScope);
  void Enqueue(std::string inDatagram, bool inForeign)
      TEMBRA_EXCLUDES(tembra::notifications::gNotificationLock);
  void Deliver(const Queued& inQueued) TEMBRA_EXCLUDES(tembra::notifications::gNotificationLock);
  std::vector<uint64_t> Matching(CFStringRef inName, CFStringRef inObject, bool inForeign)
      TEMBRA_EXCLUDES(tembra::notifications::gNotificationLock);

  std::vector<Observer> mObservers TEMBRA_GUARDED_BY(tembra::notifications::gNotificationLock);
  uint64_t mNextNumber TEMBRA_GUARDED_BY(tembra::notifications::gNotificationLock) = 1;
  bool mStarted TEMBRA_GUARDED_BY(tembra::notifications::gNotificationLock) = false;
  Receiver mUser TEMBRA_GUARDED_BY(tembra::notifications::gNotificationLock);
  Receiver mShared TEMBRA_GUARDED_BY(tembra::notifications::gNotificationLock);
  std::deque<Queued> mQueue TEMBRA_GUARDED_BY(tembra::notifications::gNotificationLock);
  size_t mQueuedBytes TEMBRA_GUARDED_BY(tembra::notifications::gNotificationLock) = 0;
  size_t mForeignQueued TEMBRA_GUARDED_BY(tembra::notifications::gNotificationLock) = 0;
  // Moves with each datagram; the delivery thread waits on it.
  std::atomic<uint32_t> mArrivals{0};
};
