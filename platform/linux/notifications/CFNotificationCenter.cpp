#include <CoreFoundation/CFNotificationCenter.h>
#include <CoreFoundation/CFNotificationCenterPriv.h>

#include "notifications/Center.h"
#include "notifications/Counters.h"

namespace {

// Objects of the distributed center are strings; anything else matches nothing and is not sent.
bool IsUsableObject(const void* inObject) {
  return !inObject || CFGetTypeID(inObject) == CFStringGetTypeID();
}

}  // namespace

CFTypeID CFNotificationCenterGetTypeID(void) {
  return tembra::cf::kTypeNotificationCenter;
}

CFNotificationCenterRef CFNotificationCenterGetDistributedCenter(void) {
  return __CFNotificationCenter::Get();
}

void CFNotificationCenterAddObserver(CFNotificationCenterRef center, const void* observer,
                                     CFNotificationCallback callBack, CFStringRef name,
                                     const void* object, CFNotificationSuspensionBehavior) {
  if (!center || !callBack || !IsUsableObject(object)) return;
  tembra::cf::Guarded(
      [&] { center->Add(observer, callBack, name, static_cast<CFStringRef>(object)); });
}

void CFNotificationCenterRemoveObserver(CFNotificationCenterRef center, const void* observer,
                                        CFNotificationName name, const void* object) {
  if (!center || !IsUsableObject(object)) return;
  tembra::cf::Guarded([&] { center->Remove(observer, name, static_cast<CFStringRef>(object)); });
}

void CFNotificationCenterRemoveEveryObserver(CFNotificationCenterRef center, const void* observer) {
  CFNotificationCenterRemoveObserver(center, observer, nullptr, nullptr);
}

void CFNotificationCenterPostNotification(CFNotificationCenterRef center, CFNotificationName name,
                                          const void* object, CFDictionaryRef userInfo,
                                          Boolean deliverImmediately) {
  CFNotificationCenterPostNotificationWithOptions(
      center, name, object, userInfo, deliverImmediately ? kCFNotificationDeliverImmediately : 0);
}

void CFNotificationCenterPostNotificationWithOptions(CFNotificationCenterRef center,
                                                     CFNotificationName name, const void* object,
                                                     CFDictionaryRef userInfo,
                                                     CFOptionFlags options) {
  if (!center || !IsUsableObject(object)) return;
  tembra::cf::Guarded([&] {
    center->Post(name, static_cast<CFStringRef>(object), userInfo,
                 (options & kCFNotificationPostToAllSessions) != 0);
  });
}

void CFNotificationCenterGetStatistics(CFNotificationCenterRef,
                                       CFNotificationCenterStatistics* outStatistics) {
  const auto read = [](const std::atomic<uint64_t>& inCounter) -> UInt64 {
    return inCounter.load(std::memory_order_relaxed);
  };
  const auto& counters = tembra::notifications::gCounters;
  outStatistics->received = read(counters.received);
  outStatistics->delivered = read(counters.delivered);
  outStatistics->malformed = read(counters.malformed);
  outStatistics->unauthorized = read(counters.unauthorized);
  outStatistics->overflowed = read(counters.overflowed);
  outStatistics->posted = read(counters.posted);
  outStatistics->postsLost = read(counters.postsLost);
  outStatistics->refused = read(counters.refused);
  outStatistics->swept = read(counters.swept);
}
