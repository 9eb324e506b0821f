// The library keeps its internals to itself, so the tests compile their own copy.
#include "mach/ThreadScheduling.cpp"
