#pragma once

#include <sys/types.h>

#include <functional>

namespace tembra::test {

constexpr uid_t kNobody = 65534;  // nobody, on most systems
constexpr int kNoOtherUser = 254;

// This process becomes that user for good, in the group of the same number and no other, and may
// still look at itself in /proc. False where it may not: it takes root and a machine with more than
// one user.
bool BecomeUser(uid_t inUser);

// Runs the body in a child process that has become that user, and ends it after a minute. What the
// body answers, from 0 to 253; kNoOtherUser where it may not be that user; 1000 and the signal if
// one has ended it.
int RunAsUser(uid_t inUser, const std::function<int()>& inBody);

}  // namespace tembra::test
