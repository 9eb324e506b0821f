#pragma once

#include <string>
#include <vector>

namespace tembra::test {

// What this executable does when a test starts it as another process:
//   observe NAME [OBJECT]    prints "ready", then a line for each notification, until it is killed
//   leave NAME               observes and ends normally
//   post NAME OBJECT COUNT [all]   with the numbers 0.. in the dictionary under "n"; "-": no object
int RunRole(const std::vector<std::string>& inArguments);

}  // namespace tembra::test
