#include "objects/HP_SelectorIndex.h"

#include <gtest/gtest.h>

namespace {

constexpr UInt32 kAsMany = HP_SelectorIndex::kMaxSelectors;

struct Entry {
  UInt32 mNumber;
  AudioObjectPropertySelector mSelector;
};

constexpr Entry kEntries[] = {{10, 'name'}, {11, 'fsiz'}, {12, 'uid '}};
constexpr HP_SelectorIndex kIndex(kEntries, [](const Entry& inEntry) { return inEntry.mSelector; });

TEST(SelectorIndex, FindsEachWhereItStands) {
  EXPECT_EQ(0U, kIndex.Find('name'));
  EXPECT_EQ(1U, kIndex.Find('fsiz'));
  EXPECT_EQ(2U, kIndex.Find('uid '));
}

TEST(SelectorIndex, FindsNoOther) {
  for (const UInt32 theSelector : {0U, 1U, 0xFFFFFFFFU, UInt32{'****'}, UInt32{'fsi{'}}) {
    EXPECT_EQ(HP_SelectorIndex::kNone, kIndex.Find(theSelector)) << theSelector;
  }
}

// As full as it may be, of selectors that follow one another.
constexpr auto kFull = [] {
  struct {
    UInt32 mSelectors[kAsMany]{};
  } theTable;
  for (UInt32 i = 0; i < kAsMany; ++i) theTable.mSelectors[i] = 'aaaa' + i;
  return theTable;
}();
constexpr HP_SelectorIndex kFullIndex(kFull.mSelectors,
                                      [](UInt32 inSelector) { return inSelector; });

TEST(SelectorIndex, TellsAllOfAFullTableFromTheirNeighbours) {
  for (UInt32 i = 0; i < kAsMany; ++i) ASSERT_EQ(i, kFullIndex.Find('aaaa' + i));
  for (UInt32 i = 1; i < 100000; ++i) {
    ASSERT_EQ(HP_SelectorIndex::kNone, kFullIndex.Find('aaaa' - i)) << i;
    ASSERT_EQ(HP_SelectorIndex::kNone, kFullIndex.Find('aaaa' + kAsMany - 1 + i)) << i;
  }
}

// Selectors whose hashes are all the same: each stands a step further on, over the table's end.
constexpr UInt32 Colliding(UInt32 inNumber) {
  for (UInt32 theSelector = 1;; ++theSelector) {
    if (theSelector * 0x9E3779B1U >> 25 == 127 && inNumber-- == 0) return theSelector;
  }
}
constexpr UInt32 kColliding[] = {Colliding(0), Colliding(1), Colliding(2), Colliding(3)};
constexpr HP_SelectorIndex kCollidingIndex(kColliding,
                                           [](UInt32 inSelector) { return inSelector; });

TEST(SelectorIndex, TellsApartWhatSharesASlot) {
  for (UInt32 i = 0; i < 4; ++i) EXPECT_EQ(i, kCollidingIndex.Find(kColliding[i]));
  EXPECT_EQ(HP_SelectorIndex::kNone, kCollidingIndex.Find(Colliding(4)));
  EXPECT_EQ(HP_SelectorIndex::kNone, kCollidingIndex.Find(0));
}

}  // namespace
