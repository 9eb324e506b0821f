#pragma once

// Redirects a function of this process to a replacement while the process runs, and hands back a
// way to call it as it was. x86-64 only.
//
// The function's entry gets a five-byte jump to an escape island, which jumps on to the replacement
// wherever that lies. What the jump overwrites is moved to a reentry island, which goes on behind
// it. The moved instructions are not rewritten, but for a jump with a 32-bit displacement: a
// function that begins with a call, a short or conditional jump or an instruction that addresses
// relative to itself is patched all the same, and its reentry island is wrong.
//
// Any thread, one call at a time; the switch itself is one 8-byte store. A thread that stands
// inside the first 8 bytes at that moment is not protected, so it is best that the first
// instruction has five bytes or more and the function is aligned. A patch is never taken out, and
// its islands live as long as the process.

#include <mach/mach.h>
#include <stdint.h>

// The function cannot be patched, or no island can be made executable.
inline constexpr kern_return_t kMachOverrideErrorCannotOverride =
    static_cast<kern_return_t>(0xf8000001U);

extern "C" {

// originalFunctionAddress: the function, or an import stub that leads to it.
// originalFunctionReentryIsland: may be null, and then there is no way back; else gets the address
// to call for the function as it was. After a failure it may hold an address that is gone: the
// caller clears it.
// Result: 0; kMachOverrideErrorCannotOverride; or what the virtual-memory system said. At a failure
// the function's bytes are as they were, and standard error has a line for each stage it reached.
kern_return_t mach_override_ptr(void* originalFunctionAddress, const void* overrideFunctionAddress,
                                void** originalFunctionReentryIsland);

// How many times an island was asked for, at one page or from the heap, since the process began.
// Wraps at 2^64.
int64_t mach_override_ptr_allocation_attempts(void);

}  // extern "C"
