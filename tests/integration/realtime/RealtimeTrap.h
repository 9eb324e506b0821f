#pragma once

#include <cstdint>
#include <string>

namespace tembra::test {

// Notes what a real-time thread must not do. The executable that holds it supplies its own forms of
// the calls that allocate, lock, block, open files or log; each goes on to the real one, and is
// noted if the calling thread is armed. In sanitizer builds, whose runtimes own those calls, only
// allocations are seen.
namespace realtime_trap {

// Arms and disarms the calling thread.
void Arm();
void Disarm();

// While set, a thread that calls this once is armed from each return of
// pthread_cond_timedwait_relative_np to its next call: from wake-up to sleep.
void FollowThisThread();

// Whether all acts can be seen, or allocations alone.
bool SeesEverything();

struct Findings {
  std::uint64_t allocations = 0;
  std::uint64_t locks = 0;
  std::uint64_t mutexes = 0;   // different ones among them, as far as 8
  std::uint64_t blocking = 0;  // sleeping, waiting, files, logging
  std::uint64_t sends = 0;     // non-blocking ones, which are allowed
  std::uint64_t cycles = 0;    // wake-ups of followed threads
  std::string first;           // the first forbidden act
};
Findings Collect();
void Reset();

}  // namespace realtime_trap

}  // namespace tembra::test
