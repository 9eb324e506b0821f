#pragma once

#include <cstddef>
#include <cstdlib>

// malloc and calloc that throw std::bad_alloc where memory runs out; CA_calloc also where the
// product of its arguments overflows.
void* CA_malloc(size_t inSize);
void* CA_calloc(size_t inCount, size_t inSize);

// Purpose: a block from malloc that is freed at the end of the scope.
// Thread: one at a time.
// Ownership: takes over the block that it is given.
// Units and range: the constructor with a count makes room for that many T, zeroed if asked.
// Failure: that constructor throws std::bad_alloc.
template <class T>
class CAAutoFree {
 public:
  CAAutoFree() noexcept : mBlock(nullptr) {}
  explicit CAAutoFree(T* inBlock) noexcept : mBlock(inBlock) {}
  CAAutoFree(size_t inCount, bool inClear)
      : mBlock(static_cast<T*>(inClear || inCount > static_cast<size_t>(-1) / sizeof(T)
                                   ? CA_calloc(inCount, sizeof(T))
                                   : CA_malloc(inCount * sizeof(T)))) {}
  ~CAAutoFree() { free(); }
  CAAutoFree(const CAAutoFree&) = delete;
  CAAutoFree& operator=(const CAAutoFree&) = delete;

  void set(T* inBlock) noexcept {
    if (inBlock != mBlock) free();
    mBlock = inBlock;
  }
  void free() noexcept {
    std::free(mBlock);
    mBlock = nullptr;
  }
  T* get() const noexcept { return mBlock; }
  T* operator()() const noexcept { return mBlock; }
  T* operator->() const noexcept { return mBlock; }
  T& operator*() const noexcept { return *mBlock; }
  operator T*() const noexcept { return mBlock; }

 private:
  T* mBlock;
};

// Purpose: an array from new[] that is deleted at the end of the scope.
// Thread: one at a time.
// Ownership: takes over the array that it is given.
// Units and range: the constructor with a count makes an array of that many T, each zero.
// Failure: that constructor throws std::bad_alloc.
template <class T>
class CAAutoArrayDelete {
 public:
  CAAutoArrayDelete() noexcept : mArray(nullptr) {}
  explicit CAAutoArrayDelete(T* inArray) noexcept : mArray(inArray) {}
  explicit CAAutoArrayDelete(size_t inCount) : mArray(new T[inCount]()) {}
  ~CAAutoArrayDelete() { free(); }
  CAAutoArrayDelete(const CAAutoArrayDelete&) = delete;
  CAAutoArrayDelete& operator=(const CAAutoArrayDelete&) = delete;

  void set(T* inArray) noexcept {
    if (inArray != mArray) free();
    mArray = inArray;
  }
  void free() noexcept {
    delete[] mArray;
    mArray = nullptr;
  }
  T* get() const noexcept { return mArray; }
  T* operator()() const noexcept { return mArray; }
  T& operator[](size_t inIndex) const noexcept { return mArray[inIndex]; }
  operator T*() const noexcept { return mArray; }

 private:
  T* mArray;
};
