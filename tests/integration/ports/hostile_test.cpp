// What others may do at a port: strangers, breakers of the protocol, the silent and the many.

#include <dirent.h>
#include <fcntl.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>

#include <algorithm>
#include <random>

#include "Fixture.h"
#include "base/Descriptor.h"
#include "ports/PortWire.h"
#include "support/OtherUser.h"
#include "support/Sanitizers.h"

namespace {

// The kernel has no room to watch another connection.
std::atomic<bool> sNoRoomToWatch{false};

bool IsConnection(int inDescriptor) {
  int listens = 1;
  socklen_t size = sizeof listens;
  return getsockopt(inDescriptor, SOL_SOCKET, SO_ACCEPTCONN, &listens, &size) == 0 && listens == 0;
}

}  // namespace

// In the place of the C library's, for the platform's library too.
extern "C" __attribute__((visibility("default"))) int epoll_ctl(int poll, int operation,
                                                                int descriptor,
                                                                epoll_event* event) noexcept {
  if (sNoRoomToWatch && operation == EPOLL_CTL_ADD && IsConnection(descriptor)) {
    errno = ENOSPC;
    return -1;
  }
  return static_cast<int>(syscall(SYS_epoll_ctl, poll, operation, descriptor, event));
}

namespace tembra::test {
namespace {

using ports::Header;
using ports::Kind;
using ports::MakeHeader;

int CountDescriptors() {
  int count = 0;
  DIR* listing = opendir("/proc/self/fd");
  while (readdir(listing)) ++count;
  closedir(listing);
  return count;
}

class HostilePorts : public Ports {
 protected:
  Descriptor ConnectTo(const std::string& inName) {
    Descriptor file(open(PortFile(inName).c_str(), O_PATH | O_CLOEXEC));
    return ConnectTo(file.Get());
  }
  static Descriptor ConnectTo(int inFile) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof address.sun_path, "/proc/self/fd/%d", inFile);
    Descriptor socket(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    if (connect(socket.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
      return {};
    }
    return socket;
  }
  static bool Put(const Descriptor& inSocket, const std::string& inBytes) {
    return send(inSocket.Get(), inBytes.data(), inBytes.size(), MSG_NOSIGNAL) >= 0;
  }
  static std::string Packet(const Header& inHeader, const std::string& inBody = {}) {
    return std::string(reinterpret_cast<const char*>(&inHeader), sizeof inHeader) + inBody;
  }
  static std::string Hello() { return Packet(MakeHeader(Kind::kHello, 0, 0, 0, 0)); }
  // Whether the other end has closed.
  static bool IsClosed(const Descriptor& inSocket) {
    char byte;
    const ssize_t size = recv(inSocket.Get(), &byte, 1, MSG_DONTWAIT);
    return size == 0 || (size < 0 && errno != EAGAIN);
  }
  // Sends the packets on a connection of their own and waits for its end.
  void ExpectClosed(Receiver& ioReceiver, const std::vector<std::string>& inPackets) {
    Descriptor socket = ConnectTo("port");
    ASSERT_TRUE(socket);
    for (const std::string& packet : inPackets) Put(socket, packet);
    EXPECT_TRUE(ioReceiver.RunUntil([&] { return IsClosed(socket); }));
  }
};

TEST_F(HostilePorts, WhateverBreaksTheProtocolIsClosedAndCounted) {
  Receiver receiver("port");
  auto good = Remote("port");
  Header wrongVersion = MakeHeader(Kind::kHello, 0, 0, 0, 0);
  wrongVersion.version = 9;
  const std::vector<std::vector<std::string>> attempts = {
      {std::string("garbage")},
      {Hello().substr(0, 31)},
      {Hello() + "x"},
      {Packet(wrongVersion)},
      {Packet(MakeHeader(static_cast<Kind>(77), 0, 0, 0, 0))},
      // A message before the greeting, a second greeting, a reply from the wrong side.
      {Packet(MakeHeader(Kind::kMessage, 1, 0, 0, 0))},
      {Hello(), Hello()},
      {Hello(), Packet(MakeHeader(Kind::kReply, 1, 0, 0, 0))},
      {Hello(), Packet(MakeHeader(Kind::kMessage, 1, ports::kHasData, 0, 5), "four")},
      // An empty packet.
      {Hello(), std::string()},
  };
  UInt64 expected = 0;
  for (const auto& attempt : attempts) {
    ExpectClosed(receiver, attempt);
    EXPECT_EQ(receiver.Statistics().malformed, ++expected);
  }
  EXPECT_TRUE(receiver.mMessages.empty());
  // Opened and closed events are pairs, and only of those who greeted.
  size_t opened = 0, closed = 0;
  for (const auto& peer : receiver.mPeers) {
    (peer.event == kCFMessagePortPeerOpened ? opened : closed)++;
  }
  EXPECT_EQ(opened, 5u);
  EXPECT_EQ(closed, 4u);
  // Another client was not disturbed.
  EXPECT_EQ(CFMessagePortSendRequest(good, 5, nullptr, 0, 0, nullptr, nullptr), 0);
  EXPECT_TRUE(receiver.RunUntilMessages(1));
}

TEST_F(HostilePorts, AMessageBeyondTheLimitIsClosedAndCounted) {
  Receiver receiver("port");
  Descriptor socket = ConnectTo("port");
  const int size = 8 << 20;
  setsockopt(socket.Get(), SOL_SOCKET, SO_SNDBUF, &size, sizeof size);
  ASSERT_TRUE(Put(socket, Hello()));
  ASSERT_TRUE(Put(socket, std::string(sizeof(Header) + ports::kMaxBody + 1, 'x')));
  EXPECT_TRUE(receiver.RunUntil([&] { return IsClosed(socket); }));
  EXPECT_EQ(receiver.Statistics().oversized, 1u);
}

TEST_F(HostilePorts, NoDescriptorsAreAccepted) {
  Receiver receiver("port");
  Descriptor socket = ConnectTo("port");
  ASSERT_TRUE(Put(socket, Hello()));
  ASSERT_TRUE(receiver.RunUntil([&] { return !receiver.mPeers.empty(); }));
  const int before = CountDescriptors();
  std::string packet = Packet(MakeHeader(Kind::kMessage, 1, 0, 0, 0));
  iovec part{packet.data(), packet.size()};
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
  msghdr message{};
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  message.msg_control = control;
  message.msg_controllen = sizeof control;
  cmsghdr* rights = CMSG_FIRSTHDR(&message);
  rights->cmsg_level = SOL_SOCKET;
  rights->cmsg_type = SCM_RIGHTS;
  rights->cmsg_len = CMSG_LEN(sizeof(int));
  const int standardInput = 0;
  memcpy(CMSG_DATA(rights), &standardInput, sizeof standardInput);
  ASSERT_GT(sendmsg(socket.Get(), &message, 0), 0);
  EXPECT_TRUE(receiver.RunUntil([&] { return IsClosed(socket); }));
  EXPECT_EQ(receiver.Statistics().malformed, 1u);
  EXPECT_TRUE(receiver.mMessages.empty());
  // The connection's own descriptor went, none came.
  EXPECT_EQ(CountDescriptors(), before - 1);
}

TEST_F(HostilePorts, RandomPacketsDoNoHarmAndLeakNothing) {
  const unsigned seed = 4711;
  std::mt19937 random(seed);
  Receiver receiver("port");
  auto good = Remote("port");
  ASSERT_EQ(CFMessagePortSendRequest(good, 0, nullptr, 0, 0, nullptr, nullptr), 0);
  ASSERT_TRUE(receiver.RunUntilMessages(1));
  const int before = CountDescriptors();
  const int rounds = 20000;
  for (int i = 0; i < rounds; ++i) {
    Descriptor socket = ConnectTo("port");
    ASSERT_TRUE(socket);
    if (random() % 2) Put(socket, Hello());
    std::string packet(random() % 80, '\0');
    for (char& byte : packet) byte = static_cast<char>(random());
    Header header =
        MakeHeader(static_cast<Kind>(random() % 6), 1, random() % 4, random(), random() % 64);
    if (random() % 2 && packet.size() >= sizeof header) {
      memcpy(packet.data(), &header, sizeof header);
    }
    Put(socket, packet);
    socket.Reset();
    CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0, true);
  }
  ASSERT_TRUE(receiver.RunUntil([&] {
    const CFMessagePortStatistics s = receiver.Statistics();
    return s.accepted == rounds + 1u && s.closed == static_cast<UInt64>(rounds);
  })) << "seed "
      << seed;
  EXPECT_GT(receiver.Statistics().malformed, static_cast<UInt64>(rounds) / 2);
  EXPECT_EQ(CountDescriptors(), before);
  const size_t heard = receiver.mMessages.size();
  EXPECT_EQ(CFMessagePortSendRequest(good, 5, nullptr, 0, 0, nullptr, nullptr), 0);
  EXPECT_TRUE(receiver.RunUntilMessages(heard + 1));
}

TEST_F(HostilePorts, AConnectionThatSaysNothingIsClosed) {
  Receiver receiver("port");
  Descriptor socket = ConnectTo("port");
  auto good = Remote("port");
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_TRUE(receiver.RunUntil([&] { return IsClosed(socket); }));
  EXPECT_GT(std::chrono::steady_clock::now() - begin, Seconds(4));
  EXPECT_EQ(receiver.Statistics().silent, 1u);
  EXPECT_TRUE(receiver.RunUntil([&] { return receiver.Statistics().closed == 1; }));
  // A client that greeted may be silent for as long as it likes.
  EXPECT_TRUE(CFMessagePortIsValid(good));
}

TEST_F(HostilePorts, APeerThatTakesNoRepliesIsClosedAfterASecond) {
  Receiver receiver("port");
  receiver.mReply = [](SInt32, CFDataRef) { return Data(std::string(1 << 18, 'r')).Detach(); };
  Descriptor socket = ConnectTo("port");
  ASSERT_TRUE(Put(socket, Hello()));
  const std::string request = Packet(MakeHeader(Kind::kRequest, 1, 0, 1, 0));
  for (int i = 0; i < 64; ++i) ASSERT_TRUE(Put(socket, request));
  EXPECT_TRUE(receiver.RunUntil([&] { return receiver.Statistics().closed == 1; }));
  const CFMessagePortStatistics statistics = receiver.Statistics();
  EXPECT_EQ(statistics.closedFull, 1u);
  EXPECT_GT(statistics.repliesLost, 0u);
  EXPECT_EQ(statistics.replies + statistics.repliesLost, 64u);
}

TEST_F(HostilePorts, ACrowdOfNewcomersDoesNotKeepAConnectionWaiting) {
  Receiver receiver("port");
  auto remote = Remote("port");
  SendNow(remote, 0);
  ASSERT_TRUE(receiver.RunUntilMessages(1));
  constexpr SInt32 kMessages = 20;
  std::vector<Descriptor> crowd;
  for (int i = 0; i < 100; ++i) {
    crowd.push_back(ConnectTo("port"));
    ASSERT_TRUE(Put(crowd.back(), Hello()));
    ASSERT_TRUE(Put(crowd.back(), Packet(MakeHeader(Kind::kMessage, -1, 0, 0, 0))));
  }
  for (SInt32 i = 1; i <= kMessages; ++i) ASSERT_EQ(SendNow(remote, i), kCFMessagePortSuccess);

  ASSERT_TRUE(receiver.RunUntil([&] {
    return std::any_of(receiver.mMessages.begin(), receiver.mMessages.end(),
                       [](const auto& message) { return message.identifier == kMessages; });
  }));
  // At most one of the crowd before each of the connection's own.
  EXPECT_LE(receiver.mMessages.size(), 2u * kMessages + 2);
  // And all of the crowd are heard.
  EXPECT_TRUE(receiver.RunUntilMessages(1 + kMessages + crowd.size()));
}

TEST_F(HostilePorts, AConnectionWithMuchToSayDoesNotKeepANewcomerOut) {
  Receiver receiver("port");
  auto remote = Remote("port");
  for (SInt32 i = 0; i < 100; ++i) ASSERT_EQ(SendNow(remote, i), kCFMessagePortSuccess);
  ASSERT_TRUE(receiver.RunUntilMessages(1));
  const Descriptor newcomer = ConnectTo("port");
  Put(newcomer, Hello());
  Put(newcomer, Packet(MakeHeader(Kind::kMessage, -1, 0, 0, 0)));
  ASSERT_TRUE(receiver.RunUntilMessages(101));
  const auto heard = std::find_if(receiver.mMessages.begin(), receiver.mMessages.end(),
                                  [](const auto& message) { return message.identifier == -1; });
  ASSERT_NE(heard, receiver.mMessages.end());
  EXPECT_LT(heard - receiver.mMessages.begin(), 30);
}

TEST_F(HostilePorts, ThereIsALimitToConnections) {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  rlimit raised = limit;
  raised.rlim_cur = std::max<rlim_t>(limit.rlim_cur, 2000);
  if (setrlimit(RLIMIT_NOFILE, &raised) != 0) GTEST_SKIP() << "descriptors";
  Receiver receiver("port");
  std::vector<Descriptor> sockets;
  for (int i = 0; i < 600; ++i) {
    sockets.push_back(ConnectTo("port"));
    ASSERT_TRUE(sockets.back());
    Put(sockets.back(), Hello());
    CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0, true);
  }
  EXPECT_TRUE(receiver.RunUntil([&] { return receiver.Statistics().refusedLimit == 88; }));
  EXPECT_EQ(receiver.Statistics().accepted, 512u);
  sockets.clear();
  EXPECT_TRUE(receiver.RunUntil([&] { return receiver.Statistics().closed == 512; }));
  EXPECT_NE(Remote("port"), nullptr);
  setrlimit(RLIMIT_NOFILE, &limit);
}

