#include "runloop/RunLoopSource.h"

#include <utility>

#include "runloop/RunLoop.h"

using tembra::gRunLoopLock;
using tembra::MutexLock;

namespace tembra {

Mutex gRunLoopLock;

CFRunLoopSourceRef CreateDescriptorSource(CFAllocatorRef inAllocator, CFIndex inOrder,
                                          int inDescriptor,
                                          const CFRunLoopSourceContext& inContext) {
  return cf::Create<__CFRunLoopSource>(inAllocator, inOrder, inDescriptor, inContext);
}

}  // namespace tembra

__CFRunLoopSource::__CFRunLoopSource(CFIndex inOrder, int inDescriptor,
                                     const CFRunLoopSourceContext& inContext)
    : mOrder(inOrder), mDescriptor(inDescriptor), mContext(inContext) {
  if (mContext.retain) mContext.info = const_cast<void*>(mContext.retain(mContext.info));
}

__CFRunLoopSource::~__CFRunLoopSource() {
  ReleaseInfo();
}

void __CFRunLoopSource::ReleaseInfo() {
  if (std::exchange(mInfoReleased, true)) return;
  if (mContext.release) mContext.release(mContext.info);
}

void __CFRunLoopSource::Invalidate() {
  Retain();
  {
    tembra::Garbage garbage;
    std::vector<Place> places;
    bool release;
    {
      MutexLock lock(gRunLoopLock);
      if (std::exchange(mValid, false)) {
        for (const Place& place : std::exchange(mPlaces, {})) {
          place.loop->RemoveEverywhere(this, garbage);
          // A loop whose last reference has gone is on its way out and waits for the lock.
          if (!place.loop->TryRetain()) continue;
          garbage.Add(place.loop);
          places.push_back(place);
        }
        release = mPerforming == 0;
      } else {
        release = false;
      }
    }
    if (mContext.cancel) {
      for (const Place& place : places) mContext.cancel(mContext.info, place.loop, place.mode);
    }
    // A callback that runs just now still uses it and releases it when it is through.
    if (release) ReleaseInfo();
  }
  Release();
}

bool __CFRunLoopSource::Perform() {
  {
    MutexLock lock(gRunLoopLock);
    if (!mValid) return false;
    ++mPerforming;
  }
  if (mContext.perform) mContext.perform(mContext.info);
  bool release;
  {
    MutexLock lock(gRunLoopLock);
    release = --mPerforming == 0 && !mValid;
  }
  if (release) ReleaseInfo();
  return true;
}
