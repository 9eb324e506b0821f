// The device's own controls: values that are kept, and told of when they change.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <memory>

#include "controls/TMBACLN_BooleanControl.h"
#include "controls/TMBACLN_LevelControl.h"
#include "controls/TMBACLN_SelectorControl.h"
#include "controls/TMBACLN_StereoPanControl.h"
#include "objects/CAPropertyAddress.h"
#include "support/CAException.h"
#include "support/client/ClientDevice.h"
#include "support/client/FakeHAL.h"
#include "support/client/FakeServer.h"

namespace tembra::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr AudioObjectID kID = 900;

template <class Operation>
OSStatus StatusOf(Operation inOperation) {
  try {
    inOperation();
    return 0;
  } catch (const CAException& exception) {
    return exception.GetError();
  }
}

// A selector that was given items.
class FilledSelector : public TMBACLN_SelectorControl {
 public:
  using TMBACLN_SelectorControl::TMBACLN_SelectorControl;
  void Fill() {
    mSelectorMap.try_emplace(70, CFSTR("seventy"), 'spcr');
    mSelectorMap.try_emplace(7, CFSTR("seven"), 'int ');
    mSelectorMap.try_emplace(30, nullptr, 0);
  }
};

class ClientControls : public testing::Test {
 protected:
  ClientControls() : mHAL(FakeHAL::Get()) {
    FakeServer::Get().Reset();
    mHAL.Reset();
    mDevice = std::make_unique<ClientDevice>();
    mHAL.mChanges.clear();
  }
  ~ClientControls() override {
    mDevice.reset();
    FakeServer::Get().Reset();
  }

  template <class T>
  std::unique_ptr<T> Make(AudioClassID inClass, UInt32 inScope = 'outp', UInt32 inElement = 1) {
    auto control =
        std::make_unique<T>(kID, inClass, inScope, inElement, mDevice->GetPlugIn(), &**mDevice);
    control->Initialize();
    return control;
  }
  std::unique_ptr<TMBACLN_StereoPanControl> MakePan() {
    auto control = std::make_unique<TMBACLN_StereoPanControl>(kID, 'span', 'outp', 1, 5, 6,
                                                              mDevice->GetPlugIn(), &**mDevice);
    control->Initialize();
    return control;
  }
  // What was told since the last call, as selectors by object.
  std::vector<std::string> TakeChanges() {
    std::vector<std::string> texts;
    for (const FakeHAL::Change& change : mHAL.mChanges) {
      std::string text = change.mObject == ClientDevice::kID ? "device" : "stream";
      for (const AudioObjectPropertyAddress& address : change.mAddresses) {
        text += ' ';
        for (int shift = 24; shift >= 0; shift -= 8) {
          text += static_cast<char>(address.mSelector >> shift);
        }
        text += std::to_string(address.mElement);
      }
      texts.push_back(text);
    }
    mHAL.mChanges.clear();
    return texts;
  }

  FakeHAL& mHAL;
  std::unique_ptr<ClientDevice> mDevice;
};

// Level.

TEST_F(ClientControls, ALevelStandsWhereItWasPut) {
  const auto control = Make<TMBACLN_LevelControl>('vlme', 'inpt', 2);
  EXPECT_EQ(control->GetPropertyScope(), UInt32{'inpt'});
  EXPECT_EQ(control->GetPropertyElement(), 2U);
  EXPECT_EQ(control->GetClassID(), UInt32{'vlme'});
  EXPECT_EQ(control->GetOwningDevice(), &**mDevice);
  EXPECT_FALSE(control->IsReadOnly());
}

TEST_F(ClientControls, ALevelStartsAtTheBottom) {
  const auto control = Make<TMBACLN_LevelControl>('vlme');
  EXPECT_EQ(control->GetRawValue(), 0);
  EXPECT_EQ(control->GetDBValue(), -90.0F);
  EXPECT_EQ(control->GetScalarValue(), 0.0F);
  EXPECT_EQ(control->GetMinimumDBValue(), -90.0F);
  EXPECT_EQ(control->GetMaximumDBValue(), 0.0F);
  EXPECT_THAT(TakeChanges(), IsEmpty());
}

