#pragma once

#include <mach/mach.h>

namespace tembra {

// Puts a private copy in the place of every part of the range that is shared, with another process
// or a file, so that what is written there from now on is seen by this process alone. Whole pages;
// any thread. Another thread that uses the range waits for the change and never finds a hole, but
// what it writes during the change can be lost. KERN_PROTECTION_FAILURE if it cannot be done; parts
// lower down may then have their copy.
kern_return_t MakeRangePrivate(vm_address_t inStart, vm_size_t inSize);

}  // namespace tembra
