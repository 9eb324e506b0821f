#pragma once

#include <CoreFoundation/CFMessagePort.h>
#include <CoreFoundation/CFMessagePortPriv.h>

#include <atomic>
#include <cstdint>
#include <string>

#include "base/ForkHandlers.h"
#include "base/Mutex.h"
#include "corefoundation/Object.h"

namespace tembra::ports {

// One lock for the bookkeeping of all ports, never held while a callback runs or a thread waits: a
// fork finds it free. Sending on a remote port does not take it.
extern Mutex gPortsLock;

constexpr int64_t kFirstMessageNanos = 5'000'000'000;  // from connection to first message
constexpr int64_t kFullQueueNanos = 1'000'000'000;     // of refused replies until the end
constexpr size_t kMaxConnections = 512;
constexpr int kMaxEvents = 64;  // in one wake-up, each at most one message
constexpr int kSendBuffer = 2 << 20;

// The port's name as UTF-8; false unless it has 1 to 128 characters.
bool GetPortName(CFStringRef inName, std::string& outName);

// Whether a socket's peer is of this user or root; fills in who it is.
bool IsTrustedPeer(int inSocket, CFMessagePortPeer& outPeer);

}  // namespace tembra::ports

// What local and remote ports have in common. All living ports are in one table, by a number that
// is never used again, so that events in flight cannot reach a port that took another's place.
struct __CFMessagePort : tembra::cf::Object {
  ~__CFMessagePort() override;

  CFTypeID GetTypeID() const override { return tembra::cf::kTypeMessagePort; }

  virtual bool IsRemote() const = 0;
  virtual void Invalidate() = 0;
  // Something can be read; on the service thread.
  virtual void ServiceReady(uint32_t inEvents) = 0;
  // In a forked child: closes the descriptors, which are the parent's.
  virtual void ForgetParent() TEMBRA_REQUIRES(tembra::ports::gPortsLock) = 0;
  // The process exits: removes what would stay behind.
  virtual void CleanUpAtExit() TEMBRA_REQUIRES(tembra::ports::gPortsLock) {}

  // May be called by the I/O thread.
  bool IsValid() const {
    return mValid.load(std::memory_order_acquire) && mGeneration == tembra::ForkGeneration();
  }

  void SetInvalidationCallBack(CFMessagePortInvalidationCallBack inCallout)
      TEMBRA_EXCLUDES(tembra::ports::gPortsLock);

  // The living port of that number, retained, or null.
  static __CFMessagePort* CopyByNumber(uint64_t inNumber)
      TEMBRA_EXCLUDES(tembra::ports::gPortsLock);

  const tembra::cf::Owned<CFStringRef> mName;
  const uint64_t mNumber;
  CFMessagePortContext mContext{};
  CFMessagePortInvalidationCallBack mInvalidation TEMBRA_GUARDED_BY(tembra::ports::gPortsLock) =
      nullptr;

  struct Counters {
    std::atomic<uint64_t> accepted, refusedUser, refusedLimit, refusedNoFile, closed, silent,
        malformed, oversized, messages, bytes, replies, repliesLost, closedFull, sent, sentBytes,
        queueFull, sendErrors;
  };
  Counters mCounters{};

 protected:
  explicit __CFMessagePort(CFStringRef inName);

  // Puts the finished object into the table, and takes it out again.
  void Register() TEMBRA_EXCLUDES(tembra::ports::gPortsLock);
  void Unregister() TEMBRA_EXCLUDES(tembra::ports::gPortsLock);

  static void Count(std::atomic<uint64_t>& ioCounter, uint64_t inAdd = 1) {
    ioCounter.fetch_add(inAdd, std::memory_order_relaxed);
  }

  // Falls once.
  std::atomic<bool> mValid{true};
  const uint32_t mGeneration;
  // The invalidation callback had its chance; one that is set later is called at once.
  bool mInvalidated TEMBRA_GUARDED_BY(tembra::ports::gPortsLock) = false;
};
