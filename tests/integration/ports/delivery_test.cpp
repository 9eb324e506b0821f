#include "Fixture.h"

namespace tembra::test {
namespace {

TEST_F(Ports, ALocalPortHasOneSourceAndARemotePortNone) {
  Receiver receiver("source");
  Owned<CFRunLoopSourceRef> one(CFMessagePortCreateRunLoopSource(nullptr, receiver.Port(), 0));
  Owned<CFRunLoopSourceRef> two(CFMessagePortCreateRunLoopSource(nullptr, receiver.Port(), 0));
  EXPECT_NE(one, nullptr);
  EXPECT_EQ(one.Get(), two.Get());
  auto remote = Remote("source");
  EXPECT_TRUE(CFMessagePortIsRemote(remote));
  EXPECT_EQ(CFMessagePortCreateRunLoopSource(nullptr, remote, 0), nullptr);
  CFRunLoopSourceInvalidate(one);
  Owned<CFRunLoopSourceRef> next(CFMessagePortCreateRunLoopSource(nullptr, receiver.Port(), 0));
  EXPECT_NE(next.Get(), one.Get());
  CFMessagePortInvalidate(receiver.Port());
  EXPECT_FALSE(CFRunLoopSourceIsValid(next));
}

TEST_F(Ports, TheContextsInfoIsRetainedAndReleasedOnce) {
  static int sRetains, sReleases;
  sRetains = sReleases = 0;
  int info = 0;
  CFMessagePortContext context{};
  context.info = &info;
  context.retain = [](const void* inInfo) {
    ++sRetains;
    return inInfo;
  };
  context.release = [](const void*) { ++sReleases; };
  Owned<CFMessagePortRef> port(
      CFMessagePortCreateLocal(nullptr, CFSTR("info"), nullptr, &context, nullptr));
  CFMessagePortContext back{};
  CFMessagePortGetContext(port, &back);
  EXPECT_EQ(back.info, &info);
  EXPECT_EQ(sRetains, 1);
  CFMessagePortInvalidate(port);
  EXPECT_EQ(sReleases, 1);
  port.Reset(nullptr);
  EXPECT_EQ(sReleases, 1);
  // A port that is let go of without invalidation frees its name and its info too.
  port.Reset(CFMessagePortCreateLocal(nullptr, CFSTR("info"), nullptr, &context, nullptr));
  port.Reset(nullptr);
  EXPECT_EQ(sReleases, 2);
  EXPECT_EQ(Remote("info"), nullptr);
  EXPECT_NE(Receiver("info").Port(), nullptr);
}

TEST_F(Ports, APortMayBeInvalidatedInItsOwnCallback) {
  Receiver receiver("self");
  receiver.mReply = [&](SInt32, CFDataRef) -> CFDataRef {
    CFMessagePortInvalidate(receiver.Port());
    return nullptr;
  };
  auto remote = Remote("self");
  EXPECT_EQ(SendNow(remote, 1), 0);
  EXPECT_EQ(SendNow(remote, 2), 0);
  ASSERT_TRUE(receiver.RunUntilMessages(1));
  CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0, true);
  EXPECT_EQ(receiver.mMessages.size(), 1u);
  EXPECT_TRUE(WaitUntil([&] { return !CFMessagePortIsValid(remote); }, Seconds(20)));
}

TEST_F(Ports, ADispatchQueueGetsTheMessages) {
  struct State {
    std::atomic<int> count{0};
    std::atomic<bool> onQueue{true};
  } state;
  CFMessagePortContext context{};
  context.info = &state;
  Owned<CFMessagePortRef> port(CFMessagePortCreateLocal(
      nullptr, CFSTR("queue"),
      [](CFMessagePortRef, SInt32, CFDataRef inData, void* inState) -> CFDataRef {
        auto* s = static_cast<State*>(inState);
        if (std::string(dispatch_queue_get_label(nullptr)) != "messages") s->onQueue = false;
        ++s->count;
        return static_cast<CFDataRef>(CFRetain(inData));
      },
      &context, nullptr));
  dispatch_queue_t queue = dispatch_queue_create("messages", nullptr);
  CFMessagePortSetDispatchQueue(port, queue);
  auto remote = Remote("queue");
  for (int i = 0; i < 100; ++i) EXPECT_EQ(SendNow(remote, i), 0);
  EXPECT_TRUE(WaitUntil([&] { return state.count == 100; }, Seconds(20)));
  std::string reply;
  EXPECT_EQ(Ask(remote, 1, "from the queue", &reply), 0);
  EXPECT_EQ(reply, "from the queue");
  CFMessagePortSetDispatchQueue(port, nullptr);
  dispatch_sync(queue, ^{
                });
  EXPECT_EQ(SendNow(remote, 1), 0);
  EXPECT_EQ(Ask(remote, 1, "", nullptr, 0.05), kCFMessagePortReceiveTimeout);
  EXPECT_EQ(state.count, 101);
  // What waited comes with the next queue.
  CFMessagePortSetDispatchQueue(port, queue);
  EXPECT_TRUE(WaitUntil([&] { return state.count == 103; }, Seconds(20)));
  EXPECT_TRUE(state.onQueue);
  CFMessagePortInvalidate(port);
  dispatch_sync(queue, ^{
                });
  dispatch_release(queue);
}

TEST_F(Ports, AReceiverLearnsWhoIsThereAndWhoLeft) {
  Receiver receiver("peers");
  EXPECT_EQ(RunProcess(mRuntime, {"send", "peers", "2"}), 0);
  ASSERT_TRUE(receiver.RunUntil([&] { return receiver.mPeers.size() == 2; }));
  ASSERT_EQ(receiver.mMessages.size(), 2u);
  const auto& opened = receiver.mPeers[0];
  const auto& closed = receiver.mPeers[1];
  EXPECT_EQ(opened.event, kCFMessagePortPeerOpened);
  EXPECT_EQ(closed.event, kCFMessagePortPeerClosed);
  EXPECT_NE(opened.peer.connection, 0u);
  EXPECT_EQ(opened.peer.connection, closed.peer.connection);
  EXPECT_EQ(opened.peer.uid, geteuid());
  EXPECT_GT(opened.peer.pid, 0);
  EXPECT_NE(opened.peer.pid, getpid());
  for (const auto& message : receiver.mMessages) {
    EXPECT_TRUE(message.hasPeer);
    EXPECT_EQ(message.peer.connection, opened.peer.connection);
    EXPECT_EQ(message.peer.pid, opened.peer.pid);
  }
  CFMessagePortPeer peer;
  EXPECT_FALSE(CFMessagePortGetCurrentPeer(&peer));
  const CFMessagePortStatistics statistics = receiver.Statistics();
  EXPECT_EQ(statistics.accepted, 1u);
  EXPECT_EQ(statistics.closed, 1u);
  EXPECT_EQ(statistics.messages, 2u);
  EXPECT_EQ(statistics.bytes, 2 * sizeof(int));
}

TEST_F(Ports, EverySenderThatComesAndGoesIsHeardWhole) {
  Receiver receiver("churn");
  std::thread churn([&] { EXPECT_EQ(RunProcess(mRuntime, {"churn", "churn", "200"}), 0); });
  EXPECT_TRUE(receiver.RunUntil([&] { return receiver.mPeers.size() == 400; }));
  churn.join();
  EXPECT_EQ(receiver.mMessages.size(), 200u);
  EXPECT_EQ(receiver.Statistics().closed, 200u);
}

TEST_F(Ports, ReceiverCanCloseAPeer) {
  Receiver receiver("kick");
  auto remote = Remote("kick");
  SendNow(remote, 1);
  ASSERT_TRUE(receiver.RunUntilMessages(1));
  EXPECT_FALSE(CFMessagePortClosePeer(receiver.Port(), 1));
  EXPECT_FALSE(CFMessagePortClosePeer(remote, receiver.mMessages[0].peer.connection));
  EXPECT_TRUE(CFMessagePortClosePeer(receiver.Port(), receiver.mMessages[0].peer.connection));
  EXPECT_EQ(receiver.mPeers.size(), 1u);
  ASSERT_TRUE(receiver.RunUntil([&] { return receiver.mPeers.size() == 2; }));
  EXPECT_EQ(receiver.mPeers[1].event, kCFMessagePortPeerClosed);
  EXPECT_TRUE(WaitUntil([&] { return !CFMessagePortIsValid(remote); }, Seconds(20)));
}

TEST_F(Ports, InvalidationClosesEveryPeer) {
  Receiver receiver("peers");
  auto remote = Remote("peers");
  SendNow(remote, 1);
  ASSERT_TRUE(receiver.RunUntilMessages(1));
  CFMessagePortInvalidate(receiver.Port());
  ASSERT_EQ(receiver.mPeers.size(), 2u);
  EXPECT_EQ(receiver.mPeers[1].event, kCFMessagePortPeerClosed);
}

TEST_F(Ports, APeerCallbackIsForLocalPortsOnly) {
  Receiver receiver("peers");
  EXPECT_FALSE(CFMessagePortSetPeerCallBack(Remote("peers"), nullptr));
}

}  // namespace
}  // namespace tembra::test
