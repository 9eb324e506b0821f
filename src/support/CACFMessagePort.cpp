#include "support/CACFMessagePort.h"

namespace {

CFRunLoopSourceRef MakeOnFirstUse(CFMessagePortRef inPort, CFRunLoopSourceRef& ioSource) {
  if (ioSource == nullptr && inPort != nullptr) {
    ioSource = CFMessagePortCreateRunLoopSource(kCFAllocatorDefault, inPort, 0);
  }
  return ioSource;
}

// The source goes first, so that the port's invalidation finds none that somebody still counts on.
void ReleaseAll(CFMessagePortRef& ioPort, CFRunLoopSourceRef& ioSource) {
  if (ioSource != nullptr) {
    CFRelease(ioSource);
    ioSource = nullptr;
  }
  if (ioPort != nullptr) {
    CFMessagePortInvalidate(ioPort);
    CFRelease(ioPort);
    ioPort = nullptr;
  }
}

}  // namespace

CACFLocalMessagePort::CACFLocalMessagePort(CFStringRef inName, CFMessagePortCallBack inCallBack,
                                           CFMessagePortInvalidationCallBack inInvalidationCallBack,
                                           void* inInfo)
    : mMessagePort(nullptr), mRunLoopSource(nullptr), mDispatchQueue(nullptr) {
  CFMessagePortContext theContext = {0, inInfo, nullptr, nullptr, nullptr};
  mMessagePort =
      CFMessagePortCreateLocal(kCFAllocatorDefault, inName, inCallBack, &theContext, nullptr);
  if (mMessagePort != nullptr && inInvalidationCallBack != nullptr) {
    CFMessagePortSetInvalidationCallBack(mMessagePort, inInvalidationCallBack);
  }
}

CACFLocalMessagePort::~CACFLocalMessagePort() {
  ReleaseAll(mMessagePort, mRunLoopSource);
}

CFRunLoopSourceRef CACFLocalMessagePort::GetRunLoopSource() {
  return MakeOnFirstUse(mMessagePort, mRunLoopSource);
}

void CACFLocalMessagePort::SetDispatchQueue(dispatch_queue_t inDispatchQueue) {
  mDispatchQueue = inDispatchQueue;
  if (mMessagePort != nullptr) CFMessagePortSetDispatchQueue(mMessagePort, inDispatchQueue);
}

CACFRemoteMessagePort::CACFRemoteMessagePort(
    CFStringRef inName, CFMessagePortInvalidationCallBack inInvalidationCallBack)
    : mMessagePort(CFMessagePortCreateRemote(kCFAllocatorDefault, inName)),
      mRunLoopSource(nullptr),
      mDispatchQueue(nullptr) {
  if (mMessagePort != nullptr && inInvalidationCallBack != nullptr) {
    CFMessagePortSetInvalidationCallBack(mMessagePort, inInvalidationCallBack);
  }
}

CACFRemoteMessagePort::~CACFRemoteMessagePort() {
  ReleaseAll(mMessagePort, mRunLoopSource);
}

CFRunLoopSourceRef CACFRemoteMessagePort::GetRunLoopSource() {
  return MakeOnFirstUse(mMessagePort, mRunLoopSource);
}

void CACFRemoteMessagePort::SetDispatchQueue(dispatch_queue_t inDispatchQueue) {
  mDispatchQueue = inDispatchQueue;
  if (mMessagePort != nullptr) CFMessagePortSetDispatchQueue(mMessagePort, inDispatchQueue);
}