TEST_F(ClientControls, ALevelIsOneValueInThreeViews) {
  const auto control = Make<TMBACLN_LevelControl>('vlme');
  control->SetDBValue(-45.0F);
  EXPECT_EQ(control->GetRawValue(), 512);
  EXPECT_EQ(control->GetScalarValue(), 0.25F);
  control->SetScalarValue(0.5F);
  EXPECT_EQ(control->GetRawValue(), 724);
  EXPECT_NE(control->GetScalarValue(), 0.5F);
  EXPECT_NEAR(control->GetScalarValue(), 0.5F, 0.001F);
  control->SetRawValue(1024);
  EXPECT_EQ(control->GetDBValue(), 0.0F);
  EXPECT_EQ(control->GetScalarValue(), 1.0F);
}

TEST_F(ClientControls, ALevelConvertsWithoutBeingSet) {
  const auto control = Make<TMBACLN_LevelControl>('vlme');
  EXPECT_EQ(control->ConverScalarValueToDBValue(0.25F), -45.0F);
  EXPECT_EQ(control->ConverDBValueToScalarValue(-45.0F), 0.25F);
  EXPECT_EQ(control->GetRawValue(), 0);
}

TEST_F(ClientControls, ALevelTellsOfChangesAlone) {
  const auto control = Make<TMBACLN_LevelControl>('vlme');
  control->SetRawValue(0);
  control->SetScalarValue(0.0F);
  control->SetDBValue(-90.0F);
  EXPECT_THAT(TakeChanges(), IsEmpty());
  control->SetRawValue(10);
  EXPECT_THAT(TakeChanges(), ElementsAre("device volm1 vold1", "stream volm1 vold1"));
  control->SetRawValue(10);
  EXPECT_THAT(TakeChanges(), IsEmpty());
}

TEST_F(ClientControls, ALevelsRawValueIsNotClamped) {
  const auto control = Make<TMBACLN_LevelControl>('vlme');
  control->SetRawValue(5000);
  EXPECT_EQ(control->GetRawValue(), 5000);
  EXPECT_EQ(control->GetScalarValue(), 1.0F);
  control->SetRawValue(std::numeric_limits<SInt32>::min());
  EXPECT_EQ(control->GetDBValue(), -90.0F);
}

TEST_F(ClientControls, InitializingALevelAgainKeepsOneRange) {
  const auto control = Make<TMBACLN_LevelControl>('vlme');
  control->SetRawValue(512);
  control->Initialize();
  control->Teardown();
  EXPECT_EQ(control->GetDBValue(), -45.0F);
}

// Boolean.

TEST_F(ClientControls, ABooleanStartsOffAndTellsOfChangesAlone) {
  const auto control = Make<TMBACLN_BooleanControl>('mute', 'outp', 0);
  EXPECT_EQ(control->GetPropertyScope(), UInt32{'outp'});
  EXPECT_EQ(control->GetPropertyElement(), 0U);
  EXPECT_FALSE(control->GetValue());
  control->SetValue(false);
  EXPECT_THAT(TakeChanges(), IsEmpty());
  control->SetValue(true);
  EXPECT_TRUE(control->GetValue());
  EXPECT_THAT(TakeChanges(), ElementsAre("device mute0", "stream mute0"));
  control->SetValue(true);
  EXPECT_THAT(TakeChanges(), IsEmpty());
  control->SetValue(false);
  EXPECT_EQ(TakeChanges().size(), 2U);
  control->Teardown();
}

// Selector.

