#include "mach/MemoryMap.h"

#include <fcntl.h>
#include <inttypes.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "base/Descriptor.h"

namespace tembra {

bool ParseMappedRegion(const char* inLine, MappedRegion& outRegion) {
  char flags[5] = {};
  MappedRegion region{};
  if (sscanf(inLine, "%" SCNxPTR "-%" SCNxPTR " %4s %" SCNx64, &region.mStart, &region.mEnd, flags,
             &region.mOffset) != 4 ||
      strlen(flags) != 4 || region.mStart >= region.mEnd) {
    return false;
  }
  region.mReadable = flags[0] == 'r';
  region.mWritable = flags[1] == 'w';
  region.mExecutable = flags[2] == 'x';
  region.mShared = flags[3] == 's';
  outRegion = region;
  return true;
}

bool WalkMappedRegions(bool (*inVisit)(void* inContext, const MappedRegion&), void* inContext) {
  const Descriptor file(open("/proc/self/maps", O_RDONLY | O_CLOEXEC));
  if (!file) {
    return false;
  }
  // A line can be as long as a path; only its head matters, the rest is skipped.
  char head[128];
  size_t length = 0;
  bool goOn = true;
  bool complete = false;
  char chunk[4096];
  while (goOn) {
    const ssize_t got = read(file.Get(), chunk, sizeof chunk);
    if (got < 0 && errno == EINTR) {
      continue;
    }
    if (got <= 0) {
      complete = got == 0;
      break;
    }
    for (ssize_t i = 0; goOn && i < got; ++i) {
      if (chunk[i] != '\n') {
        if (length + 1 < sizeof head) {
          head[length++] = chunk[i];
        }
        continue;
      }
      head[length] = 0;
      length = 0;
      MappedRegion region;
      goOn = !ParseMappedRegion(head, region) || inVisit(inContext, region);
    }
  }
  return complete || !goOn;
}

}  // namespace tembra
