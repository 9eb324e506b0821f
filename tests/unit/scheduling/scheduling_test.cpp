#include <gtest/gtest.h>
#include <mach/mach.h>
#include <mach/thread_policy_priv.h>
#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <functional>
#include <thread>

#include "mach/KernelScheduling.h"
#include "mach/ThreadScheduling.h"
#include "support/OtherUser.h"
#include "support/Program.h"

namespace {

using tembra::kDeadlinePolicy;
using tembra::KernelSchedulingAttributes;
using tembra::kFlagReclaim;
using tembra::kFlagResetOnFork;
using tembra::TimeConstraint;
using tembra::WithinKernelBounds;
using tembra::test::BecomeUser;
using tembra::test::kNobody;
using tembra::test::WaitUntil;

constexpr int kMayNotRaiseLimits = 99;
constexpr int kMayNotBeRealTime = 96;

kern_return_t SetTimeConstraint(mach_port_t inThread, uint32_t inPeriod, uint32_t inComputation,
                                uint32_t inConstraint) {
  thread_time_constraint_policy_data_t policy = {inPeriod, inComputation, inConstraint, 1};
  return thread_policy_set(inThread, THREAD_TIME_CONSTRAINT_POLICY,
                           reinterpret_cast<thread_policy_t>(&policy),
                           THREAD_TIME_CONSTRAINT_POLICY_COUNT);
}

kern_return_t SetPrecedence(mach_port_t inThread, integer_t inImportance) {
  thread_precedence_policy_data_t policy = {inImportance};
  return thread_policy_set(inThread, THREAD_PRECEDENCE_POLICY,
                           reinterpret_cast<thread_policy_t>(&policy),
                           THREAD_PRECEDENCE_POLICY_COUNT);
}

kern_return_t SetExtended(mach_port_t inThread, boolean_t inTimeshare) {
  thread_extended_policy_data_t policy = {inTimeshare};
  return thread_policy_set(inThread, THREAD_EXTENDED_POLICY,
                           reinterpret_cast<thread_policy_t>(&policy),
                           THREAD_EXTENDED_POLICY_COUNT);
}

TembraThreadSchedulingMode Mode() {
  return TembraThreadGetSchedulingMode(0);
}

int Niceness() {
  return getpriority(PRIO_PROCESS, static_cast<id_t>(gettid()));
}

// Schedules the calling thread without the knowledge of the code under test.
void MakeNormalBehindItsBack() {
  sched_param none{};
  ASSERT_EQ(sched_setscheduler(0, SCHED_OTHER | SCHED_RESET_ON_FORK, &none), 0);
}

// Runs the body on a thread of its own, so that no test leaves the main thread in another mode.
void OnAThread(const std::function<void()>& inBody) {
  std::thread(inBody).join();
}

// Runs the body in a child process and answers what it answers; failures there are told by it.
int InAChild(const std::function<int()>& inBody) {
  const pid_t child = fork();
  if (child == 0) {
    _exit(inBody());
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
}

enum class Grant { kGiven, kNotNow, kNever };

// Whether the kernel gives another thread such a deadline, without the code under test.
Grant AskKernelForDeadline(const TimeConstraint& inConstraint) {
  Grant grant = Grant::kNever;
  OnAThread([&] {
    const KernelSchedulingAttributes attributes = {sizeof attributes,
                                                   kDeadlinePolicy,
                                                   kFlagResetOnFork | kFlagReclaim,
                                                   0,
                                                   0,
                                                   inConstraint.mComputation,
                                                   inConstraint.mConstraint,
                                                   inConstraint.mPeriod};
    if (syscall(SYS_sched_setattr, 0, &attributes, 0U) == 0) {
      grant = Grant::kGiven;
    } else if (errno == EBUSY) {
      grant = Grant::kNotNow;
    }
  });
  return grant;
}

// Whether this asking gives the calling thread a deadline; what it comes to in the kernel's terms
// is for comparison. All processes share one budget of deadlines, and what an ended thread had of
// it comes back late; so an asking that fell lower is repeated for as long as the kernel has none
// for another thread either. False where there was none to be had, and the test is skipped, or
// where there was, and it has failed.
bool GetsDeadline(const TimeConstraint& inConstraint, const std::function<void()>& inAsk) {
  constexpr int kMostRefusals = 20;
  int refusals = 0;
  Grant last = Grant::kNotNow;
  WaitUntil(
      [&] {
        inAsk();
        if (Mode() == kTembraThreadSchedulingDeadline) return true;
        last = AskKernelForDeadline(inConstraint);
        if (last == Grant::kGiven) ++refusals;
        return last == Grant::kNever || refusals == kMostRefusals;
      },
      std::chrono::seconds(5));
  if (Mode() == kTembraThreadSchedulingDeadline) return true;
  if (refusals == kMostRefusals) {
    ADD_FAILURE() << "the thread is " << TembraThreadSchedulingModeName(Mode())
                  << ", where another one was given a deadline each time";
    return false;
  }
  [last] {
    if (last == Grant::kNever) GTEST_SKIP() << "this kernel or user gives no deadline scheduling";
    GTEST_SKIP() << "other processes hold all deadlines that the kernel has to give";
  }();
  return false;
}

// The same for a request that is repeated as it is.
bool GetsDeadline(uint32_t inPeriod, uint32_t inComputation, uint32_t inConstraint) {
  const uint32_t share = std::min(inPeriod / 4, inConstraint);
  bool hasAsked = false;
  return GetsDeadline({inPeriod, std::max(share, inComputation), inConstraint}, [&] {
    // In between it gives up what it had, since asking the same again would be no request.
    if (hasAsked) SetPrecedence(mach_thread_self(), 0);
    hasAsked = true;
    EXPECT_EQ(SetTimeConstraint(mach_thread_self(), inPeriod, inComputation, inConstraint),
              KERN_SUCCESS);
  });
}

// A deadline that takes little of what the machine has to give: a fiftieth of a processor.
constexpr uint32_t kPeriod = 10000000;
constexpr uint32_t kSmall = 200000;

bool MayBeFIFO() {
  bool may = false;
  OnAThread([&] {
    sched_param param{};
    param.sched_priority = 1;
    may = sched_setscheduler(0, SCHED_FIFO, &param) == 0;
  });
  return may;
}

// Drops to an unprivileged user with this real-time limit; then asks for a time constraint.
int ModeOfUnprivileged(rlim_t inPriorityLimit, int* outPriority = nullptr) {
  return InAChild([&] {
    const rlimit limit = {inPriorityLimit, inPriorityLimit};
    if (setrlimit(RLIMIT_RTPRIO, &limit) != 0 || !BecomeUser(kNobody)) {
      return kMayNotRaiseLimits;
    }
    if (SetTimeConstraint(mach_thread_self(), 10000000, 500000, 5000000) != KERN_SUCCESS) {
      return 98;
    }
    sched_param param{};
    sched_getparam(0, &param);
    return outPriority ? param.sched_priority : static_cast<int>(Mode());
  });
}

TEST(TimeConstraint, KeepsWithinTheKernelsBounds) {
  struct {
    TimeConstraint mIn, mOut;
  } const cases[] = {
      {{10000000, 500000, 5000000}, {10000000, 500000, 5000000}},
      {{0, 500000, 5000000}, {5000000, 500000, 5000000}},
      {{10000000, 0, 5000000}, {10000000, 1024, 5000000}},
      {{0, 0, 0}, {100000, 1024, 1024}},
      {{10000000, 6000000, 5000000}, {10000000, 5000000, 5000000}},
      {{10000000, 6000000, 50000000}, {10000000, 6000000, 10000000}},
      {{50000, 2000, 40000}, {100000, 2000, 40000}},
      {{0xFFFFFFFFF, 0xFFFFFFFFF, 0xFFFFFFFFF}, {4194304000, 4194304000, 4194304000}},
  };
  for (const auto& c : cases) {
    const TimeConstraint out = WithinKernelBounds(c.mIn);
    EXPECT_EQ(out.mPeriod, c.mOut.mPeriod);
    EXPECT_EQ(out.mComputation, c.mOut.mComputation);
    EXPECT_EQ(out.mConstraint, c.mOut.mConstraint);
  }
}

TEST(ThreadPolicy, TimeConstraintBecomesADeadlineAndGoesAgain) {
  OnAThread([] {
    if (!GetsDeadline(11609977, 400000, 5000000)) return;
    KernelSchedulingAttributes attributes{};
    ASSERT_EQ(syscall(SYS_sched_getattr, 0, &attributes, sizeof attributes, 0), 0);
    EXPECT_EQ(attributes.runtime, 11609977U / 4) << "a cycle's clients need time too";
    EXPECT_EQ(attributes.deadline, 5000000U);
    EXPECT_EQ(attributes.period, 11609977U);
    EXPECT_EQ(attributes.flags & kFlagResetOnFork, kFlagResetOnFork) << "must not pass to children";
    EXPECT_EQ(attributes.flags & kFlagReclaim, kFlagReclaim) << "may use what others leave";
    EXPECT_EQ(SetPrecedence(mach_thread_self(), 0), KERN_SUCCESS);
    EXPECT_EQ(Mode(), kTembraThreadSchedulingNormal);
    if (!GetsDeadline(11609977, 400000, 5000000)) return;
    EXPECT_EQ(SetExtended(mach_thread_self(), 0), KERN_SUCCESS);
    EXPECT_EQ(Mode(), kTembraThreadSchedulingNormal);
  });
}

TEST(ThreadPolicy, TheLongestPeriodThatCanBeAskedForIsADeadlineToo) {
  OnAThread([] {
    constexpr uint32_t kConstraint = 20000000;
    GetsDeadline({4194304000, kConstraint, kConstraint}, [] {
      SetPrecedence(mach_thread_self(), 0);
      SetTimeConstraint(mach_thread_self(), 0xFFFFFFFF, kSmall, kConstraint);
    });
  });
}

TEST(ThreadPolicy, ADeadlineThreadCanForkAndItsChildIsNormal) {
  OnAThread([] {
    if (!GetsDeadline(kPeriod, kSmall, kSmall)) return;
    EXPECT_EQ(InAChild([] { return static_cast<int>(Mode()); }), kTembraThreadSchedulingNormal);
  });
}

TEST(ThreadPolicy, AskingTheSameAgainMakesNoCall) {
  OnAThread([] {
    if (!GetsDeadline(kPeriod, kSmall / 2, kSmall)) return;
    MakeNormalBehindItsBack();
    SetTimeConstraint(mach_thread_self(), kPeriod, kSmall / 2, kSmall);
    EXPECT_EQ(Mode(), kTembraThreadSchedulingNormal) << "the kernel was asked again";
    // Other values are a new request.
    uint32_t computation = kSmall / 2;
    GetsDeadline({kPeriod, kSmall, kSmall},
                 [&] { SetTimeConstraint(mach_thread_self(), kPeriod, ++computation, kSmall); });
  });
}

TEST(ThreadPolicy, AnotherThreadCanEndADeadline) {
  OnAThread([] {
    const mach_port_t self = mach_thread_self();
    if (!GetsDeadline(kPeriod, kSmall, kSmall)) return;
    OnAThread([self] {
      EXPECT_EQ(SetPrecedence(self, 0), KERN_SUCCESS);
      EXPECT_EQ(TembraThreadGetSchedulingMode(static_cast<pid_t>(self)),
                kTembraThreadSchedulingNormal);
    });
  });
}

TEST(ThreadPolicy, WithoutAnyRightTheThreadStaysNormal) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "needs root to give rights away";
  }
  EXPECT_EQ(ModeOfUnprivileged(0), kTembraThreadSchedulingNormal);
}

