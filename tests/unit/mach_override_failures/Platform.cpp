#include "unit/mach_override_failures/Platform.h"

#include <dlfcn.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

namespace mach_override_tests {

Platform* sPlatform = nullptr;
thread_local uint64_t tHeapCalls = 0;

namespace {

bool sProtecting;  // inside vm_protect, which changes protection too

void Note(const std::string& inText) {
  sPlatform->mNotes.push_back(inText);
  if (sPlatform->mWatch) sPlatform->mWatch(inText);
}

template <typename F>
F* Real(const char* inName, F*) {
  return reinterpret_cast<F*>(dlsym(RTLD_NEXT, inName));
}

}  // namespace
}  // namespace mach_override_tests

using mach_override_tests::Note;
using mach_override_tests::Real;
using mach_override_tests::sPlatform;
using mach_override_tests::sProtecting;
using mach_override_tests::tHeapCalls;

extern "C" {

kern_return_t vm_allocate(vm_map_t target_task, vm_address_t* address, vm_size_t size, int flags) {
  if (sPlatform != nullptr) {
    sPlatform->mAllocated.push_back(*address);
    Note("allocate " + std::to_string(size) + (flags == 0 ? " fixed" : " anywhere"));
    if (sPlatform->mAllocate) {
      if (const kern_return_t error = sPlatform->mAllocate(address)) return error;
    }
  }
  return Real("vm_allocate", &vm_allocate)(target_task, address, size, flags);
}

kern_return_t vm_deallocate(vm_map_t target_task, vm_address_t address, vm_size_t size) {
  if (sPlatform != nullptr) {
    sPlatform->mFreed.push_back(address);
    Note("free " + std::to_string(size));
  }
  return Real("vm_deallocate", &vm_deallocate)(target_task, address, size);
}

kern_return_t vm_protect(vm_map_t target_task, vm_address_t address, vm_size_t size,
                         boolean_t set_maximum, vm_prot_t new_protection) {
  if (sPlatform != nullptr) {
    Note("protect " + std::to_string(size) + (set_maximum ? " at most " : " ") +
         std::to_string(new_protection));
    if (sPlatform->mProtect) {
      if (const kern_return_t error = sPlatform->mProtect(new_protection)) return error;
    }
  }
  sProtecting = true;
  const kern_return_t result =
      Real("vm_protect", &vm_protect)(target_task, address, size, set_maximum, new_protection);
  sProtecting = false;
  return result;
}

kern_return_t vm_region_64(vm_map_t target_task, vm_address_t* address, vm_size_t* size,
                           vm_region_flavor_t flavor, vm_region_info_t info,
                           mach_msg_type_number_t* infoCnt, mach_port_t* object_name) {
  if (sPlatform != nullptr && sPlatform->mRegion) {
    return sPlatform->mRegion(address, size);
  }
  return Real("vm_region_64", &vm_region_64)(target_task, address, size, flavor, info, infoCnt,
                                             object_name);
}

// Of the calls below only those for islands are a test's: they ask for one page to run code.

int mprotect(void* address, size_t size, int protection) noexcept {
  if (sPlatform != nullptr && !sProtecting && size == 4096 &&
      protection == (PROT_READ | PROT_EXEC) && sPlatform->mMakeExecutable) {
    Note("make executable");
    if (const int error = sPlatform->mMakeExecutable()) {
      errno = error;
      return -1;
    }
  }
  return static_cast<int>(syscall(SYS_mprotect, address, size, protection));
}

int msync(void* address, size_t size, int flags) {
  if (sPlatform != nullptr && sPlatform->mSync) {
    Note("sync " + std::to_string(size) + " " + std::to_string(flags));
    if (const int error = sPlatform->mSync()) {
      errno = error;
      return -1;
    }
  }
  return static_cast<int>(syscall(SYS_msync, address, size, flags));
}

#if !defined(__has_feature) || \
    !(__has_feature(address_sanitizer) || __has_feature(thread_sanitizer))
void* __libc_malloc(size_t size);

// The platform's library calls it too.
__attribute__((visibility("default"))) void* malloc(size_t size) noexcept {
  ++tHeapCalls;
  return sPlatform != nullptr && sPlatform->mNoHeap && size == 52 ? nullptr : __libc_malloc(size);
}
#endif

}  // extern "C"
