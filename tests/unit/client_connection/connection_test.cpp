#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <memory>

#include "client/TMBAudioClientInfo.h"
#include "client/TMBAudioServer.h"
#include "support/client/ClientDevice.h"
#include "support/client/FakeHAL.h"
#include "support/client/FakeServer.h"

namespace tembra::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr double kTry = 0.10000000149011612;

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

// Names and codes.

TEST_F(Connection, IDsAreMadeOfTheTextAndTheNumbers) {
  const std::string user = std::to_string(getuid());
  CFStringRef listener = CFTmbSndCopyListenerID();
  CFStringRef port = CFTmbSndCopyPortID(1234);
  char buffer[100];
  ASSERT_TRUE(CFStringGetCString(listener, buffer, sizeof(buffer), kCFStringEncodingUTF8));
  EXPECT_EQ(buffer, "com.tembra.tmbasrv." + user);
  ASSERT_TRUE(CFStringGetCString(port, buffer, sizeof(buffer), kCFStringEncodingUTF8));
  EXPECT_EQ(buffer, "com.tembra.tmbasrv." + user + ".1234");
  EXPECT_EQ(CFGetRetainCount(listener), 1);
  EXPECT_EQ(CFGetRetainCount(port), 1);
  CFRelease(listener);
  CFRelease(port);
}

TEST_F(Connection, NotificationVocabulary) {
  EXPECT_TRUE(CFEqual(kTMBAudioServerNotification, CFSTR("TMBAudioServerNotification")));
  EXPECT_TRUE(CFEqual(kTMBAudioServerConnectionEventKey, CFSTR("Event")));
  EXPECT_TRUE(CFEqual(kTMBAudioServerNotificationSrvUIDKey, CFSTR("SrvUID")));
  EXPECT_TRUE(CFEqual(kTMBAudioServerNotificationSrvPIDKey, CFSTR("SrvPID")));
  EXPECT_TRUE(CFEqual(kTMBAudioServerNotificationSrvIDKey, CFSTR("SrvID")));
  EXPECT_TRUE(CFEqual(kTMBAudioServerNotificationClientPIDKey, CFSTR("ClnPID")));
}

TEST_F(Connection, EventCodes) {
  EXPECT_EQ(kTMBAudioServerEventStart, 1937011316);
  EXPECT_EQ(kTMBAudioServerEventFinish, 1718514536);
  EXPECT_EQ(kTMBAudioServerEventClientAdded, 1667327076);
  EXPECT_EQ(kTMBAudioServerEventClientDeleted, 1667523948);
  EXPECT_EQ(kTMBAudioServerEventClientCheck, 1667459179);
}

TEST_F(Connection, MessageIDsSpellTheirStoredTexts) {
  const auto stored = [](SInt32 inID) {
    return std::string(reinterpret_cast<const char*>(&inID), sizeof(inID));
  };
  EXPECT_EQ(kTMBAudioMessageAddID, 1667327076);
  EXPECT_EQ(stored(kTMBAudioMessageAddID), "ddac");
  EXPECT_EQ(kTMBAudioMessageEchoID, 1701013615);
  EXPECT_EQ(stored(kTMBAudioMessageEchoID), "ohce");
  EXPECT_EQ(kTMBAudioMessageDisposeID, 1667523948);
  EXPECT_EQ(stored(kTMBAudioMessageDisposeID), "ledc");
}

// Starting and stopping.

TEST_F(Connection, ADeviceThatNeverStartsNeverTalks) {
  mServer.mHasListener = mServer.mHasDataPort = true;
  // It does not observe either; were it told of events all the same, it would not act.
  EXPECT_EQ(mServer.GetObservations(), 0u);
  mServer.mObservations = {{&Device(), TMBACLN_Device::__tmbAudioNotificationCallBack}};
  for (const int event : {'strt', 'fnsh', 'cadd', 'cdel', 'cchk'}) {
    mServer.PostEvent(event, getpid());
    EXPECT_EQ(State(), 0u);
  }
  mServer.mObservations.clear();
  EXPECT_THAT(mServer.TakeLog(), IsEmpty());
}

