// What a time constraint asks of a kernel that refuses.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "SystemCall.h"
#include "mach/KernelScheduling.h"
#include "mach/ThreadScheduling.h"

namespace {

using tembra::kDeadlinePolicy;
using tembra::KernelSchedulingAttributes;
using tembra::kFlagReclaim;
using testing::ElementsAre;

struct SimulatedKernel {
  // The errors of the next requests for a deadline; after them it is given.
  std::deque<int> mErrors;
  // "deadline" or "reclaiming deadline", in order.
  std::vector<std::string> mDeadlines;
  bool mIsOn = false;
  // All that was set, and what every thread is said to have.
  std::vector<KernelSchedulingAttributes> mSet;
  KernelSchedulingAttributes mNow{};
  // Without a privilege: how high a thread may go, and how long it may compute at that.
  rlim_t mPriorityLimit = 99;
  rlim_t mTimeLimit = RLIM_INFINITY;

  bool Schedule(const KernelSchedulingAttributes& inAttributes) {
    mSet.push_back(inAttributes);
    if (inAttributes.policy == SCHED_FIFO && inAttributes.priority > mPriorityLimit) {
      errno = EPERM;
      return false;
    }
    if (inAttributes.policy != kDeadlinePolicy) return true;
    const bool reclaims = (inAttributes.flags & kFlagReclaim) != 0;
    mDeadlines.emplace_back(reclaims ? "reclaiming deadline" : "deadline");
    if (mErrors.empty()) return true;
    errno = mErrors.front();
    mErrors.pop_front();
    return false;
  }
};
SimulatedKernel gKernel;

class RefusingKernel : public testing::Test {
 protected:
  RefusingKernel() {
    gKernel = {};
    gKernel.mIsOn = true;
  }
  ~RefusingKernel() override { gKernel = {}; }

  static tembra::SchedulingMode Apply() {
    return tembra::ApplyTimeConstraint(0, {10000000, 500000, 5000000});
  }
};

TEST_F(RefusingKernel, ThatGivesADeadlineIsAskedOnce) {
  EXPECT_EQ(Apply(), tembra::SchedulingMode::kDeadline);
  EXPECT_THAT(gKernel.mDeadlines, ElementsAre("reclaiming deadline"));
}

TEST_F(RefusingKernel, ThatDoesNotKnowReclaimingIsAskedWithoutIt) {
  gKernel.mErrors = {EINVAL};
  EXPECT_EQ(Apply(), tembra::SchedulingMode::kDeadline);
  EXPECT_THAT(gKernel.mDeadlines, ElementsAre("reclaiming deadline", "deadline"));
}

TEST_F(RefusingKernel, ThatKnowsNoSuchDeadlineAtAllGivesNone) {
  gKernel.mErrors = {EINVAL, EINVAL};
  EXPECT_NE(Apply(), tembra::SchedulingMode::kDeadline);
  EXPECT_THAT(gKernel.mDeadlines, ElementsAre("reclaiming deadline", "deadline"));
}

// Bandwidth that comes back between two requests must not go to one that may not reclaim.
TEST_F(RefusingKernel, ThatHasNoBandwidthLeftIsNotAskedForAPoorerDeadline) {
  gKernel.mErrors = {EBUSY};
  EXPECT_NE(Apply(), tembra::SchedulingMode::kDeadline);
  EXPECT_THAT(gKernel.mDeadlines, ElementsAre("reclaiming deadline"));
}

TEST_F(RefusingKernel, ThatForbidsDeadlinesIsAskedOnce) {
  gKernel.mErrors = {EPERM};
  EXPECT_NE(Apply(), tembra::SchedulingMode::kDeadline);
  EXPECT_THAT(gKernel.mDeadlines, ElementsAre("reclaiming deadline"));
}

class UnprivilegedThread : public RefusingKernel {
 protected:
  UnprivilegedThread() { gKernel.mErrors = {EPERM}; }

