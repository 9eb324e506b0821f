#include "support/CAGuard.h"

#include <errno.h>
#include <time.h>

#include "support/CAException.h"
#include "support/CAHostTimeBase.h"

namespace {

constexpr UInt64 kNanosPerSecond = 1000000000;

}  // namespace

CAGuard::CAGuard(const char* inName) : CAMutex(inName) {
  if (int theError = pthread_cond_init(&mCondVar, nullptr)) throw CAException(theError);
}

CAGuard::~CAGuard() {
  pthread_cond_destroy(&mCondVar);
}

void CAGuard::ThrowUnlessOwned() const {
  if (!IsOwnedByCurrentThread()) throw CAException(1);
}

void CAGuard::Wait() {
  ThrowUnlessOwned();
  mOwner.store(pthread_t{}, std::memory_order_relaxed);
  int theError = pthread_cond_wait(&mCondVar, &mMutex);
  mOwner.store(pthread_self(), std::memory_order_relaxed);
  if (theError != 0) throw CAException(theError);
}

bool CAGuard::WaitFor(UInt64 inNanos) {
  ThrowUnlessOwned();
  timespec theTime;
  theTime.tv_sec = static_cast<time_t>(inNanos / kNanosPerSecond);
  theTime.tv_nsec = static_cast<long>(inNanos % kNanosPerSecond);
  mOwner.store(pthread_t{}, std::memory_order_relaxed);
  int theError = pthread_cond_timedwait_relative_np(&mCondVar, &mMutex, &theTime);
  mOwner.store(pthread_self(), std::memory_order_relaxed);
  if (theError != 0 && theError != ETIMEDOUT) throw CAException(theError);
  return theError == ETIMEDOUT;
}

bool CAGuard::WaitUntil(UInt64 inNanos) {
  UInt64 theCurrentTime = CAHostTimeBase::GetCurrentTimeInNanos();
  if (inNanos <= theCurrentTime) return true;
  return WaitFor(inNanos - theCurrentTime);
}

void CAGuard::Notify() {
  if (int theError = pthread_cond_signal(&mCondVar)) throw CAException(theError);
}

void CAGuard::NotifyAll() {
  if (int theError = pthread_cond_broadcast(&mCondVar)) throw CAException(theError);
}
