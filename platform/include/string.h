#pragma once

#include_next <string.h>

// glibc has strlcpy and strlcat from 2.38 on.
#ifdef __GLIBC__
#if !__GLIBC_PREREQ(2, 38)

// Copies as much of inSource as fits and terminates it; answers the length of inSource.
static inline size_t strlcpy(char* outText, const char* inSource, size_t inSize) {
  const size_t length = strlen(inSource);
  if (inSize > 0) {
    const size_t copied = length < inSize ? length : inSize - 1;
    memcpy(outText, inSource, copied);
    outText[copied] = 0;
  }
  return length;
}

// Appends as much of inSource as fits; answers the length that the whole would have had.
static inline size_t strlcat(char* ioText, const char* inSource, size_t inSize) {
  const size_t length = strnlen(ioText, inSize);
  return length + strlcpy(ioText + length, inSource, inSize - length);
}

#endif
#endif
