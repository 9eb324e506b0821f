#pragma once

#include <CoreFoundation/CoreFoundation.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

enum : OSType {
  gestaltSystemVersion = 'sysv',  // one digit each of minor and fix, at most 9: 0x1096
  gestaltSystemVersionMajor = 'sys1',
  gestaltSystemVersionMinor = 'sys2',
  gestaltSystemVersionBugFix = 'sys3'
};
enum : OSStatus { gestaltUnknownErr = -5550, gestaltUndefSelectorErr = -5551 };

// The generation of the audio system that this host stands for. An unknown selector is
// gestaltUndefSelectorErr and leaves the response alone.
OSErr Gestalt(OSType selector, SInt32* response);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