TEST(ThreadPolicy, UpToItsLimitAnUnprivilegedThreadIsFIFO) {
  int priority = 0;
  if (ModeOfUnprivileged(50) == kMayNotRaiseLimits) {
    GTEST_SKIP() << "needs the right to raise RLIMIT_RTPRIO and to become another user";
  }
  EXPECT_EQ(ModeOfUnprivileged(50), kTembraThreadSchedulingFIFO);
  EXPECT_EQ(ModeOfUnprivileged(50, &priority), 20);
  EXPECT_EQ(ModeOfUnprivileged(7, &priority), 7);
}

// A deadline thread must be free to run on every processor, so one that is bound gets none.
int BoundToOneProcessor(const std::function<int()>& inBody) {
  return InAChild([&] {
    cpu_set_t all, one;
    if (sched_getaffinity(0, sizeof all, &all) != 0 || CPU_COUNT(&all) < 2) {
      return kMayNotBeRealTime;
    }
    CPU_ZERO(&one);
    CPU_SET(sched_getcpu(), &one);
    sched_param param{};
    param.sched_priority = 1;
    if (sched_setaffinity(0, sizeof one, &one) != 0 ||
        sched_setscheduler(0, SCHED_FIFO, &param) != 0) {
      return kMayNotBeRealTime;
    }
    param.sched_priority = 0;
    sched_setscheduler(0, SCHED_OTHER, &param);
    return inBody();
  });
}

