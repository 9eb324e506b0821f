#include <mach/mach.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <limits>

#include "mach/MemoryMap.h"
#include "mach/PrivateCopy.h"

// The port of the one task there is. Any other names nothing.
mach_port_t mach_task_self_ = 1;
vm_size_t vm_page_size = static_cast<vm_size_t>(sysconf(_SC_PAGESIZE));

namespace {

using tembra::ForEachMappedRegion;
using tembra::MappedRegion;

// The library's own constructors may run later than a caller's.
vm_size_t PageSize() {
  static const vm_size_t sPageSize = static_cast<vm_size_t>(sysconf(_SC_PAGESIZE));
  return sPageSize;
}

vm_address_t RoundDown(vm_address_t inAddress) {
  return inAddress & ~(PageSize() - 1);
}

// The whole pages that hold the range. False if they reach past the end of addresses.
bool WholePages(vm_address_t inAddress, vm_size_t inSize, vm_address_t& outStart,
                vm_size_t& outSize) {
  const vm_size_t mask = PageSize() - 1;
  if (inSize > std::numeric_limits<vm_size_t>::max() - inAddress ||
      inAddress + inSize > std::numeric_limits<vm_size_t>::max() - mask) {
    return false;
  }
  outStart = RoundDown(inAddress);
  outSize = ((inAddress + inSize + mask) & ~mask) - outStart;
  return true;
}

kern_return_t StatusOfErrno(int inError) {
  switch (inError) {
    case EACCES:
      return KERN_PROTECTION_FAILURE;
    case EEXIST:
    case EAGAIN:
      return KERN_NO_SPACE;
    case ENOMEM:
    case EPERM:
    case EINVAL:
      return KERN_INVALID_ADDRESS;
    default:
      return KERN_FAILURE;
  }
}

kern_return_t AllocateAnywhere(vm_address_t& outAddress, vm_size_t inSize) {
  void* const memory =
      mmap(nullptr, inSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) {
    return KERN_NO_SPACE;
  }
  outAddress = reinterpret_cast<vm_address_t>(memory);
  return KERN_SUCCESS;
}

// Nothing may lie where a null pointer and its fields point to, not even what root asks for.
constexpr vm_address_t kLowestAddress = 0x10000;

kern_return_t AllocateAt(vm_address_t inAddress, vm_size_t inSize) {
  if (inAddress < kLowestAddress) {
    return KERN_INVALID_ADDRESS;
  }
  void* const wanted = reinterpret_cast<void*>(inAddress);
  void* const memory = mmap(wanted, inSize, PROT_READ | PROT_WRITE,
                            MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0);
  if (memory == MAP_FAILED) {
    return StatusOfErrno(errno);
  }
  if (memory != wanted) {
    // A kernel that does not know the flag takes the address as a hint.
    munmap(memory, inSize);
    return KERN_NO_SPACE;
  }
  return KERN_SUCCESS;
}

bool HoldsExecutableCode(vm_address_t inStart, vm_size_t inSize) {
  bool found = false;
  const bool known = ForEachMappedRegion([&](const MappedRegion& region) {
    found = region.mExecutable && region.mStart < inStart + inSize && inStart < region.mEnd;
    return !found && region.mStart < inStart + inSize;
  });
  return found || !known;
}

vm_prot_t ProtectionOf(const MappedRegion& inRegion) {
  return (inRegion.mReadable ? VM_PROT_READ : 0) | (inRegion.mWritable ? VM_PROT_WRITE : 0) |
         (inRegion.mExecutable ? VM_PROT_EXECUTE : 0);
}

}  // namespace

kern_return_t vm_allocate(vm_map_t target_task, vm_address_t* address, vm_size_t size, int flags) {
  if (target_task != mach_task_self() || !address) {
    return KERN_INVALID_ARGUMENT;
  }
  const bool anywhere = (flags & VM_FLAGS_ANYWHERE) != 0;
  if (size == 0) {
    *address = 0;
    return KERN_SUCCESS;
  }
  vm_address_t start = 0;
  vm_size_t whole = 0;
  if (!WholePages(anywhere ? 0 : RoundDown(*address), size, start, whole)) {
    return anywhere ? KERN_NO_SPACE : KERN_INVALID_ADDRESS;
  }
  if (anywhere) {
    return AllocateAnywhere(*address, whole);
  }
  const kern_return_t status = AllocateAt(start, whole);
  if (status == KERN_SUCCESS) {
    *address = start;
  }
  return status;
}

