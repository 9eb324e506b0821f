#include "support/persistence/FakePreferences.cpp"
