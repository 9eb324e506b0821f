#include <gtest/gtest.h>

#include "support/PrivateMounts.h"
#include "support/PrivateRuntime.h"

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  tembra::test::PrivateRuntime runtime;
  // The file lies in a fixed place: the tests have one of their own.
  testing::AddGlobalTestEnvironment(new tembra::test::PrivateMounts({"/Library"}));
  return RUN_ALL_TESTS();
}