TEST_F(HostilePorts, WithoutDescriptorsConnectionsAreTurnedAwayAndTheLoopSleeps) {
  Receiver receiver("port");
  CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0, true);
  // Connected while there was room, accepted when there is none.
  std::vector<Descriptor> sockets;
  for (int i = 0; i < 20; ++i) sockets.push_back(ConnectTo("port"));
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  rlimit few = limit;
  few.rlim_cur = 200;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
  std::vector<Descriptor> filling;
  do {
    filling.emplace_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
  } while (filling.back());
  EXPECT_TRUE(receiver.RunUntil([&] { return receiver.Statistics().refusedNoFile == 20; }));
  EXPECT_EQ(receiver.Statistics().accepted, 0u);
  for (const Descriptor& socket : sockets) EXPECT_TRUE(IsClosed(socket));
  // Nothing is left that would keep the loop awake, after a last look.
  CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.02, true);
  EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.02, true), kCFRunLoopRunTimedOut);
  filling.clear();
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  auto remote = Remote("port");
  ASSERT_NE(remote, nullptr);
  EXPECT_EQ(CFMessagePortSendRequest(remote, 1, nullptr, 0, 0, nullptr, nullptr), 0);
  EXPECT_TRUE(receiver.RunUntilMessages(1));
  EXPECT_EQ(receiver.Statistics().accepted, 1u);
}

