#include <Block.h>
#include <CoreFoundation/CFRunLoop.h>

#include "runloop/RunLoop.h"

using tembra::gRunLoopLock;
using tembra::MutexLock;
using tembra::cf::Owned;

const CFRunLoopMode kCFRunLoopDefaultMode = CFSTR("kCFRunLoopDefaultMode");
const CFRunLoopMode kCFRunLoopCommonModes = CFSTR("kCFRunLoopCommonModes");

namespace {

// A loop may be told something that ends its thread; the reference keeps it through the telling.
Owned<CFRunLoopRef> Hold(CFRunLoopRef inLoop) {
  return Owned<CFRunLoopRef>::Retained(inLoop);
}

}  // namespace

CFTypeID CFRunLoopGetTypeID(void) {
  return tembra::cf::kTypeRunLoop;
}

CFRunLoopRef CFRunLoopGetCurrent(void) {
  return __CFRunLoop::Current();
}

CFRunLoopRef CFRunLoopGetMain(void) {
  return __CFRunLoop::Main();
}

CFRunLoopMode CFRunLoopCopyCurrentMode(CFRunLoopRef rl) {
  return rl->CopyCurrentMode();
}

CFArrayRef CFRunLoopCopyAllModes(CFRunLoopRef rl) {
  return rl->CopyModes();
}

void CFRunLoopAddCommonMode(CFRunLoopRef rl, CFRunLoopMode mode) {
  rl->AddCommonMode(mode);
}

CFAbsoluteTime CFRunLoopGetNextTimerFireDate(CFRunLoopRef rl, CFRunLoopMode mode) {
  return rl->NextTimerDate(mode);
}

void CFRunLoopRun(void) {
  CFRunLoopRunResult result;
  do {
    result = CFRunLoopRunInMode(kCFRunLoopDefaultMode, 1e9, false);
  } while (result == kCFRunLoopRunTimedOut);
}

CFRunLoopRunResult CFRunLoopRunInMode(CFRunLoopMode mode, CFTimeInterval seconds,
                                      Boolean returnAfterSourceHandled) {
  return CFRunLoopGetCurrent()->Run(mode, seconds, returnAfterSourceHandled);
}

Boolean CFRunLoopIsWaiting(CFRunLoopRef rl) {
  return rl->IsWaiting();
}

void CFRunLoopWakeUp(CFRunLoopRef rl) {
  auto hold = Hold(rl);
  MutexLock lock(gRunLoopLock);
  rl->WakeUp();
}

void CFRunLoopStop(CFRunLoopRef rl) {
  auto hold = Hold(rl);
  rl->Stop();
}

void CFRunLoopPerformBlock(CFRunLoopRef rl, CFTypeRef mode, void (^block)(void)) {
  rl->AddBlock(CFRetain(mode), reinterpret_cast<void*>(Block_copy(block)));
}

Boolean CFRunLoopContainsSource(CFRunLoopRef rl, CFRunLoopSourceRef source, CFRunLoopMode mode) {
  MutexLock lock(gRunLoopLock);
  return rl->Contains(source, mode);
}

void CFRunLoopAddSource(CFRunLoopRef rl, CFRunLoopSourceRef source, CFRunLoopMode mode) {
  auto hold = Hold(rl);
  rl->Add(source, mode);
}

void CFRunLoopRemoveSource(CFRunLoopRef rl, CFRunLoopSourceRef source, CFRunLoopMode mode) {
  auto hold = Hold(rl);
  rl->Remove(source, mode);
}

Boolean CFRunLoopContainsTimer(CFRunLoopRef rl, CFRunLoopTimerRef timer, CFRunLoopMode mode) {
  MutexLock lock(gRunLoopLock);
  return rl->Contains(timer, mode);
}

void CFRunLoopAddTimer(CFRunLoopRef rl, CFRunLoopTimerRef timer, CFRunLoopMode mode) {
  auto hold = Hold(rl);
  rl->Add(timer, mode);
}

void CFRunLoopRemoveTimer(CFRunLoopRef rl, CFRunLoopTimerRef timer, CFRunLoopMode mode) {
  auto hold = Hold(rl);
  rl->Remove(timer, mode);
}

CFTypeID CFRunLoopSourceGetTypeID(void) {
  return tembra::cf::kTypeRunLoopSource;
}

CFRunLoopSourceRef CFRunLoopSourceCreate(CFAllocatorRef allocator, CFIndex order,
                                         CFRunLoopSourceContext* context) {
  if (!context || context->version != 0) return nullptr;
  return tembra::cf::Create<__CFRunLoopSource>(allocator, order, -1, *context);
}

CFIndex CFRunLoopSourceGetOrder(CFRunLoopSourceRef source) {
  return source->mOrder;
}

void CFRunLoopSourceInvalidate(CFRunLoopSourceRef source) {
  source->Invalidate();
}

Boolean CFRunLoopSourceIsValid(CFRunLoopSourceRef source) {
  MutexLock lock(gRunLoopLock);
  return source->mValid;
}

void CFRunLoopSourceGetContext(CFRunLoopSourceRef source, CFRunLoopSourceContext* context) {
  if (context->version == 0) *context = source->mContext;
}

void CFRunLoopSourceSignal(CFRunLoopSourceRef source) {
  MutexLock lock(gRunLoopLock);
  if (source->mValid) source->mSignalled = true;
}

CFTypeID CFRunLoopTimerGetTypeID(void) {
  return tembra::cf::kTypeRunLoopTimer;
}

CFRunLoopTimerRef CFRunLoopTimerCreate(CFAllocatorRef allocator, CFAbsoluteTime fireDate,
                                       CFTimeInterval interval, CFOptionFlags, CFIndex order,
                                       CFRunLoopTimerCallBack callout,
                                       CFRunLoopTimerContext* context) {
  if (!callout || (context && context->version != 0)) return nullptr;
  return tembra::cf::Create<__CFRunLoopTimer>(allocator, fireDate, interval, order, callout,
                                              context ? *context : CFRunLoopTimerContext{});
}

CFAbsoluteTime CFRunLoopTimerGetNextFireDate(CFRunLoopTimerRef timer) {
  MutexLock lock(gRunLoopLock);
  return timer->mValid ? timer->mFireDate : 0.0;
}

void CFRunLoopTimerSetNextFireDate(CFRunLoopTimerRef timer, CFAbsoluteTime fireDate) {
  MutexLock lock(gRunLoopLock);
  if (!timer->mValid) return;
  timer->SetFireDate(fireDate);
  if (timer->mLoop) timer->mLoop->WakeUp();
}

CFTimeInterval CFRunLoopTimerGetInterval(CFRunLoopTimerRef timer) {
  return timer->mInterval;
}

Boolean CFRunLoopTimerDoesRepeat(CFRunLoopTimerRef timer) {
  return timer->Repeats();
}

CFIndex CFRunLoopTimerGetOrder(CFRunLoopTimerRef timer) {
  return timer->mOrder;
}

void CFRunLoopTimerInvalidate(CFRunLoopTimerRef timer) {
  timer->Invalidate();
}

Boolean CFRunLoopTimerIsValid(CFRunLoopTimerRef timer) {
  MutexLock lock(gRunLoopLock);
  return timer->mValid;
}

void CFRunLoopTimerGetContext(CFRunLoopTimerRef timer, CFRunLoopTimerContext* context) {
  if (context->version == 0) *context = timer->mContext;
}
