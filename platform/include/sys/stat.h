#pragma once

#include_next <sys/stat.h>

// The times of a file by the native names.
#ifdef __linux__
#define st_atimespec st_atim
#define st_mtimespec st_mtim
#define st_ctimespec st_ctim
#endif