TEST(ThreadPolicy, WhereADeadlineIsRefusedItIsFIFO) {
  const int mode = BoundToOneProcessor([] {
    SetTimeConstraint(mach_thread_self(), 10000000, 500000, 5000000);
    sched_param param{};
    sched_getparam(0, &param);
    return static_cast<int>(Mode()) * 100 + param.sched_priority;
  });
  if (mode == kMayNotBeRealTime) {
    GTEST_SKIP() << "needs two processors and the right to real-time scheduling";
  }
  EXPECT_EQ(mode, kTembraThreadSchedulingFIFO * 100 + 20);
}

// Not with a deadline: asked for again so soon after another thread ended it, its bandwidth is lost
// to the whole machine on some kernels.
TEST(ThreadPolicy, AnotherThreadsChangeIsNotForgotten) {
  const int modes = BoundToOneProcessor([] {
    const mach_port_t self = mach_thread_self();
    const auto ask = [self] { SetTimeConstraint(self, 10000000, 500000, 5000000); };
    ask();
    const int first = static_cast<int>(Mode());
    OnAThread([self] { SetPrecedence(self, 0); });
    const int ended = static_cast<int>(Mode());
    ask();
    return first * 100 + ended * 10 + static_cast<int>(Mode());
  });
  if (modes == kMayNotBeRealTime) {
    GTEST_SKIP() << "needs two processors and the right to real-time scheduling";
  }
  EXPECT_EQ(modes, kTembraThreadSchedulingFIFO * 100 + kTembraThreadSchedulingNormal * 10 +
                       kTembraThreadSchedulingFIFO);
}

