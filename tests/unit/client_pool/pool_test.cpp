#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "client/TMBCLN_Thread.h"
#include "client/xtl_thread.h"
#include "support/client/ClientDevice.h"
#include "support/client/FakeHAL.h"

namespace tembra::test {
namespace {

// Simulated time: usleep passes it and gives other threads a turn.
std::atomic<double> sNow{1000.0};
std::atomic<int> sNaps{0};
// While it is closed, a thread that wants its run loop waits.
std::mutex sGateMutex;
std::condition_variable sGateCondition;
bool sGateIsOpen = true;
std::atomic<int> sLoopsEnded{0};
std::atomic<int> sLoopsBegun{0};
std::atomic<bool> sTimeStands{true};
std::atomic<bool> sRefuseThreads{false};

void OpenGate(bool inOpen) {
  std::lock_guard<std::mutex> locker(sGateMutex);
  sGateIsOpen = inOpen;
  sGateCondition.notify_all();
}

}  // namespace
}  // namespace tembra::test

using namespace tembra::test;

CFAbsoluteTime CFAbsoluteTimeGetCurrent(void) {
  return sNow.load();
}

extern "C" int usleep(useconds_t inMicroseconds) {
  ++sNaps;
  if (!sTimeStands) sNow.store(sNow.load() + inMicroseconds / 1e6);
  sched_yield();
  return 0;
}

extern "C" int pthread_attr_setstacksize(pthread_attr_t* outAttributes, size_t inSize) {
  using Function = int (*)(pthread_attr_t*, size_t);
  static const Function sReal =
      reinterpret_cast<Function>(dlsym(RTLD_NEXT, "pthread_attr_setstacksize"));
  if (inSize == 0x100000 && sRefuseThreads) {
    // Larger than any address space: the thread cannot be made.
    return sReal(outAttributes, size_t{1} << 47);
  }
  return sReal(outAttributes, inSize);
}

CFRunLoopRunResult CFRunLoopRunInMode(CFRunLoopMode inMode, CFTimeInterval inSeconds,
                                      Boolean inReturnAfterSource) {
  using Function = CFRunLoopRunResult (*)(CFRunLoopMode, CFTimeInterval, Boolean);
  static const Function sReal = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "CFRunLoopRunInMode"));
  EXPECT_TRUE(CFEqual(inMode, kCFRunLoopDefaultMode));
  EXPECT_EQ(inSeconds, 31536000.0);
  EXPECT_FALSE(inReturnAfterSource);
  ++sLoopsBegun;
  const CFRunLoopRunResult result = sReal(inMode, inSeconds, inReturnAfterSource);
  ++sLoopsEnded;
  return result;
}

CFRunLoopRef CFRunLoopGetCurrent(void) {
  using Function = CFRunLoopRef (*)();
  static const Function sReal = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "CFRunLoopGetCurrent"));
  static const pthread_t sTestThread = pthread_self();
  if (!pthread_equal(pthread_self(), sTestThread)) {
    std::unique_lock<std::mutex> locker(sGateMutex);
    sGateCondition.wait(locker, [] { return sGateIsOpen; });
  }
  return sReal();
}

namespace tembra::test {
namespace {

class Pool : public testing::Test {
 protected:
  Pool() {
    FakeHAL::Get().Reset();
    CFRunLoopGetCurrent();  // tells which thread is the test's
    sTimeStands = true;
    sRefuseThreads = false;
    OpenGate(true);
  }

