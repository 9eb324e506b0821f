#pragma once

#include <CoreFoundation/CFRunLoop.h>
#include <sys/epoll.h>

#include <algorithm>
#include <vector>

#include "runloop/RunLoop.h"

namespace tembra::runloop {

template <class T>
bool Has(const std::vector<T>& inItems, T inItem) {
  return std::find(inItems.begin(), inItems.end(), inItem) != inItems.end();
}

template <class T>
bool Take(std::vector<T>& ioItems, T inItem, Garbage& ioGarbage) {
  auto found = std::find(ioItems.begin(), ioItems.end(), inItem);
  if (found == ioItems.end()) return false;
  ioItems.erase(found);
  ioGarbage.Add(inItem);
  return true;
}

inline bool IsCommonModes(CFStringRef inMode) {
  return inMode == kCFRunLoopCommonModes || CFEqual(inMode, kCFRunLoopCommonModes);
}

inline void Watch(int inPoll, int inDescriptor, uint32_t inEvents, uint64_t inKey) {
  epoll_event event{};
  event.events = inEvents;
  event.data.u64 = inKey;
  epoll_ctl(inPoll, EPOLL_CTL_ADD, inDescriptor, &event);
}

}  // namespace tembra::runloop
