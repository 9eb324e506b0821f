#include "persistence/CACFPreferences.h"

#include "support/CACFDistributedNotification.h"

std::atomic<bool> CACFPreferences::sAnyUserAnyHostPrefsOutOfDate{false};
std::atomic<bool> CACFPreferences::sAnyUserCurrentHostPrefsOutOfDate{false};
std::atomic<bool> CACFPreferences::sCurrentUserAnyHostPrefsOutOfDate{false};
std::atomic<bool> CACFPreferences::sCurrentUserCurrentHostPrefsOutOfDate{false};

namespace {

CFStringRef GetUser(bool inCurrentUser) {
  return inCurrentUser ? kCFPreferencesCurrentUser : kCFPreferencesAnyUser;
}

CFStringRef GetHost(bool inCurrentHost) {
  return inCurrentHost ? kCFPreferencesCurrentHost : kCFPreferencesAnyHost;
}

// Takes over the reference.
template <class T>
T KeepIfOfType(CFPropertyListRef inValue, CFTypeID inTypeID) {
  if (inValue != nullptr && CFGetTypeID(inValue) != inTypeID) {
    CFRelease(inValue);
    inValue = nullptr;
  }
  return static_cast<T>(inValue);
}

}  // namespace

CFPropertyListRef CACFPreferences::CopyValue(CFStringRef inKey, bool inCurrentUser,
                                             bool inCurrentHost) {
  Synchronize(inCurrentUser, inCurrentHost, false);
  return CFPreferencesCopyValue(inKey, kCFPreferencesAnyApplication, GetUser(inCurrentUser),
                                GetHost(inCurrentHost));
}

CFStringRef CACFPreferences::CopyStringValue(CFStringRef inKey, bool inCurrentUser,
                                             bool inCurrentHost) {
  return KeepIfOfType<CFStringRef>(CopyValue(inKey, inCurrentUser, inCurrentHost),
                                   CFStringGetTypeID());
}

CFNumberRef CACFPreferences::CopyNumberValue(CFStringRef inKey, bool inCurrentUser,
                                             bool inCurrentHost) {
  return KeepIfOfType<CFNumberRef>(CopyValue(inKey, inCurrentUser, inCurrentHost),
                                   CFNumberGetTypeID());
}

CFArrayRef CACFPreferences::CopyArrayValue(CFStringRef inKey, bool inCurrentUser,
                                           bool inCurrentHost) {
  return KeepIfOfType<CFArrayRef>(CopyValue(inKey, inCurrentUser, inCurrentHost),
                                  CFArrayGetTypeID());
}

CFDictionaryRef CACFPreferences::CopyDictionaryValue(CFStringRef inKey, bool inCurrentUser,
                                                     bool inCurrentHost) {
  return KeepIfOfType<CFDictionaryRef>(CopyValue(inKey, inCurrentUser, inCurrentHost),
                                       CFDictionaryGetTypeID());
}

void CACFPreferences::SetValue(CFStringRef inKey, CFPropertyListRef inValue, bool inCurrentUser,
                               bool inCurrentHost, bool inSynchronize) {
  CFPreferencesSetValue(inKey, inValue, kCFPreferencesAnyApplication, GetUser(inCurrentUser),
                        GetHost(inCurrentHost));
  if (inSynchronize) Synchronize(inCurrentUser, inCurrentHost, true);
}

void CACFPreferences::DeleteValue(CFStringRef inKey, bool inCurrentUser, bool inCurrentHost,
                                  bool inSynchronize) {
  CFPreferencesSetValue(inKey, nullptr, kCFPreferencesAnyApplication, GetUser(inCurrentUser),
                        GetHost(inCurrentHost));
  // The current user's domain, whichever user was named: callers synchronize any other themselves.
  if (inSynchronize) Synchronize(true, inCurrentHost, true);
}

void CACFPreferences::Synchronize(bool inCurrentUser, bool inCurrentHost, bool inForce) {
  if (!inForce && !ArePrefsOutOfDate(inCurrentUser, inCurrentHost)) return;
  CFPreferencesSynchronize(kCFPreferencesAnyApplication, GetUser(inCurrentUser),
                           GetHost(inCurrentHost));
  MarkPrefsClean(inCurrentUser, inCurrentHost);
}

std::atomic<bool>& CACFPreferences::GetOutOfDateFlag(bool inCurrentUser, bool inCurrentHost) {
  if (inCurrentUser) {
    return inCurrentHost ? sCurrentUserCurrentHostPrefsOutOfDate
                         : sCurrentUserAnyHostPrefsOutOfDate;
  }
  return inCurrentHost ? sAnyUserCurrentHostPrefsOutOfDate : sAnyUserAnyHostPrefsOutOfDate;
}

bool CACFPreferences::ArePrefsOutOfDate(bool inCurrentUser, bool inCurrentHost) {
  return GetOutOfDateFlag(inCurrentUser, inCurrentHost).load(std::memory_order_relaxed);
}

void CACFPreferences::MarkPrefsClean(bool inCurrentUser, bool inCurrentHost) {
  GetOutOfDateFlag(inCurrentUser, inCurrentHost).store(false, std::memory_order_relaxed);
}

void CACFPreferences::MarkPrefsOutOfDate(bool inCurrentUser, bool inCurrentHost) {
  GetOutOfDateFlag(inCurrentUser, inCurrentHost).store(true, std::memory_order_relaxed);
}

void CACFPreferences::SendNotification(CFStringRef inName) {
  CACFDistributedNotification::PostNotification(inName, nullptr, true);
}
