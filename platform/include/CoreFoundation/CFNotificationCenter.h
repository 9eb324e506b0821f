#pragma once

// The distributed notification center: a broadcast by name and object to all processes that
// observe.
//
// Thread: all operations may be called from any thread. Callbacks run one at a time on the thread
// "tembra.notify", at once, in the order in which one poster posted; a callback may add and remove
// observers and post.
// Ownership: the center lives as long as the process. Observer and object strings: names and
// objects are copied; the observer pointer is the caller's.
// Units: name and object have at most 1024 bytes of UTF-8 each, the dictionary 48 KiB as a binary
// property list.
// Failure: what cannot be posted is dropped. A post waits at most one second in all for receivers
// whose queues are full; a receiver that let that second pass gets only what it has room for until
// it takes something again. A post from another user (root aside) reaches only observers that named
// no object. After fork a child has no observers; it can add its own.

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFDictionary.h>
#include <CoreFoundation/CFString.h>

typedef CFStringRef CFNotificationName;
typedef struct __CFNotificationCenter* CFNotificationCenterRef;

typedef void (*CFNotificationCallback)(CFNotificationCenterRef center, void* observer,
                                       CFNotificationName name, const void* object,
                                       CFDictionaryRef userInfo);

typedef CF_ENUM(CFIndex, CFNotificationSuspensionBehavior) {
  CFNotificationSuspensionBehaviorDrop = 1,
  CFNotificationSuspensionBehaviorCoalesce = 2,
  CFNotificationSuspensionBehaviorHold = 3,
  CFNotificationSuspensionBehaviorDeliverImmediately = 4
};

enum {
  kCFNotificationDeliverImmediately = (1UL << 0),
  kCFNotificationPostToAllSessions = (1UL << 1)
};

CF_EXPORT CFTypeID CFNotificationCenterGetTypeID(void);
// Null in a set-uid process.
CF_EXPORT CFNotificationCenterRef CFNotificationCenterGetDistributedCenter(void);
// A null name or object matches every one. Nothing is ever held back: every behaviour delivers
// immediately. Adding the same observer twice delivers twice.
CF_EXPORT void CFNotificationCenterAddObserver(CFNotificationCenterRef center, const void* observer,
                                               CFNotificationCallback callBack, CFStringRef name,
                                               const void* object,
                                               CFNotificationSuspensionBehavior suspensionBehavior);
// A null name or object stands for all. No callback begins after this returned; one that runs just
// now on the delivery thread may still finish.
CF_EXPORT void CFNotificationCenterRemoveObserver(CFNotificationCenterRef center,
                                                  const void* observer, CFNotificationName name,
                                                  const void* object);
CF_EXPORT void CFNotificationCenterRemoveEveryObserver(CFNotificationCenterRef center,
                                                       const void* observer);
CF_EXPORT void CFNotificationCenterPostNotification(CFNotificationCenterRef center,
                                                    CFNotificationName name, const void* object,
                                                    CFDictionaryRef userInfo,
                                                    Boolean deliverImmediately);
// kCFNotificationPostToAllSessions: to the observers of all users.
CF_EXPORT void CFNotificationCenterPostNotificationWithOptions(CFNotificationCenterRef center,
                                                               CFNotificationName name,
                                                               const void* object,
                                                               CFDictionaryRef userInfo,
                                                               CFOptionFlags options);
