#include "server/ServerPort.h"

#include <utility>

namespace tembra {

std::unique_ptr<ServerPort> ServerPort::Create(CFStringRef inName, Handler inHandler) {
  std::unique_ptr<ServerPort> port(new ServerPort);
  port->mLink = new Link;
  port->mLink->mHandler = std::make_shared<Handler>(std::move(inHandler));
  CFMessagePortContext context = {0, port->mLink, RetainLink, ReleaseLink, nullptr};
  port->mPort =
      CFMessagePortCreateLocal(kCFAllocatorDefault, inName, HandleMessage, &context, nullptr);
  if (port->mPort == nullptr) return nullptr;
  CFMessagePortSetPeerCallBack(port->mPort, HandlePeer);
  return port;
}

ServerPort::~ServerPort() {
  // The handler stays alive while a call of it is under way further up the stack.
  mLink->mHandler.reset();
  if (mSource != nullptr) {
    CFRunLoopSourceInvalidate(mSource);
    CFRelease(mSource);
  }
  if (mPort != nullptr) {
    CFMessagePortInvalidate(mPort);
    CFRelease(mPort);
  }
  ReleaseLink(mLink);
}

void ServerPort::Schedule(CFRunLoopRef inLoop) {
  mSource = CFMessagePortCreateRunLoopSource(kCFAllocatorDefault, mPort, 0);
  if (mSource != nullptr) CFRunLoopAddSource(inLoop, mSource, kCFRunLoopCommonModes);
}

CFMessagePortStatistics ServerPort::GetStatistics() const {
  CFMessagePortStatistics statistics = {};
  CFMessagePortGetStatistics(mPort, &statistics);
  return statistics;
}

const void* ServerPort::RetainLink(const void* inLink) {
  Link* link = static_cast<Link*>(const_cast<void*>(inLink));
  link->mReferences.fetch_add(1, std::memory_order_relaxed);
  return inLink;
}

void ServerPort::ReleaseLink(const void* inLink) {
  Link* link = static_cast<Link*>(const_cast<void*>(inLink));
  if (link->mReferences.fetch_sub(1, std::memory_order_acq_rel) == 1) delete link;
}

CFDataRef ServerPort::HandleMessage(CFMessagePortRef, SInt32 inID, CFDataRef inData, void* inLink) {
  std::shared_ptr<Handler> handler = static_cast<Link*>(inLink)->mHandler;
  CFMessagePortPeer peer = {};
  if (handler != nullptr && inData != nullptr && CFMessagePortGetCurrentPeer(&peer)) {
    handler->mMessage(inID, inData, peer);
  }
  return nullptr;
}

void ServerPort::HandlePeer(CFMessagePortRef, CFMessagePortPeerEvent inEvent,
                            const CFMessagePortPeer* inPeer, void* inLink) {
  std::shared_ptr<Handler> handler = static_cast<Link*>(inLink)->mHandler;
  if (handler == nullptr) return;
  if (inEvent == kCFMessagePortPeerOpened) {
    handler->mOpened(*inPeer);
  } else {
    handler->mClosed(*inPeer);
  }
}

}  // namespace tembra
