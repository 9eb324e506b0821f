// Run loops in real time and across threads.

#include <CoreFoundation/CFRunLoop.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

#include "corefoundation/Object.h"
#include "support/Program.h"

namespace tembra::test {
namespace {

using cf::Owned;
using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

Owned<CFRunLoopSourceRef> MakeSource(std::atomic<int>& ioCount) {
  CFRunLoopSourceContext context{};
  context.info = &ioCount;
  context.perform = [](void* inCount) { ++*static_cast<std::atomic<int>*>(inCount); };
  return Owned<CFRunLoopSourceRef>(CFRunLoopSourceCreate(nullptr, 0, &context));
}

Owned<CFRunLoopTimerRef> MakeTimer(std::atomic<int>& ioCount, double inFromNow, double inInterval) {
  CFRunLoopTimerContext context{};
  context.info = &ioCount;
  return Owned<CFRunLoopTimerRef>(CFRunLoopTimerCreate(
      nullptr, CFAbsoluteTimeGetCurrent() + inFromNow, inInterval, 0, 0,
      [](CFRunLoopTimerRef, void* inCount) { ++*static_cast<std::atomic<int>*>(inCount); },
      &context));
}

// A thread that runs its loop with one source in it until it is stopped.
class LoopThread {
 public:
  LoopThread() : mSource(MakeSource(mPerformed)) {
    mThread = std::thread([this] {
      CFRunLoopRef loop = CFRunLoopGetCurrent();
      CFRunLoopAddSource(loop, mSource, kCFRunLoopDefaultMode);
      mLoop = loop;
      mResult = CFRunLoopRunInMode(kCFRunLoopDefaultMode, 31536000.0, false);
    });
    WaitUntil([this] { return mLoop != nullptr; });
  }
  ~LoopThread() {
    if (mThread.joinable()) Stop();
  }
  CFRunLoopRunResult Stop() {
    CFRunLoopStop(mLoop);
    mThread.join();
    return mResult;
  }

  std::atomic<int> mPerformed{0};
  Owned<CFRunLoopSourceRef> mSource;
  std::atomic<CFRunLoopRef> mLoop{nullptr};

 private:
  CFRunLoopRunResult mResult{};
  std::thread mThread;
};

TEST(RunLoopTime, AnotherThreadStopsALoop) {
  LoopThread thread;
  EXPECT_TRUE(WaitUntil([&] { return CFRunLoopIsWaiting(thread.mLoop); }));
  EXPECT_EQ(thread.Stop(), kCFRunLoopRunStopped);
}

TEST(RunLoopTime, AStopIsNeverLostHoweverEarlyItComes) {
  for (int i = 0; i < 500; ++i) {
    LoopThread thread;
    EXPECT_EQ(thread.Stop(), kCFRunLoopRunStopped);
  }
}

TEST(RunLoopTime, ASignalAndAWakeUpFromAnotherThreadPerform) {
  LoopThread thread;
  for (int i = 1; i <= 100; ++i) {
    CFRunLoopSourceSignal(thread.mSource);
    CFRunLoopWakeUp(thread.mLoop);
    ASSERT_TRUE(WaitUntil([&] { return thread.mPerformed == i; }));
  }
}

TEST(RunLoopTime, ATimerFromAnotherThreadFiresOnTimeOnAWaitingLoop) {
  LoopThread thread;
  ASSERT_TRUE(WaitUntil([&] { return CFRunLoopIsWaiting(thread.mLoop); }));
  std::atomic<int> fired{0};
  const auto begin = Clock::now();
  auto timer = MakeTimer(fired, 0.1, 0);
  CFRunLoopAddTimer(thread.mLoop, timer, kCFRunLoopCommonModes);
  ASSERT_TRUE(WaitUntil([&] { return fired == 1; }));
  EXPECT_GE(Clock::now() - begin, Seconds(0.0999));
  EXPECT_TRUE(WaitUntil([&] { return !CFRunLoopTimerIsValid(timer); }));
}

TEST(RunLoopTime, AnInvalidatedTimerDoesNotFire) {
  LoopThread thread;
  std::atomic<int> fired{0};
  auto timer = MakeTimer(fired, 0.05, 0);
  auto later = MakeTimer(fired, 0.1, 0);
  CFRunLoopAddTimer(thread.mLoop, timer, kCFRunLoopCommonModes);
  CFRunLoopAddTimer(thread.mLoop, later, kCFRunLoopCommonModes);
  CFRunLoopTimerInvalidate(timer);
  ASSERT_TRUE(WaitUntil([&] { return !CFRunLoopTimerIsValid(later); }));
  EXPECT_EQ(fired, 1);
}

TEST(RunLoopTime, ARepeatingTimerFiresAgainAndAgain) {
  std::atomic<int> fired{0};
  auto timer = MakeTimer(fired, 0.01, 0.01);
  CFRunLoopAddTimer(CFRunLoopGetCurrent(), timer, kCFRunLoopDefaultMode);
  EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.2, false), kCFRunLoopRunTimedOut);
  EXPECT_GE(fired, 2);
  EXPECT_LE(fired, 20);
  CFRunLoopTimerInvalidate(timer);
}