  // What was asked for after the deadline.
  static std::vector<uint32_t> FIFOPriorities() {
    std::vector<uint32_t> priorities;
    for (const KernelSchedulingAttributes& set : gKernel.mSet) {
      if (set.policy == SCHED_FIFO) priorities.push_back(set.priority);
    }
    return priorities;
  }
};

TEST_F(UnprivilegedThread, IsFIFOWhereItsLimitAllowsThePriority) {
  gKernel.mPriorityLimit = 50;
  EXPECT_EQ(Apply(), tembra::SchedulingMode::kFIFO);
  EXPECT_THAT(FIFOPriorities(), ElementsAre(20U));
}

TEST_F(UnprivilegedThread, IsFIFOAsHighAsALowerLimitAllows) {
  gKernel.mPriorityLimit = 7;
  EXPECT_EQ(Apply(), tembra::SchedulingMode::kFIFO);
  EXPECT_THAT(FIFOPriorities(), ElementsAre(20U, 7U));
}

TEST_F(UnprivilegedThread, StaysNormalWithALimitOfZero) {
  gKernel.mPriorityLimit = 0;
  EXPECT_EQ(Apply(), tembra::SchedulingMode::kNormal);
  EXPECT_THAT(FIFOPriorities(), ElementsAre(20U));
}

// The kernel would end the process when the time is used up.
TEST_F(UnprivilegedThread, StaysNormalWhereRealTimeIsMeasuredOut) {
  gKernel.mTimeLimit = 200000;
  EXPECT_EQ(Apply(), tembra::SchedulingMode::kNormal);
  EXPECT_TRUE(FIFOPriorities().empty());
}

class KernelThatKeepsBandwidth : public RefusingKernel {
 protected:
  KernelThatKeepsBandwidth() {
    gKernel.mNow = {sizeof gKernel.mNow, kDeadlinePolicy, 3, 0, 0, 2500000, 5000000, 10000000};
  }

  // The kernel counts in shares of this one.
  static uint64_t Share(const KernelSchedulingAttributes& inAttributes) {
    return (inAttributes.runtime << 20) / inAttributes.period;
  }

  static void ExpectShrunkThenNormal() {
    ASSERT_EQ(gKernel.mSet.size(), 2U);
    EXPECT_EQ(gKernel.mSet[0].policy, kDeadlinePolicy);
    EXPECT_GE(gKernel.mSet[0].runtime, 1024U) << "the least that is taken";
    EXPECT_LE(gKernel.mSet[0].period, 4194304000U) << "the most that is taken";
    EXPECT_EQ(gKernel.mSet[0].deadline, gKernel.mSet[0].period);
    EXPECT_EQ(Share(gKernel.mSet[0]), 0U);
    EXPECT_EQ(gKernel.mSet[1].policy, 0U);
  }
};

TEST_F(KernelThatKeepsBandwidth, HasNoneToKeepWhereAnotherThreadsDeadlineEnds) {
  const pid_t other = gettid() + 1;
  tembra::ApplyNormal(other);
  ExpectShrunkThenNormal();
  gKernel.mSet.clear();
  tembra::ApplyImportance(other, 0);
  ExpectShrunkThenNormal();
}

TEST_F(KernelThatKeepsBandwidth, IsToldAtOnceOfTheEndOfOnesOwnDeadline) {
  tembra::ApplyNormal(gettid());
  ASSERT_EQ(gKernel.mSet.size(), 1U);
  EXPECT_EQ(gKernel.mSet[0].policy, 0U);
}

}  // namespace

bool tembra::test::AnswerSystemCall(long inNumber, void* ioAttributes, long& outResult) {
  if (!gKernel.mIsOn) return false;
  auto* const attributes = static_cast<KernelSchedulingAttributes*>(ioAttributes);
  switch (inNumber) {
    case SYS_sched_setattr:
      outResult = gKernel.Schedule(*attributes) ? 0 : -1;
      return true;
    case SYS_sched_getattr:
      *attributes = gKernel.mNow;
      outResult = 0;
      return true;
    default:
      return false;
  }
}

bool tembra::test::AnswerLimit(int inResource, rlimit& outLimit) {
  if (!gKernel.mIsOn) return false;
  const rlim_t limit = inResource == RLIMIT_RTPRIO   ? gKernel.mPriorityLimit
                       : inResource == RLIMIT_RTTIME ? gKernel.mTimeLimit
                                                     : RLIM_INFINITY;
  outLimit = {limit, limit};
  return true;
}
