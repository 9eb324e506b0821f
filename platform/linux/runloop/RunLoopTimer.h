#pragma once

#include <CoreFoundation/CFRunLoop.h>

#include <cstdint>

#include "base/Mutex.h"
#include "corefoundation/Object.h"
#include "runloop/RunLoopSource.h"

struct __CFRunLoopTimer final : tembra::cf::Object {
  __CFRunLoopTimer(CFAbsoluteTime inFireDate, CFTimeInterval inInterval, CFIndex inOrder,
                   CFRunLoopTimerCallBack inCallout, const CFRunLoopTimerContext& inContext);
  ~__CFRunLoopTimer() override;

  CFTypeID GetTypeID() const override { return tembra::cf::kTypeRunLoopTimer; }

  bool Repeats() const { return mInterval > 0; }
  void SetFireDate(CFAbsoluteTime inDate) TEMBRA_REQUIRES(tembra::gRunLoopLock);
  void Invalidate() TEMBRA_EXCLUDES(tembra::gRunLoopLock);
  // Calls back if the timer belongs to that loop and was due at inNow.
  void Fire(CFRunLoopRef inLoop, int64_t inNow) TEMBRA_EXCLUDES(tembra::gRunLoopLock);
  // May fire at its date: valid and not inside its callback.
  bool IsArmed() const TEMBRA_REQUIRES(tembra::gRunLoopLock) { return mValid && !mFiring; }

  const CFTimeInterval mInterval;
  const CFIndex mOrder;
  const CFRunLoopTimerCallBack mCallout;
  CFRunLoopTimerContext mContext;

  bool mValid TEMBRA_GUARDED_BY(tembra::gRunLoopLock) = true;
  bool mFiring TEMBRA_GUARDED_BY(tembra::gRunLoopLock) = false;
  // Not retained: the loop clears it when its thread ends.
  CFRunLoopRef mLoop TEMBRA_GUARDED_BY(tembra::gRunLoopLock) = nullptr;
  CFAbsoluteTime mFireDate TEMBRA_GUARDED_BY(tembra::gRunLoopLock) = 0;
  // The same on the monotonic clock, in nanoseconds.
  int64_t mFireAt TEMBRA_GUARDED_BY(tembra::gRunLoopLock) = 0;

 private:
  void Advance(int64_t inNow) TEMBRA_REQUIRES(tembra::gRunLoopLock);
  void ReleaseInfo();
  bool mInfoReleased = false;
};
