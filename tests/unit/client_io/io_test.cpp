#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <functional>
#include <memory>

#include "client/Snd.h"
#include "device/HP_IOProc.h"
#include "device/HP_IOProcList.h"
#include "support/CAException.h"
#include "support/CAGuard.h"
#include "support/client/AllocationCounter.h"
#include "support/client/ClientDevice.h"
#include "support/client/FakeHAL.h"
#include "support/client/FakeServer.h"

namespace tembra::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr UInt32 kFrames = 512;
constexpr UInt32 kBytes = kFrames * 8;

// A client: what it does with its buffers, and how often it was asked.
struct Client {
  std::function<void(const AudioBufferList*, AudioBufferList*)> mRender;
  int mCalls = 0;
  const AudioBufferList* mOutput = nullptr;
  AudioDeviceIOProcID mID = nullptr;
};

OSStatus Render(AudioDeviceID, const AudioTimeStamp*, const AudioBufferList* inInput,
                const AudioTimeStamp*, AudioBufferList* outOutput, const AudioTimeStamp*,
                void* inClient) {
  Client& client = *static_cast<Client*>(inClient);
  ++client.mCalls;
  client.mOutput = outOutput;
  if (client.mRender) client.mRender(inInput, outOutput);
  return 0;
}

void Fill(AudioBufferList* outOutput, float inValue) {
  for (UInt32 i = 0; i < outOutput->mNumberBuffers; ++i) {
    AudioBuffer& buffer = outOutput->mBuffers[i];
    if (buffer.mData == nullptr) continue;
    float* samples = static_cast<float*>(buffer.mData);
    for (UInt32 sample = 0; sample < buffer.mDataByteSize / 4; ++sample) {
      samples[sample] = inValue + static_cast<float>(sample);
    }
  }
}

std::function<void(const AudioBufferList*, AudioBufferList*)> Tone(float inValue) {
  return
      [inValue](const AudioBufferList*, AudioBufferList* outOutput) { Fill(outOutput, inValue); };
}

class ClientIO : public testing::Test {
 protected:
  ClientIO() : mServer(FakeServer::Get()) {
    mServer.Reset();
    FakeHAL::Get().Reset();
    mDevice = std::make_unique<ClientDevice>();
  }
  ~ClientIO() override {
    Device().Do_StopAllIOProcs();
    Device().StopHardware();
    mDevice.reset();
    for (CFDataRef data : mServer.mKeptData) CFRelease(data);
    mServer.mKeptData.clear();
    mServer.Reset();
  }

  TMBACLN_Device& Device() { return **mDevice; }
  HP_IOProcList& List() { return *Device().GetIOProcList(); }

  void Connect() {
    mServer.mHasListener = mServer.mHasDataPort = true;
    Device().StartHardware();
    mServer.PostEvent('cadd', getpid());
    ASSERT_EQ(Device().GetClientState(), 5u);
    mServer.TakeLog();
    mServer.TakeMessages();
  }
  // Started without the engine: the test runs the cycles.
  void Add(Client& ioClient, bool inStart = true) {
    ioClient.mID = List().AddIOProc(Render, &ioClient, true);
    if (inStart) List().StartIOProc(ioClient.mID);
  }
  bool Cycle() {
    mOutputTime.mSampleTime += kFrames;
    return Device().CallIOProcs(mCurrentTime, mInputTime, mOutputTime);
  }
  // The first sample of each block that went out since the last question.
  std::vector<float> TakeAudio() {
    std::vector<float> firsts;
    for (FakeServer::Message& message : mServer.TakeMessages()) {
      if (message.mPort != "data") continue;
      AudioTimeStamp time{};
      AudioBufferList* list = SndAllocateAudioBufferList(
          message.mBytes.data(), static_cast<int>(message.mBytes.size()), &time, false);
      if (list == nullptr) continue;
      firsts.push_back(*static_cast<float*>(list->mBuffers[0].mData));
      mLastTime = time;
      SndFreeABLPointer(list, false);
    }
    return firsts;
  }

  FakeServer& mServer;
  std::unique_ptr<ClientDevice> mDevice;
  AudioTimeStamp mCurrentTime{.mSampleTime = 1.0, .mFlags = 7};
  AudioTimeStamp mInputTime{.mSampleTime = 2.0, .mFlags = 7};
  AudioTimeStamp mOutputTime{.mSampleTime = 3.0, .mHostTime = 77, .mFlags = 7};
  AudioTimeStamp mLastTime{};
};

