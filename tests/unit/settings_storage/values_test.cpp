// What the typed operations hand out for values of each kind.

#include <limits>

#include "SettingsFixture.h"
#include "support/CACFArray.h"
#include "support/CACFData.h"
#include "support/CACFDictionary.h"
#include "support/CACFNumber.h"

namespace tembra::test {
namespace {

class Values : public SettingsTest {
 protected:
  Values() : mStorage(Make()) {
    const UInt8 bytes[] = {1, 2, 3};
    mStorage.SetCFTypeValue(CFSTR("true"), kCFBooleanTrue);
    mStorage.SetCFTypeValue(CFSTR("false"), kCFBooleanFalse);
    mStorage.SetSInt32Value(CFSTR("number"), 2);
    mStorage.SetSInt32Value(CFSTR("zero"), 0);
    mStorage.SetStringValue(CFSTR("string"), CFSTR("text"));
    mStorage.SetDataValue(CFSTR("data"), CACFData(bytes, sizeof(bytes)).GetCFData());
    mStorage.SetArrayValue(CFSTR("array"), CACFArray(true).GetCFArray());
    mStorage.SetDictionaryValue(CFSTR("dictionary"), CACFDictionary(true).GetCFDictionary());
  }

  bool Bool(CFStringRef inKey, bool inDefault) {
    bool value = !inDefault;
    mStorage.CopyBoolValue(inKey, value, inDefault);
    return value;
  }

