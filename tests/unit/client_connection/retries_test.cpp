#include <gmock/gmock.h>

#include "ConnectionTest.h"

namespace tembra::test {
namespace {

using testing::IsEmpty;

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

TEST_F(Connection, AnOpenListenerKeepsTheStateWhenItsTriesAreSpent) {
  Device().StartHardware();
  mServer.Advance(0.95);
  mServer.mHasListener = true;
  mServer.Advance(0.1);
  ASSERT_EQ(State(), 3u);
  ASSERT_EQ(Device().GetListenerPortRetries(), 10u);
  // A finish in starting leaves the port open in idle.
  mServer.PostEvent('cadd', getpid());
  mServer.PostEvent('fnsh');
  ASSERT_EQ(State(), 1u);
  mServer.TakeLog();
  mServer.PostEvent('cadd', getpid());
  EXPECT_THAT(mServer.TakeLog(), IsEmpty());
  EXPECT_EQ(State(), 4u);
  EXPECT_EQ(mServer.GetOpenPorts("listener"), 1);
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

}  // namespace
}  // namespace tembra::test
