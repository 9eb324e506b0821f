#include "support/client/FakeHAL.cpp"
#include "support/client/FakeServer.cpp"
#include "support/persistence/FakePreferences.cpp"
