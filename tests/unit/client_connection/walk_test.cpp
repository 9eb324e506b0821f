// Random walks of events, port openings, failures, timers, starts and stops.
//
// TEMBRA_WALK_SEED replays a run; each test prints the seed that it used.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <random>

#include "client/TMBAudioServer.h"
#include "support/client/ClientDevice.h"
#include "support/client/FakeHAL.h"
#include "support/client/FakeServer.h"

namespace tembra::test {
namespace {

constexpr int kWalks = 100000;
constexpr int kShards = 10;
constexpr int kWalksOfADevice = 500;
constexpr int kMaximumSteps = 20;

unsigned long GetSeed() {
  if (const char* seed = getenv("TEMBRA_WALK_SEED")) return strtoul(seed, nullptr, 0);
  return std::random_device()();
}

class Walk : public testing::TestWithParam<int> {
 protected:
  Walk() : mServer(FakeServer::Get()), mRandom(0) {
    mServer.Reset();
    FakeHAL::Get().Reset();
    mServer.mKeepsLog = false;
  }
  ~Walk() override {
    mDevice.reset();
    mServer.Reset();
  }

  int Draw(int inCount) { return std::uniform_int_distribution<int>(0, inCount - 1)(mRandom); }

  // One step; answers what it was, for the trace.
  std::string Step();
  // What must hold after every step.
  void CheckInvariants();
  // What must hold once nothing happens any more.
  void CheckQuiet();

  void SendAudio();

