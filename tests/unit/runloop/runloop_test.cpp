#include <CoreFoundation/CFRunLoop.h>
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "corefoundation/Object.h"

using tembra::cf::Owned;

namespace {

// Counts what a context is asked to do.
struct Log {
  int retains = 0;
  int releases = 0;
  int calls = 0;
  std::vector<std::string> events;
};

const void* RetainLog(const void* inLog) {
  ++static_cast<Log*>(const_cast<void*>(inLog))->retains;
  return inLog;
}

void ReleaseLog(const void* inLog) {
  ++static_cast<Log*>(const_cast<void*>(inLog))->releases;
}

Owned<CFRunLoopTimerRef> MakeTimer(Log& ioLog, double inFromNow, double inInterval,
                                   CFRunLoopTimerCallBack inCallout = nullptr,
                                   CFIndex inOrder = 0) {
  CFRunLoopTimerContext context{0, &ioLog, RetainLog, ReleaseLog, nullptr};
  auto count = [](CFRunLoopTimerRef, void* inLog) { ++static_cast<Log*>(inLog)->calls; };
  return Owned<CFRunLoopTimerRef>(
      CFRunLoopTimerCreate(nullptr, CFAbsoluteTimeGetCurrent() + inFromNow, inInterval, 0, inOrder,
                           inCallout ? inCallout : +count, &context));
}

Owned<CFRunLoopSourceRef> MakeSource(Log& ioLog, CFIndex inOrder = 0) {
  CFRunLoopSourceContext context{};
  context.info = &ioLog;
  context.retain = RetainLog;
  context.release = ReleaseLog;
  context.schedule = [](void* inLog, CFRunLoopRef, CFRunLoopMode) {
    static_cast<Log*>(inLog)->events.push_back("schedule");
  };
  context.cancel = [](void* inLog, CFRunLoopRef, CFRunLoopMode) {
    static_cast<Log*>(inLog)->events.push_back("cancel");
  };
  context.perform = [](void* inLog) { ++static_cast<Log*>(inLog)->calls; };
  return Owned<CFRunLoopSourceRef>(CFRunLoopSourceCreate(nullptr, inOrder, &context));
}

CFRunLoopRunResult RunOnce(CFRunLoopMode inMode = kCFRunLoopDefaultMode) {
  return CFRunLoopRunInMode(inMode, 0, true);
}

TEST(RunLoop, IsOneForEachThread) {
  CFRunLoopRef mine = CFRunLoopGetCurrent();
  EXPECT_EQ(mine, CFRunLoopGetCurrent());
  EXPECT_EQ(mine, CFRunLoopGetMain());
  CFRunLoopRef other = nullptr;
  CFRunLoopRef mainThere = nullptr;
  std::thread([&] {
    other = CFRunLoopGetCurrent();
    mainThere = CFRunLoopGetMain();
  }).join();
  EXPECT_NE(other, mine);
  EXPECT_EQ(mainThere, mine);
  EXPECT_EQ(CFGetTypeID(mine), CFRunLoopGetTypeID());
}

TEST(RunLoop, WithNothingToWaitForFinishesAtOnce) {
  EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, 1000, false), kCFRunLoopRunFinished);
  EXPECT_EQ(CFRunLoopRunInMode(CFSTR("nobody.uses.this"), 1000, false), kCFRunLoopRunFinished);
  CFRunLoopRun();
}

TEST(RunLoop, ResultCodesHaveTheirPublishedValues) {
  EXPECT_EQ(kCFRunLoopRunFinished, 1);
  EXPECT_EQ(kCFRunLoopRunStopped, 2);
  EXPECT_EQ(kCFRunLoopRunTimedOut, 3);
  EXPECT_EQ(kCFRunLoopRunHandledSource, 4);
}

TEST(RunLoop, CannotRunInTheCommonModes) {
  Log log;
  auto source = MakeSource(log);
  CFRunLoopAddSource(CFRunLoopGetCurrent(), source, kCFRunLoopCommonModes);
  EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopCommonModes, 1000, false), kCFRunLoopRunFinished);
  CFRunLoopSourceInvalidate(source);
}

