#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <memory>

#include "client/TMBAudioServer.h"
#include "support/client/ClientDevice.h"
#include "support/client/FakeHAL.h"
#include "support/client/FakeServer.h"

namespace tembra::test {

// What the retry timers are set to, in seconds.
constexpr double kTry = 0.10000000149011612;

// While one stands, no property list can be written: there is no memory for it.
class NoPropertyLists {
 public:
  NoPropertyLists() { sIsOn = true; }
  ~NoPropertyLists() { sIsOn = false; }
  NoPropertyLists(const NoPropertyLists&) = delete;
  NoPropertyLists& operator=(const NoPropertyLists&) = delete;

  static inline bool sIsOn = false;
};

// A device beside a server that lives in simulated time.
class Connection : public testing::Test {
 protected:
  Connection() : mServer(FakeServer::Get()) {
    mServer.Reset();
    FakeHAL::Get().Reset();
    mDevice = std::make_unique<ClientDevice>();
  }
  ~Connection() override {
    Stop();
    mDevice.reset();
    mServer.Reset();
  }

  TMBACLN_Device& Device() { return **mDevice; }
  UInt32 State() { return Device().GetClientState(); }
  // A device whose hardware was started is stopped before it goes, as its engine sees to.
  void Stop() {
    if (mDevice != nullptr && State() != 0) Device().StopHardware();
  }

  // Brings the device to a state in the plainest way.
  void Enter(UInt32 inState) {
    if (inState == 0) return;
    mServer.mHasListener = inState >= 3;
    mServer.mHasDataPort = inState >= 5;
    Device().StartHardware();
    if (inState == 1) mServer.Advance(2.0);
    if (inState >= 4) mServer.PostEvent('cadd', getpid());
    ASSERT_EQ(State(), inState);
    mServer.TakeLog();
    mServer.TakeMessages();
  }

  FakeServer& mServer;
  std::unique_ptr<ClientDevice> mDevice;
};

}  // namespace tembra::test
