#include "support/client/FakeHAL.cpp"
#include "support/persistence/FakeNotifications.cpp"
#include "support/persistence/FakePreferences.cpp"
#include "support/persistence/FakeSettingsStorage.cpp"
