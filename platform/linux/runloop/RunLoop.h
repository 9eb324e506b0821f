#pragma once

#include <CoreFoundation/CFRunLoop.h>

#include <cstdint>
#include <deque>
#include <memory>
#include <vector>

#include "base/Descriptor.h"
#include "base/Mutex.h"
#include "corefoundation/Object.h"
#include "runloop/RunLoopSource.h"
#include "runloop/RunLoopTimer.h"

namespace tembra {

// References to let go of once the lock is free: a last release may call back.
class Garbage {
 public:
  ~Garbage() {
    for (CFTypeRef object : mObjects) CFRelease(object);
  }
  void Add(CFTypeRef inObject) { mObjects.push_back(inObject); }

 private:
  std::vector<CFTypeRef> mObjects;
};

// What a loop waits for in one mode. Its epoll set holds the loop's wake-up event, one timer for
// the earliest date, and the descriptors of the mode's sources. Lives as long as its loop.
struct RunLoopMode {
  cf::Owned<CFStringRef> name;
  bool common = false;
  std::vector<CFRunLoopSourceRef> sources;  // retained, by order
  std::vector<CFRunLoopTimerRef> timers;    // retained
  Descriptor poll;
  Descriptor timer;
  int64_t armed = 0;  // the date that the timer is set to
};

}  // namespace tembra

struct __CFRunLoop final : tembra::cf::Object {
  using Mode = tembra::RunLoopMode;

  __CFRunLoop();
  ~__CFRunLoop() override;

  CFTypeID GetTypeID() const override { return tembra::cf::kTypeRunLoop; }

  static CFRunLoopRef Current();
  static CFRunLoopRef Main();

  CFRunLoopRunResult Run(CFStringRef inMode, double inSeconds, bool inReturnAfterSource) noexcept
      TEMBRA_EXCLUDES(tembra::gRunLoopLock);
  void Stop() TEMBRA_EXCLUDES(tembra::gRunLoopLock);
  void WakeUp() TEMBRA_REQUIRES(tembra::gRunLoopLock);
  // Lets go of all that the loop holds; its thread has ended.
  void Finish() TEMBRA_EXCLUDES(tembra::gRunLoopLock);

  bool Contains(CFRunLoopSourceRef inSource, CFStringRef inMode)
      TEMBRA_REQUIRES(tembra::gRunLoopLock);
  bool Contains(CFRunLoopTimerRef inTimer, CFStringRef inMode)
      TEMBRA_REQUIRES(tembra::gRunLoopLock);
  void Add(CFRunLoopSourceRef inSource, CFStringRef inMode) TEMBRA_EXCLUDES(tembra::gRunLoopLock);
  void Add(CFRunLoopTimerRef inTimer, CFStringRef inMode) TEMBRA_EXCLUDES(tembra::gRunLoopLock);
  void Remove(CFRunLoopSourceRef inSource, CFStringRef inMode)
      TEMBRA_EXCLUDES(tembra::gRunLoopLock);
  void Remove(CFRunLoopTimerRef inTimer, CFStringRef inMode) TEMBRA_EXCLUDES(tembra::gRunLoopLock);
  // From all modes, without a word to the source.
  void RemoveEverywhere(CFRunLoopSourceRef inSource, tembra::Garbage& ioGarbage)
      TEMBRA_REQUIRES(tembra::gRunLoopLock);
  void RemoveEverywhere(CFRunLoopTimerRef inTimer, tembra::Garbage& ioGarbage)
      TEMBRA_REQUIRES(tembra::gRunLoopLock);
  void AddCommonMode(CFStringRef inMode) TEMBRA_EXCLUDES(tembra::gRunLoopLock);
  CFArrayRef CopyModes() TEMBRA_EXCLUDES(tembra::gRunLoopLock);
  CFAbsoluteTime NextTimerDate(CFStringRef inMode) TEMBRA_EXCLUDES(tembra::gRunLoopLock);
  // The block and the mode (or array of modes) are taken over.
  void AddBlock(CFTypeRef inMode, void* inBlock) TEMBRA_EXCLUDES(tembra::gRunLoopLock);
  CFStringRef CopyCurrentMode() TEMBRA_EXCLUDES(tembra::gRunLoopLock);
  bool IsWaiting() TEMBRA_EXCLUDES(tembra::gRunLoopLock);

  // The process forked and this is the surviving thread's loop: the descriptors are the parent's.
  void ForgetParent() TEMBRA_REQUIRES(tembra::gRunLoopLock);

 private:
  struct PendingBlock {
    CFTypeRef mode;
    void* block;
  };

  Mode* Find(CFStringRef inMode, bool inCreate) TEMBRA_REQUIRES(tembra::gRunLoopLock);
  bool IsEmpty(const Mode& inMode) TEMBRA_REQUIRES(tembra::gRunLoopLock);
  bool Matches(CFTypeRef inWanted, const Mode& inMode) TEMBRA_REQUIRES(tembra::gRunLoopLock);
  bool HasBlock(const Mode& inMode) TEMBRA_REQUIRES(tembra::gRunLoopLock);
  bool HasSignal(const Mode& inMode) TEMBRA_REQUIRES(tembra::gRunLoopLock);
  bool AddTo(Mode& ioMode, CFRunLoopSourceRef inSource) TEMBRA_REQUIRES(tembra::gRunLoopLock);
  bool AddTo(Mode& ioMode, CFRunLoopTimerRef inTimer) TEMBRA_REQUIRES(tembra::gRunLoopLock);
  bool RemoveFrom(Mode& ioMode, CFRunLoopSourceRef inSource, tembra::Garbage& ioGarbage)
      TEMBRA_REQUIRES(tembra::gRunLoopLock);
  void RunBlocks(Mode& ioMode) TEMBRA_EXCLUDES(tembra::gRunLoopLock);
  bool PerformSignalled(Mode& ioMode) TEMBRA_EXCLUDES(tembra::gRunLoopLock);
  void FireTimers(Mode& ioMode) TEMBRA_EXCLUDES(tembra::gRunLoopLock);
  bool PerformReady(Mode& ioMode, const void* const* inReady, int inCount)
      TEMBRA_EXCLUDES(tembra::gRunLoopLock);
  bool OpenDescriptors(Mode& ioMode) TEMBRA_REQUIRES(tembra::gRunLoopLock);
  // Waits until inDeadline, the next timer or an event; answers the number of ready sources.
  int Wait(Mode& ioMode, bool inPoll, int64_t inDeadline, const void** outReady)
      TEMBRA_EXCLUDES(tembra::gRunLoopLock);

  std::vector<std::unique_ptr<Mode>> mModes TEMBRA_GUARDED_BY(tembra::gRunLoopLock);
  // What was added to the common modes; retained.
  std::vector<CFRunLoopSourceRef> mCommonSources TEMBRA_GUARDED_BY(tembra::gRunLoopLock);
  std::vector<CFRunLoopTimerRef> mCommonTimers TEMBRA_GUARDED_BY(tembra::gRunLoopLock);
  std::deque<PendingBlock> mBlocks TEMBRA_GUARDED_BY(tembra::gRunLoopLock);
  tembra::Descriptor mWake TEMBRA_GUARDED_BY(tembra::gRunLoopLock);
  bool mStopped TEMBRA_GUARDED_BY(tembra::gRunLoopLock) = false;
  bool mWaiting TEMBRA_GUARDED_BY(tembra::gRunLoopLock) = false;
  Mode* mCurrentMode TEMBRA_GUARDED_BY(tembra::gRunLoopLock) = nullptr;
};
