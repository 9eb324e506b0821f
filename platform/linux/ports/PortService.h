#pragma once

#include <cstdint>

#include "ports/MessagePort.h"

namespace tembra::ports {

// A number for a port or a connection; never 0 or 1, never the same twice.
uint64_t NextPortNumber();

// The thread "tembra.ports": reads replies, notices the death of peers, and hands the messages of
// local ports to their dispatch queues. Started at its first use, for the rest of the process, or
// until its epoll set is closed from under it.
class PortService {
 public:
  // The port's ServiceReady is called on the service thread while the descriptor has inEvents, or
  // once until the next Rearm if these hold EPOLLONESHOT. False if there can be no service.
  static bool Watch(int inDescriptor, uint32_t inEvents, uint64_t inNumber)
      TEMBRA_REQUIRES(gPortsLock);
  static void Rearm(int inDescriptor, uint32_t inEvents, uint64_t inNumber)
      TEMBRA_REQUIRES(gPortsLock);
  static void Unwatch(int inDescriptor) TEMBRA_REQUIRES(gPortsLock);

  // In a forked child the parent's thread is not there.
  static void ForgetParent() TEMBRA_REQUIRES(gPortsLock);
};

}  // namespace tembra::ports
