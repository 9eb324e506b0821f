// The device with its real I/O thread and clock, and the server played by the test.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <thread>

#include "device/HP_IOProcList.h"
#include "device/HP_IOThread.h"
#include "support/CAException.h"
#include "support/CAGuard.h"
#include "support/client/ClientDevice.h"
#include "support/client/FakeHAL.h"
#include "support/client/FakeServer.h"
#include "support/telemetry/Telemetry.h"

namespace tembra::test {
namespace {

using namespace std::chrono_literals;

// With no flag at all a record has no start time; this one changes nothing else.
constexpr UInt32 kHasStartTime = kAudioDeviceStartTimeDontConsultDeviceFlag;

// Bounded; the time runs out only if something is broken.
bool WaitFor(const std::function<bool()>& inCondition) {
  const auto deadline = std::chrono::steady_clock::now() + 20s;
  while (!inCondition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::yield();
  }
  return true;
}

struct Client {
  std::atomic<int> mCalls{0};
  std::atomic<double> mLastOutputTime{0};
  std::function<void()> mAct;
};

OSStatus Render(AudioDeviceID, const AudioTimeStamp*, const AudioBufferList*, const AudioTimeStamp*,
                AudioBufferList* outOutput, const AudioTimeStamp* inTime, void* inClient) {
  Client& client = *static_cast<Client*>(inClient);
  if (outOutput->mNumberBuffers != 0 && outOutput->mBuffers[0].mData != nullptr) {
    static_cast<float*>(outOutput->mBuffers[0].mData)[0] = 1.0f;
  }
  client.mLastOutputTime = inTime->mSampleTime;
  if (client.mAct) client.mAct();
  ++client.mCalls;
  return 0;
}

class Engine : public testing::Test {
 protected:
  Engine() : mServer(FakeServer::Get()) {
    mServer.Reset();
    FakeHAL::Get().Reset();
    mServer.mHasListener = mServer.mHasDataPort = true;
    mServer.mDiscardsAudio = true;
    mDevice = std::make_unique<ClientDevice>();
  }
  ~Engine() override {
    Device().Do_StopAllIOProcs();
    mDevice.reset();
    mServer.Reset();
  }

  TMBACLN_Device& Device() { return **mDevice; }
  AudioDeviceIOProcID Add(Client& ioClient) {
    return Device().Do_CreateIOProcID(Render, &ioClient);
  }
  unsigned int Sends() {
    std::lock_guard<std::recursive_mutex> locker(mServer.mMutex);
    return mServer.mAudioSends;
  }

