#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "objects/CATokenMap.h"
#include "support/CATokenIndex.h"

namespace {

using Map = CATokenMap<int>;

TEST(TokenMap, TokensStartAt256) {
  Map theMap;
  int theObjects[3];
  EXPECT_EQ(256u, theMap.MapObject(&theObjects[0]));
  EXPECT_EQ(257u, theMap.MapObject(&theObjects[1]));
  EXPECT_EQ(258u, theMap.MapObject(&theObjects[2]));
  for (UInt32 i = 0; i < 3; ++i) EXPECT_EQ(&theObjects[i], theMap.GetObject(256 + i));
}

TEST(TokenMap, TokenIsNotUsedAgain) {
  Map theMap;
  int theObject;
  EXPECT_EQ(256u, theMap.MapObject(&theObject));
  theMap.UnmapObject(&theObject);
  EXPECT_EQ(nullptr, theMap.GetObject(UInt32{256}));
  EXPECT_EQ(257u, theMap.MapObject(&theObject));
}

TEST(TokenMap, DrawnTokenThatIsInUseLeavesTheEntryAndIsReturned) {
  Map theMap;
  int theFirst;
  int theSecond;
  theMap.AddMapping(256, &theFirst);
  EXPECT_EQ(256u, theMap.MapObject(&theSecond));
  EXPECT_EQ(&theFirst, theMap.GetObject(UInt32{256}));
  EXPECT_EQ(257u, theMap.MapObject(&theSecond));
}

TEST(TokenMap, UnmapTakesTheLowestTokenOfTheObject) {
  Map theMap;
  int theObject;
  int theOther;
  theMap.AddMapping(7, &theObject);
  theMap.AddMapping(3, &theObject);
  theMap.AddMapping(1, &theOther);
  theMap.UnmapObject(&theObject);
  EXPECT_EQ(nullptr, theMap.GetObject(UInt32{3}));
  EXPECT_EQ(&theObject, theMap.GetObject(UInt32{7}));
  EXPECT_EQ(&theOther, theMap.GetObject(UInt32{1}));
}

TEST(TokenMap, UnmapOfAStrangerChangesNothing) {
  Map theMap;
  int theObject;
  int theStranger;
  theMap.AddMapping(7, &theObject);
  theMap.UnmapObject(&theStranger);
  EXPECT_EQ(&theObject, theMap.GetObject(UInt32{7}));
}

TEST(TokenMap, AddMappingReplaces) {
  Map theMap;
  int theFirst;
  int theSecond;
  theMap.AddMapping(7, &theFirst);
  theMap.AddMapping(7, &theSecond);
  EXPECT_EQ(&theSecond, theMap.GetObject(UInt32{7}));
}

TEST(TokenMap, RemoveMappingLooksAtTheTokenAlone) {
  Map theMap;
  int theObject;
  int theOther;
  theMap.AddMapping(7, &theObject);
  theMap.RemoveMapping(7, &theOther);
  EXPECT_EQ(nullptr, theMap.GetObject(UInt32{7}));
  theMap.RemoveMapping(7, &theObject);
  theMap.RemoveMapping(8, &theObject);
  EXPECT_EQ(nullptr, theMap.GetObject(UInt32{8}));
  theMap.AddMapping(7, &theOther);
  EXPECT_EQ(&theOther, theMap.GetObject(UInt32{7}));
}

TEST(TokenMap, TokenTravelsInTheLow32BitsOfAPointer) {
  Map theMap;
  int theObject;
  theMap.AddMapping(0x12345678, &theObject);
  EXPECT_EQ(&theObject, theMap.GetObject(reinterpret_cast<const void*>(0x12345678)));
  EXPECT_EQ(&theObject, theMap.GetObject(reinterpret_cast<const void*>(0xABCDEF0112345678)));
  EXPECT_EQ(nullptr, theMap.GetObject(reinterpret_cast<const void*>(0x1234567812345679)));
}

TEST(TokenMap, TokensThatShareABucketAreKeptApart) {
  Map theMap;
  std::vector<int> theObjects(2000);
  for (UInt32 i = 0; i < 2000; ++i) theMap.AddMapping(i * 256, &theObjects[i]);
  for (UInt32 i = 0; i < 2000; i += 2) theMap.RemoveMapping(i * 256, nullptr);
  for (UInt32 i = 0; i < 2000; ++i) {
    ASSERT_EQ(i % 2 == 0 ? nullptr : &theObjects[i], theMap.GetObject(i * 256));
    ASSERT_EQ(nullptr, theMap.GetObject(i * 256 + 1));
  }
}

// Each token stands for the object of its place or for none; a reader that ever sees another has
// met a torn map.
TEST(TokenMap, IsReadWhileItIsWritten) {
  Map theMap;
  std::vector<int> theObjects(64);
  std::atomic<bool> theStop{false};
  std::atomic<int> theWrong{0};
  std::atomic<int> theSeen{0};
  auto theRead = [&] {
    while (!theStop) {
      for (UInt32 i = 0; i < 64; ++i) {
        int* theObject = theMap.GetObject(i * 128);
        if (theObject == nullptr) continue;
        ++theSeen;
        if (theObject != &theObjects[i]) ++theWrong;
      }
    }
  };
  std::thread theReader(theRead);
  std::thread theOtherReader(theRead);
  auto theWrite = [&](UInt32 inFirst) {
    // Until the readers have seen something, and some rounds in any case.
    for (int theRound = 0; theRound < 200 || theSeen == 0; ++theRound) {
      for (UInt32 i = inFirst; i < 64; i += 2) theMap.AddMapping(i * 128, &theObjects[i]);
      for (UInt32 i = inFirst; i < 64; i += 2) theMap.RemoveMapping(i * 128, &theObjects[i]);
    }
  };
  std::thread theOtherWriter(theWrite, 1);
  theWrite(0);
  theOtherWriter.join();
  theStop = true;
  theReader.join();
  theOtherReader.join();
  EXPECT_EQ(0, theWrong);
  EXPECT_LT(0, theSeen);
}

// Two threads that come to one point again and again, as nearly at once as may be.
class Together {
 public:
  void Meet() {
    const UInt32 theEnough = (++mCome + 1) / 2 * 2;
    for (int theSpins = 0; mCome < theEnough; ++theSpins) {
      if (theSpins > 1000) std::this_thread::yield();
    }
  }

