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
  testing::AddGlobalTestEnvironment(new tembra::test::PrivateMounts);
  return RUN_ALL_TESTS();
}
