#pragma once

#include <string>
#include <vector>

namespace tembra::test {

// What this program does as the process whose plug-in is taken down. It checks what can only be
// seen from inside, says "FAIL" and why for what is wrong, and ends with status 1 then.
//
//   unload WHEN TIMES   loads the plug-in, brings it into a state and unloads it, so many times
//   exit WHEN           ends the process in that state
//   outlive [stays]     unloads the plug-in in the state "pending", says "ready" and sees a server
//                       come; or does so without the unloading
//   hold                has the plug-in until it is killed
//   disturb             sets the preferred channels again and again until it is killed
//
// WHEN is one of
//   idle                nothing was started
//   sounding            the engine runs; with a server, audio has gone out
//   pending             there is no server, and a retry waits for its timer
//   inside              a client is inside its procedure and stays there for a while
//   owning              as pending, with exclusive ownership
//   within              as pending, and it is the procedure that ends the process
int RunRole(const std::vector<std::string>& inArguments);

}  // namespace tembra::test
