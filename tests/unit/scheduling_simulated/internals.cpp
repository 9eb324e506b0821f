// The library keeps its internals to itself, so the tests compile their own copy. It alone is given
// other limits: a sanitizer asks for the program's before anything of it is ready to answer.
#include <sys/resource.h>

#include "SystemCall.h"

#define getrlimit tembra::test::GetLimit
#include "mach/ThreadScheduling.cpp"
