// Random walks of events, port openings, failures, timers, starts and stops. After each step the
// device must stand where the model stands and must have asked the same of its platform, in the
// same order; and what holds for every connection must hold.
//
// TEMBRA_WALK_SEED replays a run; each test prints the seed that it used.

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <optional>
#include <random>

#include "ConnectionModel.h"
#include "client/TMBAudioServer.h"
#include "support/Sanitizers.h"
#include "support/client/ClientDevice.h"
#include "support/client/FakeHAL.h"
#include "support/client/FakeServer.h"

namespace tembra::test {
namespace {

constexpr int kWalks = kSanitized ? 20000 : 100000;
constexpr int kShards = 10;
constexpr int kWalksOfADevice = 500;
constexpr int kMaximumSteps = 20;
constexpr int kEvents[] = {'strt', 'fnsh', 'cadd', 'cdel', 'cchk'};

unsigned long GetSeed() {
  if (const char* seed = getenv("TEMBRA_WALK_SEED")) return strtoul(seed, nullptr, 0);
  return std::random_device()();
}

class Walk : public testing::TestWithParam<int> {
 protected:
  Walk() : mServer(FakeServer::Get()), mRandom(0) {
    mServer.Reset();
    FakeHAL::Get().Reset();
  }
  ~Walk() override {
    mDevice.reset();
    mServer.Reset();
  }

  int Draw(int inCount) { return std::uniform_int_distribution<int>(0, inCount - 1)(mRandom); }

  // One step; answers what it was, for the trace.
  std::string Step();
  void Post(int inEvent, std::optional<int> inPID);
  // What the step must have led to.
  void CheckAgainstModel();
  // What must hold after every step.
  void CheckInvariants();
  // What must hold once nothing happens any more.
  void CheckQuiet();

  void SendAudio();

