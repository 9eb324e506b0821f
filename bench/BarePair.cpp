#include "bench/BarePair.h"

#include <signal.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>

namespace tembra::bench {

namespace {

constexpr std::size_t kBlockBytes = 68 + 2 * (8 + 2048);

[[noreturn]] void Receive(int inSocket) {
  const int poll = epoll_create1(EPOLL_CLOEXEC);
  epoll_event event{};
  event.events = EPOLLIN;
  epoll_ctl(poll, EPOLL_CTL_ADD, inSocket, &event);
  std::array<char, kBlockBytes> block;
  for (;;) {
    if (epoll_wait(poll, &event, 1, -1) < 1) continue;
    if (recv(inSocket, block.data(), block.size(), MSG_DONTWAIT) == 0) _exit(0);
  }
}

}  // namespace

BarePair::BarePair() {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
    std::perror("socketpair");
    std::exit(1);
  }
  mReceiver = fork();
  if (mReceiver == 0) {
    close(ends[0]);
    Receive(ends[1]);
  }
  close(ends[1]);
  mSocket = ends[0];
}

BarePair::~BarePair() {
  close(mSocket);
  waitpid(mReceiver, nullptr, 0);
}

void BarePair::Send() {
  static const std::array<char, kBlockBytes> sBlock{};
  (void)send(mSocket, sBlock.data(), sBlock.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
}

}  // namespace tembra::bench
