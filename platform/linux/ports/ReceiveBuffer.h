#pragma once

#include "ports/MessagePort.h"
#include "ports/PortWire.h"

namespace tembra::ports {

// Every packet of the process is read into one buffer, under the lock, and copied from there into
// an object of its own length: no allocation of the longest possible message for each short one.
constexpr size_t kReceiveBufferSize = sizeof(Header) + kMaxBody;

inline uint8_t* ReceiveBuffer() TEMBRA_REQUIRES(gPortsLock) {
  static uint8_t sBuffer[kReceiveBufferSize];
  return sBuffer;
}

}  // namespace tembra::ports