TEST_F(Connection, AnEventThatComesAfterTheStopIsIgnoredAlsoWithAPortLeftOpen) {
  Enter(4);
  const std::vector<FakeServer::Observation> observations = mServer.mObservations;
  Device().StopHardware();
  ASSERT_EQ(mServer.GetOpenPorts("listener"), 1);
  mServer.mHasDataPort = true;
  mServer.TakeLog();
  mServer.mObservations = observations;
  for (const int event : {'cchk', 'cadd', 'cdel', 'fnsh', 'strt'}) {
    mServer.PostEvent(event, getpid());
    EXPECT_EQ(State(), 0u);
  }
  mServer.mObservations.clear();
  EXPECT_THAT(mServer.TakeLog(), IsEmpty());
  EXPECT_EQ(mServer.GetOpenPorts("listener"), 1);
}

TEST_F(Connection, StartObservesThenOpensAndAdds) {
  mServer.mHasListener = true;
  Device().StartHardware();
  EXPECT_THAT(mServer.TakeLog(), ElementsAre("observe", "open listener", "send cadd"));
  EXPECT_EQ(State(), 3u);
}

TEST_F(Connection, StopSendsDisposeOnTheOpenPortAfterTheObserverHasGone) {
  Enter(5);
  Device().StopHardware();
  EXPECT_THAT(mServer.TakeLog(),
              ElementsAre("unobserve", "send cdel", "close data", "close listener"));
  EXPECT_EQ(State(), 0u);
}

TEST_F(Connection, StopEndsInStateZeroFromEveryState) {
  for (UInt32 state = 0; state <= 5; ++state) {
    Enter(state);
    Device().StopHardware();
    EXPECT_EQ(State(), 0u) << state;
    EXPECT_EQ(mServer.GetPendingTimers(), 0) << state;
    EXPECT_EQ(mServer.GetObservations(), 0u) << state;
    EXPECT_EQ(mServer.GetOpenPorts("data"), 0) << state;
    // Without a data port to close, nothing closes the listener port.
    EXPECT_EQ(mServer.GetOpenPorts("listener"), state == 4 ? 1 : 0) << state;
    EXPECT_EQ(Device().GetListenerPortRetries(), 0u) << state;
    EXPECT_EQ(Device().GetDataPortRetries(), 0u) << state;
    mDevice.reset();
    mDevice = std::make_unique<ClientDevice>();
  }
}

TEST_F(Connection, StopWithAPendingDataTimerDropsIt) {
  Enter(4);
  ASSERT_EQ(mServer.GetPendingTimers(), 1);
  Device().StopHardware();
  EXPECT_THAT(mServer.TakeLog(), ElementsAre("unobserve", "send cdel", "drop timer"));
  EXPECT_EQ(mServer.GetPendingTimers(), 0);
  // The listener port stays open across the stop: nothing closed it.
  EXPECT_EQ(mServer.GetOpenPorts("listener"), 1);
}

TEST_F(Connection, AddEchoAndDisposeCarryTheirForms) {
  mServer.mHasListener = true;
  Device().StartHardware();
  mServer.PostEvent('cchk', getpid());
  Device().StopHardware();
  const std::vector<FakeServer::Message> messages = mServer.TakeMessages();
  ASSERT_EQ(messages.size(), 3u);
  const SInt32 ids[] = {kTMBAudioMessageAddID, kTMBAudioMessageEchoID, kTMBAudioMessageDisposeID};
  const CFIndex keys[] = {11, 11, 2};
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(messages[i].mID, ids[i]);
    CFDataRef data = CFDataCreate(nullptr, messages[i].mBytes.data(),
                                  static_cast<CFIndex>(messages[i].mBytes.size()));
    CFPropertyListRef list = CFPropertyListCreateWithData(nullptr, data, 0, nullptr, nullptr);
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(CFDictionaryGetCount(static_cast<CFDictionaryRef>(list)), keys[i]);
    CFRelease(list);
    CFRelease(data);
  }
}

