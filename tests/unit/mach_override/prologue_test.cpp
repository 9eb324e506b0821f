#include <gtest/gtest.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstring>

#include "library/sys/mac/mach_override/FunctionPrologue.h"
#include "unit/mach_override/CodePages.h"
#include "unit/mach_override/Prologues.h"

// What is measured, kept and corrected, without a patch.

namespace mach_override_tests {
namespace {

struct Eaten {
  bool mPatchable;
  uint64_t mPatch;
  size_t mBytes = 99;
  size_t mInstructions = 99;
  uint8_t mBuffer[32] = {};
  uint8_t mSizes[kMaxEatenInstructions] = {};
};

Eaten Eat(const std::vector<uint8_t>& inBytes, uint64_t inPatch = 0) {
  const Code code(inBytes);
  Eaten eaten{};
  eaten.mPatch = inPatch;
  testing::internal::CaptureStderr();
  eaten.mPatchable =
      eatKnownInstructions(static_cast<const uint8_t*>(code.Pointer()), &eaten.mPatch,
                           &eaten.mBytes, eaten.mBuffer, &eaten.mInstructions, eaten.mSizes);
  testing::internal::GetCapturedStderr();
  return eaten;
}

std::vector<uint8_t> SizesOf(const Eaten& inEaten) {
  return {inEaten.mSizes, inEaten.mSizes + inEaten.mInstructions};
}

TEST(EatKnownInstructions, MeasuresWholeInstructionsUntilTheJumpIsCovered) {
  for (size_t i = 0; i < kPrologueCount; ++i) {
    SCOPED_TRACE(kPrologues[i].mName);
    const std::vector<uint8_t> bytes = Bytes(kPrologues[i].mBytes);
    const Eaten eaten = Eat(bytes);
    EXPECT_TRUE(eaten.mPatchable);
    ASSERT_EQ(eaten.mBytes, kPrologues[i].mMovedBytes);
    const std::vector<uint8_t> sizes = SizesOf(eaten);
    size_t sum = 0;
    for (const uint8_t size : sizes) {
      EXPECT_LT(sum, 5U);
      sum += size;
    }
    EXPECT_EQ(sum, eaten.mBytes);
    std::vector<uint8_t> buffer(bytes.begin(), bytes.begin() + static_cast<long>(eaten.mBytes));
    buffer.resize(32, 0x90);
    EXPECT_EQ(BytesAt(eaten.mBuffer, 32), buffer);
  }
}

TEST(EatKnownInstructions, TellsEachLength) {
  EXPECT_EQ(SizesOf(Eat(Bytes("55 48 89 E5 53 C3 90 90"))), (std::vector<uint8_t>{1, 3, 1}));
  EXPECT_EQ(SizesOf(Eat(Bytes("90 90 90 90 90 C3 90 90"))), (std::vector<uint8_t>{1, 1, 1, 1, 1}));
  EXPECT_EQ(SizesOf(Eat(Bytes("F3 0F 1E FA 55 C3 90 90"))), (std::vector<uint8_t>{4, 1}));
  EXPECT_EQ(SizesOf(Eat(Bytes("48 8D 04 37 66 66 66 66 66 66 2E 0F 1F 84 00 00 00 00 00"))),
            (std::vector<uint8_t>{4, 15}));
}

TEST(EatKnownInstructions, KeepsTheThreeBytesBehindTheJumpAndNothingElse) {
  const Eaten eaten = Eat(Bytes("48 8D 04 37 C3 A1 B2 C3 D4"), 0xFEDCBA9876543210);
  EXPECT_EQ(eaten.mPatch, 0xFEDCBA9876A1B2C3U);
}

TEST(EatKnownInstructions, AnUnknownOneKeepsNothingAndSaysWhatWasMeasuredBefore) {
  const Eaten eaten = Eat(Bytes("55 48 89 E5 06 A1 B2 C3"), 0xFEDCBA9876543210);
  EXPECT_FALSE(eaten.mPatchable);
  EXPECT_EQ(eaten.mPatch, 0xFEDCBA9876543210U);
  EXPECT_EQ(eaten.mBytes, 4U);
  EXPECT_EQ(SizesOf(eaten), (std::vector<uint8_t>{1, 3}));
  std::vector<uint8_t> buffer = Bytes("55 48 89 E5");
  buffer.resize(32, 0x90);
  EXPECT_EQ(BytesAt(eaten.mBuffer, 32), buffer);
}

TEST(EatKnownInstructions, FewerThanEightBytesAreNotMeasured) {
  const Code code = Code::AtPageEnd(Bytes("90 90 90 90 90 90 90"));
  Eaten eaten{};
  eaten.mPatch = 5;
  testing::internal::CaptureStderr();
  EXPECT_FALSE(eatKnownInstructions(static_cast<const uint8_t*>(code.Pointer()), &eaten.mPatch,
                                    &eaten.mBytes, eaten.mBuffer, &eaten.mInstructions,
                                    eaten.mSizes));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(eaten.mBytes, 0U);
  EXPECT_EQ(eaten.mInstructions, 0U);
  EXPECT_EQ(eaten.mPatch, 5U);
  EXPECT_EQ(BytesAt(eaten.mBuffer, 32), std::vector<uint8_t>(32, 0x90));
}

TEST(EatKnownInstructions, WithoutABufferTheMeasuresAreTheSame) {
  const Code code(Bytes("55 48 89 E5 53 C3 90 90"));
  Eaten eaten{};
  EXPECT_TRUE(eatKnownInstructions(static_cast<const uint8_t*>(code.Pointer()), &eaten.mPatch,
                                   &eaten.mBytes, nullptr, &eaten.mInstructions, eaten.mSizes));
  EXPECT_EQ(eaten.mBytes, 5U);
  EXPECT_EQ(eaten.mInstructions, 3U);
  EXPECT_EQ(eaten.mPatch, 0xC39090U);
}

std::vector<uint8_t> Fixed(const char* inBytes, const std::vector<uint8_t>& inSizes,
                           uintptr_t inFunction, uintptr_t inIsland) {
  std::vector<uint8_t> bytes = Bytes(inBytes);
  bytes.resize(32, 0x90);
  fixupInstructions(inFunction, inIsland, bytes.data(), inSizes.size(), inSizes.data());
  const size_t count = Bytes(inBytes).size();
  bytes.resize(count);
  return bytes;
}

TEST(FixupInstructions, CorrectsAJumpByTheWayItWasMoved) {
  EXPECT_EQ(Fixed("E9 10 00 00 00", {5}, 0x5000, 0x3000), Bytes("E9 10 20 00 00"));
  EXPECT_EQ(Fixed("E9 10 00 00 00", {5}, 0x3000, 0x5000), Bytes("E9 10 E0 FF FF"));
  EXPECT_EQ(Fixed("E9 F0 FF FF FF", {5}, 0x3010, 0x3000), Bytes("E9 00 00 00 00"));
}

TEST(FixupInstructions, FindsTheJumpBehindOthers) {
  EXPECT_EQ(Fixed("90 E9 10 00 00 00", {1, 5}, 0x5000, 0x3000), Bytes("90 E9 10 20 00 00"));
  EXPECT_EQ(Fixed("F3 0F 1E FA E9 10 00 00 00", {4, 5}, 0x5000, 0x3000),
            Bytes("F3 0F 1E FA E9 10 20 00 00"));
}

TEST(FixupInstructions, CorrectsNothingElse) {
  for (const char* bytes :
       {"E8 10 00 00 00", "0F 84 10 00 00 00", "48 8D 05 10 00 00 00", "B8 E9 E9 E9 E9",
        "F2 E9 10 00 00 00", "EB 03 90 90 90", "FF 25 10 00 00 00"}) {
    SCOPED_TRACE(bytes);
    const std::vector<uint8_t> sizes = {static_cast<uint8_t>(Bytes(bytes).size())};
    EXPECT_EQ(Fixed(bytes, sizes, 0x5000, 0x3000), Bytes(bytes));
  }
  EXPECT_EQ(Fixed("E9 10 00 00 00", {}, 0x5000, 0x3000), Bytes("E9 10 00 00 00"));
}

IslandRange RangeOf(uintptr_t inFunction, const char* inBytes, std::vector<uint8_t> inSizes) {
  return RangeOfFixup(inFunction, Bytes(inBytes).data(), inSizes.size(), inSizes.data());
}

constexpr uintptr_t kFunction = 0x7F0000000000;

TEST(IslandRanges, TheJumpsDisplacementFitsAtBothEnds) {
  const IslandRange range = RangeOfJumpFrom(kFunction);
  EXPECT_EQ(static_cast<int64_t>(range.mLowest - kFunction - 5), INT32_MIN);
  EXPECT_EQ(static_cast<int64_t>(range.mHighest - kFunction - 5), INT32_MAX);
}

TEST(IslandRanges, TheJumpsRangeEndsWithTheAddresses) {
  EXPECT_EQ(RangeOfJumpFrom(0x1000).mLowest, 0U);
  EXPECT_EQ(RangeOfJumpFrom(~uintptr_t{0}).mHighest, ~uintptr_t{0});
}

TEST(IslandRanges, WithoutAJumpEverywhereWillDo) {
  const IslandRange range = RangeOf(kFunction, "55 48 89 E5 53", {1, 3, 1});
  EXPECT_EQ(range.mLowest, 0U);
  EXPECT_EQ(range.mHighest, ~uintptr_t{0});
}

TEST(IslandRanges, ACorrectedDisplacementFitsAtBothEndsAndNotBeyond) {
  struct Case {
    const char* mBytes;
    std::vector<uint8_t> mSizes;
    int64_t mDisplacement;
  };
  for (const Case& each :
       {Case{"E9 10 00 00 00", {5}, 16}, Case{"90 E9 00 00 00 80", {1, 5}, INT32_MIN},
        Case{"E9 FF FF FF 7F", {5}, INT32_MAX}, Case{"E9 FF FF FF FF", {5}, -1}}) {
    SCOPED_TRACE(each.mBytes);
    const IslandRange range = RangeOf(kFunction, each.mBytes, each.mSizes);
    EXPECT_EQ(each.mDisplacement + static_cast<int64_t>(kFunction - range.mLowest), INT32_MAX);
    EXPECT_EQ(each.mDisplacement + static_cast<int64_t>(kFunction - range.mHighest), INT32_MIN);
  }
}

TEST(FollowImportStubs, WhatIsNoStubIsTheFunction) {
  const Code code(Bytes("FF 24 25 00 00 00 00 C3"));
  EXPECT_EQ(FollowImportStubs(code.Address()), code.Address());
  EXPECT_EQ(FollowImportStubs(0), 0U);
}

}  // namespace
}  // namespace mach_override_tests
