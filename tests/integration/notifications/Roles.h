#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace tembra::test {

// What this executable does when a test starts it as another process:
//   observe NAME [OBJECT]    prints "ready", then a line for each notification, until it is killed
//   leave NAME               observes and ends normally
//   robbed NAME              prints "robbed" when it has heard something and closed all descriptors
//   post NAME OBJECT COUNT [all]   with the numbers 0.. in the dictionary under "n"; "-": no object
int RunRole(const std::vector<std::string>& inArguments);

// How often the receiving thread of a process went to sleep of its own will; -1 if it is awake.
long SleepsOfReceiver(pid_t inProcess);

}  // namespace tembra::test
