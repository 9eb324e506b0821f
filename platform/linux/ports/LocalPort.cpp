#include "ports/LocalPort.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/timerfd.h>

#include <new>

#include "base/MonotonicTime.h"
#include "ports/LocalName.h"
#include "ports/PortService.h"
#include "ports/ReceiveBuffer.h"
#include "runloop/RunLoopSource.h"

namespace tembra::ports {
namespace {

// Keys of the epoll set besides connection numbers, which begin at 2.
constexpr uint64_t kListenerKey = 0;
constexpr uint64_t kTimerKey = 1;

constexpr uint32_t kLooksAtAll = 16;  // one delivery in so many

thread_local const CFMessagePortPeer* tPeer = nullptr;

// Kept open so that a connection can be turned away when no other descriptor is left.
int sSpare TEMBRA_GUARDED_BY(gPortsLock) = -1;

void OpenSpare() TEMBRA_REQUIRES(gPortsLock) {
  if (sSpare < 0) sSpare = open("/dev/null", O_RDONLY | O_CLOEXEC);
}

bool Watch(int inPoll, int inOperation, int inDescriptor, uint32_t inEvents, uint64_t inKey) {
  epoll_event event{};
  event.events = inEvents;
  event.data.u64 = inKey;
  return epoll_ctl(inPoll, inOperation, inDescriptor, &event) == 0;
}

// Whether nothing more can come.
bool HasEnded(int inSocket) {
  pollfd poll{inSocket, POLLRDHUP, 0};
  return ::poll(&poll, 1, 0) > 0 && (poll.revents & (POLLRDHUP | POLLHUP)) != 0;
}

}  // namespace

LocalPort::LocalPort(CFStringRef inName, CFMessagePortCallBack inCallout,
                     const CFMessagePortContext& inContext, Place inPlace)
    : __CFMessagePort(inName),
      mCallout(inCallout),
      mDirectory(std::move(inPlace.directory)),
      mFile(std::move(inPlace.file)),
      mLock(std::move(inPlace.lock)),
      mListener(std::move(inPlace.listener)),
      mPoll(std::move(inPlace.poll)) {
  mContext = inContext;
  if (mContext.retain) mContext.info = const_cast<void*>(mContext.retain(mContext.info));
  {
    MutexLock lock(gPortsLock);
    OpenSpare();
    Watch(mPoll.Get(), EPOLL_CTL_ADD, mListener.Get(), EPOLLIN | EPOLLET, kListenerKey);
  }
  Register();
}

LocalPort::~LocalPort() {
  {
    MutexLock lock(gPortsLock);
    if (IsValid()) RemoveName();
    if (mQueue) PortService::Unwatch(mPoll.Get());
  }
  Unregister();
  ReleaseInfo();
  if (mQueue) dispatch_release(mQueue);
}

LocalPort* LocalPort::Create(CFAllocatorRef inAllocator, CFStringRef inName,
                             CFMessagePortCallBack inCallout,
                             const CFMessagePortContext& inContext) {
  std::string name;
  Place place;
  if (!GetPortName(inName, name) || !ClaimName(name, place)) return nullptr;
  auto directory = place.directory;
  const std::string file = place.file;
  LocalPort* port =
      cf::Create<LocalPort>(inAllocator, inName, inCallout, inContext, std::move(place));
  if (!port) RemoveClaimedName(directory->Get(), file);
  return port;
}

const CFMessagePortPeer* LocalPort::CurrentPeer() {
  return tPeer;
}

void LocalPort::RemoveName() {
  if (mLock) RemoveClaimedName(mDirectory->Get(), mFile);
}

void LocalPort::ReleaseInfo() {
  if (std::exchange(mInfoReleased, true)) return;
  if (mContext.release) mContext.release(mContext.info);
}

void LocalPort::Invalidate() {
  if (!mValid.exchange(false, std::memory_order_acq_rel)) return;
  Retain();
  Connections ended;
  CFMessagePortInvalidationCallBack callout;
  CFRunLoopSourceRef source = nullptr;
  dispatch_queue_t queue;
  {
    MutexLock lock(gPortsLock);
    if (mGeneration == ForkGeneration()) RemoveName();
    mListener.Reset();
    mLock.Reset();
    mTimer.Reset();
    ended.swap(mConnections);
    Count(mCounters.closed, ended.size());
    queue = std::exchange(mQueue, nullptr);
    if (queue) PortService::Unwatch(mPoll.Get());
    if (mSource && mSource->TryRetain()) source = mSource;
    mInvalidated = true;
    callout = mInvalidation;
  }
  for (auto& [number, connection] : ended) {
    connection.socket.Reset();
    if (connection.spoken) TellPeer(kCFMessagePortPeerClosed, connection.peer);
  }
  if (callout) callout(this, mContext.info);
  if (source) {
    CFRunLoopSourceInvalidate(source);
    CFRelease(source);
  }
  if (queue) dispatch_release(queue);
  bool release;
  {
    // A callback that runs just now still uses the info and releases it when it is through.
    MutexLock lock(gPortsLock);
    mTornDown = true;
    release = mDelivering == 0;
  }
  if (release) ReleaseInfo();
  Release();
}

void LocalPort::ForgetParent() {
  mLock.Reset();
  mListener.Reset();
  mPoll.Reset();
  mTimer.Reset();
  mConnections.clear();
}

// Delivery

CFRunLoopSourceRef LocalPort::CreateSource(CFAllocatorRef inAllocator, CFIndex inOrder) {
  int poll;
  {
    MutexLock lock(gPortsLock);
    if (!IsValid()) return nullptr;
    if (mSource && mSource->TryRetain()) return mSource;
    poll = mPoll.Get();
  }
  auto* hold = new SourceHold{this, nullptr};
  Retain();
  CFRunLoopSourceContext context{};
  context.info = hold;
  context.release = ReleaseSourceHold;
  context.perform = Perform;
  CFRunLoopSourceRef source = CreateDescriptorSource(inAllocator, inOrder, poll, context);
  if (!source) {
    ReleaseSourceHold(hold);
    return nullptr;
  }
  CFRunLoopSourceRef other = nullptr;
  {
    MutexLock lock(gPortsLock);
    hold->source = source;
    // Another thread may have been faster, or have ended the port.
    if (mSource && mSource->TryRetain()) {
      other = mSource;
    } else if (IsValid()) {
      mSource = source;
      return source;
    }
  }
  CFRelease(source);
  return other;
}

void LocalPort::Perform(void* inHold) {
  static_cast<SourceHold*>(inHold)->port->Deliver();
}

void LocalPort::ReleaseSourceHold(const void* inHold) {
  auto* hold = static_cast<const SourceHold*>(inHold);
  {
    MutexLock lock(gPortsLock);
    if (hold->source && hold->port->mSource == hold->source) hold->port->mSource = nullptr;
  }
  CFRelease(hold->port);
  delete hold;
}

void LocalPort::SetQueue(dispatch_queue_t inQueue) {
  dispatch_queue_t old;
  {
    MutexLock lock(gPortsLock);
    if (!IsValid()) return;
    if (inQueue) dispatch_retain(inQueue);
    old = std::exchange(mQueue, inQueue);
    if (inQueue && !old) {
      PortService::Watch(mPoll.Get(), EPOLLIN | EPOLLONESHOT, mNumber);
    } else if (old && !inQueue) {
      PortService::Unwatch(mPoll.Get());
    }
  }
  if (old) dispatch_release(old);
}

void LocalPort::ServiceReady(uint32_t) {
  dispatch_queue_t queue;
  {
    MutexLock lock(gPortsLock);
    queue = mQueue;
    if (!queue) return;
    dispatch_retain(queue);
  }
  Retain();
  dispatch_async_f(queue, this, DeliverOnQueue);
  dispatch_release(queue);
}

void LocalPort::DeliverOnQueue(void* inPort) {
  auto* port = static_cast<LocalPort*>(inPort);
  bool wanted;
  {
    MutexLock lock(gPortsLock);
    wanted = port->mQueue != nullptr;
  }
  if (wanted) port->Deliver();
  {
    MutexLock lock(gPortsLock);
    if (port->mQueue) {
      PortService::Rearm(port->mPoll.Get(), EPOLLIN | EPOLLONESHOT, port->mNumber);
    }
  }
  CFRelease(port);
}

void LocalPort::Deliver() {
  {
    MutexLock lock(gPortsLock);
    if (!IsValid()) return;
    ++mDelivering;
  }
  if (!ReceiveFromTheOnlyOne()) ReceiveFromAll();
  bool release;
  {
    MutexLock lock(gPortsLock);
    for (auto& [number, connection] : mConnections) {
      if (connection.spoken && !connection.fullSince) continue;
      ArmTimer();
      break;
    }
    release = --mDelivering == 0 && mTornDown;
  }
  if (release) ReleaseInfo();
}

bool LocalPort::ReceiveFromTheOnlyOne() {
  uint64_t number;
  {
    MutexLock lock(gPortsLock);
    if (mConnections.size() != 1 || ++mDeliveries % kLooksAtAll == 0) return false;
    number = mConnections.begin()->first;
  }
  return Receive(number);
}

void LocalPort::ReceiveFromAll() {
  epoll_event events[kMaxEvents];
  const int count = epoll_wait(mPoll.Get(), events, kMaxEvents, 0);
  uint64_t accepted = 0;
  for (int i = 0; i < count && IsValid(); ++i) {
    const uint64_t key = events[i].data.u64;
    if (key == kListenerKey) {
      MutexLock lock(gPortsLock);
      accepted = Accept();
    } else if (key == kTimerKey) {
      MutexLock lock(gPortsLock);
      Sweep();
    } else {
      Receive(key);
    }
  }
  // The first message is sent right after the connection and has usually come with it.
  if (accepted != 0) Receive(accepted);
}

// Connections

uint64_t LocalPort::Accept() {
  mStalled = false;
  uint64_t number = 0;
  // The listener tells of changes only; this makes it tell again of who is left.
  if (AcceptOne(number)) {
    Watch(mPoll.Get(), EPOLL_CTL_MOD, mListener.Get(), EPOLLIN | EPOLLET, kListenerKey);
  }
  return number;
}

bool LocalPort::AcceptOne(uint64_t& outNumber) {
  if (!mListener) return false;
  OpenSpare();
  Descriptor socket(accept4(mListener.Get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
  if (!socket) {
    if (errno == EINTR || errno == ECONNABORTED) return true;
    if (errno != EMFILE && errno != ENFILE) return false;
    if (sSpare < 0) {
      mStalled = true;
      return false;
    }
    ::close(std::exchange(sSpare, -1));
    Descriptor refused(accept4(mListener.Get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    const bool more = static_cast<bool>(refused);
    if (more) Count(mCounters.refusedNoFile);
    refused.Reset();
    OpenSpare();
    return more;
  }
  Connection connection;
  if (!IsTrustedPeer(socket.Get(), connection.peer)) {
    Count(mCounters.refusedUser);
    return true;
  }
  if (mConnections.size() >= kMaxConnections) {
    Count(mCounters.refusedLimit);
    return true;
  }
  setsockopt(socket.Get(), SOL_SOCKET, SO_SNDBUF, &kSendBuffer, sizeof kSendBuffer);
  const uint64_t number = NextPortNumber();
  if (!Watch(mPoll.Get(), EPOLL_CTL_ADD, socket.Get(), EPOLLIN | EPOLLRDHUP, number)) {
    // What is not watched would be deaf and never end.
    Count(mCounters.refusedLimit);
    return true;
  }
  connection.peer.connection = number;
  connection.since = MonotonicNanos();
  connection.socket = std::move(socket);
  try {
    mConnections.emplace(number, std::move(connection));
  } catch (const std::bad_alloc&) {
    Count(mCounters.refusedLimit);
    return true;
  }
  Count(mCounters.accepted);
  outNumber = number;
  return true;
}

void LocalPort::Close(Connections::iterator inConnection) {
  mConnections.erase(inConnection);
  Count(mCounters.closed);
  if (!std::exchange(mStalled, false) || !mListener) return;
  Watch(mPoll.Get(), EPOLL_CTL_MOD, mListener.Get(), EPOLLIN | EPOLLET, kListenerKey);
}

bool LocalPort::ClosePeer(uint64_t inConnection) {
  MutexLock lock(gPortsLock);
  auto found = mConnections.find(inConnection);
  if (found == mConnections.end()) return false;
  // The delivery sees the end like any other.
  return shutdown(found->second.socket.Get(), SHUT_RDWR) == 0;
}

void LocalPort::ArmTimer() {
  if (!mTimer) {
    mTimer.Reset(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK));
    if (!mTimer) return;
    if (!Watch(mPoll.Get(), EPOLL_CTL_ADD, mTimer.Get(), EPOLLIN | EPOLLET, kTimerKey)) {
      mTimer.Reset();
      return;
    }
  } else if (mTimerArmed) {
    return;
  }
  mTimerArmed = true;
  itimerspec quarter{};
  quarter.it_value.tv_nsec = kNanosPerSecond / 4;
  timerfd_settime(mTimer.Get(), 0, &quarter, nullptr);
}

void LocalPort::Sweep() {
  mTimerArmed = false;
  const int64_t now = MonotonicNanos();
  bool waiting = false;
  for (auto& [number, connection] : mConnections) {
    const bool silent = !connection.spoken && now - connection.since >= kFirstMessageNanos;
    const bool full = connection.fullSince && now - connection.fullSince >= kFullQueueNanos;
    if (silent) Count(mCounters.silent);
    if (full) Count(mCounters.closedFull);
    if (silent || full) {
      shutdown(connection.socket.Get(), SHUT_RDWR);
      connection.since = now;
      connection.fullSince = 0;
    }
    waiting = waiting || !connection.spoken || connection.fullSince;
  }
  if (!waiting) mTimer.Reset();
}

// Messages

bool LocalPort::Receive(uint64_t inNumber) {
  Received received;
  {
    MutexLock lock(gPortsLock);
    auto found = mConnections.find(inNumber);
    if (found == mConnections.end() || !Read(found, received)) return false;
  }
  if (received.opened) TellPeer(kCFMessagePortPeerOpened, received.peer);
  if (received.closed) TellPeer(kCFMessagePortPeerClosed, received.peer);
  if (!received.data) return true;
  CFDataRef reply = nullptr;
  {
    const CFMessagePortPeer* outer = std::exchange(tPeer, &received.peer);
    if (mCallout) reply = mCallout(this, received.identifier, received.data, mContext.info);
    tPeer = outer;
  }
  CFRelease(received.data);
  if (received.request) Reply(received, reply);
  if (reply) CFRelease(reply);
  return true;
}

bool LocalPort::Read(Connections::iterator inConnection, Received& outReceived) {
  Connection& connection = inConnection->second;
  iovec part{ReceiveBuffer(), kReceiveBufferSize};
  msghdr message{};
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  const ssize_t size = recvmsg(connection.socket.Get(), &message, MSG_DONTWAIT);
  // A reset says that the peer left replies unread; what it sent before is still to come.
  if (size < 0 && (errno == EAGAIN || errno == EINTR || errno == ECONNRESET)) return false;
  outReceived.peer = connection.peer;
  bool keep = false;
  if (size > 0) {
    keep = Accepts(connection, static_cast<size_t>(size), message.msg_flags, outReceived);
  } else if (size == 0 && !HasEnded(connection.socket.Get())) {
    // An empty packet reads like the end.
    Count(mCounters.malformed);
  }
  if (keep) return true;
  outReceived.closed = connection.spoken;
  Close(inConnection);
  return true;
}

bool LocalPort::Accepts(Connection& ioConnection, size_t inSize, int inFlags,
                        Received& outReceived) {
  if (inFlags & MSG_TRUNC) {
    Count(mCounters.oversized);
    return false;
  }
  Header header;
  // Descriptors that came along found no room and are closed already.
  bool good = !(inFlags & MSG_CTRUNC) && DecodeHeader(ReceiveBuffer(), inSize, header);
  if (good) {
    const auto kind = static_cast<Kind>(header.kind);
    good = kind != Kind::kReply && (kind == Kind::kHello) != ioConnection.spoken;
  }
  if (!good) {
    Count(mCounters.malformed);
    return false;
  }
  if (!ioConnection.spoken) {
    ioConnection.spoken = outReceived.opened = true;
    return true;
  }
  outReceived.identifier = header.identifier;
  outReceived.sequence = header.sequence;
  outReceived.request = static_cast<Kind>(header.kind) == Kind::kRequest;
  outReceived.data =
      CFDataCreate(nullptr, ReceiveBuffer() + sizeof header, static_cast<CFIndex>(header.length));
  Count(mCounters.messages);
  Count(mCounters.bytes, header.length);
  return true;
}

void LocalPort::Reply(const Received& inRequest, CFDataRef inReply) {
  size_t length = inReply ? static_cast<size_t>(CFDataGetLength(inReply)) : 0;
  uint32_t flags = inReply ? kHasData : 0;
  if (length > kMaxBody) {
    length = 0;
    flags = kFailed;
  }
  Header header = MakeHeader(Kind::kReply, inRequest.identifier, flags, inRequest.sequence, length);
  iovec parts[2] = {
      {&header, sizeof header},
      {length ? const_cast<UInt8*>(CFDataGetBytePtr(inReply)) : nullptr, length},
  };
  msghdr message{};
  message.msg_iov = parts;
  message.msg_iovlen = length ? 2 : 1;

  MutexLock lock(gPortsLock);
  auto found = mConnections.find(inRequest.peer.connection);
  if (found == mConnections.end()) return;
  Connection& connection = found->second;
  if (sendmsg(connection.socket.Get(), &message, MSG_DONTWAIT | MSG_NOSIGNAL) >= 0) {
    connection.fullSince = 0;
    Count(mCounters.replies);
    return;
  }
  Count(mCounters.repliesLost);
  if (errno == EAGAIN && !connection.fullSince) connection.fullSince = MonotonicNanos();
}

void LocalPort::TellPeer(CFMessagePortPeerEvent inEvent, const CFMessagePortPeer& inPeer) {
  CFMessagePortPeerCallBack callout;
  {
    MutexLock lock(gPortsLock);
    callout = mPeerCallout;
  }
  if (callout) callout(this, inEvent, &inPeer, mContext.info);
}

void LocalPort::SetPeerCallBack(CFMessagePortPeerCallBack inCallout) {
  MutexLock lock(gPortsLock);
  mPeerCallout = inCallout;
}

}  // namespace tembra::ports
