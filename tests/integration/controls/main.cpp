#include <gtest/gtest.h>

#include "support/PrivateMounts.h"
#include "support/PrivateRuntime.h"

// The device saves what its controls stand at, and who owns it is kept, in places that all
// processes of the machine share.
int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  const tembra::test::PrivateRuntime runtime;
  testing::AddGlobalTestEnvironment(
      new tembra::test::PrivateMounts({"/tmp", "/Library", "/var/run", "/var/db"}));
  return RUN_ALL_TESTS();
}
