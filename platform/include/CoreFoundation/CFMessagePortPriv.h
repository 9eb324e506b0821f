#pragma once

// An extension of message ports of this platform only: who is at the other end, and what was
// turned away.
//
// Thread: the peer callback runs where the port's messages are delivered, in order with them.
// CFMessagePortGetCurrentPeer holds within a message callback, on its thread. All else from any
// thread.
// Ownership: nothing here is retained.
// Units: a connection number is never used twice in a process and never 0; counters count from the
// port's creation and wrap after 2^64.

#include <CoreFoundation/CFMessagePort.h>

// Supplied by the kernel when the peer connected; the pid is for telling, not for granting.
typedef struct {
  UInt64 connection;
  UInt32 uid;
  SInt32 pid;
} CFMessagePortPeer;

typedef CF_ENUM(UInt32, CFMessagePortPeerEvent) {
  // The peer has shown that it speaks this protocol; its messages follow.
  kCFMessagePortPeerOpened = 1,
  // Nothing more comes from it: it ended, broke the protocol, was closed from here, or this port
  // was invalidated. Follows each opened event exactly once.
  kCFMessagePortPeerClosed = 2
};

typedef void (*CFMessagePortPeerCallBack)(CFMessagePortRef local, CFMessagePortPeerEvent event,
                                          const CFMessagePortPeer* peer, void* info);

// Set it before the port gets its run loop source or queue. info is the port context's. False for
// remote ports.
CF_EXPORT Boolean CFMessagePortSetPeerCallBack(CFMessagePortRef local,
                                               CFMessagePortPeerCallBack callout);
// The sender of the message that this thread's innermost callback handles; false outside of one.
CF_EXPORT Boolean CFMessagePortGetCurrentPeer(CFMessagePortPeer* outPeer);
// Ends one connection; its closed event comes with the next deliveries, never within this call.
// False if there is none of that number.
CF_EXPORT Boolean CFMessagePortClosePeer(CFMessagePortRef local, UInt64 connection);

typedef struct {
  // local ports
  UInt64 accepted;       // connections of this user or root
  UInt64 refusedUser;    // connections of anybody else
  UInt64 refusedLimit;   // connections beyond 512 at a time, or that could not be watched
  UInt64 refusedNoFile;  // connections closed because the process had no descriptor left
  UInt64 closed;         // accepted connections that are gone
  UInt64 silent;         // closed: no first message within 5 seconds
  UInt64 malformed;      // closed: wrong, truncated, unknown or empty message, or descriptors
  UInt64 oversized;      // closed: message longer than the limit
  UInt64 messages;       // given to the callback
  UInt64 bytes;          // of data in them
  UInt64 replies;        // sent back
  UInt64 repliesLost;    // the peer's queue was full
  UInt64 closedFull;     // closed: the peer took no reply for 1 second
  // remote ports
  UInt64 sent;        // messages queued
  UInt64 sentBytes;   // of data in them
  UInt64 queueFull;   // messages lost because the queue was full
  UInt64 sendErrors;  // messages lost for another reason
} CFMessagePortStatistics;

CF_EXPORT void CFMessagePortGetStatistics(CFMessagePortRef ms,
                                          CFMessagePortStatistics* outStatistics);
