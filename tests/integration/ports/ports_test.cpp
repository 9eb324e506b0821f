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

}  // namespace
}  // namespace tembra::test
