#include <gtest/gtest.h>

#include "support/PrivateMounts.h"
#include "support/PrivateRuntime.h"

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  tembra::test::PrivateRuntime runtime;
  testing::AddGlobalTestEnvironment(new tembra::test::PrivateMounts);
  return RUN_ALL_TESTS();
}
