#pragma once

#include <string>
#include <unordered_map>

#include "base/Descriptor.h"
#include "ports/MessagePort.h"
#include "ports/PortWire.h"

namespace tembra::ports {

// The sending end of a connection to a local port.
//
// The socket stays open until the object goes, so a thread that sends while another invalidates
// sends into a shut socket, never into somebody else's descriptor.
class RemotePort final : public __CFMessagePort {
 public:
  RemotePort(CFStringRef inName, std::string inKey, Descriptor inSocket);
  ~RemotePort() override;

  // The valid port of that name, retained, or a new one; null unless its owner lives.
  static RemotePort* Create(CFAllocatorRef inAllocator, CFStringRef inName)
      TEMBRA_EXCLUDES(gPortsLock);

  bool IsRemote() const override { return true; }
  void Invalidate() override TEMBRA_EXCLUDES(gPortsLock);
  void ServiceReady(uint32_t inEvents) override TEMBRA_EXCLUDES(gPortsLock);
  void ForgetParent() override TEMBRA_REQUIRES(gPortsLock);

  // May be called by the I/O thread with a time-out of 0 and Kind::kMessage.
  SInt32 Send(Kind inKind, SInt32 inIdentifier, CFDataRef inData, uint64_t inSequence,
              double inTimeout);
  SInt32 SendAndWait(SInt32 inIdentifier, CFDataRef inData, double inSendTimeout,
                     double inReceiveTimeout, CFStringRef inMode, CFDataRef* outReply)
      TEMBRA_EXCLUDES(gPortsLock);

 private:
  // A thread that waits for a reply on its run loop.
  struct Waiter {
    CFRunLoopRef loop;
    CFRunLoopSourceRef source;
    bool done = false;
    bool failed = false;
    CFDataRef reply = nullptr;
    void Wake() const;
  };

  bool PeerIsGone() const;
  // One packet from the peer; false at the connection's end.
  bool ReceiveReply() TEMBRA_REQUIRES(gPortsLock);

  const std::string mKey;
  Descriptor mSocket;
  std::atomic<uint64_t> mSequence{0};
  std::unordered_map<uint64_t, Waiter*> mWaiters TEMBRA_GUARDED_BY(gPortsLock);
};

}  // namespace tembra::ports
