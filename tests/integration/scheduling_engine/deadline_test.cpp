// A client that computes for a good part of the period, on an I/O thread with a deadline. The
// kernel holds such a thread to a budget: one that the client exceeds would put its cycles off.

#include <gtest/gtest.h>
#include <mach/thread_policy_priv.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <thread>

#include "mach/KernelScheduling.h"
#include "support/Program.h"
#include "support/client/ClientDevice.h"
#include "support/client/FakeHAL.h"
#include "support/client/FakeServer.h"

namespace tembra::test {
namespace {

constexpr double kFrames = 512;
constexpr int64_t kPeriod = 512 * int64_t{1'000'000'000} / 44'100;
constexpr int64_t kBurst = 4'000'000;
constexpr int kCycles = 60;

int64_t Now(clockid_t inClock) {
  timespec now{};
  clock_gettime(inClock, &now);
  return now.tv_sec * int64_t{1'000'000'000} + now.tv_nsec;
}

void Compute(int64_t inNanos) {
  const int64_t end = Now(CLOCK_THREAD_CPUTIME_ID) + inNanos;
  while (Now(CLOCK_THREAD_CPUTIME_ID) < end) {
  }
}

struct Client {
  std::atomic<int> mCalls{0};
  double mFirstTime = 0;
  std::atomic<double> mShare{0};  // of the cycles that there were, those it was called in
  std::atomic<TembraThreadSchedulingMode> mMode{kTembraThreadSchedulingUnknown};
};

OSStatus Render(AudioDeviceID, const AudioTimeStamp*, const AudioBufferList*, const AudioTimeStamp*,
                AudioBufferList*, const AudioTimeStamp* inTime, void* inClient) {
  Client& client = *static_cast<Client*>(inClient);
  const int calls = client.mCalls.load();
  if (calls == 0) {
    client.mMode = TembraThreadGetSchedulingMode(0);
    client.mFirstTime = inTime->mSampleTime;
  } else if (calls <= kCycles) {
    client.mShare = calls * kFrames / (inTime->mSampleTime - client.mFirstTime);
  }
  Compute(kBurst);
  ++client.mCalls;
  return 0;
}

// A little more work on a thread that has a quarter of the period from the kernel itself, and may
// reclaim what others leave: the share of its periods in which it came to its work and through it.
// 0 where there is no such thread to be had.
double ShareOfBareThread() {
  double share = 0;
  std::thread([&] {
    const KernelSchedulingAttributes attributes = {
        sizeof attributes, kDeadlinePolicy, kFlagReclaim, 0, 0, kPeriod / 4, kPeriod, kPeriod};
    if (syscall(SYS_sched_setattr, 0, &attributes, 0U) != 0) return;
    const int64_t start = Now(CLOCK_MONOTONIC);
    int64_t periods = 0;
    for (int cycle = 0; cycle < kCycles; ++cycle) {
      Compute(kBurst * 5 / 4);
      periods = std::max(periods + 1, (Now(CLOCK_MONOTONIC) - start) / kPeriod + 1);
      const int64_t wake = start + periods * kPeriod;
      const timespec until{wake / 1'000'000'000, wake % 1'000'000'000};
      while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) != 0) {
      }
    }
    share = static_cast<double>(kCycles) / static_cast<double>(periods);
  }).join();
  return share;
}

class Deadline : public testing::Test {
 protected:
  Deadline() {
    FakeServer::Get().Reset();
    FakeHAL::Get().Reset();
  }
  ~Deadline() override { FakeServer::Get().Reset(); }

  static void Play(Client& ioClient) {
    ClientDevice device;
    const AudioDeviceIOProcID id = device->Do_CreateIOProcID(Render, &ioClient);
    device->Do_StartIOProc(id);
    EXPECT_TRUE(WaitUntil([&] { return ioClient.mCalls > kCycles; }, std::chrono::seconds(60)));
    device->Do_StopIOProc(id);
    device->Do_DestroyIOProcID(id);
  }
};

TEST_F(Deadline, AClientThatComputesForAThirdOfThePeriodIsCalledInEachCycle) {
  // Held against what the kernel grants at the time: a machine with more to do than it can, one
  // that is itself put off by its host, or a kernel with nothing to reclaim is no fault of the
  // device's.
  double best = 0;
  for (int round = 0; round < 4 && best < 0.9; ++round) {
    Client client;
    Play(client);
    if (client.mMode != kTembraThreadSchedulingDeadline) {
      GTEST_SKIP() << "the I/O thread has no deadline here, but is "
                   << TembraThreadSchedulingModeName(client.mMode);
    }
    const double bare = ShareOfBareThread();
    if (bare == 0) GTEST_SKIP() << "no second thread with a deadline is to be had";
    best = std::max(best, client.mShare / bare);
  }
  EXPECT_GE(best, 0.9) << "cycles that had the client called, of those a bare thread came to";
}

}  // namespace
}  // namespace tembra::test
