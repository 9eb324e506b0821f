#include "fakes.h"

#include <CoreFoundation/CoreFoundation.h>
#include <dlfcn.h>

namespace tembra::test {

bool gMakesDictionaries = true;
int gNumbersToMake = -1;

}  // namespace tembra::test

using tembra::test::gMakesDictionaries;
using tembra::test::gNumbersToMake;

CFMutableDictionaryRef CFDictionaryCreateMutable(CFAllocatorRef inAllocator, CFIndex inCapacity,
                                                 const CFDictionaryKeyCallBacks* inKeyCallBacks,
                                                 const CFDictionaryValueCallBacks* inCallBacks) {
  if (!gMakesDictionaries) return nullptr;
  static const auto sReal = reinterpret_cast<decltype(&CFDictionaryCreateMutable)>(
      dlsym(RTLD_NEXT, "CFDictionaryCreateMutable"));
  return sReal(inAllocator, inCapacity, inKeyCallBacks, inCallBacks);
}

CFNumberRef CFNumberCreate(CFAllocatorRef inAllocator, CFNumberType inType, const void* inValue) {
  if (gNumbersToMake == 0) return nullptr;
  if (gNumbersToMake > 0) --gNumbersToMake;
  static const auto sReal =
      reinterpret_cast<decltype(&CFNumberCreate)>(dlsym(RTLD_NEXT, "CFNumberCreate"));
  return sReal(inAllocator, inType, inValue);
}
