#pragma once

#ifndef __linux__
#include_next <libproc.h>
#else

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// The name of a process, cut to fit and terminated. Answers its length, 0 (with errno) if there is
// no such process or no room.
__attribute__((visibility("default"))) int proc_name(int pid, void* buffer, uint32_t buffersize);

#ifdef __cplusplus
}
#endif

#endif  // __linux__
