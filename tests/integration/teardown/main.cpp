#include <gtest/gtest.h>

#include "Roles.h"
#include "support/PrivateMounts.h"
#include "support/PrivateRuntime.h"

int main(int argc, char** argv) {
  if (argc > 2 && std::string(argv[1]) == "--role") {
    return tembra::test::RunRole({argv + 2, argv + argc});
  }
  testing::InitGoogleTest(&argc, argv);
  tembra::test::PrivateRuntime runtime;
  // Settings and preferences lie in fixed places, and posts to all users go by way of /tmp.
  testing::AddGlobalTestEnvironment(new tembra::test::PrivateMounts({"/Library", "/tmp"}));
  return RUN_ALL_TESTS();
}
