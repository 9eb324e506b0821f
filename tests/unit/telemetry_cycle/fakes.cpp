#include <CoreFoundation/CoreFoundation.h>

#include "support/persistence/FakeNotifications.cpp"
#include "support/persistence/FakePreferences.cpp"
#include "unit/io_thread/SimulatedTime.cpp"

// Nobody is to reach these tests: there is no port.
extern "C" __attribute__((visibility("default"))) CFMessagePortRef CFMessagePortCreateLocal(
    CFAllocatorRef, CFStringRef, CFMessagePortCallBack, CFMessagePortContext*, Boolean*) {
  return nullptr;
}
