#pragma once

#include <mach/mach.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

// This executable's own versions of what the patcher calls. Each does what the real one does unless
// a test says otherwise, and notes the call.

namespace mach_override_tests {

struct Platform {
  // Answer in the place of the real function; empty for the real one.
  std::function<kern_return_t(vm_address_t* ioAddress)> mAllocate;
  std::function<kern_return_t(vm_prot_t inProtection)> mProtect;
  std::function<kern_return_t(vm_address_t* ioAddress, vm_size_t* outSize)> mRegion;
  std::function<int()> mMakeExecutable;  // 0 for the real one, else errno
  std::function<int()> mSync;
  std::function<void(const std::string&)> mWatch;  // sees each note as it is made
  bool mNoHeap = false;

  std::vector<std::string> mNotes;
  std::vector<vm_address_t> mAllocated;  // every address that was asked for
  std::vector<vm_address_t> mFreed;
};

extern Platform* sPlatform;  // null outside of a test

// How often this thread has asked for memory of the heap. Under a sanitizer, which has a heap of
// its own, always 0.
extern thread_local uint64_t tHeapCalls;

}  // namespace mach_override_tests
