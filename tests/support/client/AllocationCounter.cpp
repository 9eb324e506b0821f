#include "support/client/AllocationCounter.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define TEMBRA_TEST_SANITIZED 1
#endif
#endif

namespace tembra::test {

namespace {

thread_local bool sCounts = false;
thread_local size_t sCount = 0;

}  // namespace

AllocationCounter::AllocationCounter() {
  sCount = 0;
  sCounts = true;
}

AllocationCounter::~AllocationCounter() {
  sCounts = false;
}

size_t AllocationCounter::GetCount() const {
  return sCount;
}

#ifdef TEMBRA_TEST_SANITIZED

bool AllocationCounter::IsAvailable() {
  return false;
}

}  // namespace tembra::test

#else

bool AllocationCounter::IsAvailable() {
  return true;
}

static void* Count(void* inMemory) {
  if (sCounts) ++sCount;
  return inMemory;
}

}  // namespace tembra::test

extern "C" {

void* __libc_malloc(size_t inSize);
void* __libc_calloc(size_t inNumber, size_t inSize);
void* __libc_realloc(void* inMemory, size_t inSize);

// Visible, so that they serve the shared libraries too.
#pragma GCC visibility push(default)
void* malloc(size_t inSize) noexcept {
  return tembra::test::Count(__libc_malloc(inSize));
}
void* calloc(size_t inNumber, size_t inSize) noexcept {
  return tembra::test::Count(__libc_calloc(inNumber, inSize));
}
void* realloc(void* inMemory, size_t inSize) noexcept {
  return tembra::test::Count(__libc_realloc(inMemory, inSize));
}
#pragma GCC visibility pop
}

#endif
