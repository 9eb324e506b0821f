// The installation where the platform's functions can be patched in memory.

#include "library/sys/mac/mach_override/mach_override.h"
#include "runtime/TMBACLNO.h"

namespace {

// The entry is set before the function leads to the proxy, which needs it at once.
template <typename Function>
OSStatus Override(Function* inFunction, Function* inProxy, Function*& outEntry) {
  if (outEntry != nullptr) return 0;
  // A program that takes a function's address may make a stub of its own stand for it, which is
  // bound to the function at the first call only. A call without an address does nothing else.
  Function* volatile function = inFunction;
  function(kAudioObjectUnknown, nullptr, 0, nullptr, {}, nullptr);

  const kern_return_t error =
      mach_override_ptr(reinterpret_cast<void*>(inFunction), reinterpret_cast<const void*>(inProxy),
                        reinterpret_cast<void**>(&outEntry));
  if (error != 0) outEntry = nullptr;
  return error;
}

}  // namespace

OSStatus tmbclno_override_aogpd() {
  return Override(&AudioObjectGetPropertyData, &tmbclno_aogpd_proxy, tmbclno_aogpd_entry);
}

OSStatus tmbclno_override_aospd() {
  return Override(&AudioObjectSetPropertyData, &tmbclno_aospd_proxy, tmbclno_aospd_entry);
}
