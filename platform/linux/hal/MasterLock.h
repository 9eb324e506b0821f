#pragma once

#include <atomic>

namespace tembra::hal {

// Which process of this user is the master: the one that holds a lock on a file in the runtime
// directory. The kernel drops the lock with the process, however it ends.
//
// Any thread. Without a runtime directory no process is master. A forked child does not inherit it.
class MasterLock {
 public:
  // Whether this process is the master; becomes it if there is none.
  bool IsHeld();

  // In a forked child: forgets the parent's lock without dropping it.
  void ForgetInChild();

 private:
  std::atomic<int> mFile{-1};
};

}  // namespace tembra::hal
