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
#include "tools/TelemetryReader.h"

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

TEST(RealtimeTrap, TellsMutexesApart) {
  if (!realtime_trap::SeesEverything()) GTEST_SKIP() << "a sanitizer owns the calls";
  std::mutex first;
  std::mutex second;
  const auto lock = [](std::mutex& ioMutex) { const std::lock_guard<std::mutex> held(ioMutex); };
  const Findings same = FindingsOf([&] { lock(first), lock(first); });
  EXPECT_EQ(same.locks, 2U);
  EXPECT_EQ(same.mutexes, 1U);
  EXPECT_EQ(FindingsOf([&] { lock(first), lock(second); }).mutexes, 2U);
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

// What a thread of this process gets that asks for what the I/O thread asks for. Deadlines are
// granted from what the whole machine has left, which changes from one moment to the next; whether
// the process may have real time at all does not.
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

// A player that is let in by a server, in a process that allows telemetry; the same for all tests
// of the process.
class RealtimeCycle : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    sRuntime = new PrivateRuntime;
    setenv("CoreAudio_HAL_Enable_Telemetry", "1", 1);
    sServer = new Program("tmbasrv", {"--private", "--quiet"}, sRuntime->File("server"));
  }
  static void TearDownTestSuite() {
    if (sServer != nullptr) {  // it could be started
      sServer->Signal(SIGTERM);
      EXPECT_EQ(sServer->Wait(), 0);
    }
    delete sServer;
    delete sRuntime;
  }

  void SetUp() override {
    ASSERT_TRUE(WaitUntil(tools::ServerLink::ServerLives)) << sServer->Errors();
    mDevice = DefaultOutput();
    ASSERT_NE(mDevice, kAudioObjectUnknown);
    tools::ServerLink link;
    ASSERT_EQ(AudioDeviceCreateIOProcID(mDevice, Render, &mRenderer, &mProcedure), 0);
    ASSERT_EQ(AudioDeviceStart(mDevice, mProcedure), 0);
    ASSERT_TRUE(link.WaitUntilAdmitted(20));
    ASSERT_EQ(AudioObjectAddPropertyListener(mDevice, &kOverload, NoteOverload, &mOverloads), 0);
  }
  void TearDown() override {
    AudioObjectRemovePropertyListener(mDevice, &kOverload, NoteOverload, &mOverloads);
    EXPECT_EQ(AudioDeviceStop(mDevice, mProcedure), 0);
    EXPECT_EQ(AudioDeviceDestroyIOProcID(mDevice, mProcedure), 0);
  }

  // What was found in 40 steady cycles, while inMeanwhile is done again and again. Steady from the
  // first cycle after the data port stands, as long as none comes too late: an overload is told to
  // listeners, which is not steady. Such a stretch does not count.
  Findings MeasureSteadyCycles(const std::function<void()>& inMeanwhile) {
    const auto waitForCycles = [&](unsigned inCount) {
      const unsigned before = mRenderer.cycles.load();
      return WaitUntil([&] { return mRenderer.cycles.load() >= before + inCount; });
    };
    for (int attempt = 0; attempt < 20; ++attempt) {
      EXPECT_TRUE(waitForCycles(3));
      const unsigned overloadsBefore = mOverloads.count.load();
      realtime_trap::Reset();
      mRenderer.follow = true;
      EXPECT_TRUE(WaitUntil([&] {
        inMeanwhile();
        return realtime_trap::Collect().cycles >= 40;
      }));
      const Findings found = realtime_trap::Collect();
      EXPECT_TRUE(waitForCycles(2));  // what the last cycle told has been delivered by now
      if (mOverloads.count.load() == overloadsBefore) return found;
    }
    ADD_FAILURE() << "this machine cannot keep 40 cycles in a row in time";
    return {};
  }

  static constexpr AudioObjectPropertyAddress kOverload{kAudioDeviceProcessorOverload,
                                                        kAudioObjectPropertyScopeGlobal, 0};
  static PrivateRuntime* sRuntime;
  static Program* sServer;
  AudioObjectID mDevice = kAudioObjectUnknown;
  AudioDeviceIOProcID mProcedure = nullptr;
  Renderer mRenderer;
  Overloads mOverloads;
};

PrivateRuntime* RealtimeCycle::sRuntime = nullptr;
Program* RealtimeCycle::sServer = nullptr;

TEST_F(RealtimeCycle, NeitherAllocatesNorLocksNorBlocksWhileItSendsToAServer) {
  const Findings found = MeasureSteadyCycles([] {});
  const TembraThreadSchedulingMode mode = TembraThreadGetSchedulingMode(mRenderer.thread);

  EXPECT_EQ(mode == kTembraThreadSchedulingNormal, ModeToBeHad() == kTembraThreadSchedulingNormal);
  RecordProperty("io_thread_scheduling", TembraThreadSchedulingModeName(mode));
  EXPECT_EQ(found.allocations, 0U) << found.first;
  EXPECT_EQ(found.locks, 0U) << found.first;
  EXPECT_EQ(found.blocking, 0U) << found.first;
  if (realtime_trap::SeesEverything()) {
    // Cycles are counted at the wake-up, sends within: the last cycle may still be at it, and the
    // one before the first may have been.
    EXPECT_GE(found.sends + 2, found.cycles);
    EXPECT_LE(found.sends, found.cycles + 1);
  }
  RecordProperty("allocations_in_steady_cycles", static_cast<int>(found.allocations));
  RecordProperty("cycles", static_cast<int>(found.cycles));
}

// The mutexes that are seen are those taken between wake-up and sleep; the I/O guard is had
// already.
TEST_F(RealtimeCycle, WithCaptureOnTakesOneMoreGuardAndNothingElseWhileAReaderDrains) {
  tools::TelemetryReader reader(getpid(), CFSTR("TMBAudioCln_Plugin"));
  reader.SetCapturing(true);
  std::size_t events = 0;
  const Findings found = MeasureSteadyCycles([&] { events += reader.Drain().size(); });
  EXPECT_TRUE(WaitUntil([&] { return (events += reader.Drain().size()) > 0; }));
  reader.SetCapturing(false);

  EXPECT_EQ(found.allocations, 0U) << found.first;
  EXPECT_EQ(found.blocking, 0U) << found.first;
  if (realtime_trap::SeesEverything()) {
    EXPECT_EQ(found.mutexes, 1U) << "the telemetry guard alone";
    // Begin and end of the cycle, of the procedures and of the one call, its sound, and the clock
    // that is followed.
    EXPECT_LE(found.locks, 8 * (found.cycles + 1));
    EXPECT_GE(found.locks + 16, 8 * found.cycles);
    EXPECT_LE(found.sends, found.cycles + 1);
  }
}

}  // namespace
}  // namespace tembra::test
