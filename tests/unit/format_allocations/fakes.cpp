#include "support/client/AllocationCounter.cpp"
#include "support/persistence/FakeNotifications.cpp"
#include "support/persistence/FakePreferences.cpp"