TEST(RunLoop, PerformsASignalledSourceOnce) {
  Log log;
  auto source = MakeSource(log);
  CFRunLoopAddSource(CFRunLoopGetCurrent(), source, kCFRunLoopDefaultMode);
  EXPECT_EQ(RunOnce(), kCFRunLoopRunTimedOut);
  EXPECT_EQ(log.calls, 0);
  CFRunLoopSourceSignal(source);
  EXPECT_EQ(RunOnce(), kCFRunLoopRunHandledSource);
  EXPECT_EQ(RunOnce(), kCFRunLoopRunTimedOut);
  EXPECT_EQ(log.calls, 1);
  CFRunLoopSourceInvalidate(source);
}

TEST(RunLoop, SourcesOfOnePassRunInTheirOrder) {
  std::vector<int> ran;
  struct Entry {
    std::vector<int>* ran;
    int order;
  } entries[] = {{&ran, 2}, {&ran, 0}, {&ran, 1}};
  std::vector<Owned<CFRunLoopSourceRef>> sources;
  for (Entry& entry : entries) {
    CFRunLoopSourceContext context{};
    context.info = &entry;
    context.perform = [](void* inEntry) {
      auto* e = static_cast<Entry*>(inEntry);
      e->ran->push_back(e->order);
    };
    sources.emplace_back(CFRunLoopSourceCreate(nullptr, entry.order, &context));
    EXPECT_EQ(CFRunLoopSourceGetOrder(sources.back()), entry.order);
    CFRunLoopAddSource(CFRunLoopGetCurrent(), sources.back(), kCFRunLoopDefaultMode);
    CFRunLoopSourceSignal(sources.back());
  }
  RunOnce();
  EXPECT_EQ(ran, (std::vector<int>{0, 1, 2}));
  for (auto& source : sources) CFRunLoopSourceInvalidate(source);
}

TEST(RunLoop, ASourceIsToldWhereItIsScheduledAndCancelled) {
  Log log;
  auto source = MakeSource(log);
  CFRunLoopRef loop = CFRunLoopGetCurrent();
  CFRunLoopAddSource(loop, source, kCFRunLoopDefaultMode);
  CFRunLoopAddSource(loop, source, kCFRunLoopDefaultMode);
  EXPECT_EQ(log.events, (std::vector<std::string>{"schedule"}));
  EXPECT_TRUE(CFRunLoopContainsSource(loop, source, kCFRunLoopDefaultMode));
  CFRunLoopRemoveSource(loop, source, kCFRunLoopDefaultMode);
  EXPECT_FALSE(CFRunLoopContainsSource(loop, source, kCFRunLoopDefaultMode));
  CFRunLoopAddSource(loop, source, CFSTR("other"));
  CFRunLoopSourceInvalidate(source);
  EXPECT_EQ(log.events, (std::vector<std::string>{"schedule", "cancel", "schedule", "cancel"}));
  EXPECT_FALSE(CFRunLoopContainsSource(loop, source, CFSTR("other")));
}

TEST(RunLoop, AnInvalidSourceIsNeitherAddedNorPerformed) {
  Log log;
  auto source = MakeSource(log);
  CFRunLoopAddSource(CFRunLoopGetCurrent(), source, kCFRunLoopDefaultMode);
  CFRunLoopSourceSignal(source);
  CFRunLoopSourceInvalidate(source);
  EXPECT_FALSE(CFRunLoopSourceIsValid(source));
  EXPECT_EQ(RunOnce(), kCFRunLoopRunFinished);
  CFRunLoopAddSource(CFRunLoopGetCurrent(), source, kCFRunLoopDefaultMode);
  EXPECT_EQ(RunOnce(), kCFRunLoopRunFinished);
  EXPECT_EQ(log.calls, 0);
}

TEST(RunLoop, ASourceRetainsItsInfoAndReleasesItOnce) {
  Log log;
  {
    auto source = MakeSource(log);
    EXPECT_EQ(log.retains, 1);
    CFRunLoopSourceInvalidate(source);
    EXPECT_EQ(log.releases, 1);
    CFRunLoopSourceInvalidate(source);
  }
  EXPECT_EQ(log.releases, 1);
  { auto source = MakeSource(log); }
  EXPECT_EQ(log.releases, 2);
}

