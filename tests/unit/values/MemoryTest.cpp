#include <gtest/gtest.h>

#include <cstdint>
#include <new>

#include "support/CAAutoDisposer.h"
#include "support/Sanitizers.h"

namespace {

struct Counted {
  Counted() { ++sCount; }
  ~Counted() { --sCount; }
  static int sCount;
};
int Counted::sCount = 0;

TEST(Memory, ProductThatOverflowsThrows) {
  EXPECT_THROW(CA_calloc(SIZE_MAX / 2, 3), std::bad_alloc);
  EXPECT_THROW(CA_calloc(3, SIZE_MAX / 2), std::bad_alloc);
  EXPECT_THROW(CA_calloc(SIZE_MAX / 16 + 1, 16), std::bad_alloc);
}

TEST(Memory, CallocIsZeroed) {
  CAAutoFree<unsigned char> theBlock(static_cast<unsigned char*>(CA_calloc(100, 3)));
  for (int i = 0; i < 300; ++i) ASSERT_EQ(0, theBlock.get()[i]);
}

TEST(Memory, LackOfItThrows) {
  if (tembra::test::kSanitized) GTEST_SKIP() << "a sanitizer has the allocator";
  EXPECT_THROW(CA_malloc(SIZE_MAX / 4), std::bad_alloc);
  EXPECT_THROW(CA_calloc(SIZE_MAX / 4, 1), std::bad_alloc);
}

TEST(Memory, NothingIsNoLackOfMemory) {
  EXPECT_NO_THROW(std::free(CA_malloc(0)));
  EXPECT_NO_THROW(std::free(CA_calloc(0, 8)));
  EXPECT_NO_THROW(std::free(CA_calloc(8, 0)));
}

TEST(AutoFree, HoldsReplacesAndFrees) {
  CAAutoFree<int> theBlock;
  EXPECT_EQ(nullptr, theBlock.get());
  theBlock.set(static_cast<int*>(CA_malloc(sizeof(int))));
  *theBlock = 7;
  EXPECT_EQ(7, *theBlock());
  // A leak checker sees the first block if it is not freed here.
  theBlock.set(static_cast<int*>(CA_malloc(sizeof(int))));
  int* theSame = theBlock;
  theBlock.set(theSame);
  *theBlock = 8;
  EXPECT_EQ(8, *theBlock);
  theBlock.free();
  EXPECT_EQ(nullptr, theBlock.get());
}

TEST(AutoFree, MakesRoomForACount) {
  CAAutoFree<uint64_t> theBlock(16, true);
  for (int i = 0; i < 16; ++i) EXPECT_EQ(0u, theBlock.get()[i]);
  EXPECT_THROW(CAAutoFree<uint64_t>(SIZE_MAX / 4, false), std::bad_alloc);
}

TEST(AutoArrayDelete, DeletesEachElement) {
  {
    CAAutoArrayDelete<Counted> theArray(new Counted[3]);
    EXPECT_EQ(3, Counted::sCount);
    theArray.set(new Counted[2]);
    EXPECT_EQ(2, Counted::sCount);
    theArray.free();
    EXPECT_EQ(0, Counted::sCount);
    theArray.set(new Counted[4]);
  }
  EXPECT_EQ(0, Counted::sCount);
}

TEST(AutoArrayDelete, OfACountIsZeroed) {
  CAAutoArrayDelete<int> theArray(size_t{5});
  for (size_t i = 0; i < 5; ++i) EXPECT_EQ(0, theArray[i]);
}

}  // namespace
