#pragma once

#include <CoreFoundation/CoreFoundation.h>

// Purpose: observes and posts by name on the distributed notification center.
// Thread: any; callbacks come on the center's delivery thread.
// Ownership: the observer is borrowed until it is removed.
// Units and range: none.
// Failure: none is reported.
class CACFDistributedNotification {
 public:
  static void AddObserver(const void* inObserver, CFNotificationCallback inCallback,
                          CFStringRef inName,
                          CFNotificationSuspensionBehavior inSuspensionBehavior);
  static void RemoveObserver(const void* inObserver, CFStringRef inName);
  // Delivered at once; to the observers of all users with the flag.
  static void PostNotification(CFStringRef inName, CFDictionaryRef inUserInfo,
                               bool inPostToAllUsers);
};