TEST(RunLoop, ASourceMayInvalidateItselfWhileItRuns) {
  struct State {
    CFRunLoopSourceRef source;
    int releasedInside = -1;
    Log log;
  } state;
  CFRunLoopSourceContext context{};
  context.info = &state;
  context.release = [](const void* inState) {
    ++static_cast<State*>(const_cast<void*>(inState))->log.releases;
  };
  context.perform = [](void* inState) {
    auto* s = static_cast<State*>(inState);
    CFRunLoopSourceInvalidate(s->source);
    s->releasedInside = s->log.releases;
  };
  state.source = CFRunLoopSourceCreate(nullptr, 0, &context);
  CFRunLoopAddSource(CFRunLoopGetCurrent(), state.source, kCFRunLoopDefaultMode);
  CFRunLoopSourceSignal(state.source);
  CFRelease(state.source);
  EXPECT_EQ(RunOnce(), kCFRunLoopRunHandledSource);
  // The info outlives the callback that uses it.
  EXPECT_EQ(state.releasedInside, 0);
  EXPECT_EQ(state.log.releases, 1);
}

TEST(RunLoop, ASourceNeedsAContextOfVersionZero) {
  CFRunLoopSourceContext context{};
  context.version = 1;
  EXPECT_EQ(CFRunLoopSourceCreate(nullptr, 0, &context), nullptr);
  EXPECT_EQ(CFRunLoopSourceCreate(nullptr, 0, nullptr), nullptr);
}

TEST(RunLoop, ASourceGivesItsContextBack) {
  Log log;
  auto source = MakeSource(log);
  CFRunLoopSourceContext context{};
  CFRunLoopSourceGetContext(source, &context);
  EXPECT_EQ(context.info, &log);
  EXPECT_NE(context.perform, nullptr);
}

TEST(RunLoop, ADueTimerFiresOnceAndIsThenInvalidButStaysAnObject) {
  Log log;
  auto timer = MakeTimer(log, -1, 0);
  CFRunLoopAddTimer(CFRunLoopGetCurrent(), timer, kCFRunLoopDefaultMode);
  EXPECT_TRUE(CFRunLoopTimerIsValid(timer));
  RunOnce();
  EXPECT_EQ(log.calls, 1);
  EXPECT_FALSE(CFRunLoopTimerIsValid(timer));
  EXPECT_FALSE(CFRunLoopContainsTimer(CFRunLoopGetCurrent(), timer, kCFRunLoopDefaultMode));
  EXPECT_EQ(log.releases, 1);
  CFRunLoopTimerInvalidate(timer);
  EXPECT_EQ(log.releases, 1);
  EXPECT_EQ(CFGetTypeID(timer), CFRunLoopTimerGetTypeID());
  EXPECT_EQ(RunOnce(), kCFRunLoopRunFinished);
}

TEST(RunLoop, AOneShotTimerIsValidInsideItsCallback) {
  Log log;
  auto timer = MakeTimer(log, -1, 0, [](CFRunLoopTimerRef inTimer, void* inLog) {
    static_cast<Log*>(inLog)->calls = CFRunLoopTimerIsValid(inTimer) ? 1 : -1;
  });
  CFRunLoopAddTimer(CFRunLoopGetCurrent(), timer, kCFRunLoopDefaultMode);
  RunOnce();
  EXPECT_EQ(log.calls, 1);
}

TEST(RunLoop, ATimerMayBeInvalidatedAndReleasedInItsCallback) {
  Log log;
  auto timer = MakeTimer(log, -1, 0, [](CFRunLoopTimerRef inTimer, void* inLog) {
    auto* l = static_cast<Log*>(inLog);
    CFRunLoopTimerInvalidate(inTimer);
    CFRelease(inTimer);
    l->calls = 1 + l->releases;
  });
  CFRunLoopAddTimer(CFRunLoopGetCurrent(), timer.Detach(), kCFRunLoopDefaultMode);
  RunOnce();
  EXPECT_EQ(log.calls, 1);
  EXPECT_EQ(log.releases, 1);
}

TEST(RunLoop, ATimerOfTheFutureDoesNotFireYet) {
  Log log;
  auto timer = MakeTimer(log, 1e6, 0);
  CFRunLoopAddTimer(CFRunLoopGetCurrent(), timer, kCFRunLoopDefaultMode);
  EXPECT_EQ(RunOnce(), kCFRunLoopRunTimedOut);
  EXPECT_EQ(log.calls, 0);
  // A new date brings it forward.
  CFRunLoopTimerSetNextFireDate(timer, CFAbsoluteTimeGetCurrent() - 1);
  RunOnce();
  EXPECT_EQ(log.calls, 1);
}

