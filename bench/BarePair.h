#pragma once

#include <sys/types.h>

#include <cstdint>

namespace tembra::bench {

// The least that two processes must do to hand a block over each period: one thread that wakes and
// sends, a process that waits and receives, on a SOCK_SEQPACKET pair; nothing else.
//
// The receiver is a child process: it is made before this process has threads.
class BarePair {
 public:
  BarePair();
  ~BarePair();
  BarePair(const BarePair&) = delete;
  BarePair& operator=(const BarePair&) = delete;

  pid_t Receiver() const { return mReceiver; }
  // One block of the size that 512 frames of stereo come to.
  void Send();

 private:
  int mSocket = -1;
  pid_t mReceiver = -1;
};

}  // namespace tembra::bench
