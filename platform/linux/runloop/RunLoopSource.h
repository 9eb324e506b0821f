#pragma once

#include <CoreFoundation/CFRunLoop.h>

#include <vector>

#include "base/Mutex.h"
#include "corefoundation/Object.h"

namespace tembra {

// One lock for the bookkeeping of all run loops, timers and sources, never held while a callback
// runs or a thread waits: a fork finds it free, and objects that point at each other need no order.
extern Mutex gRunLoopLock;

// A source that is performed whenever its descriptor is readable; the descriptor stays the
// caller's and must outlive the source's validity. Null when memory runs out.
CFRunLoopSourceRef CreateDescriptorSource(CFAllocatorRef inAllocator, CFIndex inOrder,
                                          int inDescriptor,
                                          const CFRunLoopSourceContext& inContext);

}  // namespace tembra

struct __CFRunLoopSource final : tembra::cf::Object {
  // inDescriptor is negative for a source that is signalled by hand.
  __CFRunLoopSource(CFIndex inOrder, int inDescriptor, const CFRunLoopSourceContext& inContext);
  ~__CFRunLoopSource() override;

  CFTypeID GetTypeID() const override { return tembra::cf::kTypeRunLoopSource; }

  void Invalidate() TEMBRA_EXCLUDES(tembra::gRunLoopLock);
  // Calls back if the source is still valid; false if not.
  bool Perform() TEMBRA_EXCLUDES(tembra::gRunLoopLock);

  const CFIndex mOrder;
  const int mDescriptor;
  CFRunLoopSourceContext mContext;

  // Where it was added. The loop is not retained: it removes itself when its thread ends.
  struct Place {
    CFRunLoopRef loop;
    CFStringRef mode;  // the loop's own, which lives as long as the loop
  };
  bool mValid TEMBRA_GUARDED_BY(tembra::gRunLoopLock) = true;
  bool mSignalled TEMBRA_GUARDED_BY(tembra::gRunLoopLock) = false;
  int mPerforming TEMBRA_GUARDED_BY(tembra::gRunLoopLock) = 0;
  std::vector<Place> mPlaces TEMBRA_GUARDED_BY(tembra::gRunLoopLock);

 private:
  void ReleaseInfo();
  bool mInfoReleased = false;
};
