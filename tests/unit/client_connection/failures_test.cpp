// Platform services that fail, and events that come between two steps.

#include <gmock/gmock.h>

#include "ConnectionTest.h"

namespace tembra::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// The notification center.

TEST_F(Connection, WithoutANotificationCenterItStillRegistersAndLeaves) {
  mServer.mHasCenter = false;
  mServer.mHasListener = true;
  Device().StartHardware();
  EXPECT_THAT(mServer.TakeLog(), ElementsAre("open listener", "send cadd"));
  EXPECT_EQ(State(), 3u);
  EXPECT_EQ(mServer.GetObservations(), 0u);
  Device().StopHardware();
  EXPECT_THAT(mServer.TakeLog(), ElementsAre("send cdel", "close listener"));
  EXPECT_EQ(State(), 0u);
}

TEST_F(Connection, ACenterThatHasGoneDoesNotKeepItFromStopping) {
  Enter(5);
  mServer.mHasCenter = false;
  Device().StopHardware();
  EXPECT_THAT(mServer.TakeLog(), ElementsAre("send cdel", "close data", "close listener"));
  EXPECT_EQ(State(), 0u);
  // The observation that could not be ended has nothing to say any more.
  mServer.mHasCenter = true;
  ASSERT_EQ(mServer.GetObservations(), 1u);
  mServer.PostEvent('strt');
  EXPECT_THAT(mServer.TakeLog(), IsEmpty());
  EXPECT_EQ(State(), 0u);
  mServer.mObservations.clear();
}

// Timers.

TEST_F(Connection, WithoutATimerTheListenerWaitsForTheServersNextLife) {
  mServer.mHasTimers = false;
  Device().StartHardware();
  EXPECT_THAT(mServer.TakeLog(), ElementsAre("observe", "no listener", "no timer"));
  EXPECT_EQ(State(), 2u);
  EXPECT_EQ(Device().GetListenerPortRetries(), 1u);
  mServer.mHasTimers = mServer.mHasListener = true;
  mServer.Advance(2.0);
  EXPECT_EQ(State(), 2u);
  mServer.PostEvent('fnsh');
  EXPECT_EQ(State(), 1u);
  mServer.PostEvent('strt');
  EXPECT_THAT(mServer.TakeLog(), ElementsAre("open listener", "send cadd"));
  EXPECT_EQ(State(), 3u);
}

TEST_F(Connection, WithoutATimerTheDataPortWaitsForTheServersNextWord) {
  Enter(3);
  mServer.mHasTimers = false;
  mServer.PostEvent('cadd', getpid());
  EXPECT_THAT(mServer.TakeLog(), ElementsAre("no data", "no timer"));
  EXPECT_EQ(State(), 4u);
  EXPECT_EQ(Device().GetDataPortRetries(), 1u);
  mServer.mHasTimers = mServer.mHasDataPort = true;
  mServer.Advance(2.0);
  EXPECT_EQ(State(), 4u);
  mServer.PostEvent('cdel', getpid());
  EXPECT_EQ(State(), 3u);
  mServer.PostEvent('cadd', getpid());
  EXPECT_THAT(mServer.TakeLog(), ElementsAre("open data"));
  EXPECT_EQ(State(), 5u);
}

// Messages.

TEST_F(Connection, AnAddThatCannotBeMadeIsNotSentAndStillRegisters) {
  const NoPropertyLists none;
  mServer.mHasListener = true;
  Device().StartHardware();
  EXPECT_THAT(mServer.TakeLog(), ElementsAre("observe", "open listener"));
  EXPECT_EQ(State(), 3u);
}

TEST_F(Connection, AnEchoThatCannotBeMadeIsNotSent) {
  Enter(3);
  {
    const NoPropertyLists none;
    mServer.PostEvent('cchk');
  }
  EXPECT_THAT(mServer.TakeLog(), IsEmpty());
  mServer.PostEvent('cchk');
  EXPECT_THAT(mServer.TakeLog(), ElementsAre("send echo"));
}

TEST_F(Connection, ADisposeThatCannotBeMadeDoesNotKeepThePortsOpen) {
  Enter(5);
  const NoPropertyLists none;
  Device().StopHardware();
  EXPECT_THAT(mServer.TakeLog(), ElementsAre("unobserve", "close data", "close listener"));
  EXPECT_EQ(State(), 0u);
}

