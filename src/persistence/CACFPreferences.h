#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <atomic>

// Purpose: typed values in the platform's preferences, for any application, one user or any, one
//   host or any; and a record of which of these four domains another process has changed.
// Thread: any; the record is read and written without a lock.
// Ownership: what a Copy operation hands out is the caller's to release; values that are set are
//   borrowed.
// Units and range: none.
// Failure: null where there is no value, or one of another type. A change that cannot be written
//   is not reported.
class CACFPreferences {
 public:
  // Asks the platform again first if the domain is marked out of date.
  static CFPropertyListRef CopyValue(CFStringRef inKey, bool inCurrentUser, bool inCurrentHost);
  static CFStringRef CopyStringValue(CFStringRef inKey, bool inCurrentUser, bool inCurrentHost);
  static CFNumberRef CopyNumberValue(CFStringRef inKey, bool inCurrentUser, bool inCurrentHost);
  static CFArrayRef CopyArrayValue(CFStringRef inKey, bool inCurrentUser, bool inCurrentHost);
  static CFDictionaryRef CopyDictionaryValue(CFStringRef inKey, bool inCurrentUser,
                                             bool inCurrentHost);

  static void SetValue(CFStringRef inKey, CFPropertyListRef inValue, bool inCurrentUser,
                       bool inCurrentHost, bool inSynchronize);
  // With the flag, it is the current user's domain of that host that is synchronized, whichever
  // user was named.
  static void DeleteValue(CFStringRef inKey, bool inCurrentUser, bool inCurrentHost,
                          bool inSynchronize);

  // Does nothing unless the domain is marked out of date or force is asked for.
  static void Synchronize(bool inCurrentUser, bool inCurrentHost, bool inForce);

  static bool ArePrefsOutOfDate(bool inCurrentUser, bool inCurrentHost);
  static void MarkPrefsClean(bool inCurrentUser, bool inCurrentHost);
  static void MarkPrefsOutOfDate(bool inCurrentUser, bool inCurrentHost);

  // To the observers of all users, with no data.
  static void SendNotification(CFStringRef inName);

 private:
  static std::atomic<bool>& GetOutOfDateFlag(bool inCurrentUser, bool inCurrentHost);

  static std::atomic<bool> sAnyUserAnyHostPrefsOutOfDate;
  static std::atomic<bool> sAnyUserCurrentHostPrefsOutOfDate;
  static std::atomic<bool> sCurrentUserAnyHostPrefsOutOfDate;
  static std::atomic<bool> sCurrentUserCurrentHostPrefsOutOfDate;
};
