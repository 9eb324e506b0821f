#include <CoreFoundation/CoreFoundation.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>
#include <vector>

#include "corefoundation/Object.h"

namespace {

using tembra::cf::Owned;
using Array = Owned<CFMutableArrayRef>;
using Dictionary = Owned<CFMutableDictionaryRef>;

const void* P(long inValue) {
  return reinterpret_cast<const void*>(inValue);
}

std::vector<long> Values(CFArrayRef inArray) {
  std::vector<long> values;
  for (CFIndex i = 0; i < CFArrayGetCount(inArray); ++i) {
    values.push_back(reinterpret_cast<long>(CFArrayGetValueAtIndex(inArray, i)));
  }
  return values;
}

Dictionary MakeDictionary() {
  return Dictionary(CFDictionaryCreateMutable(nullptr, 0, &kCFTypeDictionaryKeyCallBacks,
                                              &kCFTypeDictionaryValueCallBacks));
}

TEST(CFArray, HoldsPlainPointersWithoutCallbacks) {
  Array array(CFArrayCreateMutable(nullptr, 0, nullptr));
  CFArrayAppendValue(array, P(1));
  CFArrayAppendValue(array, P(3));
  CFArrayInsertValueAtIndex(array, 1, P(2));
  CFArrayInsertValueAtIndex(array, 9, P(9));
  EXPECT_THAT(Values(array), testing::ElementsAre(1, 2, 3));
  CFArraySetValueAtIndex(array, 0, P(5));
  CFArraySetValueAtIndex(array, 3, P(4));
  CFArraySetValueAtIndex(array, 5, P(9));
  EXPECT_THAT(Values(array), testing::ElementsAre(5, 2, 3, 4));
  CFArrayRemoveValueAtIndex(array, 1);
  CFArrayExchangeValuesAtIndices(array, 0, 2);
  EXPECT_THAT(Values(array), testing::ElementsAre(4, 3, 5));
  EXPECT_EQ(CFArrayGetValueAtIndex(array, 3), nullptr);
  EXPECT_EQ(CFArrayGetValueAtIndex(array, -1), nullptr);
  const void* replaced[] = {P(7), P(8), P(9)};
  CFArrayReplaceValues(array, CFRangeMake(1, 1), replaced, 3);
  EXPECT_THAT(Values(array), testing::ElementsAre(4, 7, 8, 9, 5));
  CFArraySortValues(
      array, CFRangeMake(0, 5),
      [](const void* a, const void* b, void*) {
        return a < b ? kCFCompareLessThan : a > b ? kCFCompareGreaterThan : kCFCompareEqualTo;
      },
      nullptr);
  EXPECT_THAT(Values(array), testing::ElementsAre(4, 5, 7, 8, 9));
  Array other(CFArrayCreateMutableCopy(nullptr, 0, array));
  CFArrayAppendArray(array, other, CFRangeMake(1, 2));
  EXPECT_THAT(Values(array), testing::ElementsAre(4, 5, 7, 8, 9, 5, 7));
  EXPECT_EQ(CFArrayGetFirstIndexOfValue(array, CFRangeMake(0, 7), P(7)), 2);
  EXPECT_EQ(CFArrayGetLastIndexOfValue(array, CFRangeMake(0, 7), P(7)), 6);
  EXPECT_EQ(CFArrayGetFirstIndexOfValue(array, CFRangeMake(3, 2), P(7)), kCFNotFound);
  EXPECT_EQ(CFArrayGetCountOfValue(array, CFRangeMake(0, 7), P(5)), 2);
  CFArrayRemoveAllValues(array);
  EXPECT_EQ(CFArrayGetCount(array), 0);
}

TEST(CFArray, RetainsObjectsAndComparesThemByValue) {
  Owned<CFDataRef> value(CFDataCreate(nullptr, reinterpret_cast<const UInt8*>("x"), 1));
  Owned<CFDataRef> equal(CFDataCreate(nullptr, reinterpret_cast<const UInt8*>("x"), 1));
  {
    Array array(CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks));
    CFArrayAppendValue(array, value);
    EXPECT_EQ(CFGetRetainCount(value), 2);
    EXPECT_TRUE(CFArrayContainsValue(array, CFRangeMake(0, 1), equal));
    const void* values[] = {equal.Get()};
    Owned<CFArrayRef> other(CFArrayCreate(nullptr, values, 1, &kCFTypeArrayCallBacks));
    EXPECT_TRUE(CFEqual(array, other));
    EXPECT_EQ(CFHash(array), CFHash(other));
    CFArraySetValueAtIndex(array, 0, value);
    EXPECT_EQ(CFGetRetainCount(value), 2);
    CFArrayAppendValue(array, kCFNull);
    EXPECT_FALSE(CFEqual(array, other));
  }
  EXPECT_EQ(CFGetRetainCount(value), 1);
}

