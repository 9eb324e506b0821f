#include "support/CACFDistributedNotification.h"

void CACFDistributedNotification::AddObserver(
    const void* inObserver, CFNotificationCallback inCallback, CFStringRef inName,
    CFNotificationSuspensionBehavior inSuspensionBehavior) {
  CFNotificationCenterAddObserver(CFNotificationCenterGetDistributedCenter(), inObserver,
                                  inCallback, inName, nullptr, inSuspensionBehavior);
}

void CACFDistributedNotification::RemoveObserver(const void* inObserver, CFStringRef inName) {
  CFNotificationCenterRemoveObserver(CFNotificationCenterGetDistributedCenter(), inObserver, inName,
                                     nullptr);
}

void CACFDistributedNotification::PostNotification(CFStringRef inName, CFDictionaryRef inUserInfo,
                                                   bool inPostToAllUsers) {
  CFOptionFlags theOptions = kCFNotificationDeliverImmediately;
  if (inPostToAllUsers) theOptions |= kCFNotificationPostToAllSessions;
  CFNotificationCenterPostNotificationWithOptions(CFNotificationCenterGetDistributedCenter(),
                                                  inName, nullptr, inUserInfo, theOptions);
}