  FakeServer& mServer;
  std::mt19937 mRandom;
  std::unique_ptr<ClientDevice> mDevice;
  ConnectionModel mModel;
  // How often an event came in a state, in the order of kEvents.
  size_t mReached[std::size(kEvents)][6] = {};
  // The hardware runs from a start to a stop, as the engine has it.
  bool mIsStarted = false;
};

void Walk::SendAudio() {
  float samples[4] = {0.5f, -0.5f, 0.25f, -0.25f};
  AudioBufferList list{};
  list.mNumberBuffers = 1;
  list.mBuffers[0] = {2, sizeof(samples), samples};
  const UInt32 state = (*mDevice)->GetClientState();
  const bool mayGo = mModel.MaySendAudio();
  const unsigned int before = mServer.mAudioSends;
  const bool willFail = Draw(4) == 0;
  if (willFail && mayGo) mServer.mSendResults = {kCFMessagePortSendTimeout};
  const bool went = (*mDevice)->SendAudioDataToPort(AudioTimeStamp{}, list);
  EXPECT_EQ(mServer.mAudioSends - before, mayGo ? 1u : 0u);
  EXPECT_EQ(went, mayGo && !willFail);
  EXPECT_EQ((*mDevice)->GetClientState(), state) << "a send changed the state";
}

void Walk::Post(int inEvent, std::optional<int> inPID) {
  // Only the check asks a client that it does not name.
  const bool isForThisClient = inPID.has_value() ? *inPID == getpid() : inEvent == 'cchk';
  const auto* event = std::find(std::begin(kEvents), std::end(kEvents), inEvent);
  const bool isForAll = inEvent == 'strt' || inEvent == 'fnsh';
  if (event != std::end(kEvents) && (isForThisClient || isForAll)) {
    ++mReached[event - std::begin(kEvents)][mModel.mState];
  }
  mServer.PostEvent(inEvent, inPID);
  mModel.Event(inEvent, isForThisClient);
}

std::string Walk::Step() {
  const int pid = Draw(4) == 0 ? getpid() + 1 : getpid();
  switch (Draw(16)) {
    case 0:
      mServer.mHasListener = mModel.mHasListener = !mServer.mHasListener;
      return mServer.mHasListener ? "listener comes" : "listener goes";
    case 1:
      mServer.mHasDataPort = mModel.mHasDataPort = !mServer.mHasDataPort;
      return mServer.mHasDataPort ? "data port comes" : "data port goes";
    case 2:
      // Ports that are open stay dead till the next life of the server.
      mServer.mPortsAreDead = mModel.mPortsAreDead = Draw(3) == 0;
      return mServer.mPortsAreDead ? "ports die" : "ports live";
    case 3:
      Post('strt', std::nullopt);
      return "strt";
    case 4:
      Post('fnsh', std::nullopt);
      return "fnsh";
    case 5:
    case 6:
      Post('cadd', pid);
      return pid == getpid() ? "cadd" : "cadd for another";
    case 7:
      Post('cdel', pid);
      return pid == getpid() ? "cdel" : "cdel for another";
    case 8:
      if (Draw(2) == 0) {
        Post('cchk', std::nullopt);
        return "cchk for all";
      }
      Post('cchk', pid);
      return pid == getpid() ? "cchk" : "cchk for another";
    case 9:
      // Neither says whom it means, or what.
      if (Draw(3) == 0) {
        Post(Draw(2) == 0 ? 'cadd' : 'cdel', std::nullopt);
        return "cadd or cdel for nobody";
      }
      Post(Draw(2) == 0 ? 0 : 'cadx', pid);
      return "unknown event";
    case 10:
    case 11:
      EXPECT_EQ(mServer.FireNextTimer(), mModel.FireNextTimer());
      return "fire";
    case 12: {
      const double seconds = 0.05 * Draw(60);
      mServer.Advance(seconds);
      mModel.Advance(seconds);
      return "wait " + std::to_string(seconds);
    }
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
        mModel.Stop();
      } else {
        (*mDevice)->StartHardware();
        mModel.Start();
      }
      mIsStarted = !mIsStarted;
      return mIsStarted ? "start" : "stop";
  }
}

void Walk::CheckAgainstModel() {
  mServer.TakeMessages();
  ASSERT_EQ(mServer.TakeLog(), mModel.TakeLog());
  ASSERT_EQ((*mDevice)->GetClientState(), static_cast<UInt32>(mModel.mState));
  ASSERT_EQ(mServer.GetOpenPorts("listener"), mModel.mListenerIsOpen ? 1 : 0);
  ASSERT_EQ(mServer.GetOpenPorts("data"), mModel.mDataIsOpen ? 1 : 0);
  ASSERT_EQ(mServer.GetPendingTimers(), mModel.GetPendingTimers());
  ASSERT_EQ((*mDevice)->GetListenerPortRetries(), mModel.mListenerRetries);
  ASSERT_EQ((*mDevice)->GetDataPortRetries(), mModel.mDataRetries);
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
  mModel.Advance(5.0);
  CheckAgainstModel();
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
      mServer.mDiscardsAudio = true;
      mDevice = std::make_unique<ClientDevice>();
      mModel = ConnectionModel();
    }
    mServer.mHasListener = mModel.mHasListener = Draw(2) == 0;
    mServer.mHasDataPort = mModel.mHasDataPort = Draw(2) == 0;
    mServer.mPortsAreDead = mModel.mPortsAreDead = false;
    const int steps = 1 + Draw(kMaximumSteps);
    std::string trace;
    for (int step = 0; step < steps; ++step) {
      trace += Step() + ", ";
      CheckAgainstModel();
      CheckInvariants();
      if (HasFailure()) FAIL() << "walk " << walk << ": " << trace;
      ++reached[(*mDevice)->GetClientState()];
    }
    if (Draw(4) == 0) CheckQuiet();
    if (mIsStarted && Draw(2) == 0) {
      (*mDevice)->StopHardware();
      mModel.Stop();
      mIsStarted = false;
      CheckAgainstModel();
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
  constexpr size_t kWalked = kWalks / kShards;
  for (int state = 0; state <= 5; ++state) EXPECT_GT(reached[state], kWalked / 10) << state;
  for (size_t event = 0; event < std::size(kEvents); ++event) {
    for (int state = 1; state <= 5; ++state) {
      EXPECT_GT(mReached[event][state], kWalked / 500)
          << "event " << event << " in state " << state;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Shards, Walk, testing::Range(0, kShards));

}  // namespace
}  // namespace tembra::test
