#pragma once

// Byte order of integers. Both targets are little-endian.

#include <CoreFoundation/CFBase.h>

CF_INLINE uint16_t CFSwapInt16(uint16_t arg) {
  return __builtin_bswap16(arg);
}
CF_INLINE uint32_t CFSwapInt32(uint32_t arg) {
  return __builtin_bswap32(arg);
}
CF_INLINE uint64_t CFSwapInt64(uint64_t arg) {
  return __builtin_bswap64(arg);
}
CF_INLINE uint16_t CFSwapInt16BigToHost(uint16_t arg) {
  return __builtin_bswap16(arg);
}
CF_INLINE uint32_t CFSwapInt32BigToHost(uint32_t arg) {
  return __builtin_bswap32(arg);
}
CF_INLINE uint64_t CFSwapInt64BigToHost(uint64_t arg) {
  return __builtin_bswap64(arg);
}
CF_INLINE uint16_t CFSwapInt16HostToBig(uint16_t arg) {
  return __builtin_bswap16(arg);
}
CF_INLINE uint32_t CFSwapInt32HostToBig(uint32_t arg) {
  return __builtin_bswap32(arg);
}
CF_INLINE uint64_t CFSwapInt64HostToBig(uint64_t arg) {
  return __builtin_bswap64(arg);
}