TEST(ThreadPolicy, AFiniteRealTimeLimitRulesFIFOOut) {
  const int mode = BoundToOneProcessor([] {
    const rlimit finite = {200000, 200000};
    setrlimit(RLIMIT_RTTIME, &finite);
    SetTimeConstraint(mach_thread_self(), 10000000, 500000, 5000000);
    rlimit after{};
    getrlimit(RLIMIT_RTTIME, &after);
    return after.rlim_cur == 200000 ? static_cast<int>(Mode()) : 98;
  });
  if (mode == kMayNotBeRealTime) {
    GTEST_SKIP() << "needs two processors and the right to real-time scheduling";
  }
  EXPECT_EQ(mode, kTembraThreadSchedulingNormal);
}

TEST(ThreadPolicy, LeavingFIFOWithoutRightsBecomesNoNicer) {
  const int niceness = BoundToOneProcessor([] {
    SetTimeConstraint(mach_thread_self(), 10000000, 500000, 5000000);
    if (Mode() != kTembraThreadSchedulingFIFO || !BecomeUser(kNobody)) {
      return 98;
    }
    SetPrecedence(mach_thread_self(), 31 - 97);
    return Mode() == kTembraThreadSchedulingNormal ? Niceness() : 97;
  });
  if (niceness == kMayNotBeRealTime) {
    GTEST_SKIP() << "needs two processors and the right to real-time scheduling";
  }
  EXPECT_EQ(niceness, getpriority(PRIO_PROCESS, 0));
}

TEST(ThreadPolicy, ImportanceBecomesNiceness) {
  OnAThread([] {
    const int base = getpriority(PRIO_PROCESS, static_cast<id_t>(getpid()));
    EXPECT_EQ(SetPrecedence(mach_thread_self(), -5), KERN_SUCCESS);
    EXPECT_EQ(Niceness(), std::min(base + 5, 19));
    EXPECT_EQ(SetPrecedence(mach_thread_self(), -100), KERN_SUCCESS);
    EXPECT_EQ(Niceness(), 19);
  });
}

TEST(ThreadPolicy, ImportanceThatIsRefusedIsNoError) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "needs root to give rights away";
  }
  EXPECT_EQ(InAChild([] {
              if (!BecomeUser(kNobody)) {
                return 99;
              }
              const int before = Niceness();
              return SetPrecedence(mach_thread_self(), 15) == KERN_SUCCESS && Niceness() == before
                         ? 0
                         : 1;
            }),
            0);
}

TEST(ThreadPolicy, ItsStatuses) {
  thread_precedence_policy_data_t policy = {0};
  auto* const info = reinterpret_cast<thread_policy_t>(&policy);
  const mach_port_t self = mach_thread_self();
  EXPECT_EQ(thread_policy_set(MACH_PORT_NULL, THREAD_PRECEDENCE_POLICY, info, 1),
            KERN_INVALID_ARGUMENT);
  EXPECT_EQ(thread_policy_set(self, THREAD_PRECEDENCE_POLICY, nullptr, 1), KERN_INVALID_ARGUMENT);
  EXPECT_EQ(thread_policy_set(self, THREAD_PRECEDENCE_POLICY, info, 0), KERN_INVALID_ARGUMENT);
  EXPECT_EQ(thread_policy_set(self, THREAD_TIME_CONSTRAINT_POLICY, info, 3), KERN_INVALID_ARGUMENT);
  EXPECT_EQ(thread_policy_set(self, 4, info, 1), KERN_INVALID_ARGUMENT);
  EXPECT_EQ(thread_policy_set(0x7FFFFFFF, THREAD_PRECEDENCE_POLICY, info, 1),
            KERN_INVALID_ARGUMENT);
}

