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

// The same as an environment of all tests of a program: each is skipped by name where it cannot be
// had. testing::AddGlobalTestEnvironment(new PrivateMounts({"/tmp", "/Library"}));
class PrivateMounts : public testing::Environment {
 public:
  explicit PrivateMounts(std::vector<std::string> inPlaces) : mPlaces(std::move(inPlaces)) {}
  void SetUp() override;

 private:
  std::vector<std::string> mPlaces;
};

}  // namespace tembra::test
