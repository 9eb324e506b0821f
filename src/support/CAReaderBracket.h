#pragma once

#include <sched.h>

#include <atomic>
#include <cstdint>

// Lets one thread use an object through an atomic pointer without a lock while another takes the
// object away.
//
// The reader enters, loads the pointer, uses what it found and leaves. The other side first stores
// another value into the pointer, then waits for the reader, and then owns the old object alone.
// Pointer loads and stores take part in one order with the bracket's own: use the default
// (sequentially consistent) order for them.
//
// Thread: Enter and Leave belong to one thread at a time and never wait; WaitForReader may be
// called
//   by any thread outside the bracket and yields until a reader that was inside has left.
// Ownership: none.
// Units and range: the count is odd inside; it wraps after 2^64 changes.
// Failure: none.
class CAReaderBracket {
 public:
  CAReaderBracket() = default;
  CAReaderBracket(const CAReaderBracket&) = delete;
  CAReaderBracket& operator=(const CAReaderBracket&) = delete;

  void Enter() noexcept { mCount.fetch_add(1); }
  void Leave() noexcept { mCount.fetch_add(1); }

  bool HasReader() const noexcept { return (mCount.load() & 1) != 0; }
  void WaitForReader() const noexcept {
    const uint64_t count = mCount.load();
    if ((count & 1) == 0) return;
    while (mCount.load() == count) sched_yield();
  }

  // Enters for the life of a scope.
  class Reader {
   public:
    explicit Reader(CAReaderBracket& inBracket) noexcept : mBracket(inBracket) { mBracket.Enter(); }
    ~Reader() { mBracket.Leave(); }
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

   private:
    CAReaderBracket& mBracket;
  };

 private:
  std::atomic<uint64_t> mCount{0};
};
