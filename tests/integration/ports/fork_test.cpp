// A child that goes on without exec neither uses, nor removes, nor keeps alive what its parent has.

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Fixture.h"

#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define NEW_THREADS_AFTER_FORK 0
#endif
#endif
#ifndef NEW_THREADS_AFTER_FORK
#define NEW_THREADS_AFTER_FORK 1
#endif

namespace tembra::test {
namespace {

using ForkedPorts = Ports;

// The child's exit code; a child that hangs is ended by its alarm.
int InChild(const std::function<int()>& inBody) {
  const pid_t child = fork();
  if (child == 0) {
    alarm(30);
    _exit(inBody());
  }
  int status = -1;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

TEST_F(ForkedPorts, TheParentsPortsAreInvalidInTheChildAndWholeInTheParent) {
  Receiver receiver("forked");
  auto remote = Remote("forked");
  EXPECT_EQ(InChild([&] {
              if (CFMessagePortIsValid(remote)) return 1;
              if (CFMessagePortIsValid(receiver.Port())) return 2;
              if (CFMessagePortSendRequest(remote, 1, nullptr, 0, 0, nullptr, nullptr) !=
                  kCFMessagePortIsInvalid) {
                return 3;
              }
              // The parent's name is the parent's.
              if (CFMessagePortCreateLocal(nullptr, CFSTR("forked"), nullptr, nullptr, nullptr)) {
                return 4;
              }
              CFMessagePortInvalidate(remote);
              CFMessagePortInvalidate(receiver.Port());
              return 0;
            }),
            0);
  EXPECT_TRUE(CFMessagePortIsValid(remote));
  EXPECT_EQ(CFMessagePortSendRequest(remote, 2, nullptr, 0, 0, nullptr, nullptr), 0);
  ASSERT_TRUE(receiver.RunUntilMessages(1));
  EXPECT_EQ(receiver.mMessages[0].identifier, 2);
  EXPECT_EQ(receiver.Statistics().accepted, 1u);
}

TEST_F(ForkedPorts, TheChildsExitRemovesNothing) {
  Receiver receiver("forked");
  const pid_t child = fork();
  if (child == 0) exit(0);
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_NE(Remote("forked"), nullptr);
}

TEST_F(ForkedPorts, AChildThatLivesOnDoesNotKeepANameTaken) {
  int pipes[2];
  ASSERT_EQ(pipe(pipes), 0);
  // A process that owns a name forks and dies; its child stays.
  const pid_t owner = fork();
  if (owner == 0) {
    CFMessagePortRef port =
        CFMessagePortCreateLocal(nullptr, CFSTR("orphan"), nullptr, nullptr, nullptr);
    const pid_t survivor = fork();
    if (survivor == 0) {
      alarm(60);
      pause();
      _exit(0);
    }
    [[maybe_unused]] ssize_t written = write(pipes[1], &survivor, sizeof survivor);
    _exit(port ? 0 : 1);
  }
  pid_t survivor = -1;
  ASSERT_EQ(read(pipes[0], &survivor, sizeof survivor), static_cast<ssize_t>(sizeof survivor));
  int status = -1;
  waitpid(owner, &status, 0);
  EXPECT_EQ(status, 0);
  // The survivor lets go as soon as it runs.
  EXPECT_TRUE(WaitUntil([] { return Remote("orphan") == nullptr; }, Seconds(20)));
  EXPECT_NE(Receiver("orphan").Port(), nullptr);
  kill(survivor, SIGKILL);
  close(pipes[0]);
  close(pipes[1]);
}

TEST_F(ForkedPorts, TheChildCanMakeItsOwn) {
  if (!NEW_THREADS_AFTER_FORK) GTEST_SKIP() << "this sanitizer forbids threads after fork";
  Receiver receiver("parent");
  auto remote = Remote("parent");
  EXPECT_EQ(
      InChild([&] {
        Receiver own("child");
        if (!own.Port()) return 1;
        auto toOwn = Remote("child");
        if (!toOwn) return 2;
        if (CFMessagePortSendRequest(toOwn, 5, nullptr, 0, 0, nullptr, nullptr) != 0) return 3;
        if (!own.RunUntilMessages(1)) return 4;
        auto toParent = Remote("parent");
        if (!toParent) return 5;
        return CFMessagePortSendRequest(toParent, 6, nullptr, 0, 0, nullptr, nullptr) == 0 ? 0 : 6;
      }),
      0);
  ASSERT_TRUE(receiver.RunUntilMessages(1));
  EXPECT_EQ(receiver.mMessages[0].identifier, 6);
}

TEST_F(ForkedPorts, NoForkHangsWhileOtherThreadsUsePorts) {
  Receiver receiver("busy");
  std::atomic<bool> stop{false};
  std::vector<std::thread> threads;
  for (int t = 0; t < 2; ++t) {
    threads.emplace_back([&] {
      while (!stop) {
        auto remote = Remote("busy");
        if (!remote) continue;
        CFMessagePortSendRequest(remote, 1, nullptr, 0, 0, nullptr, nullptr);
        CFMessagePortInvalidate(remote);
      }
    });
  }
  for (int i = 0; i < 100; ++i) {
    CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0, true);
    EXPECT_EQ(InChild([&] {
                CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0, true);
                return CFMessagePortIsValid(receiver.Port()) ? 1 : 0;
              }),
              0);
  }
  stop = true;
  for (auto& thread : threads) thread.join();
}

}  // namespace
}  // namespace tembra::test
