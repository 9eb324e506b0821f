#pragma once

// What is known of a function by its first bytes. Any thread; nothing is kept.

#include <stddef.h>
#include <stdint.h>

#include "library/sys/mac/mach_override/BranchIsland.h"

inline constexpr size_t kPatchJumpBytes = 5;  // E9 and a 32-bit displacement
inline constexpr size_t kPatchBytes = 8;      // what one store replaces
// Instructions of one byte at least, until the jump is covered.
inline constexpr size_t kMaxEatenInstructions = kPatchJumpBytes;

// Where the import stubs at inAddress lead to, one after the other; inAddress itself if it is none.
// A stub is a jump through a pointer relative to itself, with or without endbr64 before it. 0 if
// a pointer cannot be read or the stubs lead in a circle.
uintptr_t FollowImportStubs(uintptr_t inAddress);

// Measures whole instructions from inCode on until the patch's jump is covered.
//
// ioPatch: if the function may be patched, its low 24 bits become the function's bytes 5 to 7, the
// last of them lowest; the rest is left alone.
// outByteCount, outInstructionCount, outSizes: what was measured; outSizes has room for
// kMaxEatenInstructions.
// outInstructions: null, or kIslandInstructionBytes that get the measured bytes and then nops.
//
// False if the function may not be patched: an instruction is unknown (standard error says so), the
// instructions do not fit outInstructions, or fewer than kPatchBytes can be read.
bool eatKnownInstructions(const uint8_t* inCode, uint64_t* ioPatch, size_t* outByteCount,
                          uint8_t* outInstructions, size_t* outInstructionCount, uint8_t* outSizes);

// Corrects the displacement of each E9 jump in ioInstructions, which are moved from inFunction to
// inIsland. Nothing else is corrected.
void fixupInstructions(uintptr_t inFunction, uintptr_t inIsland, uint8_t* ioInstructions,
                       size_t inInstructionCount, const uint8_t* inSizes);

// The addresses of islands that inFunction's jump can reach.
IslandRange RangeOfJumpFrom(uintptr_t inFunction);

// The addresses to which the instructions can be moved so that fixupInstructions is right.
IslandRange RangeOfFixup(uintptr_t inFunction, const uint8_t* inInstructions,
                         size_t inInstructionCount, const uint8_t* inSizes);
