#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <errno.h>

#include <atomic>
#include <string>
#include <thread>

#include "support/CAException.h"
#include "support/CAPThread.h"
#include "unit/threads_simulated/Platform.h"

namespace {

using testing::ElementsAre;

using Policy = SimulatedPlatform::Policy;

// The scheduled priority of this platform's threads is 31.
const Policy kTimeshareOff{THREAD_EXTENDED_POLICY, {0}};
Policy Precedence(int inImportance) {
  return {THREAD_PRECEDENCE_POLICY, {inImportance}};
}
Policy Constraint(int inPeriod, int inComputation, int inConstraint, int inPreemptible) {
  return {THREAD_TIME_CONSTRAINT_POLICY, {inPeriod, inComputation, inConstraint, inPreemptible}};
}

class Scheduling : public testing::Test {
 protected:
  void SetUp() override { gPlatform = {}; }

  // Runs a thread to its end; inside is what it does.
  template <class... Arguments>
  void Run(CAPThread::ThreadRoutine inRoutine, Arguments... inArguments) {
    CAPThread theThread(inRoutine, this, inArguments...);
    mThread = &theThread;
    theThread.Start();
    while (theThread.IsRunning()) std::this_thread::yield();
    mThread = nullptr;
  }

  CAPThread* mThread = nullptr;