TEST_F(Connection, TheServerIsToldOfANonInterleavedFormat) {
  mServer.mHasListener = true;
  Device().StartHardware();
  const std::vector<FakeServer::Message> messages = mServer.TakeMessages();
  ASSERT_EQ(messages.size(), 1u);
  CFDataRef data = CFDataCreate(nullptr, messages[0].mBytes.data(),
                                static_cast<CFIndex>(messages[0].mBytes.size()));
  const TMBAudioClientInfo info(data);
  CFRelease(data);
  const AudioStreamBasicDescription format = info.GetStreamDescription();
  EXPECT_EQ(format.mSampleRate, 44100.0);
  EXPECT_EQ(format.mFormatFlags, 41u);
  EXPECT_EQ(format.mBytesPerFrame, 4u);
  EXPECT_EQ(format.mBytesPerPacket, 4u);
  EXPECT_EQ(format.mFramesPerPacket, 1u);
  EXPECT_EQ(format.mChannelsPerFrame, 2u);
  EXPECT_EQ(format.mBitsPerChannel, 32u);
  EXPECT_EQ(info.GetBufferFrames(), 512u);
  EXPECT_EQ(info.GetClientPID(), getpid());
  EXPECT_EQ(info.GetClientUID(), getuid());
}

// Retries.

TEST_F(Connection, WithoutAServerElevenTriesLeadToIdle) {
  Device().StartHardware();
  EXPECT_EQ(State(), 2u);
  int tries = 1;
  double time = 0.0;
  while (mServer.GetPendingTimers() != 0) {
    ASSERT_EQ(mServer.GetPendingTimers(), 1);
    EXPECT_EQ(State(), 2u);
    const double before = mServer.mNow;
    ASSERT_TRUE(mServer.FireNextTimer());
    EXPECT_DOUBLE_EQ(mServer.mNow - before, kTry);
    time += kTry;
    ++tries;
    ASSERT_LE(tries, 11);
  }
  EXPECT_EQ(tries, 11);
  EXPECT_NEAR(time, 1.0, 1e-6);
  EXPECT_EQ(State(), 1u);
  const std::vector<std::string> log = mServer.TakeLog();
  EXPECT_EQ(std::count(log.begin(), log.end(), "no listener"), 11);
  EXPECT_EQ(Device().GetListenerPortRetries(), 10u);

  // The server's start gives another eleven.
  mServer.PostEvent('strt');
  EXPECT_EQ(State(), 2u);
  mServer.Advance(2.0);
  EXPECT_EQ(State(), 1u);
  const std::vector<std::string> again = mServer.TakeLog();
  EXPECT_EQ(std::count(again.begin(), again.end(), "no listener"), 11);
}

TEST_F(Connection, AServerThatComesWithinTheTriesIsFound) {
  Device().StartHardware();
  mServer.Advance(0.95);
  ASSERT_EQ(State(), 2u);
  mServer.mHasListener = true;
  mServer.Advance(0.1);
  EXPECT_EQ(State(), 3u);
  EXPECT_EQ(mServer.GetPendingTimers(), 0);
  EXPECT_EQ(mServer.CountMessages("listener", kTMBAudioMessageAddID), 1);
  // A success does not give the tries back.
  EXPECT_EQ(Device().GetListenerPortRetries(), 10u);
}

TEST_F(Connection, WithoutADataPortElevenTriesLeadToRegistered) {
  Enter(4);
  EXPECT_EQ(mServer.GetPendingTimers(), 1);
  mServer.Advance(2.0);
  EXPECT_EQ(State(), 3u);
  EXPECT_EQ(mServer.GetPendingTimers(), 0);
  EXPECT_EQ(mServer.GetOpenPorts("listener"), 1);
  std::vector<std::string> log = mServer.TakeLog();
  EXPECT_EQ(std::count(log.begin(), log.end(), "no data"), 10);  // and the one before
  // It stays registered until the next event, which gives all tries again.
  mServer.mHasDataPort = true;
  mServer.Advance(2.0);
  EXPECT_EQ(State(), 3u);
  mServer.PostEvent('cadd', getpid());
  EXPECT_EQ(State(), 5u);
}

TEST_F(Connection, RetriesRunOnTheDevicesRunLoop) {
  Device().StartHardware();
  ASSERT_EQ(mServer.mTimers.size(), 1u);
  EXPECT_EQ(mServer.mTimers[0].mLoop, Device().GetRunLoop());
  EXPECT_NE(Device().GetRunLoop(), CFRunLoopGetCurrent());
  EXPECT_EQ(mServer.mTimers[0].mInfo, &Device());
}

