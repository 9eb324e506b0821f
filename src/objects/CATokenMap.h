#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <cstdint>
#include <map>

#include "support/CAMutex.h"
#include "support/CATokenIndex.h"

// Purpose: a map from a 32-bit token to an object, with tokens of its own to hand out.
// Thread: any. Whatever changes the map holds the mutex; GetObject reads the index that these
//   publish and so takes none, for it stands in the way of every call of the host.
// Ownership: objects are not owned, and nothing keeps one alive once GetObject has answered.
// Units and range: tokens from 256 upward; they wrap at 2^32.
// Failure: none but std::bad_alloc.
template <class T>
class CATokenMap {
 public:
  CATokenMap() : mNextToken(256), mMutex("CATokenMap Mutex") {}
  CATokenMap(const CATokenMap&) = delete;
  CATokenMap& operator=(const CATokenMap&) = delete;

  // The token of a mapping of its own. A token that has come round to one in use leaves that as it
  // is.
  UInt32 MapObject(T* inObject) {
    CAMutex::Locker theLocker(mMutex);
    const UInt32 theToken = GetNextToken();
    if (mTokenMap.emplace(theToken, inObject).second) mIndex.Set(theToken, inObject);
    return theToken;
  }

  // Takes out the mapping with the lowest token that stands for the object.
  void UnmapObject(T* inObject) {
    CAMutex::Locker theLocker(mMutex);
    for (auto theIterator = mTokenMap.begin(); theIterator != mTokenMap.end(); ++theIterator) {
      if (theIterator->second == inObject) {
        mIndex.Set(theIterator->first, nullptr);
        mTokenMap.erase(theIterator);
        return;
      }
    }
  }

  void AddMapping(UInt32 inToken, T* inObject) {
    CAMutex::Locker theLocker(mMutex);
    mTokenMap[inToken] = inObject;
    mIndex.Set(inToken, inObject);
  }

  // By the token alone: whatever it stands for goes.
  void RemoveMapping(UInt32 inToken, T*) {
    CAMutex::Locker theLocker(mMutex);
    mIndex.Set(inToken, nullptr);
    mTokenMap.erase(inToken);
  }

  T* GetObject(UInt32 inToken) const { return mIndex.Get(inToken); }

  // The token has travelled in a pointer; its low 32 bits count.
  T* GetObject(const void* inToken) const {
    return GetObject(static_cast<UInt32>(reinterpret_cast<uintptr_t>(inToken)));
  }

 private:
  // Runs under the mutex of MapObject.
  UInt32 GetNextToken() CA_REQUIRES(mMutex) { return mNextToken++; }

  std::map<UInt32, T*> mTokenMap CA_GUARDED_BY(mMutex);
  UInt32 mNextToken CA_GUARDED_BY(mMutex);
  mutable CAMutex mMutex;
  CATokenIndex<T> mIndex;
};
