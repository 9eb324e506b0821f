#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cstring>
#include <memory>
#include <string>

#include "library/sys/mac/mach_override/mach_override.h"
#include "unit/mach_override/CodePages.h"
#include "unit/mach_override/Prologues.h"

// Each function is patched for real and called both ways, or refused and left as it was.

namespace mach_override_tests {

// For the names of the parameterised tests.
void PrintTo(const Prologue& inPrologue, std::ostream* outText) {
  *outText << inPrologue.mName << ": " << inPrologue.mInstructions;
}
void PrintTo(const Refused& inRefused, std::ostream* outText) {
  *outText << inRefused.mName << ": " << inRefused.mBytes;
}

namespace {

constexpr const char* kUnknown =
    "mach_override: some instructions unknown! Need to update libudis86\n";

void* const kUntouched = reinterpret_cast<void*>(uintptr_t{0x1234});

struct Outcome {
  kern_return_t mResult;
  void* mReentry = kUntouched;
  std::string mLines;
  int64_t mAttempts;
};

Outcome Override(void* inFunction) {
  Outcome outcome{};
  outcome.mReentry = kUntouched;
  const int64_t before = mach_override_ptr_allocation_attempts();
  testing::internal::CaptureStderr();
  outcome.mResult =
      mach_override_ptr(inFunction, reinterpret_cast<const void*>(&Replacement), &outcome.mReentry);
  outcome.mLines = testing::internal::GetCapturedStderr();
  outcome.mAttempts = mach_override_ptr_allocation_attempts() - before;
  return outcome;
}

void ExpectRefused(const Code& inCode, size_t inSize, const std::string& inFirstLine) {
  const std::vector<uint8_t> before = inCode.Now(inSize);
  const Outcome outcome = Override(inCode.Pointer());
  EXPECT_EQ(outcome.mResult, kMachOverrideErrorCannotOverride);
  EXPECT_EQ(static_cast<uint32_t>(outcome.mResult), 0xF8000001U);
  EXPECT_EQ(outcome.mLines, inFirstLine + ErrorLines("f8000001", kAllLines));
  EXPECT_EQ(inCode.Now(inSize), before);
  EXPECT_EQ(outcome.mReentry, kUntouched);
  EXPECT_EQ(outcome.mAttempts, 0);
  EXPECT_EQ(ProtectionAt(inCode.Address()), "r-x");
}

void ExpectPatched(const Code& inCode, long inAnswer) {
  EXPECT_EQ(inCode.Call(), inAnswer);
  const std::vector<uint8_t> kept = BytesAt(reinterpret_cast<void*>(inCode.Address() + 5), 3);
  const Outcome outcome = Override(inCode.Pointer());
  ASSERT_EQ(outcome.mResult, 0);
  EXPECT_EQ(outcome.mLines, "");
  EXPECT_EQ(inCode.Now(1).front(), 0xE9);
  EXPECT_EQ(BytesAt(reinterpret_cast<void*>(inCode.Address() + 5), 3), kept);
  EXPECT_EQ(inCode.Call(), kReplaced);
  EXPECT_EQ(CallAt(outcome.mReentry), inAnswer);
  EXPECT_EQ(ProtectionAt(inCode.Address()), "r-x");
  EXPECT_EQ(ProtectionAt(reinterpret_cast<uintptr_t>(outcome.mReentry)), "r-x");
}

class KnownPrologue : public testing::TestWithParam<Prologue> {};

TEST_P(KnownPrologue, IsPatchedAndMoved) {
  const Prologue& prologue = GetParam();
  const std::vector<uint8_t> bytes = Bytes(prologue.mBytes);
  const Code code(bytes);
  const bool runs = prologue.mHow == kBothWays ||
                    (prologue.mHow == kBothWaysWithWideVectors && __builtin_cpu_supports("avx2"));
  if (runs) {
    ASSERT_NO_FATAL_FAILURE(ExpectPatched(code, prologue.mAnswer));
    return;
  }
  const Outcome outcome = Override(code.Pointer());
  ASSERT_EQ(outcome.mResult, 0);
  EXPECT_EQ(outcome.mLines, "");
  EXPECT_EQ(code.Call(), kReplaced);
  // What was moved is as it stood, right or wrong.
  std::vector<uint8_t> moved(bytes.begin(),
                             bytes.begin() + static_cast<long>(prologue.mMovedBytes));
  moved.resize(32, 0x90);
  EXPECT_EQ(BytesAt(outcome.mReentry, 32), moved);
}

INSTANTIATE_TEST_SUITE_P(Patcher, KnownPrologue,
                         testing::ValuesIn(kPrologues, kPrologues + kPrologueCount),
                         [](const auto& info) { return std::string(info.param.mName); });

class UnknownPrologue : public testing::TestWithParam<Refused> {};

TEST_P(UnknownPrologue, IsLeftAlone) {
  const std::vector<uint8_t> bytes = Bytes(GetParam().mBytes);
  ExpectRefused(Code(bytes), bytes.size(), kUnknown);
}

INSTANTIATE_TEST_SUITE_P(Patcher, UnknownPrologue,
                         testing::ValuesIn(kRefused, kRefused + kRefusedCount),
                         [](const auto& info) { return std::string(info.param.mName); });

TEST(Patcher, ThereAreSixtyProloguesAndMore) {
  EXPECT_GE(kPrologueCount + kRefusedCount, 60U);
}

// lea rax,[rdi+rsi]; ret
const char* const kSum = "48 8D 04 37 C3 90 90 90";

TEST(PatcherAtAPageEnd, EightBytesAreEnough) {
  ExpectPatched(Code::AtPageEnd(Bytes(kSum)), 12);
}

TEST(PatcherAtAPageEnd, FewerBytesAreRefused) {
  for (size_t size = 1; size < 8; ++size) {
    SCOPED_TRACE(size);
    std::vector<uint8_t> bytes = Bytes(kSum);
    bytes.resize(size);
    ExpectRefused(Code::AtPageEnd(bytes), size, "");
  }
}

TEST(PatcherAtAPageEnd, NothingMappedBehindIsAsNothingReadable) {
  for (const size_t size : {size_t{7}, size_t{8}}) {
    const Pages pages(2, PROT_READ | PROT_WRITE, LonelyPlace());
    const uintptr_t function = pages.Begin() + kPage - size;
    std::vector<uint8_t> bytes = Bytes(kSum);
    bytes.resize(size);
    pages.Write(function, bytes);
    pages.Protect(PROT_READ | PROT_EXEC);
    munmap(reinterpret_cast<void*>(pages.Begin() + kPage), kPage);
    const Outcome outcome = Override(reinterpret_cast<void*>(function));
    EXPECT_EQ(outcome.mResult, size < 8 ? kMachOverrideErrorCannotOverride : 0);
  }
}

TEST(PatcherAtAPageEnd, AnInstructionThatIsCutOffIsUnknown) {
  const std::vector<uint8_t> bytes = Bytes("90 90 90 90 48 B8 01 02");
  ExpectRefused(Code::AtPageEnd(bytes), bytes.size(), kUnknown);
}

TEST(PatcherAtAPageEnd, AFunctionAcrossTwoPages) {
  for (size_t before = 1; before < 8; ++before) {
    SCOPED_TRACE(before);
    const Code code(Bytes(kSum), kPage - before);
    ExpectPatched(code, 12);
    EXPECT_EQ(ProtectionAt(code.Address() + 7), "r-x");
  }
}

TEST(PatcherAtAPageEnd, AnUnreadableSecondPage) {
  const Code code(Bytes(kSum), kPage - 5);
  const std::vector<uint8_t> before = code.Now(5);
  mprotect(reinterpret_cast<void*>(code.Address() + 5), kPage, PROT_NONE);
  const Outcome outcome = Override(code.Pointer());
  EXPECT_EQ(outcome.mResult, kMachOverrideErrorCannotOverride);
  EXPECT_EQ(outcome.mLines, ErrorLines("f8000001", kAllLines));
  EXPECT_EQ(code.Now(5), before);
}

TEST(PatcherNowhere, NothingAtAll) {
  for (const uintptr_t address : {uintptr_t{0}, LonelyPlace(), ~uintptr_t{0} - 7, ~uintptr_t{0}}) {
    SCOPED_TRACE(address);
    const Outcome outcome = Override(reinterpret_cast<void*>(address));
    EXPECT_EQ(outcome.mResult, kMachOverrideErrorCannotOverride);
    EXPECT_EQ(outcome.mLines, ErrorLines("f8000001", kAllLines));
  }
}

TEST(PatcherNowhere, NothingThatCanBeRead) {
  const Pages pages(1, PROT_NONE);
  EXPECT_EQ(Override(reinterpret_cast<void*>(pages.Begin())).mResult,
            kMachOverrideErrorCannotOverride);
}

// Import stubs: a pointer at the page's beginning, and code that jumps through it.

std::vector<uint8_t> Stub(const char* inBefore, uintptr_t inAt, uintptr_t inPointer) {
  std::vector<uint8_t> stub = Bytes(inBefore);
  stub.push_back(0xFF);
  stub.push_back(0x25);
  const auto displacement = static_cast<uint32_t>(inPointer - (inAt + stub.size() + 4));
  for (int i = 0; i < 4; ++i) stub.push_back(static_cast<uint8_t>(displacement >> (8 * i)));
  return stub;
}

class StubPage {
 public:
  // The stub stands at inOffset of a page whose first word leads to inTarget.
  StubPage(const char* inBefore, const void* inTarget, size_t inOffset = 64)
      : mPages(2, PROT_READ | PROT_WRITE), mStub(mPages.Begin() + inOffset) {
    memcpy(reinterpret_cast<void*>(mPages.Begin()), &inTarget, sizeof inTarget);
    mBytes = Stub(inBefore, mStub, mPages.Begin());
    mPages.Write(mStub, mBytes);
    mPages.Protect(PROT_READ | PROT_EXEC);
    mprotect(reinterpret_cast<void*>(mPages.Begin() + kPage), kPage, PROT_NONE);
  }
  void* Pointer() const { return reinterpret_cast<void*>(mStub); }
  bool IsAsItWas() const { return BytesAt(Pointer(), mBytes.size()) == mBytes; }

