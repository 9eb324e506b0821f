#include "runloop/RunLoopTimer.h"

#include "base/MonotonicTime.h"
#include "runloop/RunLoop.h"

using tembra::gRunLoopLock;
using tembra::MonotonicNanos;
using tembra::MutexLock;
using tembra::NanosFromSeconds;

__CFRunLoopTimer::__CFRunLoopTimer(CFAbsoluteTime inFireDate, CFTimeInterval inInterval,
                                   CFIndex inOrder, CFRunLoopTimerCallBack inCallout,
                                   const CFRunLoopTimerContext& inContext)
    : mInterval(inInterval > 0 ? inInterval : 0),
      mOrder(inOrder),
      mCallout(inCallout),
      mContext(inContext) {
  {
    MutexLock lock(gRunLoopLock);
    SetFireDate(inFireDate);
  }
  if (mContext.retain) mContext.info = const_cast<void*>(mContext.retain(mContext.info));
}

__CFRunLoopTimer::~__CFRunLoopTimer() {
  ReleaseInfo();
}

void __CFRunLoopTimer::ReleaseInfo() {
  if (std::exchange(mInfoReleased, true)) return;
  if (mContext.release) mContext.release(mContext.info);
}

void __CFRunLoopTimer::SetFireDate(CFAbsoluteTime inDate) {
  mFireDate = inDate;
  mFireAt = MonotonicNanos() + NanosFromSeconds(inDate - CFAbsoluteTimeGetCurrent());
}

void __CFRunLoopTimer::Advance(int64_t inNow) {
  if (mFireAt > inNow) return;
  int64_t interval = NanosFromSeconds(mInterval);
  if (interval < 1) interval = 1;
  int64_t step = ((inNow - mFireAt) / interval + 1) * interval;
  mFireAt += step;
  mFireDate += static_cast<double>(step) * 1e-9;
}

void __CFRunLoopTimer::Invalidate() {
  Retain();
  {
    tembra::Garbage garbage;
    bool release = false;
    {
      MutexLock lock(gRunLoopLock);
      if (std::exchange(mValid, false)) {
        if (CFRunLoopRef loop = std::exchange(mLoop, nullptr)) {
          loop->RemoveEverywhere(this, garbage);
        }
        release = !mFiring;
      }
    }
    // A callback that runs just now still uses it and releases it when it is through.
    if (release) ReleaseInfo();
  }
  Release();
}

void __CFRunLoopTimer::Fire(CFRunLoopRef inLoop, int64_t inNow) {
  {
    MutexLock lock(gRunLoopLock);
    if (!IsArmed() || mLoop != inLoop || mFireAt > inNow) return;
    mFiring = true;
    // Before the callback, which may set another date.
    if (Repeats()) Advance(inNow);
  }
  mCallout(this, mContext.info);
  bool release;
  {
    MutexLock lock(gRunLoopLock);
    mFiring = false;
    if (Repeats()) Advance(MonotonicNanos());
    release = !mValid;
  }
  if (release) {
    ReleaseInfo();
  } else if (!Repeats()) {
    Invalidate();
  }
}