TEST_F(Connection, ATimerThatFiresBelowItsFloorDoesNothing) {
  Enter(4);
  // The state falls to 1 while the data timer's firing is on its way.
  FakeServer::Timer timer = mServer.mTimers.at(0);
  CFRetain(timer.mHandle);
  mServer.PostEvent('fnsh');
  EXPECT_EQ(State(), 1u);
  mServer.TakeLog();
  timer.mCallBack((CFRunLoopTimerRef)timer.mHandle, timer.mInfo);
  CFRelease(timer.mHandle);
  EXPECT_THAT(mServer.TakeLog(), IsEmpty());
  EXPECT_EQ(mServer.GetPendingTimers(), 0);
}

TEST_F(Connection, AListenerTimerThatFiresInIdleIsNotRenewed) {
  // cadd in 2, then fnsh in 4: the listener's timer is left pending in state 1.
  Device().StartHardware();
  mServer.PostEvent('cadd', getpid());
  mServer.PostEvent('fnsh');
  ASSERT_EQ(State(), 1u);
  ASSERT_EQ(mServer.GetPendingTimers(), 1);
  mServer.TakeLog();
  mServer.Advance(1.0);
  EXPECT_THAT(mServer.TakeLog(), IsEmpty());
  EXPECT_EQ(mServer.GetPendingTimers(), 0);
}

TEST_F(Connection, ATimerOfADeviceThatHasGoneTouchesNothing) {
  Device().StartHardware();
  const FakeServer::Timer timer = mServer.mTimers.at(0);
  CFRetain(timer.mHandle);
  Device().StopHardware();
  mDevice.reset();
  mServer.TakeLog();
  timer.mCallBack((CFRunLoopTimerRef)timer.mHandle, timer.mInfo);
  CFRelease(timer.mHandle);
  EXPECT_THAT(mServer.TakeLog(), IsEmpty());
}

// Transitions.

TEST_F(Connection, RegisterActsInIdleOnly) {
  for (const UInt32 state : {0u, 2u, 3u, 4u, 5u}) {
    Enter(state);
    const int timers = mServer.GetPendingTimers();
    Device().RegisterAudioClient();
    EXPECT_EQ(State(), state);
    EXPECT_EQ(mServer.GetPendingTimers(), timers);
    EXPECT_THAT(mServer.TakeLog(), IsEmpty()) << state;
    Device().StopHardware();
    mDevice = nullptr;
    mServer.Reset();
    mDevice = std::make_unique<ClientDevice>();
  }
}

TEST_F(Connection, RegisterInIdleWithAServerEndsRegistered) {
  Enter(1);
  mServer.mHasListener = true;
  mServer.PostEvent('strt');
  EXPECT_THAT(mServer.TakeLog(), ElementsAre("open listener", "send cadd"));
  EXPECT_EQ(State(), 3u);
}

TEST_F(Connection, RegisterInIdleWithTriesSpentOnlyWaits) {
  Enter(1);
  mServer.mHasListener = true;
  Device().RegisterAudioClient();
  // The count stands at 10: no try, and with no port open back to idle at once.
  EXPECT_THAT(mServer.TakeLog(), IsEmpty());
  EXPECT_EQ(State(), 1u);
}

TEST_F(Connection, AddedInIdleOpensTheListenerThenTheDataPort) {
  Enter(1);
  // A start without a server in reach resets the count; the finish leaves the device idle.
  mServer.PostEvent('strt');
  mServer.PostEvent('fnsh');
  ASSERT_EQ(State(), 1u);
  // One try was spent by then; a stop and start gives a count of 0 in idle.
  Device().StopHardware();
  mServer.mHasListener = true;
  Device().StartHardware();
  mServer.PostEvent('fnsh');
  ASSERT_EQ(State(), 1u);
  ASSERT_EQ(Device().GetListenerPortRetries(), 0u);
  mServer.mHasDataPort = true;
  mServer.TakeLog();
  mServer.PostEvent('cadd', getpid());
  EXPECT_THAT(mServer.TakeLog(), ElementsAre("open listener", "send cadd", "open data"));
  EXPECT_EQ(State(), 5u);
}

TEST_F(Connection, AddedInIdleWithTriesSpentFallsBackAtOnce) {
  Enter(1);
  ASSERT_EQ(Device().GetListenerPortRetries(), 10u);
  mServer.mHasListener = mServer.mHasDataPort = true;
  mServer.PostEvent('cadd', getpid());
  EXPECT_THAT(mServer.TakeLog(), IsEmpty());
  EXPECT_EQ(State(), 1u);
  EXPECT_EQ(mServer.GetPendingTimers(), 0);
}

