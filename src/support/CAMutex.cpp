#include "support/CAMutex.h"

#include <errno.h>

#include "support/CAException.h"

CAMutex::CAMutex(const char* inName) : mName(inName), mOwner(pthread_t{}) {
  if (int theError = pthread_mutex_init(&mMutex, nullptr)) throw CAException(theError);
}

CAMutex::~CAMutex() {
  pthread_mutex_destroy(&mMutex);
}

bool CAMutex::Lock() {
  if (IsSelfOwner()) return false;
  if (int theError = pthread_mutex_lock(&mMutex)) throw CAException(theError);
  mOwner.store(pthread_self(), std::memory_order_relaxed);
  return true;
}

void CAMutex::Unlock() {
  if (!IsSelfOwner()) return;
  mOwner.store(pthread_t{}, std::memory_order_relaxed);
  if (int theError = pthread_mutex_unlock(&mMutex)) throw CAException(theError);
}

bool CAMutex::Try(bool& outWasLocked) {
  outWasLocked = false;
  if (IsSelfOwner()) return true;
  int theError = pthread_mutex_trylock(&mMutex);
  if (theError == EBUSY) return false;
  if (theError != 0) throw CAException(theError);
  mOwner.store(pthread_self(), std::memory_order_relaxed);
  outWasLocked = true;
  return true;
}

bool CAMutex::IsFree() const {
  return mOwner.load(std::memory_order_relaxed) == pthread_t{};
}

bool CAMutex::IsOwnedByCurrentThread() const {
  return IsSelfOwner();
}

void CAMutex::Locker::Release() {
  try {
    mMutex->Unlock();
  } catch (const CAException&) {
    // The owner is cleared, and there is no one to tell in the middle of an unwinding.
  }
}
