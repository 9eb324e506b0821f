// The I/O thread's contract, enforced: from wake-up to sleep no allocation, no lock, no file, no
// log, no blocking call, and at most one send a cycle.

#include <CoreAudio/AudioHardware.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <mach/mach.h>
#include <mach/thread_policy_priv.h>
#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <thread>

#include "RealtimeTrap.h"
#include "support/PrivateRuntime.h"
#include "support/Program.h"
#include "tools/ServerLink.h"

namespace tembra::test {
namespace {

using realtime_trap::Findings;

Findings FindingsOf(const std::function<void()>& inAct) {
  realtime_trap::Reset();
  realtime_trap::Arm();
  inAct();
  realtime_trap::Disarm();
  return realtime_trap::Collect();
}

TEST(RealtimeTrap, NotesAnAllocationAndItsRelease) {
  const Findings found = FindingsOf([] {
    void* volatile block = std::malloc(16);
    std::free(block);
  });
  EXPECT_EQ(found.allocations, 2U);
  EXPECT_EQ(found.first, "malloc");
}

TEST(RealtimeTrap, NotesOperatorNew) {
  const Findings found = FindingsOf([] {
    // The plain form of the call; a new-expression may be optimised away.
    void* volatile block = ::operator new(16);
    ::operator delete(block);
  });
  EXPECT_EQ(found.allocations, 2U);
}

TEST(RealtimeTrap, IsSilentOnAnotherThreadsDoings) {
  realtime_trap::Reset();
  void* volatile block = std::malloc(16);
  std::free(block);
  EXPECT_EQ(realtime_trap::Collect().allocations, 0U);
}

TEST(RealtimeTrap, NotesALock) {
  if (!realtime_trap::SeesEverything()) GTEST_SKIP() << "a sanitizer owns the calls";
  std::mutex mutex;
  EXPECT_EQ(FindingsOf([&] { const std::lock_guard<std::mutex> lock(mutex); }).locks, 1U);
}

TEST(RealtimeTrap, NotesEachBlockingCall) {
  if (!realtime_trap::SeesEverything()) GTEST_SKIP() << "a sanitizer owns the calls";
  EXPECT_EQ(FindingsOf([] { usleep(1); }).first, "usleep");
  const timespec instant{0, 1};
  EXPECT_EQ(FindingsOf([&] { nanosleep(&instant, nullptr); }).first, "nanosleep");
  EXPECT_EQ(FindingsOf([&] { clock_nanosleep(CLOCK_MONOTONIC, 0, &instant, nullptr); }).first,
            "clock_nanosleep");
  EXPECT_EQ(FindingsOf([] { (void)!open("/nonexistent", O_RDONLY); }).first, "open");
  EXPECT_EQ(FindingsOf([] { (void)!std::fopen("/nonexistent", "r"); }).first, "fopen");
  EXPECT_EQ(FindingsOf([] { (void)!read(-1, nullptr, 0); }).first, "read");
  EXPECT_EQ(FindingsOf([] { (void)!write(-1, nullptr, 0); }).first, "write");
  EXPECT_EQ(FindingsOf([] { syslog(LOG_DEBUG, "trapped"); }).first, "syslog");
}

TEST(RealtimeTrap, TellsABlockingSendFromANonBlockingOne) {
  if (!realtime_trap::SeesEverything()) GTEST_SKIP() << "a sanitizer owns the calls";
  const Findings waits = FindingsOf([] { send(-1, nullptr, 0, 0); });
  EXPECT_EQ(waits.blocking, 1U);
  const Findings goes = FindingsOf([] { send(-1, nullptr, 0, MSG_DONTWAIT); });
  EXPECT_EQ(goes.blocking, 0U);
  EXPECT_EQ(goes.sends, 1U);
}

// What a thread of this process gets that asks for what the I/O thread asks for.
TembraThreadSchedulingMode ModeToBeHad() {
  TembraThreadSchedulingMode mode = kTembraThreadSchedulingUnknown;
  std::thread([&] {
    thread_time_constraint_policy_data_t policy{};
    policy.period = 11'609'977;
    policy.computation = 100'000;
    policy.constraint = policy.period;
    policy.preemptible = 1;
    thread_policy_set(pthread_mach_thread_np(pthread_self()), THREAD_TIME_CONSTRAINT_POLICY,
                      reinterpret_cast<thread_policy_t>(&policy),
                      THREAD_TIME_CONSTRAINT_POLICY_COUNT);
    mode = TembraThreadGetSchedulingMode(0);
  }).join();
  return mode;
}

struct Renderer {
  std::atomic<pid_t> thread{0};
  std::atomic<bool> follow{false};
  std::atomic<unsigned> cycles{0};
};

OSStatus Render(AudioObjectID, const AudioTimeStamp*, const AudioBufferList*, const AudioTimeStamp*,
                AudioBufferList* outOutput, const AudioTimeStamp*, void* inClientData) {
  auto* renderer = static_cast<Renderer*>(inClientData);
  if (renderer->thread.load() == 0) renderer->thread = gettid();
  if (renderer->follow.load()) realtime_trap::FollowThisThread();
  auto* samples = static_cast<float*>(outOutput->mBuffers[0].mData);
  samples[0] = 0.5F;
  renderer->cycles.fetch_add(1);
  return 0;
}

struct Overloads {
  std::atomic<unsigned> count{0};
};

OSStatus NoteOverload(AudioObjectID, UInt32, const AudioObjectPropertyAddress*,
                      void* inClientData) {
  static_cast<Overloads*>(inClientData)->count.fetch_add(1);
  return 0;
}

AudioObjectID DefaultOutput() {
  const AudioObjectPropertyAddress address{kAudioHardwarePropertyDefaultOutputDevice,
                                           kAudioObjectPropertyScopeGlobal, 0};
  AudioObjectID device = kAudioObjectUnknown;
  UInt32 size = sizeof device;
  AudioObjectGetPropertyData(kAudioObjectSystemObject, &address, 0, nullptr, &size, &device);
  return device;
}

TEST(RealtimeCycle, NeitherAllocatesNorLocksNorBlocksWhileItSendsToAServer) {
  PrivateRuntime runtime;
  Program server("tmbasrv", {"--quiet"}, runtime.File("server"));
  ASSERT_TRUE(WaitUntil(tools::ServerLink::ServerLives)) << server.Errors();

  const AudioObjectID device = DefaultOutput();
  ASSERT_NE(device, kAudioObjectUnknown);
  tools::ServerLink link;
  Renderer renderer;
  AudioDeviceIOProcID procedure = nullptr;
  ASSERT_EQ(AudioDeviceCreateIOProcID(device, Render, &renderer, &procedure), 0);
  ASSERT_EQ(AudioDeviceStart(device, procedure), 0);
  ASSERT_TRUE(link.WaitUntilAdmitted(20));

  // Steady from the first cycle after the data port stands, as long as none comes too late: an
  // overload is told to listeners, which is not steady. Such a stretch does not count.
  Overloads overloads;
  const AudioObjectPropertyAddress overload{kAudioDeviceProcessorOverload,
                                            kAudioObjectPropertyScopeGlobal, 0};
  ASSERT_EQ(AudioObjectAddPropertyListener(device, &overload, NoteOverload, &overloads), 0);
  const auto waitForCycles = [&](unsigned inCount) {
    const unsigned before = renderer.cycles.load();
    return WaitUntil([&] { return renderer.cycles.load() >= before + inCount; });
  };
  Findings found;
  bool steady = false;
  for (int attempt = 0; attempt < 20 && !steady; ++attempt) {
    ASSERT_TRUE(waitForCycles(3));
    const unsigned overloadsBefore = overloads.count.load();
    realtime_trap::Reset();
    renderer.follow = true;
    ASSERT_TRUE(WaitUntil([&] { return realtime_trap::Collect().cycles >= 40; }));
    found = realtime_trap::Collect();
    ASSERT_TRUE(waitForCycles(2));  // what the last cycle told has been delivered by now
    steady = overloads.count.load() == overloadsBefore;
  }
  ASSERT_TRUE(steady) << "this machine cannot keep 40 cycles in a row in time";
  ASSERT_EQ(AudioObjectRemovePropertyListener(device, &overload, NoteOverload, &overloads), 0);
  const TembraThreadSchedulingMode mode = TembraThreadGetSchedulingMode(renderer.thread);
  ASSERT_EQ(AudioDeviceStop(device, procedure), 0);
  ASSERT_EQ(AudioDeviceDestroyIOProcID(device, procedure), 0);

  EXPECT_EQ(mode, ModeToBeHad());
  RecordProperty("io_thread_scheduling", TembraThreadSchedulingModeName(mode));
  EXPECT_EQ(found.allocations, 0U) << found.first;
  EXPECT_EQ(found.locks, 0U) << found.first;
  EXPECT_EQ(found.blocking, 0U) << found.first;
  if (realtime_trap::SeesEverything()) {
    // Cycles are counted at the wake-up, sends within: the last cycle may still be at it.
    EXPECT_GE(found.sends + 2, found.cycles);
    EXPECT_LE(found.sends, found.cycles);
  }
  RecordProperty("allocations_in_steady_cycles", static_cast<int>(found.allocations));
  RecordProperty("cycles", static_cast<int>(found.cycles));
  server.Signal(SIGTERM);
  EXPECT_EQ(server.Wait(), 0);
}

}  // namespace
}  // namespace tembra::test
