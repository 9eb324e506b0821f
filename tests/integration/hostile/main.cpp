#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "Hostile.h"
#include "Roles.h"
#include "support/PrivateMounts.h"

namespace tembra::test {
namespace {

PrivateRuntime* sRuntime = nullptr;

int RunRoleHere(int argc, char** argv) {
  const std::string role = argv[2];
  auto number = [&](int inIndex) { return std::strtoull(argv[inIndex], nullptr, 10); };
  if (role == "reach" && argc == 4) return Reach(argv[3]);
  if (role == "connect" && argc == 7) {
    return ConnectAsStranger(argv[3], argv[4], static_cast<unsigned>(number(5)), number(6));
  }
  if (role == "post" && argc == 8) {
    return Post(argv[3], argv[4], static_cast<unsigned>(number(5)), number(6),
                std::string(argv[7]) == "other");
  }
  return 2;
}

}  // namespace

PrivateRuntime& Runtime() {
  return *sRuntime;
}

}  // namespace tembra::test

int main(int argc, char** argv) {
  if (argc > 2 && std::string(argv[1]) == "--role") return tembra::test::RunRoleHere(argc, argv);
  testing::InitGoogleTest(&argc, argv);
  tembra::test::PrivateRuntime runtime;
  tembra::test::sRuntime = &runtime;
  testing::AddGlobalTestEnvironment(new tembra::test::PrivateMounts);
  return RUN_ALL_TESTS();
}
