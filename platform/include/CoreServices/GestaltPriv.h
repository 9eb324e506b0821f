#pragma once

#include <CoreServices/CoreServices.h>

// Our own extension, for tests: what Gestalt answers from now on in this process.
#ifdef __cplusplus
extern "C" {
#endif
__attribute__((visibility("default"))) void TembraGestaltSetSystemVersion(SInt32 inMajor,
                                                                          SInt32 inMinor,
                                                                          SInt32 inBugFix);
#ifdef __cplusplus
}
#endif
