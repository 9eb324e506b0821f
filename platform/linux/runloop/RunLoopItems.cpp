// What a run loop holds: the sources and timers of its modes.

#include <algorithm>

#include "runloop/RunLoop.h"
#include "runloop/RunLoopHelpers.h"

using tembra::Garbage;
using tembra::gRunLoopLock;
using tembra::MutexLock;
using namespace tembra::runloop;

bool __CFRunLoop::Contains(CFRunLoopSourceRef inSource, CFStringRef inMode) {
  if (IsCommonModes(inMode)) return Has(mCommonSources, inSource);
  Mode* mode = Find(inMode, false);
  return mode && Has(mode->sources, inSource);
}

bool __CFRunLoop::Contains(CFRunLoopTimerRef inTimer, CFStringRef inMode) {
  if (IsCommonModes(inMode)) return Has(mCommonTimers, inTimer);
  Mode* mode = Find(inMode, false);
  return mode && Has(mode->timers, inTimer);
}

bool __CFRunLoop::AddTo(Mode& ioMode, CFRunLoopSourceRef inSource) {
  if (Has(ioMode.sources, inSource)) return false;
  auto place = std::upper_bound(ioMode.sources.begin(), ioMode.sources.end(), inSource,
                                [](auto* one, auto* other) { return one->mOrder < other->mOrder; });
  inSource->mPlaces.push_back({this, ioMode.name.Get()});
  ioMode.sources.insert(place, inSource);
  inSource->Retain();
  if (inSource->mDescriptor >= 0 && ioMode.poll) {
    Watch(ioMode.poll.Get(), inSource->mDescriptor, EPOLLIN, reinterpret_cast<uint64_t>(inSource));
  }
  return true;
}

bool __CFRunLoop::AddTo(Mode& ioMode, CFRunLoopTimerRef inTimer) {
  if (Has(ioMode.timers, inTimer)) return false;
  ioMode.timers.push_back(inTimer);
  inTimer->Retain();
  return true;
}

void __CFRunLoop::Add(CFRunLoopSourceRef inSource, CFStringRef inMode) {
  std::vector<CFStringRef> scheduled;
  {
    MutexLock lock(gRunLoopLock);
    if (!inSource->mValid) return;
    if (IsCommonModes(inMode)) {
      if (Has(mCommonSources, inSource)) return;
      mCommonSources.push_back(inSource);
      inSource->Retain();
      for (auto& mode : mModes) {
        if (mode->common && AddTo(*mode, inSource)) scheduled.push_back(mode->name.Get());
      }
    } else {
      Mode* mode = Find(inMode, true);
      if (AddTo(*mode, inSource)) scheduled.push_back(mode->name.Get());
    }
    if (mWaiting) WakeUp();
  }
  const CFRunLoopSourceContext& context = inSource->mContext;
  if (!context.schedule) return;
  for (CFStringRef mode : scheduled) context.schedule(context.info, this, mode);
}

void __CFRunLoop::Add(CFRunLoopTimerRef inTimer, CFStringRef inMode) {
  MutexLock lock(gRunLoopLock);
  if (!inTimer->mValid || (inTimer->mLoop && inTimer->mLoop != this)) return;
  inTimer->mLoop = this;
  if (IsCommonModes(inMode)) {
    if (Has(mCommonTimers, inTimer)) return;
    mCommonTimers.push_back(inTimer);
    inTimer->Retain();
    for (auto& mode : mModes) {
      if (mode->common) AddTo(*mode, inTimer);
    }
  } else {
    AddTo(*Find(inMode, true), inTimer);
  }
  if (mWaiting) WakeUp();
}

bool __CFRunLoop::RemoveFrom(Mode& ioMode, CFRunLoopSourceRef inSource, Garbage& ioGarbage) {
  if (!Take(ioMode.sources, inSource, ioGarbage)) return false;
  if (inSource->mDescriptor >= 0 && ioMode.poll) {
    epoll_ctl(ioMode.poll.Get(), EPOLL_CTL_DEL, inSource->mDescriptor, nullptr);
  }
  return true;
}

void __CFRunLoop::Remove(CFRunLoopSourceRef inSource, CFStringRef inMode) {
  Garbage garbage;
  std::vector<CFStringRef> cancelled;
  {
    MutexLock lock(gRunLoopLock);
    bool common = IsCommonModes(inMode);
    if (common && !Take(mCommonSources, inSource, garbage)) return;
    for (auto& mode : mModes) {
      bool here = common ? mode->common : static_cast<bool>(CFEqual(mode->name.Get(), inMode));
      if (!here || !RemoveFrom(*mode, inSource, garbage)) continue;
      std::erase_if(inSource->mPlaces, [&](const __CFRunLoopSource::Place& place) {
        return place.loop == this && place.mode == mode->name.Get();
      });
      cancelled.push_back(mode->name.Get());
    }
    if (mWaiting) WakeUp();
  }
  const CFRunLoopSourceContext& context = inSource->mContext;
  if (!context.cancel) return;
  for (CFStringRef mode : cancelled) context.cancel(context.info, this, mode);
}

void __CFRunLoop::Remove(CFRunLoopTimerRef inTimer, CFStringRef inMode) {
  Garbage garbage;
  MutexLock lock(gRunLoopLock);
  if (inTimer->mLoop != this) return;
  bool common = IsCommonModes(inMode);
  if (common && !Take(mCommonTimers, inTimer, garbage)) return;
  bool left = Has(mCommonTimers, inTimer);
  for (auto& mode : mModes) {
    bool here = common ? mode->common : static_cast<bool>(CFEqual(mode->name.Get(), inMode));
    if (here) Take(mode->timers, inTimer, garbage);
    left = left || Has(mode->timers, inTimer);
  }
  if (!left) inTimer->mLoop = nullptr;
  if (mWaiting) WakeUp();
}

void __CFRunLoop::RemoveEverywhere(CFRunLoopSourceRef inSource, Garbage& ioGarbage) {
  Take(mCommonSources, inSource, ioGarbage);
  for (auto& mode : mModes) RemoveFrom(*mode, inSource, ioGarbage);
  if (mWaiting) WakeUp();
}

void __CFRunLoop::RemoveEverywhere(CFRunLoopTimerRef inTimer, Garbage& ioGarbage) {
  Take(mCommonTimers, inTimer, ioGarbage);
  for (auto& mode : mModes) Take(mode->timers, inTimer, ioGarbage);
  if (mWaiting) WakeUp();
}