 private:
  Pages mPages;
  uintptr_t mStub;
  std::vector<uint8_t> mBytes;
};

void ExpectFollowed(const Code& inFunction, const void* inStub) {
  EXPECT_EQ(CallAt(inStub), 12);
  const Outcome outcome = Override(const_cast<void*>(inStub));
  ASSERT_EQ(outcome.mResult, 0);
  EXPECT_EQ(inFunction.Now(1).front(), 0xE9);
  EXPECT_EQ(inFunction.Call(), kReplaced);
  EXPECT_EQ(CallAt(inStub), kReplaced);
  EXPECT_EQ(CallAt(outcome.mReentry), 12);
}

TEST(PatcherOfStubs, PatchesWhereAStubLeads) {
  const Code code(Bytes(kSum));
  const StubPage stub("", code.Pointer());
  ExpectFollowed(code, stub.Pointer());
  EXPECT_TRUE(stub.IsAsItWas());
}

TEST(PatcherOfStubs, PatchesWhereTheLastOfSeveralLeads) {
  const Code code(Bytes(kSum));
  const StubPage last("", code.Pointer());
  const StubPage middle("F3 0F 1E FA", last.Pointer());
  const StubPage first("", middle.Pointer());
  ExpectFollowed(code, first.Pointer());
  EXPECT_TRUE(first.IsAsItWas());
  EXPECT_TRUE(middle.IsAsItWas());
  EXPECT_TRUE(last.IsAsItWas());
}

TEST(PatcherOfStubs, FollowsOneBehindALandingPad) {
  const Code code(Bytes(kSum));
  const StubPage stub("F3 0F 1E FA", code.Pointer());
  ExpectFollowed(code, stub.Pointer());
}

TEST(PatcherOfStubs, FollowsOneWithABoundPrefixBehindALandingPad) {
  const Code code(Bytes(kSum));
  const StubPage stub("F3 0F 1E FA F2", code.Pointer());
  ExpectFollowed(code, stub.Pointer());
}

TEST(PatcherOfStubs, FollowsOneThatEndsWithItsPage) {
  for (const char* before : {"", "F3 0F 1E FA", "F3 0F 1E FA F2"}) {
    SCOPED_TRACE(before);
    const Code code(Bytes(kSum));
    const StubPage stub(before, code.Pointer(), kPage - 6 - Bytes(before).size());
    ExpectFollowed(code, stub.Pointer());
  }
}

TEST(PatcherOfStubs, ALandingPadAloneIsNoStub) {
  ExpectPatched(Code(Bytes("F3 0F 1E FA FF C7 8D 04 37 C3")), 13);
  // At the very end, where there is no byte left to look at.
  ExpectRefused(Code::AtPageEnd(Bytes("F3 0F 1E FA")), 4, "");
  ExpectRefused(Code::AtPageEnd(Bytes("F3 0F 1E FA F2")), 5, "");
}

TEST(PatcherOfStubs, AStubThatLeadsNowhereIsRefused) {
  const Pages pages(2, PROT_READ | PROT_WRITE);
  const uintptr_t stub = pages.Begin() + 64;
  pages.Write(stub, Stub("", stub, pages.End() - 8));
  mprotect(reinterpret_cast<void*>(pages.Begin() + kPage), kPage, PROT_NONE);
  EXPECT_EQ(Override(reinterpret_cast<void*>(stub)).mResult, kMachOverrideErrorCannotOverride);
}

TEST(PatcherOfStubs, AStubToNullIsRefused) {
  const StubPage stub("", nullptr);
  EXPECT_EQ(Override(stub.Pointer()).mResult, kMachOverrideErrorCannotOverride);
  EXPECT_TRUE(stub.IsAsItWas());
}

TEST(PatcherOfStubs, StubsThatLeadInACircleAreRefused) {
  for (size_t count = 1; count <= 6; ++count) {
    for (size_t backTo = 0; backTo < count; ++backTo) {
      SCOPED_TRACE(testing::Message() << count << " back to " << backTo);
      const Pages pages(1, PROT_READ | PROT_WRITE);
      const auto stubAt = [&](size_t inIndex) { return pages.Begin() + 256 + 16 * inIndex; };
      for (size_t i = 0; i < count; ++i) {
        const uintptr_t pointer = pages.Begin() + 8 * i;
        const uintptr_t next = stubAt(i + 1 < count ? i + 1 : backTo);
        memcpy(reinterpret_cast<void*>(pointer), &next, sizeof next);
        pages.Write(stubAt(i), Stub("", stubAt(i), pointer));
      }
      pages.Protect(PROT_READ | PROT_EXEC);
      const std::vector<uint8_t> before = BytesAt(reinterpret_cast<void*>(pages.Begin()), kPage);
      const Outcome outcome = Override(reinterpret_cast<void*>(stubAt(0)));
      EXPECT_EQ(outcome.mResult, kMachOverrideErrorCannotOverride);
      EXPECT_EQ(outcome.mLines, ErrorLines("f8000001", kAllLines));
      EXPECT_EQ(BytesAt(reinterpret_cast<void*>(pages.Begin()), kPage), before);
    }
  }
}

TEST(PatcherOfStubs, AChainOfManyIsFollowedToItsEnd) {
  const Code code(Bytes(kSum));
  std::vector<std::unique_ptr<StubPage>> stubs;
  const void* next = code.Pointer();
  for (int i = 0; i < 100; ++i) {
    stubs.push_back(std::make_unique<StubPage>(i % 2 == 0 ? "" : "F3 0F 1E FA", next));
    next = stubs.back()->Pointer();
  }
  ExpectFollowed(code, next);
}

TEST(Patcher, WithoutAPlaceForTheReentryThereIsOneIslandOnly) {
  const Code code(Bytes(kSum), 0, LonelyPlace());
  const int64_t before = mach_override_ptr_allocation_attempts();
  ASSERT_EQ(mach_override_ptr(code.Pointer(), reinterpret_cast<const void*>(&Replacement), nullptr),
            0);
  EXPECT_EQ(mach_override_ptr_allocation_attempts() - before, 1);
  EXPECT_EQ(code.Call(), kReplaced);
}

TEST(Patcher, WithoutAPlaceForTheReentryAJumpIsPatchedToo) {
  const Code code(Bytes("E9 03 00 00 00 00 00 00 48 8D 04 37 C3"));
  ASSERT_EQ(mach_override_ptr(code.Pointer(), reinterpret_cast<const void*>(&Replacement), nullptr),
            0);
  EXPECT_EQ(code.Call(), kReplaced);
}

long SecondReplacement(long inA, long inB) {
  return Replacement(inA, inB) + 5000;
}

TEST(Patcher, AFunctionCanBePatchedAgain) {
  const Code code(Bytes(kSum));
  const Outcome first = Override(code.Pointer());
  ASSERT_EQ(first.mResult, 0);
  void* second = nullptr;
  ASSERT_EQ(
      mach_override_ptr(code.Pointer(), reinterpret_cast<const void*>(&SecondReplacement), &second),
      0);
  EXPECT_EQ(code.Call(), kReplaced + 5000);
  EXPECT_EQ(CallAt(second), kReplaced);
  EXPECT_EQ(CallAt(first.mReentry), 12);
}

TEST(Patcher, CodeThatIsSharedWithAFileIsPatchedInThisProcessOnly) {
  const int file = memfd_create("code", MFD_CLOEXEC);
  ASSERT_GE(file, 0);
  ASSERT_EQ(ftruncate(file, kPage), 0);
  const std::vector<uint8_t> bytes = Bytes(kSum);
  ASSERT_EQ(pwrite(file, bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
  void* const code = mmap(nullptr, kPage, PROT_READ | PROT_EXEC, MAP_SHARED, file, 0);
  ASSERT_NE(code, MAP_FAILED);
  EXPECT_EQ(CallAt(code), 12);
  const Outcome outcome = Override(code);
  EXPECT_EQ(outcome.mResult, 0);
  EXPECT_EQ(CallAt(code), kReplaced);
  EXPECT_EQ(CallAt(outcome.mReentry), 12);
  std::vector<uint8_t> now(bytes.size());
  EXPECT_EQ(pread(file, now.data(), now.size(), 0), static_cast<ssize_t>(now.size()));
  EXPECT_EQ(now, bytes);
  munmap(code, kPage);
  close(file);
}

}  // namespace
}  // namespace mach_override_tests