TEST_F(Connection, AddedInIdleWithoutAListenerRetriesInStarting) {
  mServer.mHasListener = true;
  Device().StartHardware();
  mServer.PostEvent('fnsh');
  mServer.mHasListener = false;
  mServer.PostEvent('cadd', getpid());
  EXPECT_EQ(State(), 4u);
  EXPECT_EQ(mServer.GetPendingTimers(), 1);
  mServer.mHasListener = mServer.mHasDataPort = true;
  mServer.TakeLog();
  mServer.Advance(0.2);
  EXPECT_THAT(mServer.TakeLog(), ElementsAre("open listener", "send cadd", "open data"));
  EXPECT_EQ(State(), 5u);
}

TEST_F(Connection, ListenerTriesSpentInStartingLeadToIdle) {
  Device().StartHardware();
  mServer.PostEvent('cadd', getpid());
  ASSERT_EQ(State(), 4u);
  mServer.Advance(2.0);
  EXPECT_EQ(State(), 1u);
  EXPECT_EQ(mServer.GetPendingTimers(), 0);
}

TEST_F(Connection, AddedWhileRegisteringChangesTheStateAlone) {
  Enter(2);
  mServer.PostEvent('cadd', getpid());
  EXPECT_EQ(State(), 4u);
  EXPECT_THAT(mServer.TakeLog(), IsEmpty());
  EXPECT_EQ(mServer.GetPendingTimers(), 1);
  mServer.mHasListener = mServer.mHasDataPort = true;
  mServer.Advance(0.2);
  EXPECT_THAT(mServer.TakeLog(), ElementsAre("open listener", "send cadd", "open data"));
  EXPECT_EQ(State(), 5u);
}

TEST_F(Connection, AddedWhileRegisteredOpensTheDataPort) {
  Enter(3);
  mServer.mHasDataPort = true;
  mServer.PostEvent('cadd', getpid());
  EXPECT_THAT(mServer.TakeLog(), ElementsAre("open data"));
  EXPECT_EQ(State(), 5u);
}

TEST_F(Connection, AddedWhileRegisteredWithoutADataPortStarts) {
  Enter(3);
  mServer.PostEvent('cadd', getpid());
  EXPECT_THAT(mServer.TakeLog(), ElementsAre("no data", "timer"));
  EXPECT_EQ(State(), 4u);
  mServer.mHasDataPort = true;
  mServer.Advance(0.2);
  EXPECT_THAT(mServer.TakeLog(), ElementsAre("open data"));
  EXPECT_EQ(State(), 5u);
}

TEST_F(Connection, AddedInStartingOrStreamingOnlyGivesTheDataTriesBack) {
  Enter(4);
  ASSERT_EQ(Device().GetDataPortRetries(), 1u);
  mServer.PostEvent('cadd', getpid());
  EXPECT_EQ(State(), 4u);
  EXPECT_EQ(Device().GetDataPortRetries(), 0u);
  EXPECT_THAT(mServer.TakeLog(), IsEmpty());
  mServer.mHasDataPort = true;
  mServer.Advance(0.2);
  ASSERT_EQ(State(), 5u);
  mServer.TakeLog();
  mServer.PostEvent('cadd', getpid());
  EXPECT_EQ(State(), 5u);
  EXPECT_THAT(mServer.TakeLog(), IsEmpty());
}

TEST_F(Connection, DroppedWhileStreamingClosesTheDataPortAlone) {
  Enter(5);
  mServer.PostEvent('cdel', getpid());
  EXPECT_THAT(mServer.TakeLog(), ElementsAre("close data"));
  EXPECT_EQ(State(), 3u);
  EXPECT_EQ(mServer.GetOpenPorts("listener"), 1);
  mServer.PostEvent('cadd', getpid());
  EXPECT_THAT(mServer.TakeLog(), ElementsAre("open data"));
  EXPECT_EQ(State(), 5u);
}

TEST_F(Connection, DroppedWhileStartingDropsTheTimer) {
  Enter(4);
  mServer.PostEvent('cdel', getpid());
  EXPECT_THAT(mServer.TakeLog(), ElementsAre("drop timer"));
  EXPECT_EQ(State(), 3u);
  EXPECT_EQ(mServer.GetPendingTimers(), 0);
}

