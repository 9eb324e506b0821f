#pragma once

#include <CoreFoundation/CFMessagePortPriv.h>
#include <CoreFoundation/CoreFoundation.h>

#include <atomic>
#include <functional>
#include <memory>

namespace tembra {

// A local message port on the server's run loop that tells who speaks. After its end no function
// of its owner is called any more, also if a delivery was already on its way.
//
// Thread: the run loop's. Ownership: the port. Failure: Create answers null if the name is taken or
// no port can be made.
class ServerPort {
 public:
  struct Handler {
    // The data lives as long as the call.
    std::function<void(SInt32 inID, CFDataRef inData, const CFMessagePortPeer& inPeer)> mMessage;
    std::function<void(const CFMessagePortPeer& inPeer)> mOpened;
    std::function<void(const CFMessagePortPeer& inPeer)> mClosed;
  };

  // Messages come only when Schedule was called.
  static std::unique_ptr<ServerPort> Create(CFStringRef inName, Handler inHandler);
  ~ServerPort();
  ServerPort(const ServerPort&) = delete;
  ServerPort& operator=(const ServerPort&) = delete;

  void Schedule(CFRunLoopRef inLoop);
  void ClosePeer(UInt64 inConnection) { CFMessagePortClosePeer(mPort, inConnection); }
  CFMessagePortStatistics GetStatistics() const;

 private:
  // What the port holds of its owner; outlives it if need be.
  struct Link {
    std::atomic<int> mReferences{1};
    std::shared_ptr<Handler> mHandler;  // null after the end
  };

  ServerPort() = default;
  static const void* RetainLink(const void* inLink);
  static void ReleaseLink(const void* inLink);
  static CFDataRef HandleMessage(CFMessagePortRef inPort, SInt32 inID, CFDataRef inData,
                                 void* inLink);
  static void HandlePeer(CFMessagePortRef inPort, CFMessagePortPeerEvent inEvent,
                         const CFMessagePortPeer* inPeer, void* inLink);

  CFMessagePortRef mPort = nullptr;
  CFRunLoopSourceRef mSource = nullptr;
  Link* mLink = nullptr;
};

}  // namespace tembra