 private:
  std::atomic<UInt32> mCome{0};
};

// Both want the same empty place of the table first, and then the same end of its list.
TEST(TokenIndex, WritersThatMeetInABucketLoseNothing) {
  constexpr UInt32 kRounds = 100;
  constexpr UInt32 kBuckets = 256;
  std::vector<int> theObjects(size_t{4} * kBuckets);
  for (UInt32 theRound = 0; theRound < kRounds; ++theRound) {
    CATokenIndex<int> theIndex;
    Together theTogether;
    auto theWrite = [&](UInt32 inWriter) {
      for (UInt32 theBucket = 0; theBucket < kBuckets; ++theBucket) {
        const UInt32 theToken = inWriter * kBuckets + theBucket;
        theTogether.Meet();
        theIndex.Set(theToken, &theObjects[theToken]);
        theIndex.Set(theToken + 2 * kBuckets, &theObjects[theToken + 2 * kBuckets]);
      }
    };
    std::thread theOther(theWrite, 1);
    theWrite(0);
    theOther.join();
    for (UInt32 i = 0; i < theObjects.size(); ++i) ASSERT_EQ(&theObjects[i], theIndex.Get(i)) << i;
  }
}

TEST(TokenIndex, OfTwoWritersOfOneTokenOneHolds) {
  constexpr UInt32 kRounds = 2000;
  CATokenIndex<int> theIndex;
  int theObjects[2];
  Together theTogether;
  auto theSet = [&](int* inObject) {
    for (UInt32 theToken = 0; theToken < kRounds; ++theToken) {
      theTogether.Meet();
      theIndex.Set(theToken, inObject);
    }
  };
  std::thread theOther(theSet, &theObjects[1]);
  theSet(&theObjects[0]);
  theOther.join();
  for (UInt32 theToken = 0; theToken < kRounds; ++theToken) {
    int* theObject = theIndex.Get(theToken);
    ASSERT_TRUE(theObject == &theObjects[0] || theObject == &theObjects[1]) << theToken;
    theIndex.Set(theToken, nullptr);
    ASSERT_EQ(nullptr, theIndex.Get(theToken)) << theToken;
  }
}

TEST(TokenIndex, NothingSetTakesNoPlace) {
  CATokenIndex<int> theIndex;
  int theObject;
  for (const UInt32 theToken : {0U, 1U, 256U, 0xFFFFFFFFU}) {
    EXPECT_EQ(nullptr, theIndex.Get(theToken));
    theIndex.Set(theToken, nullptr);
    EXPECT_EQ(nullptr, theIndex.Get(theToken));
    theIndex.Set(theToken, &theObject);
    EXPECT_EQ(&theObject, theIndex.Get(theToken));
    theIndex.Set(theToken, nullptr);
    EXPECT_EQ(nullptr, theIndex.Get(theToken));
  }
}

}  // namespace
