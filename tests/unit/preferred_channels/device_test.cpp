// Preferred channels as a device has them.

#include "FailingFormat.h"
#include "PreferredChannelsTest.h"

namespace tembra::test {
namespace {

class DeviceWithPreferences : public testing::Test {
 protected:
  DeviceWithPreferences() : mDevice(false, false) {
    mPreferences.Reset();
    mNotifications.Reset();
    mDevice.mUID = "The Device";
  }

  FakePreferences& mPreferences = FakePreferences::Get();
  FakeNotifications& mNotifications = FakeNotifications::Get();
  SimulatedDevice mDevice;
};

TEST_F(DeviceWithPreferences, HasThemFromInitializeToTeardown) {
  EXPECT_EQ(mNotifications.mObservations.size(), 0u);
  mDevice.Initialize();
  mDevice.AddSimulatedStream(false, FloatFormat(2));
  EXPECT_EQ(mNotifications.mObservations.size(), 4u);
  EXPECT_EQ(mNotifications.GetObservers(kOutputLayout).size(), 1u);
  for (const UInt32 selector : {'dch2', 'srnd', 'srdd'}) {
    EXPECT_TRUE(mDevice.HasProperty(At(selector, 'outp')));
    EXPECT_FALSE(mDevice.HasProperty(At(selector, 'inpt')));
    EXPECT_FALSE(mDevice.HasProperty(At(selector, 'glob')));
    EXPECT_EQ(mDevice.IsPropertySettable(At(selector, 'outp')), selector != 'srdd');
    EXPECT_EQ(mDevice.GetPropertyDataSize(At(selector, 'outp'), 0, nullptr),
              selector == 'dch2' ? 8u : 52u);
  }
  const UInt32 pair[2] = {2, 1};
  mDevice.SetPropertyData(At('dch2', 'outp'), 0, nullptr, 8, pair, nullptr);
  UInt32 read[2] = {};
  UInt32 size = 8;
  mDevice.GetPropertyData(At('dch2', 'outp'), 0, nullptr, size, read);
  EXPECT_EQ(read[0], 2u);
  EXPECT_EQ(read[1], 1u);
  EXPECT_EQ(
      StatusOf([&] { mDevice.SetPropertyData(At('srdd', 'outp'), 0, nullptr, 8, pair, nullptr); }),
      'nope');
  EXPECT_EQ(StatusOf([&] { mDevice.GetPropertyData(At('dch2', 'inpt'), 0, nullptr, size, read); }),
            'who?');
  mDevice.RemoveStream(mDevice.mStreams[0].get());
  mDevice.mStreams.clear();
  mDevice.Teardown();
  EXPECT_EQ(mNotifications.mObservations.size(), 0u);
}

TEST_F(DeviceWithPreferences, ClearsThemOnRequest) {
  mDevice.ClearPrefs();
  EXPECT_THAT(mPreferences.TakeCalls(), IsEmpty()) << "there are none yet";
  mDevice.Initialize();
  mPreferences.Put(kOutputStereo, CreatePair(2, 1));
  mDevice.ClearPrefs();
  EXPECT_EQ(mPreferences.Find(kOutputStereo), nullptr);
}

TEST_F(DeviceWithPreferences, ADeviceWithoutAUIDHasThemToo) {
  mDevice.mUID = nullptr;
  mDevice.Initialize();
  EXPECT_EQ(
      mNotifications.GetObservers("com.apple.audio.CoreAudio.PreferredStereoChannels.Input.(null)")
          .size(),
      1u);
}

TEST_F(DeviceWithPreferences, AKeyThatCannotBeMadeStopsTheBuilding) {
  for (int key = 1; key <= 4; ++key) {
    SimulatedDevice device(false, false);
    gFailingFormat = key;
    EXPECT_EQ(StatusOf([&] { device.Initialize(); }), 'nope');
    EXPECT_EQ(gFailingFormat, 0);
    EXPECT_THAT(mNotifications.mObservations, IsEmpty());
    EXPECT_THAT(mPreferences.TakeCalls(), IsEmpty());
    device.Teardown();
  }
}

}  // namespace
}  // namespace tembra::test