TEST_F(ClientIO, ACycleWithSoundSendsOneBlockAndASilentOneNone) {
  Connect();
  Client client{.mRender = Tone(1.0f)};
  Add(client);
  EXPECT_TRUE(Cycle());
  EXPECT_THAT(TakeAudio(), ElementsAre(1.0f));
  client.mRender = [](const AudioBufferList*, AudioBufferList* outOutput) {
    memset(outOutput->mBuffers[0].mData, 0, outOutput->mBuffers[0].mDataByteSize);
  };
  EXPECT_TRUE(Cycle());
  EXPECT_THAT(TakeAudio(), IsEmpty());
  client.mRender = Tone(2.0f);
  EXPECT_TRUE(Cycle());
  EXPECT_THAT(TakeAudio(), ElementsAre(2.0f));
  EXPECT_EQ(client.mCalls, 3);
}

TEST_F(ClientIO, TheBlockIsSplitAndCarriesTheOutputTime) {
  Connect();
  Client client{.mRender = Tone(0.0f)};
  Add(client);
  EXPECT_TRUE(Cycle());
  std::vector<FakeServer::Message> messages = mServer.TakeMessages();
  ASSERT_EQ(messages.size(), 1u);
  EXPECT_EQ(messages[0].mID, 0);
  ASSERT_EQ(messages[0].mBytes.size(), 68u + 2 * (8 + 2048));
  AudioTimeStamp time{};
  AudioBufferList* list = SndAllocateAudioBufferList(
      messages[0].mBytes.data(), static_cast<int>(messages[0].mBytes.size()), &time, true);
  ASSERT_NE(list, nullptr);
  ASSERT_EQ(list->mNumberBuffers, 2u);
  for (UInt32 channel = 0; channel < 2; ++channel) {
    ASSERT_EQ(list->mBuffers[channel].mNumberChannels, 1u);
    ASSERT_EQ(list->mBuffers[channel].mDataByteSize, 2048u);
    const float* samples = static_cast<const float*>(list->mBuffers[channel].mData);
    for (UInt32 frame = 0; frame < kFrames; ++frame) {
      ASSERT_EQ(samples[frame], static_cast<float>(2 * frame + channel));
    }
  }
  EXPECT_EQ(memcmp(&time, &mOutputTime, sizeof(time)), 0);
  SndFreeABLPointer(list, true);
}

TEST_F(ClientIO, OneWordThatIsNotZeroSendsTheWholeBuffer) {
  Connect();
  Client client;
  Add(client);
  client.mRender = [](const AudioBufferList*, AudioBufferList* outOutput) {
    static_cast<float*>(outOutput->mBuffers[0].mData)[1023] = 1.0f;
  };
  Cycle();
  EXPECT_EQ(TakeAudio().size(), 1u);
  client.mRender = [](const AudioBufferList*, AudioBufferList* outOutput) {
    static_cast<float*>(outOutput->mBuffers[0].mData)[5] = -0.0f;
  };
  Cycle();
  EXPECT_EQ(TakeAudio().size(), 1u);
}

TEST_F(ClientIO, OnlyTheEarlierProceduresAudioGoesOut) {
  Connect();
  Client first{.mRender = Tone(1.0f)};
  Client second{.mRender = Tone(2.0f)};
  Add(first);
  Add(second);
  for (int cycle = 0; cycle < 3; ++cycle) {
    Cycle();
    EXPECT_THAT(TakeAudio(), ElementsAre(1.0f));
  }
  EXPECT_EQ(first.mCalls, 3);
  EXPECT_EQ(second.mCalls, 3);
  // Both were given the first one's list.
  EXPECT_EQ(second.mOutput, first.mOutput);
}

TEST_F(ClientIO, AStoppedRecordDoesNotStandInTheWay) {
  Connect();
  Client first{.mRender = Tone(1.0f)};
  Client second{.mRender = Tone(2.0f)};
  Add(first, false);
  Add(second);
  Cycle();
  EXPECT_THAT(TakeAudio(), ElementsAre(2.0f));
  EXPECT_EQ(first.mCalls, 0);
}

