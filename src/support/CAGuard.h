#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include "support/CAMutex.h"

// Purpose: a CAMutex with a condition.
// Thread: Wait, WaitFor and WaitUntil by the owner, which is not the owner while it waits; Notify
//   and NotifyAll by any thread, with or without the lock.
// Ownership: as CAMutex.
// Units and range: nanoseconds; WaitUntil in host time converted to nanoseconds.
// Failure: CAException with 1 for a wait without the lock, with the platform's number if a platform
//   call fails.
class CAGuard : public CAMutex {
 public:
  explicit CAGuard(const char* inName);
  ~CAGuard() override;

  virtual void Wait();
  // Both answer true if the time ran out.
  virtual bool WaitFor(UInt64 inNanos);
  virtual bool WaitUntil(UInt64 inNanos);
  virtual void Notify();
  virtual void NotifyAll();

 protected:
  pthread_cond_t mCondVar;

 private:
  void ThrowUnlessOwned() const;
};
