#pragma once

#include <functional>
#include <thread>

namespace tembra {

// Starts a thread of the server's own: it blocks all signals, so that they reach the thread that
// waits for them, and carries a name of at most 15 bytes.
std::thread StartThread(const char* inName, std::function<void()> inBody);

}  // namespace tembra