TEST(RunLoopTime, ADateMovedForwardOnAWaitingLoopCounts) {
  LoopThread thread;
  std::atomic<int> fired{0};
  auto timer = MakeTimer(fired, 1e6, 0);
  CFRunLoopAddTimer(thread.mLoop, timer, kCFRunLoopDefaultMode);
  ASSERT_TRUE(WaitUntil([&] { return CFRunLoopIsWaiting(thread.mLoop); }));
  CFRunLoopTimerSetNextFireDate(timer, CFAbsoluteTimeGetCurrent());
  EXPECT_TRUE(WaitUntil([&] { return fired == 1; }));
}

TEST(RunLoopTime, ARunTimesOutAfterItsTimeAndSleepsMeanwhile) {
  std::atomic<int> performed{0};
  auto source = MakeSource(performed);
  CFRunLoopAddSource(CFRunLoopGetCurrent(), source, kCFRunLoopDefaultMode);
  rusage before{}, after{};
  getrusage(RUSAGE_THREAD, &before);
  const auto begin = Clock::now();
  EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.3, false), kCFRunLoopRunTimedOut);
  EXPECT_GE(Clock::now() - begin, Seconds(0.2999));
  getrusage(RUSAGE_THREAD, &after);
  const auto spent = (after.ru_utime.tv_sec - before.ru_utime.tv_sec) * 1000000 +
                     (after.ru_utime.tv_usec - before.ru_utime.tv_usec);
  EXPECT_LT(spent, 100000);
  CFRunLoopSourceInvalidate(source);
}

TEST(RunLoopTime, RemovingTheLastSourceFinishesAWaitingLoop) {
  std::atomic<int> performed{0};
  auto source = MakeSource(performed);
  CFRunLoopRunResult result{};
  std::atomic<CFRunLoopRef> loop{nullptr};
  std::thread thread([&] {
    CFRunLoopAddSource(CFRunLoopGetCurrent(), source, kCFRunLoopDefaultMode);
    loop = CFRunLoopGetCurrent();
    result = CFRunLoopRunInMode(kCFRunLoopDefaultMode, 1000, false);
  });
  ASSERT_TRUE(WaitUntil([&] { return loop && CFRunLoopIsWaiting(loop); }));
  CFRunLoopSourceInvalidate(source);
  thread.join();
  EXPECT_EQ(result, kCFRunLoopRunFinished);
}

TEST(RunLoopTime, ALoopLetsGoOfEverythingWhenItsThreadEnds) {
  std::atomic<int> count{0};
  auto source = MakeSource(count);
  auto timer = MakeTimer(count, 1e6, 0);
  Owned<CFRunLoopRef> kept;
  std::thread([&] {
    CFRunLoopRef loop = CFRunLoopGetCurrent();
    CFRunLoopAddSource(loop, source, kCFRunLoopCommonModes);
    CFRunLoopAddTimer(loop, timer, kCFRunLoopCommonModes);
    EXPECT_GT(CFGetRetainCount(source), 1);
    kept = Owned<CFRunLoopRef>::Retained(loop);
  }).join();
  EXPECT_EQ(CFGetRetainCount(source), 1);
  EXPECT_EQ(CFGetRetainCount(timer), 1);
  // Someone who still knows the loop does no harm.
  CFRunLoopStop(kept);
  CFRunLoopWakeUp(kept);
}