TEST(CFArray, ImmutableArraysDoNotChange) {
  const void* values[] = {P(1)};
  Owned<CFArrayRef> array(CFArrayCreate(nullptr, values, 1, nullptr));
  auto* forced = const_cast<CFMutableArrayRef>(array.Get());
  CFArrayAppendValue(forced, P(2));
  CFArrayRemoveAllValues(forced);
  EXPECT_THAT(Values(array), testing::ElementsAre(1));
  EXPECT_EQ(CFArrayCreate(nullptr, nullptr, 2, nullptr), nullptr);
  EXPECT_EQ(CFArrayCreateMutable(nullptr, -1, nullptr), nullptr);
}

TEST(CFDictionary, AddSetAndReplaceDiffer) {
  Dictionary dictionary = MakeDictionary();
  CFDictionaryAddValue(dictionary, CFSTR("a"), CFSTR("1"));
  CFDictionaryAddValue(dictionary, CFSTR("a"), CFSTR("2"));
  EXPECT_EQ(CFDictionaryGetValue(dictionary, CFSTR("a")), CFSTR("1"));
  CFDictionarySetValue(dictionary, CFSTR("a"), CFSTR("3"));
  EXPECT_EQ(CFDictionaryGetValue(dictionary, CFSTR("a")), CFSTR("3"));
  CFDictionaryReplaceValue(dictionary, CFSTR("b"), CFSTR("4"));
  EXPECT_FALSE(CFDictionaryContainsKey(dictionary, CFSTR("b")));
  CFDictionaryReplaceValue(dictionary, CFSTR("a"), CFSTR("5"));
  EXPECT_EQ(CFDictionaryGetValue(dictionary, CFSTR("a")), CFSTR("5"));
  EXPECT_EQ(CFDictionaryGetCount(dictionary), 1);
}

TEST(CFDictionary, FindsKeysByValueAndTellsAbsentFromNull) {
  Dictionary dictionary = MakeDictionary();
  Owned<CFStringRef> made(CFStringCreateWithCString(nullptr, "key", kCFStringEncodingASCII));
  CFDictionarySetValue(dictionary, made, kCFNull);
  EXPECT_EQ(CFDictionaryGetValue(dictionary, CFSTR("key")), kCFNull);
  const void* value = nullptr;
  EXPECT_TRUE(CFDictionaryGetValueIfPresent(dictionary, CFSTR("key"), &value));
  EXPECT_EQ(value, kCFNull);
  EXPECT_FALSE(CFDictionaryGetValueIfPresent(dictionary, CFSTR("no"), &value));
  EXPECT_TRUE(CFDictionaryGetValueIfPresent(dictionary, CFSTR("key"), nullptr));
  EXPECT_TRUE(CFDictionaryContainsValue(dictionary, kCFNull));
  EXPECT_EQ(CFDictionaryGetCountOfValue(dictionary, kCFBooleanTrue), 0);
  EXPECT_EQ(CFDictionaryGetCountOfKey(dictionary, CFSTR("key")), 1);
  Dictionary plain(CFDictionaryCreateMutable(nullptr, 0, nullptr, nullptr));
  CFDictionarySetValue(plain, P(1), nullptr);
  EXPECT_TRUE(CFDictionaryGetValueIfPresent(plain, P(1), &value));
  EXPECT_EQ(value, nullptr);
  EXPECT_FALSE(CFDictionaryContainsKey(plain, P(2)));
}

TEST(CFDictionary, RetainsAndReleasesKeysAndValues) {
  Owned<CFDataRef> value(CFDataCreate(nullptr, reinterpret_cast<const UInt8*>("x"), 1));
  Owned<CFDataRef> key(CFDataCreate(nullptr, reinterpret_cast<const UInt8*>("k"), 1));
  Dictionary dictionary = MakeDictionary();
  CFDictionarySetValue(dictionary, key, value);
  CFDictionarySetValue(dictionary, key, value);
  EXPECT_EQ(CFGetRetainCount(key), 2);
  EXPECT_EQ(CFGetRetainCount(value), 2);
  Owned<CFDictionaryRef> copy(CFDictionaryCreateCopy(nullptr, dictionary));
  EXPECT_EQ(CFGetRetainCount(value), 3);
  EXPECT_TRUE(CFEqual(copy, dictionary));
  CFDictionaryRemoveValue(dictionary, key);
  EXPECT_EQ(CFGetRetainCount(key), 2);
  EXPECT_FALSE(CFEqual(copy, dictionary));
  CFDictionarySetValue(dictionary, key, value);
  CFDictionaryRemoveAllValues(dictionary);
  EXPECT_EQ(CFDictionaryGetCount(dictionary), 0);
  copy.Reset(nullptr);
  EXPECT_EQ(CFGetRetainCount(key), 1);
  EXPECT_EQ(CFGetRetainCount(value), 1);
}

