#include <dlfcn.h>

#include "ConnectionTest.h"
#include "support/client/FakeHAL.cpp"
#include "support/client/FakeServer.cpp"
#include "support/persistence/FakePreferences.cpp"
#include "support/persistence/FakeSettingsStorage.cpp"

CFDataRef CFPropertyListCreateData(CFAllocatorRef inAllocator, CFPropertyListRef inList,
                                   CFPropertyListFormat inFormat, CFOptionFlags inOptions,
                                   CFErrorRef* outError) {
  if (tembra::test::NoPropertyLists::sIsOn) return nullptr;
  static const auto sReal = reinterpret_cast<decltype(&CFPropertyListCreateData)>(
      dlsym(RTLD_NEXT, "CFPropertyListCreateData"));
  return sReal(inAllocator, inList, inFormat, inOptions, outError);
}
