#pragma once

// Strings and paths.
//
// Thread: any.
// Ownership: the caller releases a string that is handed out; buffers are the caller's.
// Units and range: UTF-8.
// Failure: null.

#include <CoreFoundation/CoreFoundation.h>

#include <cstdint>

// What a caller's buffer for a path must hold, terminator included.
inline constexpr uint32_t kTMBStringPathSize = 1024;

// A length of 0 means up to the terminator.
CFStringRef TMBString_UTF8ToCFString(const char* inText, uint32_t inLength);

// The path with a leading tilde and all links resolved. The user's own home stands for a tilde and
// for whatever follows it up to the first slash. A path that does not exist is answered unresolved,
// or with null if it must exist. What does not fit the buffer is cut.
char* TMBString_ExpandPath(const char* inPath, char* outBuffer, int32_t inMustExist);
CFStringRef TMBString_CFExpandPath(const char* inPath, int32_t inMustExist);
