#include "support/persistence/FakePreferences.h"

#include <gtest/gtest.h>

#include <utility>

namespace tembra::test {
namespace {

std::string PreferenceText(CFStringRef inString) {
  char text[256] = "";
  CFStringGetCString(inString, text, sizeof(text), kCFStringEncodingUTF8);
  return text;
}

std::string DomainOf(CFStringRef inApplication, CFStringRef inUser, CFStringRef inHost) {
  EXPECT_TRUE(CFEqual(inApplication, kCFPreferencesAnyApplication));
  return std::string(CFEqual(inUser, kCFPreferencesAnyUser) ? "any" : "this") + " user, " +
         (CFEqual(inHost, kCFPreferencesAnyHost) ? "any" : "this") + " host";
}

}  // namespace

FakePreferences& FakePreferences::Get() {
  static FakePreferences& sPreferences = *new FakePreferences;
  return sPreferences;
}

void FakePreferences::Reset() {
  mDomains.clear();
  mElsewhere.clear();
  mCalls.clear();
}

CFPropertyListRef FakePreferences::Find(const std::string& inKey, const char* inDomain) const {
  const auto domain = mDomains.find(inDomain);
  if (domain == mDomains.end()) return nullptr;
  const auto value = domain->second.find(inKey);
  return value == domain->second.end() ? nullptr : value->second.GetObject();
}

void FakePreferences::Put(const std::string& inKey, CFPropertyListRef inValue,
                          const char* inDomain) {
  mDomains[inDomain][inKey] = inValue;
}

void FakePreferences::PutElsewhere(const std::string& inKey, CFPropertyListRef inValue,
                                   const char* inDomain) {
  mElsewhere[inDomain][inKey] = inValue;
}

std::vector<std::string> FakePreferences::TakeCalls() {
  return std::exchange(mCalls, {});
}

}  // namespace tembra::test

using tembra::test::DomainOf;
using tembra::test::FakePreferences;
using tembra::test::PreferenceText;

CFPropertyListRef CFPreferencesCopyValue(CFStringRef inKey, CFStringRef inApplication,
                                         CFStringRef inUser, CFStringRef inHost) {
  FakePreferences& preferences = FakePreferences::Get();
  std::lock_guard<std::mutex> locker(preferences.mMutex);
  const std::string domain = DomainOf(inApplication, inUser, inHost);
  preferences.mCalls.push_back("copy " + PreferenceText(inKey) + " in " + domain);
  CFPropertyListRef value = preferences.Find(PreferenceText(inKey), domain.c_str());
  return value != nullptr ? CFRetain(value) : nullptr;
}

void CFPreferencesSetValue(CFStringRef inKey, CFPropertyListRef inValue, CFStringRef inApplication,
                           CFStringRef inUser, CFStringRef inHost) {
  FakePreferences& preferences = FakePreferences::Get();
  std::lock_guard<std::mutex> locker(preferences.mMutex);
  const std::string domain = DomainOf(inApplication, inUser, inHost);
  preferences.mCalls.push_back((inValue != nullptr ? "set " : "remove ") + PreferenceText(inKey) +
                               " in " + domain);
  if (inValue == nullptr) {
    preferences.mDomains[domain].erase(PreferenceText(inKey));
  } else {
    preferences.Put(PreferenceText(inKey),
                    CFPropertyListCreateDeepCopy(nullptr, inValue, kCFPropertyListImmutable),
                    domain.c_str());
  }
}

Boolean CFPreferencesSynchronize(CFStringRef inApplication, CFStringRef inUser,
                                 CFStringRef inHost) {
  FakePreferences& preferences = FakePreferences::Get();
  std::lock_guard<std::mutex> locker(preferences.mMutex);
  const std::string domain = DomainOf(inApplication, inUser, inHost);
  preferences.mCalls.push_back("synchronize " + domain);
  for (const auto& [key, value] : preferences.mElsewhere[domain]) {
    if (value.IsValid()) {
      preferences.mDomains[domain].insert_or_assign(key, value);
    } else {
      preferences.mDomains[domain].erase(key);
    }
  }
  preferences.mElsewhere[domain].clear();
  return true;
}