TEST_F(ClientIO, WhatALaterRecordHeldBeforeAnEarlierOneStartedIsNotSentAgain) {
  Connect();
  Client first{.mRender = Tone(1.0f)};
  Client second{.mRender = Tone(2.0f)};
  Add(first, false);
  Add(second);
  Cycle();
  ASSERT_THAT(TakeAudio(), ElementsAre(2.0f));
  List().StartIOProc(first.mID);
  Cycle();
  EXPECT_THAT(TakeAudio(), ElementsAre(1.0f));
}

TEST_F(ClientIO, AProcedureThatLeavesItsBufferAloneIsSilent) {
  Connect();
  Client client{.mRender = Tone(1.0f)};
  Add(client);
  Cycle();
  ASSERT_EQ(TakeAudio().size(), 1u);
  client.mRender = nullptr;
  Cycle();
  EXPECT_THAT(TakeAudio(), IsEmpty());
  EXPECT_EQ(client.mCalls, 2);
}

TEST_F(ClientIO, AFirstRecordThatIsNotYetCallableSendsNothing) {
  Connect();
  Client first{.mRender = Tone(1.0f)};
  Client second{.mRender = Tone(2.0f)};
  Add(first, false);
  const AudioTimeStamp start{.mSampleTime = mOutputTime.mSampleTime + 2 * kFrames, .mFlags = 1};
  List().StartIOProcAtTime(first.mID, start, kAudioDeviceStartTimeDontConsultDeviceFlag);
  Add(second);
  // What the second one renders into the first one's list was sent before it came, and it is
  // gone in the next cycle.
  Cycle();
  EXPECT_THAT(TakeAudio(), IsEmpty());
  EXPECT_EQ(first.mCalls, 0);
  EXPECT_EQ(second.mCalls, 1);
  Cycle();
  EXPECT_EQ(first.mCalls, 1);
  EXPECT_THAT(TakeAudio(), ElementsAre(1.0f));
}

TEST_F(ClientIO, AListWithoutMemoryServesItsOwnRecordAlone) {
  Connect();
  Client first{.mRender = Tone(1.0f)};
  Client second{.mRender = Tone(2.0f)};
  Add(first);
  const bool usage[] = {false};
  List().SetIOProcStreamUsage(first.mID, false, 1, usage);
  Add(second);
  Cycle();
  EXPECT_THAT(TakeAudio(), ElementsAre(2.0f));
  EXPECT_EQ(first.mCalls, 1);
  EXPECT_NE(first.mOutput, second.mOutput);
  EXPECT_EQ(first.mOutput->mBuffers[0].mData, nullptr);
  EXPECT_EQ(first.mOutput->mBuffers[0].mDataByteSize, kBytes);
}

TEST_F(ClientIO, ANullStartAloneSendsNothing) {
  Connect();
  List().StartIOProc(nullptr);
  EXPECT_TRUE(Cycle());
  EXPECT_THAT(TakeAudio(), IsEmpty());
}

TEST_F(ClientIO, TheInputIsSilent) {
  Connect();
  Client client;
  bool hadData = true;
  UInt32 buffers = 0;
  client.mRender = [&](const AudioBufferList* inInput, AudioBufferList*) {
    hadData = false;
    buffers = inInput->mNumberBuffers;
    for (UInt32 i = 0; i < inInput->mNumberBuffers; ++i) {
      const UInt8* bytes = static_cast<const UInt8*>(inInput->mBuffers[i].mData);
      for (UInt32 byte = 0; bytes != nullptr && byte < inInput->mBuffers[i].mDataByteSize; ++byte) {
        hadData = hadData || bytes[byte] != 0;
      }
    }
  };
  Add(client);
  Cycle();
  EXPECT_FALSE(hadData);
  EXPECT_EQ(buffers, 1u);
}

TEST_F(ClientIO, UnlessStreamingClientsRenderAndNothingIsSent) {
  Client client{.mRender = Tone(1.0f)};
  Add(client);
  int calls = 0;
  const auto cycle = [&](UInt32 inState) {
    ASSERT_EQ(Device().GetClientState(), inState);
    mServer.TakeLog();
    EXPECT_TRUE(Cycle());
    EXPECT_EQ(client.mCalls, ++calls);
    EXPECT_THAT(mServer.TakeLog(), IsEmpty()) << inState;
  };
  cycle(0);
  Device().StartHardware();
  cycle(2);
  mServer.Advance(2.0);
  cycle(1);
  mServer.mHasListener = true;
  mServer.PostEvent('strt');
  cycle(3);
  mServer.PostEvent('cadd', getpid());
  cycle(4);
  mServer.mHasDataPort = true;
  mServer.Advance(0.2);
  EXPECT_TRUE(Cycle());
  EXPECT_EQ(TakeAudio().size(), 1u);
}

