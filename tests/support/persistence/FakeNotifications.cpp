#include "support/persistence/FakeNotifications.h"

#include <gtest/gtest.h>

#include "support/CACFString.h"

namespace tembra::test {

FakeNotifications& FakeNotifications::Get() {
  static FakeNotifications& sNotifications = *new FakeNotifications;
  return sNotifications;
}

void FakeNotifications::Reset() {
  mObservations.clear();
  mPosts.clear();
}

std::vector<const void*> FakeNotifications::GetObservers(const std::string& inName) const {
  std::vector<const void*> observers;
  for (const Observation& observation : mObservations) {
    if (observation.mName == inName) observers.push_back(observation.mObserver);
  }
  return observers;
}

int FakeNotifications::Deliver(const std::string& inName) {
  const CACFString name(inName.c_str());
  int calls = 0;
  // A callback may change the list.
  const std::vector<Observation> observations = mObservations;
  for (const Observation& observation : observations) {
    if (observation.mName != inName) continue;
    observation.mCallBack(CFNotificationCenterGetDistributedCenter(),
                          const_cast<void*>(observation.mObserver), name.GetCFString(), nullptr,
                          nullptr);
    ++calls;
  }
  return calls;
}

namespace {

std::string NotificationText(CFStringRef inString) {
  char text[256] = "";
  CFStringGetCString(inString, text, sizeof(text), kCFStringEncodingUTF8);
  return text;
}

}  // namespace
}  // namespace tembra::test

using tembra::test::FakeNotifications;
using tembra::test::NotificationText;

CFNotificationCenterRef CFNotificationCenterGetDistributedCenter(void) {
  static int sCenter = 0;
  return reinterpret_cast<CFNotificationCenterRef>(&sCenter);
}

void CFNotificationCenterAddObserver(CFNotificationCenterRef, const void* inObserver,
                                     CFNotificationCallback inCallBack, CFStringRef inName,
                                     const void* inObject,
                                     CFNotificationSuspensionBehavior inBehavior) {
  FakeNotifications& notifications = FakeNotifications::Get();
  std::lock_guard<std::mutex> locker(notifications.mMutex);
  EXPECT_EQ(inObject, nullptr);
  notifications.mObservations.push_back(
      {NotificationText(inName), inObserver, inCallBack, inBehavior});
}

void CFNotificationCenterRemoveObserver(CFNotificationCenterRef, const void* inObserver,
                                        CFNotificationName inName, const void*) {
  FakeNotifications& notifications = FakeNotifications::Get();
  std::lock_guard<std::mutex> locker(notifications.mMutex);
  std::erase_if(
      notifications.mObservations, [&](const FakeNotifications::Observation& observation) {
        return observation.mObserver == inObserver && observation.mName == NotificationText(inName);
      });
}

void CFNotificationCenterPostNotificationWithOptions(CFNotificationCenterRef,
                                                     CFNotificationName inName,
                                                     const void* inObject,
                                                     CFDictionaryRef inUserInfo,
                                                     CFOptionFlags inOptions) {
  constexpr CFOptionFlags kExpected =
      kCFNotificationDeliverImmediately | kCFNotificationPostToAllSessions;
  const bool isRight = inObject == nullptr && inUserInfo == nullptr && inOptions == kExpected;
  FakeNotifications& notifications = FakeNotifications::Get();
  std::lock_guard<std::mutex> locker(notifications.mMutex);
  notifications.mPosts.push_back(isRight ? NotificationText(inName) : "wrong");
}
