#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <mutex>
#include <string>
#include <vector>

namespace tembra::test {

// The distributed notification center, played by the test: it delivers when the test says so.
//
// An executable takes it by compiling FakeNotifications.cpp as one of its own sources. The
// platform's functions may be called on any thread; the fields are for quiet moments.
class FakeNotifications {
 public:
  struct Observation {
    std::string mName;
    const void* mObserver;
    CFNotificationCallback mCallBack;
    CFNotificationSuspensionBehavior mBehavior;
  };

  static FakeNotifications& Get();
  void Reset();

  std::vector<Observation> mObservations;
  // Names of what was posted with no data and to all users at once; anything else is "wrong".
  std::vector<std::string> mPosts;

  std::vector<const void*> GetObservers(const std::string& inName) const;
  // Calls who observes the name; the number of them.
  int Deliver(const std::string& inName);

  std::mutex mMutex;
};

}  // namespace tembra::test