  FakeServer& mServer;
  std::mt19937 mRandom;
  std::unique_ptr<ClientDevice> mDevice;
  // The hardware runs from a start to a stop, as the engine has it.
  bool mIsStarted = false;
};

void Walk::SendAudio() {
  float samples[4] = {0.5f, -0.5f, 0.25f, -0.25f};
  AudioBufferList list{};
  list.mNumberBuffers = 1;
  list.mBuffers[0] = {2, sizeof(samples), samples};
  const UInt32 state = (*mDevice)->GetClientState();
  const bool mayGo = state == 5 && mServer.GetOpenPorts("data") == 1 && !mServer.mPortsAreDead;
  const unsigned int before = mServer.mAudioSends;
  const bool willFail = Draw(4) == 0;
  if (willFail && mayGo) mServer.mSendResults = {kCFMessagePortSendTimeout};
  const bool went = (*mDevice)->SendAudioDataToPort(AudioTimeStamp{}, list);
  EXPECT_EQ(mServer.mAudioSends - before, mayGo ? 1u : 0u);
  EXPECT_EQ(went, mayGo && !willFail);
  EXPECT_EQ((*mDevice)->GetClientState(), state) << "a send changed the state";
}

std::string Walk::Step() {
  const int pid = Draw(4) == 0 ? getpid() + 1 : getpid();
  switch (Draw(16)) {
    case 0:
      mServer.mHasListener = !mServer.mHasListener;
      return mServer.mHasListener ? "listener comes" : "listener goes";
    case 1:
      mServer.mHasDataPort = !mServer.mHasDataPort;
      return mServer.mHasDataPort ? "data port comes" : "data port goes";
    case 2:
      // Ports that are open stay dead till the next life of the server.
      mServer.mPortsAreDead = Draw(3) == 0;
      return mServer.mPortsAreDead ? "ports die" : "ports live";
    case 3:
      mServer.PostEvent('strt');
      return "strt";
    case 4:
      mServer.PostEvent('fnsh');
      return "fnsh";
    case 5:
    case 6:
      mServer.PostEvent('cadd', pid);
      return "cadd";
    case 7:
      mServer.PostEvent('cdel', pid);
      return "cdel";
    case 8:
      if (Draw(2) == 0) {
        mServer.PostEvent('cchk');
      } else {
        mServer.PostEvent('cchk', pid);
      }
      return "cchk";
    case 9:
      mServer.PostEvent(Draw(2) == 0 ? 0 : 'cadx', pid);
      return "unknown event";
    case 10:
    case 11:
      mServer.FireNextTimer();
      return "fire";
    case 12:
      mServer.Advance(0.05 * Draw(60));
      return "wait";
    case 13:
      SendAudio();
      return "audio";
    default:
      if (mIsStarted && Draw(3) != 0) {
        SendAudio();
        return "audio";
      }
      if (mIsStarted) {
        (*mDevice)->StopHardware();
      } else {
        (*mDevice)->StartHardware();
      }
      mIsStarted = !mIsStarted;
      return mIsStarted ? "start" : "stop";
  }
}

void Walk::CheckInvariants() {
  const UInt32 state = (*mDevice)->GetClientState();
  const int listeners = mServer.GetOpenPorts("listener");
  const int dataPorts = mServer.GetOpenPorts("data");
  const int timers = mServer.GetPendingTimers();
  ASSERT_LE(state, 5u);
  ASSERT_EQ(state == 0, !mIsStarted);
  ASSERT_LE(listeners, 1);
  ASSERT_LE(dataPorts, 1);
  ASSERT_LE(timers, 2);
  ASSERT_LE((*mDevice)->GetListenerPortRetries(), 10u);
  ASSERT_LE((*mDevice)->GetDataPortRetries(), 10u);
  // Streaming means that there is a data port; registering, that somebody still tries, unless the
  // port was left open by an earlier life.
  if (state == 5) ASSERT_EQ(dataPorts, 1);
  if (state == 2) ASSERT_GE(listeners + timers, 1);
  if (state == 4) ASSERT_GE(listeners + timers, 1);
  if (state == 0) {
    ASSERT_EQ(timers, 0);
    ASSERT_EQ((*mDevice)->GetListenerPortRetries(), 0u);
    ASSERT_EQ((*mDevice)->GetDataPortRetries(), 0u);
  }
  ASSERT_EQ(mServer.GetObservations(), mIsStarted ? 1u : 0u);
  // Each listener port that was opened was told of this client at once, and nothing else adds.
  ASSERT_EQ(mServer.mListenerOpenings, mServer.mAdds + mServer.mOpeningsWhileDead);
  // What the device holds it has open: nothing closed is still kept, nothing dropped still fires.
  mServer.Sweep();
  ASSERT_EQ(mServer.mPorts.size(), static_cast<size_t>(listeners + dataPorts));
  ASSERT_LE(mServer.mTimers.size(), 2u);
}

void Walk::CheckQuiet() {
  mServer.Advance(5.0);
  ASSERT_EQ(mServer.GetPendingTimers(), 0) << "somebody tries for ever";
  const UInt32 state = (*mDevice)->GetClientState();
  if (state == 2 || state == 4) ASSERT_EQ(mServer.GetOpenPorts("listener"), 1);
}

TEST_P(Walk, KeepsTheInvariants) {
  const unsigned long seed = GetSeed();
  std::cout << "TEMBRA_WALK_SEED=" << seed << " shard " << GetParam() << std::endl;
  mRandom.seed(static_cast<std::mt19937::result_type>(seed * kShards +
                                                      static_cast<unsigned long>(GetParam())));
  size_t reached[6] = {};
  for (int walk = 0; walk < kWalks / kShards; ++walk) {
    if (walk % kWalksOfADevice == 0) {
      mDevice.reset();
      mServer.Reset();
      mServer.mKeepsLog = false;
      mDevice = std::make_unique<ClientDevice>();
    }
    mServer.mHasListener = Draw(2) == 0;
    mServer.mHasDataPort = Draw(2) == 0;
    mServer.mPortsAreDead = false;
    const int steps = 1 + Draw(kMaximumSteps);
    std::string trace;
    for (int step = 0; step < steps; ++step) {
      trace += Step() + ", ";
      CheckInvariants();
      if (HasFailure()) FAIL() << "walk " << walk << ": " << trace;
      ++reached[(*mDevice)->GetClientState()];
    }
    if (Draw(4) == 0) CheckQuiet();
    if (mIsStarted && Draw(2) == 0) {
      (*mDevice)->StopHardware();
      mIsStarted = false;
    }
    // Now and then a device goes without a stop.
    if ((walk + 1) % kWalksOfADevice == 0 && mIsStarted) {
      mDevice.reset();
      mServer.mObservations.clear();
      mIsStarted = false;
    }
    if (HasFailure()) FAIL() << "walk " << walk << ": " << trace;
  }
  // Walks that never get anywhere prove nothing.
  for (int state = 0; state <= 5; ++state) EXPECT_GT(reached[state], 1000u) << state;
}

INSTANTIATE_TEST_SUITE_P(Shards, Walk, testing::Range(0, kShards));

}  // namespace
}  // namespace tembra::test
