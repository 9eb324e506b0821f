#include "runloop/RunLoop.h"

#include <Block.h>
#include <errno.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>

#include "base/ForkHandlers.h"
#include "base/MonotonicTime.h"
#include "runloop/RunLoopHelpers.h"

using tembra::Garbage;
using tembra::gRunLoopLock;
using tembra::MonotonicNanos;
using tembra::MutexLock;
using tembra::runloop::IsCommonModes;
using tembra::runloop::Watch;

namespace {

constexpr int kMaxEvents = 32;
// How long a loop without descriptors sleeps between two looks.
constexpr int64_t kBlindSleep = 10'000'000;

// Keys of the epoll sets besides the addresses of sources.
constexpr uint64_t kWakeKey = 0;
constexpr uint64_t kTimerKey = 1;

// The main thread's, and that of each other thread that asked for its own.
CFRunLoopRef sMain TEMBRA_GUARDED_BY(gRunLoopLock) = nullptr;

struct ThreadLoop {
  CFRunLoopRef loop = nullptr;
  ~ThreadLoop() {
    if (!loop) return;
    {
      MutexLock lock(gRunLoopLock);
      if (loop == sMain) return;
    }
    loop->Finish();
    CFRelease(std::exchange(loop, nullptr));
  }
};

thread_local ThreadLoop tLoop;

void LockForFork() TEMBRA_NO_THREAD_SAFETY_ANALYSIS {
  gRunLoopLock.lock();
}

void UnlockInParent() TEMBRA_NO_THREAD_SAFETY_ANALYSIS {
  gRunLoopLock.unlock();
}

void UnlockInChild() TEMBRA_NO_THREAD_SAFETY_ANALYSIS {
  // The thread that forked is the child's main thread.
  sMain = tLoop.loop;
  if (sMain) sMain->ForgetParent();
  gRunLoopLock.unlock();
}

bool IsMainThread() {
  return getpid() == gettid();
}

}  // namespace

__CFRunLoop::__CFRunLoop() {
  static const bool sRegistered = [] {
    tembra::RegisterForkHooks(tembra::ForkOrder::kRunLoops,
                              {LockForFork, UnlockInParent, UnlockInChild});
    return true;
  }();
  (void)sRegistered;
  MutexLock lock(gRunLoopLock);
  Find(kCFRunLoopDefaultMode, true)->common = true;
}

__CFRunLoop::~__CFRunLoop() {
  Finish();
}

CFRunLoopRef __CFRunLoop::Current() {
  if (!tLoop.loop) {
    if (IsMainThread()) return Main();
    tLoop.loop = tembra::cf::Create<__CFRunLoop>(nullptr);
  }
  return tLoop.loop;
}

CFRunLoopRef __CFRunLoop::Main() {
  {
    MutexLock lock(gRunLoopLock);
    if (sMain) {
      if (IsMainThread()) tLoop.loop = sMain;
      return sMain;
    }
  }
  CFRunLoopRef made = tembra::cf::Create<__CFRunLoop>(nullptr);
  CFRunLoopRef main;
  {
    MutexLock lock(gRunLoopLock);
    if (!sMain) sMain = std::exchange(made, nullptr);
    main = sMain;
  }
  if (made) CFRelease(made);
  if (IsMainThread()) tLoop.loop = main;
  return main;
}

void __CFRunLoop::ForgetParent() {
  mWake.Reset();
  mWaiting = false;
  for (auto& mode : mModes) {
    mode->poll.Reset();
    mode->timer.Reset();
    // The parent's descriptors mean nothing here. The references stay: a last release may call
    // back, and this is inside fork.
    std::erase_if(mode->sources,
                  [](CFRunLoopSourceRef source) { return source->mDescriptor >= 0; });
  }
  std::erase_if(mCommonSources, [](CFRunLoopSourceRef source) { return source->mDescriptor >= 0; });
}

// Modes

__CFRunLoop::Mode* __CFRunLoop::Find(CFStringRef inMode, bool inCreate) {
  for (auto& mode : mModes) {
    if (mode->name.Get() == inMode || CFEqual(mode->name.Get(), inMode)) return mode.get();
  }
  if (!inCreate) return nullptr;
  auto mode = std::make_unique<Mode>();
  mode->name.Reset(CFStringCreateCopy(nullptr, inMode));
  mModes.push_back(std::move(mode));
  return mModes.back().get();
}

