#include "library/sys/mac/mach_override/BranchIsland.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>

#include <atomic>

#include "library/sys/mac/mach_override/MappedMemory.h"
#include "library/sys/mac/mach_override/mach_override.h"

namespace {

constexpr uintptr_t kReach = 0x7FFFFFFF;
constexpr uintptr_t kPageMask = kIslandPageBytes - 1;

constexpr std::array<uint8_t, kIslandCodeBytes> MakeTemplate() {
  std::array<uint8_t, kIslandCodeBytes> code{};
  for (size_t i = 0; i < kIslandInstructionBytes; ++i) code[i] = 0x90;
  code[kIslandInstructionBytes] = 0xFF;
  code[kIslandInstructionBytes + 1] = 0x25;
  return code;
}

constinit std::atomic<int64_t> g_mach_override_allocation_attempts{0};

bool IsOccupied(kern_return_t inError) {
  return inError == KERN_NO_SPACE || inError == KERN_INVALID_ADDRESS;
}

uintptr_t NextPage(uintptr_t inAddress) {
  return (inAddress + kPageMask) & ~kPageMask;
}

// Walks upwards from hole to hole. Pages out of inFits are passed over without a try.
kern_return_t AllocatePageNear(uintptr_t inNearby, const IslandRange& inFits,
                               vm_address_t& outPage) {
  uintptr_t page = ((inNearby - kReach) & ~kPageMask) + kIslandPageBytes;
  if (page > inNearby) page = 0;
  uintptr_t end = inNearby + kReach;
  if (end < inNearby) end = UINTPTR_MAX;

  bool passedOver = false;
  if (page < inFits.mLowest) {
    page = NextPage(inFits.mLowest);
    passedOver = true;
  }
  while (page < end) {
    if (page > inFits.mHighest) {
      passedOver = true;
      break;
    }
    g_mach_override_allocation_attempts.fetch_add(1);
    vm_address_t found = page;
    const kern_return_t error =
        vm_allocate(mach_task_self(), &found, kIslandPageBytes, VM_FLAGS_FIXED);
    if (error == KERN_SUCCESS) {
      outPage = found;
      return KERN_SUCCESS;
    }
    if (!IsOccupied(error)) return error;
    MappedRegionInfo region;
    const kern_return_t none = RegionAtOrAbove(page, region);
    if (none != KERN_SUCCESS) return none;
    page = region.mAddress + region.mSize;
  }
  return passedOver ? kMachOverrideErrorCannotOverride : KERN_NO_SPACE;
}

}  // namespace

constinit const std::array<uint8_t, kIslandCodeBytes> kIslandTemplate = MakeTemplate();

int64_t mach_override_ptr_allocation_attempts() {
  return g_mach_override_allocation_attempts.fetch_add(0);
}

kern_return_t allocateBranchIsland(BranchIsland** outIsland, bool inAllocateHigh,
                                   const void* inNearby, const IslandRange& inFits) {
  BranchIsland* island = nullptr;
  if (inAllocateHigh) {
    vm_address_t page = 0;
    const kern_return_t error =
        AllocatePageNear(reinterpret_cast<uintptr_t>(inNearby), inFits, page);
    if (error != KERN_SUCCESS) return error;
    island = reinterpret_cast<BranchIsland*>(page);
  } else {
    g_mach_override_allocation_attempts.fetch_add(1);
    island = static_cast<BranchIsland*>(malloc(sizeof(BranchIsland)));
    if (island == nullptr) return KERN_NO_SPACE;
  }
  island->mIsPage = inAllocateHigh ? 1 : 0;
  *outIsland = island;
  return KERN_SUCCESS;
}

kern_return_t freeBranchIsland(BranchIsland* inIsland) {
  if (inIsland->mIsPage == 0) {
    free(inIsland);
    return KERN_SUCCESS;
  }
  return vm_deallocate(mach_task_self(), reinterpret_cast<vm_address_t>(inIsland),
                       kIslandPageBytes);
}

kern_return_t setBranchIslandTarget_i386(BranchIsland* outIsland, const void* inTarget,
                                         const uint8_t* inInstructions) {
  memcpy(outIsland, kIslandTemplate.data(), kIslandTemplate.size());
  if (inInstructions != nullptr) {
    memcpy(outIsland->mInstructions, inInstructions, kIslandInstructionBytes);
  }
  outIsland->mTarget = reinterpret_cast<uint64_t>(inTarget);
  msync(outIsland, kIslandCodeBytes, MS_INVALIDATE);
  return KERN_SUCCESS;
}

kern_return_t makeIslandExecutable(const BranchIsland* inIsland) {
  void* const page = reinterpret_cast<void*>(reinterpret_cast<uintptr_t>(inIsland) & ~kPageMask);
  if (mprotect(page, kIslandPageBytes, PROT_READ | PROT_EXEC) != 0) {
    return kMachOverrideErrorCannotOverride;
  }
  // Memory that is locked has nothing to invalidate.
  if (msync(page, kIslandPageBytes, MS_INVALIDATE) != 0 && errno != EBUSY) {
    return kMachOverrideErrorCannotOverride;
  }
  return KERN_SUCCESS;
}
