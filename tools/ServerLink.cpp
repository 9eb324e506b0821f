#include "tools/ServerLink.h"

#include <unistd.h>

#include <chrono>
#include <thread>

namespace tembra::tools {

namespace {

constexpr CFOptionFlags kDeliverNow = kCFNotificationDeliverImmediately;
constexpr int kClientAdded = 'cadd';

int IntValue(CFDictionaryRef inInfo, CFStringRef inKey) {
  int value = 0;
  if (inInfo == nullptr) return value;
  const void* number = CFDictionaryGetValue(inInfo, inKey);
  if (number != nullptr && CFGetTypeID(number) == CFNumberGetTypeID()) {
    CFNumberGetValue(static_cast<CFNumberRef>(number), kCFNumberIntType, &value);
  }
  return value;
}

}  // namespace

ServerLink::ServerLink()
    : mServerName(CFStringCreateWithFormat(kCFAllocatorDefault, nullptr,
                                           CFSTR("com.tembra.tmbasrv.%u"), getuid())),
      mMarkerName(CFStringCreateWithFormat(kCFAllocatorDefault, nullptr,
                                           CFSTR("com.tembra.tmbaudio.admitted.%d"), getpid())) {
  CFNotificationCenterRef center = CFNotificationCenterGetDistributedCenter();
  CFNotificationCenterAddObserver(center, this, Notified, CFSTR("TMBAudioServerNotification"),
                                  mServerName, CFNotificationSuspensionBehaviorDeliverImmediately);
  CFNotificationCenterAddObserver(center, this, Notified, mMarkerName, nullptr,
                                  CFNotificationSuspensionBehaviorDeliverImmediately);
}

ServerLink::~ServerLink() {
  CFNotificationCenterRemoveEveryObserver(CFNotificationCenterGetDistributedCenter(), this);
  CFRelease(mMarkerName);
  CFRelease(mServerName);
}

bool ServerLink::ServerLives() {
  CFStringRef name = CFStringCreateWithFormat(kCFAllocatorDefault, nullptr,
                                              CFSTR("com.tembra.tmbasrv.%u"), getuid());
  CFMessagePortRef port = CFMessagePortCreateRemote(kCFAllocatorDefault, name);
  CFRelease(name);
  if (port == nullptr) return false;
  CFRelease(port);
  return true;
}

// Notifications are delivered one after the other, to each observer in turn. So when the marker
// that answers "cadd" comes back, the device has done all that "cadd" makes it do.
void ServerLink::Notified(CFNotificationCenterRef inCenter, void* inObserver, CFStringRef inName,
                          const void*, CFDictionaryRef inUserInfo) {
  auto* link = static_cast<ServerLink*>(inObserver);
  if (CFEqual(inName, link->mMarkerName)) {
    link->mAdmitted.store(true, std::memory_order_release);
  } else if (IntValue(inUserInfo, CFSTR("Event")) == kClientAdded &&
             IntValue(inUserInfo, CFSTR("ClnPID")) == getpid()) {
    CFNotificationCenterPostNotificationWithOptions(inCenter, link->mMarkerName, nullptr, nullptr,
                                                    kDeliverNow);
  }
}

bool ServerLink::WaitUntilAdmitted(double inSeconds) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(inSeconds);
  while (!mAdmitted.load(std::memory_order_acquire)) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

}  // namespace tembra::tools
