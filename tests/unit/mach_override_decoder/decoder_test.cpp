#include <gtest/gtest.h>
#include <sys/mman.h>
#include <udis86.h>

#include <cstring>
#include <vector>

#include "library/sys/mac/mach_override/FunctionPrologue.h"
#include "library/sys/mac/mach_override/mach_override.h"

// What the patcher makes of a decoder's answers, such as no real one gives: the decoder here is
// this file's own, and its instructions are as long as a test says.

namespace {

struct Decoder {
  std::vector<unsigned> mLengths;  // of the instructions to come; then each is of one byte
  bool mInvalid = false;
  bool mGivesUp = false;
  uint8_t mMode = 0;
  std::vector<size_t> mSizes;  // of the bytes it was handed
  const uint8_t* mFirst = nullptr;
};

Decoder sDecoder;
size_t sNext;

}  // namespace

extern "C" {

void ud_init(ud_t* u) {
  *u = {};
}

void ud_set_mode(ud_t*, uint8_t mode) {
  sDecoder.mMode = mode;
}

void ud_set_input_buffer(ud_t*, const uint8_t* buffer, size_t size) {
  if (sDecoder.mSizes.empty()) sDecoder.mFirst = buffer;
  sDecoder.mSizes.push_back(size);
}

unsigned ud_disassemble(ud_t*) {
  if (sDecoder.mGivesUp) return 0;
  ++sNext;
  return 1;
}

unsigned ud_insn_len(const ud_t*) {
  return sNext <= sDecoder.mLengths.size() ? sDecoder.mLengths[sNext - 1] : 1;
}

ud_mnemonic_code ud_insn_mnemonic(const ud_t*) {
  return sDecoder.mInvalid ? UD_Iinvalid : UD_Inop;
}

}  // extern "C"

namespace {

constexpr const char* kUnknown =
    "mach_override: some instructions unknown! Need to update libudis86\n";

long Replacement(long, long) {
  return 99;
}

// 60 nops; lea rax,[rdi+rsi]; ret
class LongNops : public testing::Test {
 protected:
  LongNops() {
    sDecoder = {};
    sNext = 0;
    mPage = static_cast<uint8_t*>(
        mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    memset(mPage, 0x90, 60);
    const uint8_t sum[] = {0x48, 0x8D, 0x04, 0x37, 0xC3};
    memcpy(mPage + 60, sum, sizeof sum);
    mprotect(mPage, 4096, PROT_READ | PROT_EXEC);
  }
  ~LongNops() override { munmap(mPage, 4096); }

  bool Eat(uint8_t* outInstructions) {
    testing::internal::CaptureStderr();
    const bool patchable =
        eatKnownInstructions(mPage, &mPatch, &mBytes, outInstructions, &mCount, mSizes);
    mLines = testing::internal::GetCapturedStderr();
    return patchable;
  }

  kern_return_t Override() {
    testing::internal::CaptureStderr();
    const kern_return_t result =
        mach_override_ptr(mPage, reinterpret_cast<const void*>(&Replacement), &mReentry);
    mLines = testing::internal::GetCapturedStderr();
    return result;
  }

  static long Call(void* inCode) { return reinterpret_cast<long (*)(long, long)>(inCode)(7, 5); }

  uint8_t* mPage;
  uint64_t mPatch = 0x1111111111111111;
  size_t mBytes = 0;
  size_t mCount = 0;
  uint8_t mSizes[kMaxEatenInstructions] = {};
  uint8_t mInstructions[kIslandInstructionBytes] = {};
  void* mReentry = nullptr;
  std::string mLines;
};

TEST_F(LongNops, TheDecoderGets64BytesIn64BitMode) {
  EXPECT_TRUE(Eat(nullptr));
  EXPECT_EQ(sDecoder.mMode, 64);
  EXPECT_EQ(sDecoder.mFirst, mPage);
  ASSERT_FALSE(sDecoder.mSizes.empty());
  EXPECT_EQ(sDecoder.mSizes.front(), 64U);
  EXPECT_EQ(mCount, 5U);
  EXPECT_EQ(mBytes, 5U);
}

TEST_F(LongNops, ThirtyOneBytesFit) {
  sDecoder.mLengths = {4, 27};
  EXPECT_TRUE(Eat(mInstructions));
  EXPECT_EQ(mBytes, 31U);
  EXPECT_EQ(mPatch, 0x1111111111909090U);
}

TEST_F(LongNops, AFunctionWhoseInstructionsAreThirtyOneBytesIsPatched) {
  sDecoder.mLengths = {31};
  ASSERT_EQ(Override(), 0);
  EXPECT_EQ(Call(mPage), 99);
  EXPECT_EQ(Call(mReentry), 12);
}

TEST_F(LongNops, ThirtyTwoBytesDoNotFit) {
  sDecoder.mLengths = {4, 28};
  memset(mInstructions, 0x77, sizeof mInstructions);
  EXPECT_FALSE(Eat(mInstructions));
  EXPECT_EQ(mBytes, 32U);
  EXPECT_EQ(mPatch, 0x1111111111111111U);
  EXPECT_EQ(mInstructions[0], 0x77);
  EXPECT_EQ(mLines, "");
}

TEST_F(LongNops, WithoutABufferTheyNeedNotFit) {
  sDecoder.mLengths = {40};
  EXPECT_TRUE(Eat(nullptr));
  EXPECT_EQ(mBytes, 40U);
  EXPECT_EQ(mPatch, 0x1111111111909090U);
}

TEST_F(LongNops, FunctionsWhoseInstructionsDoNotFitAreRefused) {
  for (const unsigned length : {32U, 33U, 200U}) {
    SCOPED_TRACE(length);
    sDecoder = {};
    sDecoder.mLengths = {length};
    sNext = 0;
    EXPECT_EQ(Override(), kMachOverrideErrorCannotOverride);
    std::string lines;
    for (const char* line : {"239", "252", "258", "272", "277"}) {
      lines += std::string("err = f8000001 src/library/sys/mac/mach_override/mach_override.cpp:") +
               line + "\n";
    }
    EXPECT_EQ(mLines, lines);
    EXPECT_EQ(Call(mPage), 12);
  }
}

TEST_F(LongNops, ADecoderThatGivesUpKnowsNothing) {
  sDecoder.mGivesUp = true;
  EXPECT_FALSE(Eat(mInstructions));
  EXPECT_EQ(mLines, kUnknown);
  EXPECT_EQ(mBytes, 0U);
}

TEST_F(LongNops, AnInvalidMnemonicIsUnknownWhateverItsLength) {
  sDecoder.mInvalid = true;
  EXPECT_FALSE(Eat(mInstructions));
  EXPECT_EQ(mLines, kUnknown);
  EXPECT_EQ(mBytes, 0U);
}

TEST_F(LongNops, ALengthOfNothingIsUnknown) {
  sDecoder.mLengths = {3, 0};
  EXPECT_FALSE(Eat(mInstructions));
  EXPECT_EQ(mLines, kUnknown);
  EXPECT_EQ(mBytes, 3U);
  EXPECT_EQ(mCount, 1U);
}

}  // namespace
