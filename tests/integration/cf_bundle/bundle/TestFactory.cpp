// The executable of a plug-in whose instances are the texts of their types.

#include <CoreFoundation/CoreFoundation.h>

extern "C" __attribute__((visibility("default"))) void* TestFactory(CFAllocatorRef inAllocator,
                                                                    CFUUIDRef inType) {
  return const_cast<__CFString*>(CFUUIDCreateString(inAllocator, inType));
}
