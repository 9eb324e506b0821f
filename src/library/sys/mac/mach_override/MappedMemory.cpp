#include "library/sys/mac/mach_override/MappedMemory.h"

#include <algorithm>

kern_return_t RegionAtOrAbove(uintptr_t inAddress, MappedRegionInfo& outRegion) {
  vm_address_t address = inAddress;
  vm_size_t size = 0;
  vm_region_basic_info_data_64_t info{};
  mach_msg_type_number_t count = VM_REGION_BASIC_INFO_COUNT_64;
  mach_port_t object = MACH_PORT_NULL;
  const kern_return_t error =
      vm_region_64(mach_task_self(), &address, &size, VM_REGION_BASIC_INFO_64,
                   reinterpret_cast<vm_region_info_t>(&info), &count, &object);
  outRegion = {address, size, (info.protection & VM_PROT_READ) != 0};
  return error;
}

size_t ReadableBytes(uintptr_t inAddress, size_t inLimit) {
  size_t readable = 0;
  while (readable < inLimit) {
    const uintptr_t next = inAddress + readable;
    MappedRegionInfo region;
    if (RegionAtOrAbove(next, region) != KERN_SUCCESS) break;
    if (region.mAddress > next || !region.mIsReadable) break;
    readable = region.mAddress + region.mSize - inAddress;
  }
  return std::min(readable, inLimit);
}
