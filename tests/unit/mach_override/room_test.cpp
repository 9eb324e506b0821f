#include <gtest/gtest.h>
#include <sys/mman.h>

#include <memory>
#include <vector>

#include "library/sys/mac/mach_override/BranchIsland.h"
#include "library/sys/mac/mach_override/mach_override.h"
#include "unit/mach_override/CodePages.h"

// Where islands land, and what becomes of a function with no room near it. The functions stand far
// from everything else, and the tests fill what lies around them.

namespace mach_override_tests {
namespace {

constexpr uintptr_t kReach = 0x7FFFFFFF;
constexpr uintptr_t kGiB = uintptr_t{1} << 30;
const char* const kSum = "48 8D 04 37 C3 90 90 90";

uintptr_t LowestFor(uintptr_t inNearby) {
  return ((inNearby - kReach) & ~(kPage - 1)) + kPage;
}

// Takes all addresses from inBegin up to inEnd.
std::unique_ptr<Pages> Fill(uintptr_t inBegin, uintptr_t inEnd, int inProtection = PROT_NONE) {
  return std::make_unique<Pages>((inEnd - inBegin) / kPage, inProtection, inBegin);
}

struct Outcome {
  kern_return_t mResult = 0;
  void* mReentry = nullptr;
  int64_t mAttempts = 0;
  std::string mLines;
};

Outcome Override(const Code& inCode) {
  Outcome outcome;
  const int64_t before = mach_override_ptr_allocation_attempts();
  testing::internal::CaptureStderr();
  outcome.mResult = mach_override_ptr(inCode.Pointer(), reinterpret_cast<const void*>(&Replacement),
                                      &outcome.mReentry);
  outcome.mLines = testing::internal::GetCapturedStderr();
  outcome.mAttempts = mach_override_ptr_allocation_attempts() - before;
  return outcome;
}

uintptr_t EscapeOf(const Code& inCode) {
  const std::vector<uint8_t> bytes = inCode.Now(5);
  const uint32_t displacement =
      bytes[1] | uint32_t{bytes[2]} << 8 | uint32_t{bytes[3]} << 16 | uint32_t{bytes[4]} << 24;
  return inCode.Address() + 5 + static_cast<uintptr_t>(int64_t{static_cast<int32_t>(displacement)});
}

uintptr_t AddressOf(const void* inPointer) {
  return reinterpret_cast<uintptr_t>(inPointer);
}

TEST(Islands, TheLowestPageWithinReachIsTaken) {
  const Code code(Bytes(kSum), 0x123, LonelyPlace());
  const Outcome outcome = Override(code);
  ASSERT_EQ(outcome.mResult, 0);
  const uintptr_t escape = EscapeOf(code);
  EXPECT_EQ(escape, LowestFor(code.Address()));
  EXPECT_EQ(AddressOf(outcome.mReentry), LowestFor(escape));
  EXPECT_EQ(outcome.mAttempts, 2);
  EXPECT_EQ(code.Call(), kReplaced);
  EXPECT_EQ(CallAt(outcome.mReentry), 12);
}

TEST(Islands, AttemptsGrowWithEachPageTriedAndRegionsAreSteppedOver) {
  const Code code(Bytes(kSum), 0, LonelyPlace());
  const uintptr_t lowest = LowestFor(code.Address());
  // Three regions beside each other; the lowest begins below the search.
  const auto first = Fill(lowest - 8 * kPage, lowest + kPage);
  const auto second = Fill(lowest + kPage, lowest + 4 * kPage, PROT_READ);
  const auto third = Fill(lowest + 4 * kPage, lowest + 5 * kPage, PROT_READ | PROT_WRITE);
  const Outcome outcome = Override(code);
  ASSERT_EQ(outcome.mResult, 0);
  EXPECT_EQ(EscapeOf(code), lowest + 5 * kPage);
  EXPECT_EQ(outcome.mAttempts, 4 + 1);
}

TEST(Islands, NeverReplaceWhatIsMapped) {
  const Code code(Bytes(kSum), 0, LonelyPlace());
  const uintptr_t lowest = LowestFor(code.Address());
  const auto mine = Fill(lowest, lowest + kPage, PROT_READ | PROT_WRITE);
  memset(reinterpret_cast<void*>(lowest), 0x5A, kPage);
  const Outcome outcome = Override(code);
  ASSERT_EQ(outcome.mResult, 0);
  EXPECT_EQ(BytesAt(reinterpret_cast<void*>(lowest), kPage), std::vector<uint8_t>(kPage, 0x5A));
}

TEST(Islands, NoRoomNearTheFunction) {
  const Code code(Bytes(kSum), 0, LonelyPlace());
  const auto below = Fill(code.Address() - 2 * kGiB, code.Address());
  const auto above = Fill(code.Address() + 2 * kPage, code.Address() + 2 * kGiB, PROT_READ);
  const Outcome outcome = Override(code);
  EXPECT_EQ(outcome.mResult, KERN_NO_SPACE);
  EXPECT_EQ(outcome.mLines, ErrorLines("3", {258, 272, 277}));
  EXPECT_EQ(outcome.mReentry, nullptr);
  EXPECT_EQ(outcome.mAttempts, 4);  // below, the code, the page behind it, above
  EXPECT_EQ(code.Now(8), Bytes(kSum));
  EXPECT_EQ(code.Call(), 12);
  // What made it writable is not undone.
  EXPECT_EQ(ProtectionAt(code.Address()), "rwx");
}

TEST(Islands, TheHighestPageWithinReachIsTakenInTheEnd) {
  const Code code(Bytes(kSum), 0, LonelyPlace());
  const uintptr_t highest = code.Address() + kReach - (kPage - 1);
  const auto below = Fill(code.Address() - 2 * kGiB, code.Address());
  const auto above = Fill(code.Address() + 2 * kPage, highest);
  const Outcome outcome = Override(code);
  ASSERT_EQ(outcome.mResult, 0);
  EXPECT_EQ(EscapeOf(code), highest);
  EXPECT_EQ(code.Call(), kReplaced);
  EXPECT_EQ(CallAt(outcome.mReentry), 12);
}

TEST(Islands, NoRoomForTheReentryIslandGivesTheOtherBack) {
  const Code code(Bytes(kSum), 0, LonelyPlace());
  const uintptr_t escape = LowestFor(code.Address());
  const auto below = Fill(escape - 2 * kGiB, escape);
  const auto between = Fill(escape + kPage, code.Address());
  const auto above = Fill(code.Address() + 2 * kPage, code.Address() + 2 * kGiB);
  const Outcome outcome = Override(code);
  EXPECT_EQ(outcome.mResult, KERN_NO_SPACE);
  EXPECT_EQ(outcome.mLines, "");
  EXPECT_EQ(outcome.mReentry, nullptr);
  EXPECT_EQ(ProtectionAt(escape), "");
  EXPECT_EQ(code.Now(8), Bytes(kSum));
}

// The pages at the lower end from which the jump would not fit.

TEST(Islands, APageThatTheJumpCannotReachIsPassedOver) {
  for (const size_t offset :
       {size_t{0xFFB}, size_t{0xFFC}, size_t{0xFFD}, size_t{0xFFE}, size_t{0xFFF}, size_t{0}}) {
    SCOPED_TRACE(offset);
    const Code code(Bytes(kSum), offset, LonelyPlace());
    const Outcome outcome = Override(code);
    ASSERT_EQ(outcome.mResult, 0);
    const bool outOfReach = offset >= 0xFFC && offset <= 0xFFE;
    EXPECT_EQ(EscapeOf(code), LowestFor(code.Address()) + (outOfReach ? kPage : 0));
    EXPECT_EQ(outcome.mAttempts, 2);
    EXPECT_EQ(code.Call(), kReplaced);
    EXPECT_EQ(CallAt(outcome.mReentry), 12);
  }
}

// A jump that is moved must reach its target from the reentry island, which may lie 4 GiB away.

const char* const kJump = "E9 03 00 00 00 00 00 00 48 8D 04 37 C3";

TEST(Islands, AJumpIsMovedToWhereItsTargetIsWithinReach) {
  const Code code(Bytes(kJump), 0, LonelyPlace());
  const Outcome outcome = Override(code);
  ASSERT_EQ(outcome.mResult, 0);
  // The lowest from which the target is within reach is the other island's.
  const uintptr_t escape = EscapeOf(code);
  EXPECT_EQ(escape, LowestFor(code.Address()));
  EXPECT_EQ(escape, (code.Address() + 3 - kReach + kPage - 1) & ~(kPage - 1));
  EXPECT_EQ(AddressOf(outcome.mReentry), escape + kPage);
  EXPECT_EQ(outcome.mAttempts, 1 + 2);
  EXPECT_EQ(CallAt(outcome.mReentry), 12);
}

TEST(Islands, AJumpWithNoRoomWithinReachOfItsTargetIsRefused) {
  const Code code(Bytes(kJump), 0, LonelyPlace());
  const uintptr_t escape = LowestFor(code.Address());
  const auto between = Fill(escape + kPage, code.Address());
  const auto above = Fill(code.Address() + 2 * kPage, code.Address() + 2 * kGiB);
  const Outcome outcome = Override(code);
  EXPECT_EQ(outcome.mResult, kMachOverrideErrorCannotOverride);
  EXPECT_EQ(outcome.mLines, "");
  EXPECT_EQ(code.Now(13), Bytes(kJump));
  EXPECT_EQ(code.Call(), 12);
  EXPECT_EQ(ProtectionAt(escape), "");
}

TEST(Islands, AJumpFarDownIsMovedBelow) {
  // To a function 1.9 GiB below: what fits lies lower still.
  const uintptr_t place = LonelyPlace();
  const uintptr_t target = place - 19 * kGiB / 10 / kPage * kPage;
  const Code function(Bytes(kSum), 0, target);
  std::vector<uint8_t> jump = {0xE9};
  const auto displacement = static_cast<uint32_t>(target - place - 5);
  for (int i = 0; i < 4; ++i) jump.push_back(static_cast<uint8_t>(displacement >> (8 * i)));
  jump.resize(8, 0x90);
  const Code code(jump, 0, place);
  const Outcome outcome = Override(code);
  ASSERT_EQ(outcome.mResult, 0);
  EXPECT_EQ(code.Call(), kReplaced);
  EXPECT_EQ(CallAt(outcome.mReentry), 12);
}

// One island at a time

TEST(AllocateBranchIsland, APageHasItsFlagAndIsWritable) {
  const uintptr_t place = LonelyPlace();
  BranchIsland* island = nullptr;
  ASSERT_EQ(allocateBranchIsland(&island, true, reinterpret_cast<void*>(place)), 0);
  EXPECT_EQ(AddressOf(island), LowestFor(place));
  EXPECT_NE(island->mIsPage, 0U);
  EXPECT_EQ(ProtectionAt(AddressOf(island)), "rw-");
  EXPECT_EQ(freeBranchIsland(island), 0);
  EXPECT_EQ(ProtectionAt(LowestFor(place)), "");
}

TEST(AllocateBranchIsland, ABlockOfTheHeapCountsAsOneAttempt) {
  const int64_t before = mach_override_ptr_allocation_attempts();
  BranchIsland* island = nullptr;
  ASSERT_EQ(allocateBranchIsland(&island, false, nullptr), 0);
  EXPECT_EQ(mach_override_ptr_allocation_attempts() - before, 1);
  EXPECT_EQ(island->mIsPage, 0U);
  EXPECT_EQ(setBranchIslandTarget_i386(island, &island, nullptr), 0);
  EXPECT_EQ(island->mIsPage, 0U);
  EXPECT_EQ(freeBranchIsland(island), 0);
}

TEST(AllocateBranchIsland, PagesAboveTheRangeArePassedOver) {
  const uintptr_t place = LonelyPlace();
  const auto filled = Fill(LowestFor(place), LowestFor(place) + 4 * kPage);
  BranchIsland* island = nullptr;
  const IslandRange range = {0, LowestFor(place) + 4 * kPage - 1};
  EXPECT_EQ(allocateBranchIsland(&island, true, reinterpret_cast<void*>(place), range),
            kMachOverrideErrorCannotOverride);
  EXPECT_EQ(island, nullptr);
  const IslandRange wider = {0, LowestFor(place) + 4 * kPage};
  ASSERT_EQ(allocateBranchIsland(&island, true, reinterpret_cast<void*>(place), wider), 0);
  EXPECT_EQ(AddressOf(island), wider.mHighest);
  EXPECT_EQ(freeBranchIsland(island), 0);
}

}  // namespace
}  // namespace mach_override_tests
