#include "ports/RemotePort.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <algorithm>
#include <new>

#include "base/MonotonicTime.h"
#include "base/RuntimeDirectory.h"
#include "ports/PortNames.h"
#include "ports/PortService.h"
#include "ports/ReceiveBuffer.h"

namespace tembra::ports {
namespace {

using Names = std::unordered_map<std::string, RemotePort*>;

// The valid remote ports by name; not retained.
Names& RemoteNames() TEMBRA_REQUIRES(gPortsLock) {
  static Names* sNames = new Names;
  return *sNames;
}

// A connected socket whose owner is of this user or root and has been greeted.
Descriptor Connect(const std::string& inKey) {
  Descriptor directory = OpenRuntimeDirectory("ports");
  if (!directory) return {};
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  // A name in the directory may be longer than an address: its descriptor's path fits.
  Descriptor file(
      openat(directory.Get(), EncodePortName(inKey).c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
  struct stat status;
  if (!file || fstat(file.Get(), &status) != 0 || !S_ISSOCK(status.st_mode)) return {};
  snprintf(address.sun_path, sizeof address.sun_path, "/proc/self/fd/%d", file.Get());

  Descriptor socket(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (!socket) return {};
  setsockopt(socket.Get(), SOL_SOCKET, SO_SNDBUF, &kSendBuffer, sizeof kSendBuffer);
  // Not waited for: an owner that accepts nothing has a short queue of connections.
  if (connect(socket.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) return {};
  CFMessagePortPeer peer;
  if (!IsTrustedPeer(socket.Get(), peer)) return {};
  Header hello = MakeHeader(Kind::kHello, 0, 0, 0, 0);
  if (send(socket.Get(), &hello, sizeof hello, MSG_DONTWAIT | MSG_NOSIGNAL) < 0) return {};
  return socket;
}

void Nothing(void*) {}

}  // namespace

RemotePort::RemotePort(CFStringRef inName, std::string inKey, Descriptor inSocket)
    : __CFMessagePort(inName), mKey(std::move(inKey)), mSocket(std::move(inSocket)) {
  Register();
}

RemotePort::~RemotePort() {
  {
    MutexLock lock(gPortsLock);
    auto found = RemoteNames().find(mKey);
    if (found != RemoteNames().end() && found->second == this) RemoteNames().erase(found);
    if (mSocket) PortService::Unwatch(mSocket.Get());
  }
  Unregister();
}

RemotePort* RemotePort::Create(CFAllocatorRef inAllocator, CFStringRef inName) {
  std::string key;
  if (!GetPortName(inName, key)) return nullptr;
  RemotePort* port = nullptr;
  {
    MutexLock lock(gPortsLock);
    auto found = RemoteNames().find(key);
    if (found != RemoteNames().end() && found->second->IsValid() && found->second->TryRetain()) {
      port = found->second;
    }
  }
  if (port) {
    if (!port->PeerIsGone()) return port;
    // Its owner is dead, the service thread just does not know yet.
    port->Invalidate();
    CFRelease(port);
  }

  Descriptor socket = Connect(key);
  if (!socket) return nullptr;
  const int descriptor = socket.Get();
  port = cf::Create<RemotePort>(inAllocator, inName, key, std::move(socket));
  if (!port) return nullptr;
  RemotePort* other = nullptr;
  bool watched = true;
  {
    MutexLock lock(gPortsLock);
    RemotePort*& place = RemoteNames()[key];
    // Two threads may have come as far; one port stays.
    if (place && place->IsValid() && place->TryRetain()) {
      other = place;
    } else {
      place = port;
      watched = PortService::Watch(descriptor, EPOLLIN | EPOLLRDHUP, port->mNumber);
    }
  }
  if (!other && watched) return port;
  CFRelease(port);
  return other;
}

bool RemotePort::PeerIsGone() const {
  pollfd poll{mSocket.Get(), POLLRDHUP, 0};
  return ::poll(&poll, 1, 0) > 0 && (poll.revents & (POLLRDHUP | POLLHUP | POLLERR)) != 0;
}

void RemotePort::Invalidate() {
  if (!mValid.exchange(false, std::memory_order_acq_rel)) return;
  Retain();
  CFMessagePortInvalidationCallBack callout;
  {
    MutexLock lock(gPortsLock);
    auto found = RemoteNames().find(mKey);
    if (found != RemoteNames().end() && found->second == this) RemoteNames().erase(found);
    if (mSocket) {
      PortService::Unwatch(mSocket.Get());
      shutdown(mSocket.Get(), SHUT_RDWR);
    }
    for (auto& [sequence, waiter] : mWaiters) waiter->Wake();
    mInvalidated = true;
    callout = mInvalidation;
  }
  if (callout) callout(this, nullptr);
  Release();
}

void RemotePort::ForgetParent() {
  mSocket.Reset();
  mWaiters.clear();
}

void RemotePort::ServiceReady(uint32_t) {
  bool alive;
  {
    MutexLock lock(gPortsLock);
    if (!IsValid()) return;
    alive = ReceiveReply();
  }
  if (!alive) Invalidate();
}

bool RemotePort::ReceiveReply() {
  ssize_t size = recv(mSocket.Get(), ReceiveBuffer(), kReceiveBufferSize, MSG_TRUNC);
  if (size < 0) return errno == EAGAIN || errno == EINTR || errno == ECONNRESET;
  if (size == 0) return false;
  Header header;
  if (static_cast<size_t>(size) > kReceiveBufferSize ||
      !DecodeHeader(ReceiveBuffer(), static_cast<size_t>(size), header) ||
      static_cast<Kind>(header.kind) != Kind::kReply) {
    Count(mCounters.malformed);
    return false;
  }
  auto found = mWaiters.find(header.sequence);
  // Too late: the sender has given up.
  if (found == mWaiters.end() || found->second->done) return true;
  Waiter& waiter = *found->second;
  waiter.done = true;
  waiter.failed = (header.flags & kFailed) != 0;
  if (header.flags & kHasData) {
    waiter.reply =
        CFDataCreate(nullptr, ReceiveBuffer() + sizeof header, static_cast<CFIndex>(header.length));
    waiter.failed = waiter.reply == nullptr;
  }
  waiter.Wake();
  return true;
}

void RemotePort::Waiter::Wake() const {
  CFRunLoopSourceSignal(source);
  CFRunLoopWakeUp(loop);
}

SInt32 RemotePort::Send(Kind inKind, SInt32 inIdentifier, CFDataRef inData, uint64_t inSequence,
                        double inTimeout) {
  if (!IsValid()) return kCFMessagePortIsInvalid;
  const size_t length = inData ? static_cast<size_t>(CFDataGetLength(inData)) : 0;
  if (length > kMaxBody) {
    Count(mCounters.sendErrors);
    return kCFMessagePortTransportError;
  }
  Header header = MakeHeader(inKind, inIdentifier, inData ? kHasData : 0, inSequence, length);
  iovec parts[2] = {
      {&header, sizeof header},
      {inData ? const_cast<UInt8*>(CFDataGetBytePtr(inData)) : nullptr, length},
  };
  msghdr message{};
  message.msg_iov = parts;
  message.msg_iovlen = length ? 2 : 1;

  int64_t deadline = -1;
  while (sendmsg(mSocket.Get(), &message, MSG_DONTWAIT | MSG_NOSIGNAL) < 0) {
    if (errno == EINTR) continue;
    if (errno == EAGAIN) {
      if (inTimeout > 0) {
        const int64_t now = MonotonicNanos();
        if (deadline < 0) deadline = now + NanosFromSeconds(inTimeout);
        if (now < deadline) {
          const int64_t nanos = deadline - now;
          const timespec rest{nanos / kNanosPerSecond, nanos % kNanosPerSecond};
          pollfd poll{mSocket.Get(), POLLOUT, 0};
          ppoll(&poll, 1, &rest, nullptr);
          continue;
        }
      }
      Count(mCounters.queueFull);
      return kCFMessagePortSendTimeout;
    }
    Count(mCounters.sendErrors);
    // The service thread sees the same and invalidates the port.
    const bool dead = errno == EPIPE || errno == ECONNRESET || errno == ENOTCONN;
    return dead ? kCFMessagePortIsInvalid : kCFMessagePortTransportError;
  }
  Count(mCounters.sent);
  Count(mCounters.sentBytes, length);
  return kCFMessagePortSuccess;
}

SInt32 RemotePort::SendAndWait(SInt32 inIdentifier, CFDataRef inData, double inSendTimeout,
                               double inReceiveTimeout, CFStringRef inMode, CFDataRef* outReply) {
  const uint64_t sequence = mSequence.fetch_add(1, std::memory_order_relaxed) + 1;
  CFRunLoopSourceContext context{};
  context.perform = Nothing;
  cf::Owned<CFRunLoopSourceRef> source(CFRunLoopSourceCreate(nullptr, 0, &context));
  Waiter waiter{CFRunLoopGetCurrent(), source};
  if (!source || !waiter.loop) return kCFMessagePortTransportError;
  try {
    MutexLock lock(gPortsLock);
    mWaiters[sequence] = &waiter;
  } catch (const std::bad_alloc&) {
    return kCFMessagePortTransportError;
  }
  SInt32 result = Send(Kind::kRequest, inIdentifier, inData, sequence, inSendTimeout);

  bool stopped = false;
  if (result == kCFMessagePortSuccess) {
    CFRunLoopAddSource(waiter.loop, source, inMode);
    const int64_t deadline = MonotonicNanos() + NanosFromSeconds(std::max(inReceiveTimeout, 0.0));
    while (true) {
      {
        MutexLock lock(gPortsLock);
        if (waiter.done || !IsValid()) break;
      }
      const int64_t left = deadline - MonotonicNanos();
      const double seconds = static_cast<double>(left) * 1e-9;
      // A stop is meant for whoever runs the loop around this call.
      if (CFRunLoopRunInMode(inMode, seconds, true) == kCFRunLoopRunStopped) stopped = true;
      if (left <= 0) break;
    }
    CFRunLoopRemoveSource(waiter.loop, source, inMode);
  }
  {
    MutexLock lock(gPortsLock);
    mWaiters.erase(sequence);
  }
  if (stopped) CFRunLoopStop(waiter.loop);
  if (result != kCFMessagePortSuccess) return result;
  if (waiter.done && !waiter.failed) {
    if (outReply) {
      *outReply = waiter.reply;
    } else if (waiter.reply) {
      CFRelease(waiter.reply);
    }
    return kCFMessagePortSuccess;
  }
  if (waiter.done) return kCFMessagePortTransportError;
  return IsValid() ? kCFMessagePortReceiveTimeout : kCFMessagePortBecameInvalidError;
}

}  // namespace tembra::ports
