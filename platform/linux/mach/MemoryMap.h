#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

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
bool ForEachMappedRegion(const std::function<bool(const MappedRegion&)>& inVisit);

}  // namespace tembra
