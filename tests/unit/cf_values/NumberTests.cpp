#include <CoreFoundation/CoreFoundation.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>

#include "corefoundation/Object.h"

namespace {

using Number = tembra::cf::Owned<CFNumberRef>;

template <class T>
Number Make(CFNumberType inType, T inValue) {
  return Number(CFNumberCreate(nullptr, inType, &inValue));
}

template <class T>
T Get(CFNumberRef inNumber, CFNumberType inType, bool inIsExact) {
  T value{};
  EXPECT_EQ(CFNumberGetValue(inNumber, inType, &value), inIsExact);
  return value;
}

TEST(CFNumber, KeepsItsKindByWidth) {
  struct {
    CFNumberType mMade, mKept;
    CFIndex mSize;
  } const rows[] = {{kCFNumberSInt8Type, kCFNumberSInt8Type, 1},
                    {kCFNumberCharType, kCFNumberSInt8Type, 1},
                    {kCFNumberSInt16Type, kCFNumberSInt16Type, 2},
                    {kCFNumberShortType, kCFNumberSInt16Type, 2},
                    {kCFNumberSInt32Type, kCFNumberSInt32Type, 4},
                    {kCFNumberIntType, kCFNumberSInt32Type, 4},
                    {kCFNumberSInt64Type, kCFNumberSInt64Type, 8},
                    {kCFNumberLongType, kCFNumberSInt64Type, 8},
                    {kCFNumberLongLongType, kCFNumberSInt64Type, 8},
                    {kCFNumberCFIndexType, kCFNumberSInt64Type, 8},
                    {kCFNumberNSIntegerType, kCFNumberSInt64Type, 8},
                    {kCFNumberFloat32Type, kCFNumberFloat32Type, 4},
                    {kCFNumberFloatType, kCFNumberFloat32Type, 4},
                    {kCFNumberFloat64Type, kCFNumberFloat64Type, 8},
                    {kCFNumberDoubleType, kCFNumberFloat64Type, 8},
                    {kCFNumberCGFloatType, kCFNumberFloat64Type, 8}};
  for (const auto& row : rows) {
    SInt64 zero = 0;
    Number number(CFNumberCreate(nullptr, row.mMade, &zero));
    EXPECT_EQ(CFNumberGetType(number), row.mKept) << row.mMade;
    EXPECT_EQ(CFNumberGetByteSize(number), row.mSize) << row.mMade;
    EXPECT_EQ(CFNumberIsFloatType(number),
              row.mKept == kCFNumberFloat32Type || row.mKept == kCFNumberFloat64Type);
  }
  SInt64 zero = 0;
  EXPECT_EQ(CFNumberCreate(nullptr, static_cast<CFNumberType>(17), &zero), nullptr);
  EXPECT_EQ(CFNumberCreate(nullptr, static_cast<CFNumberType>(0), &zero), nullptr);
}

TEST(CFNumber, ReadsBackItsValueInEveryKindThatHoldsIt) {
  Number number = Make<SInt32>(kCFNumberSInt32Type, -100);
  EXPECT_EQ(Get<SInt8>(number, kCFNumberSInt8Type, true), -100);
  EXPECT_EQ(Get<SInt16>(number, kCFNumberSInt16Type, true), -100);
  EXPECT_EQ(Get<SInt32>(number, kCFNumberSInt32Type, true), -100);
  EXPECT_EQ(Get<SInt64>(number, kCFNumberSInt64Type, true), -100);
  EXPECT_EQ(Get<float>(number, kCFNumberFloat32Type, true), -100.0f);
  EXPECT_EQ(Get<double>(number, kCFNumberFloat64Type, true), -100.0);
}

TEST(CFNumber, StoresAndReportsLoss) {
  Number wide = Make<SInt64>(kCFNumberSInt64Type, 0x123456789LL);
  EXPECT_EQ(Get<SInt32>(wide, kCFNumberSInt32Type, false), 0x23456789);
  Number half = Make<double>(kCFNumberFloat64Type, 2.75);
  EXPECT_EQ(Get<SInt32>(half, kCFNumberSInt32Type, false), 2);
  Number negative = Make<double>(kCFNumberFloat64Type, -2.75);
  EXPECT_EQ(Get<SInt32>(negative, kCFNumberSInt32Type, false), -2);
  Number huge = Make<double>(kCFNumberFloat64Type, 1e30);
  EXPECT_EQ(Get<SInt32>(huge, kCFNumberSInt32Type, false), INT_MAX);
  EXPECT_EQ(Get<SInt64>(huge, kCFNumberSInt64Type, false), INT64_MAX);
  Number lowest = Make<double>(kCFNumberFloat64Type, -1e30);
  EXPECT_EQ(Get<SInt64>(lowest, kCFNumberSInt64Type, false), INT64_MIN);
  Number edge = Make<double>(kCFNumberFloat64Type, 9223372036854775808.0);
  EXPECT_EQ(Get<SInt64>(edge, kCFNumberSInt64Type, false), INT64_MAX);
  Number low = Make<double>(kCFNumberFloat64Type, -9223372036854775808.0);
  EXPECT_EQ(Get<SInt64>(low, kCFNumberSInt64Type, true), INT64_MIN);
  EXPECT_EQ(Get<SInt32>(kCFNumberNaN, kCFNumberSInt32Type, false), 0);
  Number third = Make<double>(kCFNumberFloat64Type, 1.0 / 3);
  EXPECT_EQ(Get<float>(third, kCFNumberFloat32Type, false), 1.0f / 3);
  Number odd = Make<SInt64>(kCFNumberSInt64Type, (1LL << 53) + 1);
  EXPECT_EQ(Get<double>(odd, kCFNumberFloat64Type, false), 9007199254740992.0);
  Number most = Make<SInt64>(kCFNumberSInt64Type, INT64_MAX);
  EXPECT_EQ(Get<double>(most, kCFNumberFloat64Type, false), 9223372036854775808.0);
  EXPECT_EQ(Get<float>(huge, kCFNumberFloat32Type, false), 1e30f);
  Number beyond = Make<double>(kCFNumberFloat64Type, 1e300);
  EXPECT_TRUE(std::isinf(Get<float>(beyond, kCFNumberFloat32Type, false)));
}

TEST(CFNumber, ReadsRealsAsIntegersWithoutLossWhereWhole) {
  Number whole = Make<double>(kCFNumberFloat64Type, 44100.0);
  EXPECT_EQ(Get<SInt32>(whole, kCFNumberSInt32Type, true), 44100);
  EXPECT_EQ(Get<float>(whole, kCFNumberFloat32Type, true), 44100.0f);
  EXPECT_TRUE(std::isnan(Get<float>(kCFNumberNaN, kCFNumberFloat32Type, true)));
  EXPECT_TRUE(std::isinf(Get<float>(kCFNumberNegativeInfinity, kCFNumberFloat32Type, true)));
}

TEST(CFNumber, ComparesByValueAcrossKinds) {
  Number one = Make<SInt8>(kCFNumberSInt8Type, 1);
  Number oneReal = Make<double>(kCFNumberFloat64Type, 1.0);
  Number oneAndAHalf = Make<float>(kCFNumberFloat32Type, 1.5f);
  EXPECT_TRUE(CFEqual(one, oneReal));
  EXPECT_EQ(CFHash(one), CFHash(oneReal));
  EXPECT_FALSE(CFEqual(one, oneAndAHalf));
  EXPECT_EQ(CFNumberCompare(one, oneAndAHalf, nullptr), kCFCompareLessThan);
  EXPECT_EQ(CFNumberCompare(oneAndAHalf, one, nullptr), kCFCompareGreaterThan);
  Number minus = Make<double>(kCFNumberFloat64Type, -1.5);
  Number minusOne = Make<SInt32>(kCFNumberSInt32Type, -1);
  EXPECT_EQ(CFNumberCompare(minus, minusOne, nullptr), kCFCompareLessThan);
  Number precise = Make<SInt64>(kCFNumberSInt64Type, (1LL << 53) + 1);
  Number rounded = Make<double>(kCFNumberFloat64Type, 9007199254740992.0);
  EXPECT_EQ(CFNumberCompare(precise, rounded, nullptr), kCFCompareGreaterThan);
  EXPECT_EQ(CFNumberCompare(one, kCFNumberPositiveInfinity, nullptr), kCFCompareLessThan);
  EXPECT_EQ(CFNumberCompare(one, kCFNumberNegativeInfinity, nullptr), kCFCompareGreaterThan);
}

TEST(CFNumber, OrdersNaNBetweenNegativeNumbersAndTheRest) {
  Number minus = Make<SInt32>(kCFNumberSInt32Type, -1);
  Number zero = Make<SInt32>(kCFNumberSInt32Type, 0);
  EXPECT_EQ(CFNumberCompare(kCFNumberNaN, kCFNumberNaN, nullptr), kCFCompareEqualTo);
  EXPECT_EQ(CFNumberCompare(kCFNumberNaN, minus, nullptr), kCFCompareGreaterThan);
  EXPECT_EQ(CFNumberCompare(kCFNumberNaN, zero, nullptr), kCFCompareLessThan);
  EXPECT_EQ(CFNumberCompare(minus, kCFNumberNaN, nullptr), kCFCompareLessThan);
  EXPECT_EQ(CFNumberCompare(kCFNumberPositiveInfinity, kCFNumberNaN, nullptr),
            kCFCompareGreaterThan);
}

TEST(CFBoolean, IsOneOfTwoObjectsAndNoNumber) {
  EXPECT_TRUE(CFBooleanGetValue(kCFBooleanTrue));
  EXPECT_FALSE(CFBooleanGetValue(kCFBooleanFalse));
  EXPECT_FALSE(CFEqual(kCFBooleanTrue, kCFBooleanFalse));
  Number one = Make<SInt32>(kCFNumberSInt32Type, 1);
  EXPECT_FALSE(CFEqual(one, kCFBooleanTrue));
  EXPECT_EQ(CFGetTypeID(kCFBooleanTrue), CFBooleanGetTypeID());
  EXPECT_NE(CFBooleanGetTypeID(), CFNumberGetTypeID());
  CFRelease(kCFBooleanTrue);
  EXPECT_TRUE(CFBooleanGetValue(kCFBooleanTrue));
}

}  // namespace
