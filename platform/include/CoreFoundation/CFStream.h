#pragma once

// Byte streams from and to files. They are read and written synchronously.

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFError.h>
#include <CoreFoundation/CFString.h>
#include <CoreFoundation/CFURL.h>

typedef CF_ENUM(CFIndex, CFStreamStatus) {
  kCFStreamStatusNotOpen = 0,
  kCFStreamStatusOpening,
  kCFStreamStatusOpen,
  kCFStreamStatusReading,
  kCFStreamStatusWriting,
  kCFStreamStatusAtEnd,
  kCFStreamStatusClosed,
  kCFStreamStatusError
};

typedef CF_ENUM(CFIndex, CFStreamErrorDomain) {
  kCFStreamErrorDomainCustom = -1L,
  kCFStreamErrorDomainPOSIX = 1,
  kCFStreamErrorDomainMacOSStatus
};

typedef struct {
  CFIndex domain;
  SInt32 error;
} CFStreamError;

typedef CFStringRef CFStreamPropertyKey;
typedef struct __CFReadStream* CFReadStreamRef;
typedef struct __CFWriteStream* CFWriteStreamRef;

CF_EXPORT CFTypeID CFReadStreamGetTypeID(void);
CF_EXPORT CFTypeID CFWriteStreamGetTypeID(void);
CF_EXPORT CFReadStreamRef CFReadStreamCreateWithFile(CFAllocatorRef alloc, CFURLRef fileURL);
// Opening creates the file or empties it.
CF_EXPORT CFWriteStreamRef CFWriteStreamCreateWithFile(CFAllocatorRef alloc, CFURLRef fileURL);

CF_EXPORT CFStreamStatus CFReadStreamGetStatus(CFReadStreamRef stream);
CF_EXPORT CFStreamStatus CFWriteStreamGetStatus(CFWriteStreamRef stream);
CF_EXPORT CFErrorRef CFReadStreamCopyError(CFReadStreamRef stream);
CF_EXPORT CFErrorRef CFWriteStreamCopyError(CFWriteStreamRef stream);
CF_EXPORT CFStreamError CFReadStreamGetError(CFReadStreamRef stream);
CF_EXPORT CFStreamError CFWriteStreamGetError(CFWriteStreamRef stream);
CF_EXPORT Boolean CFReadStreamOpen(CFReadStreamRef stream);
CF_EXPORT Boolean CFWriteStreamOpen(CFWriteStreamRef stream);
CF_EXPORT void CFReadStreamClose(CFReadStreamRef stream);
CF_EXPORT void CFWriteStreamClose(CFWriteStreamRef stream);
CF_EXPORT Boolean CFReadStreamHasBytesAvailable(CFReadStreamRef stream);
// The bytes read, 0 at the end, -1 on an error or when the stream is not open.
CF_EXPORT CFIndex CFReadStreamRead(CFReadStreamRef stream, UInt8* buffer, CFIndex bufferLength);
CF_EXPORT Boolean CFWriteStreamCanAcceptBytes(CFWriteStreamRef stream);
CF_EXPORT CFIndex CFWriteStreamWrite(CFWriteStreamRef stream, const UInt8* buffer,
                                     CFIndex bufferLength);
// File streams have no properties: null and false.
CF_EXPORT CFTypeRef CFReadStreamCopyProperty(CFReadStreamRef stream,
                                             CFStreamPropertyKey propertyName);
CF_EXPORT CFTypeRef CFWriteStreamCopyProperty(CFWriteStreamRef stream,
                                              CFStreamPropertyKey propertyName);
CF_EXPORT Boolean CFReadStreamSetProperty(CFReadStreamRef stream, CFStreamPropertyKey propertyName,
                                          CFTypeRef propertyValue);
CF_EXPORT Boolean CFWriteStreamSetProperty(CFWriteStreamRef stream,
                                           CFStreamPropertyKey propertyName,
                                           CFTypeRef propertyValue);