TEST_F(HostilePorts, AConnectionThatCannotBeWatchedIsTurnedAway) {
  Receiver receiver("port");
  const Descriptor socket = ConnectTo("port");
  Put(socket, Hello());
  sNoRoomToWatch = true;
  EXPECT_TRUE(receiver.RunUntil([&] { return receiver.Statistics().refusedLimit == 1; }));
  sNoRoomToWatch = false;
  EXPECT_TRUE(IsClosed(socket));
  EXPECT_EQ(receiver.Statistics().accepted, 0u);
  auto remote = Remote("port");
  ASSERT_NE(remote, nullptr);
  EXPECT_EQ(SendNow(remote, 1), 0);
  EXPECT_TRUE(receiver.RunUntilMessages(1));
}

TEST_F(HostilePorts, AServiceWhoseDescriptorsAreClosedEndsAndTheNextPortHasANewOne) {
  if (kThreadSanitizer) GTEST_SKIP() << "such a close is a race of the program's";
  auto first = StartServer(mRuntime, "first");
  auto second = StartServer(mRuntime, "second");
  EXPECT_EQ(RunProcess(mRuntime, {"robbed", "first", "second", "awake"}), 0);
}

TEST_F(HostilePorts, AServiceThatSleepsWhileItsDescriptorsAreClosedIsReplacedByTheNextPort) {
  if (kThreadSanitizer) GTEST_SKIP() << "such a close is a race of the program's";
  auto first = StartServer(mRuntime, "first");
  auto second = StartServer(mRuntime, "second");
  EXPECT_EQ(RunProcess(mRuntime, {"robbed", "first", "second", "asleep"}), 0);
}

