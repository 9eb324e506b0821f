#include "PreferredChannelsTest.h"

namespace tembra::test {
namespace {

UInt32 Number(CFDictionaryRef inDictionary, const char* inKey) {
  const CACFString key(inKey);
  UInt32 value = 0xDEAD;
  EXPECT_TRUE(CACFDictionary(inDictionary, false).GetUInt32(key.GetCFString(), value)) << inKey;
  return value;
}

CFDictionaryRef Stored(const std::string& inKey) {
  CFPropertyListRef value = FakePreferences::Get().Find(inKey);
  EXPECT_TRUE(value != nullptr && CFGetTypeID(value) == CFDictionaryGetTypeID());
  return static_cast<CFDictionaryRef>(value);
}

CFArrayRef Descriptions(CFDictionaryRef inDictionary) {
  CFArrayRef array = nullptr;
  CACFDictionary(inDictionary, false).GetArray(CFSTR("channel descriptions"), array);
  return array;
}

// A layout of inCount descriptions that all differ.
AudioChannelLayout* CreateLayout(UInt32 inCount) {
  AudioChannelLayout* layout = CAAudioChannelLayout::Create(inCount);
  layout->mChannelBitmap = static_cast<AudioChannelBitmap>(0x3F);
  AudioChannelDescription* descriptions = layout->mChannelDescriptions;
  for (UInt32 i = 0; i < inCount; ++i) {
    const float at = static_cast<float>(i);
    descriptions[i].mChannelLabel = 10 + i;
    descriptions[i].mChannelFlags = static_cast<AudioChannelFlags>(1 + i);
    descriptions[i].mCoordinates[0] = at + 0.25f;
    descriptions[i].mCoordinates[1] = at + 0.5f;
    descriptions[i].mCoordinates[2] = at + 0.75f;
  }
  return layout;
}

CFMutableDictionaryRef CreateDictionary(const AudioChannelLayout& inLayout) {
  CACFDictionary dictionary(false);
  HP_PreferredChannels_ConstructDictionaryFromLayout(inLayout, dictionary.GetCFMutableDictionary());
  return dictionary.GetCFMutableDictionary();
}

TEST_F(PreferredChannels, TheDefaultLayoutIsTheDevices) {
  mPreferences.Put(kInputLayout, CreateDictionary(*Layout(CreateLayout(3))));
  Make();
  const Layout layout(CopyLayout('srdd', 'inpt'));
  const Layout expected(CAAudioChannelLayout::Create(3));
  mDevice.GetDefaultChannelLayout(true, *expected);
  EXPECT_EQ(std::memcmp(layout.get(), expected.get(), 72), 0);
}

TEST_F(PreferredChannels, WithoutAStoredLayoutTheDevicesIsPreferred) {
  Make();
  const Layout preferred(CopyLayout('srnd', 'outp'));
  const Layout standard(CopyLayout('srdd', 'outp'));
  EXPECT_EQ(std::memcmp(preferred.get(), standard.get(), 52), 0);
  EXPECT_EQ(preferred->mChannelDescriptions[0].mChannelLabel, 1u);
}

TEST_F(PreferredChannels, ASetLayoutComesBack) {
  Make();
  const Layout layout(CreateLayout(3));
  SetLayout('inpt', *layout, 3);
  EXPECT_THAT(TakeTold(), ElementsAre("srnd/inpt/0"));
  EXPECT_THAT(mNotifications.mPosts, ElementsAre(kInputLayout));
  const Layout read(CopyLayout('srnd', 'inpt'));
  EXPECT_EQ(std::memcmp(read.get(), layout.get(), 72), 0);
  const Layout output(CopyLayout('srnd', 'outp'));
  EXPECT_EQ(output->mChannelDescriptions[0].mChannelLabel, 1u);
  // A new object finds it too.
  HP_PreferredChannels second(&mDevice);
  second.Initialize();
  UInt32 size = 72;
  const Layout again(CAAudioChannelLayout::Create(3));
  second.GetPropertyData(At('srnd', 'inpt'), 0, nullptr, size, again.get());
  EXPECT_EQ(std::memcmp(again.get(), layout.get(), 72), 0);
  second.Teardown();
}

TEST_F(PreferredChannels, ALayoutIsStoredUnderTheseKeys) {
  Make();
  SetLayout('outp', *Layout(CreateLayout(2)), 2);
  CFDictionaryRef dictionary = Stored(kOutputLayout);
  EXPECT_EQ(CFDictionaryGetCount(dictionary), 4);
  EXPECT_EQ(Number(dictionary, "channel layout tag"), 0u);
  EXPECT_EQ(Number(dictionary, "channel bitmap"), 0x3Fu);
  EXPECT_EQ(Number(dictionary, "number channels"), 2u);
  CFArrayRef descriptions = Descriptions(dictionary);
  ASSERT_NE(descriptions, nullptr);
  ASSERT_EQ(CFArrayGetCount(descriptions), 2);
  const auto second = static_cast<CFDictionaryRef>(CFArrayGetValueAtIndex(descriptions, 1));
  EXPECT_EQ(CFDictionaryGetCount(second), 3);
  EXPECT_EQ(Number(second, "channel label"), 11u);
  EXPECT_EQ(Number(second, "channel flags"), 2u);
  CFArrayRef coordinates = nullptr;
  ASSERT_TRUE(CACFDictionary(second, false).GetArray(CFSTR("coordinates"), coordinates));
  ASSERT_EQ(CFArrayGetCount(coordinates), 3);
  for (UInt32 i = 0; i < 3; ++i) {
    const auto number = static_cast<CFNumberRef>(CFArrayGetValueAtIndex(coordinates, i));
    EXPECT_EQ(CFNumberGetType(number), kCFNumberFloat32Type);
    Float32 value = 0;
    EXPECT_TRUE(CACFArray(coordinates, false).GetFloat32(i, value));
    EXPECT_EQ(value, 1.25f + 0.25f * static_cast<float>(i));
  }
}

TEST_F(PreferredChannels, ALayoutWithATagHasNoDescriptionsStored) {
  Make();
  const Layout layout(CreateLayout(2));
  layout->mChannelLayoutTag = kAudioChannelLayoutTag_Stereo;
  SetLayout('outp', *layout, 2);
  CFDictionaryRef dictionary = Stored(kOutputLayout);
  EXPECT_EQ(CFDictionaryGetCount(dictionary), 3);
  EXPECT_EQ(Number(dictionary, "channel layout tag"), (101u << 16) | 2);
  EXPECT_EQ(Number(dictionary, "number channels"), 2u);
  const Layout read(CopyLayout('srnd', 'outp'));
  EXPECT_EQ(read->mChannelLayoutTag, kAudioChannelLayoutTag_Stereo);
  EXPECT_EQ(read->mChannelDescriptions[1].mChannelLabel, 2u) << "the device's own";
}

TEST_F(PreferredChannels, ALayoutThatClaimsTooMuchIsCutToItsData) {
  Make();
  const Layout layout(CreateLayout(2));
  layout->mNumberChannelDescriptions = 0x10000000;
  SetLayout('outp', *layout, 2);
  EXPECT_EQ(Number(Stored(kOutputLayout), "number channels"), 2u);
  EXPECT_EQ(CFArrayGetCount(Descriptions(Stored(kOutputLayout))), 2);
}

TEST_F(PreferredChannels, ALayoutThatClaimsLessHasLess) {
  Make();
  const Layout layout(CreateLayout(3));
  layout->mNumberChannelDescriptions = 1;
  SetLayout('inpt', *layout, 3);
  EXPECT_EQ(Number(Stored(kInputLayout), "number channels"), 1u);
  EXPECT_EQ(CFArrayGetCount(Descriptions(Stored(kInputLayout))), 1);
  const Layout read(CopyLayout('srnd', 'inpt'));
  EXPECT_EQ(read->mNumberChannelDescriptions, 3u) << "the device's count";
  EXPECT_EQ(read->mChannelDescriptions[0].mChannelLabel, 10u);
}

TEST_F(PreferredChannels, AStoredLayoutWithTooManyDescriptionsFillsTheDevicesCount) {
  mPreferences.Put(kOutputLayout, CreateDictionary(*Layout(CreateLayout(8))));
  Make();
  // Exactly the bytes of two channels, and a guard behind them.
  UInt8 data[52 + 8];
  std::memset(data, 0xAB, sizeof(data));
  UInt32 size = 52;
  mChannels->GetPropertyData(At('srnd', 'outp'), 0, nullptr, size, data);
  const Layout layout(CAAudioChannelLayout::Create(2));
  std::memcpy(layout.get(), data, 52);
  EXPECT_EQ(layout->mNumberChannelDescriptions, 2u);
  const AudioChannelDescription* descriptions = layout->mChannelDescriptions;
  EXPECT_EQ(descriptions[0].mChannelLabel, 10u);
  EXPECT_EQ(descriptions[1].mChannelLabel, 11u);
  for (size_t i = 52; i < sizeof(data); ++i) EXPECT_EQ(data[i], 0xAB);
}

TEST(LayoutFromDictionary, TakesWhatIsThereAndLeavesTheRest) {
  const Layout layout(CreateLayout(2));
  const CACFDictionary empty(true);
  HP_PreferredChannels_ConstructLayoutFromDictionary(empty.GetCFDictionary(), *layout);
  EXPECT_EQ(std::memcmp(layout.get(), Layout(CreateLayout(2)).get(), 52), 0);
}

TEST(LayoutFromDictionary, SkipsWhatIsNoDictionaryAndReadsUpToThreeCoordinates) {
  CACFDictionary dictionary(true);
  dictionary.AddUInt32(CFSTR("channel layout tag"), 0);
  dictionary.AddString(CFSTR("channel bitmap"), CFSTR("5"));
  dictionary.AddUInt32(CFSTR("number channels"), 77);
  CACFArray descriptions(true);
  descriptions.AppendString(CFSTR("first"));
  CACFDictionary second(true);
  second.AddUInt32(CFSTR("channel label"), 0xFFFFFFFF);
  CACFArray coordinates(true);
  coordinates.AppendFloat32(9.0f);
  coordinates.AppendString(CFSTR("y"));
  coordinates.AppendUInt32(7);
  coordinates.AppendFloat32(8.0f);
  second.AddArray(CFSTR("coordinates"), coordinates.GetCFArray());
  descriptions.AppendDictionary(second.GetCFDictionary());
  dictionary.AddArray(CFSTR("channel descriptions"), descriptions.GetCFArray());

  const Layout layout(CreateLayout(2));
  HP_PreferredChannels_ConstructLayoutFromDictionary(dictionary.GetCFDictionary(), *layout);
  EXPECT_EQ(static_cast<UInt32>(layout->mChannelBitmap), 0x3Fu);
  EXPECT_EQ(layout->mNumberChannelDescriptions, 2u) << "not the stored count";
  const AudioChannelDescription* read = layout->mChannelDescriptions;
  EXPECT_EQ(read[0].mChannelLabel, 10u);
  EXPECT_EQ(read[1].mChannelLabel, 0xFFFFFFFF);
  EXPECT_EQ(static_cast<UInt32>(read[1].mChannelFlags), 2u);
  EXPECT_EQ(read[1].mCoordinates[0], 9.0f);
  EXPECT_EQ(read[1].mCoordinates[1], 1.5f);
  EXPECT_EQ(read[1].mCoordinates[2], 7.0f);
}

TEST(LayoutFromDictionary, ADescriptionWithoutCoordinatesKeepsThoseThatAreThere) {
  CACFDictionary description(true);
  description.AddUInt32(CFSTR("channel label"), 5);
  CACFArray descriptions(true);
  descriptions.AppendDictionary(description.GetCFDictionary());
  CACFDictionary dictionary(true);
  dictionary.AddUInt32(CFSTR("channel layout tag"), 0);
  dictionary.AddArray(CFSTR("channel descriptions"), descriptions.GetCFArray());

  const Layout before(CreateLayout(2));
  const Layout layout(CreateLayout(2));
  HP_PreferredChannels_ConstructLayoutFromDictionary(dictionary.GetCFDictionary(), *layout);
  EXPECT_EQ(layout->mChannelDescriptions[0].mChannelLabel, 5u);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(layout->mChannelDescriptions[0].mCoordinates[i],
              before->mChannelDescriptions[0].mCoordinates[i]);
  }
}

TEST(LayoutFromDictionary, WithATagDescriptionsAreNotRead) {
  const Layout source(CreateLayout(2));
  CACFDictionary dictionary(CreateDictionary(*source), true);
  dictionary.AddUInt32(CFSTR("channel layout tag"), kAudioChannelLayoutTag_Stereo);
  const Layout layout(CAAudioChannelLayout::Create(2));
  HP_PreferredChannels_ConstructLayoutFromDictionary(dictionary.GetCFDictionary(), *layout);
  EXPECT_EQ(layout->mChannelLayoutTag, kAudioChannelLayoutTag_Stereo);
  EXPECT_EQ(layout->mChannelDescriptions[0].mChannelLabel, 0xFFFFFFFF) << "as it was";
}

TEST(LayoutFromDictionary, DescriptionsThatAreNoArrayAreNotRead) {
  CACFDictionary dictionary(true);
  dictionary.AddUInt32(CFSTR("channel layout tag"), 0);
  dictionary.AddString(CFSTR("channel descriptions"), CFSTR("none"));
  const Layout layout(CreateLayout(2));
  HP_PreferredChannels_ConstructLayoutFromDictionary(dictionary.GetCFDictionary(), *layout);
  EXPECT_EQ(layout->mChannelDescriptions[0].mChannelLabel, 10u);
}

}  // namespace
}  // namespace tembra::test
