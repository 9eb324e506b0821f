#include "support/persistence/FakeNotifications.cpp"
#include "support/persistence/FakePreferences.cpp"
