#pragma once

#include <sys/resource.h>

namespace tembra::test {

// Answers a system call whose second argument is a record, or leaves it to the kernel: false.
bool AnswerSystemCall(long inNumber, void* ioAttributes, long& outResult);
// Answers what a limit is, or leaves it to the kernel: false.
bool AnswerLimit(int inResource, rlimit& outLimit);

// As getrlimit, with that answer.
int GetLimit(__rlimit_resource_t inResource, rlimit* outLimit);

}  // namespace tembra::test
