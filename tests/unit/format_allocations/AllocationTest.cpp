#include <gtest/gtest.h>

#include "support/client/AllocationCounter.h"
#include "unit/format_list/FormatDevice.h"

// Reading what is current must not allocate: clients poll it, and the I/O thread computes its
// buffer sizes from it.

using namespace tembra;
using tembra::test::AllocationCounter;

namespace {

template <class Operation>
size_t AllocationsOf(Operation inOperation) {
  const AllocationCounter theCounter;
  inOperation();
  return theCounter.GetCount();
}

class FormatAllocations : public testing::Test {
 protected:
  FormatAllocations()
      : mStream(mDevice.AddStreamWithFormat(false, Int16Format(44100), 44100, 48000)) {}

  void SetUp() override {
    if (!AllocationCounter::IsAvailable()) GTEST_SKIP() << "a sanitizer has the allocator";
  }

  size_t AllocationsOfRead(const HP_Object& inObject, const CAPropertyAddress& inAddress,
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
  EXPECT_GT(AllocationsOfRead(mStream, CAPropertyAddress('nsr#'), 16), 0u);
}

TEST_F(FormatAllocations, ReadingTheCurrentFormatOfAStreamNeedsNone) {
  EXPECT_EQ(AllocationsOfRead(mStream, CAPropertyAddress('nsrt'), 8), 0u);
  EXPECT_EQ(AllocationsOfRead(mStream, CAPropertyAddress('sfmt'), 40), 0u);
  EXPECT_EQ(AllocationsOfRead(mStream, CAPropertyAddress('pft '), 40), 0u);
  EXPECT_EQ(AllocationsOfRead(mStream, CAPropertyAddress('mix?'), 4), 0u);
  EXPECT_EQ(AllocationsOfRead(mStream, CAPropertyAddress('schn'), 4), 0u);
}

TEST_F(FormatAllocations, ReadingTheCurrentFormatOfADeviceNeedsNone) {
  EXPECT_EQ(AllocationsOfRead(mDevice, CAPropertyAddress('nsrt'), 8), 0u);
  EXPECT_EQ(AllocationsOfRead(mDevice, CAPropertyAddress('sfmt', 'outp', 1), 40), 0u);
  EXPECT_EQ(AllocationsOfRead(mDevice, CAPropertyAddress('pft ', 'outp', 0), 40), 0u);
  EXPECT_EQ(AllocationsOfRead(mDevice, CAPropertyAddress('mix?'), 4), 0u);
}

TEST_F(FormatAllocations, BufferSizesNeedNone) {
  EXPECT_EQ(AllocationsOf([&] {
              EXPECT_EQ(mStream.CalculateIOBufferByteSize(512), 4096u);
              EXPECT_EQ(mStream.CalculateIOBufferFrameSize(4096), 512u);
              EXPECT_EQ(mStream.GetCurrentNumberChannels(), 2u);
            }),
            0u);
}

TEST_F(FormatAllocations, ChangingAndMatchingFormatsNeedNone) {
  CAStreamBasicDescription theFormat = Int16Format(0);
  EXPECT_EQ(AllocationsOf([&] {
              mStream.Formats().BestMatchForPhysicalFormat(theFormat);
              mStream.Formats().SetCurrentPhysicalFormat(theFormat, false);
            }),
            0u);
}
