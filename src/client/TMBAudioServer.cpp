#include "client/TMBAudioServer.h"

#include <unistd.h>

const CFStringRef kTMBAudioServerNotification = CFSTR("TMBAudioServerNotification");
const CFStringRef kTMBAudioServerConnectionEventKey = CFSTR("Event");
const CFStringRef kTMBAudioServerNotificationSrvUIDKey = CFSTR("SrvUID");
const CFStringRef kTMBAudioServerNotificationSrvPIDKey = CFSTR("SrvPID");
const CFStringRef kTMBAudioServerNotificationSrvIDKey = CFSTR("SrvID");
const CFStringRef kTMBAudioServerNotificationClientPIDKey = CFSTR("ClnPID");

CFStringRef CFTmbSndCopyListenerID() {
  return CFStringCreateWithFormat(kCFAllocatorDefault, nullptr, CFSTR("com.tembra.tmbasrv.%u"),
                                  static_cast<unsigned int>(getuid()));
}

CFStringRef CFTmbSndCopyPortID(int inPID) {
  return CFStringCreateWithFormat(kCFAllocatorDefault, nullptr, CFSTR("com.tembra.tmbasrv.%u.%u"),
                                  static_cast<unsigned int>(getuid()),
                                  static_cast<unsigned int>(inPID));
}
