#include "support/client/FakeHAL.cpp"
#include "support/client/FakeServer.cpp"
#include "support/persistence/FakePreferences.cpp"
#include "support/persistence/FakeSettingsStorage.cpp"
