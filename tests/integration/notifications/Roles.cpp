#include "Roles.h"

#include <CoreFoundation/CFNotificationCenter.h>
#include <CoreFoundation/CFNotificationCenterPriv.h>
#include <CoreFoundation/CFNumber.h>
#include <stdio.h>
#include <unistd.h>

#include <atomic>

#include "corefoundation/Object.h"

namespace tembra::test {
namespace {

cf::Owned<CFStringRef> MakeString(const std::string& inText) {
  return cf::Owned<CFStringRef>(
      CFStringCreateWithCString(nullptr, inText.c_str(), kCFStringEncodingUTF8));
}

void Print(CFNotificationCenterRef, void*, CFNotificationName, const void* inObject,
           CFDictionaryRef inInfo) {
  char object[256] = "-";
  if (inObject) {
    CFStringGetCString(static_cast<CFStringRef>(inObject), object, sizeof object,
                       kCFStringEncodingUTF8);
  }
  SInt32 number = -1;
  if (inInfo) {
    if (auto value = static_cast<CFNumberRef>(CFDictionaryGetValue(inInfo, CFSTR("n")))) {
      CFNumberGetValue(value, kCFNumberSInt32Type, &number);
    }
  }
  printf("%s %d\n", object, number);
  fflush(stdout);
}

int Observe(const std::string& inName, const std::string& inObject) {
  CFNotificationCenterAddObserver(CFNotificationCenterGetDistributedCenter(), nullptr, Print,
                                  MakeString(inName),
                                  inObject.empty() ? nullptr : MakeString(inObject).Get(),
                                  CFNotificationSuspensionBehaviorDeliverImmediately);
  puts("ready");
  fflush(stdout);
  while (true) pause();
}

std::atomic<int> sHeard{0};

// Observes, and closes all it does not know when it has heard something.
int BeRobbed(const std::string& inName) {
  CFNotificationCenterAddObserver(
      CFNotificationCenterGetDistributedCenter(), nullptr,
      [](CFNotificationCenterRef, void*, CFNotificationName, const void*, CFDictionaryRef) {
        ++sHeard;
        sHeard.notify_one();
      },
      MakeString(inName), nullptr, CFNotificationSuspensionBehaviorDeliverImmediately);
  puts("ready");
  fflush(stdout);
  sHeard.wait(0);
  close_range(3, ~0U, 0);
  puts("robbed");
  fflush(stdout);
  while (true) pause();
}

int Post(const std::string& inName, const std::string& inObject, int inCount, bool inToAll) {
  CFNotificationCenterRef center = CFNotificationCenterGetDistributedCenter();
  const CFOptionFlags options =
      kCFNotificationDeliverImmediately | (inToAll ? kCFNotificationPostToAllSessions : 0);
  for (SInt32 i = 0; i < inCount; ++i) {
    CFNumberRef number = CFNumberCreate(nullptr, kCFNumberSInt32Type, &i);
    const void* key = CFSTR("n");
    const void* value = number;
    CFDictionaryRef info = CFDictionaryCreate(
        nullptr, &key, &value, 1, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
    CFNotificationCenterPostNotificationWithOptions(
        center, MakeString(inName), inObject == "-" ? nullptr : MakeString(inObject).Get(), info,
        options);
    CFRelease(info);
    CFRelease(number);
  }
  CFNotificationCenterStatistics statistics;
  CFNotificationCenterGetStatistics(center, &statistics);
  return statistics.postsLost == 0 && statistics.refused == 0 ? 0 : 6;
}

}  // namespace

int RunRole(const std::vector<std::string>& inArguments) {
  const std::string& role = inArguments[0];
  if (role == "observe") {
    return Observe(inArguments[1], inArguments.size() > 2 ? inArguments[2] : "");
  }
  if (role == "robbed") return BeRobbed(inArguments[1]);
  if (role == "post") {
    return Post(inArguments[1], inArguments[2], std::stoi(inArguments[3]), inArguments.size() > 4);
  }
  if (role == "leave") {
    CFNotificationCenterAddObserver(CFNotificationCenterGetDistributedCenter(), nullptr, Print,
                                    MakeString(inArguments[1]), nullptr,
                                    CFNotificationSuspensionBehaviorDeliverImmediately);
    return 0;
  }
  return 2;
}

}  // namespace tembra::test
