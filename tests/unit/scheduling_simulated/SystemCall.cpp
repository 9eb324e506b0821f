#include "SystemCall.h"

#include <dlfcn.h>

// The C library declares syscall with any number of arguments. There is no telling how many a
// caller gave, so this one has another name to the compiler and takes all that the registers hold.
extern "C" __attribute__((visibility("default"))) long SimulatedSystemCall(
    long inNumber, long inFirst, long inSecond, long inThird, long inFourth, long inFifth,
    long inSixth) __asm__("syscall");

long SimulatedSystemCall(long inNumber, long inFirst, long inSecond, long inThird, long inFourth,
                         long inFifth, long inSixth) {
  long result = 0;
  if (tembra::test::AnswerSystemCall(inNumber, reinterpret_cast<void*>(inSecond), result)) {
    return result;
  }
  using Function = long (*)(long, long, long, long, long, long, long);
  const auto real = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "syscall"));
  return real(inNumber, inFirst, inSecond, inThird, inFourth, inFifth, inSixth);
}

int tembra::test::GetLimit(__rlimit_resource_t inResource, rlimit* outLimit) {
  if (AnswerLimit(static_cast<int>(inResource), *outLimit)) return 0;
  return getrlimit(inResource, outLimit);
}
