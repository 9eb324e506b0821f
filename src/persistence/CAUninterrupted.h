#pragma once

#include <errno.h>

// Purpose: makes a call of the system, and makes it again as long as a signal has interrupted it:
//   the host's signals are no reason to lose what is being read or written.
// Thread: any.
// Ownership: none.
// Units and range: the call answers a negative number with errno set if it fails.
// Failure: that of the call, and never EINTR.
template <class Call>
auto CAUninterrupted(const Call& inCall) {
  auto theResult = inCall();
  while (theResult < 0 && errno == EINTR) theResult = inCall();
  return theResult;
}
