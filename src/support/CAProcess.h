#pragma once

#include <sys/types.h>

// Purpose: what is to be known of processes by their ids.
// Thread: any.
// Ownership: none.
// Units and range: process ids; those of processes are above 0.
// Failure: none.
class CAProcess {
 public:
  static pid_t GetPID();
  // A process of another user counts; 0 and below are none.
  static bool ProcessExists(pid_t inPID);
};
