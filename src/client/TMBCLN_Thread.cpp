#include "client/TMBCLN_Thread.h"

namespace {

// Longer than any process lives; the loop runs again if it does not.
constexpr CFTimeInterval kRunSeconds = 31536000.0;

}  // namespace

__TMBCLN_Thread::__TMBCLN_Thread() {
  // It ends by itself, often on its own thread: nobody waits for it.
  set_destroy_waits(false);
}

__TMBCLN_Thread::~__TMBCLN_Thread() {
  if (CFRunLoopRef loop = mRunLoop.exchange(nullptr)) CFRunLoopStop(loop);
  // Still here only if the thread never ran.
  if (mSource != nullptr) CFRelease(mSource);
}

bool __TMBCLN_Thread::create() {
  if (!is_created() && mSource == nullptr) {
    CFRunLoopSourceContext context{};
    context.info = this;
    context.perform = perform;
    mSource = CFRunLoopSourceCreate(kCFAllocatorDefault, 0, &context);
    if (mSource == nullptr) return false;
  }
  return thread_impl::create();
}

void __TMBCLN_Thread::perform(void* /*inInfo*/) {}

void __TMBCLN_Thread::main() {
  CFRunLoopRef loop = CFRunLoopGetCurrent();
  CFRunLoopAddSource(loop, mSource, kCFRunLoopDefaultMode);
  CFRelease(mSource);
  mSource = nullptr;
  // Last, since whoever sees the loop may stop it.
  mRunLoop.store(loop, std::memory_order_release);
  Phase expected = kStarting;
  if (!mPhase.compare_exchange_strong(expected, kRunning)) {
    // The maker has given up already and left the object to its thread.
    mRunLoop.store(nullptr, std::memory_order_release);
    destroy();
    free_thread();
    return;
  }
  while (CFRunLoopRunInMode(kCFRunLoopDefaultMode, kRunSeconds, false) == kCFRunLoopRunTimedOut) {
  }
  mRunLoop.store(nullptr, std::memory_order_release);
  destroy();
  free_thread();
}

bool __TMBCLN_Thread::destroy() {
  if (CFRunLoopRef loop = mRunLoop.exchange(nullptr)) CFRunLoopStop(loop);
  return thread_impl::destroy();
}

bool __TMBCLN_Thread::Abandon() {
  if (!is_created()) {
    delete this;
    return true;
  }
  Phase expected = kStarting;
  return mPhase.compare_exchange_strong(expected, kAbandoned);
}
