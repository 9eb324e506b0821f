#include <CoreFoundation/CFData.h>
#include <CoreFoundation/CFNotificationCenter.h>
#include <CoreFoundation/CFNotificationCenterPriv.h>
#include <CoreFoundation/CFNumber.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <functional>
#include <mutex>
#include <thread>

#include "NotificationsTest.h"
#include "notifications/NotificationWire.h"
#include "support/OtherUser.h"
#include "support/Sanitizers.h"

namespace tembra::test {
namespace {

// A datagram as anybody may send it.
void SendRaw(const std::string& inPath, const std::string& inBytes) {
  const int file = open(inPath.c_str(), O_PATH | O_CLOEXEC);
  const int socket = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  snprintf(address.sun_path, sizeof address.sun_path, "/proc/self/fd/%d", file);
  sendto(socket, inBytes.data(), inBytes.size(), MSG_NOSIGNAL,
         reinterpret_cast<sockaddr*>(&address), sizeof address);
  close(socket);
  close(file);
}

// This process's own socket in a directory.
std::string OwnSocket(const std::string& inPlace) {
  const std::string prefix = std::to_string(getpid()) + ".";
  for (auto& entry : std::filesystem::directory_iterator(inPlace)) {
    if (entry.path().filename().string().rfind(prefix, 0) == 0) return entry.path();
  }
  return {};
}

TEST_F(Notifications, HostileDatagramsAreCountedAndDropped) {
  Observer observer("hostile", nullptr);
  const std::string path = OwnSocket(Place());
  ASSERT_FALSE(path.empty());
  notifications::Notification notification;
  notification.name = "hostile";
  const std::string good = notifications::EncodeNotification(notification);
  notification.hasInfo = true;
  notification.info = "no property list";
  const std::string badInfo = notifications::EncodeNotification(notification);
  notification.hasInfo = false;
  notification.info = {};
  notification.name = "\xff\xfe";
  const std::string badText = notifications::EncodeNotification(notification);
  const UInt64 before = Statistics().malformed;
  const Texts attempts = {"",
                          "x",
                          good + "x",
                          good.substr(0, good.size() - 1),
                          std::string(notifications::kMaxDatagram + 1, 'x'),
                          badInfo,
                          badText};
  for (const std::string& attempt : attempts) SendRaw(path, attempt);
  SendRaw(path, good);
  ASSERT_TRUE(WaitUntil([&] { return observer.Count() == 1; }, Seconds(20)));
  EXPECT_EQ(Statistics().malformed, before + attempts.size());
  EXPECT_EQ(observer.Heard(), Texts{"hostile -"});
}

constexpr char kShared[] = "/tmp/tembra-notifications";

TEST_F(Notifications, TheSharedPlaceIsStickyAndOpenToAll) {
  Observer observer("shared", nullptr);
  struct stat status;
  ASSERT_EQ(stat(kShared, &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 01777u);
  const std::string path = OwnSocket(kShared);
  ASSERT_EQ(stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0666u);
  ASSERT_EQ(stat(OwnSocket(Place()).c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600u);
}

TEST_F(Notifications, AnotherUsersPostReachesOnlyObserversThatNamedNoObject) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  Observer open("foreign", nullptr);
  Observer named("foreign", "x");
  const std::string runtime = "/tmp/other-user";
  mkdir(runtime.c_str(), 0700);
  ASSERT_EQ(chown(runtime.c_str(), 65534, 65534), 0);
  const UInt64 before = Statistics().posted;
  EXPECT_EQ(RunAsUser(kNobody,
                      [&] {
                        setenv("XDG_RUNTIME_DIR", runtime.c_str(), 1);
                        Post("foreign", "x");  // his own processes only
                        Post("foreign", "x", nullptr, 3);
                        Post("foreign", nullptr, nullptr, 3);
                        return Statistics().posted == before + 2 ? 0 : 1;
                      }),
            0);
  ASSERT_TRUE(WaitUntil([&] { return open.Count() == 2; }, Seconds(20)));
  Observer::Flush();
  EXPECT_EQ(open.Heard(), (Texts{"foreign x", "foreign -"}));
  EXPECT_EQ(named.Count(), 0u);
}

TEST_F(Notifications, APostToAllUsersReachesThisUserOnce) {
  Observer observer("all", "x");
  Post("all", "x", nullptr, 3);
  Observer::Flush();
  EXPECT_EQ(observer.Count(), 1u);
}

TEST_F(Notifications, APostToAllUsersReachesThisUsersProcessesOfAnotherSession) {
  Observer observer("sessions", "x");
  const std::string runtime = "/tmp/another-session";
  mkdir(runtime.c_str(), 0700);
  LetOtherThreadsSleep();
  const pid_t child = fork();
  if (child == 0) {
    alarm(60);
    setenv("XDG_RUNTIME_DIR", runtime.c_str(), 1);
    Post("sessions", "x");  // to that session alone
    Post("sessions", "x", nullptr, 3);
    _exit(0);
  }
  waitpid(child, nullptr, 0);
  ASSERT_TRUE(WaitUntil([&] { return observer.Count() == 1; }, Seconds(20)));
  Observer::Flush();
  EXPECT_EQ(observer.Heard(), Texts{"sessions x"});
}

TEST_F(Notifications, ThePlaceOfAUserIsClosedToOthersHoweverTheyGetThere) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  Observer observer("closed", nullptr);
  const std::string path = OwnSocket(Place());
  notifications::Notification notification;
  notification.name = "closed";
  const std::string good = notifications::EncodeNotification(notification);
  // Even with the socket in hand and its mode loosened the sender is who he is.
  ASSERT_EQ(chmod(path.c_str(), 0666), 0);
  const int file = open(path.c_str(), O_PATH | O_CLOEXEC);
  const UInt64 before = Statistics().unauthorized;
  EXPECT_EQ(RunAsUser(kNobody,
                      [&] {
                        SendRaw("/proc/self/fd/" + std::to_string(file), good);
                        return 0;
                      }),
            0);
  close(file);
  chmod(path.c_str(), 0600);
  EXPECT_TRUE(WaitUntil([&] { return Statistics().unauthorized == before + 1; }, Seconds(20)));
  Observer::Flush();
  EXPECT_EQ(observer.Count(), 0u);
}

TEST_F(Notifications, AFloodFromAnotherUserIsBoundedAndTheUsersOwnPostsComeThrough) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  Observer observer("mine", nullptr);
  Observer flood("flood", nullptr);
  std::atomic<bool> hold{true};
  flood.Do([&](CFDictionaryRef) {
    while (hold) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  });
  const UInt64 before = Statistics().overflowed;
  const std::string runtime = "/tmp/other-user";
  EXPECT_EQ(RunAsUser(kNobody,
                      [&] {
                        setenv("XDG_RUNTIME_DIR", runtime.c_str(), 1);
                        for (int i = 0; i < 400; ++i) Post("flood", nullptr, nullptr, 3);
                        return 0;
                      }),
            0);
  EXPECT_TRUE(WaitUntil([&] { return Statistics().overflowed > before; }, Seconds(20)));
  Post("mine");
  hold = false;
  EXPECT_TRUE(WaitUntil([&] { return observer.Count() == 1; }, Seconds(20)));
  EXPECT_LE(flood.Count(), 257u);
}

// Ends a forked child with all exit handlers; a leak checker there would miss the parent's threads.
[[noreturn]] void EndChild(int inCode) {
  if (kAddressSanitizer) _exit(inCode);
  exit(inCode);
}

TEST_F(Notifications, AForkedChildHasNoObserversAndCanPost) {
  Observer observer("forked", nullptr);
  const size_t before = CountReceivers();
  const UInt64 posted = Statistics().posted;
  LetOtherThreadsSleep();
  const pid_t child = fork();
  if (child == 0) {
    alarm(30);
    Post("forked");
    EndChild(Statistics().posted > posted ? 0 : 1);
  }
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(WaitUntil([&] { return observer.Count() == 1; }, Seconds(20)));
  // The child's end removed nothing of the parent's.
  EXPECT_EQ(CountReceivers(), before);
  Observer::Flush();
}
}  // namespace
}  // namespace tembra::test
