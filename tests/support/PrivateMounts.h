#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace tembra::test {

// Gives this process, and all that it starts from then on, folders of its own in place of the
// named ones: empty, in memory, gone with the last process that sees them. A place need not exist
// on the machine, nor the folders above it. /tmp is made with mode 1777, every other place with
// 0755. The rest of the machine is as it was, the checkout and the build folder also where they
// lie below such a place, for instance in /tmp.
//
// Before the first thread of the process. As root, or in a user namespace of its own, where there
// is one user, this one. Answers whether it worked; outWhyNot says what the machine refused, and
// the process is then good for nothing that touches those places.
bool MountPrivately(const std::vector<std::string>& inPlaces, std::string& outWhyNot);

// The environment of a program whose tests load the device or start a server: all fixed places that
// the system shares between processes are the tests' own, so that they meet nobody and leave
// nothing. Where that cannot be had, each test is skipped by name.
// testing::AddGlobalTestEnvironment(new PrivateMounts);
class PrivateMounts : public testing::Environment {
 public:
  // inMore are places to be had beside those.
  explicit PrivateMounts(const std::vector<std::string>& inMore = {});
  void SetUp() override;

 private:
  std::vector<std::string> mPlaces;
};

}  // namespace tembra::test