TEST(CFDictionary, WalksInOrderOfInsertion) {
  Dictionary dictionary(CFDictionaryCreateMutable(nullptr, 11, nullptr, nullptr));
  for (long i = 1; i <= 20; ++i) CFDictionaryAddValue(dictionary, P(i), P(i * 10));
  CFDictionaryRemoveValue(dictionary, P(3));
  std::vector<const void*> keys(19), values(19);
  CFDictionaryGetKeysAndValues(dictionary, keys.data(), values.data());
  EXPECT_EQ(keys[0], P(1));
  EXPECT_EQ(keys[2], P(4));
  EXPECT_EQ(values[18], P(200));
  CFDictionaryGetKeysAndValues(dictionary, nullptr, nullptr);
  long sum = 0;
  CFDictionaryApplyFunction(
      dictionary,
      [](const void* inKey, const void*, void* ioSum) {
        *static_cast<long*>(ioSum) += reinterpret_cast<long>(inKey);
      },
      &sum);
  EXPECT_EQ(sum, 207);
}

TEST(CFDictionary, CreatedFromListsKeepsTheFirstOfEqualKeys) {
  const void* keys[] = {CFSTR("a"), CFSTR("b"), CFSTR("a")};
  const void* values[] = {P(1), P(2), P(3)};
  Owned<CFDictionaryRef> dictionary(
      CFDictionaryCreate(nullptr, keys, values, 3, &kCFTypeDictionaryKeyCallBacks, nullptr));
  EXPECT_EQ(CFDictionaryGetCount(dictionary), 2);
  EXPECT_EQ(CFDictionaryGetValue(dictionary, CFSTR("a")), P(1));
  auto* forced = const_cast<CFMutableDictionaryRef>(dictionary.Get());
  CFDictionarySetValue(forced, CFSTR("c"), P(4));
  CFDictionaryRemoveAllValues(forced);
  EXPECT_EQ(CFDictionaryGetCount(dictionary), 2);
}

TEST(CFDictionary, CopiesStringKeysWhereAskedTo) {
  Dictionary dictionary(CFDictionaryCreateMutable(nullptr, 0, &kCFCopyStringDictionaryKeyCallBacks,
                                                  &kCFTypeDictionaryValueCallBacks));
  Owned<CFMutableStringRef> key(CFStringCreateMutableCopy(nullptr, 0, CFSTR("a")));
  CFDictionarySetValue(dictionary, key, kCFNull);
  CFStringAppend(key, CFSTR("b"));
  EXPECT_TRUE(CFDictionaryContainsKey(dictionary, CFSTR("a")));
  EXPECT_FALSE(CFDictionaryContainsKey(dictionary, key));
}

TEST(CFDictionary, AgreesWithAMapThroughRandomChanges) {
  unsigned seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  Dictionary dictionary(CFDictionaryCreateMutable(nullptr, 0, nullptr, nullptr));
  std::map<long, long> model;
  for (int step = 0; step < 20000; ++step) {
    long key = static_cast<long>(random() % 300), value = static_cast<long>(random() % 1000);
    switch (random() % 4) {
      case 0:
        CFDictionaryAddValue(dictionary, P(key), P(value));
        model.emplace(key, value);
        break;
      case 1:
        CFDictionarySetValue(dictionary, P(key), P(value));
        model[key] = value;
        break;
      default:
        CFDictionaryRemoveValue(dictionary, P(key));
        model.erase(key);
        break;
    }
    ASSERT_EQ(CFDictionaryGetCount(dictionary), static_cast<CFIndex>(model.size()));
    auto found = model.find(key);
    ASSERT_EQ(CFDictionaryGetValue(dictionary, P(key)),
              found == model.end() ? nullptr : P(found->second));
  }
  for (const auto& [key, value] : model) {
    ASSERT_EQ(CFDictionaryGetValue(dictionary, P(key)), P(value));
  }
}

TEST(CFDictionary, ManyStringKeysStayFindable) {
  Dictionary dictionary = MakeDictionary();
  for (int i = 0; i < 5000; ++i) {
    Owned<CFStringRef> key(CFStringCreateWithFormat(nullptr, nullptr, CFSTR("key %d"), i));
    CFDictionaryAddValue(dictionary, key, key);
  }
  for (int i = 0; i < 5000; ++i) {
    Owned<CFStringRef> key(CFStringCreateWithFormat(nullptr, nullptr, CFSTR("key %d"), i));
    ASSERT_TRUE(CFEqual(CFDictionaryGetValue(dictionary, key), key));
  }
}

}  // namespace
