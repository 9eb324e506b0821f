#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <atomic>
#include <string>

namespace tembra::tools {

// What the command can see of the audio server of this user: whether one owns the listener port,
// and when it has let this process in.
//
// A device that starts while a server runs is let in a few milliseconds later, by the server's
// "cadd" notification; what is rendered before that is not heard. WaitUntilAdmitted lets a player
// hold its sound back for that long.
//
// Thread: made, asked and destroyed by one thread; the notification's thread only sets flags.
class ServerLink {
 public:
  ServerLink();
  ~ServerLink();
  ServerLink(const ServerLink&) = delete;
  ServerLink& operator=(const ServerLink&) = delete;

  // True if a server of this user lives now.
  static bool ServerLives();

  // Waits until every observer in this process has handled the server's "cadd" for it, or for
  // inSeconds. Answers whether that came about. Start the device before.
  bool WaitUntilAdmitted(double inSeconds);

 private:
  static void Notified(CFNotificationCenterRef inCenter, void* inObserver, CFStringRef inName,
                       const void* inObject, CFDictionaryRef inUserInfo);

  CFStringRef mServerName;  // the server's listener port, and the object of its notifications
  CFStringRef mMarkerName;  // posted by this process to itself
  std::atomic<bool> mAdmitted{false};
};

}  // namespace tembra::tools
