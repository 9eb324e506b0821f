// The controls of the device as a program meets them, in the master and beside it.

#include <gmock/gmock.h>

#include <cstdlib>
#include <mutex>
#include <nlohmann/json.hpp>

#include "LiveDevice.h"
#include "support/Program.h"

namespace tembra::test {
namespace {

using testing::Contains;
using testing::SizeIs;

struct Told {
  std::mutex mMutex;
  std::vector<std::string> mChanges;

  std::vector<std::string> Take() {
    const std::lock_guard<std::mutex> lock(mMutex);
    return std::exchange(mChanges, {});
  }
  bool Has(const std::string& inText) {
    const std::lock_guard<std::mutex> lock(mMutex);
    return std::find(mChanges.begin(), mChanges.end(), inText) != mChanges.end();
  }
};

class LiveControls : public LiveDevice {
 protected:
  static OSStatus Note(AudioObjectID inID, UInt32 inNumber,
                       const AudioObjectPropertyAddress* inAddresses, void* inClient) {
    Told& told = *static_cast<Told*>(inClient);
    const std::lock_guard<std::mutex> lock(told.mMutex);
    for (UInt32 i = 0; i < inNumber; ++i) {
      told.mChanges.push_back(std::to_string(inID) + " " + TextOf(inAddresses[i].mSelector) + " " +
                              TextOf(inAddresses[i].mScope) + " " +
                              std::to_string(inAddresses[i].mElement));
    }
    return 0;
  }
  AudioObjectID FindControl(UInt32 inClass, UInt32 inScope, UInt32 inElement) {
    for (const AudioObjectID id : GetObjects(mDevice, Global('ctrl'))) {
      if (GetNumber(id, Global('clas')) == inClass && GetNumber(id, Global('cscp')) == inScope &&
          GetNumber(id, Global('celm')) == inElement) {
        return id;
      }
    }
    return kAudioObjectUnknown;
  }
};

TEST_F(LiveControls, AreEighteenAndOwnedByTheDevice) {
  const std::vector<AudioObjectID> controls = GetObjects(mDevice, Global('ctrl'));
  EXPECT_THAT(controls, SizeIs(18));
  EXPECT_EQ(GetObjects(mDevice, Global('ownd'), {kAudioControlClassID}), controls);
  EXPECT_THAT(GetObjects(mDevice, Global('ownd'), {kAudioVolumeControlClassID}), SizeIs(6));
  EXPECT_THAT(GetObjects(mDevice, Global('ownd'), {kAudioBooleanControlClassID}), SizeIs(6));
  EXPECT_THAT(GetObjects(mDevice, Global('ownd'), {kAudioSelectorControlClassID}), SizeIs(6));
  EXPECT_THAT(GetObjects(mDevice, Global('ownd')), SizeIs(20));
  for (const AudioObjectID control : controls) {
    EXPECT_EQ(GetNumber(control, Global('stdv')), mDevice);
    const AudioClassID classID = GetNumber(control, Global('clas'));
    EXPECT_EQ(GetNumber(control, Global('cvar')), classID);
    EXPECT_EQ(GetNumber(control, Global('bcls')), classID == 'vlme'   ? AudioClassID{'levl'}
                                                  : classID == 'mute' ? AudioClassID{'togl'}
                                                                      : AudioClassID{'slct'});
  }
}

TEST_F(LiveControls, AVolumeIsTheSameOnTheDeviceAndOnItsControl) {
  const AudioObjectID control = FindControl('vlme', 'outp', 1);
  ASSERT_NE(control, kAudioObjectUnknown);
  ASSERT_EQ(Set(mDevice, Output('volm', 1), Float32{0.25F}), 0);
  EXPECT_EQ(GetFloat(control, Global('lcsv')), 0.25F);
  EXPECT_EQ(GetFloat(control, Global('lcdv')), -45.0F);
  ASSERT_EQ(Set(control, Global('lcdv'), Float32{0.0F}), 0);
  EXPECT_EQ(GetFloat(mDevice, Output('volm', 1)), 1.0F);
  // The others stand where they stood.
  EXPECT_EQ(GetFloat(mDevice, Output('volm', 0)), 0.0F);
  EXPECT_EQ(GetFloat(mDevice, Output('volm', 2)), 0.0F);
}

TEST_F(LiveControls, AChangeIsToldOnTheDeviceAndOnItsStream) {
  const std::vector<AudioObjectID> streams = GetObjects(mDevice, Output('stm#'));
  ASSERT_THAT(streams, SizeIs(1));
  Told told;
  const AudioObjectPropertyAddress any = {'****', '****', 0xFFFFFFFF};
  for (const AudioObjectID id : {mDevice, streams[0]}) {
    ASSERT_EQ(AudioObjectAddPropertyListener(id, &any, &Note, &told), 0);
  }
  ASSERT_EQ(Set(mDevice, Output('mute', 2), UInt32{1}), 0);
  EXPECT_TRUE(WaitUntil([&] {
    return told.Has(std::to_string(mDevice) + " mute outp 2") &&
           told.Has(std::to_string(streams[0]) + " mute glob 2");
  }));
  for (const AudioObjectID id : {mDevice, streams[0]}) {
    ASSERT_EQ(AudioObjectRemovePropertyListener(id, &any, &Note, &told), 0);
  }
}

TEST_F(LiveControls, AValueThatIsNotANumberDoesNoHarm) {
  const Float32 nan = std::numeric_limits<Float32>::quiet_NaN();
  ASSERT_EQ(Set(mDevice, Output('volm'), Float32{1.0F}), 0);
  ASSERT_EQ(Set(mDevice, Output('volm'), nan), 0);
  EXPECT_EQ(GetFloat(mDevice, Output('volm')), 0.0F);
  ASSERT_EQ(Set(mDevice, Output('vold'), nan), 0);
  EXPECT_EQ(GetFloat(mDevice, Output('vold')), -90.0F);
}

TEST_F(LiveControls, ADataSourceWithoutItemsKeepsWhatItIsGiven) {
  EXPECT_TRUE(GetObjects(mDevice, Output('ssc#')).empty());
  ASSERT_EQ(Set(mDevice, Output('ssrc'), UInt32{7}), 0);
  EXPECT_EQ(GetNumber(mDevice, Output('ssrc')), 7U);
  UInt32 id = 7;
  CFStringRef name = nullptr;
  AudioValueTranslation translation = {&id, sizeof id, &name, sizeof name};
  EXPECT_EQ(Get(mDevice, Output('lscn'), translation), 'nope');
  translation.mOutputDataSize = 4;
  EXPECT_EQ(Get(mDevice, Output('lscn'), translation), '!siz');
  EXPECT_EQ(name, nullptr);
}

TEST_F(LiveControls, AProcessBesideTheMasterMakesItsOwnWhenAskedForThem) {
  ASSERT_EQ(GetNumber(kAudioObjectSystemObject, Global('mast')), 1U);
  // This process's values are not another's.
  ASSERT_EQ(Set(mDevice, Output('volm'), Float32{1.0F}), 0);
  Program other("tmbaudio", {"controls", "--json"}, std::string(getenv("HOME")) + "/other");
  ASSERT_EQ(other.Wait(), 0) << other.Errors();
  const nlohmann::json controls = nlohmann::json::parse(other.Output());
  ASSERT_THAT(controls, SizeIs(18));
  for (const nlohmann::json& control : controls) {
    if (control["class"] == "'vlme'") {
      EXPECT_EQ(control["value"], 0.0);
    }
  }
}

TEST_F(LiveControls, AreMadeAnewWhenTheHALIsUsedAgain) {
  const std::vector<AudioObjectID> before = GetObjects(mDevice, Global('ctrl'));
  ASSERT_EQ(Set(mDevice, Output('volm'), Float32{1.0F}), 0);
  ASSERT_EQ(AudioHardwareUnload(), 0);
  mDevice = GetNumber(kAudioObjectSystemObject, Global('dOut'));
  const std::vector<AudioObjectID> after = GetObjects(mDevice, Global('ctrl'));
  EXPECT_THAT(after, SizeIs(18));
  EXPECT_NE(after, before);
  EXPECT_EQ(GetFloat(mDevice, Output('volm')), 0.0F);
  UInt32 value = 0;
  EXPECT_EQ(Get(before[1], Global('bcvl'), value), '!obj');
}

}  // namespace
}  // namespace tembra::test
