#include "FailingFormat.h"

#include <CoreFoundation/CoreFoundation.h>
#include <stdarg.h>

namespace tembra::test {

int gFailingFormat = 0;

}  // namespace tembra::test

CFStringRef CFStringCreateWithFormat(CFAllocatorRef inAllocator, CFDictionaryRef inOptions,
                                     CFStringRef inFormat, ...) {
  if (tembra::test::gFailingFormat > 0 &&
      CFStringHasPrefix(inFormat, CFSTR("com.apple.audio.CoreAudio.Preferred")) &&
      --tembra::test::gFailingFormat == 0) {
    return nullptr;
  }
  va_list arguments;
  va_start(arguments, inFormat);
  CFStringRef string =
      CFStringCreateWithFormatAndArguments(inAllocator, inOptions, inFormat, arguments);
  va_end(arguments);
  return string;
}
