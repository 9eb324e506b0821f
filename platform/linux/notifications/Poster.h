#pragma once

#include <string>

namespace tembra::notifications {

// Sends one datagram to every receiver of this user and, with the flag, of all other users.
//
// Any thread. Waits at most a second in all for receivers whose queues are full. A receiver that
// let a whole wait pass is not waited for again until it has taken something.
void PostDatagram(const std::string& inDatagram, bool inToAllUsers);

// Removes what dead receivers left in the shared directory, as far as this user may.
void SweepShared();

}  // namespace tembra::notifications