// Runs a body in a child process that has become another user.
TEST_F(HostilePorts, AnotherUserIsRefusedBeforeAByteIsRead) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  Receiver receiver("port");
  // Even where the directory and the socket let him through.
  ASSERT_EQ(chmod(PortFile("port").c_str(), 0666), 0);
  const int file = open(PortFile("port").c_str(), O_PATH | O_CLOEXEC);
  EXPECT_EQ(RunAsUser(kNobody,
                      [&] {
                        Descriptor socket = ConnectTo(file);
                        if (!socket) return 1;
                        return Put(socket, Hello()) && Put(socket, "garbage") ? 0 : 2;
                      }),
            0);
  EXPECT_TRUE(receiver.RunUntil([&] { return receiver.Statistics().refusedUser == 1; }));
  const CFMessagePortStatistics statistics = receiver.Statistics();
  EXPECT_EQ(statistics.accepted, 0u);
  EXPECT_EQ(statistics.malformed, 0u);
  EXPECT_TRUE(receiver.mPeers.empty());
  close(file);
}

TEST_F(HostilePorts, AnOwnerThatIsAnotherUserIsNotSpokenTo) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  { Receiver receiver("make the place"); }
  const int directory = open(PortFile("").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const int listener = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  snprintf(address.sun_path, sizeof address.sun_path, "/proc/self/fd/%d/theirs", directory);
  ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  // Who listens is who the kernel tells of.
  EXPECT_EQ(RunAsUser(kNobody, [&] { return listen(listener, 8); }), 0);
  EXPECT_EQ(Remote("theirs"), nullptr);
  Descriptor accepted(accept4(listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
  ASSERT_TRUE(accepted);
  char bytes[64];
  EXPECT_EQ(recv(accepted.Get(), bytes, sizeof bytes, MSG_DONTWAIT), 0);
  close(listener);
  close(directory);
}

TEST_F(HostilePorts, AnotherUserHasNoWayIn) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  Receiver receiver("port");
  const std::string path = PortFile("port");
  EXPECT_EQ(RunAsUser(kNobody,
                      [&] {
                        // Not even the user's own place is his to use.
                        return !Remote("port") && !Receiver("other").Port() &&
                                       access(path.c_str(), F_OK) != 0
                                   ? 0
                                   : 1;
                      }),
            0);
}

}  // namespace
}  // namespace tembra::test
