// The installation by the patcher, of which these tests have their own.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

#include "library/sys/mac/mach_override/mach_override.h"
#include "runtime/TMBACLNO.h"

namespace {

struct Patch {
  void* mFunction;
  const void* mReplacement;
  void** mIsland;
  bool operator==(const Patch&) const = default;
};
std::vector<Patch> gPatches;
kern_return_t gStatus = 0;
int gCalls = 0;
int sIsland = 0;

}  // namespace

kern_return_t mach_override_ptr(void* inFunction, const void* inReplacement, void** outIsland) {
  gPatches.push_back({inFunction, inReplacement, outIsland});
  *outIsland = &sIsland;  // also where it fails later
  return gStatus;
}

OSStatus AudioObjectGetPropertyData(AudioObjectID, const AudioObjectPropertyAddress* inAddress,
                                    UInt32, const void*, UInt32*, void*) {
  EXPECT_EQ(inAddress, nullptr);
  ++gCalls;
  return kAudioHardwareIllegalOperationError;
}

OSStatus AudioObjectSetPropertyData(AudioObjectID, const AudioObjectPropertyAddress* inAddress,
                                    UInt32, const void*, UInt32, const void*) {
  EXPECT_EQ(inAddress, nullptr);
  ++gCalls;
  return kAudioHardwareIllegalOperationError;
}

namespace {

class OverridePatched : public testing::Test {
 protected:
  OverridePatched() {
    gPatches.clear();
    gStatus = 0;
    gCalls = 0;
    tmbclno_aogpd_entry = nullptr;
    tmbclno_aospd_entry = nullptr;
  }
};

TEST_F(OverridePatched, PutsTheProxyInTheReadsPlace) {
  EXPECT_EQ(tmbclno_override_aogpd(), 0);
  EXPECT_THAT(gPatches,
              testing::ElementsAre(Patch{reinterpret_cast<void*>(&AudioObjectGetPropertyData),
                                         reinterpret_cast<const void*>(&tmbclno_aogpd_proxy),
                                         reinterpret_cast<void**>(&tmbclno_aogpd_entry)}));
  EXPECT_EQ(reinterpret_cast<void*>(tmbclno_aogpd_entry), &sIsland);
  EXPECT_EQ(tmbclno_aospd_entry, nullptr);
}

TEST_F(OverridePatched, PutsTheProxyInTheWritesPlace) {
  EXPECT_EQ(tmbclno_override_aospd(), 0);
  EXPECT_THAT(gPatches,
              testing::ElementsAre(Patch{reinterpret_cast<void*>(&AudioObjectSetPropertyData),
                                         reinterpret_cast<const void*>(&tmbclno_aospd_proxy),
                                         reinterpret_cast<void**>(&tmbclno_aospd_entry)}));
  EXPECT_EQ(reinterpret_cast<void*>(tmbclno_aospd_entry), &sIsland);
  EXPECT_EQ(tmbclno_aogpd_entry, nullptr);
}

TEST_F(OverridePatched, DoesNothingWhereThatHasBeenDone) {
  EXPECT_EQ(tmbclno_override_aogpd(), 0);
  EXPECT_EQ(tmbclno_override_aospd(), 0);
  gPatches.clear();
  gStatus = 7;
  EXPECT_EQ(tmbclno_override_aogpd(), 0);
  EXPECT_EQ(tmbclno_override_aospd(), 0);
  EXPECT_THAT(gPatches, testing::IsEmpty());
}

TEST_F(OverridePatched, AnswersAFailureAndForgetsTheIsland) {
  gStatus = kMachOverrideErrorCannotOverride;
  EXPECT_EQ(tmbclno_override_aogpd(), kMachOverrideErrorCannotOverride);
  EXPECT_EQ(tmbclno_override_aospd(), kMachOverrideErrorCannotOverride);
  EXPECT_EQ(tmbclno_aogpd_entry, nullptr);
  EXPECT_EQ(tmbclno_aospd_entry, nullptr);
}

TEST_F(OverridePatched, BindsAStubByOneCallThatDoesNothing) {
  tmbclno_override_aogpd();
  tmbclno_override_aospd();
  EXPECT_EQ(gCalls, 2);
}

}  // namespace
