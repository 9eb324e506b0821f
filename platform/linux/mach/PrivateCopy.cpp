#include "mach/PrivateCopy.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "base/Descriptor.h"
#include "mach/MemoryMap.h"

namespace tembra {

namespace {

// The lowest shared part of the range; empty if there is none. False if nobody knows.
bool FindSharedPart(vm_address_t inStart, vm_address_t inEnd, MappedRegion& outPart) {
  outPart = {};
  return ForEachMappedRegion([&](const MappedRegion& region) {
    if (region.mShared && region.mStart < inEnd && inStart < region.mEnd) {
      outPart = region;
      outPart.mStart = std::max(region.mStart, inStart);
      outPart.mEnd = std::min(region.mEnd, inEnd);
      return false;
    }
    return region.mEnd < inEnd;
  });
}

// Through the kernel: what lies behind a file's end is an error here and not a signal.
bool ReadOwnMemory(vm_address_t inFrom, char* outBytes, vm_size_t inSize) {
  const Descriptor memory(open("/proc/self/mem", O_RDONLY | O_CLOEXEC));
  while (inSize > 0) {
    const ssize_t got = pread(memory.Get(), outBytes, inSize, static_cast<off_t>(inFrom));
    if (got < 0 && errno == EINTR) {
      continue;
    }
    if (got <= 0) {
      return false;
    }
    inFrom += static_cast<vm_size_t>(got);
    outBytes += got;
    inSize -= static_cast<vm_size_t>(got);
  }
  return true;
}

bool ReplaceByCopy(const MappedRegion& inPart) {
  const vm_size_t size = inPart.mEnd - inPart.mStart;
  const int protection = (inPart.mReadable ? PROT_READ : 0) | (inPart.mWritable ? PROT_WRITE : 0) |
                         (inPart.mExecutable ? PROT_EXEC : 0);
  void* const copy =
      mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (copy == MAP_FAILED) {
    return false;
  }
  // The move replaces what is there in one step.
  if (ReadOwnMemory(inPart.mStart, static_cast<char*>(copy), size) &&
      mprotect(copy, size, protection) == 0 &&
      mremap(copy, size, size, MREMAP_MAYMOVE | MREMAP_FIXED,
             reinterpret_cast<void*>(inPart.mStart)) != MAP_FAILED) {
    return true;
  }
  munmap(copy, size);
  return false;
}

}  // namespace

kern_return_t MakeRangePrivate(vm_address_t inStart, vm_size_t inSize) {
  for (;;) {
    MappedRegion part;
    if (!FindSharedPart(inStart, inStart + inSize, part)) {
      return KERN_PROTECTION_FAILURE;
    }
    if (part.mEnd == 0) {
      return KERN_SUCCESS;
    }
    if (!ReplaceByCopy(part)) {
      return KERN_PROTECTION_FAILURE;
    }
  }
}

}  // namespace tembra
