#pragma once

#include <stdint.h>

// One plain 8-byte store to code that may be running, aligned or not. Whoever fetches the bytes
// sees all old or, if they lie within one cache line, all new ones.
inline void atomic_mov64(void* outTarget, uint64_t inValue) {
  asm volatile("movq %1, (%0)" : : "r"(outTarget), "r"(inValue) : "memory");
}