kern_return_t vm_deallocate(vm_map_t target_task, vm_address_t address, vm_size_t size) {
  if (target_task != mach_task_self()) {
    return KERN_INVALID_ARGUMENT;
  }
  vm_address_t start = 0;
  vm_size_t whole = 0;
  if (size == 0) {
    return KERN_SUCCESS;
  }
  if (!WholePages(address, size, start, whole)) {
    return KERN_INVALID_ADDRESS;
  }
  return munmap(reinterpret_cast<void*>(start), whole) == 0 ? KERN_SUCCESS : KERN_INVALID_ADDRESS;
}

kern_return_t vm_protect(vm_map_t target_task, vm_address_t address, vm_size_t size,
                         boolean_t set_maximum, vm_prot_t new_protection) {
  if (target_task != mach_task_self() || (new_protection & ~(VM_PROT_ALL | VM_PROT_COPY)) != 0) {
    return KERN_INVALID_ARGUMENT;
  }
  if (set_maximum) {
    return KERN_NOT_SUPPORTED;
  }
  vm_address_t start = 0;
  vm_size_t whole = 0;
  if (size == 0) {
    return KERN_SUCCESS;
  }
  if (!WholePages(address, size, start, whole)) {
    return KERN_INVALID_ADDRESS;
  }
  const bool writable = (new_protection & VM_PROT_WRITE) != 0;
  const bool executable = (new_protection & VM_PROT_EXECUTE) != 0;
  if (writable && !executable && HoldsExecutableCode(start, whole)) {
    return KERN_PROTECTION_FAILURE;
  }
  if (writable && (new_protection & VM_PROT_COPY)) {
    const kern_return_t copied = tembra::MakeRangePrivate(start, whole);
    if (copied != KERN_SUCCESS) {
      return copied;
    }
  }
  const int protection = ((new_protection & VM_PROT_READ) ? PROT_READ : 0) |
                         (writable ? PROT_WRITE : 0) | (executable ? PROT_EXEC : 0);
  return mprotect(reinterpret_cast<void*>(start), whole, protection) == 0 ? KERN_SUCCESS
                                                                          : StatusOfErrno(errno);
}

kern_return_t vm_region_64(vm_map_t target_task, vm_address_t* address, vm_size_t* size,
                           vm_region_flavor_t flavor, vm_region_info_t info,
                           mach_msg_type_number_t* infoCnt, mach_port_t* object_name) {
  if (target_task != mach_task_self() || !address || !size || !info || !infoCnt ||
      flavor != VM_REGION_BASIC_INFO_64 || *infoCnt < VM_REGION_BASIC_INFO_COUNT_64) {
    return KERN_INVALID_ARGUMENT;
  }
  MappedRegion found{};
  if (!ForEachMappedRegion([&](const MappedRegion& region) {
        if (region.mEnd > *address) {
          found = region;
        }
        return found.mEnd == 0;
      })) {
    return KERN_FAILURE;
  }
  if (found.mEnd == 0) {
    return KERN_INVALID_ADDRESS;
  }
  *address = found.mStart;
  *size = found.mEnd - found.mStart;
  *infoCnt = VM_REGION_BASIC_INFO_COUNT_64;
  auto* const basic = reinterpret_cast<vm_region_basic_info_64_t>(info);
  *basic = {};
  basic->protection = ProtectionOf(found);
  basic->max_protection = VM_PROT_ALL;
  basic->inheritance = found.mShared ? VM_INHERIT_SHARE : VM_INHERIT_COPY;
  basic->shared = found.mShared;
  basic->offset = found.mOffset;
  if (object_name) {
    *object_name = MACH_PORT_NULL;
  }
  return KERN_SUCCESS;
}