  static void WaitUntil(const std::function<bool()>& inCondition) {
    while (!inCondition()) sched_yield();
  }
};

TEST_F(Pool, TheFirstHandleInAProcessIsOne) {
  // This executable has made no device before this test, which runs first.
  int memory = 0;
  TMBACLN_Device* device = reinterpret_cast<TMBACLN_Device*>(&memory);
  EXPECT_EQ(TMBACLN_Device::addToPool(device), 1u);
  EXPECT_EQ(TMBACLN_Device::getHandleFromPool(device), 1u);
  EXPECT_EQ(TMBACLN_Device::getFromPool(1), device);
  TMBACLN_Device::removeFromPool(1);
}

TEST_F(Pool, HandlesRise) {
  int memory = 0;
  TMBACLN_Device* device = reinterpret_cast<TMBACLN_Device*>(&memory);
  const unsigned long long first = TMBACLN_Device::addToPool(device);
  const unsigned long long second = TMBACLN_Device::addToPool(device);
  EXPECT_EQ(second, first + 1);
  // The walk is in key order: the first entry of the pointer decides.
  EXPECT_EQ(TMBACLN_Device::getHandleFromPool(device), first);
  TMBACLN_Device::removeFromPool(first);
  EXPECT_EQ(TMBACLN_Device::getHandleFromPool(device), second);
  TMBACLN_Device::removeFromPool(second);
  EXPECT_EQ(TMBACLN_Device::getHandleFromPool(device), 0u);
  EXPECT_EQ(TMBACLN_Device::getFromPool(second), nullptr);
}

TEST_F(Pool, NullHasNoHandle) {
  EXPECT_EQ(TMBACLN_Device::addToPool(nullptr), 0u);
  EXPECT_EQ(TMBACLN_Device::getHandleFromPool(nullptr), 0u);
}

TEST_F(Pool, RemovingHandleZeroLeavesThePoolAlone) {
  int memory = 0;
  TMBACLN_Device* device = reinterpret_cast<TMBACLN_Device*>(&memory);
  const unsigned long long handle = TMBACLN_Device::addToPool(device);
  TMBACLN_Device::removeFromPool(0);
  EXPECT_EQ(TMBACLN_Device::getFromPool(handle), device);
  // Only the low 32 bits count.
  TMBACLN_Device::removeFromPool(handle | (1ull << 40));
  EXPECT_EQ(TMBACLN_Device::getFromPool(handle), nullptr);
}

TEST_F(Pool, ADeviceIsInThePoolForItsLife) {
  TMBACLN_Device* pointer = nullptr;
  const int ended = sLoopsEnded;
  {
    ClientDevice device;
    pointer = &*device;
    const unsigned long long handle = TMBACLN_Device::getHandleFromPool(pointer);
    EXPECT_NE(handle, 0u);
    EXPECT_EQ(TMBACLN_Device::getFromPool(handle), pointer);
  }
  EXPECT_EQ(TMBACLN_Device::getHandleFromPool(pointer), 0u);
  // The thread outlives the device for a moment; the tests after this one count loops.
  WaitUntil([&] { return sLoopsEnded == ended + 1; });
}

TEST_F(Pool, ACallbackForAnUnknownPointerDoesNotTouchIt) {
  // The pointer leads nowhere: touching it would end the test.
  void* nowhere = reinterpret_cast<void*>(16);
  TMBACLN_Device::__tmbPortTimerCallBack(nullptr, nowhere);
  TMBACLN_Device::__tmbAudioNotificationCallBack(nullptr, nowhere, nullptr, nullptr, nullptr);
  TMBACLN_Device::__tmbPortTimerCallBack(nullptr, nullptr);
  EXPECT_EQ(TMBACLN_Device::getHandleFromPool(static_cast<TMBACLN_Device*>(nowhere)), 0u);
}

TEST_F(Pool, ADeviceHasARunLoopThatEndsWithIt) {
  const int begun = sLoopsBegun;
  const int ended = sLoopsEnded;
  {
    ClientDevice device;
    EXPECT_NE(device->GetRunLoop(), CFRunLoopGetCurrent());
    WaitUntil([&] { return sLoopsBegun == begun + 1; });
    EXPECT_EQ(sLoopsEnded, ended);
  }
  WaitUntil([&] { return sLoopsEnded == ended + 1; });
}

TEST_F(Pool, AThreadThatComesUpTooLateIsGivenUp) {
  OpenGate(false);
  sTimeStands = false;
  const double before = sNow;
  const int naps = sNaps;
  const int begun = sLoopsBegun;
  {
    ClientDevice device;
    // Half a second in steps of 20 ms, and no more.
    EXPECT_NEAR(sNow - before, 0.5, 0.03);
    EXPECT_LE(sNaps - naps, 26);
    EXPECT_EQ(device->GetRunLoop(), CFRunLoopGetCurrent());
    // Now the thread does come up; it must find that nobody wants it.
    OpenGate(true);
  }
  for (int i = 0; i < 1000; ++i) sched_yield();
  EXPECT_EQ(sLoopsBegun, begun);
}

TEST_F(Pool, AThreadThatCannotBeMadeLeavesTheDeviceWorking) {
  sRefuseThreads = true;
  sTimeStands = false;
  const double before = sNow;
  ClientDevice device;
  EXPECT_NEAR(sNow - before, 0.5, 0.03);
  EXPECT_EQ(device->GetRunLoop(), CFRunLoopGetCurrent());
}

// The thread of its own.

TEST_F(Pool, AThreadOwnsItselfUntilItsLoopIsStopped) {
  const int ended = sLoopsEnded;
  __TMBCLN_Thread* thread = new __TMBCLN_Thread;
  EXPECT_EQ(thread->runLoop(), nullptr);
  ASSERT_TRUE(thread->create());
  CFRunLoopRef loop = nullptr;
  WaitUntil([&] { return (loop = thread->runLoop()) != nullptr; });
  CFRunLoopStop(loop);
  WaitUntil([&] { return sLoopsEnded == ended + 1; });
}

TEST_F(Pool, AThreadThatWasNeverStartedCanBeDeleted) {
  __TMBCLN_Thread* thread = new __TMBCLN_Thread;
  EXPECT_TRUE(thread->Abandon());
}

TEST_F(Pool, AThreadThatRunsIsNotGivenUp) {
  const int begun = sLoopsBegun;
  const int ended = sLoopsEnded;
  __TMBCLN_Thread* thread = new __TMBCLN_Thread;
  ASSERT_TRUE(thread->create());
  WaitUntil([&] { return sLoopsBegun == begun + 1; });
  EXPECT_FALSE(thread->Abandon());
  CFRunLoopStop(thread->runLoop());
  WaitUntil([&] { return sLoopsEnded == ended + 1; });
}

class TestThread : public xtl::thread_impl<int> {
 public:
  ~TestThread() override { EXPECT_FALSE(is_created()); }
  void SetDestroyWaits(bool inWaits) { set_destroy_waits(inWaits); }
  std::atomic<bool> mMayEnd{false};
  std::atomic<bool> mIgnoresTermination{false};

