// Any bytes as the beginning of a function, never run: it is refused, or what is measured, kept and
// moved is whole. The bytes lie at the end of what can be read.

#include <mach/mach.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <numeric>
#include <vector>

#include "library/sys/mac/mach_override/FunctionPrologue.h"

namespace {

constexpr size_t kPage = 4096;
constexpr uint64_t kPatch = 0xFEDCBA9876543210;

void Require(bool inHolds) {
  if (!inHolds) std::abort();
}

// The end of a page that is followed by one that cannot be read.
uint8_t* PageEnd() {
  static uint8_t* const sEnd = [] {
    // What is unknown is told there, at each of millions of tries.
    stderr = std::fopen("/dev/null", "we");
    void* const pages =
        mmap(nullptr, 2 * kPage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    Require(pages != MAP_FAILED && stderr != nullptr);
    auto* const end = static_cast<uint8_t*>(pages) + kPage;
    Require(mprotect(end, kPage, PROT_NONE) == 0);
    return end;
  }();
  return sEnd;
}

// The one page that can be read, or the one behind it that cannot.
void RegionAt(vm_address_t& ioAddress, vm_size_t& outSize, vm_prot_t& outProtection) {
  const auto end = reinterpret_cast<vm_address_t>(PageEnd());
  Require(ioAddress >= end - kPage && ioAddress < end + kPage);
  outProtection = ioAddress < end ? VM_PROT_READ : VM_PROT_NONE;
  ioAddress = ioAddress < end ? end - kPage : end;
  outSize = kPage;
}

struct Measured {
  uint64_t mPatch = kPatch;
  size_t mBytes = 0;
  size_t mCount = 0;
  uint8_t mSizes[kMaxEatenInstructions] = {};
  uint8_t mInstructions[kIslandInstructionBytes] = {};
};

int64_t DisplacementAt(const uint8_t* inJump) {
  int32_t displacement;
  std::memcpy(&displacement, inJump + 1, sizeof displacement);
  return displacement;
}

// Moved to inIsland, each E9 jump leads where it led, and all else is as it was.
void CheckMove(const Measured& inMeasured, uintptr_t inFunction, uintptr_t inIsland) {
  uint8_t moved[kIslandInstructionBytes];
  std::memcpy(moved, inMeasured.mInstructions, sizeof moved);
  fixupInstructions(inFunction, inIsland, moved, inMeasured.mCount, inMeasured.mSizes);
  size_t at = 0;
  for (size_t i = 0; i < inMeasured.mCount; ++i) {
    const uint8_t* const before = inMeasured.mInstructions + at;
    if (*before == 0xE9) {
      Require(static_cast<int64_t>(inFunction) + DisplacementAt(before) ==
              static_cast<int64_t>(inIsland) + DisplacementAt(moved + at));
      Require(moved[at] == 0xE9);
    } else {
      Require(std::memcmp(before, moved + at, inMeasured.mSizes[i]) == 0);
    }
    at += inMeasured.mSizes[i];
  }
  Require(std::memcmp(inMeasured.mInstructions + at, moved + at, sizeof moved - at) == 0);
}

}  // namespace

// In the place of the platform's, which reads the map of the whole process: a hundred times the
// work of all else here.
extern "C" kern_return_t vm_region_64(vm_map_t, vm_address_t* address, vm_size_t* size,
                                      vm_region_flavor_t, vm_region_info_t info,
                                      mach_msg_type_number_t*, mach_port_t*) {
  vm_region_basic_info_data_64_t region{};
  RegionAt(*address, *size, region.protection);
  std::memcpy(info, &region, sizeof region);
  return KERN_SUCCESS;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* inData, size_t inSize) {
  const size_t size = std::min(inSize, kPage);
  uint8_t* const code = PageEnd() - size;
  if (size > 0) std::memcpy(code, inData, size);

  Measured measured;
  const bool patchable =
      eatKnownInstructions(code, &measured.mPatch, &measured.mBytes, measured.mInstructions,
                           &measured.mCount, measured.mSizes);
  Require(measured.mCount <= kMaxEatenInstructions);
  const size_t sum = std::accumulate(measured.mSizes, measured.mSizes + measured.mCount, size_t{0});
  Require(sum == measured.mBytes && sum <= size);
  Require(std::memcmp(measured.mInstructions, code, sum) == 0);
  for (size_t i = sum; i < kIslandInstructionBytes; ++i) Require(measured.mInstructions[i] == 0x90);
  if (!patchable) {
    Require(sum < kPatchJumpBytes && measured.mPatch == kPatch);
    return 0;
  }
  Require(size >= kPatchBytes && sum >= kPatchJumpBytes && sum < kIslandInstructionBytes);
  Require(sum - measured.mSizes[measured.mCount - 1] < kPatchJumpBytes);
  Require(measured.mPatch == ((kPatch & ~uint64_t{0xFFFFFF}) | uint64_t{code[5]} << 16 |
                              uint64_t{code[6]} << 8 | code[7]));

  // At both ends of where it can be moved to, and at its own place.
  const uintptr_t function = 0x7F00'0000'0000;
  IslandRange range =
      RangeOfFixup(function, measured.mInstructions, measured.mCount, measured.mSizes);
  Require(range.mLowest <= function && function <= range.mHighest);
  for (const uintptr_t island : {range.mLowest, function, range.mHighest}) {
    CheckMove(measured, function, island);
  }
  return 0;
}
