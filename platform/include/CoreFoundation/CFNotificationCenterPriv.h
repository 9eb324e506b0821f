#pragma once

// An extension of the notification center of this platform only: what it counted in this process.
// Counters count from the start of the process and wrap after 2^64. Any thread.

#include <CoreFoundation/CFNotificationCenter.h>

typedef struct {
  UInt64 received;      // datagrams taken from the kernel
  UInt64 delivered;     // calls of observers
  UInt64 malformed;     // dropped: not a notification
  UInt64 unauthorized;  // dropped: no credentials, or of another user in this user's own place
  UInt64 overflowed;    // dropped: too many waited for the delivery thread
  UInt64 posted;        // datagrams queued at receivers
  UInt64 postsLost;     // datagrams that a receiver had no room for in time
  UInt64 refused;       // posts dropped whole: too long, no name, or no place to post to
  UInt64 swept;         // leftovers of dead receivers removed
} CFNotificationCenterStatistics;

CF_EXPORT void CFNotificationCenterGetStatistics(CFNotificationCenterRef center,
                                                 CFNotificationCenterStatistics* outStatistics);
