#pragma once

#include <CoreFoundation/CFNotificationCenter.h>
#include <CoreFoundation/CFNotificationCenterPriv.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "corefoundation/Object.h"
#include "support/PrivateRuntime.h"
#include "support/Program.h"

namespace tembra::test {

using cf::Owned;
using Seconds = std::chrono::seconds;

inline Owned<CFStringRef> String(const std::string& inText) {
  return Owned<CFStringRef>(
      CFStringCreateWithCString(nullptr, inText.c_str(), kCFStringEncodingUTF8));
}

inline CFNotificationCenterRef Center() {
  return CFNotificationCenterGetDistributedCenter();
}

inline CFNotificationCenterStatistics Statistics() {
  CFNotificationCenterStatistics statistics;
  CFNotificationCenterGetStatistics(Center(), &statistics);
  return statistics;
}

// One place for the whole process: its sockets stay where they were first made. Not a plain static,
// whose end in a forked child would remove it.
inline PrivateRuntime* sRuntime = nullptr;

inline const PrivateRuntime& Runtime() {
  return *sRuntime;
}

inline void Post(const std::string& inName, const char* inObject = nullptr,
                 CFDictionaryRef inInfo = nullptr, CFOptionFlags inOptions = 1) {
  Owned<CFStringRef> object;
  if (inObject) object = String(inObject);
  CFNotificationCenterPostNotificationWithOptions(Center(), String(inName), object.Get(), inInfo,
                                                  inOptions);
}

// Notes what it is told.
class Observer {
 public:
  Observer(const char* inName, const char* inObject) {
    Owned<CFStringRef> name, object;
    if (inName) name = String(inName);
    if (inObject) object = String(inObject);
    CFNotificationCenterAddObserver(Center(), this, Note, name, object.Get(),
                                    CFNotificationSuspensionBehaviorDeliverImmediately);
  }
  ~Observer() {
    CFNotificationCenterRemoveEveryObserver(Center(), this);
    // A call that began before is over once another one has come and gone.
    Flush();
  }

  // Everything that was posted before has been delivered.
  static void Flush() {
    static std::atomic<int> sFlushed{0};
    const int before = sFlushed;
    auto note = [](CFNotificationCenterRef, void*, CFNotificationName, const void*,
                   CFDictionaryRef) { ++sFlushed; };
    CFNotificationCenterAddObserver(Center(), &sFlushed, note, CFSTR("test.flush"), nullptr,
                                    CFNotificationSuspensionBehaviorDeliverImmediately);
    Post("test.flush");
    EXPECT_TRUE(WaitUntil([&] { return sFlushed > before; }, Seconds(30)));
    CFNotificationCenterRemoveObserver(Center(), &sFlushed, CFSTR("test.flush"), nullptr);
  }

  std::vector<std::string> Heard() {
    std::lock_guard<std::mutex> lock(mLock);
    return mHeard;
  }
  size_t Count() { return Heard().size(); }

  // What to do at each call besides noting it.
  void Do(std::function<void(CFDictionaryRef)> inAction) {
    std::lock_guard<std::mutex> lock(mLock);
    mAction = std::move(inAction);
  }

 private:
  static void Note(CFNotificationCenterRef inCenter, void* inObserver, CFNotificationName inName,
                   const void* inObject, CFDictionaryRef inInfo) {
    auto* observer = static_cast<Observer*>(inObserver);
    EXPECT_EQ(inCenter, Center());
    char name[128], object[128] = "-";
    CFStringGetCString(inName, name, sizeof name, kCFStringEncodingUTF8);
    if (inObject) {
      CFStringGetCString(static_cast<CFStringRef>(inObject), object, sizeof object,
                         kCFStringEncodingUTF8);
    }
    std::function<void(CFDictionaryRef)> action;
    {
      std::lock_guard<std::mutex> lock(observer->mLock);
      observer->mHeard.push_back(std::string(name) + " " + object + (inInfo ? " info" : ""));
      action = observer->mAction;
    }
    if (action) action(inInfo);
  }

  std::mutex mLock;
  std::vector<std::string> mHeard;
  std::function<void(CFDictionaryRef)> mAction;
};

using Texts = std::vector<std::string>;

class Notifications : public testing::Test {
 protected:
  static std::string Place() { return Runtime().File("runtime/tembra/notifications"); }
  static size_t CountReceivers() {
    size_t count = 0;
    if (!std::filesystem::exists(Place())) return 0;
    for ([[maybe_unused]] auto& entry : std::filesystem::directory_iterator(Place())) ++count;
    return count;
  }
  static Program Start(const Texts& inArguments) {
    static int sCount = 0;
    Texts arguments{"--role"};
    arguments.insert(arguments.end(), inArguments.begin(), inArguments.end());
    Program program("/proc/self/exe", arguments,
                    Runtime().File("process" + std::to_string(++sCount)));
    if (inArguments[0] == "observe" || inArguments[0] == "robbed") {
      WaitUntil([&] { return !program.Output().empty(); }, Seconds(20));
    }
    return program;
  }
  static size_t Lines(const Program& inProgram) {
    const std::string output = inProgram.Output();
    return static_cast<size_t>(std::count(output.begin(), output.end(), '\n'));
  }
};

}  // namespace tembra::test