TEST_F(ClientIO, AFailedSendChangesNothing) {
  Connect();
  Client client{.mRender = Tone(1.0f)};
  Add(client);
  mServer.mSendResults = {kCFMessagePortSendTimeout};
  EXPECT_TRUE(Cycle());
  EXPECT_EQ(Device().GetClientState(), 5u);
  EXPECT_TRUE(Cycle());
  EXPECT_EQ(mServer.mAudioSends, 2u);
}

TEST_F(ClientIO, SendingTellsWhetherTheBlockWentOut) {
  float samples[4] = {1, 2, 3, 4};
  AudioBufferList list{.mNumberBuffers = 1, .mBuffers = {{2, sizeof(samples), samples}}};
  EXPECT_FALSE(Device().SendAudioDataToPort(mOutputTime, list));
  Connect();
  EXPECT_TRUE(Device().SendAudioDataToPort(mOutputTime, list));
  mServer.mSendResults = {kCFMessagePortTransportError};
  EXPECT_FALSE(Device().SendAudioDataToPort(mOutputTime, list));
  mServer.mPortsAreDead = true;
  EXPECT_FALSE(Device().SendAudioDataToPort(mOutputTime, list));
  EXPECT_EQ(mServer.mAudioSends, 2u);
}

TEST_F(ClientIO, TransferTakesNeitherNoListNorSilence) {
  Connect();
  EXPECT_FALSE(Device().TransferAudioData(mOutputTime, nullptr));
  AudioBufferList none{};
  EXPECT_FALSE(Device().TransferAudioData(mOutputTime, &none));
  // The last bytes that make no word are not looked at.
  UInt8 bytes[8] = {0, 0, 0, 0, 1, 1, 1, 0};
  AudioBufferList list{.mNumberBuffers = 1, .mBuffers = {{1, 7, bytes}}};
  EXPECT_FALSE(Device().TransferAudioData(mOutputTime, &list));
  list.mBuffers[0].mDataByteSize = 8;
  EXPECT_TRUE(Device().TransferAudioData(mOutputTime, &list));
}

TEST_F(ClientIO, TheFormatIsTheOneOfTheStart) {
  Connect();
  Client client{.mRender = Tone(1.0f)};
  Add(client);
  Cycle();
  ASSERT_EQ(mServer.TakeMessages().at(0).mBytes.size(), 68u + 2 * (8 + 2048));
  // The frame size may change while the engine runs; the blocks follow.
  Device().SetIOBufferFrameSize(11025, false);
  Cycle();
  EXPECT_EQ(mServer.TakeMessages().at(0).mBytes.size(), 68u + 2 * (8 + 44100));
}

TEST_F(ClientIO, ASteadyCycleAllocatesNothing) {
  if (!AllocationCounter::IsAvailable()) GTEST_SKIP() << "a sanitizer has the allocator";
  Connect();
  mServer.mDiscardsAudio = true;
  Client client;
  client.mRender = [](const AudioBufferList*, AudioBufferList* outOutput) { Fill(outOutput, 1); };
  Add(client);
  Cycle();
  for (const UInt32 frames : {512u, 14u, 11025u}) {
    Device().SetIOBufferFrameSize(frames, false);
    const unsigned int before = mServer.mAudioSends;
    AllocationCounter counter;
    for (int cycle = 0; cycle < 100; ++cycle) Cycle();
    EXPECT_EQ(counter.GetCount(), 0u) << frames;
    EXPECT_EQ(mServer.mAudioSends - before, 100u);
  }
}

