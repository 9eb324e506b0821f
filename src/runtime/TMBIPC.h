#pragma once

// The IPC home: the directory in which the audio server, which runs as root, and every other
// process of the machine meet, with its three status files and the channels' paths.
//
// Thread: any; nothing is locked. The writer is one process of root's.
// Ownership: the home and its files are the server's; nothing is kept open between calls.
// Units and range: 1 is success and 0 failure where nothing else is said; process ids are above 0,
//   and -1 is no server.
// Failure: what sets something says so in the system log; what reads is silent and answers as if
//   the file said the most careful thing. The home is open to everyone, so whatever in it is a
//   link, has a second name, or is no regular file is treated as a file that cannot be opened.

#include <atomic>
#include <cstdint>

// Makes the home or puts it right, and asks anew how the system protects itself. Root only.
int32_t TMBIPC_InitRuntime();

// Root only. -1 withdraws the server's id.
int32_t TMBIPC_SetServerPid(int32_t inPID);
// The id of a live server, or -1.
int32_t TMBIPC_GetServerPid();
int32_t TMBIPC_IsServerStarted();

// Whether the system protects its own programs; 1 where that cannot be told.
int32_t TMBIPC_IsSIPEnabled();

// Root only. What was stored: 1 only where the system's version permits sound; 0 also on failure.
// The home must exist.
int32_t TMBIPC_SetSoundAllowed(int32_t inAllowed);
// The stored number, as it is, where the system's version permits sound; else 0.
int32_t TMBIPC_IsSoundAllowed();

// Tells the server to read its configuration again; the server's id, or -1.
int32_t TMBIPC_ApplyConfig();

// Whether a path looks like a channel's. Guards against accidents only: the home's name at the
// beginning and ".ipc" anywhere are enough.
int32_t TMBIPC_IsChannelPath(const char* inPath);
// The path of a channel, cut if it does not fit. The buffer has at least 64 bytes.
int32_t TMBIPC_GetChannelPath(const char* inName, int32_t inID, uint32_t inBufferSize,
                              char* outBuffer);
// Both do nothing to what does not look like a channel's path.
int32_t TMBIPC_DisposeChannel(const char* inPath);
int32_t TMBIPC_SetPermissions(const char* inPath, int32_t inShared);

// What TMBIPC_IsSIPEnabled found; -1 until it has looked.
extern std::atomic<int32_t> __tmb_ipc_sip_enabled;
