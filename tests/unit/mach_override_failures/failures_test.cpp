#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "library/sys/mac/mach_override/BranchIsland.h"
#include "library/sys/mac/mach_override/mach_override.h"
#include "unit/mach_override_failures/Platform.h"

// Each step of a patch refused in turn: the code, the lines, what is undone and what is not.

namespace mach_override_tests {
namespace {

using testing::ElementsAre;

constexpr vm_prot_t kAnyWay = 0x17, kAsCode = 5;

// Far from everything else and another one for each test, so that the first page tried is free.
uintptr_t LonelyPlace() {
  static uintptr_t sNext = 0x7E84'0000'0000;
  return sNext += uintptr_t{12} << 30;
}

long Replacement(long, long) {
  return 99;
}

std::string Lines(const char* inCode, const std::vector<int>& inLines) {
  std::string lines;
  for (const int line : inLines) {
    lines += std::string("err = ") + inCode +
             " src/library/sys/mac/mach_override/mach_override.cpp:" + std::to_string(line) + "\n";
  }
  return lines;
}

class Patch : public testing::Test {
 protected:
  Patch() {
    mCode = static_cast<uint8_t*>(mmap(reinterpret_cast<void*>(LonelyPlace()), 4096,
                                       PROT_READ | PROT_WRITE,
                                       MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0));
    const uint8_t bytes[] = {0x48, 0x8D, 0x04, 0x37, 0xC3, 0x90, 0x90, 0x90};
    memcpy(mCode, bytes, sizeof bytes);
    mBefore.assign(bytes, bytes + sizeof bytes);
    mprotect(mCode, 4096, PROT_READ | PROT_EXEC);
    sPlatform = &mPlatform;
  }
  ~Patch() override {
    sPlatform = nullptr;
    munmap(mCode, 4096);
  }

  kern_return_t Override() {
    const int64_t before = mach_override_ptr_allocation_attempts();
    testing::internal::CaptureStderr();
    const kern_return_t result =
        mach_override_ptr(mCode, reinterpret_cast<const void*>(&Replacement), &mReentry);
    mLines = testing::internal::GetCapturedStderr();
    mAttempts = mach_override_ptr_allocation_attempts() - before;
    return result;
  }

  static long Call(void* inCode) { return reinterpret_cast<long (*)(long, long)>(inCode)(7, 5); }
  bool IsUntouched() const { return memcmp(mCode, mBefore.data(), mBefore.size()) == 0; }
  bool IsPatched() { return Call(mCode) == 99 && Call(mReentry) == 12; }

