#include "support/CAPThread.h"

#include <mach/mach.h>
#include <signal.h>
#include <string.h>

#include <memory>
#include <mutex>

#include "support/CAException.h"

// What Start hands to Entry. The new thread waits at the gate until Start has done its part with
// the object, which the thread may delete from then on.
struct CAPThread::StartRecord {
  CAPThread* mThread;
  std::shared_ptr<std::mutex> mGate;
};

CAPThread::CAPThread(ThreadRoutine inThreadRoutine, void* inParameter, UInt32 inPriority,
                     bool inFixedPriority, bool inAutoDelete, const char* inThreadName)
    : mPThread(pthread_t{}),
      mSpawningThreadPriority(getScheduledPriority(pthread_self())),
      mThreadRoutine(inThreadRoutine),
      mThreadParameter(inParameter),
      mThreadName(),
      mPriority(inPriority),
      mPeriod(0),
      mComputation(0),
      mConstraint(0),
      mIsPreemptible(true),
      mTimeConstraintSet(false),
      mFixedPriority(inFixedPriority),
      mAutoDelete(inAutoDelete) {
  SetName(inThreadName);
}

CAPThread::CAPThread(ThreadRoutine inThreadRoutine, void* inParameter, UInt32 inPeriod,
                     UInt32 inComputation, UInt32 inConstraint, bool inIsPreemptible,
                     bool inAutoDelete, const char* inThreadName)
    : mPThread(pthread_t{}),
      mSpawningThreadPriority(getScheduledPriority(pthread_self())),
      mThreadRoutine(inThreadRoutine),
      mThreadParameter(inParameter),
      mThreadName(),
      mPriority(kDefaultThreadPriority),
      mPeriod(inPeriod),
      mComputation(inComputation),
      mConstraint(inConstraint),
      mIsPreemptible(inIsPreemptible),
      mTimeConstraintSet(true),
      mFixedPriority(false),
      mAutoDelete(inAutoDelete) {
  SetName(inThreadName);
}

CAPThread::~CAPThread() = default;

void CAPThread::Start() {
  if (IsRunning()) return;

  pthread_attr_t theAttributes;
  if (int theError = pthread_attr_init(&theAttributes)) throw CAException(theError);
  int theError = pthread_attr_setdetachstate(&theAttributes, PTHREAD_CREATE_DETACHED);
  pthread_t theThread{};
  if (theError == 0) {
    auto theGate = std::make_shared<std::mutex>();
    auto theRecord = std::make_unique<StartRecord>(StartRecord{this, theGate});
    std::lock_guard<std::mutex> theClosedGate(*theGate);

    sigset_t theAllSignals;
    sigset_t theOldSignals;
    sigfillset(&theAllSignals);
    pthread_sigmask(SIG_SETMASK, &theAllSignals, &theOldSignals);
    theError = pthread_create(&theThread, &theAttributes, Entry, theRecord.get());
    pthread_sigmask(SIG_SETMASK, &theOldSignals, nullptr);

    if (theError == 0) {
      (void)theRecord.release();  // the thread has it now
      mPThread = theThread;
    }
  }
  // From here on the object may be gone.
  pthread_attr_destroy(&theAttributes);
  if (theError != 0) throw CAException(theError);
  if (theThread == pthread_t{}) throw CAException(-1);
}

void* CAPThread::Entry(void* inStartRecord) {
  CAPThread* theThread = nullptr;
  {
    std::unique_ptr<StartRecord> theRecord(static_cast<StartRecord*>(inStartRecord));
    theThread = theRecord->mThread;
    std::lock_guard<std::mutex> theOpenGate(*theRecord->mGate);
  }
  theThread->mPThread = pthread_self();
  if (theThread->mThreadName[0] != 0) pthread_setname_np(theThread->mThreadName);
  if (theThread->mTimeConstraintSet) {
    theThread->ApplyTimeConstraints(theThread->mPThread);
  } else {
    SetPriority(theThread->mPThread, theThread->mPriority, theThread->mFixedPriority);
  }

  theThread->RunRoutine();

  // Once the handle is cleared, the owner of an object that does not delete itself may delete it.
  const bool theAutoDelete = theThread->mAutoDelete;
  theThread->mPThread = pthread_t{};
  if (theAutoDelete) delete theThread;
  return nullptr;
}

void CAPThread::RunRoutine() {
  if (mThreadRoutine == nullptr) return;
  try {
    mThreadRoutine(mThreadParameter);
  } catch (...) {
    // Whatever comes out of the routine is its end and no more.
  }
}

bool CAPThread::IsRunning() const {
  return mPThread.load() != pthread_t{};
}

bool CAPThread::IsCurrentThread() const {
  pthread_t theThread = mPThread;
  return theThread != pthread_t{} && pthread_equal(theThread, pthread_self()) != 0;
}

void CAPThread::SetName(const char* inThreadName) {
  if (inThreadName != nullptr) {
    strlcpy(mThreadName, inThreadName, sizeof(mThreadName));
  } else {
    memset(mThreadName, 0, sizeof(mThreadName));
  }
}

