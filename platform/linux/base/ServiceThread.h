#pragma once

namespace tembra {

// Starts a thread of the platform's own: detached, all signals blocked, the name (at most 15 bytes)
// visible to tools. Lives until inBody returns. False if there can be no thread.
__attribute__((visibility("default"))) bool StartServiceThread(const char* inName,
                                                               void (*inBody)(void*),
                                                               void* inContext);

}  // namespace tembra
