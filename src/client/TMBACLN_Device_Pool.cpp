// The devices of this process, for callbacks that arrive after their device has gone.

#include <cstdint>

#include "client/TMBACLN_Device.h"

std::recursive_mutex& TMBACLN_Device::sConnectionMutex = *new std::recursive_mutex;
std::map<int, TMBACLN_Device*>& TMBACLN_Device::devicePool = *new std::map<int, TMBACLN_Device*>;

unsigned long long TMBACLN_Device::addToPool(TMBACLN_Device* inDevice) {
  if (inDevice == nullptr) return 0;
  ConnectionLocker locker(sConnectionMutex);
  static uint64_t sHandle = 0;
  // 0 is never given out.
  if (sHandle == UINT64_MAX) {
    sHandle = 1;
  } else {
    ++sHandle;
  }
  devicePool.emplace(static_cast<int>(static_cast<uint32_t>(sHandle)), inDevice);
  return sHandle;
}

void TMBACLN_Device::removeFromPool(unsigned long long inHandle) {
  if (inHandle == 0) return;
  ConnectionLocker locker(sConnectionMutex);
  devicePool.erase(static_cast<int>(static_cast<uint32_t>(inHandle)));
}

TMBACLN_Device* TMBACLN_Device::getFromPool(unsigned long long inHandle) {
  ConnectionLocker locker(sConnectionMutex);
  const auto found = devicePool.find(static_cast<int>(static_cast<uint32_t>(inHandle)));
  return found != devicePool.end() ? found->second : nullptr;
}

unsigned long long TMBACLN_Device::getHandleFromPool(TMBACLN_Device* inDevice) {
  if (inDevice == nullptr) return 0;
  ConnectionLocker locker(sConnectionMutex);
  for (const auto& [handle, device] : devicePool) {
    if (device == inDevice) return static_cast<unsigned long long>(static_cast<long long>(handle));
  }
  return 0;
}
