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
    // Inline, for a property call nests several: all but the outermost are told here.
    explicit Locker(CAMutex& inMutex) CA_ACQUIRE(inMutex)
        : mMutex(&inMutex), mNeedsRelease(!inMutex.IsSelfOwner() && inMutex.Lock()) {}
    explicit Locker(CAMutex* inMutex) CA_ACQUIRE(inMutex)
        : mMutex(inMutex),
          mNeedsRelease(inMutex != nullptr && !inMutex->IsSelfOwner() && inMutex->Lock()) {}
    ~Locker() CA_RELEASE() {
      if (mNeedsRelease) Release();
    }
    Locker(const Locker&) = delete;
    Locker& operator=(const Locker&) = delete;

   private:
    void Release();

    CAMutex* mMutex;
    bool mNeedsRelease;
  };

 protected:
  // A free mutex is told without asking who asks.
  bool IsSelfOwner() const noexcept {
    const pthread_t theOwner = mOwner.load(std::memory_order_relaxed);
    return theOwner != pthread_t{} && pthread_equal(theOwner, pthread_self()) != 0;
  }

  const char* mName;
  // Read without the lock, for the owner test: a thread sees itself here only if it stored itself.
  std::atomic<pthread_t> mOwner;
  pthread_mutex_t mMutex;
};