void CAPThread::SetPriority(UInt32 inPriority, bool inFixedPriority) {
  mPriority = inPriority;
  mFixedPriority = inFixedPriority;
  mTimeConstraintSet = false;
  if (IsRunning()) SetPriority(mPThread, inPriority, inFixedPriority);
}

void CAPThread::SetPriority(pthread_t inThread, UInt32 inPriority, bool inFixedPriority) {
  if (inThread == pthread_t{}) return;
  const thread_act_t thePort = pthread_mach_thread_np(inThread);
  if (inFixedPriority) {
    thread_extended_policy_data_t thePolicy = {};
    thePolicy.timeshare = 0;
    thread_policy_set(thePort, THREAD_EXTENDED_POLICY,
                      reinterpret_cast<thread_policy_t>(&thePolicy), THREAD_EXTENDED_POLICY_COUNT);
  }
  thread_precedence_policy_data_t thePrecedence = {};
  thePrecedence.importance =
      static_cast<integer_t>(inPriority - getScheduledPriority(pthread_self()));
  thread_policy_set(thePort, THREAD_PRECEDENCE_POLICY,
                    reinterpret_cast<thread_policy_t>(&thePrecedence),
                    THREAD_PRECEDENCE_POLICY_COUNT);
}

void CAPThread::SetTimeConstraints(UInt32 inPeriod, UInt32 inComputation, UInt32 inConstraint,
                                   bool inIsPreemptible) {
  mPeriod = inPeriod;
  mComputation = inComputation;
  mConstraint = inConstraint;
  mIsPreemptible = inIsPreemptible;
  mTimeConstraintSet = true;
  if (IsRunning()) ApplyTimeConstraints(mPThread);
}

void CAPThread::ApplyTimeConstraints(pthread_t inThread) const {
  if (inThread == pthread_t{}) return;
  thread_time_constraint_policy_data_t thePolicy = {};
  thePolicy.period = mPeriod;
  thePolicy.computation = mComputation;
  thePolicy.constraint = mConstraint;
  thePolicy.preemptible = mIsPreemptible;
  thread_policy_set(pthread_mach_thread_np(inThread), THREAD_TIME_CONSTRAINT_POLICY,
                    reinterpret_cast<thread_policy_t>(&thePolicy),
                    THREAD_TIME_CONSTRAINT_POLICY_COUNT);
}

UInt32 CAPThread::GetScheduledPriority() const {
  return getScheduledPriority(mPThread);
}

UInt32 CAPThread::getScheduledPriority(pthread_t inThread) {
  if (inThread == pthread_t{}) return 0;
  thread_basic_info_data_t theInfo = {};
  mach_msg_type_number_t theCount = THREAD_BASIC_INFO_COUNT;
  if (thread_info(pthread_mach_thread_np(inThread), THREAD_BASIC_INFO,
                  reinterpret_cast<thread_info_t>(&theInfo), &theCount) != KERN_SUCCESS) {
    return 0;
  }
  return getScheduledPriority(inThread, theInfo.policy);
}

UInt32 CAPThread::getScheduledPriority(pthread_t inThread, int inPolicy) {
  if (inThread == pthread_t{}) return 0;
  const thread_act_t thePort = pthread_mach_thread_np(inThread);
  switch (inPolicy) {
    case POLICY_TIMESHARE: {
      policy_timeshare_info_data_t theInfo = {};
      mach_msg_type_number_t theCount = POLICY_TIMESHARE_INFO_COUNT;
      if (thread_info(thePort, THREAD_SCHED_TIMESHARE_INFO,
                      reinterpret_cast<thread_info_t>(&theInfo), &theCount) != KERN_SUCCESS) {
        return 0;
      }
      return static_cast<UInt32>(theInfo.cur_priority);
    }
    case POLICY_RR: {
      policy_rr_info_data_t theInfo = {};
      mach_msg_type_number_t theCount = POLICY_RR_INFO_COUNT;
      if (thread_info(thePort, THREAD_SCHED_RR_INFO, reinterpret_cast<thread_info_t>(&theInfo),
                      &theCount) != KERN_SUCCESS) {
        return 0;
      }
      return static_cast<UInt32>(theInfo.depressed ? theInfo.depress_priority
                                                   : theInfo.base_priority);
    }
    case POLICY_FIFO: {
      policy_fifo_info_data_t theInfo = {};
      mach_msg_type_number_t theCount = POLICY_FIFO_INFO_COUNT;
      if (thread_info(thePort, THREAD_SCHED_FIFO_INFO, reinterpret_cast<thread_info_t>(&theInfo),
                      &theCount) != KERN_SUCCESS) {
        return 0;
      }
      return static_cast<UInt32>(theInfo.depressed ? theInfo.depress_priority
                                                   : theInfo.base_priority);
    }
    default:
      return 0;
  }
}
