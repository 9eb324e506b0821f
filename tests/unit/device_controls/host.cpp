#include "support/client/FakeHAL.cpp"
