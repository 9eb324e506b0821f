#include <CoreFoundation/CFURLAccess.h>

#include <cerrno>

#include "corefoundation/File.h"
#include "corefoundation/SystemVersion.h"
#include "corefoundation/URL.h"

using namespace tembra::cf;

Boolean CFURLCreateDataAndPropertiesFromResource(CFAllocatorRef inAllocator, CFURLRef inURL,
                                                 CFDataRef* outData, CFDictionaryRef* outProperties,
                                                 CFArrayRef, SInt32* outError) {
  if (outData) *outData = nullptr;
  if (outProperties) *outProperties = nullptr;
  int error = Guarded([&] {
    std::vector<UInt8> bytes;
    const std::string path = PathOf(inURL);
    if (int failure = ReadWholeFile(path, 0, bytes)) {
      if (failure != ENOENT || !MakeSystemFile(path, bytes)) return failure;
    }
    if (outData) {
      *outData = CFDataCreate(inAllocator, bytes.data(), static_cast<CFIndex>(bytes.size()));
      if (!*outData) return ENOMEM;
    }
    return 0;
  });
  if (outError) {
    *outError = error == 0        ? 0
                : error == ENOENT ? kCFURLResourceNotFoundError
                : error == EACCES ? kCFURLResourceAccessViolationError
                                  : kCFURLUnknownError;
  }
  if (error == 0 && outProperties) {
    *outProperties =
        CFDictionaryCreate(inAllocator, nullptr, nullptr, 0, &kCFTypeDictionaryKeyCallBacks,
                           &kCFTypeDictionaryValueCallBacks);
  }
  return error == 0;
}