TEST_F(Connection, DroppedInTheOtherStatesChangesNothing) {
  for (const UInt32 state : {1u, 2u, 3u}) {
    Enter(state);
    const int timers = mServer.GetPendingTimers();
    mServer.PostEvent('cdel', getpid());
    EXPECT_EQ(State(), state);
    EXPECT_EQ(mServer.GetPendingTimers(), timers);
    EXPECT_THAT(mServer.TakeLog(), IsEmpty());
    Device().StopHardware();
  }
}

TEST_F(Connection, FinishWhileStreamingClosesBothPorts) {
  Enter(5);
  mServer.PostEvent('fnsh');
  EXPECT_THAT(mServer.TakeLog(), ElementsAre("close data", "close listener"));
  EXPECT_EQ(State(), 1u);
}

TEST_F(Connection, FinishWhileStartingLeavesTheListenerOpenInIdle) {
  Enter(4);
  mServer.PostEvent('fnsh');
  EXPECT_THAT(mServer.TakeLog(), ElementsAre("drop timer"));
  EXPECT_EQ(State(), 1u);
  EXPECT_EQ(mServer.GetOpenPorts("listener"), 1);
  // A start then stops at registering: the port counts as open.
  mServer.PostEvent('strt');
  EXPECT_THAT(mServer.TakeLog(), IsEmpty());
  EXPECT_EQ(State(), 2u);
  EXPECT_EQ(mServer.GetPendingTimers(), 0);
}

TEST_F(Connection, APortLeftOpenIsFoundByTheNextStart) {
  Enter(4);
  mServer.PostEvent('fnsh');
  ASSERT_EQ(State(), 1u);
  Device().StopHardware();
  EXPECT_EQ(State(), 0u);
  EXPECT_EQ(mServer.GetOpenPorts("listener"), 1);
  mServer.TakeLog();
  Device().StartHardware();
  EXPECT_THAT(mServer.TakeLog(), ElementsAre("observe"));
  EXPECT_EQ(State(), 2u);
}

TEST_F(Connection, FinishWhileRegisteredClosesTheListener) {
  Enter(3);
  mServer.PostEvent('fnsh');
  EXPECT_THAT(mServer.TakeLog(), ElementsAre("close listener"));
  EXPECT_EQ(State(), 1u);
}

TEST_F(Connection, FinishWhileRegisteringDropsTheTimer) {
  Enter(2);
  mServer.PostEvent('fnsh');
  EXPECT_THAT(mServer.TakeLog(), ElementsAre("drop timer"));
  EXPECT_EQ(State(), 1u);
  EXPECT_EQ(mServer.GetPendingTimers(), 0);
}

TEST_F(Connection, FinishWhileRegisteringWithAnOpenPortClosesIt) {
  Enter(4);
  mServer.PostEvent('fnsh');
  mServer.PostEvent('strt');
  ASSERT_EQ(State(), 2u);
  mServer.TakeLog();
  mServer.PostEvent('fnsh');
  EXPECT_THAT(mServer.TakeLog(), ElementsAre("close listener"));
  EXPECT_EQ(State(), 1u);
}

TEST_F(Connection, FinishInIdleDoesNothing) {
  Enter(1);
  mServer.PostEvent('fnsh');
  EXPECT_THAT(mServer.TakeLog(), IsEmpty());
  EXPECT_EQ(State(), 1u);
}

TEST_F(Connection, FinishWhileRegisteredWithoutAPortEndsInIdle) {
  // cadd in 2, cdel in 4: registered without a listener port, its timer still pending.
  Enter(2);
  mServer.PostEvent('cadd', getpid());
  mServer.PostEvent('cdel', getpid());
  ASSERT_EQ(State(), 3u);
  ASSERT_EQ(mServer.GetOpenPorts("listener"), 0);
  ASSERT_EQ(mServer.GetPendingTimers(), 1);
  mServer.PostEvent('fnsh');
  EXPECT_EQ(State(), 1u);
}

