#pragma once

// Property lists: trees of dictionaries, arrays, strings, data, dates, numbers and booleans.
//
// Data to be read is untrusted: it is bounded in size (64 MiB), depth (512 levels) and number of
// objects, and what is not a property list is answered with null and an error.

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFData.h>
#include <CoreFoundation/CFError.h>
#include <CoreFoundation/CFStream.h>
#include <CoreFoundation/CFString.h>

typedef CF_OPTIONS(CFOptionFlags, CFPropertyListMutabilityOptions) {
  kCFPropertyListImmutable = 0,
  kCFPropertyListMutableContainers = 1 << 0,
  kCFPropertyListMutableContainersAndLeaves = 1 << 1
};

typedef CF_ENUM(CFIndex, CFPropertyListFormat) {
  kCFPropertyListOpenStepFormat = 1,
  kCFPropertyListXMLFormat_v1_0 = 100,
  kCFPropertyListBinaryFormat_v1_0 = 200
};

enum {
  kCFPropertyListReadCorruptError = 3840,
  kCFPropertyListReadUnknownVersionError = 3841,
  kCFPropertyListReadStreamError = 3842,
  kCFPropertyListWriteStreamError = 3851
};

CF_EXPORT CFPropertyListRef CFPropertyListCreateWithData(CFAllocatorRef allocator, CFDataRef data,
                                                         CFOptionFlags options,
                                                         CFPropertyListFormat* format,
                                                         CFErrorRef* error);
CF_EXPORT CFPropertyListRef CFPropertyListCreateWithStream(
    CFAllocatorRef allocator, CFReadStreamRef stream, CFIndex streamLength, CFOptionFlags options,
    CFPropertyListFormat* format, CFErrorRef* error);
CF_EXPORT CFDataRef CFPropertyListCreateData(CFAllocatorRef allocator,
                                             CFPropertyListRef propertyList,
                                             CFPropertyListFormat format, CFOptionFlags options,
                                             CFErrorRef* error);
// The number of bytes written; 0 on failure.
CF_EXPORT CFIndex CFPropertyListWrite(CFPropertyListRef propertyList, CFWriteStreamRef stream,
                                      CFPropertyListFormat format, CFOptionFlags options,
                                      CFErrorRef* error);
CF_EXPORT CFPropertyListRef CFPropertyListCreateDeepCopy(CFAllocatorRef allocator,
                                                         CFPropertyListRef propertyList,
                                                         CFOptionFlags mutabilityOption);
CF_EXPORT Boolean CFPropertyListIsValid(CFPropertyListRef plist, CFPropertyListFormat format);

// The older pair; reads both formats, writes XML.
CF_EXPORT CFPropertyListRef CFPropertyListCreateFromXMLData(CFAllocatorRef allocator,
                                                            CFDataRef xmlData,
                                                            CFOptionFlags mutabilityOption,
                                                            CFStringRef* errorString);
CF_EXPORT CFDataRef CFPropertyListCreateXMLData(CFAllocatorRef allocator,
                                                CFPropertyListRef propertyList);
