#include "support/persistence/FakeNotifications.cpp"
#include "support/persistence/FakePreferences.cpp"
#include "support/persistence/FakeSettingsFile.cpp"
