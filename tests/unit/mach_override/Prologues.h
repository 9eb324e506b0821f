#pragma once

#include <cstddef>

namespace mach_override_tests {

enum PatchedHow {
  kBothWays,                 // the replacement and the function as it was both run
  kBothWaysWithWideVectors,  // on a processor that has them
  kOnlyTheReplacement,       // the beginning depends on where it lies: its reentry island is wrong
};

// A whole function of two longs.
struct Prologue {
  const char* mName;
  const char* mInstructions;  // that the patch moves
  const char* mBytes;         // of the whole function
  size_t mMovedBytes;
  long mAnswer;  // for 7 and 5
  PatchedHow mHow;
};

extern const Prologue kPrologues[];
extern const size_t kPrologueCount;

// What may not be patched.
struct Refused {
  const char* mName;
  const char* mBytes;
};

extern const Refused kRefused[];
extern const size_t kRefusedCount;

}  // namespace mach_override_tests