TEST_F(Connection, ADictionaryThatCannotBeWrittenIsNotSent) {
  Enter(3);
  const NoPropertyLists none;
  CFDictionaryRef dictionary =
      CFDictionaryCreate(nullptr, nullptr, nullptr, 0, &kCFTypeDictionaryKeyCallBacks,
                         &kCFTypeDictionaryValueCallBacks);
  Device().SendAudioListenerNotification(77, dictionary);
  CFRelease(dictionary);
  EXPECT_THAT(mServer.TakeLog(), IsEmpty());
}

// Events within a try to open a port.

TEST_F(Connection, AFinishWithinTheListenersLastTryLeavesItIdle) {
  Device().StartHardware();
  for (int timer = 0; timer < 9; ++timer) ASSERT_TRUE(mServer.FireNextTimer());
  ASSERT_EQ(Device().GetListenerPortRetries(), 10u);
  ASSERT_EQ(State(), 2u);
  mServer.TakeLog();
  mServer.mOnOpen = [this] { mServer.PostEvent('fnsh'); };
  ASSERT_TRUE(mServer.FireNextTimer());
  EXPECT_THAT(mServer.TakeLog(), ElementsAre("no listener"));
  EXPECT_EQ(State(), 1u);
  EXPECT_EQ(mServer.GetPendingTimers(), 0);
}

TEST_F(Connection, AFinishWithinTheDataPortsLastTryIsNotTakenBack) {
  Enter(4);
  for (int timer = 0; timer < 9; ++timer) ASSERT_TRUE(mServer.FireNextTimer());
  ASSERT_EQ(Device().GetDataPortRetries(), 10u);
  ASSERT_EQ(State(), 4u);
  mServer.TakeLog();
  mServer.mOnOpen = [this] { mServer.PostEvent('fnsh'); };
  ASSERT_TRUE(mServer.FireNextTimer());
  EXPECT_THAT(mServer.TakeLog(), ElementsAre("no data"));
  // Not the floor of the data port's tries, which lies above.
  EXPECT_EQ(State(), 1u);
  EXPECT_EQ(mServer.GetPendingTimers(), 0);
}

TEST_F(Connection, AListenerThatOpensAfterAFinishAddsAndStaysIdle) {
  Device().StartHardware();
  mServer.mHasListener = true;
  mServer.mOnOpen = [this] { mServer.PostEvent('fnsh'); };
  mServer.TakeLog();
  ASSERT_TRUE(mServer.FireNextTimer());
  EXPECT_THAT(mServer.TakeLog(), ElementsAre("open listener", "send cadd"));
  EXPECT_EQ(State(), 1u);
}

TEST_F(Connection, ADataPortThatOpensAfterTheClientWasDroppedDoesNotStream) {
  Enter(3);
  mServer.mHasDataPort = true;
  mServer.mOnOpen = [this] { mServer.PostEvent('cdel', getpid()); };
  mServer.PostEvent('cadd', getpid());
  EXPECT_THAT(mServer.TakeLog(), ElementsAre("open data"));
  EXPECT_EQ(State(), 3u);
  // The next drop closes it.
  mServer.PostEvent('cdel', getpid());
  EXPECT_THAT(mServer.TakeLog(), ElementsAre("close data"));
  EXPECT_EQ(State(), 3u);
  mServer.PostEvent('cadd', getpid());
  EXPECT_THAT(mServer.TakeLog(), ElementsAre("open data"));
  EXPECT_EQ(State(), 5u);
}

TEST_F(Connection, AnOpenDataPortKeepsTheStateWhenItsTriesAreSpent) {
  Enter(4);
  for (int timer = 0; timer < 9; ++timer) ASSERT_TRUE(mServer.FireNextTimer());
  mServer.mHasDataPort = true;
  mServer.mOnOpen = [this] { mServer.PostEvent('cdel', getpid()); };
  ASSERT_TRUE(mServer.FireNextTimer());
  ASSERT_EQ(State(), 3u);
  ASSERT_EQ(mServer.GetOpenPorts("data"), 1);
  ASSERT_EQ(Device().GetDataPortRetries(), 10u);
  mServer.TakeLog();
  Device().StartAudioClient();
  EXPECT_THAT(mServer.TakeLog(), IsEmpty());
  EXPECT_EQ(State(), 4u);
}

}  // namespace
}  // namespace tembra::test