TEST_F(ClientControls, ASelectorHasNoItems) {
  const auto control = Make<TMBACLN_SelectorControl>('dsrc');
  EXPECT_EQ(control->GetNumberItems(), 0U);
  EXPECT_EQ(control->GetCurrentItemID(), 0U);
  EXPECT_EQ(control->GetPropertyDataSize(CAPropertyAddress('scai'), 0, nullptr), 0U);
  for (const auto& lookUp : std::vector<std::function<void()>>{
           [&] { control->GetItemIDForIndex(0); }, [&] { control->GetItemIndexForID(0); },
           [&] { control->GetCurrentItemIndex(); }, [&] { control->SetCurrentItemByIndex(0); },
           [&] { control->CopyItemNameByID(0); }, [&] { control->CopyItemNameByIndex(0); },
           [&] { control->CopyItemNameByIDWithoutLocalizing(0); },
           [&] { control->CopyItemNameByIndexWithoutLocalizing(0); },
           [&] { control->GetItemKindByID(0); }, [&] { control->GetItemKindByIndex(0); }}) {
    EXPECT_EQ(StatusOf(lookUp), 1852797029);
  }
  EXPECT_THAT(TakeChanges(), IsEmpty());
}

TEST_F(ClientControls, ASelectorsCurrentItemNeedNotExist) {
  const auto control = Make<TMBACLN_SelectorControl>('dsrc', 'inpt', 2);
  control->SetCurrentItemByID(0);
  EXPECT_THAT(TakeChanges(), IsEmpty());
  control->SetCurrentItemByID(7);
  EXPECT_EQ(control->GetCurrentItemID(), 7U);
  EXPECT_THAT(TakeChanges(), ElementsAre("device ssrc2", "stream ssrc2"));
  EXPECT_EQ(StatusOf([&] { control->GetCurrentItemIndex(); }), 'nope');
  control->SetCurrentItemByID(7);
  EXPECT_THAT(TakeChanges(), IsEmpty());
}

TEST_F(ClientControls, ASelectorsItemsStandInTheOrderOfTheirIDs) {
  const auto control = Make<FilledSelector>('dsrc');
  control->Fill();
  ASSERT_EQ(control->GetNumberItems(), 3U);
  EXPECT_EQ(control->GetItemIDForIndex(0), 7U);
  EXPECT_EQ(control->GetItemIDForIndex(1), 30U);
  EXPECT_EQ(control->GetItemIDForIndex(2), 70U);
  EXPECT_EQ(StatusOf([&] { control->GetItemIDForIndex(3); }), 'nope');
  EXPECT_EQ(StatusOf([&] { control->GetItemIDForIndex(0xFFFFFFFF); }), 'nope');
  EXPECT_EQ(control->GetItemIndexForID(70), 2U);
  EXPECT_EQ(StatusOf([&] { control->GetItemIndexForID(8); }), 'nope');
  control->SetCurrentItemByIndex(2);
  EXPECT_EQ(control->GetCurrentItemID(), 70U);
  EXPECT_EQ(control->GetCurrentItemIndex(), 2U);
  EXPECT_EQ(control->GetItemKindByID(70), UInt32{'spcr'});
  EXPECT_EQ(control->GetItemKindByIndex(0), UInt32{'int '});
}

TEST_F(ClientControls, ASelectorsNamesAreRetainedForTheCaller) {
  const auto control = Make<FilledSelector>('dsrc');
  CFStringRef name =
      CFStringCreateWithCString(nullptr, "a name of its own, long enough", kCFStringEncodingUTF8);
  struct Selector : FilledSelector {
    using FilledSelector::FilledSelector;
    void Put(CFStringRef inName) { mSelectorMap.try_emplace(1, inName, 0); }
  };
  const auto filled = Make<Selector>('dsrc');
  const CFIndex before = CFGetRetainCount(name);
  filled->Put(static_cast<CFStringRef>(CFRetain(name)));
  CFStringRef copies[] = {filled->CopyItemNameByID(1), filled->CopyItemNameByIndex(0),
                          filled->CopyItemNameByIDWithoutLocalizing(1),
                          filled->CopyItemNameByIndexWithoutLocalizing(0)};
  EXPECT_EQ(CFGetRetainCount(name), before + 5);
  for (CFStringRef copy : copies) {
    EXPECT_EQ(copy, name);
    CFRelease(copy);
  }
  // The item lets go of its own.
  filled->Teardown();
  EXPECT_EQ(filled->GetNumberItems(), 0U);
  EXPECT_EQ(CFGetRetainCount(name), before);
  CFRelease(name);
  control->Fill();
  EXPECT_EQ(control->CopyItemNameByID(30), nullptr);
}

