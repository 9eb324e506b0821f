// When a device becomes the one that a read of the default output is answered with.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <vector>

#include "runtime/TMBACLNO.h"
#include "support/client/ClientDevice.h"
#include "support/client/FakeHAL.h"
#include "support/client/FakeServer.h"

namespace {

// What the override answered with each time that somebody asked for this process's user. The names
// of both ports have the user in them, and they are the last that a device makes of its own.
std::vector<AudioObjectID> gSeen;

}  // namespace

extern "C" uid_t getuid() noexcept {
  gSeen.push_back(tmbclno_audio_object_id);
  return static_cast<uid_t>(syscall(SYS_getuid));
}

namespace tembra::test {
namespace {

class DefaultDevice : public testing::Test {
 protected:
  DefaultDevice() {
    FakeServer::Get().Reset();
    FakeHAL::Get().Reset();
    TMBACLNO_Initialize(kAudioObjectUnknown);
  }
  ~DefaultDevice() override { FakeServer::Get().Reset(); }
};

TEST_F(DefaultDevice, IsOneOnlyOnceAllElseOfItIsMade) {
  ClientDevice device(false);
  gSeen.clear();
  device->Initialize();
  EXPECT_EQ(tmbclno_audio_object_id, ClientDevice::kID);
  ASSERT_GE(gSeen.size(), 2U) << "both ports' names";
  EXPECT_THAT(gSeen, testing::Each(AudioObjectID{kAudioObjectUnknown}));
}

TEST_F(DefaultDevice, IsNoneBeforeItsInitialisation) {
  const ClientDevice device;
  TMBACLNO_Initialize(kAudioObjectUnknown);
  const ClientDevice second(false);
  EXPECT_EQ(tmbclno_audio_object_id, AudioObjectID{kAudioObjectUnknown});
}

}  // namespace
}  // namespace tembra::test
