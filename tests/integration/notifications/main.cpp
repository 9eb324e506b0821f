#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>

#include "Roles.h"

namespace {

// Users find each other below /tmp: the tests have one of their own, so that they meet nobody else
// and leave nothing there.
class PrivateTmp : public testing::Environment {
 public:
  void SetUp() override {
    const bool made = unshare(CLONE_NEWNS) == 0 &&
                      mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                      mount("tmpfs", "/tmp", "tmpfs", 0, "mode=1777") == 0;
    if (!made) GTEST_SKIP() << "a private /tmp needs root";
  }
};

}  // namespace

int main(int argc, char** argv) {
  if (argc > 2 && std::string(argv[1]) == "--role") {
    return tembra::test::RunRole({argv + 2, argv + argc});
  }
  testing::InitGoogleTest(&argc, argv);
  testing::AddGlobalTestEnvironment(new PrivateTmp);
  return RUN_ALL_TESTS();
}