TEST_F(ClientControls, InitializingASelectorEmptiesIt) {
  const auto control = Make<FilledSelector>('dsrc');
  control->Fill();
  control->Initialize();
  EXPECT_EQ(control->GetNumberItems(), 0U);
}

// Stereo pan.

TEST_F(ClientControls, APanStartsInTheCentre) {
  const auto control = MakePan();
  EXPECT_EQ(control->GetRawValue(), 512);
  EXPECT_EQ(control->GetValue(), 0.5F);
  EXPECT_EQ(control->GetPropertyScope(), UInt32{'outp'});
  EXPECT_EQ(control->GetPropertyElement(), 1U);
  UInt32 left = 0;
  UInt32 right = 0;
  control->GetChannels(left, right);
  EXPECT_EQ(left, 5U);
  EXPECT_EQ(right, 6U);
}

TEST_F(ClientControls, APansValueFollowsItsRawValue) {
  const auto control = MakePan();
  for (const auto& [raw, value] : {std::pair<SInt32, Float32>{0, 0.0F},
                                   {256, 0.25F},
                                   {512, 0.5F},
                                   {768, 0.75F},
                                   {1024, 1.0F},
                                   {1536, 1.5F},
                                   {-512, -0.5F}}) {
    control->SetRawValue(raw);
    EXPECT_EQ(control->GetValue(), value) << raw;
  }
}

TEST_F(ClientControls, APanIsSetInDoubledWholeSteps) {
  const auto control = MakePan();
  for (const auto& [value, raw] : {std::pair<Float32, SInt32>{0.25F, 256},
                                   {0.75F, 768},
                                   {1.5F, 1536},
                                   {0.5F, 512},
                                   {0.0F, 0},
                                   {1.0F, 1024},
                                   // 51.2 steps become 51, and these two each.
                                   {0.1F, 102},
                                   {0.6F, 614},
                                   // Toward zero, also below it.
                                   {-0.1F, -102},
                                   {-0.001F, 0}}) {
    control->SetValue(value);
    EXPECT_EQ(control->GetRawValue(), raw) << value;
  }
}

TEST_F(ClientControls, APanOutOfAllMeasureStaysInItsBits) {
  const auto control = MakePan();
  constexpr SInt32 kMost = std::numeric_limits<SInt32>::max();
  control->SetValue(std::numeric_limits<Float32>::infinity());
  EXPECT_EQ(control->GetRawValue(), kMost);
  EXPECT_GT(control->GetValue(), 1.0F);
  control->SetValue(-1e30F);
  EXPECT_LE(control->GetRawValue(), -kMost);
  EXPECT_LT(control->GetValue(), 0.0F);
  control->SetValue(0.25F);
  control->SetValue(std::numeric_limits<Float32>::quiet_NaN());
  EXPECT_EQ(control->GetRawValue(), 256);
}

TEST_F(ClientControls, APanTellsOfChangesAlone) {
  const auto control = MakePan();
  control->SetValue(0.5F);
  control->SetRawValue(512);
  EXPECT_THAT(TakeChanges(), IsEmpty());
  control->SetValue(0.25F);
  EXPECT_THAT(TakeChanges(), ElementsAre("device span1", "stream span1"));
  control->Teardown();
}

}  // namespace
}  // namespace tembra::test