TEST(ThreadInfo, PrioritiesFollowThePolicy) {
  OnAThread([] {
    thread_basic_info_data_t basic{};
    mach_msg_type_number_t count = THREAD_BASIC_INFO_COUNT;
    const mach_port_t self = mach_thread_self();
    ASSERT_EQ(SetPrecedence(self, -3), KERN_SUCCESS);
    ASSERT_EQ(thread_info(self, THREAD_BASIC_INFO, reinterpret_cast<thread_info_t>(&basic), &count),
              KERN_SUCCESS);
    EXPECT_EQ(count, THREAD_BASIC_INFO_COUNT);
    EXPECT_EQ(basic.policy, POLICY_TIMESHARE);
    policy_timeshare_info_data_t share{};
    count = POLICY_TIMESHARE_INFO_COUNT;
    ASSERT_EQ(thread_info(self, THREAD_SCHED_TIMESHARE_INFO,
                          reinterpret_cast<thread_info_t>(&share), &count),
              KERN_SUCCESS);
    EXPECT_EQ(share.base_priority, 31 - Niceness());
    EXPECT_EQ(share.cur_priority, share.base_priority);
    policy_fifo_info_data_t fifo{};
    count = POLICY_FIFO_INFO_COUNT;
    EXPECT_EQ(
        thread_info(self, THREAD_SCHED_FIFO_INFO, reinterpret_cast<thread_info_t>(&fifo), &count),
        KERN_INVALID_ARGUMENT);
  });
}

TEST(ThreadInfo, ARealTimeThreadIsFIFO) {
  if (!MayBeFIFO()) {
    GTEST_SKIP() << "needs the right to real-time scheduling";
  }
  OnAThread([] {
    const mach_port_t self = mach_thread_self();
    SetTimeConstraint(self, 10000000, 500000, 5000000);
    thread_basic_info_data_t basic{};
    mach_msg_type_number_t count = THREAD_BASIC_INFO_COUNT;
    ASSERT_EQ(thread_info(self, THREAD_BASIC_INFO, reinterpret_cast<thread_info_t>(&basic), &count),
              KERN_SUCCESS);
    EXPECT_EQ(basic.policy, POLICY_FIFO);
    policy_fifo_info_data_t fifo{};
    count = POLICY_FIFO_INFO_COUNT;
    ASSERT_EQ(
        thread_info(self, THREAD_SCHED_FIFO_INFO, reinterpret_cast<thread_info_t>(&fifo), &count),
        KERN_SUCCESS);
    EXPECT_EQ(fifo.base_priority, 97);
  });
}

TEST(ThreadInfo, ItsStatuses) {
  integer_t values[THREAD_BASIC_INFO_COUNT];
  mach_msg_type_number_t count = THREAD_BASIC_INFO_COUNT - 1;
  const mach_port_t self = mach_thread_self();
  EXPECT_EQ(thread_info(self, THREAD_BASIC_INFO, values, &count), KERN_INVALID_ARGUMENT);
  count = THREAD_BASIC_INFO_COUNT;
  EXPECT_EQ(thread_info(self, 99, values, &count), KERN_INVALID_ARGUMENT);
  EXPECT_EQ(thread_info(MACH_PORT_NULL, THREAD_BASIC_INFO, values, &count), KERN_INVALID_ARGUMENT);
  EXPECT_EQ(thread_info(0x7FFFFFFF, THREAD_BASIC_INFO, values, &count), KERN_INVALID_ARGUMENT);
}

TEST(SchedulingMode, HasNames) {
  EXPECT_STREQ(TembraThreadSchedulingModeName(kTembraThreadSchedulingDeadline), "deadline");
  EXPECT_STREQ(TembraThreadSchedulingModeName(kTembraThreadSchedulingFIFO), "fifo");
  EXPECT_STREQ(TembraThreadSchedulingModeName(kTembraThreadSchedulingNormal), "normal");
  EXPECT_STREQ(TembraThreadSchedulingModeName(kTembraThreadSchedulingUnknown), "unknown");
  EXPECT_EQ(TembraThreadGetSchedulingMode(0x7FFFFFFF), kTembraThreadSchedulingUnknown);
}

}  // namespace
