#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cstring>

#include "library/sys/mac/mach_override/BranchIsland.h"
#include "library/sys/mac/mach_override/PatchStore.h"
#include "library/sys/mac/mach_override/mach_override.h"
#include "unit/mach_override/CodePages.h"

namespace mach_override_tests {
namespace {

std::vector<uint8_t> Nops(size_t inCount) {
  return std::vector<uint8_t>(inCount, 0x90);
}

std::vector<uint8_t> operator+(std::vector<uint8_t> inOne, const std::vector<uint8_t>& inOther) {
  inOne.insert(inOne.end(), inOther.begin(), inOther.end());
  return inOne;
}

class Island : public testing::Test {
 protected:
  Island() {
    EXPECT_EQ(allocateBranchIsland(&mIsland, true, reinterpret_cast<void*>(&Replacement)), 0);
  }
  ~Island() override { EXPECT_EQ(freeBranchIsland(mIsland), 0); }
  BranchIsland* mIsland = nullptr;
};

TEST_F(Island, TheTemplateIsNopsAndAJumpThroughNull) {
  EXPECT_EQ(std::vector<uint8_t>(kIslandTemplate.begin(), kIslandTemplate.end()),
            Nops(32) + Bytes("FF 25 00 00 00 00 00 00 00 00 00 00 00 00"));
}

TEST_F(Island, WithoutInstructionsItIsTheTemplateWithItsTarget) {
  mIsland->mUnused[0] = 0x77;
  const uint32_t flag = mIsland->mIsPage;
  EXPECT_EQ(setBranchIslandTarget_i386(
                mIsland, reinterpret_cast<const void*>(uintptr_t{0x1122334455667788}), nullptr),
            0);
  EXPECT_EQ(BytesAt(mIsland, 46), Nops(32) + Bytes("FF 25 00 00 00 00 88 77 66 55 44 33 22 11"));
  EXPECT_EQ(mIsland->mUnused[0], 0x77);
  EXPECT_EQ(mIsland->mIsPage, flag);
}

TEST_F(Island, InstructionsFillItsWholeArea) {
  std::vector<uint8_t> instructions;
  for (uint8_t i = 0; i < 32; ++i) instructions.push_back(i);
  EXPECT_EQ(setBranchIslandTarget_i386(mIsland, mIsland, instructions.data()), 0);
  EXPECT_EQ(BytesAt(mIsland, 32), instructions);
  EXPECT_EQ(BytesAt(mIsland->mJump, 6), Bytes("FF 25 00 00 00 00"));
  EXPECT_EQ(uint64_t{mIsland->mTarget}, reinterpret_cast<uint64_t>(mIsland));
  // What was there before is gone when it is set again.
  EXPECT_EQ(setBranchIslandTarget_i386(mIsland, mIsland, nullptr), 0);
  EXPECT_EQ(BytesAt(mIsland, 32), Nops(32));
}

TEST_F(Island, JumpsToItsTarget) {
  EXPECT_EQ(
      setBranchIslandTarget_i386(mIsland, reinterpret_cast<const void*>(&Replacement), nullptr), 0);
  ASSERT_EQ(makeIslandExecutable(mIsland), 0);
  EXPECT_EQ(CallAt(mIsland), kReplaced);
  EXPECT_EQ(ProtectionAt(reinterpret_cast<uintptr_t>(mIsland)), "r-x");
}

TEST_F(Island, RunsItsInstructionsFirst) {
  std::vector<uint8_t> instructions = Bytes("48 FF C7");  // inc rdi
  instructions.resize(32, 0x90);
  setBranchIslandTarget_i386(mIsland, reinterpret_cast<const void*>(&Replacement),
                             instructions.data());
  ASSERT_EQ(makeIslandExecutable(mIsland), 0);
  EXPECT_EQ(CallAt(mIsland), kReplaced + 10);
}

TEST_F(Island, LockedMemoryCanBeMadeExecutable) {
  if (mlock(mIsland, kIslandPageBytes) != 0) GTEST_SKIP() << "no memory may be locked here";
  EXPECT_EQ(
      setBranchIslandTarget_i386(mIsland, reinterpret_cast<const void*>(&Replacement), nullptr), 0);
  EXPECT_EQ(makeIslandExecutable(mIsland), 0);
  EXPECT_EQ(CallAt(mIsland), kReplaced);
}

TEST(MakeIslandExecutable, TakesTheWholePageThatHoldsTheIsland) {
  const Pages pages(2, PROT_READ | PROT_WRITE);
  EXPECT_EQ(makeIslandExecutable(reinterpret_cast<BranchIsland*>(pages.Begin() + 1000)), 0);
  EXPECT_EQ(ProtectionAt(pages.Begin()), "r-x");
  EXPECT_EQ(ProtectionAt(pages.Begin() + kPage), "rw-");
}

TEST(MakeIslandExecutable, WhatIsNotMappedCannotBe) {
  EXPECT_EQ(makeIslandExecutable(reinterpret_cast<BranchIsland*>(LonelyPlace())),
            kMachOverrideErrorCannotOverride);
}

TEST(AtomicMove, StoresEightBytesWhereverTheyLie) {
  for (size_t offset = 0; offset < 9; ++offset) {
    std::vector<uint8_t> bytes(24, 0xAA);
    atomic_mov64(bytes.data() + offset, 0x0807060504030201);
    std::vector<uint8_t> expected(24, 0xAA);
    for (size_t i = 0; i < 8; ++i) expected[offset + i] = static_cast<uint8_t>(i + 1);
    EXPECT_EQ(bytes, expected) << offset;
  }
}

}  // namespace
}  // namespace mach_override_tests
