#pragma once

#include_next <unistd.h>

// What the C library here lacks of the native one's.
#ifdef __linux__

#ifdef __cplusplus
extern "C" {
#endif

// 1 if the process runs with another user's or group's rights than those of who started it: what
// comes from outside, the environment above all, is then not to be trusted.
__attribute__((visibility("default"))) int issetugid(void);

#ifdef __cplusplus
}
#endif

#endif  // __linux__