TEST(RunLoop, OddDatesAndIntervalsDoNoHarm) {
  Log log;
  for (double date : {1e300, -1e300, __builtin_nan("")}) {
    CFRunLoopTimerContext context{0, &log, nullptr, nullptr, nullptr};
    Owned<CFRunLoopTimerRef> timer(CFRunLoopTimerCreate(
        nullptr, date, 1e-12, 0, 0,
        [](CFRunLoopTimerRef, void* inLog) { ++static_cast<Log*>(inLog)->calls; }, &context));
    CFRunLoopAddTimer(CFRunLoopGetCurrent(), timer, kCFRunLoopDefaultMode);
    RunOnce();
    CFRunLoopTimerInvalidate(timer);
  }
  EXPECT_EQ(log.calls, 2);
}

TEST(RunLoop, ARepeatingTimerKeepsItsPhaseAndSkipsWhatItMissed) {
  Log log;
  auto timer = MakeTimer(log, -2500.5, 1000);
  EXPECT_TRUE(CFRunLoopTimerDoesRepeat(timer));
  EXPECT_EQ(CFRunLoopTimerGetInterval(timer), 1000);
  const CFAbsoluteTime first = CFRunLoopTimerGetNextFireDate(timer);
  CFRunLoopAddTimer(CFRunLoopGetCurrent(), timer, kCFRunLoopDefaultMode);
  RunOnce();
  RunOnce();
  EXPECT_EQ(log.calls, 1);
  EXPECT_TRUE(CFRunLoopTimerIsValid(timer));
  EXPECT_NEAR(CFRunLoopTimerGetNextFireDate(timer), first + 3000, 1e-3);
  CFRunLoopTimerInvalidate(timer);
  EXPECT_EQ(CFRunLoopTimerGetNextFireDate(timer), 0);
}

TEST(RunLoop, TimersFireByDateThenOrder) {
  static std::vector<int>* sRan;
  std::vector<int> ran;
  sRan = &ran;
  const CFAbsoluteTime now = CFAbsoluteTimeGetCurrent();
  std::vector<Owned<CFRunLoopTimerRef>> timers;
  for (int i : {3, 1, 2}) {
    CFRunLoopTimerContext context{};
    context.info = reinterpret_cast<void*>(static_cast<intptr_t>(i));
    timers.emplace_back(CFRunLoopTimerCreate(
        nullptr, now - 100 + i, 0, 0, 0,
        [](CFRunLoopTimerRef, void* inInfo) {
          sRan->push_back(static_cast<int>(reinterpret_cast<intptr_t>(inInfo)));
        },
        &context));
    CFRunLoopAddTimer(CFRunLoopGetCurrent(), timers.back(), kCFRunLoopDefaultMode);
  }
  RunOnce();
  EXPECT_EQ(ran, (std::vector<int>{1, 2, 3}));
}

TEST(RunLoop, ATimerDoesNotFireAgainInsideItsCallback) {
  Log log;
  auto timer = MakeTimer(log, -1, 1e-9, [](CFRunLoopTimerRef, void* inLog) {
    auto* l = static_cast<Log*>(inLog);
    if (++l->calls == 1) RunOnce();
  });
  CFRunLoopAddTimer(CFRunLoopGetCurrent(), timer, kCFRunLoopDefaultMode);
  RunOnce();
  EXPECT_EQ(log.calls, 1);
  CFRunLoopTimerInvalidate(timer);
}

