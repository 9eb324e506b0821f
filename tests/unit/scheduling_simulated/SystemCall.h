#pragma once

namespace tembra::test {

// Answers a system call whose second argument is a record, or leaves it to the kernel: false.
bool AnswerSystemCall(long inNumber, void* ioAttributes, long& outResult);

}  // namespace tembra::test
