#pragma once

// Named message ports between processes of one user: a local port receives, remote ports send.
//
// Thread: all operations may be called from any thread. A local port's callback runs on the run
// loops that its source was added to, or on its dispatch queue. A remote port's invalidation
// callback runs on the thread "tembra.ports" when its peer dies, and within CFMessagePortInvalidate
// when the port's user ends it.
// Ownership: CFMessagePortCreateRemote hands out the same object, retained, for the same name as
// long as it is valid; invalidating it ends it for all its holders. A run loop source keeps its
// port alive until either is invalidated.
// Units: time-outs are seconds; a message is at most 1 MiB long, less where the system allows only
// smaller socket buffers: the longest that can go is about twice /proc/sys/net/core/wmem_max.
// Failure: a port that cannot be made is null; sends answer one of the codes below. After fork all
// ports of the parent are invalid in the child; it can make its own.

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFData.h>
#include <CoreFoundation/CFRunLoop.h>
#include <CoreFoundation/CFString.h>
#include <dispatch/dispatch.h>

typedef struct __CFMessagePort* CFMessagePortRef;

enum {
  kCFMessagePortSuccess = 0,
  kCFMessagePortSendTimeout = -1,
  kCFMessagePortReceiveTimeout = -2,
  kCFMessagePortIsInvalid = -3,
  kCFMessagePortTransportError = -4,
  kCFMessagePortBecameInvalidError = -5
};

typedef struct {
  CFIndex version;
  void* info;
  const void* (*retain)(const void* info);
  void (*release)(const void* info);
  CFStringRef (*copyDescription)(const void* info);
} CFMessagePortContext;

// The data is released when the callback returns; a message sent without data brings an empty
// object. What the callback returns is sent back if the sender waits, and released.
typedef CFDataRef (*CFMessagePortCallBack)(CFMessagePortRef local, SInt32 msgid, CFDataRef data,
                                           void* info);
// info is the context's for a local port and null for a remote one.
typedef void (*CFMessagePortInvalidationCallBack)(CFMessagePortRef ms, void* info);

CF_EXPORT CFTypeID CFMessagePortGetTypeID(void);
// Null if a living port has that name, in this or another process. Names have 1 to 128 characters.
// *shouldFreeInfo tells whether the context's info went unused.
CF_EXPORT CFMessagePortRef CFMessagePortCreateLocal(CFAllocatorRef allocator, CFStringRef name,
                                                    CFMessagePortCallBack callout,
                                                    CFMessagePortContext* context,
                                                    Boolean* shouldFreeInfo);
// Null unless a local port of that name lives now. Never waits for its owner.
CF_EXPORT CFMessagePortRef CFMessagePortCreateRemote(CFAllocatorRef allocator, CFStringRef name);
CF_EXPORT Boolean CFMessagePortIsRemote(CFMessagePortRef ms);
CF_EXPORT CFStringRef CFMessagePortGetName(CFMessagePortRef ms);
CF_EXPORT void CFMessagePortGetContext(CFMessagePortRef ms, CFMessagePortContext* context);
CF_EXPORT void CFMessagePortInvalidate(CFMessagePortRef ms);
// One atomic read.
CF_EXPORT Boolean CFMessagePortIsValid(CFMessagePortRef ms);
CF_EXPORT CFMessagePortInvalidationCallBack
CFMessagePortGetInvalidationCallBack(CFMessagePortRef ms);
// Called at once if the port is invalid already.
CF_EXPORT void CFMessagePortSetInvalidationCallBack(CFMessagePortRef ms,
                                                    CFMessagePortInvalidationCallBack callout);

// With a null reply mode the answer is that of queueing the message. With both time-outs 0 and no
// reply mode a send never waits: it is one system call, without lock or allocation, and the message
// is queued (Success) or lost (SendTimeout). With a reply mode the calling thread's run loop runs
// in that mode until the reply is there or rcvTimeout is over; *returnData is then the caller's to
// release, null if the receiver returned nothing.
CF_EXPORT SInt32 CFMessagePortSendRequest(CFMessagePortRef remote, SInt32 msgid, CFDataRef data,
                                          CFTimeInterval sendTimeout, CFTimeInterval rcvTimeout,
                                          CFStringRef replyMode, CFDataRef* returnData);

// Null for remote ports. The same source as long as it is valid and somebody holds it.
CF_EXPORT CFRunLoopSourceRef CFMessagePortCreateRunLoopSource(CFAllocatorRef allocator,
                                                              CFMessagePortRef local,
                                                              CFIndex order);
// Messages go to the queue instead of a run loop from now on; null ends that. Nothing for remote
// ports.
CF_EXPORT void CFMessagePortSetDispatchQueue(CFMessagePortRef ms, dispatch_queue_t queue);
