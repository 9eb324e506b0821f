#pragma once

#include <memory>
#include <string>
#include <unordered_map>

#include "base/Descriptor.h"
#include "ports/MessagePort.h"
#include "ports/PortWire.h"

namespace tembra::ports {

// The receiving end of a name: a listening socket and its connections, all in one epoll set that a
// run loop source or, for a dispatch queue, the service thread waits for.
//
// The name belongs to whoever holds the lock on its lock file; only the holder removes a socket of
// that name. The epoll set stays open until the object goes.
class LocalPort final : public __CFMessagePort {
 public:
  struct Place {
    std::shared_ptr<const Descriptor> directory;
    std::string file;
    Descriptor lock;
    Descriptor listener;
    Descriptor poll;
  };

  LocalPort(CFStringRef inName, CFMessagePortCallBack inCallout,
            const CFMessagePortContext& inContext, Place inPlace);
  ~LocalPort() override;

  // Null if the name is taken.
  static LocalPort* Create(CFAllocatorRef inAllocator, CFStringRef inName,
                           CFMessagePortCallBack inCallout, const CFMessagePortContext& inContext)
      TEMBRA_EXCLUDES(gPortsLock);

  bool IsRemote() const override { return false; }
  void Invalidate() override TEMBRA_EXCLUDES(gPortsLock);
  void ServiceReady(uint32_t inEvents) override TEMBRA_EXCLUDES(gPortsLock);
  void ForgetParent() override TEMBRA_REQUIRES(gPortsLock);
  void CleanUpAtExit() override TEMBRA_REQUIRES(gPortsLock) { RemoveName(); }

  CFRunLoopSourceRef CreateSource(CFAllocatorRef inAllocator, CFIndex inOrder)
      TEMBRA_EXCLUDES(gPortsLock);
  void SetQueue(dispatch_queue_t inQueue) TEMBRA_EXCLUDES(gPortsLock);
  void SetPeerCallBack(CFMessagePortPeerCallBack inCallout) TEMBRA_EXCLUDES(gPortsLock);
  bool ClosePeer(uint64_t inConnection) TEMBRA_EXCLUDES(gPortsLock);

  // Takes what is there: of each connection one message at most, so none starves the others. What
  // remains makes the epoll set ready again.
  void Deliver() TEMBRA_EXCLUDES(gPortsLock);

  // The sender of the message whose callback this thread runs, or null.
  static const CFMessagePortPeer* CurrentPeer();

 private:
  struct Connection {
    Descriptor socket;
    CFMessagePortPeer peer;
    int64_t since;          // monotonic, when it was accepted
    int64_t fullSince = 0;  // when the first of the refused replies was refused; 0: none
    bool spoken = false;
  };
  using Connections = std::unordered_map<uint64_t, Connection>;
  // What a source holds on to.
  struct SourceHold {
    LocalPort* port;
    CFRunLoopSourceRef source;
  };
  // One packet, after the lock is free.
  struct Received {
    bool opened = false;
    bool closed = false;
    bool request = false;
    SInt32 identifier = 0;
    uint64_t sequence = 0;
    CFDataRef data = nullptr;
    CFMessagePortPeer peer{};
  };

  // One newcomer for each delivery, so that a crowd of them does not keep those waiting who are
  // connected. Its number; 0 if nobody came or whoever came was turned away.
  uint64_t Accept() TEMBRA_REQUIRES(gPortsLock);
  // False if there is nothing to accept.
  bool AcceptOne(uint64_t& outNumber) TEMBRA_REQUIRES(gPortsLock);
  // What comes, comes mostly from the only connection: asked first, it saves a system call. Now and
  // then all are looked at, so that it cannot keep others out. False if nothing came.
  bool ReceiveFromTheOnlyOne() TEMBRA_EXCLUDES(gPortsLock);
  void ReceiveFromAll() TEMBRA_EXCLUDES(gPortsLock);
  // One packet or the end of a connection; false if there is neither.
  bool Receive(uint64_t inNumber) TEMBRA_EXCLUDES(gPortsLock);
  bool Read(Connections::iterator inConnection, Received& outReceived) TEMBRA_REQUIRES(gPortsLock);
  bool Accepts(Connection& ioConnection, size_t inSize, int inFlags, Received& outReceived)
      TEMBRA_REQUIRES(gPortsLock);
  void Reply(const Received& inRequest, CFDataRef inReply) TEMBRA_EXCLUDES(gPortsLock);
  void Close(Connections::iterator inConnection) TEMBRA_REQUIRES(gPortsLock);
  // Ends connections that have been silent or full for too long.
  void Sweep() TEMBRA_REQUIRES(gPortsLock);
  void ArmTimer() TEMBRA_REQUIRES(gPortsLock);
  void RemoveName() TEMBRA_REQUIRES(gPortsLock);
  void TellPeer(CFMessagePortPeerEvent inEvent, const CFMessagePortPeer& inPeer)
      TEMBRA_EXCLUDES(gPortsLock);
  // No callback uses the context's info any longer.
  void ReleaseInfo();
  static void Perform(void* inHold);
  static void ReleaseSourceHold(const void* inHold);
  static void DeliverOnQueue(void* inPort);

  const CFMessagePortCallBack mCallout;
  const std::shared_ptr<const Descriptor> mDirectory;
  const std::string mFile;
  Descriptor mLock TEMBRA_GUARDED_BY(gPortsLock);
  Descriptor mListener TEMBRA_GUARDED_BY(gPortsLock);
  Descriptor mPoll;
  // Fires while a connection has a time limit to keep.
  Descriptor mTimer TEMBRA_GUARDED_BY(gPortsLock);
  bool mTimerArmed TEMBRA_GUARDED_BY(gPortsLock) = false;
  Connections mConnections TEMBRA_GUARDED_BY(gPortsLock);
  CFMessagePortPeerCallBack mPeerCallout TEMBRA_GUARDED_BY(gPortsLock) = nullptr;
  CFRunLoopSourceRef mSource TEMBRA_GUARDED_BY(gPortsLock) = nullptr;  // not retained
  dispatch_queue_t mQueue TEMBRA_GUARDED_BY(gPortsLock) = nullptr;
  int mDelivering TEMBRA_GUARDED_BY(gPortsLock) = 0;
  uint32_t mDeliveries TEMBRA_GUARDED_BY(gPortsLock) = 0;
  // Invalidate has made its last callback.
  bool mTornDown TEMBRA_GUARDED_BY(gPortsLock) = false;
  // The queue of connections could not be emptied for want of a descriptor.
  bool mStalled TEMBRA_GUARDED_BY(gPortsLock) = false;
  bool mInfoReleased = false;
};

}  // namespace tembra::ports