TEST_F(Connection, AListenerThatOpensWhileRegisteredStillAdds) {
  Enter(2);
  mServer.PostEvent('cadd', getpid());
  mServer.PostEvent('cdel', getpid());
  mServer.mHasListener = true;
  mServer.TakeLog();
  mServer.Advance(0.2);
  EXPECT_THAT(mServer.TakeLog(), ElementsAre("open listener", "send cadd"));
  EXPECT_EQ(State(), 3u);
}

TEST_F(Connection, StartedServerIsIgnoredUnlessIdle) {
  for (const UInt32 state : {2u, 3u, 4u, 5u}) {
    Enter(state);
    const int timers = mServer.GetPendingTimers();
    mServer.PostEvent('strt');
    EXPECT_EQ(State(), state);
    EXPECT_EQ(mServer.GetPendingTimers(), timers);
    EXPECT_THAT(mServer.TakeLog(), IsEmpty());
    EXPECT_EQ(Device().GetListenerPortRetries(), 0u);
    EXPECT_EQ(Device().GetDataPortRetries(), 0u);
    Device().StopHardware();
    mDevice = nullptr;
    mServer.Reset();
    mDevice = std::make_unique<ClientDevice>();
  }
}

TEST_F(Connection, AServerThatDiesSilentlyIsNotNoticed) {
  Enter(5);
  mServer.mPortsAreDead = true;
  mServer.PostEvent('cchk');
  mServer.PostEvent('strt');
  EXPECT_THAT(mServer.TakeLog(), IsEmpty());
  EXPECT_EQ(State(), 5u);
}

// Who is meant.

TEST_F(Connection, AnotherClientsEventsChangeNothing) {
  Enter(4);
  const UInt32 retries = Device().GetDataPortRetries();
  ASSERT_NE(retries, 0u);
  for (const int event : {'cadd', 'cchk', 'cdel'}) mServer.PostEvent(event, getpid() + 1);
  EXPECT_EQ(State(), 4u);
  EXPECT_EQ(Device().GetDataPortRetries(), retries);
  EXPECT_THAT(mServer.TakeLog(), IsEmpty());
}

TEST_F(Connection, ACheckWithoutAClientAsksEveryClient) {
  Enter(3);
  mServer.PostEvent('cchk');
  EXPECT_THAT(mServer.TakeLog(), ElementsAre("send echo"));
  mServer.PostEvent('cchk', getpid());
  EXPECT_THAT(mServer.TakeLog(), ElementsAre("send echo"));
}

TEST_F(Connection, ACheckInIdleIsDroppedByTheMissingPort) {
  Enter(1);
  mServer.PostEvent('cchk');
  EXPECT_THAT(mServer.TakeLog(), IsEmpty());
}

TEST_F(Connection, AddedAndDroppedWithoutAClientAreIgnored) {
  Enter(3);
  mServer.mHasDataPort = true;
  mServer.PostEvent('cadd');
  EXPECT_EQ(State(), 3u);
  Device().StopHardware();
  Enter(5);
  mServer.PostEvent('cdel');
  EXPECT_EQ(State(), 5u);
  EXPECT_THAT(mServer.TakeLog(), IsEmpty());
}

TEST_F(Connection, AnUnknownEventIsIgnored) {
  Enter(3);
  mServer.PostEvent('what', getpid());
  mServer.PostEvent(0, getpid());
  EXPECT_THAT(mServer.TakeLog(), IsEmpty());
  EXPECT_EQ(State(), 3u);
}

TEST_F(Connection, AMissingEventIsIgnored) {
  Enter(3);
  CFStringRef object = CFTmbSndCopyListenerID();
  CFDictionaryRef empty =
      CFDictionaryCreate(nullptr, nullptr, nullptr, 0, &kCFTypeDictionaryKeyCallBacks,
                         &kCFTypeDictionaryValueCallBacks);
  mServer.PostDictionary(kTMBAudioServerNotification, object, empty);
  mServer.PostDictionary(kTMBAudioServerNotification, object, nullptr);
  CFRelease(empty);
  CFRelease(object);
  EXPECT_THAT(mServer.TakeLog(), IsEmpty());
  EXPECT_EQ(State(), 3u);
}

