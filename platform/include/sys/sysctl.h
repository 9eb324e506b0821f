#pragma once

#ifndef __linux__
#include_next <sys/sysctl.h>
#else

#include <stddef.h>
#include <sys/time.h>

#ifdef __cplusplus
extern "C" {
#endif

// Reads one of: "kern.boottime" (struct timeval), "kern.osversion", "kern.osrelease",
// "kern.hostname", "hw.model" (text), "hw.ncpu", "hw.pagesize" (int). A null oldp asks for the
// size; too little room is ENOMEM, an unknown name ENOENT, any write EPERM. 0, or -1 with errno.
__attribute__((visibility("default"))) int sysctlbyname(const char* name, void* oldp,
                                                        size_t* oldlenp, void* newp, size_t newlen);

#ifdef __cplusplus
}
#endif

#endif  // __linux__
