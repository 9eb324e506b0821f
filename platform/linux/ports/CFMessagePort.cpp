#include <CoreFoundation/CFMessagePort.h>
#include <CoreFoundation/CFMessagePortPriv.h>

#include "ports/LocalPort.h"
#include "ports/RemotePort.h"

using tembra::cf::Guarded;
using tembra::ports::Kind;
using tembra::ports::LocalPort;
using tembra::ports::RemotePort;

namespace {

LocalPort* AsLocal(CFMessagePortRef inPort) {
  return inPort->IsRemote() ? nullptr : static_cast<LocalPort*>(inPort);
}

}  // namespace

CFTypeID CFMessagePortGetTypeID(void) {
  return tembra::cf::kTypeMessagePort;
}

CFMessagePortRef CFMessagePortCreateLocal(CFAllocatorRef allocator, CFStringRef name,
                                          CFMessagePortCallBack callout,
                                          CFMessagePortContext* context, Boolean* shouldFreeInfo) {
  CFMessagePortRef port = nullptr;
  if (!context || context->version == 0) {
    port = Guarded([&]() -> CFMessagePortRef {
      return LocalPort::Create(allocator, name, callout,
                               context ? *context : CFMessagePortContext{});
    });
  }
  if (shouldFreeInfo) *shouldFreeInfo = port == nullptr;
  return port;
}

CFMessagePortRef CFMessagePortCreateRemote(CFAllocatorRef allocator, CFStringRef name) {
  return Guarded([&]() -> CFMessagePortRef { return RemotePort::Create(allocator, name); });
}

Boolean CFMessagePortIsRemote(CFMessagePortRef ms) {
  return ms->IsRemote();
}

CFStringRef CFMessagePortGetName(CFMessagePortRef ms) {
  return ms->mName;
}

void CFMessagePortGetContext(CFMessagePortRef ms, CFMessagePortContext* context) {
  if (context->version == 0) *context = ms->mContext;
}

void CFMessagePortInvalidate(CFMessagePortRef ms) {
  ms->Invalidate();
}

Boolean CFMessagePortIsValid(CFMessagePortRef ms) {
  return ms->IsValid();
}

CFMessagePortInvalidationCallBack CFMessagePortGetInvalidationCallBack(CFMessagePortRef ms) {
  tembra::MutexLock lock(tembra::ports::gPortsLock);
  return ms->mInvalidation;
}

void CFMessagePortSetInvalidationCallBack(CFMessagePortRef ms,
                                          CFMessagePortInvalidationCallBack callout) {
  ms->SetInvalidationCallBack(callout);
}

SInt32 CFMessagePortSendRequest(CFMessagePortRef remote, SInt32 msgid, CFDataRef data,
                                CFTimeInterval sendTimeout, CFTimeInterval rcvTimeout,
                                CFStringRef replyMode, CFDataRef* returnData) {
  if (returnData) *returnData = nullptr;
  if (!remote->IsRemote()) return kCFMessagePortTransportError;
  auto* port = static_cast<RemotePort*>(remote);
  if (!replyMode) return port->Send(Kind::kMessage, msgid, data, 0, sendTimeout);
  // What runs on the loop meanwhile may give the port up.
  const auto held = tembra::cf::Owned<CFMessagePortRef>::Retained(remote);
  return port->SendAndWait(msgid, data, sendTimeout, rcvTimeout, replyMode, returnData);
}

CFRunLoopSourceRef CFMessagePortCreateRunLoopSource(CFAllocatorRef allocator,
                                                    CFMessagePortRef local, CFIndex order) {
  LocalPort* port = AsLocal(local);
  if (!port) return nullptr;
  return Guarded([&] { return port->CreateSource(allocator, order); });
}

void CFMessagePortSetDispatchQueue(CFMessagePortRef ms, dispatch_queue_t queue) {
  if (LocalPort* port = AsLocal(ms)) port->SetQueue(queue);
}

Boolean CFMessagePortSetPeerCallBack(CFMessagePortRef local, CFMessagePortPeerCallBack callout) {
  LocalPort* port = AsLocal(local);
  if (port) port->SetPeerCallBack(callout);
  return port != nullptr;
}

Boolean CFMessagePortGetCurrentPeer(CFMessagePortPeer* outPeer) {
  const CFMessagePortPeer* peer = LocalPort::CurrentPeer();
  if (peer) *outPeer = *peer;
  return peer != nullptr;
}

Boolean CFMessagePortClosePeer(CFMessagePortRef local, UInt64 connection) {
  LocalPort* port = AsLocal(local);
  return port && port->ClosePeer(connection);
}

void CFMessagePortGetStatistics(CFMessagePortRef ms, CFMessagePortStatistics* outStatistics) {
  const auto read = [](const std::atomic<uint64_t>& inCounter) -> UInt64 {
    return inCounter.load(std::memory_order_relaxed);
  };
  const auto& counters = ms->mCounters;
  outStatistics->accepted = read(counters.accepted);
  outStatistics->refusedUser = read(counters.refusedUser);
  outStatistics->refusedLimit = read(counters.refusedLimit);
  outStatistics->refusedNoFile = read(counters.refusedNoFile);
  outStatistics->closed = read(counters.closed);
  outStatistics->silent = read(counters.silent);
  outStatistics->malformed = read(counters.malformed);
  outStatistics->oversized = read(counters.oversized);
  outStatistics->messages = read(counters.messages);
  outStatistics->bytes = read(counters.bytes);
  outStatistics->replies = read(counters.replies);
  outStatistics->repliesLost = read(counters.repliesLost);
  outStatistics->closedFull = read(counters.closedFull);
  outStatistics->sent = read(counters.sent);
  outStatistics->sentBytes = read(counters.sentBytes);
  outStatistics->queueFull = read(counters.queueFull);
  outStatistics->sendErrors = read(counters.sendErrors);
}
