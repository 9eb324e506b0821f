#include <mach/mach.h>
#include <mach/thread_policy_priv.h>

#include <algorithm>
#include <atomic>
#include <cstring>

#include "mach/ThreadScheduling.h"

namespace {

using tembra::GetNiceness;
using tembra::GetSchedulingMode;
using tembra::SchedulingMode;

constexpr integer_t kDefaultPriority = 31;
constexpr integer_t kRealTimePriority = 97;
constexpr integer_t kMaximumTimesharePriority = 63;

// What the calling thread last asked for itself, so that asking again costs no system call.
struct LastPolicy {
  pid_t mThread;  // a forked child's is another one than its parent's
  thread_policy_flavor_t mFlavor;
  uint32_t mValues[THREAD_TIME_CONSTRAINT_POLICY_COUNT];
  uint32_t mForeignChanges;
};
thread_local LastPolicy tLastPolicy{};

// Counts the policies that were set by one thread for another; what a thread remembers of its own
// from before is then in doubt.
std::atomic<uint32_t> sForeignChanges{1};

mach_msg_type_number_t CountOf(thread_policy_flavor_t inFlavor) {
  switch (inFlavor) {
    case THREAD_EXTENDED_POLICY:
      return THREAD_EXTENDED_POLICY_COUNT;
    case THREAD_TIME_CONSTRAINT_POLICY:
      return THREAD_TIME_CONSTRAINT_POLICY_COUNT;
    case THREAD_PRECEDENCE_POLICY:
      return THREAD_PRECEDENCE_POLICY_COUNT;
    default:
      return 0;
  }
}

void Apply(pid_t inThread, thread_policy_flavor_t inFlavor, const integer_t* inValues) {
  switch (inFlavor) {
    case THREAD_TIME_CONSTRAINT_POLICY: {
      thread_time_constraint_policy_data_t policy;
      memcpy(&policy, inValues, sizeof policy);
      tembra::ApplyTimeConstraint(inThread, {policy.period, policy.computation, policy.constraint});
      break;
    }
    case THREAD_PRECEDENCE_POLICY:
      tembra::ApplyImportance(inThread, inValues[0]);
      break;
    default:
      tembra::ApplyNormal(inThread);
      break;
  }
}

integer_t TimesharePriority(pid_t inThread) {
  int niceness = 0;
  GetNiceness(inThread, niceness);
  return std::clamp(kDefaultPriority - niceness, 0, kMaximumTimesharePriority);
}

policy_t PolicyOf(SchedulingMode inMode) {
  return inMode == SchedulingMode::kNormal ? POLICY_TIMESHARE : POLICY_FIFO;
}

template <typename Info>
kern_return_t Answer(const Info& inInfo, thread_info_t outInfo, mach_msg_type_number_t* ioCount) {
  constexpr mach_msg_type_number_t kCount = sizeof(Info) / sizeof(integer_t);
  if (*ioCount < kCount) {
    return KERN_INVALID_ARGUMENT;
  }
  memcpy(outInfo, &inInfo, sizeof inInfo);
  *ioCount = kCount;
  return KERN_SUCCESS;
}

}  // namespace

kern_return_t thread_policy_set(thread_t thread, thread_policy_flavor_t flavor,
                                thread_policy_t policy_info,
                                mach_msg_type_number_t policy_infoCnt) {
  const mach_msg_type_number_t count = CountOf(flavor);
  if (thread == MACH_PORT_NULL || !policy_info || count == 0 || policy_infoCnt < count) {
    return KERN_INVALID_ARGUMENT;
  }
  const pid_t target = static_cast<pid_t>(thread);
  if (target != tembra::CurrentThreadID()) {
    if (GetSchedulingMode(target) == SchedulingMode::kUnknown) {
      return KERN_INVALID_ARGUMENT;
    }
    Apply(target, flavor, policy_info);
    sForeignChanges.fetch_add(1, std::memory_order_relaxed);
    return KERN_SUCCESS;
  }
  LastPolicy wanted{};
  wanted.mThread = target;
  wanted.mFlavor = flavor;
  memcpy(wanted.mValues, policy_info, count * sizeof(integer_t));
  wanted.mForeignChanges = sForeignChanges.load(std::memory_order_relaxed);
  if (memcmp(&wanted, &tLastPolicy, sizeof wanted) != 0) {
    Apply(target, flavor, policy_info);
    tLastPolicy = wanted;
  }
  return KERN_SUCCESS;
}

kern_return_t thread_info(thread_inspect_t target_act, thread_flavor_t flavor,
                          thread_info_t thread_info_out,
                          mach_msg_type_number_t* thread_info_outCnt) {
  if (target_act == MACH_PORT_NULL || !thread_info_out || !thread_info_outCnt) {
    return KERN_INVALID_ARGUMENT;
  }
  const pid_t target = static_cast<pid_t>(target_act);
  const SchedulingMode mode = GetSchedulingMode(target);
  if (mode == SchedulingMode::kUnknown) {
    return KERN_INVALID_ARGUMENT;
  }
  const policy_t policy = PolicyOf(mode);
  if (flavor == THREAD_BASIC_INFO) {
    thread_basic_info_data_t basic{};
    basic.policy = policy;
    basic.run_state = TH_STATE_RUNNING;
    return Answer(basic, thread_info_out, thread_info_outCnt);
  }
  if (flavor == THREAD_SCHED_TIMESHARE_INFO && policy == POLICY_TIMESHARE) {
    policy_timeshare_info_data_t info{};
    info.max_priority = kMaximumTimesharePriority;
    info.base_priority = TimesharePriority(target);
    info.cur_priority = info.base_priority;
    return Answer(info, thread_info_out, thread_info_outCnt);
  }
  if (flavor == THREAD_SCHED_FIFO_INFO && policy == POLICY_FIFO) {
    policy_fifo_info_data_t info{};
    info.max_priority = kRealTimePriority;
    info.base_priority = kRealTimePriority;
    return Answer(info, thread_info_out, thread_info_outCnt);
  }
  return KERN_INVALID_ARGUMENT;
}

TembraThreadSchedulingMode TembraThreadGetSchedulingMode(pid_t inThreadID) {
  switch (GetSchedulingMode(inThreadID)) {
    case SchedulingMode::kNormal:
      return kTembraThreadSchedulingNormal;
    case SchedulingMode::kFIFO:
      return kTembraThreadSchedulingFIFO;
    case SchedulingMode::kDeadline:
      return kTembraThreadSchedulingDeadline;
    default:
      return kTembraThreadSchedulingUnknown;
  }
}

const char* TembraThreadSchedulingModeName(TembraThreadSchedulingMode inMode) {
  switch (inMode) {
    case kTembraThreadSchedulingNormal:
      return "normal";
    case kTembraThreadSchedulingFIFO:
      return "fifo";
    case kTembraThreadSchedulingDeadline:
      return "deadline";
    default:
      return "unknown";
  }
}
