#pragma once

#include <string>

namespace tembra {

// What the programs of all users of this machine are told of the server: its process id, and that
// sound is allowed, which lets them take the virtual device for their default output. Only a server
// of root's can tell them.
//
// Thread: the server's. Ownership: what was published is withdrawn by Withdraw, not by the end of
// the object. Failure: told in the text that Publish answers, never an error of the server.
class MachineStatus {
 public:
  // A line for the user: what was published, or what could not be and what follows from that.
  std::string Publish();
  // Only what was published. Nothing is taken back from a server that came later.
  void Withdraw();

 private:
  bool mHasID = false;
  bool mHasSound = false;
};

}  // namespace tembra
