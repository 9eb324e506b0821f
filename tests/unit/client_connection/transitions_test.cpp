#include <gmock/gmock.h>

#include "ConnectionTest.h"

namespace tembra::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

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

TEST_F(Connection, NoSwitchActsWhileStopped) {
  // Stopped with the listener port left open: also that is not touched.
  Enter(4);
  Device().StopHardware();
  mServer.mHasDataPort = true;
  mServer.TakeLog();
  Device().RegisterAudioClient();
  Device().StartAudioClient();
  Device().StopAudioClient();
  Device().UnregisterAudioClient();
  EXPECT_THAT(mServer.TakeLog(), IsEmpty());
  EXPECT_EQ(State(), 0u);
  EXPECT_EQ(mServer.GetOpenPorts("listener"), 1);
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

}  // namespace
}  // namespace tembra::test
