#include "mach/ThreadScheduling.h"

#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "mach/KernelScheduling.h"

namespace tembra {
namespace {

constexpr uint64_t kSharesOfPeriod = 4;
constexpr uint64_t kMinimumRuntime = 1024;
// The kernel's defaults for the bounds of a period.
constexpr uint64_t kMinimumPeriod = 100'000;
constexpr uint64_t kMaximumPeriod = 4'194'304'000;
// So long that the kernel's count of a millionth sees nothing of the least runtime in it.
constexpr uint64_t kIdlePeriod = 4'000'000'000;
// Above kernel threads that serve no deadline, below those that keep the machine alive.
constexpr int kFIFOPriority = 20;

bool SetAttributes(pid_t inThread, const KernelSchedulingAttributes& inAttributes) {
  return syscall(SYS_sched_setattr, inThread, &inAttributes, 0U) == 0;
}

bool GetAttributes(pid_t inThread, KernelSchedulingAttributes& outAttributes) {
  outAttributes = {};
  return syscall(SYS_sched_getattr, inThread, &outAttributes, sizeof outAttributes, 0U) == 0;
}

KernelSchedulingAttributes Attributes(uint32_t inPolicy) {
  KernelSchedulingAttributes attributes{};
  attributes.size = sizeof attributes;
  attributes.policy = inPolicy;
  // A deadline thread may not fork without it; and no child should inherit such a right.
  attributes.flags = kFlagResetOnFork;
  return attributes;
}

bool ApplyDeadline(pid_t inThread, const TimeConstraint& inConstraint) {
  KernelSchedulingAttributes attributes = Attributes(kDeadlinePolicy);
  // The computation is what the thread itself needs, without what clients do in its cycle; the
  // kernel would hold it to that and put off a longer cycle to the next period, however idle the
  // machine is. So it gets a quarter of the period at least, and may reclaim what others leave.
  const uint64_t share =
      std::min<uint64_t>(inConstraint.mPeriod / kSharesOfPeriod, inConstraint.mConstraint);
  attributes.runtime = std::max<uint64_t>(inConstraint.mComputation, share);
  attributes.deadline = inConstraint.mConstraint;
  attributes.period = inConstraint.mPeriod;
  attributes.flags |= kFlagReclaim;
  if (SetAttributes(inThread, attributes)) {
    return true;
  }
  // Only a kernel that does not know the flag is asked without it. One that is out of bandwidth may
  // have some a moment later, and the thread would then be held to its budget for good.
  if (errno != EINVAL) {
    return false;
  }
  attributes.flags &= ~kFlagReclaim;
  return SetAttributes(inThread, attributes);
}

bool RealTimeIsUnlimited() {
  rlimit limit;
  return getrlimit(RLIMIT_RTTIME, &limit) == 0 && limit.rlim_cur == RLIM_INFINITY &&
         limit.rlim_max == RLIM_INFINITY;
}

bool ApplyFIFO(pid_t inThread) {
  if (!RealTimeIsUnlimited()) {
    return false;
  }
  KernelSchedulingAttributes attributes = Attributes(SCHED_FIFO);
  attributes.priority = kFIFOPriority;
  if (SetAttributes(inThread, attributes)) {
    return true;
  }
  // Without the capability the limit says how high a thread may go.
  rlimit limit;
  if (getrlimit(RLIMIT_RTPRIO, &limit) != 0 || limit.rlim_cur < 1 ||
      limit.rlim_cur >= static_cast<rlim_t>(kFIFOPriority)) {
    return false;
  }
  attributes.priority = static_cast<uint32_t>(limit.rlim_cur);
  return SetAttributes(inThread, attributes);
}

SchedulingMode ModeOf(const KernelSchedulingAttributes& inAttributes) {
  switch (inAttributes.policy) {
    case kDeadlinePolicy:
      return SchedulingMode::kDeadline;
    case SCHED_FIFO:
    case SCHED_RR:
      return SchedulingMode::kFIFO;
    default:
      return SchedulingMode::kNormal;
  }
}

bool IsSettled(const KernelSchedulingAttributes& inAttributes, int inNiceness) {
  return ModeOf(inAttributes) == SchedulingMode::kNormal && inAttributes.nice == inNiceness;
}

// A deadline that another thread ends in its sleep leaves its bandwidth taken on some kernels, for
// all processes and for good. So it is first made so small that it takes none.
void ShrinkDeadline(pid_t inThread, const KernelSchedulingAttributes& inNow) {
  KernelSchedulingAttributes attributes = Attributes(kDeadlinePolicy);
  attributes.flags |= inNow.flags & kFlagReclaim;
  attributes.runtime = kMinimumRuntime;
  attributes.deadline = kIdlePeriod;
  attributes.period = kIdlePeriod;
  SetAttributes(inThread, attributes);
}

bool SetNormal(pid_t inThread, const KernelSchedulingAttributes& inNow, int inNiceness) {
  if (ModeOf(inNow) == SchedulingMode::kDeadline && inThread != tembra::CurrentThreadID()) {
    ShrinkDeadline(inThread, inNow);
  }
  const bool wasNormal = ModeOf(inNow) == SchedulingMode::kNormal;
  KernelSchedulingAttributes attributes = Attributes(wasNormal ? inNow.policy : SCHED_OTHER);
  // Once set, only a privileged process may clear this flag, so it stays.
  attributes.flags = inNow.flags & kFlagResetOnFork;
  attributes.nice = inNiceness;
  return SetAttributes(inThread, attributes);
}

thread_local pid_t tThreadID = 0;

// The one thread that a forked child has is a new one.
__attribute__((constructor)) void ForgetThreadIDInChild() {
  pthread_atfork(nullptr, nullptr, [] { tThreadID = 0; });
}

int NicenessOfProcess() {
  errno = 0;
  const int niceness = getpriority(PRIO_PROCESS, static_cast<id_t>(getpid()));
  return niceness == -1 && errno != 0 ? 0 : niceness;
}

}  // namespace

TimeConstraint WithinKernelBounds(const TimeConstraint& inConstraint) {
  TimeConstraint bounded;
  bounded.mPeriod = std::min(inConstraint.mPeriod, kMaximumPeriod);
  bounded.mConstraint = std::clamp(inConstraint.mConstraint, kMinimumRuntime, kMaximumPeriod);
  if (bounded.mPeriod == 0) {
    bounded.mPeriod = bounded.mConstraint;
  }
  bounded.mPeriod = std::max(bounded.mPeriod, kMinimumPeriod);
  bounded.mConstraint = std::min(bounded.mConstraint, bounded.mPeriod);
  bounded.mComputation =
      std::clamp(inConstraint.mComputation, kMinimumRuntime, bounded.mConstraint);
  return bounded;
}

SchedulingMode ApplyTimeConstraint(pid_t inThread, const TimeConstraint& inConstraint) {
  if (ApplyDeadline(inThread, WithinKernelBounds(inConstraint))) {
    return SchedulingMode::kDeadline;
  }
  if (ApplyFIFO(inThread)) {
    return SchedulingMode::kFIFO;
  }
  return GetSchedulingMode(inThread);
}

void ApplyNormal(pid_t inThread) {
  KernelSchedulingAttributes now;
  if (GetAttributes(inThread, now) && ModeOf(now) != SchedulingMode::kNormal) {
    SetNormal(inThread, now, NicenessOfProcess()) || SetNormal(inThread, now, 0);
  }
}

void ApplyImportance(pid_t inThread, int inImportance) {
  KernelSchedulingAttributes now;
  if (!GetAttributes(inThread, now)) {
    return;
  }
  const int base = NicenessOfProcess();
  const int least = ModeOf(now) == SchedulingMode::kNormal ? -64 : 0;
  const int wanted = std::clamp(base - std::clamp(inImportance, least, 64), -20, 19);
  if (IsSettled(now, wanted) || SetNormal(inThread, now, wanted)) {
    return;
  }
  // Not so important, then; but normal.
  if (ModeOf(now) != SchedulingMode::kNormal) {
    SetNormal(inThread, now, base) || SetNormal(inThread, now, 0);
  }
}

pid_t CurrentThreadID() {
  if (tThreadID == 0) {
    tThreadID = gettid();
  }
  return tThreadID;
}

SchedulingMode GetSchedulingMode(pid_t inThread) {
  KernelSchedulingAttributes now;
  return GetAttributes(inThread, now) ? ModeOf(now) : SchedulingMode::kUnknown;
}

bool GetNiceness(pid_t inThread, int& outNiceness) {
  KernelSchedulingAttributes now;
  if (!GetAttributes(inThread, now)) {
    return false;
  }
  outNiceness = ModeOf(now) == SchedulingMode::kNormal ? now.nice : 0;
  return true;
}

}  // namespace tembra
