#pragma once

// The small pieces of machine code over which a patched function is left and entered again. Any
// thread; an island has one owner, who frees it or leaves it for ever.

#include <mach/mach.h>
#include <stddef.h>
#include <stdint.h>

#include <array>

inline constexpr size_t kIslandInstructionBytes = 32;
inline constexpr size_t kIslandCodeBytes = 46;
inline constexpr size_t kIslandPageBytes = 4096;

// Runs its instruction area and then jumps to mTarget. One page of its own near the function it
// serves; the heap variant is laid out the same.
#pragma pack(push, 1)
struct BranchIsland {
  uint8_t mInstructions[kIslandInstructionBytes];  // filled up with nop
  uint8_t mJump[6];                                // through the pointer that follows
  uint64_t mTarget;
  uint8_t mUnused[2];
  uint32_t mIsPage;  // of the virtual-memory system, not the heap
};
#pragma pack(pop)
static_assert(offsetof(BranchIsland, mJump) == 32 && offsetof(BranchIsland, mTarget) == 38 &&
              offsetof(BranchIsland, mIsPage) == 48 && sizeof(BranchIsland) == 52);

extern const std::array<uint8_t, kIslandCodeBytes> kIslandTemplate;

// Addresses from which every displacement that an island will hold, or that leads to it, fits.
struct IslandRange {
  uintptr_t mLowest = 0;
  uintptr_t mHighest = UINTPTR_MAX;  // still in the range
};

// With inAllocateHigh, the lowest free page within 2 GiB of inNearby and in inFits, readable and
// writable; else a block of the heap. Its code is not set yet.
// Failure: KERN_NO_SPACE if there is no room; kMachOverrideErrorCannotOverride if inFits kept pages
// out and there is no other; or what the virtual-memory system said.
kern_return_t allocateBranchIsland(BranchIsland** outIsland, bool inAllocateHigh,
                                   const void* inNearby, const IslandRange& inFits = {});

kern_return_t freeBranchIsland(BranchIsland* inIsland);

// Writes the island's code. inInstructions: kIslandInstructionBytes, or null for nothing but the
// jump. Always 0.
kern_return_t setBranchIslandTarget_i386(BranchIsland* outIsland, const void* inTarget,
                                         const uint8_t* inInstructions);

// Takes the right to write from the page of the island and gives it that to run.
kern_return_t makeIslandExecutable(const BranchIsland* inIsland);
