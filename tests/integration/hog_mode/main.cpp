#include <gtest/gtest.h>

#include "support/PrivateMounts.h"
#include "support/PrivateRuntime.h"

// The file of owners lies in a fixed place, and posts to all users go by way of /tmp as well.
int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  const tembra::test::PrivateRuntime runtime;
  testing::AddGlobalTestEnvironment(
      new tembra::test::PrivateMounts({"/tmp", "/Library", "/var/run", "/var/db"}));
  return RUN_ALL_TESTS();
}
