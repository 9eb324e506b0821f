#include <gtest/gtest.h>

#include "Roles.h"
#include "support/PrivateMounts.h"

int main(int argc, char** argv) {
  if (argc > 2 && std::string(argv[1]) == "--role") {
    return tembra::test::RunRole({argv + 2, argv + argc});
  }
  testing::InitGoogleTest(&argc, argv);
  // Users find each other below /tmp: the tests have one of their own, so that they meet nobody
  // else and leave nothing there.
  testing::AddGlobalTestEnvironment(new tembra::test::PrivateMounts({"/tmp"}));
  return RUN_ALL_TESTS();
}