  CASettingsStorage mStorage;
};

const CFStringRef kNoNumbers[] = {CFSTR("true"),  CFSTR("string"),     CFSTR("data"),
                                  CFSTR("array"), CFSTR("dictionary"), CFSTR("missing")};

TEST_F(Values, ABooleanIsItself) {
  EXPECT_TRUE(Bool(CFSTR("true"), false));
  EXPECT_FALSE(Bool(CFSTR("false"), true));
}

TEST_F(Values, ANumberThatIsNotZeroIsTrue) {
  EXPECT_TRUE(Bool(CFSTR("number"), false));
  EXPECT_FALSE(Bool(CFSTR("zero"), true));
  mStorage.SetSInt32Value(CFSTR("number"), -1);
  EXPECT_TRUE(Bool(CFSTR("number"), false));
  // Read as 32 bits with a sign.
  mStorage.SetFloat64Value(CFSTR("number"), 0.5);
  EXPECT_FALSE(Bool(CFSTR("number"), true));
}

TEST_F(Values, AnythingElseLeavesABooleansDefault) {
  for (CFStringRef key :
       {CFSTR("string"), CFSTR("data"), CFSTR("array"), CFSTR("dictionary"), CFSTR("missing")}) {
    EXPECT_TRUE(Bool(key, true));
    EXPECT_FALSE(Bool(key, false));
  }
}

TEST_F(Values, NumbersKeepTheirWidth) {
  mStorage.SetSInt32Value(CFSTR("s32"), std::numeric_limits<SInt32>::min());
  mStorage.SetUInt32Value(CFSTR("u32"), std::numeric_limits<UInt32>::max());
  mStorage.SetSInt64Value(CFSTR("s64"), std::numeric_limits<SInt64>::min());
  mStorage.SetUInt64Value(CFSTR("u64"), std::numeric_limits<UInt64>::max());
  mStorage.SetFloat32Value(CFSTR("f32"), 0.1f);
  mStorage.SetFloat64Value(CFSTR("f64"), 0.1);
  CASettingsStorage fresh = Make();
  for (CASettingsStorage* storage : {&mStorage, &fresh}) {
    SInt32 s32 = 0;
    UInt32 u32 = 0;
    SInt64 s64 = 0;
    UInt64 u64 = 0;
    Float32 f32 = 0;
    Float64 f64 = 0;
    storage->CopySInt32Value(CFSTR("s32"), s32, 7);
    storage->CopyUInt32Value(CFSTR("u32"), u32, 7);
    storage->CopySInt64Value(CFSTR("s64"), s64, 7);
    storage->CopyUInt64Value(CFSTR("u64"), u64, 7);
    storage->CopyFloat32Value(CFSTR("f32"), f32, 7);
    storage->CopyFloat64Value(CFSTR("f64"), f64, 7);
    EXPECT_EQ(s32, std::numeric_limits<SInt32>::min());
    EXPECT_EQ(u32, std::numeric_limits<UInt32>::max());
    EXPECT_EQ(s64, std::numeric_limits<SInt64>::min());
    EXPECT_EQ(u64, std::numeric_limits<UInt64>::max());
    EXPECT_EQ(f32, 0.1f);
    EXPECT_EQ(f64, 0.1);
  }
}

TEST_F(Values, ANumberIsReadAtTheWidthAskedFor) {
  mStorage.SetFloat64Value(CFSTR("half"), 2.75);
  SInt32 s32 = 0;
  mStorage.CopySInt32Value(CFSTR("half"), s32, 9);
  EXPECT_EQ(s32, 2);
  Float32 f32 = 0;
  mStorage.CopyFloat32Value(CFSTR("number"), f32, 9);
  EXPECT_EQ(f32, 2.0f);
}

TEST_F(Values, WhatIsNoNumberGivesANumbersDefault) {
  for (CFStringRef key : kNoNumbers) {
    SInt32 s32 = 0;
    UInt32 u32 = 0;
    SInt64 s64 = 0;
    UInt64 u64 = 0;
    Float32 f32 = 0;
    Float64 f64 = 0;
    mStorage.CopySInt32Value(key, s32, -7);
    mStorage.CopyUInt32Value(key, u32, 7);
    mStorage.CopySInt64Value(key, s64, -8);
    mStorage.CopyUInt64Value(key, u64, 8);
    mStorage.CopyFloat32Value(key, f32, 0.5f);
    mStorage.CopyFloat64Value(key, f64, 0.25);
    EXPECT_EQ(s32, -7);
    EXPECT_EQ(u32, 7u);
    EXPECT_EQ(s64, -8);
    EXPECT_EQ(u64, 8u);
    EXPECT_EQ(f32, 0.5f);
    EXPECT_EQ(f64, 0.25);
  }
}

TEST_F(Values, AReferenceOfTheRightKindIsHandedOver) {
  CFNumberRef number = nullptr;
  CFStringRef string = nullptr;
  CFArrayRef array = nullptr;
  CFDictionaryRef dictionary = nullptr;
  CFDataRef data = nullptr;
  CFTypeRef any = nullptr;
  mStorage.CopyNumberValue(CFSTR("number"), number, nullptr);
  mStorage.CopyStringValue(CFSTR("string"), string, nullptr);
  mStorage.CopyArrayValue(CFSTR("array"), array, nullptr);
  mStorage.CopyDictionaryValue(CFSTR("dictionary"), dictionary, nullptr);
  mStorage.CopyDataValue(CFSTR("data"), data, nullptr);
  mStorage.CopyCFTypeValue(CFSTR("true"), any, nullptr);
  // They are the caller's: still there when the storage has lost them.
  mStorage.RemoveAllValues();
  EXPECT_EQ(CACFNumber(number).GetSInt32(), 2);
  EXPECT_TRUE(CFEqual(string, CFSTR("text")));
  EXPECT_EQ(CFArrayGetCount(array), 0);
  EXPECT_EQ(CFDictionaryGetCount(dictionary), 0);
  EXPECT_EQ(CFDataGetLength(data), 3);
  EXPECT_EQ(any, kCFBooleanTrue);
  for (CFTypeRef value :
       {CFTypeRef(string), CFTypeRef(array), CFTypeRef(dictionary), CFTypeRef(data), any}) {
    CFRelease(value);
  }
}

// A default that counts its references.
class Default {
 public:
  explicit Default(CFTypeRef inValue) : mValue(inValue), mCount(CFGetRetainCount(inValue)) {}
  ~Default() { CFRelease(mValue); }
  template <class T>
  T As() const {
    return static_cast<T>(mValue);
  }
  // Whether it was handed out once, with a reference for the caller, which this gives back.
  bool WasHandedOutAs(CFTypeRef inValue) const {
    const bool is = inValue == mValue && CFGetRetainCount(mValue) == mCount + 1;
    if (is) CFRelease(mValue);
    return is;
  }

