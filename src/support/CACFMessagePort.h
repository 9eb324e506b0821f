#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <dispatch/dispatch.h>

// Purpose: owner of a named port that receives messages.
// Thread: as the platform's port; callbacks come on the run loop or the queue that was set.
// Ownership: owns the port and its run loop source; the queue is borrowed. The destructor
//   invalidates the port, so the invalidation callback must bear to run inside it.
// Units and range: none.
// Failure: a port that cannot be made, or whose name is taken, leaves the object invalid.
class CACFLocalMessagePort {
 public:
  CACFLocalMessagePort(CFStringRef inName, CFMessagePortCallBack inCallBack,
                       CFMessagePortInvalidationCallBack inInvalidationCallBack, void* inInfo);
  virtual ~CACFLocalMessagePort();
  CACFLocalMessagePort(const CACFLocalMessagePort&) = delete;
  CACFLocalMessagePort& operator=(const CACFLocalMessagePort&) = delete;

  bool IsValid() const { return mMessagePort != nullptr; }
  CFMessagePortRef GetMessagePortRef() const { return mMessagePort; }
  // Made on first use and kept; null for an invalid port.
  CFRunLoopSourceRef GetRunLoopSource();
  void SetDispatchQueue(dispatch_queue_t inDispatchQueue);
  dispatch_queue_t GetDispatchQueue() const { return mDispatchQueue; }

 private:
  CFMessagePortRef mMessagePort;
  CFRunLoopSourceRef mRunLoopSource;
  dispatch_queue_t mDispatchQueue;
};

// Purpose: owner of the sending end of a named port.
// Thread: as the platform's port.
// Ownership: as CACFLocalMessagePort.
// Units and range: none.
// Failure: where no port of the name is there, the object is invalid.
class CACFRemoteMessagePort {
 public:
  CACFRemoteMessagePort(CFStringRef inName,
                        CFMessagePortInvalidationCallBack inInvalidationCallBack);
  virtual ~CACFRemoteMessagePort();
  CACFRemoteMessagePort(const CACFRemoteMessagePort&) = delete;
  CACFRemoteMessagePort& operator=(const CACFRemoteMessagePort&) = delete;

  bool IsValid() const { return mMessagePort != nullptr; }
  CFMessagePortRef GetMessagePortRef() const { return mMessagePort; }
  // Made on first use and kept; null for an invalid port.
  CFRunLoopSourceRef GetRunLoopSource();
  void SetDispatchQueue(dispatch_queue_t inDispatchQueue);
  dispatch_queue_t GetDispatchQueue() const { return mDispatchQueue; }

 private:
  CFMessagePortRef mMessagePort;
  CFRunLoopSourceRef mRunLoopSource;
  dispatch_queue_t mDispatchQueue;
};