bool __CFRunLoop::Matches(CFTypeRef inWanted, const Mode& inMode) {
  if (CFGetTypeID(inWanted) == CFArrayGetTypeID()) {
    auto modes = static_cast<CFArrayRef>(inWanted);
    for (CFIndex i = 0; i < CFArrayGetCount(modes); ++i) {
      if (Matches(CFArrayGetValueAtIndex(modes, i), inMode)) return true;
    }
    return false;
  }
  auto mode = static_cast<CFStringRef>(inWanted);
  return CFEqual(mode, inMode.name.Get()) || (inMode.common && IsCommonModes(mode));
}

bool __CFRunLoop::HasBlock(const Mode& inMode) {
  return std::any_of(mBlocks.begin(), mBlocks.end(),
                     [&](const PendingBlock& pending)
                         TEMBRA_REQUIRES(gRunLoopLock) { return Matches(pending.mode, inMode); });
}

bool __CFRunLoop::HasSignal(const Mode& inMode) {
  return std::any_of(inMode.sources.begin(), inMode.sources.end(),
                     [](CFRunLoopSourceRef source)
                         TEMBRA_REQUIRES(gRunLoopLock) { return source->mSignalled; });
}

bool __CFRunLoop::IsEmpty(const Mode& inMode) {
  return inMode.sources.empty() && inMode.timers.empty() && !HasBlock(inMode);
}

void __CFRunLoop::AddCommonMode(CFStringRef inMode) {
  MutexLock lock(gRunLoopLock);
  Mode* mode = Find(inMode, true);
  if (std::exchange(mode->common, true)) return;
  for (CFRunLoopSourceRef source : mCommonSources) AddTo(*mode, source);
  for (CFRunLoopTimerRef timer : mCommonTimers) AddTo(*mode, timer);
}

CFArrayRef __CFRunLoop::CopyModes() {
  CFMutableArrayRef names = CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks);
  MutexLock lock(gRunLoopLock);
  for (auto& mode : mModes) CFArrayAppendValue(names, mode->name.Get());
  return names;
}

CFStringRef __CFRunLoop::CopyCurrentMode() {
  MutexLock lock(gRunLoopLock);
  if (!mCurrentMode) return nullptr;
  return static_cast<CFStringRef>(CFRetain(mCurrentMode->name.Get()));
}

CFAbsoluteTime __CFRunLoop::NextTimerDate(CFStringRef inMode) {
  MutexLock lock(gRunLoopLock);
  Mode* mode = Find(inMode, false);
  CFRunLoopTimerRef first = nullptr;
  for (CFRunLoopTimerRef timer : mode ? mode->timers : std::vector<CFRunLoopTimerRef>()) {
    if (!first || timer->mFireAt < first->mFireAt) first = timer;
  }
  return first ? first->mFireDate : 0.0;
}

void __CFRunLoop::Finish() {
  Garbage garbage;
  std::vector<std::pair<CFRunLoopSourceRef, CFStringRef>> cancelled;
  std::deque<PendingBlock> blocks;
  {
    MutexLock lock(gRunLoopLock);
    for (auto& mode : mModes) {
      for (CFRunLoopSourceRef source : mode->sources) {
        std::erase_if(source->mPlaces, [&](const auto& place) { return place.loop == this; });
        cancelled.emplace_back(source, mode->name.Get());
        garbage.Add(source);
      }
      for (CFRunLoopTimerRef timer : mode->timers) {
        timer->mLoop = nullptr;
        garbage.Add(timer);
      }
      mode->sources.clear();
      mode->timers.clear();
      mode->poll.Reset();
      mode->timer.Reset();
    }
    for (CFRunLoopSourceRef source : mCommonSources) garbage.Add(source);
    for (CFRunLoopTimerRef timer : mCommonTimers) garbage.Add(timer);
    mCommonSources.clear();
    mCommonTimers.clear();
    blocks.swap(mBlocks);
  }
  for (auto [source, mode] : cancelled) {
    if (source->mContext.cancel) source->mContext.cancel(source->mContext.info, this, mode);
  }
  for (const PendingBlock& pending : blocks) {
    CFRelease(pending.mode);
    Block_release(pending.block);
  }
}

