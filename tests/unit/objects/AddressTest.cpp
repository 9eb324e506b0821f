#include <gtest/gtest.h>

#include <type_traits>

#include "objects/CAPropertyAddress.h"

namespace {

constexpr UInt32 kWild = '****';
constexpr UInt32 kAnyElement = 0xFFFFFFFF;

void ExpectAddress(const AudioObjectPropertyAddress& inAddress, UInt32 inSelector, UInt32 inScope,
                   UInt32 inElement) {
  EXPECT_EQ(inSelector, inAddress.mSelector);
  EXPECT_EQ(inScope, inAddress.mScope);
  EXPECT_EQ(inElement, inAddress.mElement);
}

TEST(PropertyAddress, AddsNothingToThePlatforms) {
  EXPECT_EQ(sizeof(AudioObjectPropertyAddress), sizeof(CAPropertyAddress));
  EXPECT_TRUE(std::is_copy_assignable_v<CAPropertyAddress>);
}

TEST(PropertyAddress, ConstructorsFillInTheGlobalScope) {
  ExpectAddress(CAPropertyAddress(), 0, 0x676C6F62, 0);
  ExpectAddress(CAPropertyAddress('fsiz'), 'fsiz', 'glob', 0);
  ExpectAddress(CAPropertyAddress('fsiz', 'inpt'), 'fsiz', 'inpt', 0);
  ExpectAddress(CAPropertyAddress('fsiz', 'inpt', 3), 'fsiz', 'inpt', 3);
  const AudioObjectPropertyAddress thePlain = {'a', 'b', 7};
  ExpectAddress(CAPropertyAddress(thePlain), 'a', 'b', 7);
  ExpectAddress(CAPropertyAddress(CAPropertyAddress(thePlain)), 'a', 'b', 7);
}

TEST(PropertyAddress, SelectorsAreCongruentIfEqualOrWild) {
  EXPECT_EQ(0x2A2A2A2Au, kWild);
  EXPECT_TRUE(CAPropertyAddress::IsCongruentSelector('a', 'a'));
  EXPECT_TRUE(CAPropertyAddress::IsCongruentSelector('a', kWild));
  EXPECT_TRUE(CAPropertyAddress::IsCongruentSelector(kWild, 'a'));
  EXPECT_TRUE(CAPropertyAddress::IsCongruentSelector(kWild, kWild));
  EXPECT_FALSE(CAPropertyAddress::IsCongruentSelector('a', 'b'));
  EXPECT_FALSE(CAPropertyAddress::IsCongruentSelector('a', kAnyElement));
}

TEST(PropertyAddress, ScopesAreCongruentIfEqualOrWild) {
  EXPECT_TRUE(CAPropertyAddress::IsCongruentScope('glob', 'glob'));
  EXPECT_TRUE(CAPropertyAddress::IsCongruentScope('glob', kWild));
  EXPECT_TRUE(CAPropertyAddress::IsCongruentScope(kWild, 'glob'));
  EXPECT_FALSE(CAPropertyAddress::IsCongruentScope('glob', 'inpt'));
  EXPECT_FALSE(CAPropertyAddress::IsCongruentScope('glob', kAnyElement));
}

TEST(PropertyAddress, ElementsAreCongruentIfEqualOrWild) {
  EXPECT_TRUE(CAPropertyAddress::IsCongruentElement(1, 1));
  EXPECT_TRUE(CAPropertyAddress::IsCongruentElement(1, kAnyElement));
  EXPECT_TRUE(CAPropertyAddress::IsCongruentElement(kAnyElement, 1));
  EXPECT_FALSE(CAPropertyAddress::IsCongruentElement(1, 2));
  EXPECT_FALSE(CAPropertyAddress::IsCongruentElement(1, kWild));
}

TEST(PropertyAddress, AllThreeMustBeCongruent) {
  const AudioObjectPropertyAddress theAddress = {'a', 'glob', 1};
  EXPECT_TRUE(CAPropertyAddress::IsCongruentAddress(theAddress, {'a', 'glob', 1}));
  EXPECT_FALSE(CAPropertyAddress::IsCongruentAddress(theAddress, {'b', 'glob', 1}));
  EXPECT_FALSE(CAPropertyAddress::IsCongruentAddress(theAddress, {'a', 'inpt', 1}));
  EXPECT_FALSE(CAPropertyAddress::IsCongruentAddress(theAddress, {'a', 'glob', 2}));
}

TEST(PropertyAddress, WildcardMatchesAnyAddressInItsScopeFromEitherSide) {
  const AudioObjectPropertyAddress theWild = {kWild, 'glob', kAnyElement};
  for (UInt32 theSelector : {UInt32{'fsiz'}, UInt32{0}, kWild, ~UInt32{0}}) {
    for (UInt32 theElement : {UInt32{0}, UInt32{1}, kAnyElement}) {
      const AudioObjectPropertyAddress theAddress = {theSelector, 'glob', theElement};
      EXPECT_TRUE(CAPropertyAddress::IsCongruentAddress(theWild, theAddress));
      EXPECT_TRUE(CAPropertyAddress::IsCongruentAddress(theAddress, theWild));
      EXPECT_TRUE(CAPropertyAddress::CongruentEqualTo()(theAddress, theWild));
      const AudioObjectPropertyAddress theOther = {theSelector, 'inpt', theElement};
      EXPECT_FALSE(CAPropertyAddress::IsCongruentAddress(theWild, theOther));
      EXPECT_FALSE(CAPropertyAddress::CongruentEqualTo()(theOther, theWild));
    }
  }
}

TEST(PropertyAddress, CongruenceIsNotTransitive) {
  const AudioObjectPropertyAddress theWild = {kWild, 'glob', 0};
  EXPECT_TRUE(CAPropertyAddress::IsCongruentAddress({'a', 'glob', 0}, theWild));
  EXPECT_TRUE(CAPropertyAddress::IsCongruentAddress(theWild, {'b', 'glob', 0}));
  EXPECT_FALSE(CAPropertyAddress::IsCongruentAddress({'a', 'glob', 0}, {'b', 'glob', 0}));
}

TEST(PropertyAddressList, KeepsTheOrderOfInsertion) {
  CAPropertyAddressList theList;
  EXPECT_EQ(0u, theList.GetNumberItems());
  theList.AppendItem(CAPropertyAddress('b'));
  theList.AppendItem(CAPropertyAddress('a'));
  theList.AppendItem(CAPropertyAddress('b'));
  ASSERT_EQ(3u, theList.GetNumberItems());
  EXPECT_EQ(UInt32{'b'}, theList.GetItems()[0].mSelector);
  EXPECT_EQ(UInt32{'a'}, theList.GetItems()[1].mSelector);
  const CAPropertyAddressList& theConstList = theList;
  EXPECT_EQ(UInt32{'b'}, theConstList.GetItems()[2].mSelector);
  theList.GetItems()[0].mSelector = 'c';
  EXPECT_EQ(UInt32{'c'}, theConstList.GetItems()[0].mSelector);
}

TEST(PropertyAddressList, HasItemByCongruence) {
  CAPropertyAddressList theList;
  EXPECT_FALSE(theList.HasItem(CAPropertyAddress(kWild, kWild, kAnyElement)));
  theList.AppendItem(CAPropertyAddress('a', 'inpt', 1));
  EXPECT_TRUE(theList.HasItem(CAPropertyAddress('a', 'inpt', 1)));
  EXPECT_TRUE(theList.HasItem(CAPropertyAddress(kWild, 'inpt', kAnyElement)));
  EXPECT_FALSE(theList.HasItem(CAPropertyAddress('a', 'inpt', 2)));
}

TEST(PropertyAddressList, UniqueItemIsAbsorbedByAWildcard) {
  CAPropertyAddressList theList;
  theList.AppendUniqueItem(CAPropertyAddress('a', 'glob', 1));
  theList.AppendUniqueItem(CAPropertyAddress('a', 'glob', 1));
  EXPECT_EQ(1u, theList.GetNumberItems());
  theList.AppendUniqueItem(CAPropertyAddress('a', 'inpt', kAnyElement));
  theList.AppendUniqueItem(CAPropertyAddress('a', 'inpt', 5));
  EXPECT_EQ(2u, theList.GetNumberItems());
  // What is wild itself is absorbed too.
  theList.AppendUniqueItem(CAPropertyAddress(kWild, kWild, kAnyElement));
  EXPECT_EQ(2u, theList.GetNumberItems());
}

TEST(PropertyAddressList, CanBeEmptiedAndCopied) {
  CAPropertyAddressList theList;
  theList.AppendItem(CAPropertyAddress('a'));
  CAPropertyAddressList theCopy(theList);
  theList.EraseAllItems();
  EXPECT_EQ(0u, theList.GetNumberItems());
  EXPECT_EQ(1u, theCopy.GetNumberItems());
}

}  // namespace
