#include <gtest/gtest.h>

#include <cstdlib>
#include <new>

#include "unit/format_list/FormatDevice.h"

// Reading what is current must not allocate: clients poll it, and the I/O thread computes its
// buffer sizes from it. This executable counts what its threads allocate.

namespace {

thread_local int sNumberAllocations = 0;

[[maybe_unused]] void* Allocate(std::size_t inSize) {
  ++sNumberAllocations;
  if (void* theMemory = std::malloc(inSize == 0 ? 1 : inSize)) return theMemory;
  throw std::bad_alloc();
}

}  // namespace

// ThreadSanitizer has its own, so there is nothing to count with there.
#if !__has_feature(thread_sanitizer)
void* operator new(std::size_t inSize) {
  return Allocate(inSize);
}
void* operator new[](std::size_t inSize) {
  return Allocate(inSize);
}
void operator delete(void* inMemory) noexcept {
  std::free(inMemory);
}
void operator delete[](void* inMemory) noexcept {
  std::free(inMemory);
}
void operator delete(void* inMemory, std::size_t) noexcept {
  std::free(inMemory);
}
void operator delete[](void* inMemory, std::size_t) noexcept {
  std::free(inMemory);
}
#endif

using namespace tembra;

namespace {

template <class Operation>
int AllocationsOf(Operation inOperation) {
  const int theBefore = sNumberAllocations;
  inOperation();
  return sNumberAllocations - theBefore;
}

class FormatAllocations : public testing::Test {
 protected:
  FormatAllocations()
      : mStream(mDevice.AddStreamWithFormat(false, Int16Format(44100), 44100, 48000)) {}

  void SetUp() override {
#if __has_feature(thread_sanitizer)
    GTEST_SKIP() << "the sanitizer's allocator stands in the way of counting";
#endif
  }

  int AllocationsOfRead(const HP_Object& inObject, const CAPropertyAddress& inAddress,
                        UInt32 inSize) {
    return AllocationsOf([&] {
      unsigned char theBuffer[64];
      inObject.GetPropertyData(inAddress, 0, nullptr, inSize, theBuffer);
    });
  }

  FormatDevice mDevice;
  FormatStream& mStream;
};

}  // namespace

TEST_F(FormatAllocations, AreCounted) {
  // A list of rates is made anew each time.
  EXPECT_GT(AllocationsOfRead(mStream, CAPropertyAddress('nsr#'), 16), 0);
}

TEST_F(FormatAllocations, ReadingTheCurrentFormatOfAStreamNeedsNone) {
  EXPECT_EQ(AllocationsOfRead(mStream, CAPropertyAddress('nsrt'), 8), 0);
  EXPECT_EQ(AllocationsOfRead(mStream, CAPropertyAddress('sfmt'), 40), 0);
  EXPECT_EQ(AllocationsOfRead(mStream, CAPropertyAddress('pft '), 40), 0);
  EXPECT_EQ(AllocationsOfRead(mStream, CAPropertyAddress('mix?'), 4), 0);
  EXPECT_EQ(AllocationsOfRead(mStream, CAPropertyAddress('schn'), 4), 0);
}

TEST_F(FormatAllocations, ReadingTheCurrentFormatOfADeviceNeedsNone) {
  EXPECT_EQ(AllocationsOfRead(mDevice, CAPropertyAddress('nsrt'), 8), 0);
  EXPECT_EQ(AllocationsOfRead(mDevice, CAPropertyAddress('sfmt', 'outp', 1), 40), 0);
  EXPECT_EQ(AllocationsOfRead(mDevice, CAPropertyAddress('pft ', 'outp', 0), 40), 0);
  EXPECT_EQ(AllocationsOfRead(mDevice, CAPropertyAddress('mix?'), 4), 0);
}

TEST_F(FormatAllocations, BufferSizesNeedNone) {
  EXPECT_EQ(AllocationsOf([&] {
              EXPECT_EQ(mStream.CalculateIOBufferByteSize(512), 4096u);
              EXPECT_EQ(mStream.CalculateIOBufferFrameSize(4096), 512u);
              EXPECT_EQ(mStream.GetCurrentNumberChannels(), 2u);
            }),
            0);
}

TEST_F(FormatAllocations, ChangingAndMatchingFormatsNeedNone) {
  CAStreamBasicDescription theFormat = Int16Format(0);
  EXPECT_EQ(AllocationsOf([&] {
              mStream.Formats().BestMatchForPhysicalFormat(theFormat);
              mStream.Formats().SetCurrentPhysicalFormat(theFormat, false);
            }),
            0);
}
