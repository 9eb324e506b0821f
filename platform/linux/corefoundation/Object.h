#pragma once

#include <CoreFoundation/CFBase.h>

#include <atomic>
#include <cstddef>
#include <exception>
#include <new>
#include <utility>

namespace tembra::cf {

// The type numbers of all objects; the run loop, port and notification services use theirs too.
enum TypeID : CFTypeID {
  kTypeNone = 0,
  kTypeAllocator = 2,
  kTypeString = 7,
  kTypeNull = 16,
  kTypeDictionary = 18,
  kTypeArray = 19,
  kTypeData = 20,
  kTypeBoolean = 21,
  kTypeNumber = 22,
  kTypeError = 27,
  kTypeURL = 29,
  kTypeUUID = 38,
  kTypeDate = 42,
  kTypeReadStream = 44,
  kTypeWriteStream = 45,
  kTypeBundle = 50,
  kTypePlugInInstance = 51,
  kTypeRunLoop = 60,
  kTypeRunLoopSource = 61,
  kTypeRunLoopTimer = 62,
  kTypeMessagePort = 63,
  kTypeNotificationCenter = 64,
};

// The base of every CoreFoundation object: a CFTypeRef always points to one.
//
// Thread: counting is atomic; all else is up to the derived class.
// Ownership: made by Create() with one reference; the last Release() destroys it and gives its
// memory back to the allocator that it came from, which it keeps alive until then.
// An immortal object is never counted and never destroyed.
class Object {
 public:
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;
  virtual ~Object() = default;

  virtual CFTypeID GetTypeID() const = 0;
  // The other object is of the same type and is not this one.
  virtual bool IsEqual(const Object& inOther) const {
    (void)inOther;
    return false;
  }
  virtual CFHashCode Hash() const { return reinterpret_cast<CFHashCode>(this) >> 4; }
  // A new reference, or null for the plain "<type address>".
  virtual CFStringRef CopyDescription() const { return nullptr; }

  void Retain() const {
    if (!mImmortal) mCount.fetch_add(1, std::memory_order_relaxed);
  }
  // For tables of weak references: false if the last reference has gone already.
  bool TryRetain() const {
    if (mImmortal) return true;
    CFIndex count = mCount.load(std::memory_order_relaxed);
    while (count > 0) {
      if (mCount.compare_exchange_weak(count, count + 1, std::memory_order_relaxed)) return true;
    }
    return false;
  }
  void Release() const {
    if (!mImmortal && mCount.fetch_sub(1, std::memory_order_acq_rel) == 1) {
      const_cast<Object*>(this)->Destroy();
    }
  }
  CFIndex RetainCount() const {
    return mImmortal ? LONG_MAX : mCount.load(std::memory_order_relaxed);
  }
  // Only before other threads know the object.
  void MakeImmortal() { mImmortal = true; }
  bool IsImmortal() const { return mImmortal; }
  // Null for the default allocator.
  CFAllocatorRef GetAllocator() const { return mAllocator; }

 protected:
  constexpr explicit Object(bool inImmortal = false) : mImmortal(inImmortal) {}

 private:
  template <class T, class... Args>
  friend T* CreateWithExtra(CFAllocatorRef inAllocator, size_t inExtraBytes, Args&&... inArgs);

  void Destroy();
  // These keep the template free of the allocator's definition.
  static void* AllocateStorage(CFAllocatorRef inAllocator, size_t inBytes);
  static void FreeStorage(CFAllocatorRef inAllocator, void* inStorage);
  static CFAllocatorRef RetainAllocator(CFAllocatorRef inAllocator);

  mutable std::atomic<CFIndex> mCount{1};
  CFAllocatorRef mAllocator = nullptr;
  bool mImmortal;
};

// A new T with inExtraBytes of raw storage behind it, all one block of inAllocator (null: the
// default one). Null when memory runs out; what else T's constructor throws is passed on.
template <class T, class... Args>
T* CreateWithExtra(CFAllocatorRef inAllocator, size_t inExtraBytes, Args&&... inArgs) {
  static_assert(alignof(T) <= alignof(std::max_align_t));
  void* storage = Object::AllocateStorage(inAllocator, sizeof(T) + inExtraBytes);
  if (!storage) return nullptr;
  T* object;
  try {
    object = new (storage) T(std::forward<Args>(inArgs)...);
  } catch (const std::bad_alloc&) {
    Object::FreeStorage(inAllocator, storage);
    return nullptr;
  } catch (...) {
    Object::FreeStorage(inAllocator, storage);
    throw;
  }
  static_cast<Object*>(object)->mAllocator = Object::RetainAllocator(inAllocator);
  return object;
}

// The only way to make an object: Release() gives the storage back the same way.
template <class T, class... Args>
T* Create(CFAllocatorRef inAllocator, Args&&... inArgs) {
  return CreateWithExtra<T>(inAllocator, 0, std::forward<Args>(inArgs)...);
}

inline const Object* AsObject(CFTypeRef inRef) {
  return static_cast<const Object*>(inRef);
}

inline bool IsType(CFTypeRef inRef, CFTypeID inType) {
  return inRef && AsObject(inRef)->GetTypeID() == inType;
}

// Runs a body at the border of the library: out of memory becomes a zero result.
template <class Body>
auto Guarded(Body&& inBody) noexcept -> decltype(inBody()) {
  try {
    return inBody();
  } catch (const std::exception&) {
    return decltype(inBody())();
  }
}

// Storage for an object that lives as long as the process, exit handlers included.
template <class T>
union Immortal {
  template <class... Args>
  constexpr explicit Immortal(Args&&... inArgs) : mValue(std::forward<Args>(inArgs)...) {}
  constexpr ~Immortal() {}
  T mValue;
};

// A scoped reference: releases what it holds.
template <class Ref>
class Owned {
 public:
  Owned() = default;
  explicit Owned(Ref inRef) : mRef(inRef) {}
  Owned(Owned&& inOther) noexcept : mRef(inOther.Detach()) {}
  Owned& operator=(Owned&& inOther) noexcept {
    Reset(inOther.Detach());
    return *this;
  }
  ~Owned() { Reset(nullptr); }

  static Owned Retained(Ref inRef) {
    if (inRef) CFRetain(inRef);
    return Owned(inRef);
  }
  void Reset(Ref inRef) {
    if (Ref old = std::exchange(mRef, inRef)) CFRelease(old);
  }
  Ref Detach() { return std::exchange(mRef, nullptr); }
  Ref Get() const { return mRef; }
  operator Ref() const { return mRef; }

 private:
  Ref mRef = nullptr;
};

}  // namespace tembra::cf