 protected:
  void main() override {
    pthread_attr_t attributes;
    size_t size = 0;
    pthread_getattr_np(pthread_self(), &attributes);
    pthread_attr_getstacksize(&attributes, &size);
    pthread_attr_destroy(&attributes);
    EXPECT_EQ(size, 0x100000u);
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    EXPECT_EQ(sigismember(&mask, SIGUSR1), 1);
    while (!mMayEnd && (mIgnoresTermination || !is_terminate_requested())) sched_yield();
    kill_handle();
  }
};

TEST_F(Pool, WaitingAnswers258WhetherTheThreadEndedOrNot) {
  TestThread thread;
  ASSERT_TRUE(thread.create());
  EXPECT_TRUE(thread.is_created());
  const int naps = sNaps;
  thread.mIgnoresTermination = true;
  EXPECT_EQ(thread.wait_for(100), 258);
  EXPECT_EQ(sNaps - naps, 4);  // each 25 ms
  EXPECT_TRUE(thread.is_created());
  thread.mMayEnd = true;
  WaitUntil([&] { return !thread.is_created(); });
  EXPECT_EQ(thread.wait_for(100), 258);
}

TEST_F(Pool, ASecondWaitIsRefused) {
  TestThread thread;
  thread.mIgnoresTermination = true;
  ASSERT_TRUE(thread.create());
  std::atomic<bool> ends{false};
  std::thread waiter([&] {
    while (!ends) thread.wait_for(100000);
  });
  // Whichever comes second is refused; the other goes on and on, so in the end it is this one.
  WaitUntil([&] { return thread.wait_for(25) == -1; });
  ends = true;
  thread.mMayEnd = true;
  waiter.join();
  WaitUntil([&] { return !thread.is_created(); });
}

TEST_F(Pool, DestroyTerminatesAThreadAndWaits) {
  TestThread thread;
  ASSERT_TRUE(thread.create());
  EXPECT_TRUE(thread.destroy());
  EXPECT_TRUE(thread.is_terminate_requested());
  EXPECT_FALSE(thread.is_created());
}

TEST_F(Pool, DestroyOfAnUnstartedThreadDoesNotWait) {
  TestThread thread;
  const int naps = sNaps;
  EXPECT_TRUE(thread.destroy());
  EXPECT_EQ(sNaps, naps);
  EXPECT_FALSE(thread.is_terminate_requested());
}

TEST_F(Pool, ALockerAcceptsNoLock) {
  xtl::locker_impl<int> none(nullptr);
  xtl::mutex_impl<int> mutex;
  { xtl::locker_impl<int> locker(&mutex); }
  mutex.lock();
  mutex.unlock();
}

}  // namespace
}  // namespace tembra::test
