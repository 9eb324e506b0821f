#pragma once

#include <mach/mach.h>
#include <stddef.h>
#include <stdint.h>

struct MappedRegionInfo {
  uintptr_t mAddress;
  size_t mSize;
  bool mIsReadable;
};

// The region of this task that holds inAddress, or the next above. Any thread. Failure: what the
// virtual-memory system said, as when there is none.
kern_return_t RegionAtOrAbove(uintptr_t inAddress, MappedRegionInfo& outRegion);

// How many bytes can be read from inAddress on, at most inLimit. Any thread; the answer is as good
// as the mapping is lasting.
size_t ReadableBytes(uintptr_t inAddress, size_t inLimit);
