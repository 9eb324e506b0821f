#include "Roles.h"

#include <CoreFoundation/CFNotificationCenter.h>
#include <CoreFoundation/CFNotificationCenterPriv.h>
#include <CoreFoundation/CFNumber.h>
#include <stdio.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>

#include "corefoundation/Object.h"
#include "support/Program.h"

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
  // Robbed awake it would not sleep on its sockets again, and nothing could wake it.
  WaitUntil([] { return SleepsOfReceiver(getpid()) >= 0; });
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

long SleepsOfReceiver(pid_t inProcess) {
  const std::string tasks = "/proc/" + std::to_string(inProcess) + "/task";
  for (const auto& task : std::filesystem::directory_iterator(tasks)) {
    bool isReceiver = false, sleeps = false;
    std::ifstream status(task.path() / "status");
    for (std::string key, value; status >> key && std::getline(status, value);) {
      if (key == "Name:") isReceiver = value == "\ttembra.nrecv";
      if (key == "State:") sleeps = value.find('S') != std::string::npos;
      if (key == "voluntary_ctxt_switches:" && isReceiver) return sleeps ? std::stol(value) : -1;
    }
  }
  return -1;
}

}  // namespace tembra::test
