#include "ports/MessagePort.h"

#include <sys/socket.h>
#include <unistd.h>

#include <unordered_map>

#include "base/ExitLock.h"
#include "ports/PortService.h"

using tembra::MutexLock;
using tembra::ports::gPortsLock;

namespace tembra::ports {

Mutex gPortsLock;

namespace {

using Table = std::unordered_map<uint64_t, __CFMessagePort*>;

// Never destroyed: other threads may still use ports while the process exits.
Table& Ports() TEMBRA_REQUIRES(gPortsLock) {
  static Table* sPorts = new Table;
  return *sPorts;
}

std::atomic<uint64_t> sNextNumber{2};

void LockForFork() TEMBRA_NO_THREAD_SAFETY_ANALYSIS {
  gPortsLock.lock();
}

void UnlockInParent() TEMBRA_NO_THREAD_SAFETY_ANALYSIS {
  gPortsLock.unlock();
}

void UnlockInChild() TEMBRA_NO_THREAD_SAFETY_ANALYSIS {
  for (auto& [number, port] : Ports()) port->ForgetParent();
  PortService::ForgetParent();
  gPortsLock.unlock();
}

__attribute__((destructor)) void CleanUpAtExit() TEMBRA_NO_THREAD_SAFETY_ANALYSIS {
  // A thread that was stopped in the middle keeps its lock; then the names stay as leftovers.
  if (!LockWithin(gPortsLock, kExitPatience)) return;
  for (auto& [number, port] : Ports()) {
    if (port->IsValid()) port->CleanUpAtExit();
  }
  gPortsLock.unlock();
}

}  // namespace

uint64_t NextPortNumber() {
  return sNextNumber.fetch_add(1, std::memory_order_relaxed);
}

bool GetPortName(CFStringRef inName, std::string& outName) {
  if (!inName) return false;
  CFIndex length = CFStringGetLength(inName);
  if (length < 1 || length > 128) return false;
  UInt8 bytes[128 * 3];
  CFIndex used = 0;
  CFIndex converted = CFStringGetBytes(inName, CFRangeMake(0, length), kCFStringEncodingUTF8, 0,
                                       false, bytes, sizeof bytes, &used);
  if (converted != length) return false;
  outName.assign(reinterpret_cast<char*>(bytes), static_cast<size_t>(used));
  return true;
}

bool IsTrustedPeer(int inSocket, CFMessagePortPeer& outPeer) {
  ucred credentials{};
  socklen_t size = sizeof credentials;
  if (getsockopt(inSocket, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0) return false;
  outPeer.uid = credentials.uid;
  outPeer.pid = credentials.pid;
  return credentials.uid == 0 || credentials.uid == geteuid();
}

}  // namespace tembra::ports

using tembra::ports::Ports;

__CFMessagePort::__CFMessagePort(CFStringRef inName)
    : mName(CFStringCreateCopy(nullptr, inName)),
      mNumber(tembra::ports::NextPortNumber()),
      mGeneration(tembra::ForkGeneration()) {
  static const bool sRegistered = [] {
    tembra::RegisterForkHooks(
        tembra::ForkOrder::kPorts,
        {tembra::ports::LockForFork, tembra::ports::UnlockInParent, tembra::ports::UnlockInChild});
    return true;
  }();
  (void)sRegistered;
}

__CFMessagePort::~__CFMessagePort() = default;

void __CFMessagePort::Register() {
  MutexLock lock(gPortsLock);
  Ports()[mNumber] = this;
}

void __CFMessagePort::Unregister() {
  MutexLock lock(gPortsLock);
  Ports().erase(mNumber);
}

__CFMessagePort* __CFMessagePort::CopyByNumber(uint64_t inNumber) {
  MutexLock lock(gPortsLock);
  auto found = Ports().find(inNumber);
  if (found == Ports().end() || !found->second->TryRetain()) return nullptr;
  return found->second;
}

void __CFMessagePort::SetInvalidationCallBack(CFMessagePortInvalidationCallBack inCallout) {
  {
    MutexLock lock(gPortsLock);
    mInvalidation = inCallout;
    if (!mInvalidated) return;
  }
  if (inCallout) inCallout(this, mContext.info);
}