 private:
  CFTypeRef mValue;
  CFIndex mCount;
};

TEST_F(Values, AReferenceOfAnotherKindGivesTheDefaultRetained) {
  const Default string(CFStringCreateMutable(nullptr, 0));
  const Default array(CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks));
  const Default data(CFDataCreateMutable(nullptr, 0));
  const Default dictionary(CFDictionaryCreateMutable(nullptr, 0, &kCFTypeDictionaryKeyCallBacks,
                                                     &kCFTypeDictionaryValueCallBacks));
  const Float64 oneAndAHalf = 1.5;
  const Default number(CFNumberCreate(nullptr, kCFNumberFloat64Type, &oneAndAHalf));
  for (CFStringRef key : {CFSTR("true"), CFSTR("missing")}) {
    CFStringRef theString = nullptr;
    CFArrayRef theArray = nullptr;
    CFDataRef theData = nullptr;
    CFDictionaryRef theDictionary = nullptr;
    CFNumberRef theNumber = nullptr;
    mStorage.CopyStringValue(key, theString, string.As<CFStringRef>());
    mStorage.CopyArrayValue(key, theArray, array.As<CFArrayRef>());
    mStorage.CopyDataValue(key, theData, data.As<CFDataRef>());
    mStorage.CopyDictionaryValue(key, theDictionary, dictionary.As<CFDictionaryRef>());
    mStorage.CopyNumberValue(key, theNumber, number.As<CFNumberRef>());
    EXPECT_TRUE(string.WasHandedOutAs(theString));
    EXPECT_TRUE(array.WasHandedOutAs(theArray));
    EXPECT_TRUE(data.WasHandedOutAs(theData));
    EXPECT_TRUE(dictionary.WasHandedOutAs(theDictionary));
    EXPECT_TRUE(number.WasHandedOutAs(theNumber));
  }
}

TEST_F(Values, AStringAskedOfANumberIsTheDefaultRetained) {
  const Default fallback(CFStringCreateMutable(nullptr, 0));
  CFStringRef value = nullptr;
  mStorage.CopyStringValue(CFSTR("number"), value, fallback.As<CFStringRef>());
  EXPECT_TRUE(fallback.WasHandedOutAs(value));
}

TEST_F(Values, WithNoDefaultAWrongKindIsNull) {
  auto value = static_cast<CFStringRef>(CFSTR("before"));
  mStorage.CopyStringValue(CFSTR("number"), value, nullptr);
  EXPECT_EQ(value, nullptr);
  CFTypeRef any = CFSTR("before");
  mStorage.CopyCFTypeValue(CFSTR("missing"), any, nullptr);
  EXPECT_EQ(any, nullptr);
}

TEST_F(Values, AValueOfAnyKindPrefersItselfToItsDefault) {
  const Default fallback(CFStringCreateMutable(nullptr, 0));
  CFTypeRef any = nullptr;
  mStorage.CopyCFTypeValue(CFSTR("missing"), any, fallback.As<CFTypeRef>());
  EXPECT_TRUE(fallback.WasHandedOutAs(any));
  mStorage.CopyCFTypeValue(CFSTR("string"), any, fallback.As<CFTypeRef>());
  EXPECT_TRUE(CFEqual(any, CFSTR("text")));
  CFRelease(any);
}

TEST_F(Values, TheKeysAreCountedAndCopied) {
  EXPECT_EQ(mStorage.GetNumberKeys(), 8u);
  CFStringRef keys[8] = {};
  UInt32 count = 0;
  mStorage.GetKeys(8, count, keys);
  EXPECT_EQ(count, 8u);
  for (CFStringRef key : keys) {
    ASSERT_NE(key, nullptr);
    CFTypeRef value = nullptr;
    mStorage.CopyCFTypeValue(key, value, nullptr);
    ASSERT_NE(value, nullptr);
    CFRelease(value);
  }
}

TEST_F(Values, TheKeysAreAllCopiedWhateverTheCountThatIsAskedFor) {
  CFStringRef keys[8] = {};
  UInt32 count = 0;
  mStorage.GetKeys(2, count, keys);
  EXPECT_EQ(count, 2u);
  for (CFStringRef key : keys) EXPECT_NE(key, nullptr);
  CFStringRef roomy[10] = {};
  mStorage.GetKeys(10, count, roomy);
  EXPECT_EQ(count, 10u);
  EXPECT_EQ(roomy[8], nullptr);
}

TEST_F(Values, AValueReplacesTheOneBefore) {
  mStorage.SetStringValue(CFSTR("number"), CFSTR("now a string"));
  EXPECT_EQ(Number(mStorage, "number", -5), -5);
  EXPECT_EQ(mStorage.GetNumberKeys(), 8u);
  mStorage.SetNumberValue(CFSTR("number"), CACFNumber(SInt32{6}).GetCFNumber());
  EXPECT_EQ(Number(mStorage, "number", -5), 6);
}

TEST_F(Values, ARemovedValueIsGone) {
  mStorage.RemoveValue(CFSTR("number"));
  mStorage.RemoveValue(CFSTR("missing"));
  EXPECT_EQ(Number(mStorage, "number", -5), -5);
  EXPECT_EQ(mStorage.GetNumberKeys(), 7u);
  mStorage.RemoveAllValues();
  EXPECT_EQ(mStorage.GetNumberKeys(), 0u);
}

}  // namespace
}  // namespace tembra::test
