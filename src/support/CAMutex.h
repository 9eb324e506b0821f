#pragma once

#include <pthread.h>

#include <atomic>

#include "support/ThreadAnnotations.h"

// Purpose: a lock that knows its owner. It nests without counting: a second Lock by the owner
//   answers false and changes nothing, and one Unlock releases it, however many Locks came before.
//   Locker is what makes nesting safe.
// Thread: any; Unlock works for the owner alone and does nothing for all others.
// Ownership: the name is borrowed and must outlive the mutex.
// Units and range: none.
// Failure: a platform error is thrown as a CAException with its number.
//
// The compiler checks what is locked by a Locker. What Lock, Try and Unlock do depends on who owns
// the mutex when they run, so they carry no promise.
class CA_CAPABILITY("mutex") CAMutex {
 public:
  explicit CAMutex(const char* inName);
  virtual ~CAMutex();
  CAMutex(const CAMutex&) = delete;
  CAMutex& operator=(const CAMutex&) = delete;

  // True if this call took the lock, false if the caller had it.
  virtual bool Lock();
  virtual void Unlock();
  // True if the caller has the lock now; outWasLocked says whether this call took it.
  virtual bool Try(bool& outWasLocked);
  virtual bool IsFree() const;
  virtual bool IsOwnedByCurrentThread() const;

  const char* GetName() const noexcept { return mName; }

  // Locks for a scope, unless this thread has the lock already. A null mutex is no lock at all.
  class CA_SCOPED_CAPABILITY Locker {
   public:
    explicit Locker(CAMutex& inMutex) CA_ACQUIRE(inMutex);
    explicit Locker(CAMutex* inMutex) CA_ACQUIRE(inMutex);
    ~Locker() CA_RELEASE();
    Locker(const Locker&) = delete;
    Locker& operator=(const Locker&) = delete;

   private:
    CAMutex* mMutex;
    bool mNeedsRelease;
  };

 protected:
  const char* mName;
  // Read without the lock, for the owner test: a thread sees itself here only if it stored itself.
  std::atomic<pthread_t> mOwner;
  pthread_mutex_t mMutex;
};
