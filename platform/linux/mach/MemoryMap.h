#pragma once

#include <cstddef>
#include <cstdint>

namespace tembra {

// One mapped region of this process.
struct MappedRegion {
  uintptr_t mStart;
  uintptr_t mEnd;
  bool mReadable;
  bool mWritable;
  bool mExecutable;
  bool mShared;
  uint64_t mOffset;  // in the mapped file
};

// Reads a line of the kernel's memory map; false if it is none.
bool ParseMappedRegion(const char* inLine, MappedRegion& outRegion);

// Walks the regions of this process from the lowest address up until inVisit answers false. Any
// thread; allocates nothing, so the map does not change under the walk by its own doing. False if
// the map cannot be read.
bool WalkMappedRegions(bool (*inVisit)(void* inContext, const MappedRegion&), void* inContext);

// The same for a callable.
template <typename Visit>
bool ForEachMappedRegion(Visit inVisit) {
  return WalkMappedRegions(
      [](void* inContext, const MappedRegion& inRegion) -> bool {
        return (*static_cast<Visit*>(inContext))(inRegion);
      },
      &inVisit);
}

}  // namespace tembra