  Platform mPlatform;
  uint8_t* mCode;
  std::vector<uint8_t> mBefore;
  void* mReentry = nullptr;
  std::string mLines;
  int64_t mAttempts = 0;
};

TEST_F(Patch, StepsComeInTheirOrderAndTheJumpLast) {
  std::vector<bool> untouched;
  mPlatform.mMakeExecutable = [] { return 0; };
  mPlatform.mWatch = [&](const std::string&) { untouched.push_back(IsUntouched()); };
  ASSERT_EQ(Override(), 0);
  EXPECT_THAT(mPlatform.mNotes,
              ElementsAre("protect 8 23", "allocate 4096 fixed", "allocate 4096 fixed",
                          "make executable", "make executable", "protect 8 5"));
  EXPECT_THAT(untouched, ElementsAre(true, true, true, true, true, false));
  EXPECT_EQ(mLines, "");
  EXPECT_TRUE(IsPatched());
}

TEST_F(Patch, BothIslandsAndTheirPagesAreSynchronised) {
  mPlatform.mSync = [] { return 0; };
  ASSERT_EQ(Override(), 0);
  EXPECT_THAT(mPlatform.mNotes,
              ElementsAre("protect 8 23", "allocate 4096 fixed", "sync 46 2", "allocate 4096 fixed",
                          "sync 46 2", "sync 4096 2", "sync 4096 2", "protect 8 5"));
}

// Protection

TEST_F(Patch, ASecondTryIsMadeWithoutTheRightToRun) {
  mPlatform.mProtect = [](vm_prot_t protection) {
    return protection == kAnyWay ? KERN_PROTECTION_FAILURE : KERN_SUCCESS;
  };
  // The real second try is refused too, for this is code; its answer is what counts.
  EXPECT_EQ(Override(), KERN_PROTECTION_FAILURE);
  EXPECT_THAT(mPlatform.mNotes, ElementsAre("protect 8 23", "protect 8 19"));
}

TEST_F(Patch, TheSecondTryIsEnough) {
  mprotect(mCode, 4096, PROT_READ);
  mPlatform.mProtect = [](vm_prot_t protection) {
    return protection == kAnyWay ? KERN_PROTECTION_FAILURE : KERN_SUCCESS;
  };
  ASSERT_EQ(Override(), 0);
  EXPECT_EQ(mPlatform.mNotes[0], "protect 8 23");
  EXPECT_EQ(mPlatform.mNotes[1], "protect 8 19");
  EXPECT_EQ(mPlatform.mNotes.back(), "protect 8 5");
  EXPECT_TRUE(IsPatched());
}

TEST_F(Patch, NoRightToWriteIsTheSecondTrysError) {
  mPlatform.mProtect = [](vm_prot_t protection) {
    return protection == kAnyWay ? KERN_INVALID_ADDRESS : KERN_FAILURE;
  };
  EXPECT_EQ(Override(), KERN_FAILURE);
  EXPECT_EQ(mLines, Lines("5", {252, 258, 272, 277}));
  EXPECT_EQ(mAttempts, 0);
  EXPECT_TRUE(IsUntouched());
  EXPECT_EQ(Call(mCode), 12);
  EXPECT_EQ(mReentry, nullptr);
}

TEST_F(Patch, WhatCannotBeProtectedAgainIsPatchedAllTheSame) {
  mPlatform.mProtect = [](vm_prot_t protection) {
    return protection == kAsCode ? KERN_INVALID_ARGUMENT : KERN_SUCCESS;
  };
  EXPECT_EQ(Override(), 0);
  EXPECT_EQ(mLines, Lines("4", {367}));
  EXPECT_TRUE(IsPatched());
}

// Islands

TEST_F(Patch, AnUnforeseenErrorOfTheFirstPageEndsTheSearch) {
  mPlatform.mAllocate = [](vm_address_t*) { return KERN_RESOURCE_SHORTAGE; };
  EXPECT_EQ(Override(), KERN_RESOURCE_SHORTAGE);
  EXPECT_EQ(mLines, Lines("6", {258, 272, 277}));
  EXPECT_EQ(mAttempts, 1);
  EXPECT_TRUE(IsUntouched());
  EXPECT_EQ(mReentry, nullptr);
  // It stays writable, since what would undo that comes later.
  EXPECT_THAT(mPlatform.mNotes, ElementsAre("protect 8 23", "allocate 4096 fixed"));
  mCode[5] = 0xCC;
}

TEST_F(Patch, AnErrorOfTheSecondIslandGivesTheFirstBackWithoutALine) {
  mPlatform.mAllocate = [&](vm_address_t*) {
    return mPlatform.mAllocated.size() < 2 ? KERN_SUCCESS : KERN_FAILURE;
  };
  EXPECT_EQ(Override(), KERN_FAILURE);
  EXPECT_EQ(mLines, "");
  EXPECT_EQ(mAttempts, 2);
  EXPECT_THAT(mPlatform.mFreed, ElementsAre(mPlatform.mAllocated[0]));
  EXPECT_TRUE(IsUntouched());
  EXPECT_EQ(mReentry, nullptr);
}

TEST_F(Patch, AnEscapeIslandThatCannotRunGivesBothBack) {
  mPlatform.mMakeExecutable = [] { return EACCES; };
  EXPECT_EQ(Override(), kMachOverrideErrorCannotOverride);
  EXPECT_EQ(mLines, "");
  EXPECT_THAT(mPlatform.mNotes,
              ElementsAre("protect 8 23", "allocate 4096 fixed", "allocate 4096 fixed",
                          "make executable", "protect 8 5", "free 4096", "free 4096"));
  // The reentry island first; its address stays with the caller.
  EXPECT_EQ(mPlatform.mFreed[0], reinterpret_cast<vm_address_t>(mReentry));
  EXPECT_EQ(mPlatform.mFreed[1], mPlatform.mAllocated[0]);
  EXPECT_TRUE(IsUntouched());
}

TEST_F(Patch, AReentryIslandThatCannotRunGivesBothBack) {
  int calls = 0;
  mPlatform.mMakeExecutable = [&] { return ++calls == 2 ? EACCES : 0; };
  EXPECT_EQ(Override(), kMachOverrideErrorCannotOverride);
  EXPECT_EQ(calls, 2);
  EXPECT_EQ(mPlatform.mFreed.size(), 2U);
  EXPECT_TRUE(IsUntouched());
  EXPECT_EQ(Call(mCode), 12);
}

TEST_F(Patch, BothFailuresOfTheLastStepAreSeen) {
  mPlatform.mMakeExecutable = [] { return EACCES; };
  mPlatform.mProtect = [](vm_prot_t protection) {
    return protection == kAsCode ? KERN_FAILURE : KERN_SUCCESS;
  };
  EXPECT_EQ(Override(), kMachOverrideErrorCannotOverride);
  EXPECT_EQ(mLines, Lines("5", {367}));
}

TEST_F(Patch, AnIslandThatCannotBeSynchronisedIsRefused) {
  int calls = 0;
  // The third is the escape island's page; those that set the islands' code are not looked at.
  mPlatform.mSync = [&] { return ++calls <= 3 ? ENOMEM : 0; };
  EXPECT_EQ(Override(), kMachOverrideErrorCannotOverride);
  EXPECT_EQ(calls, 3);
  EXPECT_TRUE(IsUntouched());
}

TEST_F(Patch, LockedMemoryIsNoFailure) {
  mPlatform.mSync = [] { return EBUSY; };
  EXPECT_EQ(Override(), 0);
  EXPECT_TRUE(IsPatched());
}

// It is patched at load, in any process: nothing may throw for want of memory.
TEST_F(Patch, NothingIsTakenFromTheHeap) {
  // Shared with a file, so that there is a copy to be made too.
  const int file = memfd_create("code", MFD_CLOEXEC);
  ASSERT_EQ(ftruncate(file, 4096), 0);
  ASSERT_EQ(pwrite(file, mBefore.data(), mBefore.size(), 0), static_cast<ssize_t>(mBefore.size()));
  void* const code = mmap(nullptr, 4096, PROT_READ | PROT_EXEC, MAP_SHARED, file, 0);
  close(file);
  ASSERT_NE(code, MAP_FAILED);
  // Its notes would be taken from there.
  sPlatform = nullptr;
  const uint64_t before = tHeapCalls;
  const kern_return_t result =
      mach_override_ptr(code, reinterpret_cast<const void*>(&Replacement), &mReentry);
  EXPECT_EQ(tHeapCalls, before);
  EXPECT_EQ(result, 0);
  EXPECT_EQ(Call(code), 99);
  EXPECT_EQ(Call(mReentry), 12);
  munmap(code, 4096);
}

TEST_F(Patch, WithoutTheMapOfTheProcessItIsRefused) {
  mPlatform.mRegion = [](vm_address_t*, vm_size_t*) { return KERN_FAILURE; };
  EXPECT_EQ(Override(), kMachOverrideErrorCannotOverride);
  EXPECT_EQ(mLines, Lines("f8000001", {239, 252, 258, 272, 277}));
  EXPECT_EQ(mAttempts, 0);
  EXPECT_THAT(mPlatform.mNotes, ElementsAre());
  EXPECT_TRUE(IsUntouched());
}

// The search, address by address

class Search : public Patch {
 protected:
  kern_return_t Allocate(uintptr_t inNearby) {
    mIsland = nullptr;
    return allocateBranchIsland(&mIsland, true, reinterpret_cast<const void*>(inNearby));
  }
  BranchIsland* mIsland = nullptr;
};

TEST_F(Search, StepsFromRegionToRegionOnBothOccupiedAnswers) {
  const uintptr_t nearby = 0x7E0000000000;
  const uintptr_t lowest = nearby - 0x7FFFFFFF - 1 + 4096;
  std::vector<kern_return_t> answers = {KERN_NO_SPACE, KERN_INVALID_ADDRESS, KERN_FAILURE};
  mPlatform.mAllocate = [&](vm_address_t*) {
    const kern_return_t answer = answers.front();
    answers.erase(answers.begin());
    return answer;
  };
  // A region that begins below what was asked for, then one above it.
  mPlatform.mRegion = [&](vm_address_t* address, vm_size_t* size) {
    if (*address == lowest) {
      *address -= 0x1000;
      *size = 0x3000;
    } else {
      EXPECT_EQ(*address, lowest + 0x2000);
      *address += 0x5000;
      *size = 0x1000;
    }
    return KERN_SUCCESS;
  };
  EXPECT_EQ(Allocate(nearby), KERN_FAILURE);
  EXPECT_THAT(mPlatform.mAllocated, ElementsAre(lowest, lowest + 0x2000, lowest + 0x8000));
}

TEST_F(Search, EndsWithTheErrorOfTheRegion) {
  mPlatform.mAllocate = [](vm_address_t*) { return KERN_NO_SPACE; };
  mPlatform.mRegion = [](vm_address_t*, vm_size_t*) { return KERN_INVALID_ARGUMENT; };
  EXPECT_EQ(Allocate(0x7E0000000000), KERN_INVALID_ARGUMENT);
  EXPECT_EQ(mPlatform.mAllocated.size(), 1U);
  EXPECT_EQ(mIsland, nullptr);
}

TEST_F(Search, BeginsAtNothingNearTheLowestAddresses) {
  mPlatform.mAllocate = [](vm_address_t*) { return KERN_FAILURE; };
  for (const uintptr_t nearby : {uintptr_t{0x400000}, uintptr_t{0}, uintptr_t{0x7FFFFFFE}}) {
    mPlatform.mAllocated.clear();
    EXPECT_EQ(Allocate(nearby), KERN_FAILURE);
    EXPECT_THAT(mPlatform.mAllocated, ElementsAre(0U));
  }
  mPlatform.mAllocated.clear();
  EXPECT_EQ(Allocate(0x7FFFFFFF), KERN_FAILURE);
  EXPECT_THAT(mPlatform.mAllocated, ElementsAre(0x1000U));
}

TEST_F(Search, EndsAtTheHighestAddress) {
  mPlatform.mAllocate = [](vm_address_t*) { return KERN_NO_SPACE; };
  std::vector<vm_address_t> asked;
  mPlatform.mRegion = [&](vm_address_t* address, vm_size_t* size) {
    asked.push_back(*address);
    *address = ~vm_address_t{0} - 0xFFF;
    *size = asked.size() == 1 ? 0xFFE : 0xFFF;
    return KERN_SUCCESS;
  };
  // The first step ends one byte below the highest address, so there is one more try.
  EXPECT_EQ(Allocate(~uintptr_t{0} - 0xFFFF), KERN_NO_SPACE);
  EXPECT_EQ(mPlatform.mAllocated.size(), 2U);
}

TEST_F(Search, NoHeapForABlock) {
#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
  GTEST_SKIP() << "a sanitizer has a heap of its own";
#endif
#endif
  const int64_t before = mach_override_ptr_allocation_attempts();
  mPlatform.mNoHeap = true;
  BranchIsland* island = nullptr;
  EXPECT_EQ(allocateBranchIsland(&island, false, nullptr), KERN_NO_SPACE);
  EXPECT_EQ(island, nullptr);
  EXPECT_EQ(mach_override_ptr_allocation_attempts() - before, 1);
}

TEST_F(Search, FreeingAPageTellsWhatTheSystemSaid) {
  ASSERT_EQ(Allocate(reinterpret_cast<uintptr_t>(mCode)), 0);
  EXPECT_EQ(freeBranchIsland(mIsland), 0);
  EXPECT_THAT(mPlatform.mFreed, ElementsAre(reinterpret_cast<vm_address_t>(mIsland)));
  EXPECT_EQ(mPlatform.mNotes.back(), "free 4096");
}

}  // namespace
}  // namespace mach_override_tests