TEST(RunLoop, ATimerBelongsToOneLoopOnly) {
  Log log;
  auto timer = MakeTimer(log, 1e6, 0);
  CFRunLoopRef loop = CFRunLoopGetCurrent();
  CFRunLoopAddTimer(loop, timer, kCFRunLoopDefaultMode);
  std::thread([&] {
    CFRunLoopAddTimer(CFRunLoopGetCurrent(), timer, kCFRunLoopDefaultMode);
    EXPECT_FALSE(CFRunLoopContainsTimer(CFRunLoopGetCurrent(), timer, kCFRunLoopDefaultMode));
  }).join();
  CFRunLoopRemoveTimer(loop, timer, kCFRunLoopDefaultMode);
  EXPECT_FALSE(CFRunLoopContainsTimer(loop, timer, kCFRunLoopDefaultMode));
  std::thread([&] {
    CFRunLoopAddTimer(CFRunLoopGetCurrent(), timer, kCFRunLoopDefaultMode);
    EXPECT_TRUE(CFRunLoopContainsTimer(CFRunLoopGetCurrent(), timer, kCFRunLoopDefaultMode));
  }).join();
  // That loop is gone with its thread; the timer is free again.
  CFRunLoopAddTimer(loop, timer, kCFRunLoopDefaultMode);
  EXPECT_TRUE(CFRunLoopContainsTimer(loop, timer, kCFRunLoopDefaultMode));
  CFRunLoopTimerInvalidate(timer);
}

TEST(RunLoop, WhatIsInTheCommonModesIsInTheDefaultOneAndInThoseThatBecomeCommon) {
  Log log;
  auto source = MakeSource(log);
  auto timer = MakeTimer(log, 1e6, 0);
  CFRunLoopRef loop = CFRunLoopGetCurrent();
  CFRunLoopAddSource(loop, source, kCFRunLoopCommonModes);
  CFRunLoopAddTimer(loop, timer, kCFRunLoopCommonModes);
  EXPECT_TRUE(CFRunLoopContainsSource(loop, source, kCFRunLoopDefaultMode));
  EXPECT_TRUE(CFRunLoopContainsTimer(loop, timer, kCFRunLoopDefaultMode));
  EXPECT_TRUE(CFRunLoopContainsTimer(loop, timer, kCFRunLoopCommonModes));
  EXPECT_FALSE(CFRunLoopContainsSource(loop, source, CFSTR("late")));
  CFRunLoopAddCommonMode(loop, CFSTR("late"));
  EXPECT_TRUE(CFRunLoopContainsSource(loop, source, CFSTR("late")));
  EXPECT_TRUE(CFRunLoopContainsTimer(loop, timer, CFSTR("late")));
  CFRunLoopSourceSignal(source);
  EXPECT_EQ(RunOnce(CFSTR("late")), kCFRunLoopRunHandledSource);
  CFRunLoopRemoveSource(loop, source, kCFRunLoopCommonModes);
  CFRunLoopRemoveTimer(loop, timer, kCFRunLoopCommonModes);
  EXPECT_FALSE(CFRunLoopContainsSource(loop, source, CFSTR("late")));
  EXPECT_FALSE(CFRunLoopContainsTimer(loop, timer, kCFRunLoopDefaultMode));
}

TEST(RunLoop, ServesOnlyTheModeThatItRunsIn) {
  Log log;
  auto source = MakeSource(log);
  Log other;
  auto keep = MakeSource(other);
  CFRunLoopAddSource(CFRunLoopGetCurrent(), source, CFSTR("a"));
  CFRunLoopAddSource(CFRunLoopGetCurrent(), keep, CFSTR("b"));
  CFRunLoopSourceSignal(source);
  EXPECT_EQ(RunOnce(CFSTR("b")), kCFRunLoopRunTimedOut);
  EXPECT_EQ(log.calls, 0);
  EXPECT_EQ(RunOnce(CFSTR("a")), kCFRunLoopRunHandledSource);
  EXPECT_EQ(log.calls, 1);
  CFRunLoopSourceInvalidate(source);
  CFRunLoopSourceInvalidate(keep);
}

TEST(RunLoop, AStopBeforeTheRunEndsTheRunAndOnlyThatOne) {
  Log log;
  auto source = MakeSource(log);
  CFRunLoopAddSource(CFRunLoopGetCurrent(), source, kCFRunLoopDefaultMode);
  CFRunLoopStop(CFRunLoopGetCurrent());
  EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, 1000, false), kCFRunLoopRunStopped);
  EXPECT_EQ(RunOnce(), kCFRunLoopRunTimedOut);
  CFRunLoopSourceInvalidate(source);
}

TEST(RunLoop, ACallbackCanStopTheLoop) {
  Log log;
  auto keep = MakeSource(log);
  CFRunLoopAddSource(CFRunLoopGetCurrent(), keep, kCFRunLoopDefaultMode);
  auto timer =
      MakeTimer(log, -1, 0, [](CFRunLoopTimerRef, void*) { CFRunLoopStop(CFRunLoopGetCurrent()); });
  CFRunLoopAddTimer(CFRunLoopGetCurrent(), timer, kCFRunLoopDefaultMode);
  EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, 1000, false), kCFRunLoopRunStopped);
  CFRunLoopSourceInvalidate(keep);
}