void __CFRunLoop::AddBlock(CFTypeRef inMode, void* inBlock) {
  MutexLock lock(gRunLoopLock);
  mBlocks.push_back({inMode, inBlock});
}

bool __CFRunLoop::IsWaiting() {
  MutexLock lock(gRunLoopLock);
  return mWaiting;
}

// Running

void __CFRunLoop::WakeUp() {
  if (!mWake) return;
  uint64_t one = 1;
  [[maybe_unused]] ssize_t written = write(mWake.Get(), &one, sizeof one);
}

void __CFRunLoop::Stop() {
  MutexLock lock(gRunLoopLock);
  mStopped = true;
  WakeUp();
}

bool __CFRunLoop::OpenDescriptors(Mode& ioMode) {
  if (!mWake) mWake.Reset(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  if (!ioMode.timer) {
    ioMode.timer.Reset(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK));
    ioMode.armed = 0;
  }
  if (!mWake || !ioMode.timer) return false;
  if (ioMode.poll) return true;
  ioMode.poll.Reset(epoll_create1(EPOLL_CLOEXEC));
  if (!ioMode.poll) return false;
  // Edges need no reading back: each write and each expiry is one.
  Watch(ioMode.poll.Get(), mWake.Get(), EPOLLIN | EPOLLET, kWakeKey);
  Watch(ioMode.poll.Get(), ioMode.timer.Get(), EPOLLIN | EPOLLET, kTimerKey);
  for (CFRunLoopSourceRef source : ioMode.sources) {
    if (source->mDescriptor < 0) continue;
    Watch(ioMode.poll.Get(), source->mDescriptor, EPOLLIN, reinterpret_cast<uint64_t>(source));
  }
  return true;
}

int __CFRunLoop::Wait(Mode& ioMode, bool inPoll, int64_t inDeadline, const void** outReady) {
  int poll;
  int64_t sleep = 0;
  {
    MutexLock lock(gRunLoopLock);
    int64_t until = inDeadline;
    for (CFRunLoopTimerRef timer : ioMode.timers) {
      if (timer->IsArmed()) until = std::min(until, timer->mFireAt);
    }
    bool ready = inPoll || mStopped || HasSignal(ioMode) || HasBlock(ioMode);
    if (!ready) {
      sleep = until - MonotonicNanos();
      ready = sleep <= 0;
    }
    if (ready) sleep = 0;
    bool open = OpenDescriptors(ioMode);
    poll = open ? ioMode.poll.Get() : -1;
    if (open && !ready && ioMode.armed != until) {
      itimerspec date{};
      date.it_value.tv_sec = until / tembra::kNanosPerSecond;
      date.it_value.tv_nsec = until % tembra::kNanosPerSecond;
      timerfd_settime(ioMode.timer.Get(), TFD_TIMER_ABSTIME, &date, nullptr);
      ioMode.armed = until;
    }
    mWaiting = !ready;
  }

  epoll_event events[kMaxEvents];
  int count = -1;
  bool blind = poll < 0;
  if (!blind) {
    count = epoll_wait(poll, events, kMaxEvents, sleep ? -1 : 0);
    // Closed by a program that closes all it does not know.
    blind = count < 0 && errno != EINTR;
  }
  if (blind && sleep) {
    timespec rest{0, static_cast<long>(std::min(sleep, kBlindSleep))};
    nanosleep(&rest, nullptr);
  }

  MutexLock lock(gRunLoopLock);
  mWaiting = false;
  int ready = 0;
  for (int i = 0; i < count; ++i) {
    uint64_t key = events[i].data.u64;
    if (key != kWakeKey && key != kTimerKey) outReady[ready++] = reinterpret_cast<void*>(key);
  }
  return ready;
}

