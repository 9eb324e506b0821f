#include "support/CASequenceLocked.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace {

struct Values {
  uint64_t mFirst = 3;
  uint64_t mSecond = 4;
  uint32_t mLast = 5;
};

TEST(SequenceLocked, HoldsTheDefaultValueOrTheOneGiven) {
  EXPECT_EQ(CASequenceLocked<Values>().Load().mSecond, 4u);
  EXPECT_EQ(CASequenceLocked<Values>(Values{7, 8, 9}).Load().mLast, 9u);
}

TEST(SequenceLocked, AnswersWhatWasStoredLast) {
  CASequenceLocked<Values> theValues;
  for (uint32_t i = 0; i < 10; ++i) {
    theValues.Store({i, i + 1, i + 2});
    const Values theCopy = theValues.Load();
    EXPECT_EQ(theCopy.mFirst, i);
    EXPECT_EQ(theCopy.mSecond, i + 1);
    EXPECT_EQ(theCopy.mLast, i + 2);
  }
}

TEST(SequenceLocked, ATypeSmallerThanAWordFits) {
  CASequenceLocked<uint8_t> theValue(200);
  EXPECT_EQ(theValue.Load(), 200);
}

TEST(SequenceLocked, ReadersSeeWholeValuesThatNeverGoBack) {
  constexpr uint64_t kWrites = 100000;
  CASequenceLocked<Values> theValues(Values{0, 0, 0});
  std::atomic<int> theReadersUp{0};
  std::atomic<int> theTorn{0};
  std::atomic<int> theBackward{0};
  const auto theRead = [&] {
    uint64_t theLast = 0;
    ++theReadersUp;
    while (theLast < kWrites) {
      const Values theCopy = theValues.Load();
      if (theCopy.mSecond != theCopy.mFirst * 3) ++theTorn;
      if (theCopy.mLast != static_cast<uint32_t>(theCopy.mFirst)) ++theTorn;
      if (theCopy.mFirst < theLast) ++theBackward;
      theLast = theCopy.mFirst;
    }
  };
  std::thread theOne(theRead);
  std::thread theTwo(theRead);
  while (theReadersUp < 2) std::this_thread::yield();
  for (uint64_t i = 1; i <= kWrites; ++i) theValues.Store({i, i * 3, static_cast<uint32_t>(i)});
  theOne.join();
  theTwo.join();
  EXPECT_EQ(theTorn, 0);
  EXPECT_EQ(theBackward, 0);
}

}  // namespace