  FakeServer& mServer;
  std::unique_ptr<ClientDevice> mDevice;
};

TEST_F(Engine, AStartConnectsAndAStopDisconnects) {
  Client client;
  const AudioDeviceIOProcID id = Add(client);
  Device().Do_StartIOProc(id);
  EXPECT_TRUE(WaitFor([&] { return client.mCalls >= 3; }));
  EXPECT_EQ(Device().GetClientState(), 3u);
  EXPECT_EQ(Sends(), 0u);
  mServer.PostEvent('cadd', getpid());
  EXPECT_EQ(Device().GetClientState(), 5u);
  EXPECT_TRUE(WaitFor([&] { return Sends() >= 5; }));
  Device().Do_StopIOProc(id);
  EXPECT_FALSE(Device().IsIOEngineRunning());
  EXPECT_EQ(Device().GetClientState(), 0u);
  const int calls = client.mCalls;
  std::this_thread::yield();
  EXPECT_EQ(client.mCalls, calls);
  EXPECT_EQ(mServer.CountMessages("listener", 'cadd'), 1);
  EXPECT_EQ(mServer.CountMessages("listener", 'cdel'), 1);
}

TEST_F(Engine, ANullStartRunsTheEngineAndConnects) {
  Device().Do_StartIOProc(nullptr);
  EXPECT_TRUE(WaitFor([&] { return Device().GetIOCycleNumber() >= 2; }));
  EXPECT_EQ(Device().GetClientState(), 3u);
  Device().Do_StopIOProc(nullptr);
  EXPECT_EQ(Device().GetClientState(), 0u);
}

TEST_F(Engine, StartingTwiceConnectsOnce) {
  Client first;
  Client second;
  const AudioDeviceIOProcID firstID = Add(first);
  const AudioDeviceIOProcID secondID = Add(second);
  Device().Do_StartIOProc(firstID);
  // At once, while the thread may still be coming up.
  Device().Do_StartIOProc(firstID);
  Device().Do_StartIOProc(secondID);
  EXPECT_TRUE(WaitFor([&] { return second.mCalls >= 2; }));
  const std::vector<std::string> log = mServer.TakeLog();
  EXPECT_EQ(std::count(log.begin(), log.end(), "observe"), 1);
}

TEST_F(Engine, AStopFromWithinAProcedureTakesEffectAfterThePass) {
  Client client;
  const AudioDeviceIOProcID id = Add(client);
  client.mAct = [&] { Device().Do_StopIOProc(id); };
  Device().Do_StartIOProc(id);
  EXPECT_TRUE(WaitFor([&] { return Device().GetClientState() == 0 && client.mCalls == 1; }));
  EXPECT_TRUE(WaitFor([&] { return !Device().IsIOEngineRunning(); }));
  EXPECT_EQ(client.mCalls, 1);
  // It starts again.
  client.mAct = nullptr;
  Device().Do_StartIOProc(id);
  EXPECT_TRUE(WaitFor([&] { return client.mCalls >= 3; }));
}

TEST_F(Engine, ATimedStartOnAStoppedEngineIsRefusedAndOneOnTheEngineItselfIgnoresItsTime) {
  AudioTimeStamp time{.mSampleTime = 1e9, .mFlags = 1};
  Client client;
  const AudioDeviceIOProcID id = Add(client);
  EXPECT_THROW(Device().Do_StartIOProcAtTime(id, time, 0), CAException);
  EXPECT_EQ(Device().GetClientState(), 0u);
  {
    CAMutex::Locker locker(Device().GetIOGuard());
    Device().StartIOEngineAtTime(time, 0);
  }
  EXPECT_TRUE(WaitFor([&] { return Device().GetIOCycleNumber() >= 3; }));
  AudioTimeStamp now{};
  Device().GetCurrentTime(now);
  EXPECT_LT(now.mSampleTime, 1e8);
  CAMutex::Locker locker(Device().GetIOGuard());
  Device().StopIOEngine();
}

TEST_F(Engine, ATimedStartBesideARunningProcedureIsCalledFromItsTimeOn) {
  Client first;
  Client second;
  const AudioDeviceIOProcID firstID = Add(first);
  const AudioDeviceIOProcID secondID = Add(second);
  Device().Do_StartIOProc(firstID);
  ASSERT_TRUE(WaitFor([&] { return first.mCalls >= 2; }));
  AudioTimeStamp time{};
  Device().GetCurrentTime(time);
  time.mSampleTime += 4000;
  time.mFlags = 1;
  std::atomic<double> firstTime{0};
  second.mAct = [&] {
    if (firstTime == 0) firstTime = second.mLastOutputTime.load();
  };
  Device().Do_StartIOProcAtTime(secondID, time, kHasStartTime);
  EXPECT_EQ(time.mFlags & 3, 3u);
  ASSERT_TRUE(WaitFor([&] { return second.mCalls >= 1; }));
  EXPECT_GE(firstTime, time.mSampleTime);
}

TEST_F(Engine, ATimedStartMovesAnEngineThatRunsForNullStarts) {
  Device().Do_StartIOProc(nullptr);
  ASSERT_TRUE(WaitFor([&] { return Device().GetIOCycleNumber() >= 2; }));
  Client client;
  const AudioDeviceIOProcID id = Add(client);
  AudioTimeStamp time{};
  Device().GetCurrentTime(time);
  time.mSampleTime += 8000;
  time.mFlags = 1;
  Device().Do_StartIOProcAtTime(id, time, kHasStartTime);
  ASSERT_TRUE(WaitFor([&] { return client.mCalls >= 2; }));
  EXPECT_GE(client.mLastOutputTime, time.mSampleTime);
  // The hardware was started once.
  EXPECT_EQ(mServer.CountMessages("listener", 'cadd'), 1);
}

TEST_F(Engine, AMoveIsRecordedWithTheAnchorThatTheEngineTook) {
  const TelemetryIsAllowed allowed;
  mDevice.reset();
  mDevice = std::make_unique<ClientDevice>();
  Device().Do_StartIOProc(nullptr);
  ASSERT_TRUE(WaitFor([&] { return Device().GetIOCycleNumber() >= 2; }));
  StartCapture(*Device().GetIOCycleTelemetry());
  const UInt32 cycle = Device().GetIOCycleNumber();
  ASSERT_TRUE(WaitFor([&] { return Device().GetIOCycleNumber() >= cycle + 2; }));
  Client client;
  const AudioDeviceIOProcID id = Add(client);
  AudioTimeStamp time{};
  Device().GetCurrentTime(time);
  const Float64 now = time.mSampleTime;
  time.mSampleTime += 1e9;
  time.mFlags = 1;
  Device().Do_StartIOProcAtTime(id, time, kHasStartTime);
  Device().Do_StopAllIOProcs();
  // Those of the cycle follow its beginning; that of a move comes while it sleeps.
  const std::vector<Event> events = TakeAll(*Device().GetIOCycleTelemetry());
  std::vector<Event> moves;
  for (size_t i = 1; i < events.size(); ++i) {
    if (events[i].mKind == 'sync' && events[i - 1].mKind != 'wrkb') moves.push_back(events[i]);
  }
  ASSERT_EQ(moves.size(), 1u);
  EXPECT_GE(moves[0].mValues[2], now);
  EXPECT_LT(moves[0].mValues[2], time.mSampleTime - 1e8) << "so far ahead no engine sleeps";
}

TEST_F(Engine, TheServerComesAndGoesUnderTheCycle) {
  Client client;
  Device().SetIOBufferFrameSize(64, false);
  const AudioDeviceIOProcID id = Add(client);
  Device().Do_StartIOProc(id);
  for (int round = 0; round < 100; ++round) {
    mServer.PostEvent('cadd', getpid());
    ASSERT_EQ(Device().GetClientState(), 5u);
    const unsigned int sends = Sends();
    ASSERT_TRUE(WaitFor([&] { return Sends() > sends; }));
    if (round % 2 == 0) {
      mServer.PostEvent('cdel', getpid());
    } else {
      mServer.PostEvent('fnsh');
      mServer.PostEvent('strt');
    }
    ASSERT_EQ(Device().GetClientState(), 3u);
  }
}

TEST_F(Engine, AStartWhileAStopIsUnderWayComesAfterIt) {
  Client first;
  Client second;
  const AudioDeviceIOProcID firstID = Add(first);
  const AudioDeviceIOProcID secondID = Add(second);
  Device().Do_StartIOProc(firstID);
  ASSERT_TRUE(WaitFor([&] { return first.mCalls >= 2; }));
  // The I/O thread tells of its end without the guard. The start has the guard from before it
  // counts as enabled until it waits.
  std::thread starter;
  std::atomic<bool> started{false};  // the new run tells of its begin, on a thread of its own
  FakeHAL::Get().mOnChange = [&](AudioObjectPropertySelector inSelector) {
    if (inSelector != kAudioDevicePropertyDeviceIsRunning || started.exchange(true)) return;
    starter = std::thread([&] { Device().Do_StartIOProc(secondID); });
    EXPECT_TRUE(WaitFor([&] { return Device().GetIOProcList()->IsAnythingEnabled(); }));
  };
  Device().Do_StopIOProc(firstID);
  ASSERT_TRUE(started);
  starter.join();
  const int calls = second.mCalls;
  EXPECT_TRUE(WaitFor([&] { return second.mCalls > calls; }));
  EXPECT_EQ(Device().GetClientState(), 3u);
  EXPECT_THAT(mServer.TakeLog(), testing::ElementsAre("observe", "open listener", "send cadd",
                                                      "unobserve", "send cdel", "close listener",
                                                      "observe", "open listener", "send cadd"));
  // What it calls ends with this test.
  Device().Do_StopAllIOProcs();
  FakeHAL::Get().mOnChange = nullptr;
}

TEST_F(Engine, StartsAndStopsOfSeveralThreadsLeaveWhoRunsConnected) {
  Client clients[3];
  AudioDeviceIOProcID ids[3];
  for (int i = 0; i < 3; ++i) ids[i] = Add(clients[i]);
  std::vector<std::thread> threads;
  for (const AudioDeviceIOProcID id : ids) {
    threads.emplace_back([this, id] {
      for (int round = 0; round < 100; ++round) {
        Device().Do_StartIOProc(id);
        Device().Do_StopIOProc(id);
      }
      Device().Do_StartIOProc(id);
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (Client& client : clients) {
    const int calls = client.mCalls;
    EXPECT_TRUE(WaitFor([&] { return client.mCalls > calls; }));
  }
  EXPECT_EQ(Device().GetClientState(), 3u);
  for (const AudioDeviceIOProcID id : ids) Device().Do_StopIOProc(id);
  EXPECT_FALSE(Device().IsIOEngineRunning());
  EXPECT_EQ(Device().GetClientState(), 0u);
}

TEST_F(Engine, StartsAndStopsFollowEachOther) {
  Client client;
  const AudioDeviceIOProcID id = Add(client);
  for (int round = 0; round < 50; ++round) {
    Device().Do_StartIOProc(id);
    EXPECT_EQ(Device().GetClientState(), 3u);
    Device().Do_StopIOProc(id);
    EXPECT_EQ(Device().GetClientState(), 0u);
  }
  EXPECT_EQ(mServer.CountMessages("listener", 'cadd'), 50);
  EXPECT_EQ(mServer.CountMessages("listener", 'cdel'), 50);
}

}  // namespace
}  // namespace tembra::test
