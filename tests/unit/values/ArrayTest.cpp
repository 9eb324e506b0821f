#include <gtest/gtest.h>

#include <cstring>

#include "support/CACFArray.h"
#include "support/CACFData.h"
#include "support/CACFDictionary.h"

namespace {

TEST(Array, HoldsEachKindOfValueInOrder) {
  CACFArray theArray(true);
  CACFArray theInner(true);
  CACFDictionary theDictionary(true);
  CACFData theData("xy", 2);
  CFUUIDRef theUUID =
      CFUUIDCreateFromString(kCFAllocatorDefault, CFSTR("F8BB1C28-BAE8-11D6-9C31-00039315CD46"));
  EXPECT_TRUE(theArray.AppendBool(true));
  EXPECT_TRUE(theArray.AppendSInt32(-3));
  EXPECT_TRUE(theArray.AppendUInt32(0x80000001));
  EXPECT_TRUE(theArray.AppendSInt64(SInt64{-1} << 40));
  EXPECT_TRUE(theArray.AppendUInt64(~UInt64{0}));
  EXPECT_TRUE(theArray.AppendFloat32(0.25f));
  EXPECT_TRUE(theArray.AppendFloat64(0.1));
  EXPECT_TRUE(theArray.AppendString(CFSTR("levl")));
  EXPECT_TRUE(theArray.AppendArray(theInner.GetCFArray()));
  EXPECT_TRUE(theArray.AppendDictionary(theDictionary.GetCFDictionary()));
  EXPECT_TRUE(theArray.AppendData(theData.GetCFData()));
  EXPECT_TRUE(theArray.AppendCFType(theUUID));
  EXPECT_EQ(12u, theArray.GetNumberItems());

  bool theBool = false;
  EXPECT_TRUE(theArray.GetBool(0, theBool));
  EXPECT_TRUE(theBool);
  SInt32 theSInt32 = 0;
  EXPECT_TRUE(theArray.GetSInt32(1, theSInt32));
  EXPECT_EQ(-3, theSInt32);
  UInt32 theUInt32 = 0;
  EXPECT_TRUE(theArray.GetUInt32(2, theUInt32));
  EXPECT_EQ(0x80000001u, theUInt32);
  SInt64 theSInt64 = 0;
  EXPECT_TRUE(theArray.GetSInt64(3, theSInt64));
  EXPECT_EQ(SInt64{-1} << 40, theSInt64);
  UInt64 theUInt64 = 0;
  EXPECT_TRUE(theArray.GetUInt64(4, theUInt64));
  EXPECT_EQ(~UInt64{0}, theUInt64);
  Float32 theFloat32 = 0;
  EXPECT_TRUE(theArray.GetFloat32(5, theFloat32));
  EXPECT_EQ(0.25f, theFloat32);
  Float64 theFloat64 = 0;
  EXPECT_TRUE(theArray.GetFloat64(6, theFloat64));
  EXPECT_EQ(0.1, theFloat64);
  CFStringRef theString = nullptr;
  EXPECT_TRUE(theArray.GetString(7, theString));
  EXPECT_TRUE(CFEqual(CFSTR("levl"), theString));
  UInt32 theCode = 0;
  EXPECT_TRUE(theArray.Get4CC(7, theCode));
  EXPECT_EQ(UInt32{'levl'}, theCode);
  EXPECT_TRUE(theArray.Get4CC(2, theCode));
  EXPECT_EQ(0x80000001u, theCode);
  CFArrayRef theArrayRef = nullptr;
  EXPECT_TRUE(theArray.GetArray(8, theArrayRef));
  EXPECT_EQ(theInner.GetCFArray(), theArrayRef);
  CFDictionaryRef theDictionaryRef = nullptr;
  EXPECT_TRUE(theArray.GetDictionary(9, theDictionaryRef));
  EXPECT_EQ(theDictionary.GetCFDictionary(), theDictionaryRef);
  CFDataRef theDataRef = nullptr;
  EXPECT_TRUE(theArray.GetData(10, theDataRef));
  EXPECT_EQ(theData.GetCFData(), theDataRef);
  CFUUIDRef theUUIDRef = nullptr;
  EXPECT_TRUE(theArray.GetUUID(11, theUUIDRef));
  EXPECT_EQ(theUUID, theUUIDRef);
  CFTypeRef theType = nullptr;
  EXPECT_TRUE(theArray.GetCFType(10, theType));
  EXPECT_EQ(theData.GetCFData(), theType);
  CFRelease(theUUID);
}

TEST(Array, WrongKindOrIndexLeavesTheOutput) {
  CACFArray theArray(true);
  theArray.AppendString(CFSTR("text too long for a code"));
  UInt32 theNumber = 5;
  EXPECT_FALSE(theArray.GetUInt32(0, theNumber));
  EXPECT_FALSE(theArray.GetUInt32(1, theNumber));
  EXPECT_FALSE(theArray.Get4CC(0, theNumber));
  EXPECT_FALSE(theArray.Get4CC(1, theNumber));
  EXPECT_EQ(5u, theNumber);
  CFUUIDRef theUUID = nullptr;
  EXPECT_FALSE(theArray.GetUUID(0, theUUID));
}

SInt32 NumberAt(const CACFArray& inArray, UInt32 inIndex) {
  SInt32 theValue = -1;
  inArray.GetSInt32(inIndex, theValue);
  return theValue;
}

TEST(Array, InsertsBeforeAnIndexAndAppendsPastTheEnd) {
  CACFArray theArray(true);
  EXPECT_TRUE(theArray.InsertSInt32(7, 2));
  EXPECT_TRUE(theArray.InsertSInt32(0, 1));
  EXPECT_TRUE(theArray.InsertSInt32(2, 3));
  EXPECT_EQ(1, NumberAt(theArray, 0));
  EXPECT_EQ(2, NumberAt(theArray, 1));
  EXPECT_EQ(3, NumberAt(theArray, 2));
}

TEST(Array, SetReplacesAppendsAtTheEndAndFailsPastIt) {
  CACFArray theArray(true);
  EXPECT_TRUE(theArray.SetSInt32(0, 1));
  EXPECT_TRUE(theArray.SetSInt32(0, 2));
  EXPECT_FALSE(theArray.SetSInt32(2, 3));
  ASSERT_EQ(1u, theArray.GetNumberItems());
  EXPECT_EQ(2, NumberAt(theArray, 0));
}

// One value of each kind that an array takes, put in by an operation and read back.
struct ArrayOperations {
  bool (CACFArray::*mBool)(UInt32, bool);
  bool (CACFArray::*mSInt32)(UInt32, SInt32);
  bool (CACFArray::*mUInt32)(UInt32, UInt32);
  bool (CACFArray::*mSInt64)(UInt32, SInt64);
  bool (CACFArray::*mUInt64)(UInt32, UInt64);
  bool (CACFArray::*mFloat32)(UInt32, Float32);
  bool (CACFArray::*mFloat64)(UInt32, Float64);
  bool (CACFArray::*mString)(UInt32, CFStringRef);
  bool (CACFArray::*mArray)(UInt32, CFArrayRef);
  bool (CACFArray::*mDictionary)(UInt32, CFDictionaryRef);
  bool (CACFArray::*mData)(UInt32, CFDataRef);
};

void ExpectEachKindAtItsIndex(const ArrayOperations& inOperations, UInt32 inItemsAfterwards) {
  CACFArray theArray(true);
  for (int i = 0; i < 11; ++i) theArray.AppendSInt32(100 + i);
  const CACFArray theInner(true);
  const CACFDictionary theDictionary(true);
  const UInt8 theBytes[] = {1, 2};
  const CACFData theData(theBytes, sizeof theBytes);
  EXPECT_TRUE((theArray.*inOperations.mBool)(0, true));
  EXPECT_TRUE((theArray.*inOperations.mSInt32)(1, -3));
  EXPECT_TRUE((theArray.*inOperations.mUInt32)(2, 0x80000001));
  EXPECT_TRUE((theArray.*inOperations.mSInt64)(3, SInt64{-1} << 40));
  EXPECT_TRUE((theArray.*inOperations.mUInt64)(4, ~UInt64{0}));
  EXPECT_TRUE((theArray.*inOperations.mFloat32)(5, 0.25f));
  EXPECT_TRUE((theArray.*inOperations.mFloat64)(6, 0.1));
  EXPECT_TRUE((theArray.*inOperations.mString)(7, CFSTR("levl")));
  EXPECT_TRUE((theArray.*inOperations.mArray)(8, theInner.GetCFArray()));
  EXPECT_TRUE((theArray.*inOperations.mDictionary)(9, theDictionary.GetCFDictionary()));
  EXPECT_TRUE((theArray.*inOperations.mData)(10, theData.GetCFData()));
  EXPECT_EQ(inItemsAfterwards, theArray.GetNumberItems());

  bool theBool = false;
  EXPECT_TRUE(theArray.GetBool(0, theBool) && theBool);
  EXPECT_EQ(-3, NumberAt(theArray, 1));
  UInt32 theUInt32 = 0;
  EXPECT_TRUE(theArray.GetUInt32(2, theUInt32));
  EXPECT_EQ(0x80000001, theUInt32);
  SInt64 theSInt64 = 0;
  EXPECT_TRUE(theArray.GetSInt64(3, theSInt64));
  EXPECT_EQ(SInt64{-1} << 40, theSInt64);
  UInt64 theUInt64 = 0;
  EXPECT_TRUE(theArray.GetUInt64(4, theUInt64));
  EXPECT_EQ(~UInt64{0}, theUInt64);
  Float32 theFloat32 = 0;
  EXPECT_TRUE(theArray.GetFloat32(5, theFloat32));
  EXPECT_EQ(0.25f, theFloat32);
  Float64 theFloat64 = 0;
  EXPECT_TRUE(theArray.GetFloat64(6, theFloat64));
  EXPECT_EQ(0.1, theFloat64);
  CFTypeRef theValue = nullptr;
  EXPECT_TRUE(theArray.GetCFType(7, theValue));
  EXPECT_TRUE(CFEqual(CFSTR("levl"), theValue));
  EXPECT_TRUE(theArray.GetCFType(8, theValue));
  EXPECT_EQ(theInner.GetCFArray(), theValue);
  EXPECT_TRUE(theArray.GetCFType(9, theValue));
  EXPECT_EQ(theDictionary.GetCFDictionary(), theValue);
  EXPECT_TRUE(theArray.GetCFType(10, theValue));
  EXPECT_EQ(theData.GetCFData(), theValue);
}

TEST(Array, InsertsEachKindOfValue) {
  ExpectEachKindAtItsIndex(
      {&CACFArray::InsertBool, &CACFArray::InsertSInt32, &CACFArray::InsertUInt32,
       &CACFArray::InsertSInt64, &CACFArray::InsertUInt64, &CACFArray::InsertFloat32,
       &CACFArray::InsertFloat64, &CACFArray::InsertString, &CACFArray::InsertArray,
       &CACFArray::InsertDictionary, &CACFArray::InsertData},
      22);
}

TEST(Array, SetsEachKindOfValue) {
  ExpectEachKindAtItsIndex(
      {&CACFArray::SetBool, &CACFArray::SetSInt32, &CACFArray::SetUInt32, &CACFArray::SetSInt64,
       &CACFArray::SetUInt64, &CACFArray::SetFloat32, &CACFArray::SetFloat64, &CACFArray::SetString,
       &CACFArray::SetArray, &CACFArray::SetDictionary, &CACFArray::SetData},
      11);
}

TEST(Array, FindsAndTakesOutItems) {
  CACFArray theArray(true);
  theArray.AppendString(CFSTR("a"));
  theArray.AppendString(CFSTR("b"));
  UInt32 theIndex = 9;
  EXPECT_TRUE(theArray.GetIndexOfItem(CFSTR("b"), theIndex));
  EXPECT_EQ(1u, theIndex);
  EXPECT_FALSE(theArray.HasItem(CFSTR("c")));
  EXPECT_FALSE(theArray.RemoveItemAtIndex(2));
  EXPECT_TRUE(theArray.RemoveItemAtIndex(0));
  EXPECT_TRUE(theArray.HasItem(CFSTR("b")));
  EXPECT_EQ(1u, theArray.GetNumberItems());
  theArray.Clear();
  EXPECT_EQ(0u, theArray.GetNumberItems());
}

TEST(Array, ImmutableOneRefusesValues) {
  CACFArray theArray(CFArrayCreate(kCFAllocatorDefault, nullptr, 0, &kCFTypeArrayCallBacks), true);
  EXPECT_FALSE(theArray.AppendSInt32(1));
  EXPECT_FALSE(theArray.InsertSInt32(0, 1));
  EXPECT_FALSE(theArray.SetSInt32(0, 1));
  theArray.Clear();
  EXPECT_EQ(0u, theArray.GetNumberItems());
}

}  // namespace
