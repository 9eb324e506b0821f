#pragma once

#include <CoreFoundation/CoreFoundation.h>

// What a client and the audio server of its user say to each other: port names, the server's
// events and the client's messages.
//
// Thread: any; all of it is constant.
// Ownership: what a Copy function returns is the caller's.
// Failure: none.

// The name of the server's listener port, "com.tembra.tmbasrv.UID", which is also the object of its
// notifications.
CFStringRef CFTmbSndCopyListenerID();
// The name of the server's data port for one client, "com.tembra.tmbasrv.UID.PID".
CFStringRef CFTmbSndCopyPortID(int inPID);

extern const CFStringRef kTMBAudioServerNotification;              // the notification's name
extern const CFStringRef kTMBAudioServerConnectionEventKey;        // "Event", an event code
extern const CFStringRef kTMBAudioServerNotificationSrvUIDKey;     // "SrvUID"
extern const CFStringRef kTMBAudioServerNotificationSrvPIDKey;     // "SrvPID"
extern const CFStringRef kTMBAudioServerNotificationSrvIDKey;      // "SrvID"
extern const CFStringRef kTMBAudioServerNotificationClientPIDKey;  // "ClnPID"

// The events, as kCFNumberIntType under the event key.
constexpr int kTMBAudioServerEventStart = 'strt';          // the server has started
constexpr int kTMBAudioServerEventFinish = 'fnsh';         // the server is finishing
constexpr int kTMBAudioServerEventClientAdded = 'cadd';    // the client's data port can be opened
constexpr int kTMBAudioServerEventClientDeleted = 'cdel';  // the server has dropped the client
constexpr int kTMBAudioServerEventClientCheck = 'cchk';  // the client, or every client, shall echo

// The ids of the messages on the listener port. Their bytes in memory spell "ddac", "ohce" and
// "ledc".
constexpr SInt32 kTMBAudioMessageAddID = 'cadd';
constexpr SInt32 kTMBAudioMessageEchoID = 'echo';
constexpr SInt32 kTMBAudioMessageDisposeID = 'cdel';
// The id of every message on the data port.
constexpr SInt32 kTMBAudioMessageDataID = 0;