void __CFRunLoop::RunBlocks(Mode& ioMode) {
  std::deque<PendingBlock> run;
  {
    MutexLock lock(gRunLoopLock);
    if (mBlocks.empty()) return;
    std::deque<PendingBlock> keep;
    for (const PendingBlock& pending : mBlocks) {
      (Matches(pending.mode, ioMode) ? run : keep).push_back(pending);
    }
    mBlocks.swap(keep);
  }
  for (const PendingBlock& pending : run) {
    reinterpret_cast<void (^)()>(pending.block)();
    Block_release(pending.block);
    CFRelease(pending.mode);
  }
}

bool __CFRunLoop::PerformSignalled(Mode& ioMode) {
  std::vector<CFRunLoopSourceRef> signalled;
  {
    MutexLock lock(gRunLoopLock);
    for (CFRunLoopSourceRef source : ioMode.sources) {
      if (!std::exchange(source->mSignalled, false)) continue;
      source->Retain();
      signalled.push_back(source);
    }
  }
  bool handled = false;
  for (CFRunLoopSourceRef source : signalled) {
    handled = source->Perform() || handled;
    CFRelease(source);
  }
  return handled;
}

bool __CFRunLoop::PerformReady(Mode& ioMode, const void* const* inReady, int inCount) {
  bool handled = false;
  for (int i = 0; i < inCount; ++i) {
    CFRunLoopSourceRef source = nullptr;
    {
      // Another thread, or the callback before this one, may have removed it.
      MutexLock lock(gRunLoopLock);
      for (CFRunLoopSourceRef candidate : ioMode.sources) {
        if (candidate == inReady[i]) source = candidate;
      }
      if (!source) continue;
      source->Retain();
    }
    handled = source->Perform() || handled;
    CFRelease(source);
  }
  return handled;
}

void __CFRunLoop::FireTimers(Mode& ioMode) {
  std::vector<CFRunLoopTimerRef> due;
  int64_t now;
  {
    MutexLock lock(gRunLoopLock);
    if (ioMode.timers.empty()) return;
    now = MonotonicNanos();
    for (CFRunLoopTimerRef timer : ioMode.timers) {
      if (!timer->IsArmed() || timer->mFireAt > now) continue;
      timer->Retain();
      due.push_back(timer);
    }
    std::stable_sort(due.begin(), due.end(),
                     [](auto* one, auto* other) TEMBRA_REQUIRES(gRunLoopLock) {
                       if (one->mFireAt != other->mFireAt) return one->mFireAt < other->mFireAt;
                       return one->mOrder < other->mOrder;
                     });
  }
  for (CFRunLoopTimerRef timer : due) {
    timer->Fire(this, now);
    CFRelease(timer);
  }
}

CFRunLoopRunResult __CFRunLoop::Run(CFStringRef inMode, double inSeconds,
                                    bool inReturnAfterSource) noexcept {
  const bool onePass = !(inSeconds > 0);
  const int64_t deadline = MonotonicNanos() + tembra::NanosFromSeconds(onePass ? 0 : inSeconds);
  Mode* mode;
  Mode* outer;
  {
    MutexLock lock(gRunLoopLock);
    mode = Find(inMode, false);
    if (!mode || IsEmpty(*mode)) return kCFRunLoopRunFinished;
    if (std::exchange(mStopped, false)) return kCFRunLoopRunStopped;
    outer = std::exchange(mCurrentMode, mode);
  }

  const void* ready[kMaxEvents];
  CFRunLoopRunResult result{};
  while (result == 0) {
    RunBlocks(*mode);
    bool handled = PerformSignalled(*mode);
    int count = Wait(*mode, onePass || handled, deadline, ready);
    FireTimers(*mode);
    handled = PerformReady(*mode, ready, count) || handled;
    RunBlocks(*mode);

    MutexLock lock(gRunLoopLock);
    if (handled && inReturnAfterSource) {
      result = kCFRunLoopRunHandledSource;
    } else if (onePass || MonotonicNanos() >= deadline) {
      result = kCFRunLoopRunTimedOut;
    } else if (std::exchange(mStopped, false)) {
      result = kCFRunLoopRunStopped;
    } else if (IsEmpty(*mode)) {
      result = kCFRunLoopRunFinished;
    }
  }
  MutexLock lock(gRunLoopLock);
  mCurrentMode = outer;
  return result;
}