 public:
  CAPThread& Current() { return *mThread; }
};

void* Nothing(void*) {
  return nullptr;
}

TEST_F(Scheduling, FlavoursAreThePublishedOnes) {
  EXPECT_EQ(1, THREAD_EXTENDED_POLICY);
  EXPECT_EQ(2, THREAD_TIME_CONSTRAINT_POLICY);
  EXPECT_EQ(3, THREAD_PRECEDENCE_POLICY);
}

TEST_F(Scheduling, ThreadWithAPriorityTakesPrecedence) {
  Run(Nothing, 63u, false, false, nullptr);
  EXPECT_THAT(gPlatform.mPolicies, ElementsAre(Precedence(63 - 31)));
}

TEST_F(Scheduling, PriorityIsCountedFromThatOfTheCallingThread) {
  struct Gate {
    std::atomic<bool> mIsRunning{false};
    std::atomic<bool> mIsOpen{false};
  } theGate;
  CAPThread theThread(
      [](void* inGate) -> void* {
        auto& theGate = *static_cast<Gate*>(inGate);
        theGate.mIsRunning = true;
        while (!theGate.mIsOpen) std::this_thread::yield();
        return nullptr;
      },
      &theGate);
  theThread.Start();
  while (!theGate.mIsRunning) std::this_thread::yield();
  gPlatform.mOtherPolicies[pthread_mach_thread_np(theThread.GetPThread())] = POLICY_FIFO;
  gPlatform.mPolicies.clear();
  EXPECT_EQ(55u, theThread.GetScheduledPriority());
  theThread.SetPriority(40, false);
  EXPECT_THAT(gPlatform.mPolicies, ElementsAre(Precedence(40 - 31)));
  theGate.mIsOpen = true;
  while (theThread.IsRunning()) std::this_thread::yield();
}

TEST_F(Scheduling, ThreadStartsDetached) {
  Run(Nothing, 63u, false, false, nullptr);
  EXPECT_THAT(gPlatform.mDetachStates, ElementsAre(PTHREAD_CREATE_DETACHED));
}

TEST_F(Scheduling, StartThatFailsThrowsThePlatformsError) {
  CAPThread theThread(Nothing, nullptr);
  gPlatform.mDetachResult = EINVAL;
  try {
    theThread.Start();
    ADD_FAILURE() << "started";
  } catch (const CAException& inException) {
    EXPECT_EQ(EINVAL, inException.GetError());
  }
  EXPECT_FALSE(theThread.IsRunning());
  EXPECT_TRUE(gPlatform.mPolicies.empty());
}

TEST_F(Scheduling, FixedPriorityTurnsTimeSharingOffFirst) {
  Run(Nothing, 20u, true, false, nullptr);
  EXPECT_THAT(gPlatform.mPolicies, ElementsAre(kTimeshareOff, Precedence(20 - 31)));
}

TEST_F(Scheduling, ThreadWithTimeConstraintsTakesThem) {
  Run(Nothing, 1000u, 100u, 900u, true, false, nullptr);
  EXPECT_THAT(gPlatform.mPolicies, ElementsAre(Constraint(1000, 100, 900, 1)));
  gPlatform.mPolicies.clear();
  Run(Nothing, 1000u, 100u, 900u, false, false, nullptr);
  EXPECT_THAT(gPlatform.mPolicies, ElementsAre(Constraint(1000, 100, 900, 0)));
}

TEST_F(Scheduling, ConstraintsSetBeforeTheStartApplyAtTheStart) {
  CAPThread theThread(Nothing, nullptr, 63, false, false, nullptr);
  theThread.SetTimeConstraints(5, 6, 7, true);
  EXPECT_TRUE(theThread.IsTimeConstraintSet());
  EXPECT_TRUE(gPlatform.mPolicies.empty());
  theThread.Start();
  while (theThread.IsRunning()) std::this_thread::yield();
  EXPECT_THAT(gPlatform.mPolicies, ElementsAre(Constraint(5, 6, 7, 1)));
}

TEST_F(Scheduling, ConstraintsSetAndClearedWhileItRunsApplyAtOnce) {
  Run(
      [](void* inTest) -> void* {
        auto& theThread = static_cast<Scheduling*>(inTest)->Current();
        theThread.SetTimeConstraints(5, 6, 7, true);
        EXPECT_TRUE(theThread.IsTimeConstraintSet());
        theThread.ClearTimeConstraints();
        EXPECT_FALSE(theThread.IsTimeConstraintSet());
        theThread.SetPriority(40, true);
        return nullptr;
      },
      63u, false, false, nullptr);
  EXPECT_THAT(gPlatform.mPolicies, ElementsAre(Precedence(32), Constraint(5, 6, 7, 1),
                                               Precedence(32), kTimeshareOff, Precedence(9)));
}

TEST_F(Scheduling, PriorityOfNoThreadIsNoCall) {
  CAPThread::SetPriority(pthread_t{}, 63, true);
  CAPThread theThread(Nothing, nullptr, 63, false, false, nullptr);
  theThread.SetPriority(10, true);
  EXPECT_TRUE(gPlatform.mPolicies.empty());
}

TEST_F(Scheduling, RefusedPolicyIsNoFailure) {
  gPlatform.mPolicyResult = KERN_FAILURE;
  bool theRan = false;
  CAPThread theThread(
      [](void* outRan) -> void* {
        *static_cast<bool*>(outRan) = true;
        return nullptr;
      },
      &theRan, 1000, 100, 900, true);
  theThread.Start();
  while (theThread.IsRunning()) std::this_thread::yield();
  EXPECT_TRUE(theRan);
}

TEST_F(Scheduling, ScheduledPriorityIsThatOfTheThreadsPolicy) {
  EXPECT_EQ(31u, CAPThread::getScheduledPriority(pthread_self()));
  EXPECT_THAT(gPlatform.mInfoFlavors, ElementsAre(3u, 10u));
  gPlatform.mThreadPolicy = POLICY_RR;
  EXPECT_EQ(47u, CAPThread::getScheduledPriority(pthread_self()));
  gPlatform.mThreadPolicy = POLICY_FIFO;
  EXPECT_EQ(55u, CAPThread::getScheduledPriority(pthread_self()));
  gPlatform.mThreadPolicy = POLICY_NULL;
  EXPECT_EQ(0u, CAPThread::getScheduledPriority(pthread_self()));
}

TEST_F(Scheduling, ScheduledPriorityUnderAGivenPolicy) {
  EXPECT_EQ(31u, CAPThread::getScheduledPriority(pthread_self(), POLICY_TIMESHARE));
  EXPECT_EQ(47u, CAPThread::getScheduledPriority(pthread_self(), POLICY_RR));
  EXPECT_EQ(55u, CAPThread::getScheduledPriority(pthread_self(), POLICY_FIFO));
  EXPECT_EQ(0u, CAPThread::getScheduledPriority(pthread_t{}, POLICY_FIFO));
}

TEST_F(Scheduling, ScheduledPriorityIsZeroOnFailureAndForNoThread) {
  EXPECT_EQ(0u, CAPThread::getScheduledPriority(pthread_t{}));
  gPlatform.mThreadInfoFails = true;
  EXPECT_EQ(0u, CAPThread::getScheduledPriority(pthread_self()));
  EXPECT_EQ(0u, CAPThread::getScheduledPriority(pthread_self(), POLICY_TIMESHARE));
  EXPECT_EQ(0u, CAPThread::getScheduledPriority(pthread_self(), POLICY_RR));
  EXPECT_EQ(0u, CAPThread::getScheduledPriority(pthread_self(), POLICY_FIFO));
}

TEST_F(Scheduling, SpawningPriorityIsReadAtConstruction) {
  CAPThread theThread(Nothing, nullptr, 63, false, false, nullptr);
  gPlatform.mThreadPolicy = POLICY_FIFO;
  EXPECT_EQ(31u, theThread.GetSpawningThreadPriority());
  CAPThread theOther(Nothing, nullptr, 1, 2, 3, true);
  EXPECT_EQ(55u, theOther.GetSpawningThreadPriority());
}

TEST_F(Scheduling, ThreadTakesItsNameIfItHasOne) {
  Run(Nothing, 63u, false, false, "a name");
  EXPECT_THAT(gPlatform.mNames, ElementsAre("a name"));
  gPlatform.mNames.clear();
  Run(Nothing, 63u, false, false, nullptr);
  EXPECT_TRUE(gPlatform.mNames.empty());
}

TEST_F(Scheduling, TheNameThatAThreadTakesHas63BytesAtMost) {
  CAPThread theThread(Nothing, nullptr, 63, false, false, std::string(70, 'x').c_str());
  theThread.Start();
  while (theThread.IsRunning()) std::this_thread::yield();
  EXPECT_THAT(gPlatform.mNames, ElementsAre(std::string(63, 'x')));
}

}  // namespace
