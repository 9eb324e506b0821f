#pragma once

#include <sys/resource.h>

namespace tembra::test {

// Answers a system call whose second argument is a record, or leaves it to the kernel: false.
bool AnswerSystemCall(long inNumber, void* ioAttributes, long& outResult);
// Answers what a limit is, or leaves it to the kernel: false.
bool AnswerLimit(int inResource, rlimit& outLimit);

}  // namespace tembra::test
