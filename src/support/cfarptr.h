#pragma once

#include <CoreFoundation/CoreFoundation.h>

// How a reference of type T is kept and given back.
template <class T>
struct cfo_ref_traits {
  static void addref(T inObject) { CFRetain(inObject); }
  static void release(T inObject) { CFRelease(inObject); }
};

// Purpose: a scoped reference.
// Thread: as the object that it holds.
// Ownership: takes over the reference that it is made with, or adds one of its own with inAddRef;
//   gives it back at the end of the scope.
// Units and range: none.
// Failure: none; a null reference is allowed.
template <class T, class Traits = cfo_ref_traits<T>>
class cfarptr {
 public:
  cfarptr(T inObject, bool inAddRef) : mObject(inObject) {
    if (inAddRef && mObject != nullptr) Traits::addref(mObject);
  }
  ~cfarptr() {
    if (mObject != nullptr) Traits::release(mObject);
  }
  cfarptr(const cfarptr&) = delete;
  cfarptr& operator=(const cfarptr&) = delete;

  T ptr() const noexcept { return mObject; }
  operator T() const noexcept { return mObject; }

 private:
  T mObject;
};
