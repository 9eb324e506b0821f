#pragma once

#include <cstdint>

namespace tembra {

// What a service does around fork, so that a child that goes on without exec finds its locks free.
//
// Services are prepared in ascending order and set free in descending order; a service that calls
// another one while it holds its own lock must come first.
enum class ForkOrder { kHost, kNotifications, kPorts, kRunLoops, kDispatch, kCount };

struct ForkHooks {
  void (*prepare)();  // take the service's locks
  void (*parent)();   // give them back
  void (*child)();    // give them back, and forget threads and descriptors of the parent
};

// Once for each service, before it takes its locks for the first time.
void RegisterForkHooks(ForkOrder inOrder, const ForkHooks& inHooks);

// Differs in a forked child from what it was in its parent. One relaxed read.
uint32_t ForkGeneration();

}  // namespace tembra