TEST(RunLoopTime, WithoutDescriptorsTimersAndStopsStillWork) {
  // A sanitizer looks at a type's first object with the help of a descriptor: let it have its look.
  {
    std::atomic<int> unused{0};
    LoopThread first;
    auto timer = MakeTimer(unused, 0, 0);
    CFRunLoopAddTimer(first.mLoop, timer, kCFRunLoopDefaultMode);
    CFRunLoopSourceSignal(first.mSource);
    CFRunLoopWakeUp(first.mLoop);
    ASSERT_TRUE(WaitUntil([&] { return unused == 1 && first.mPerformed == 1; }));
    first.Stop();
  }
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  rlimit none = limit;
  none.rlim_cur = 3;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  std::atomic<int> fired{0};
  LoopThread thread;
  auto timer = MakeTimer(fired, 0.02, 0);
  CFRunLoopAddTimer(thread.mLoop, timer, kCFRunLoopDefaultMode);
  const bool didFire = WaitUntil([&] { return fired == 1; });
  CFRunLoopSourceSignal(thread.mSource);
  const bool performed = WaitUntil([&] { return thread.mPerformed == 1; });
  const CFRunLoopRunResult result = thread.Stop();
  setrlimit(RLIMIT_NOFILE, &limit);
  EXPECT_TRUE(didFire);
  EXPECT_TRUE(performed);
  EXPECT_EQ(result, kCFRunLoopRunStopped);
}

TEST(RunLoopTime, ALoopWhoseDescriptorsWereClosedSleepsAndItsTimersStillFire) {
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    alarm(30);
    std::atomic<int> performed{0}, fired{0};
    auto source = MakeSource(performed);
    CFRunLoopAddSource(CFRunLoopGetCurrent(), source, kCFRunLoopDefaultMode);
    CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.01, true);
    close_range(3, ~0U, 0);
    auto timer = MakeTimer(fired, 0.02, 0);
    CFRunLoopAddTimer(CFRunLoopGetCurrent(), timer, kCFRunLoopDefaultMode);
    rusage before{}, after{};
    getrusage(RUSAGE_THREAD, &before);
    if (CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.3, false) != kCFRunLoopRunTimedOut) _exit(1);
    getrusage(RUSAGE_THREAD, &after);
    if (fired != 1) _exit(2);
    // It sleeps a little each time, which gives the processor up.
    _exit(after.ru_nvcsw - before.ru_nvcsw >= 5 ? 0 : 3);
  }
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
}

TEST(RunLoopTime, ManyThreadsAddAndRemoveOnOneLoop) {
  LoopThread thread;
  std::vector<std::thread> threads;
  std::atomic<int> count{0};
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 500; ++i) {
        auto timer = MakeTimer(count, 0.0001 * (i % 7), i % 2 ? 0.001 : 0);
        auto source = MakeSource(count);
        CFRunLoopAddTimer(thread.mLoop, timer, kCFRunLoopCommonModes);
        CFRunLoopAddSource(thread.mLoop, source, kCFRunLoopCommonModes);
        CFRunLoopSourceSignal(source);
        CFRunLoopWakeUp(thread.mLoop);
        CFRunLoopTimerInvalidate(timer);
        CFRunLoopSourceInvalidate(source);
      }
    });
  }
  for (auto& each : threads) each.join();
  EXPECT_EQ(thread.Stop(), kCFRunLoopRunStopped);
}

TEST(RunLoopTime, AForkedChildsLoopIsItsOwn) {
  std::atomic<int> performed{0};
  auto source = MakeSource(performed);
  CFRunLoopRef loop = CFRunLoopGetCurrent();
  CFRunLoopAddSource(loop, source, kCFRunLoopDefaultMode);
  CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.01, true);
  const pid_t child = fork();
  if (child == 0) {
    alarm(30);
    std::atomic<int> fired{0};
    auto timer = MakeTimer(fired, 0.02, 0);
    CFRunLoopAddTimer(loop, timer, kCFRunLoopDefaultMode);
    CFRunLoopSourceSignal(source);
    CFRunLoopWakeUp(loop);
    CFRunLoopRunInMode(kCFRunLoopDefaultMode, 5, true);
    while (fired == 0) CFRunLoopRunInMode(kCFRunLoopDefaultMode, 5, true);
    _exit(performed == 1 && CFRunLoopGetMain() == loop ? 0 : 1);
  }
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(performed, 0);
  CFRunLoopSourceInvalidate(source);
}

}  // namespace
}  // namespace tembra::test
