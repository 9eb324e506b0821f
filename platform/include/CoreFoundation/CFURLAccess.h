#pragma once

// Reading a file's bytes by its URL.

#include <CoreFoundation/CFArray.h>
#include <CoreFoundation/CFURL.h>

typedef CF_ENUM(CFIndex, CFURLError) {
  kCFURLUnknownError = -10L,
  kCFURLUnknownSchemeError = -11L,
  kCFURLResourceNotFoundError = -12L,
  kCFURLResourceAccessViolationError = -13L,
  kCFURLRemoteHostUnavailableError = -14L,
  kCFURLImproperArgumentsError = -15L,
  kCFURLUnknownPropertyKeyError = -16L,
  kCFURLPropertyKeyUnavailableError = -17L,
  kCFURLTimeoutError = -18L
};

// Regular files up to 64 MiB. No properties are known: a dictionary asked for comes back empty.
CF_EXPORT Boolean CFURLCreateDataAndPropertiesFromResource(CFAllocatorRef alloc, CFURLRef url,
                                                           CFDataRef* resourceData,
                                                           CFDictionaryRef* properties,
                                                           CFArrayRef desiredProperties,
                                                           SInt32* errorCode);