TEST_F(ClientIO, ABlockThatSomebodyHoldsKeepsItsBytes) {
  Connect();
  mServer.mKeepsData = true;
  Client client{.mRender = Tone(1.0f)};
  Add(client);
  for (const float value : {1.0f, 2.0f, 3.0f}) {
    client.mRender = Tone(value);
    Cycle();
  }
  ASSERT_EQ(mServer.mKeptData.size(), 3u);
  for (int i = 0; i < 3; ++i) {
    float first = 0;
    memcpy(&first, CFDataGetBytePtr(mServer.mKeptData[i]) + 76, sizeof(first));
    EXPECT_EQ(first, static_cast<float>(i + 1));
  }
  // Even when the device has gone.
  Device().StopHardware();
  Device().Do_StopAllIOProcs();
  mDevice.reset();
  float first = 0;
  memcpy(&first, CFDataGetBytePtr(mServer.mKeptData[0]) + 76, sizeof(first));
  EXPECT_EQ(first, 1.0f);
  mDevice = std::make_unique<ClientDevice>();
}

TEST_F(ClientIO, ABlockLargerThanTheStorageStillGoesOut) {
  Connect();
  std::vector<float> samples(100000, 1.0f);
  AudioBufferList list{.mNumberBuffers = 1,
                       .mBuffers = {{2, static_cast<UInt32>(samples.size() * 4), samples.data()}}};
  EXPECT_TRUE(Device().SendAudioDataToPort(mOutputTime, list));
  EXPECT_EQ(mServer.TakeMessages().at(0).mBytes.size(), 68u + 16 + 400000);
}

// The engine.

class OwnedByAnother : public TMBACLN_Device {
 public:
  using TMBACLN_Device::TMBACLN_Device;
  bool HogModeIsOwnedBySelfOrIsFree() const override { return false; }
};

TEST_F(ClientIO, StartingInAProcessThatIsLockedOutThrows) {
  OwnedByAnother device(60, mDevice->GetPlugIn());
  device.Initialize();
  AudioTimeStamp time{.mFlags = 1};
  for (const bool atTime : {false, true}) {
    try {
      if (atTime) {
        device.Do_StartIOProcAtTime(nullptr, time, 0);
      } else {
        device.Do_StartIOProc(nullptr);
      }
      ADD_FAILURE() << "nothing was thrown";
    } catch (const CAException& exception) {
      EXPECT_EQ(exception.GetError(), 560492391);
    }
  }
  EXPECT_THAT(mServer.TakeLog(), IsEmpty());
  device.Teardown();
}

TEST_F(ClientIO, AnEngineThatRunsIsNotStartedAgain) {
  Device().IOEngineStarted();
  Device().StartIOEngine();
  EXPECT_THAT(mServer.TakeLog(), IsEmpty());
  EXPECT_EQ(Device().GetClientState(), 0u);
  Device().IOEngineStopped();
}

TEST_F(ClientIO, StoppingAStoppedEngineStillStopsTheHardware) {
  Device().StopIOEngine();
  EXPECT_THAT(mServer.TakeLog(), ElementsAre("unobserve"));
  EXPECT_EQ(Device().GetClientState(), 0u);
}

TEST_F(ClientIO, TheCycleNumberIsZeroBeforeTheFirstRun) {
  EXPECT_EQ(Device().GetIOCycleNumber(), 0u);
}

TEST_F(ClientIO, CommandsTakeTheGuardOnce) {
  void* token = &token;
  EXPECT_TRUE(Device().IsSafeToExecuteCommand());
  ASSERT_TRUE(Device().StartCommandExecution(&token));
  EXPECT_NE(token, nullptr);
  void* inner = nullptr;
  ASSERT_TRUE(Device().StartCommandExecution(&inner));
  EXPECT_EQ(inner, nullptr);
  Device().FinishCommandExecution(inner);
  EXPECT_TRUE(Device().GetIOGuard()->IsOwnedByCurrentThread());
  Device().FinishCommandExecution(token);
  EXPECT_FALSE(Device().GetIOGuard()->IsOwnedByCurrentThread());
}

TEST_F(ClientIO, ADeviceThatWasNotInitializedHasNoGuard) {
  TMBACLN_Device device(61, mDevice->GetPlugIn());
  void* token = &token;
  EXPECT_EQ(device.GetIOGuard(), nullptr);
  EXPECT_TRUE(device.IsSafeToExecuteCommand());
  EXPECT_TRUE(device.StartCommandExecution(&token));
  EXPECT_EQ(token, nullptr);
  device.FinishCommandExecution(token);
}

}  // namespace
}  // namespace tembra::test
