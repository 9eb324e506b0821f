#include <fcntl.h>
#include <signal.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>

#include <filesystem>

#include "Fixture.h"

namespace tembra::test {
namespace {

SInt32 SendNow(CFMessagePortRef inPort, SInt32 inIdentifier, const std::string& inData = {}) {
  return CFMessagePortSendRequest(inPort, inIdentifier, Data(inData), 0, 0, nullptr, nullptr);
}

SInt32 Ask(CFMessagePortRef inPort, SInt32 inIdentifier, const std::string& inData,
           std::string* outReply, double inTimeout = 20) {
  CFDataRef reply = nullptr;
  const SInt32 result = CFMessagePortSendRequest(inPort, inIdentifier, Data(inData), 5, inTimeout,
                                                 CFSTR("reply"), &reply);
  if (outReply) *outReply = reply ? Bytes(reply) : "(null)";
  if (reply) CFRelease(reply);
  return result;
}

TEST_F(Ports, AMessageArrivesWithItsIdentifierAndData) {
  Receiver receiver("here");
  ASSERT_NE(receiver.Port(), nullptr);
  auto remote = Remote("here");
  ASSERT_NE(remote, nullptr);
  EXPECT_EQ(SendNow(remote, -7, "payload"), kCFMessagePortSuccess);
  ASSERT_TRUE(receiver.RunUntilMessages(1));
  EXPECT_EQ(receiver.mMessages[0].identifier, -7);
  EXPECT_EQ(receiver.mMessages[0].data, "payload");
}

TEST_F(Ports, AMessageWithoutDataBringsAnEmptyObject) {
  Receiver receiver("here");
  auto remote = Remote("here");
  EXPECT_EQ(CFMessagePortSendRequest(remote, 1, nullptr, 0, 0, nullptr, nullptr), 0);
  EXPECT_EQ(SendNow(remote, 2), 0);
  ASSERT_TRUE(receiver.RunUntilMessages(2));
  EXPECT_EQ(receiver.mMessages[0].data, "");
  EXPECT_EQ(receiver.mMessages[1].data, "");
}

TEST_F(Ports, MessagesKeepTheirOrderAcrossProcesses) {
  Receiver receiver("order");
  std::thread sender([&] { EXPECT_EQ(RunProcess(mRuntime, {"send", "order", "3000"}), 0); });
  EXPECT_TRUE(receiver.RunUntilMessages(3000));
  sender.join();
  for (int i = 0; i < 3000; ++i) {
    ASSERT_EQ(receiver.mMessages[static_cast<size_t>(i)].identifier, i);
  }
}

TEST_F(Ports, ANameOfThisProcessIsTaken) {
  Receiver receiver("taken");
  Boolean shouldFree = false;
  EXPECT_EQ(CFMessagePortCreateLocal(nullptr, CFSTR("taken"), nullptr, nullptr, &shouldFree),
            nullptr);
  EXPECT_TRUE(shouldFree);
}

TEST_F(Ports, ANameOfAnotherProcessIsTaken) {
  auto server = StartServer(mRuntime, "taken");
  EXPECT_EQ(server->Output(), "ready\n");
  EXPECT_EQ(CFMessagePortCreateLocal(nullptr, CFSTR("taken"), nullptr, nullptr, nullptr), nullptr);
  EXPECT_EQ(StartServer(mRuntime, "taken")->Output(), "taken\n");
}

TEST_F(Ports, ANameIsFreeAgainAfterInvalidation) {
  for (int i = 0; i < 3; ++i) {
    Receiver receiver("again");
    EXPECT_NE(receiver.Port(), nullptr);
  }
  // Nothing is left in the directory.
  EXPECT_TRUE(std::filesystem::is_empty(PortFile("")));
}

TEST_F(Ports, ThereIsNoRemotePortWithoutAnOwner) {
  EXPECT_EQ(Remote("nobody"), nullptr);
  { Receiver receiver("gone"); }
  EXPECT_EQ(Remote("gone"), nullptr);
}

TEST_F(Ports, ADeadOwnersLeftoverNeitherAnswersNorBlocks) {
  auto server = StartServer(mRuntime, "leftover");
  server->Signal(SIGKILL);
  server->Wait(Seconds(20));
  ASSERT_TRUE(std::filesystem::exists(PortFile("leftover")));
  EXPECT_EQ(Remote("leftover"), nullptr);
  Receiver receiver("leftover");
  ASSERT_NE(receiver.Port(), nullptr);
  auto remote = Remote("leftover");
  ASSERT_NE(remote, nullptr);
  EXPECT_EQ(SendNow(remote, 1), 0);
  EXPECT_TRUE(receiver.RunUntilMessages(1));
}

TEST_F(Ports, NamesHaveOneTo128Characters) {
  std::string wide;
  for (int i = 0; i < 128; ++i) wide += "\xe2\x99\xaa";
  for (const std::string& name :
       {std::string("x"), std::string(128, 'n'), wide, std::string("/../a b~lock%"),
        std::string("."), std::string("a\0b", 3)}) {
    Receiver receiver(name);
    ASSERT_NE(receiver.Port(), nullptr) << name;
    auto remote = Remote(name);
    ASSERT_NE(remote, nullptr) << name;
    EXPECT_TRUE(CFEqual(CFMessagePortGetName(remote), String(name)));
    EXPECT_EQ(SendNow(remote, 1), 0);
    EXPECT_TRUE(receiver.RunUntilMessages(1)) << name;
  }
  EXPECT_EQ(Receiver("").Port(), nullptr);
  EXPECT_EQ(Receiver(std::string(129, 'n')).Port(), nullptr);
  EXPECT_EQ(Remote(std::string(129, 'n')), nullptr);
  EXPECT_EQ(CFMessagePortCreateLocal(nullptr, nullptr, nullptr, nullptr, nullptr), nullptr);
  EXPECT_EQ(CFMessagePortCreateRemote(nullptr, nullptr), nullptr);
}

TEST_F(Ports, TheirPlaceIsPrivate) {
  Receiver receiver("private");
  struct stat status;
  ASSERT_EQ(stat(mRuntime.File("runtime/tembra").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0700u);
  ASSERT_EQ(stat(PortFile("").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0700u);
  ASSERT_EQ(stat(PortFile("private").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0600u);
  EXPECT_TRUE(S_ISSOCK(status.st_mode));
}

TEST_F(Ports, AnOddUmaskDoesNotMatter) {
  const mode_t before = umask(0777);
  {
    Receiver receiver("umask");
    EXPECT_NE(receiver.Port(), nullptr);
    struct stat status;
    EXPECT_EQ(stat(PortFile("umask").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600u);
    EXPECT_NE(Remote("umask"), nullptr);
  }
  umask(before);
}

TEST_F(Ports, ALooserOrLinkedPlaceIsNotUsed) {
  const std::string place = mRuntime.File("runtime/tembra");
  ASSERT_EQ(mkdir(place.c_str(), 0700), 0);
  ASSERT_EQ(chmod(place.c_str(), 0755), 0);
  EXPECT_EQ(Receiver("loose").Port(), nullptr);
  ASSERT_EQ(rmdir(place.c_str()), 0);
  const std::string elsewhere = mRuntime.File("elsewhere");
  ASSERT_EQ(mkdir(elsewhere.c_str(), 0700), 0);
  ASSERT_EQ(symlink(elsewhere.c_str(), place.c_str()), 0);
  EXPECT_EQ(Receiver("linked").Port(), nullptr);
  ASSERT_EQ(unlink(place.c_str()), 0);
  if (geteuid() == 0) {
    ASSERT_EQ(mkdir(place.c_str(), 0700), 0);
    ASSERT_EQ(chown(place.c_str(), 65534, 65534), 0);
    EXPECT_EQ(Receiver("foreign").Port(), nullptr);
    ASSERT_EQ(rmdir(place.c_str()), 0);
  }
  EXPECT_NE(Receiver("own").Port(), nullptr);
}

TEST_F(Ports, SomethingElseUnderTheNameIsNoPort) {
  { Receiver receiver("first"); }
  close(open(PortFile("file").c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
  ASSERT_EQ(mkdir(PortFile("folder").c_str(), 0700), 0);
  ASSERT_EQ(mkfifo(PortFile("fifo").c_str(), 0600), 0);
  ASSERT_EQ(symlink("nowhere", PortFile("link").c_str()), 0);
  for (const char* name : {"file", "folder", "fifo", "link"}) {
    EXPECT_EQ(Remote(name), nullptr) << name;
  }
  // A new owner replaces all but the directory.
  for (const char* name : {"file", "fifo", "link"}) {
    EXPECT_NE(Receiver(name).Port(), nullptr) << name;
  }
  EXPECT_EQ(Receiver("folder").Port(), nullptr);
}

TEST_F(Ports, ASendToAStoppedOwnerIsQueuedOrLostAndNeverWaits) {
  auto server = StartServer(mRuntime, "stopped");
  auto remote = Remote("stopped");
  ASSERT_NE(remote, nullptr);
  server->Signal(SIGSTOP);
  int status = 0;
  ASSERT_EQ(waitpid(server->Pid(), &status, WUNTRACED), server->Pid());
  const std::string block(4096, 'b');
  int queued = 0;
  SInt32 result;
  const auto begin = std::chrono::steady_clock::now();
  while ((result = SendNow(remote, 1, block)) == kCFMessagePortSuccess && queued < 100000) {
    ++queued;
  }
  EXPECT_EQ(result, kCFMessagePortSendTimeout);
  EXPECT_GT(queued, 10);
  for (int i = 0; i < 1000; ++i) EXPECT_EQ(SendNow(remote, 1, block), kCFMessagePortSendTimeout);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, Seconds(20));
  EXPECT_TRUE(CFMessagePortIsValid(remote));
  CFMessagePortStatistics statistics;
  CFMessagePortGetStatistics(remote, &statistics);
  EXPECT_EQ(statistics.sent, static_cast<UInt64>(queued));
  EXPECT_EQ(statistics.sentBytes, static_cast<UInt64>(queued) * 4096);
  EXPECT_EQ(statistics.queueFull, 1001u);
  // A send that may wait does so for its time and no longer.
  EXPECT_EQ(CFMessagePortSendRequest(remote, 1, Data(block), 0.05, 0, nullptr, nullptr),
            kCFMessagePortSendTimeout);
  server->Signal(SIGCONT);
  std::string reply;
  EXPECT_EQ(CFMessagePortSendRequest(remote, 1, Data(block), 20, 0, nullptr, nullptr), 0);
  EXPECT_EQ(Ask(remote, 2, "still there", &reply), 0);
  EXPECT_EQ(reply, "still there");
}

TEST_F(Ports, AnOwnerThatAcceptsNothingIsNotWaitedFor) {
  { Receiver receiver("make the place"); }
  const int directory = open(PortFile("").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const int listener = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  snprintf(address.sun_path, sizeof address.sun_path, "/proc/self/fd/%d/silent", directory);
  ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  ASSERT_EQ(listen(listener, 1), 0);
  int refused = 0;
  std::vector<Owned<CFMessagePortRef>> kept;
  for (int i = 0; i < 10; ++i) {
    auto port = Remote("silent");
    if (!port) {
      ++refused;
      continue;
    }
    // The next one is a port of its own; this one keeps its place in the queue of connections.
    CFMessagePortInvalidate(port);
    kept.push_back(std::move(port));
  }
  EXPECT_GT(refused, 0);
  close(listener);
  close(directory);
}

struct Invalidation {
  static inline std::atomic<int> sCount{0};
  static inline char sThread[16];
  static inline sigset_t sMask;
  static inline Boolean sValid = true;
  static void Note(CFMessagePortRef inPort, void*) {
    prctl(PR_GET_NAME, sThread);
    pthread_sigmask(SIG_SETMASK, nullptr, &sMask);
    sValid = CFMessagePortIsValid(inPort);
    ++sCount;
  }
};

TEST_F(Ports, APeersDeathInvalidatesAndTells) {
  auto server = StartServer(mRuntime, "mortal");
  auto remote = Remote("mortal");
  ASSERT_NE(remote, nullptr);
  Invalidation::sCount = 0;
  CFMessagePortSetInvalidationCallBack(remote, Invalidation::Note);
  EXPECT_EQ(CFMessagePortGetInvalidationCallBack(remote), Invalidation::Note);
  EXPECT_TRUE(CFMessagePortIsValid(remote));
  server->Signal(SIGKILL);
  ASSERT_TRUE(WaitUntil([] { return Invalidation::sCount == 1; }, Seconds(20)));
  EXPECT_FALSE(CFMessagePortIsValid(remote));
  EXPECT_FALSE(Invalidation::sValid);
  EXPECT_STREQ(Invalidation::sThread, "tembra.ports");
  EXPECT_EQ(sigismember(&Invalidation::sMask, SIGTERM), 1);
  EXPECT_EQ(SendNow(remote, 1), kCFMessagePortIsInvalid);
  EXPECT_EQ(Ask(remote, 1, "", nullptr), kCFMessagePortIsInvalid);
  // One that is set too late is called at once.
  CFMessagePortSetInvalidationCallBack(remote, Invalidation::Note);
  EXPECT_EQ(Invalidation::sCount, 2);
}

TEST_F(Ports, AnOwnersInvalidationReachesItsRemotePorts) {
  auto receiver = std::make_unique<Receiver>("ending");
  auto remote = Remote("ending");
  ASSERT_NE(remote, nullptr);
  Invalidation::sCount = 0;
  CFMessagePortSetInvalidationCallBack(remote, Invalidation::Note);
  receiver.reset();
  EXPECT_TRUE(WaitUntil([] { return Invalidation::sCount == 1; }, Seconds(20)));
  EXPECT_FALSE(CFMessagePortIsValid(remote));
}

TEST_F(Ports, InvalidateCallsBackOnceBeforeItReturns) {
  Receiver receiver("local");
  auto remote = Remote("local");
  Invalidation::sCount = 0;
  CFMessagePortSetInvalidationCallBack(receiver.Port(), Invalidation::Note);
  CFMessagePortSetInvalidationCallBack(remote, Invalidation::Note);
  CFMessagePortInvalidate(remote);
  EXPECT_EQ(Invalidation::sCount, 1);
  CFMessagePortInvalidate(remote);
  CFMessagePortInvalidate(receiver.Port());
  EXPECT_EQ(Invalidation::sCount, 2);
  CFMessagePortInvalidate(receiver.Port());
  EXPECT_EQ(Invalidation::sCount, 2);
  EXPECT_FALSE(CFMessagePortIsValid(remote));
  EXPECT_FALSE(CFMessagePortIsValid(receiver.Port()));
  EXPECT_EQ(CFMessagePortCreateRunLoopSource(nullptr, receiver.Port(), 0), nullptr);
}

TEST_F(Ports, OneRemotePortStandsForAName) {
  Receiver receiver("one");
  auto first = Remote("one");
  auto second = Remote("one");
  EXPECT_EQ(first.Get(), second.Get());
  CFMessagePortInvalidate(first);
  EXPECT_FALSE(CFMessagePortIsValid(second));
  auto third = Remote("one");
  ASSERT_NE(third, nullptr);
  EXPECT_NE(third.Get(), first.Get());
  EXPECT_TRUE(CFMessagePortIsValid(third));
}

TEST_F(Ports, ANewOwnerIsReachedAtOnceAfterTheOldOneDied) {
  for (int i = 0; i < 5; ++i) {
    auto server = StartServer(mRuntime, "reborn");
    auto remote = Remote("reborn");
    ASSERT_NE(remote, nullptr);
    std::string reply;
    EXPECT_EQ(Ask(remote, 1, "round", &reply), 0);
    EXPECT_EQ(reply, "round");
    server->Signal(SIGKILL);
    server->Wait(Seconds(20));
    // Whether or not the service thread has noticed yet.
    EXPECT_EQ(Remote("reborn"), nullptr);
  }
}

TEST_F(Ports, RepliesComeBack) {
  auto server = StartServer(mRuntime, "echo");
  auto remote = Remote("echo");
  std::string reply;
  for (const std::string& text : {std::string("hello"), std::string(), std::string(1 << 20, 'x')}) {
    EXPECT_EQ(Ask(remote, 1, text, &reply), kCFMessagePortSuccess);
    EXPECT_EQ(reply, text);
  }
}

TEST_F(Ports, SeveralThreadsGetTheirOwnReplies) {
  auto server = StartServer(mRuntime, "echo");
  auto remote = Remote("echo");
  std::vector<std::thread> threads;
  std::atomic<int> wrong{0};
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 200; ++i) {
        const std::string text = std::to_string(t) + "." + std::to_string(i);
        std::string reply;
        if (Ask(remote, i + 100, text, &reply) != 0 || reply != text) ++wrong;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
}

TEST_F(Ports, AReceiverInTheSameThreadAnswersWhenTheReplyModeServesIt) {
  Receiver receiver("self");
  receiver.mReply = [](SInt32, CFDataRef) { return Data("answer").Detach(); };
  auto remote = Remote("self");
  CFDataRef reply = nullptr;
  EXPECT_EQ(CFMessagePortSendRequest(remote, 1, nullptr, 5, 20, kCFRunLoopDefaultMode, &reply), 0);
  ASSERT_NE(reply, nullptr);
  EXPECT_EQ(Bytes(reply), "answer");
  CFRelease(reply);
}

TEST_F(Ports, NoReplyDataIsNull) {
  Receiver receiver("self");
  auto remote = Remote("self");
  CFDataRef reply = reinterpret_cast<CFDataRef>(1);
  EXPECT_EQ(CFMessagePortSendRequest(remote, 1, nullptr, 5, 20, kCFRunLoopDefaultMode, &reply), 0);
  EXPECT_EQ(reply, nullptr);
}

TEST_F(Ports, AnUnansweredRequestTimesOut) {
  auto server = StartServer(mRuntime, "mute");
  auto remote = Remote("mute");
  std::string reply;
  EXPECT_EQ(Ask(remote, 8, "", &reply, 0.05), kCFMessagePortReceiveTimeout);
  EXPECT_EQ(reply, "(null)");
  EXPECT_EQ(Ask(remote, 8, "", &reply, 0), kCFMessagePortReceiveTimeout);
}

TEST_F(Ports, APeerThatDiesBeforeItAnswersMakesThePortInvalid) {
  auto server = StartServer(mRuntime, "dying");
  auto remote = Remote("dying");
  EXPECT_EQ(Ask(remote, 9, "", nullptr), kCFMessagePortBecameInvalidError);
  EXPECT_FALSE(CFMessagePortIsValid(remote));
  EXPECT_EQ(server->Wait(Seconds(20)), 9);
}

TEST_F(Ports, WhatIsTooLongIsATransportError) {
  Receiver receiver("limit");
  auto remote = Remote("limit");
  EXPECT_EQ(SendNow(remote, 1, std::string((1 << 20) + 1, 'x')), kCFMessagePortTransportError);
  EXPECT_TRUE(CFMessagePortIsValid(remote));
  EXPECT_EQ(SendNow(remote, 1, std::string(1 << 20, 'x')), kCFMessagePortSuccess);
  EXPECT_TRUE(receiver.RunUntilMessages(1));
  receiver.mReply = [](SInt32, CFDataRef) {
    return Data(std::string((1 << 20) + 1, 'r')).Detach();
  };
  CFDataRef reply = nullptr;
  EXPECT_EQ(CFMessagePortSendRequest(remote, 1, nullptr, 5, 20, kCFRunLoopDefaultMode, &reply),
            kCFMessagePortTransportError);
  EXPECT_EQ(reply, nullptr);
}

TEST_F(Ports, ALocalPortIsNothingToSendOn) {
  Receiver receiver("local");
  EXPECT_FALSE(CFMessagePortIsRemote(receiver.Port()));
  EXPECT_EQ(SendNow(receiver.Port(), 1), kCFMessagePortTransportError);
}

TEST_F(Ports, ResultCodesHaveTheirPublishedValues) {
  EXPECT_EQ(kCFMessagePortSuccess, 0);
  EXPECT_EQ(kCFMessagePortSendTimeout, -1);
  EXPECT_EQ(kCFMessagePortReceiveTimeout, -2);
  EXPECT_EQ(kCFMessagePortIsInvalid, -3);
  EXPECT_EQ(kCFMessagePortTransportError, -4);
  EXPECT_EQ(kCFMessagePortBecameInvalidError, -5);
}

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
  ASSERT_TRUE(receiver.RunUntil([&] { return receiver.mPeers.size() == 400; }));
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
