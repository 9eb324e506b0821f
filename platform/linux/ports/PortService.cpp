#include "ports/PortService.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/epoll.h>

#include "base/Descriptor.h"
#include "base/ServiceThread.h"

namespace tembra::ports {
namespace {

constexpr int kServiceEvents = 32;

// The thread's epoll set; negative until it runs.
int sPoll TEMBRA_GUARDED_BY(gPortsLock) = -1;

void Serve(void* inPoll) {
  const int poll = static_cast<int>(reinterpret_cast<intptr_t>(inPoll));
  while (true) {
    epoll_event events[kServiceEvents];
    const int count = epoll_wait(poll, events, kServiceEvents, -1);
    if (count < 0 && errno != EINTR) {
      // Somebody closed every descriptor of the process, this one too: not ours any longer,
      // whatever it is now. The next port gets a new thread.
      MutexLock lock(gPortsLock);
      if (sPoll == poll) sPoll = -1;
      return;
    }
    for (int i = 0; i < count; ++i) {
      __CFMessagePort* port = __CFMessagePort::CopyByNumber(events[i].data.u64);
      if (!port) continue;
      port->ServiceReady(events[i].events);
      CFRelease(port);
    }
  }
}

bool Start() TEMBRA_REQUIRES(gPortsLock) {
  if (sPoll >= 0) return true;
  Descriptor poll(epoll_create1(EPOLL_CLOEXEC));
  if (!poll) return false;
  auto* context = reinterpret_cast<void*>(static_cast<intptr_t>(poll.Get()));
  if (!StartServiceThread("tembra.ports", Serve, context)) return false;
  sPoll = poll.Detach();
  return true;
}

}  // namespace

bool PortService::Watch(int inDescriptor, uint32_t inEvents, uint64_t inNumber) {
  epoll_event event{};
  event.events = inEvents;
  event.data.u64 = inNumber;
  if (!Start()) return false;
  if (epoll_ctl(sPoll, EPOLL_CTL_ADD, inDescriptor, &event) == 0) return true;
  // The set may have been closed while its thread sleeps, which does not hear of it.
  const bool isGone = errno == EINVAL || (errno == EBADF && fcntl(inDescriptor, F_GETFD) >= 0);
  if (!isGone) return false;
  sPoll = -1;
  return Start() && epoll_ctl(sPoll, EPOLL_CTL_ADD, inDescriptor, &event) == 0;
}

void PortService::Rearm(int inDescriptor, uint32_t inEvents, uint64_t inNumber) {
  epoll_event event{};
  event.events = inEvents;
  event.data.u64 = inNumber;
  if (sPoll >= 0) epoll_ctl(sPoll, EPOLL_CTL_MOD, inDescriptor, &event);
}

void PortService::Unwatch(int inDescriptor) {
  if (sPoll >= 0) epoll_ctl(sPoll, EPOLL_CTL_DEL, inDescriptor, nullptr);
}

void PortService::ForgetParent() {
  Descriptor(sPoll).Reset();
  sPoll = -1;
}

}  // namespace tembra::ports
