#include <gtest/gtest.h>

#include "support/PrivateMounts.h"
#include "support/PrivateRuntime.h"

// A disk that is full or read-only is mounted below /tmp.
int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  const tembra::test::PrivateRuntime runtime;
  testing::AddGlobalTestEnvironment(new tembra::test::PrivateMounts({"/tmp"}));
  return RUN_ALL_TESTS();
}
