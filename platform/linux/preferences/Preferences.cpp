#include <CoreFoundation/CFNumber.h>
#include <CoreFoundation/CFPreferences.h>

#include <memory>

#include "base/Mutex.h"
#include "corefoundation/Dictionary.h"
#include "corefoundation/String.h"
#include "preferences/PreferenceDomain.h"
#include "preferences/PreferencePaths.h"

using namespace tembra::cf;
using tembra::preferences::Domain;

constinit const CFStringRef kCFPreferencesAnyApplication =
    Constant<"kCFPreferencesAnyApplication">();
constinit const CFStringRef kCFPreferencesCurrentApplication =
    Constant<"kCFPreferencesCurrentApplication">();
constinit const CFStringRef kCFPreferencesAnyHost = Constant<"kCFPreferencesAnyHost">();
constinit const CFStringRef kCFPreferencesCurrentHost = Constant<"kCFPreferencesCurrentHost">();
constinit const CFStringRef kCFPreferencesAnyUser = Constant<"kCFPreferencesAnyUser">();
constinit const CFStringRef kCFPreferencesCurrentUser = Constant<"kCFPreferencesCurrentUser">();

namespace {

// The domains in use, by the path of their file.
struct Registry {
  tembra::Mutex mMutex;
  std::map<std::string, std::unique_ptr<Domain>> mDomains TEMBRA_GUARDED_BY(mMutex);

  Domain& Get(CFStringRef inApplication, CFStringRef inUser, CFStringRef inHost)
      TEMBRA_REQUIRES(mMutex) {
    auto path = tembra::preferences::FindDomainPath(inApplication, inUser, inHost);
    std::unique_ptr<Domain>& domain = mDomains[path.mPath];
    if (!domain) domain = std::make_unique<Domain>(path.mPath, path.mIsForAllUsers);
    return *domain;
  }
};

Registry& SharedRegistry() {
  static Registry& sRegistry = *new Registry;
  return sRegistry;
}

bool HasFile(CFStringRef inApplication, CFStringRef inUser, CFStringRef inHost) {
  return !tembra::preferences::FindDomainPath(inApplication, inUser, inHost).mPath.empty();
}

CFIndex IntegerOf(CFPropertyListRef inValue, bool& outIsValid) {
  CFIndex integer = 0;
  outIsValid = true;
  if (IsType(inValue, kTypeBoolean)) return inValue == kCFBooleanTrue;
  if (IsType(inValue, kTypeNumber)) {
    CFNumberGetValue(static_cast<CFNumberRef>(inValue), kCFNumberCFIndexType, &integer);
    return integer;
  }
  if (IsType(inValue, kTypeString)) {
    auto text = static_cast<CFStringRef>(inValue);
    UniChar first = CFStringGetCharacterAtIndex(text, 0);
    outIsValid = first == '-' || (first >= '0' && first <= '9');
    return CFStringGetIntValue(text);
  }
  outIsValid = false;
  return 0;
}

}  // namespace

CFPropertyListRef CFPreferencesCopyValue(CFStringRef inKey, CFStringRef inApplication,
                                         CFStringRef inUser, CFStringRef inHost) {
  if (!inKey || !HasFile(inApplication, inUser, inHost)) return nullptr;
  return Guarded([&]() -> CFPropertyListRef {
    Registry& registry = SharedRegistry();
    tembra::MutexLock lock(registry.mMutex);
    CFPropertyListRef value = registry.Get(inApplication, inUser, inHost).Find(ToUTF8(inKey));
    return value ? CFRetain(value) : nullptr;
  });
}

CFPropertyListRef CFPreferencesCopyAppValue(CFStringRef inKey, CFStringRef inApplication) {
  for (CFStringRef user : {kCFPreferencesCurrentUser, kCFPreferencesAnyUser}) {
    for (CFStringRef application : {inApplication, kCFPreferencesAnyApplication}) {
      for (CFStringRef host : {kCFPreferencesCurrentHost, kCFPreferencesAnyHost}) {
        if (CFPropertyListRef value = CFPreferencesCopyValue(inKey, application, user, host)) {
          return value;
        }
      }
    }
  }
  return nullptr;
}

CFIndex CFPreferencesGetAppIntegerValue(CFStringRef inKey, CFStringRef inApplication,
                                        Boolean* outIsValid) {
  Owned<CFPropertyListRef> value(CFPreferencesCopyAppValue(inKey, inApplication));
  bool isValid;
  CFIndex integer = IntegerOf(value, isValid);
  if (outIsValid) *outIsValid = isValid;
  return isValid ? integer : 0;
}

