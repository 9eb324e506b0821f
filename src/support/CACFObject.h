#pragma once

#include <CoreFoundation/CoreFoundation.h>

// Purpose: holds one platform reference of type T and gives it back at the end of its life.
// Thread: as the object that it holds.
// Ownership: made from a reference, it takes that reference over; with inWillRelease false it only
//   borrows. A copy has a reference of its own if the original owns one. Get hands out a borrowed
//   reference, Copy one that the caller releases.
// Units and range: none.
// Failure: none; a null reference is allowed everywhere and is not valid.
template <class T>
class CACFObject {
 public:
  CACFObject() noexcept : mObject(nullptr), mWillRelease(true) {}
  explicit CACFObject(T inObject, bool inWillRelease = true) noexcept
      : mObject(inObject), mWillRelease(inWillRelease) {}
  CACFObject(const CACFObject& inOther)
      : mObject(inOther.mObject), mWillRelease(inOther.mWillRelease) {
    if (mWillRelease) Retain();
  }
  CACFObject& operator=(const CACFObject& inOther) {
    if (this != &inOther) {
      CACFObject theCopy(inOther);
      Swap(theCopy);
    }
    return *this;
  }
  // Takes over the reference, also one of the object that it holds.
  CACFObject& operator=(T inObject) {
    Release();
    mObject = inObject;
    mWillRelease = true;
    return *this;
  }
  ~CACFObject() { Release(); }

  bool IsValid() const noexcept { return mObject != nullptr; }
  void Retain() {
    if (mObject != nullptr) CFRetain(mObject);
  }
  // Gives the reference back, if it is owned, and forgets it.
  void Release() {
    if (mObject != nullptr && mWillRelease) CFRelease(mObject);
    mObject = nullptr;
  }
  bool WillRelease() const noexcept { return mWillRelease; }
  void ShouldRelease(bool inWillRelease) noexcept { mWillRelease = inWillRelease; }

  T GetObject() const noexcept { return mObject; }
  T CopyObject() const {
    if (mObject != nullptr) CFRetain(mObject);
    return mObject;
  }

 protected:
  void Swap(CACFObject& ioOther) noexcept {
    T theObject = mObject;
    mObject = ioOther.mObject;
    ioOther.mObject = theObject;
    bool theFlag = mWillRelease;
    mWillRelease = ioOther.mWillRelease;
    ioOther.mWillRelease = theFlag;
  }

  T mObject;
  bool mWillRelease;
};