TEST(RunLoop, FinishesWhenItsLastTimerHasFired) {
  Log log;
  auto timer = MakeTimer(log, -1, 0);
  CFRunLoopAddTimer(CFRunLoopGetCurrent(), timer, kCFRunLoopDefaultMode);
  EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, 1000, false), kCFRunLoopRunFinished);
  EXPECT_EQ(log.calls, 1);
}

TEST(RunLoop, RunsBlocksInTheirModes) {
  __block std::string ran;
  CFRunLoopRef loop = CFRunLoopGetCurrent();
  CFRunLoopPerformBlock(loop, kCFRunLoopDefaultMode, ^{
    ran += 'd';
  });
  CFRunLoopPerformBlock(loop, kCFRunLoopCommonModes, ^{
    ran += 'c';
  });
  CFRunLoopPerformBlock(loop, CFSTR("mine"), ^{
    ran += 'm';
  });
  CFStringRef names[] = {CFSTR("mine"), kCFRunLoopDefaultMode};
  Owned<CFArrayRef> both(
      CFArrayCreate(nullptr, reinterpret_cast<const void**>(names), 2, &kCFTypeArrayCallBacks));
  CFRunLoopPerformBlock(loop, both, ^{
    ran += 'b';
  });
  RunOnce();
  EXPECT_EQ(ran, "dcb");
  Log log;
  auto source = MakeSource(log);
  CFRunLoopAddSource(loop, source, CFSTR("mine"));
  RunOnce(CFSTR("mine"));
  EXPECT_EQ(ran, "dcbm");
  CFRunLoopSourceInvalidate(source);
}

TEST(RunLoop, TellsItsCurrentModeAndAllModes) {
  CFRunLoopRef loop = CFRunLoopGetCurrent();
  EXPECT_EQ(CFRunLoopCopyCurrentMode(loop), nullptr);
  __block bool right = false;
  CFRunLoopPerformBlock(loop, kCFRunLoopDefaultMode, ^{
    Owned<CFStringRef> mode(CFRunLoopCopyCurrentMode(loop));
    right = mode && CFEqual(mode, kCFRunLoopDefaultMode);
  });
  RunOnce();
  EXPECT_TRUE(right);
  Owned<CFArrayRef> modes(CFRunLoopCopyAllModes(loop));
  EXPECT_TRUE(
      CFArrayContainsValue(modes, CFRangeMake(0, CFArrayGetCount(modes)), kCFRunLoopDefaultMode));
}

TEST(RunLoop, TellsTheDateOfItsNextTimer) {
  Log log;
  CFRunLoopRef loop = CFRunLoopGetCurrent();
  CFStringRef mode = CFSTR("dates");
  EXPECT_EQ(CFRunLoopGetNextTimerFireDate(loop, mode), 0);
  auto late = MakeTimer(log, 2e6, 0);
  auto early = MakeTimer(log, 1e6, 0);
  CFRunLoopAddTimer(loop, late, mode);
  CFRunLoopAddTimer(loop, early, mode);
  EXPECT_EQ(CFRunLoopGetNextTimerFireDate(loop, mode), CFRunLoopTimerGetNextFireDate(early));
  CFRunLoopTimerInvalidate(late);
  CFRunLoopTimerInvalidate(early);
}

TEST(RunLoop, ATimerWithoutACalloutCannotBe) {
  EXPECT_EQ(CFRunLoopTimerCreate(nullptr, 0, 0, 0, 0, nullptr, nullptr), nullptr);
}

TEST(RunLoop, ATimerGivesItsContextBack) {
  Log log;
  auto timer = MakeTimer(log, 1e6, 0, nullptr, 7);
  CFRunLoopTimerContext context{};
  CFRunLoopTimerGetContext(timer, &context);
  EXPECT_EQ(context.info, &log);
  EXPECT_EQ(CFRunLoopTimerGetOrder(timer), 7);
  EXPECT_FALSE(CFRunLoopTimerDoesRepeat(timer));
}

}  // namespace