Boolean CFPreferencesGetAppBooleanValue(CFStringRef inKey, CFStringRef inApplication,
                                        Boolean* outIsValid) {
  Owned<CFPropertyListRef> value(CFPreferencesCopyAppValue(inKey, inApplication));
  bool isValid;
  bool isTrue = IntegerOf(value, isValid) != 0;
  if (!isValid && IsType(value, kTypeString)) {
    auto text = static_cast<CFStringRef>(value.Get());
    auto is = [&](CFStringRef inWord) {
      return CFStringCompare(text, inWord, kCFCompareCaseInsensitive) == kCFCompareEqualTo;
    };
    isTrue = is(Constant<"true">()) || is(Constant<"yes">());
    isValid = isTrue || is(Constant<"false">()) || is(Constant<"no">());
  }
  if (outIsValid) *outIsValid = isValid;
  return isValid && isTrue;
}

void CFPreferencesSetValue(CFStringRef inKey, CFPropertyListRef inValue, CFStringRef inApplication,
                           CFStringRef inUser, CFStringRef inHost) {
  if (!inKey || !HasFile(inApplication, inUser, inHost)) return;
  Guarded([&] {
    Registry& registry = SharedRegistry();
    tembra::MutexLock lock(registry.mMutex);
    registry.Get(inApplication, inUser, inHost).Set(ToUTF8(inKey), inValue);
    return true;
  });
}

void CFPreferencesSetAppValue(CFStringRef inKey, CFPropertyListRef inValue,
                              CFStringRef inApplication) {
  CFPreferencesSetValue(inKey, inValue, inApplication, kCFPreferencesCurrentUser,
                        kCFPreferencesAnyHost);
}

void CFPreferencesSetMultiple(CFDictionaryRef inKeysToSet, CFArrayRef inKeysToRemove,
                              CFStringRef inApplication, CFStringRef inUser, CFStringRef inHost) {
  if (inKeysToSet) {
    inKeysToSet->ForEach([&](const __CFDictionary::Entry& inEntry) {
      CFPreferencesSetValue(static_cast<CFStringRef>(inEntry.mKey), inEntry.mValue, inApplication,
                            inUser, inHost);
    });
  }
  for (CFIndex i = 0; inKeysToRemove && i < CFArrayGetCount(inKeysToRemove); ++i) {
    CFPreferencesSetValue(static_cast<CFStringRef>(CFArrayGetValueAtIndex(inKeysToRemove, i)),
                          nullptr, inApplication, inUser, inHost);
  }
}

CFArrayRef CFPreferencesCopyKeyList(CFStringRef inApplication, CFStringRef inUser,
                                    CFStringRef inHost) {
  if (!HasFile(inApplication, inUser, inHost)) return nullptr;
  return Guarded([&]() -> CFArrayRef {
    Registry& registry = SharedRegistry();
    tembra::MutexLock lock(registry.mMutex);
    std::vector<std::string> keys = registry.Get(inApplication, inUser, inHost).Keys();
    if (keys.empty()) return nullptr;
    Owned<CFMutableArrayRef> list(CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks));
    if (!list) return nullptr;
    for (const std::string& key : keys) {
      Owned<CFStringRef> name(CreateString(key));
      if (name) CFArrayAppendValue(list, name);
    }
    return list.Detach();
  });
}

CFDictionaryRef CFPreferencesCopyMultiple(CFArrayRef inKeys, CFStringRef inApplication,
                                          CFStringRef inUser, CFStringRef inHost) {
  Owned<CFMutableDictionaryRef> values(CFDictionaryCreateMutable(
      nullptr, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
  Owned<CFArrayRef> keys(inKeys ? static_cast<CFArrayRef>(CFRetain(inKeys))
                                : CFPreferencesCopyKeyList(inApplication, inUser, inHost));
  for (CFIndex i = 0; values && keys && i < CFArrayGetCount(keys); ++i) {
    auto key = static_cast<CFStringRef>(CFArrayGetValueAtIndex(keys, i));
    Owned<CFPropertyListRef> value(CFPreferencesCopyValue(key, inApplication, inUser, inHost));
    if (value) CFDictionarySetValue(values, key, value);
  }
  return values.Detach();
}

Boolean CFPreferencesSynchronize(CFStringRef inApplication, CFStringRef inUser,
                                 CFStringRef inHost) {
  if (!HasFile(inApplication, inUser, inHost)) return false;
  return Guarded([&] {
    Registry& registry = SharedRegistry();
    tembra::MutexLock lock(registry.mMutex);
    return registry.Get(inApplication, inUser, inHost).Synchronize();
  });
}

Boolean CFPreferencesAppSynchronize(CFStringRef inApplication) {
  bool isGood = true;
  for (CFStringRef application : {inApplication, kCFPreferencesAnyApplication}) {
    for (CFStringRef user : {kCFPreferencesCurrentUser, kCFPreferencesAnyUser}) {
      for (CFStringRef host : {kCFPreferencesCurrentHost, kCFPreferencesAnyHost}) {
        if (!CFPreferencesSynchronize(application, user, host)) isGood = false;
      }
    }
  }
  return isGood;
}
