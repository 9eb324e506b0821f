#include "base/ForkHandlers.h"

#include <pthread.h>

#include <array>
#include <atomic>
#include <mutex>

namespace tembra {
namespace {

constexpr size_t kSlots = static_cast<size_t>(ForkOrder::kCount);

std::atomic<uint32_t> sGeneration{1};
// Set once each; pointers to hooks that live as long as the process.
std::array<std::atomic<const ForkHooks*>, kSlots> sHooks;
// What Prepare found, so that hooks registered meanwhile are not run by halves. Only the thread
// that forks touches it, and the C library lets one fork's handlers run at a time.
std::array<const ForkHooks*, kSlots> sPrepared;

void Prepare() {
  for (size_t i = 0; i < kSlots; ++i) {
    sPrepared[i] = sHooks[i].load(std::memory_order_acquire);
    if (sPrepared[i]) sPrepared[i]->prepare();
  }
}

void Parent() {
  for (size_t i = kSlots; i-- > 0;) {
    if (sPrepared[i]) sPrepared[i]->parent();
  }
}

void Child() {
  sGeneration.fetch_add(1, std::memory_order_relaxed);
  for (size_t i = kSlots; i-- > 0;) {
    if (sPrepared[i]) sPrepared[i]->child();
  }
}

}  // namespace

void RegisterForkHooks(ForkOrder inOrder, const ForkHooks& inHooks) {
  static std::once_flag sOnce;
  std::call_once(sOnce, [] { pthread_atfork(Prepare, Parent, Child); });
  sHooks[static_cast<size_t>(inOrder)].store(new ForkHooks(inHooks), std::memory_order_release);
}

uint32_t ForkGeneration() {
  return sGeneration.load(std::memory_order_relaxed);
}

}  // namespace tembra