TEST_F(Connection, AnEventThatIsNoNumberReadsAsNone) {
  Enter(3);
  CFStringRef object = CFTmbSndCopyListenerID();
  const void* keys[] = {CFSTR("Event")};
  const void* values[] = {CFSTR("fnsh")};
  CFDictionaryRef info = CFDictionaryCreate(
      nullptr, keys, values, 1, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
  mServer.PostDictionary(kTMBAudioServerNotification, object, info);
  CFRelease(info);
  CFRelease(object);
  EXPECT_EQ(State(), 3u);
}

const int kSomeNumber = 7;

class ForeignNotification : public Connection {
 protected:
  void Post(CFStringRef inName, const void* inObject) {
    const int event = 'fnsh';
    CFNumberRef number = CFNumberCreate(nullptr, kCFNumberIntType, &event);
    const void* keys[] = {CFSTR("Event")};
    const void* values[] = {number};
    CFDictionaryRef info = CFDictionaryCreate(
        nullptr, keys, values, 1, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
    mServer.PostDictionary(inName, inObject, info);
    CFRelease(info);
    CFRelease(number);
  }
};

TEST_F(ForeignNotification, IsDroppedUnlessNameAndObjectAreRight) {
  Enter(3);
  CFStringRef own = CFTmbSndCopyListenerID();
  CFNumberRef number = CFNumberCreate(nullptr, kCFNumberIntType, &kSomeNumber);
  Post(kTMBAudioServerNotification, CFSTR("com.tembra.tmbasrv.4294967294"));
  Post(kTMBAudioServerNotification, number);
  Post(kTMBAudioServerNotification, nullptr);
  Post(CFSTR("TMBAudioServerNotificatioN"), own);
  Post(nullptr, own);
  EXPECT_EQ(State(), 3u);
  Post(kTMBAudioServerNotification, own);
  EXPECT_EQ(State(), 1u);
  CFRelease(number);
  CFRelease(own);
}

TEST_F(Connection, AnEventForADeviceThatHasGoneTouchesNothing) {
  Enter(3);
  const std::vector<FakeServer::Observation> observations = mServer.mObservations;
  Device().StopHardware();
  mDevice.reset();
  mServer.TakeLog();
  mServer.mObservations = observations;
  mServer.PostEvent('cchk', getpid());
  mServer.mObservations.clear();
  EXPECT_THAT(mServer.TakeLog(), IsEmpty());
}

// Sending.

TEST_F(Connection, ADictionaryGoesOutAsABinaryPropertyList) {
  Enter(3);
  const void* keys[] = {CFSTR("key")};
  const void* values[] = {CFSTR("value")};
  CFDictionaryRef dictionary = CFDictionaryCreate(
      nullptr, keys, values, 1, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
  Device().SendAudioListenerNotification(77, dictionary);
  const std::vector<FakeServer::Message> messages = mServer.TakeMessages();
  ASSERT_EQ(messages.size(), 1u);
  EXPECT_EQ(messages[0].mID, 77);
  ASSERT_GE(messages[0].mBytes.size(), 8u);
  EXPECT_EQ(std::string(messages[0].mBytes.begin(), messages[0].mBytes.begin() + 8), "bplist00");
  CFRelease(dictionary);
}

TEST_F(Connection, NoDataIsNotSent) {
  Enter(3);
  Device().SendAudioListenerNotification(77, static_cast<CFDataRef>(nullptr));
  EXPECT_THAT(mServer.TakeMessages(), IsEmpty());
}

TEST_F(Connection, AFailedSendOnTheListenerPortIsIgnored) {
  mServer.mHasListener = true;
  mServer.mSendResults = {kCFMessagePortSendTimeout};
  Device().StartHardware();
  EXPECT_EQ(State(), 3u);
  EXPECT_EQ(mServer.GetOpenPorts("listener"), 1);
}

// The end.

TEST_F(Connection, TheDestructorLeavesNoPortAndNoTimer) {
  // Without StopHardware, from every state; what is left fails in Reset.
  for (UInt32 state = 1; state <= 5; ++state) {
    Enter(state);
    mDevice.reset();
    EXPECT_EQ(mServer.GetPendingTimers(), 0) << state;
    EXPECT_EQ(mServer.GetOpenPorts("listener"), 0) << state;
    EXPECT_EQ(mServer.GetOpenPorts("data"), 0) << state;
    mServer.mObservations.clear();
    mServer.Reset();
    mDevice = std::make_unique<ClientDevice>();
  }
}

}  // namespace
}  // namespace tembra::test
